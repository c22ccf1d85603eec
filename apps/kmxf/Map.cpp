#include "Map.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Text.h"

namespace kmxf::program {

namespace {

// In pixels
constexpr double kLabelWidth = 200, kPictureWidth = 1200, kRowHeight = 18, kStripHead = 42, kMargin = 12;
constexpr double kLeastWidth = 1;  // of what is there at all

// What is shown larger
constexpr uint64_t kBeginning = 160 << 10, kEnd = 64 << 10;
// Streams with a row of their own; more go into the last.
constexpr size_t kMostRows = 48;

struct KindRow {
    PacketKind kind;
    const char* name;
    const char* colour;
};
constexpr KindRow kKindRows[] = {
    {PacketKind::kPrimer, "header metadata", "#3b6fb6"},
    {PacketKind::kSet, "header metadata", "#3b6fb6"},
    {PacketKind::kIndexSegment, "index", "#8a5fb0"},
    {PacketKind::kRandomIndex, "random index", "#c05fa8"},
    {PacketKind::kFill, "fill", "#b9bec4"},
    {PacketKind::kDark, "dark", "#444444"},
    {PacketKind::kRunIn, "run-in", "#b08d3a"},
    {PacketKind::kDamage, "damage", "#d62728"},
};
constexpr const char* kPartitionColours[] = {"#7f8c99", "#a9b4bf"};
constexpr const char* kEssenceColours[] = {"#2e8b57", "#d9822b", "#1f9ba8", "#7a9a01", "#b5651d", "#4c78a8"};

template <class... Values>
std::string Format(const char* format, Values... values) {
    char text[160];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    }
    return escaped;
}

}  // namespace

double FileMap::Strip::Left(uint64_t offset) const {
    const double size = static_cast<double>(std::max<uint64_t>(to - from, 1));
    return static_cast<double>(std::clamp(offset, from, to) - from) / size * kPictureWidth;
}

bool FileMap::Strip::IsSameColumn(uint64_t a, uint64_t b) const {
    return static_cast<int64_t>(Left(a)) == static_cast<int64_t>(Left(b));
}

void FileMap::Strip::Add(size_t row, const Block& block) {
    if (block.to <= from || block.from >= to) return;
    if (blocks.size() <= row) blocks.resize(row + 1);
    std::vector<Block>& all = blocks[row];
    const bool belongs = !all.empty() && all.back().to == block.from && all.back().key == block.key;
    if (!belongs && (all.empty() || !IsSameColumn(all.back().from, block.from))) {
        all.push_back(block);
        return;
    }
    Block& last = all.back();
    last.to = block.to;
    last.packets += block.packets;
    // A partition keeps the name of its pack.
    if (last.name != block.name && !(belongs && block.key != 0)) last.name.clear();
    last.key = block.key;
}

FileMap::FileMap(std::string path, uint64_t fileSize) : path_(std::move(path)), fileSize_(fileSize) {
    strips_.push_back({"the whole file", 0, fileSize, {}});
    if (fileSize <= kBeginning) return;
    strips_.push_back({"the beginning", 0, kBeginning, {}});
    strips_.push_back({"the end", fileSize - kEnd, fileSize, {}});
}

size_t FileMap::RowOf(const std::string& name, const char* colour) {
    const auto row = std::ranges::find(rows_, name, &Row::name);
    if (row != rows_.end()) return static_cast<size_t>(row - rows_.begin());
    if (rows_.size() == kMostRows) return kMostRows - 1;
    rows_.push_back({name, colour});
    return rows_.size() - 1;
}

void FileMap::Add(size_t row, const Block& block) {
    rows_[row].packets += block.packets;
    rows_[row].bytes += block.to - block.from;
    for (Strip& strip : strips_) strip.Add(row, block);
}

void FileMap::Add(const InspectedPacket& packet, uint64_t bodySID) {
    const std::string name(packet.name.empty() ? KindName(packet.kind) : packet.name);
    const Block block{packet.offset, packet.End(), 1, name, 0};
    // Everything belongs to its partition.
    const size_t partitions = RowOf("partitions", kPartitionColours[0]);
    const bool isPack = packet.kind == PacketKind::kPartition;
    if (packet.partition != 0) {
        Block part = block;
        part.key = packet.partition;
        part.packets = isPack ? 1 : 0;
        Add(partitions, part);
    }
    if (isPack) return;
    if (packet.kind == PacketKind::kEssence) {
        const char* colour = kEssenceColours[bodySID % std::size(kEssenceColours)];
        Add(RowOf(name + ", stream " + std::to_string(bodySID), colour), block);
        return;
    }
    const auto* kind = std::ranges::find(kKindRows, packet.kind, &KindRow::kind);
    Add(RowOf(kind->name, kind->colour), block);
}

void FileMap::AppendStrip(std::string& svg, const Strip& strip, double top) const {
    svg += Format("<text x=\"%.0f\" y=\"%.1f\" class=\"head\">", kMargin, top + 16) + Escaped(strip.title) + ", " +
           WithSeparators(strip.from) + " to " + WithSeparators(strip.to) + "</text>\n";
    for (int mark = 0; mark <= 4; ++mark) {
        const uint64_t offset = strip.from + (strip.to - strip.from) / 4 * static_cast<uint64_t>(mark);
        const double x = kLabelWidth + strip.Left(mark == 4 ? strip.to : offset);
        const char* anchor = mark == 0 ? "start" : mark == 4 ? "end" : "middle";
        svg += Format("<text x=\"%.1f\" y=\"%.1f\" class=\"mark\" text-anchor=\"%s\">", x, top + 34, anchor) +
               WithSeparators(mark == 4 ? strip.to : offset) + "</text>\n";
    }
    for (size_t row = 0; row < rows_.size(); ++row) {
        const double y = top + kStripHead + kRowHeight * static_cast<double>(row);
        svg += Format("<text x=\"%.0f\" y=\"%.1f\" class=\"row\">", kMargin, y + 12) + Escaped(rows_[row].name) +
               "</text>\n";
        svg += Format("<rect x=\"%.0f\" y=\"%.1f\" width=\"%.0f\" height=\"14\" fill=\"#f2f4f6\"/>\n", kLabelWidth, y,
                      kPictureWidth);
        if (row >= strip.blocks.size()) continue;
        for (const Block& block : strip.blocks[row]) {
            const double left = strip.Left(block.from);
            const double width = std::max(strip.Left(block.to) - left, kLeastWidth);
            // Partitions that touch are told apart.
            const char* colour = row == 0 ? kPartitionColours[block.key % 2] : rows_[row].colour;
            svg += Format("<rect x=\"%.2f\" y=\"%.1f\" width=\"%.2f\" height=\"14\" fill=\"%s\"><title>",
                          kLabelWidth + std::min(left, kPictureWidth - kLeastWidth), y, width, colour) +
                   Escaped(block.name.empty() ? rows_[row].name : block.name) + " " + WithSeparators(block.from) +
                   " to " + WithSeparators(block.to) + "</title></rect>\n";
        }
    }
}

std::string FileMap::Svg() const {
    const double stripHeight = kStripHead + kRowHeight * static_cast<double>(rows_.size()) + kMargin;
    const double height = 34 + stripHeight * static_cast<double>(strips_.size());
    const double width = kLabelWidth + kPictureWidth + kMargin;
    std::string svg =
        Format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" viewBox=\"0 0 %.0f %.0f\">\n",
               width, height, width, height);
    svg += "<title>" + Escaped(path_) +
           "</title>\n"
           "<style>text{font-family:sans-serif;fill:#222}.name{font-size:15px;font-weight:bold}.head{font-size:13px;"
           "font-weight:bold}.row{font-size:11px}.mark{font-size:10px;fill:#666}</style>\n"
           "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    svg += Format("<text x=\"%.0f\" y=\"22\" class=\"name\">", kMargin) + Escaped(path_) + ", " +
           WithSeparators(fileSize_) + " bytes</text>\n";
    for (size_t i = 0; i < strips_.size(); ++i) AppendStrip(svg, strips_[i], 34 + stripHeight * static_cast<double>(i));
    return svg + "</svg>\n";
}

std::string FileMap::Html() const {
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" +
                       Escaped(path_) +
                       "</title>\n<style>body{font-family:sans-serif;margin:1em;color:#222}"
                       "table{border-collapse:collapse;margin-top:1em}td,th{padding:2px 12px;text-align:right;"
                       "border-bottom:1px solid #ddd}td:first-child,th:first-child{text-align:left}</style>\n"
                       "</head>\n<body>\n" +
                       Svg() + "<table>\n<tr><th>content</th><th>packets</th><th>bytes</th><th>share</th></tr>\n";
    for (const Row& row : rows_) {
        const double share = fileSize_ == 0 ? 0 : 100 * static_cast<double>(row.bytes) / static_cast<double>(fileSize_);
        html += "<tr><td>" + Escaped(row.name) + "</td><td>" + WithSeparators(row.packets) + "</td><td>" +
                WithSeparators(row.bytes) + "</td><td>" + Format("%.3f %%", share) + "</td></tr>\n";
    }
    return html + "</table>\n</body>\n</html>\n";
}

}  // namespace kmxf::program
