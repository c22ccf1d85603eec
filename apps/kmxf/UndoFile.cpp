#include "UndoFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "InputFile.h"
#include "Program.h"
#include "Text.h"

namespace kmxf::program {

namespace {

constexpr const char* kFormat = "kmxf/1";
constexpr uint64_t kMostText = 4 << 20;  // several times what the whole header takes

// Names lead to files beside the undo file, nowhere else.
bool IsPlainName(const std::string& name) { return !name.empty() && name.find('/') == std::string::npos; }

// A number that is none of bytes, as -1 or 1e300, is malformed.
std::optional<uint64_t> Bytes(const nlohmann::json& number) {
    return number.is_number_unsigned() ? std::optional(number.get<uint64_t>()) : std::nullopt;
}

std::optional<UndoFile> Parse(const std::string& text) try {
    const auto json = nlohmann::json::parse(text);
    if (json.at("undo") != kFormat) return std::nullopt;
    UndoFile undo;
    undo.clip = json.at("clip").get<std::vector<std::string>>();
    if (!std::all_of(undo.clip.begin(), undo.clip.end(), IsPlainName)) return std::nullopt;
    const auto fileSize = Bytes(json.at("file_size"));
    if (!fileSize) return std::nullopt;
    undo.fileSize = *fileSize;
    undo.before = json.at("before").get<std::string>();
    undo.after = json.at("after").get<std::string>();
    for (const auto& change : json.at("changes")) {
        auto bytes = ParseHex(change.at("old").get<std::string>());
        const auto offset = Bytes(change.at("offset"));
        if (!bytes || !offset) return std::nullopt;
        undo.pieces.push_back({*offset, std::move(*bytes)});
    }
    return undo;
} catch (const nlohmann::json::exception&) {
    return std::nullopt;
}

void WriteText(int descriptor, const std::string& text, const std::string& path) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) Fail(ExitStatus::kOutput, path, "cannot be written: " + ErrorText(errno));
        done += static_cast<size_t>(count);
        ++statistics.writes;
        statistics.bytesWritten += static_cast<uint64_t>(count);
    }
}

}  // namespace

std::optional<std::vector<uint8_t>> UndoFile::PutBack(const HeaderBytes& now) const {
    std::vector<uint8_t> header = now.bytes;
    for (const Piece& piece : pieces) {
        if (piece.offset > header.size() || piece.bytes.size() > header.size() - piece.offset) return std::nullopt;
        std::copy(piece.bytes.begin(), piece.bytes.end(), header.begin() + static_cast<ptrdiff_t>(piece.offset));
    }
    if (now.fileSize != fileSize || Fingerprint(header) != before) return std::nullopt;
    return header;
}

bool UndoFile::IsComplete(const HeaderBytes& now) const { return Fingerprint(now.bytes) == after && PutBack(now); }

std::string UndoFile::Text() const {
    nlohmann::ordered_json json{{"undo", kFormat},  {"clip", clip},   {"file_size", fileSize},
                                {"before", before}, {"after", after}, {"changes", nlohmann::ordered_json::array()}};
    for (const Piece& piece : pieces) {
        json["changes"].push_back({{"offset", piece.offset}, {"old", Hex(piece.bytes.data(), piece.bytes.size())}});
    }
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string UndoPath(const std::string& path) { return path + ".undo"; }

std::optional<UndoFile> ReadUndoFile(const std::string& path) {
    const std::string undoPath = UndoPath(path);
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::symlink_status(undoPath, error))) return std::nullopt;
    const InputFile file(undoPath);
    const auto bytes = file.Look(0, static_cast<size_t>(std::min(file.Size(), kMostText)));
    auto undo = Parse({bytes.begin(), bytes.end()});
    if (!undo) Fail(ExitStatus::kInput, undoPath, "is not the undo file of an edit, or is damaged");
    return undo;
}

UndoFile MakeUndoFile(const HeaderEdit& edit, const std::optional<UndoFile>& earlier, std::vector<std::string> clip) {
    HeaderEdit whole{edit.now, edit.after};
    if (earlier) {
        whole.now.bytes = earlier->PutBack(edit.now).value();
        clip.insert(clip.end(), earlier->clip.begin(), earlier->clip.end());
    }
    const std::set<std::string> names(clip.begin(), clip.end());
    UndoFile undo{
        {names.begin(), names.end()}, edit.now.fileSize, Fingerprint(whole.now.bytes), Fingerprint(edit.after), {}};
    auto ranges = whole.Ranges();
    if (earlier) {
        // Broken off, an edit may leave bytes of the earlier one that it was to take back.
        const auto own = edit.Ranges();
        ranges.insert(ranges.end(), own.begin(), own.end());
    }
    for (const ByteRange& range : ranges) {
        const auto from = whole.now.bytes.begin();
        undo.pieces.push_back(
            {range.begin, {from + static_cast<ptrdiff_t>(range.begin), from + static_cast<ptrdiff_t>(range.end)}});
    }
    return undo;
}

void WriteUndoFiles(const std::vector<NewUndoFile>& files) {
    std::vector<std::unique_ptr<OutputFile>> outputs;
    for (const auto& [path, undo] : files) {
        OutputFile& output = *outputs.emplace_back(std::make_unique<OutputFile>(UndoPath(path), true));
        WriteText(output.Descriptor(), undo.Text(), output.FinalPath());
    }
    PublishAll(outputs);
}

void RemoveUndoFile(const std::string& path) {
    if (::unlink(UndoPath(path).c_str()) != 0 && errno != ENOENT) {
        Fail(ExitStatus::kOutput, UndoPath(path), "cannot be removed: " + ErrorText(errno));
    }
}

}  // namespace kmxf::program
