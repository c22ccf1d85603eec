#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "Commands.h"
#include "FileInfo.h"
#include "Map.h"
#include "StreamOutput.h"
#include "Text.h"
#include "kmxf/structures/Inspect.h"

namespace kmxf::program {

namespace {

struct DumpOptions {
    std::string file, map;
    bool json = false, force = false, only = false;
};

using Ull = unsigned long long;

std::string HexOf(const MXFKEYTag& key) { return Hex(key.bytes, sizeof key.bytes); }
std::string HexOf(uint16_t tag) { return HexCode(tag).substr(6); }
bool IsStretch(const InspectedPacket& packet) {
    return packet.kind == PacketKind::kDamage || packet.kind == PacketKind::kRunIn;
}

// "TrackID", or what there is instead of a name: tag and label.
std::string NameOf(const InspectedItem& item) {
    if (!item.name.empty()) return std::string(item.name);
    if (item.tag == 0 && item.label == MXFKEYTag{}) return "";
    return HexOf(item.tag) + (item.label == MXFKEYTag{} ? "" : " " + HexOf(item.label));
}

void Print(const InspectedPacket& packet, const std::vector<InspectedItem>& items) {
    const std::string name(packet.name);
    std::printf("%14llu  %-24s %14llu", static_cast<Ull>(packet.offset),
                IsStretch(packet) ? std::string(KindName(packet.kind)).c_str()
                : name.empty()    ? HexOf(packet.key).c_str()
                                  : name.c_str(),
                static_cast<Ull>(packet.length));
    if (!packet.whole) std::printf("  %llu are there", static_cast<Ull>(packet.available));
    std::printf("\n");
    for (const InspectedItem& item : items) {
        // The entries of a primer pack stand under their tags.
        const std::string tag = packet.kind == PacketKind::kPrimer && item.tag != 0 ? HexOf(item.tag) + " " : "";
        std::printf("%14s  %-24s %s", "", (tag + NameOf(item)).c_str(), item.Text().c_str());
        if (item.value.size() < item.length)
            std::printf("  %llu of %llu bytes", static_cast<Ull>(item.value.size()), static_cast<Ull>(item.length));
        std::printf("\n");
    }
}

nlohmann::ordered_json Json(const InspectedItem& item) {
    nlohmann::ordered_json json{{"offset", item.offset}, {"length", item.length}};
    if (item.tag != 0) json["tag"] = HexOf(item.tag);
    if (!item.name.empty()) json["name"] = item.name;
    if (item.label != MXFKEYTag{}) json["label"] = HexOf(item.label);
    json["value"] = item.Text();
    return json;
}

nlohmann::ordered_json Json(const InspectedPacket& packet, const std::vector<InspectedItem>& items) {
    nlohmann::ordered_json json{{"offset", packet.offset}, {"kind", KindName(packet.kind)}};
    if (!packet.name.empty()) json["name"] = packet.name;
    if (!IsStretch(packet)) {
        json["key"] = HexOf(packet.key);
        json["head_size"] = packet.headSize;
    }
    json["length"] = packet.length;
    if (!packet.whole) json["available"] = packet.available;
    json["partition"] = packet.partition;
    for (const InspectedItem& item : items) json["items"].push_back(Json(item));
    return json;
}

std::string Text(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void CheckOutput() {
    if (std::ferror(stdout) != 0)
        Fail(ExitStatus::kOutput, "standard output", "cannot be written: " + ErrorText(errno));
}

void WriteMap(const FileMap& map, const DumpOptions& o) {
    const bool html = o.map.ends_with(".html");
    const std::string text = html ? map.Html() : map.Svg();
    StreamOutput output(o.map, o.force, std::nullopt);
    output.Write({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    output.Finish();
    std::vector<std::unique_ptr<OutputFile>> files;
    files.push_back(output.TakeFile());
    PublishAll(files);
}

ExitStatus Dump(const DumpOptions& o) try {
    const auto source = OpenSource(o.file);
    CInspector inspector(*source);
    std::optional<FileMap> map;
    if (!o.map.empty()) map.emplace(o.file, source->GetSize());
    if (o.json) std::printf("{\n  \"schema\": \"kmxf/1\",\n  \"path\": %s,\n  \"packets\": [", Text(o.file).c_str());
    const char* separator = "\n    ";
    uint64_t bodySID = 0;
    bool known = false;
    while (const auto packet = inspector.Next()) {
        known = known || !packet->name.empty();
        const auto items = inspector.Items(*packet);
        if (packet->kind == PacketKind::kPartition) {
            const InspectedItem* sid = FindItem(items, "BodySID");
            bodySID = sid == nullptr ? 0 : sid->Unsigned().value_or(0);
        }
        if (map) map->Add(*packet, bodySID);
        if (o.json) {
            std::printf("%s%s", std::exchange(separator, ",\n    "), Text(Json(*packet, items)).c_str());
        } else if (!map) {
            Print(*packet, items);
        }
        CheckOutput();
    }
    if (o.json) std::printf("\n  ]\n}\n");
    if (map) WriteMap(*map, o);
    if (!known) Say(o.file + ": is not an MXF file (offset 0)");
    return known ? ExitStatus::kDone : ExitStatus::kInput;
} catch (const ClipError& error) {
    throw Failure(ExitStatus::kInput, error.what());
}

}  // namespace

Run AddDump(CLI::App& app) {
    auto options = std::make_shared<DumpOptions>();
    DumpOptions& o = *options;
    CLI::App* dump = app.add_subcommand("dump", "Shows a file as it lies on disk, packet by packet");
    dump->add_option("FILE", o.file, "Any KLV file, also a damaged one")->required();
    dump->add_flag("--json", o.json, "One JSON document");
    dump->add_option("--map", o.map, "Instead of the text, draw the file to scale: F.svg or F.html")
        ->check([](const std::string& path) {
            return path.ends_with(".svg") || path.ends_with(".html") ? "" : "is neither .svg nor .html: " + path;
        });
    dump->add_flag("--force", o.force, "Overwrite an existing map");
    dump->add_flag("--only", o.only, "Only the file named, as always here");
    return [options] { return Dump(*options); };
}

}  // namespace kmxf::program
