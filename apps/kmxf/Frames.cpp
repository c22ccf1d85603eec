#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "Clip.h"
#include "Commands.h"
#include "FileInfo.h"
#include "Text.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/collaborators/VideoFrame.h"

namespace kmxf::program {

namespace {

// What is looked at of a frame: its first DIF sequence, or the area of its first SEI messages.
constexpr size_t kDIFSequenceSize = 12000;
constexpr size_t kSEIAreaSize = 512;

struct Options {
    std::string file;
    uint64_t from = 0;
    std::optional<uint64_t> count;
    bool json = false, only = false;
};

struct FrameLine {
    uint64_t number, offset, size;
    std::string timecode, userBits;  // empty: the frame carries none
};

std::string TimecodeText(const VideoFormat& format, const uint8_t* packed) {
    CTimecode timecode;
    timecode.SetVideoStd(format.videoStd);
    return timecode.SetData(packed) == 0 ? timecode.GetText() : "";
}

void ReadMarks(FrameLine& line, const VideoFormat& format, std::span<const uint8_t> frame) {
    uint8_t timecode[4], userBits[4];
    bool hasTimecode = false, hasUserBits = false;
    const auto size = static_cast<uint32_t>(frame.size());
    if (format.IsAVCIntra()) {
        CAVCIFrame picture;
        if (picture.SetFrameData(frame.data(), size) != 0) return;
        hasTimecode = picture.GetTimecode(timecode, SEI_DATA_TYPE1) == 0;
        hasUserBits = picture.GetUsersBit(userBits, SEI_DATA_TYPE1) == 0;
    } else {
        CDIFFrame picture;
        if (picture.SetDIFData(frame.data(), size) != 0) return;
        hasTimecode = picture.GetTimecode(timecode, 1) == 0;
        hasUserBits = picture.GetUsersBit(userBits, SEI_DATA_TYPE1, 1) == 0;
    }
    if (hasTimecode) line.timecode = TimecodeText(format, timecode);
    if (hasUserBits) line.userBits = Hex(userBits, sizeof userBits);
}

void Print(const FrameLine& line) {
    std::printf("%8llu %14llu %8llu  %s  %s\n", static_cast<unsigned long long>(line.number),
                static_cast<unsigned long long>(line.offset), static_cast<unsigned long long>(line.size),
                line.timecode.empty() ? "--:--:--:--" : line.timecode.c_str(),
                line.userBits.empty() ? "--------" : line.userBits.c_str());
}

void PrintJson(const FrameLine& line, bool first) {
    nlohmann::ordered_json json{{"frame", line.number}, {"offset", line.offset}, {"size", line.size}};
    if (!line.timecode.empty()) json["timecode"] = line.timecode;
    if (!line.userBits.empty()) json["user_bits"] = line.userBits;
    std::printf("%s    %s", first ? "" : ",\n", json.dump().c_str());
}

// The file named; of a folder, the picture of the one clip in it.
FileInfo FileToList(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) return ReadFileInfo(path);
    const FoundClips found = FindClips({path}, false);
    if (found.clips.size() != 1) {
        Fail(ExitStatus::kInput, path, "holds " + std::to_string(found.clips.size()) + " clips; name a file");
    }
    const Clip& clip = found.clips.front();
    return clip.Video() != nullptr ? *clip.Video() : clip.files.front();
}

ExitStatus Frames(const Options& o) {
    const FileInfo info = FileToList(o.file);
    const auto frames = static_cast<uint64_t>(std::max<int64_t>(info.duration, 0));
    if (o.from > frames) {
        Fail(ExitStatus::kInput, info.path,
             "has " + std::to_string(frames) + " frames; frame " + std::to_string(o.from) + " is not among them");
    }
    const uint64_t end = o.from + std::min(o.count.value_or(frames), frames - o.from);

    const int descriptor = ::open(info.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) Fail(ExitStatus::kInput, info.path, "cannot be opened: " + ErrorText(errno));
    const std::shared_ptr<void> closer(nullptr, [descriptor](void*) { ::close(descriptor); });
    std::vector<uint8_t> look(info.isVideo ? info.format->IsAVCIntra() ? kSEIAreaSize : kDIFSequenceSize : 0);

    if (o.json) {
        std::printf("{\n  \"schema\": \"kmxf/1\",\n  \"path\": %s,\n  \"frames\": [\n",
                    nlohmann::ordered_json(info.path)
                        .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                        .c_str());
    }
    for (uint64_t frame = o.from; frame < end && !interrupted; ++frame) {
        FrameLine line{frame, 0, 0, "", ""};
        if (info.isVideo) {
            line.offset = info.FrameOffset(frame);
            line.size = info.frameSize;
            const ssize_t count = ::pread(descriptor, look.data(), look.size(), static_cast<off_t>(line.offset));
            if (count != static_cast<ssize_t>(look.size())) {
                Fail(ExitStatus::kInput, info.path,
                     "frame " + std::to_string(frame) + " cannot be read (offset " + std::to_string(line.offset) + ")");
            }
            ++statistics.reads;
            statistics.bytesRead += look.size();
            ReadMarks(line, *info.format, look);
        } else {
            const uint64_t bytesPerSample = info.bitsPerSample / 8;
            const auto first = static_cast<uint64_t>(info.FirstSample(frame));
            line.offset = info.dataOffset + first * bytesPerSample;
            line.size = (static_cast<uint64_t>(info.FirstSample(frame + 1)) - first) * bytesPerSample;
        }
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
    auto options = std::make_shared<Options>();
    Options& o = *options;
    CLI::App* frames = app.add_subcommand("frames", "Lists a file's frames: number, offset, size, timecode, user bits");
    frames->add_option("FILE", o.file, "A video or audio file; of a folder, its clip's picture")->required();
    frames->add_option("--from", o.from, "First frame, counted from 0")->check(CLI::NonNegativeNumber);
    frames->add_option("--count", o.count, "Number of frames")->check(CLI::NonNegativeNumber);
    frames->add_flag("--json", o.json, "One JSON document");
    frames->add_flag("--only", o.only, "Only the file named, as always here");
    return [options] { return Frames(*options); };
}

}  // namespace kmxf::program
