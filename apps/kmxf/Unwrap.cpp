#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <regex>
#include <set>
#include <utility>
#include <vector>

#include "Clip.h"
#include "Commands.h"
#include "InputFile.h"
#include "Progress.h"
#include "StreamOutput.h"
#include "UnwrapOp1b.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

struct UnwrapOptions {
    std::vector<std::string> files;
    std::string folder;
    std::string frames;
    bool raw = false, only = false, force = false;
};

std::optional<FrameRange> ParseRange(const std::string& text) {
    if (text.empty()) return std::nullopt;
    static const std::regex kRange("([0-9]{1,18})(-([0-9]{1,18}))?");
    std::smatch match;
    const bool matched = std::regex_match(text, match, kRange);
    const uint64_t first = matched ? std::stoull(match[1]) : 0;
    const uint64_t last = matched && match[3].matched ? std::stoull(match[3]) : first;
    if (!matched || last < first) {
        throw Failure(ExitStatus::kUsage, "--frames " + text + ": is no range; A-B is needed, counted from 0");
    }
    return FrameRange{first, last};
}

void CheckRange(const FileInfo& info, const FrameRange& range) {
    const auto frames = static_cast<uint64_t>(std::max<int64_t>(info.frames, 0));
    if (range.last >= frames) {
        Fail(ExitStatus::kInput, info.path,
             "has " + std::to_string(frames) + " frames; frame " + std::to_string(range.last) + " is not among them");
    }
}

// A range of the file's bytes, with a parameter-set block to put in front when a part of AVC-Intra must be playable.
struct Part {
    uint64_t offset = 0, size = 0;
    std::vector<uint8_t> lead;
};

Part PartOf(const FileInfo& info, const std::optional<FrameRange>& range, bool raw) {
    const auto dataSize = static_cast<uint64_t>(info.dataSize);
    if (!range) return {info.dataOffset, dataSize, {}};
    if (!info.isVideo) {
        const uint64_t bytesPerSample = info.bitsPerSample / 8;
        const auto begin = static_cast<uint64_t>(info.FirstSample(range->first)) * bytesPerSample;
        const auto end = static_cast<uint64_t>(info.FirstSample(range->last + 1)) * bytesPerSample;
        return {info.dataOffset + begin, end - begin, {}};
    }
    Part part{info.FrameOffset(range->first), (range->last - range->first + 1) * info.frameSize, {}};
    if (IsAVCI(info.format->compType) && !raw) {
        part.lead.resize(512);
        GetAVCIHeader(info.format->videoStd, info.format->compType, part.lead.data());
    }
    return part;
}

void ExtractOpAtom(const InputFile& from, const FileInfo& info, const Part& part, StreamOutput& to) {
    Progress progress(to.Name(), part.size, info.frameSize);
    to.Write(part.lead);
    to.Copy(from, {part.offset, part.offset + part.size}, [&](uint64_t bytes) { progress.Advance(bytes); });
}

// What a file is unwrapped into.
std::vector<EssenceStream> StreamsOf(const FileInfo& info, bool raw) {
    const std::string stem = std::filesystem::path(info.path).stem().string();
    if (info.isOp1b) return Op1bStreams(info, stem, raw);
    if (!info.isVideo) return {{stem + (raw ? ".pcm" : ".wav"), EssenceStream::Kind::kSound}};
    return {{stem + (raw ? ".raw" : IsAVCI(info.format->compType) ? ".h264" : ".dv"), EssenceStream::Kind::kPicture}};
}

struct Job {
    FileInfo info;
    std::vector<EssenceStream> streams;
};

// Makes the outputs of a file, and brings its essence there.
std::vector<std::unique_ptr<StreamOutput>> Extract(const Job& job, const std::optional<FrameRange>& range,
                                                   const std::vector<std::string>& paths, const UnwrapOptions& o) {
    const FileInfo& info = job.info;
    const InputFile from(info.path);
    ::posix_fadvise(from.Descriptor(), 0, 0, POSIX_FADV_SEQUENTIAL);
    const Part part = info.isOp1b ? Part{} : PartOf(info, range, o.raw);
    const uint64_t mostBytes = info.isOp1b ? static_cast<uint64_t>(info.dataSize) : part.size;

    std::vector<std::unique_ptr<StreamOutput>> outputs;
    for (size_t i = 0; i < job.streams.size(); ++i) {
        const bool asWav = job.streams[i].kind == EssenceStream::Kind::kSound && !o.raw;
        const auto wav =
            asWav ? std::optional(WavForm{info.samplingRate, info.bitsPerSample / 8, mostBytes}) : std::nullopt;
        outputs.push_back(std::make_unique<StreamOutput>(paths[i], o.force, wav));
    }
    if (info.isOp1b) {
        ExtractOp1b(from, info, job.streams, range, o.raw, outputs);
    } else {
        ExtractOpAtom(from, info, part, *outputs.front());
    }
    if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
    for (const auto& output : outputs) output->Finish();
    return outputs;
}

// Where the streams go, in their order; empty paths for standard output.
std::vector<std::string> PathsOf(const Job& job, const std::vector<Job>& jobs, const std::string& folder) {
    std::vector<std::string> paths;
    for (const EssenceStream& stream : job.streams) {
        const auto path = folder == "-" ? std::filesystem::path() : std::filesystem::path(folder) / stream.name;
        for (const Job& each : jobs) {
            std::error_code error;
            if (!path.empty() && std::filesystem::equivalent(each.info.path, path, error)) {
                throw Failure(ExitStatus::kUsage, path.string() + ": is a file to be unwrapped itself");
            }
        }
        paths.push_back(path.string());
    }
    return paths;
}

ExitStatus Unwrap(const UnwrapOptions& o) {
    const auto range = ParseRange(o.frames);
    const bool standardOutput = o.folder == "-";
    std::vector<Job> jobs;
    FoundClips found = FindClips(o.files, o.only);
    for (Clip& clip : found.clips) {
        for (FileInfo& info : clip.files) {
            auto streams = StreamsOf(info, o.raw);
            if (standardOutput) std::erase_if(streams, [](const EssenceStream& stream) { return stream.IsSideData(); });
            jobs.push_back({std::move(info), std::move(streams)});
        }
    }
    size_t count = 0;
    std::set<std::string> names;
    for (const Job& job : jobs) {
        for (const EssenceStream& stream : job.streams) {
            ++count;
            if (!names.insert(stream.name).second) {
                throw Failure(ExitStatus::kUsage,
                              job.info.path + ": another file is to become " + stream.name + " as well");
            }
        }
    }
    if (standardOutput && count != 1) {
        throw Failure(ExitStatus::kUsage, "-o -: takes one stream, and these files hold " + std::to_string(count) +
                                              (jobs.size() == count ? "; --only names one file" : ""));
    }

    ExitStatus status = found.status;
    std::optional<OutputFolder> folder;
    if (!standardOutput) folder.emplace(o.folder);
    std::vector<std::unique_ptr<OutputFile>> files;
    for (const Job& job : jobs) {
        const FileInfo& info = job.info;
        if (info.verdict.kind == Verdict::Kind::kDamaged && info.dataOffset == 0) {
            Fail(ExitStatus::kInput, info.path, info.verdict.Text() + ": its essence cannot be found");
        }
        if (info.verdict.kind != Verdict::Kind::kClosed) {
            Say(info.path + ": " + info.verdict.Text() + "; what is there is given back");
            if (status == ExitStatus::kDone) status = ExitStatus::kFindings;
        }
        if (range) CheckRange(info, *range);
        for (const auto& output : Extract(job, range, PathsOf(job, jobs, o.folder), o)) {
            if (auto file = output->TakeFile()) files.push_back(std::move(file));
        }
    }
    PublishAll(files);
    return status;
}

}  // namespace

Run AddUnwrap(CLI::App& app) {
    auto options = std::make_shared<UnwrapOptions>();
    UnwrapOptions& o = *options;
    CLI::App* unwrap = app.add_subcommand("unwrap", "Gives the essence of a clip back");
    unwrap->add_option("FILE", o.files, "A file of the clip, or its folder")->required();
    unwrap->add_option("-o,--output", o.folder, "Folder for the essence; - for standard output")->required();
    unwrap->add_option("--frames", o.frames, "Only frames A-B, counted from 0");
    unwrap->add_flag("--raw", o.raw, "The bytes of the essence element as they are");
    unwrap->add_flag("--only", o.only, "Only the files named, not their clips");
    unwrap->add_flag("--force", o.force, "Overwrite existing files");
    return [options] { return Unwrap(*options); };
}

}  // namespace kmxf::program
