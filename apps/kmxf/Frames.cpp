#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "Clip.h"
#include "Commands.h"
#include "FileInfo.h"
#include "FrameLines.h"
#include "Text.h"

namespace kmxf::program {

namespace {

struct FramesOptions {
    std::string file;
    uint64_t from = 0;
    std::optional<uint64_t> count;
    bool json = false, only = false;
};

using Ull = unsigned long long;

void Print(const FrameLine& line) {
    std::printf("%8llu %14llu %8llu  %s  %s", static_cast<Ull>(line.number), static_cast<Ull>(line.place.offset),
                static_cast<Ull>(line.place.size), line.timecode.empty() ? "--:--:--:--" : line.timecode.c_str(),
                line.userBits.empty() ? "--------" : line.userBits.c_str());
    if (line.entry) {
        const auto print = [](const char* what, const FrameLine::Place& place) {
            std::printf("  %s %llu+%llu", what, static_cast<Ull>(place.offset), static_cast<Ull>(place.size));
        };
        std::printf("  %4d %4d  %02X", line.entry->temporalOffset, line.entry->keyFrameOffset, line.entry->flags);
        if (line.entry->anc) print("anc", *line.entry->anc);
        for (const FrameLine::Place& place : line.entry->audio) print("audio", place);
    }
    std::printf("\n");
}

nlohmann::ordered_json Json(const FrameLine::Place& place) { return {{"offset", place.offset}, {"size", place.size}}; }

void PrintJson(const FrameLine& line, bool first) {
    nlohmann::ordered_json json{{"frame", line.number}, {"offset", line.place.offset}, {"size", line.place.size}};
    if (!line.timecode.empty()) json["timecode"] = line.timecode;
    if (!line.userBits.empty()) json["user_bits"] = line.userBits;
    if (line.entry) {
        json["temporal_offset"] = line.entry->temporalOffset;
        json["key_frame_offset"] = line.entry->keyFrameOffset;
        json["flags"] = line.entry->flags;
        for (const FrameLine::Place& place : line.entry->audio) json["audio"].push_back(Json(place));
        if (line.entry->anc) json["anc"] = Json(*line.entry->anc);
    }
    std::printf("%s    %s", first ? "" : ",\n", json.dump().c_str());
}

// The file named; of a folder, the picture of the one clip in it.
FileInfo FileToList(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) return FindClips({path}, true).clips.front().files.front();
    const FoundClips found = FindClips({path}, false);
    if (found.clips.size() != 1) {
        Fail(ExitStatus::kInput, path, "holds " + std::to_string(found.clips.size()) + " clips; name a file");
    }
    const Clip& clip = found.clips.front();
    return clip.Video() != nullptr ? *clip.Video() : clip.files.front();
}

ExitStatus Frames(const FramesOptions& o) {
    const FileInfo info = FileToList(o.file);
    const auto frames = static_cast<uint64_t>(std::max<int64_t>(info.frames, 0));
    if (o.from > frames) {
        Fail(ExitStatus::kInput, info.path,
             "has " + std::to_string(frames) + " frames; frame " + std::to_string(o.from) + " is not among them");
    }
    const uint64_t end = o.from + std::min(o.count.value_or(frames), frames - o.from);

    FrameLines lines(info);
    if (o.json) {
        std::printf("{\n  \"schema\": \"kmxf/1\",\n  \"path\": %s,\n  \"frames\": [\n",
                    nlohmann::ordered_json(info.path)
                        .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                        .c_str());
    }
    for (uint64_t frame = o.from; frame < end && !interrupted; ++frame) {
        const FrameLine line = lines.Line(frame);
        if (o.json) {
            PrintJson(line, frame == o.from);
        } else {
            Print(line);
        }
        if (std::ferror(stdout) != 0)
            Fail(ExitStatus::kOutput, "standard output", "cannot be written: " + ErrorText(errno));
    }
    if (o.json) std::printf("\n  ]\n}\n");
    if (interrupted) return ExitStatus::kInterrupted;
    return info.verdict.kind == Verdict::Kind::kClosed ? ExitStatus::kDone : ExitStatus::kFindings;
}

}  // namespace

Run AddFrames(CLI::App& app) {
    auto options = std::make_shared<FramesOptions>();
    FramesOptions& o = *options;
    CLI::App* frames = app.add_subcommand("frames", "Lists a file's frames: number, offset, size, timecode, user bits");
    frames->add_option("FILE", o.file, "A video or audio file; of a folder, its clip's picture")->required();
    frames->add_option("--from", o.from, "First frame, counted from 0")->check(CLI::NonNegativeNumber);
    frames->add_option("--count", o.count, "Number of frames")->check(CLI::NonNegativeNumber);
    frames->add_flag("--json", o.json, "One JSON document");
    frames->add_flag("--only", o.only, "Only the file named, as always here");
    return [options] { return Frames(*options); };
}

}  // namespace kmxf::program
