#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <regex>
#include <set>
#include <utility>
#include <vector>

#include "Clip.h"
#include "Commands.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Sound.h"
#include "Text.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

constexpr size_t kChunk = 4 << 20;

struct Options {
    std::vector<std::string> files;
    std::string folder;
    std::string frames;
    bool raw = false, only = false, force = false;
};

struct FrameRange {
    uint64_t first, last;  // both included
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

// A range of the file's bytes, with a parameter-set block to put in front when a part of AVC-Intra must be playable.
struct Part {
    uint64_t offset = 0, size = 0;
    std::vector<uint8_t> lead;
};

Part PartOf(const FileInfo& info, const std::optional<FrameRange>& range, bool raw) {
    const auto dataSize = static_cast<uint64_t>(info.dataSize);
    if (!range) return {info.dataOffset, dataSize, {}};
    const auto frames = static_cast<uint64_t>(std::max<int64_t>(info.duration, 0));
    if (range->last >= frames) {
        Fail(ExitStatus::kInput, info.path,
             "has " + std::to_string(frames) + " frames; frame " + std::to_string(range->last) + " is not among them");
    }
    if (!info.isVideo) {
        const uint64_t bytesPerSample = info.bitsPerSample / 8;
        const auto begin = static_cast<uint64_t>(info.FirstSample(range->first)) * bytesPerSample;
        const auto end = static_cast<uint64_t>(info.FirstSample(range->last + 1)) * bytesPerSample;
        return {info.dataOffset + begin, end - begin, {}};
    }
    Part part{info.FrameOffset(range->first), (range->last - range->first + 1) * info.frameSize, {}};
    if (info.format->IsAVCIntra() && !raw) {
        part.lead.resize(512);
        GetAVCIHeader(info.format->videoStd, info.format->compType, part.lead.data());
    }
    return part;
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    operator int() const { return descriptor_; }

private:
    int descriptor_;
};

void WriteAll(int descriptor, const uint8_t* bytes, size_t size, const std::string& name) {
    for (size_t done = 0; done < size;) {
        const ssize_t count = ::write(descriptor, bytes + done, size - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) Fail(ExitStatus::kOutput, name, "cannot be written: " + ErrorText(errno));
        done += static_cast<size_t>(count);
    }
    ++statistics.writes;
    statistics.bytesWritten += size;
}

// Hands `take` the bytes of a part in chunks.
template <class Take>
void ReadPart(int descriptor, const FileInfo& info, const Part& part, Take take) {
    std::vector<uint8_t> buffer(std::min<uint64_t>(kChunk - kChunk % 6, part.size));  // whole samples of 2 and 3 bytes
    for (uint64_t done = 0; done < part.size && !interrupted;) {
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(buffer.size(), part.size - done));
        const ssize_t count = ::pread(descriptor, buffer.data(), wanted, static_cast<off_t>(part.offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count != static_cast<ssize_t>(wanted)) {
            Fail(ExitStatus::kInput, info.path,
                 (count < 0 ? "cannot be read: " + ErrorText(errno) : std::string("ends within its essence")) +
                     " (offset " + std::to_string(part.offset + done) + ")");
        }
        ++statistics.reads;
        statistics.bytesRead += wanted;
        take(std::span<const uint8_t>(buffer).first(wanted));
        done += wanted;
    }
    if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
}

// Copies a part within the kernel; what it does not take (a pipe, another file system) is left to ReadPart.
void CopyInKernel(int from, int to, Part& part, Progress& progress) {
    while (part.size > 0 && !interrupted) {
        auto offset = static_cast<off_t>(part.offset);
        const ssize_t count = ::copy_file_range(from, &offset, to, nullptr, std::min<uint64_t>(part.size, 16 << 20), 0);
        if (count <= 0) return;
        ++statistics.reads;
        ++statistics.writes;
        statistics.bytesRead += static_cast<uint64_t>(count);
        statistics.bytesWritten += static_cast<uint64_t>(count);
        part.offset += static_cast<uint64_t>(count);
        part.size -= static_cast<uint64_t>(count);
        progress.Advance(static_cast<uint64_t>(count));
    }
}

void Extract(const FileInfo& info, Part part, bool asWav, int to, const std::string& name) {
    const Descriptor from(::open(info.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (from < 0) Fail(ExitStatus::kInput, info.path, "cannot be opened: " + ErrorText(errno));
    ::posix_fadvise(from, 0, 0, POSIX_FADV_SEQUENTIAL);
    Progress progress(name, part.size, info.frameSize);
    if (asWav) {
        WavOutput wav(to, name, info.samplingRate, info.bitsPerSample / 8, part.size);
        ReadPart(from, info, part, [&](std::span<const uint8_t> bytes) {
            wav.Write(bytes);
            progress.Advance(bytes.size());
        });
        wav.Close();
        return;
    }
    if (!part.lead.empty()) WriteAll(to, part.lead.data(), part.lead.size(), name);
    CopyInKernel(from, to, part, progress);
    ReadPart(from, info, part, [&](std::span<const uint8_t> bytes) {
        WriteAll(to, bytes.data(), bytes.size(), name);
        progress.Advance(bytes.size());
    });
}

// What was written is looked at again before it gets its name.
void Prove(const OutputFile& output, const Part& part, bool asWav) {
    uint64_t size = 0;
    if (asWav) {
        const WavInput wav(output.WorkPath(), 0);
        size = static_cast<uint64_t>(wav.Samples()) * wav.BytesPerSample();
    } else {
        size = std::filesystem::file_size(output.WorkPath()) - part.lead.size();
    }
    if (size != part.size) {
        Fail(ExitStatus::kFindings, output.FinalPath(),
             "reads back with " + std::to_string(size) + " bytes of essence instead of " + std::to_string(part.size));
    }
}

std::string OutputName(const FileInfo& info, bool raw) {
    const std::string stem = std::filesystem::path(info.path).stem().string();
    if (!info.isVideo) return stem + (raw ? ".pcm" : ".wav");
    if (raw) return stem + ".raw";
    return stem + (info.format->IsAVCIntra() ? ".h264" : ".dv");
}

void ToStandardOutput(const FileInfo& info, const Part& part, bool raw) {
    if (info.isVideo || raw) return Extract(info, part, false, STDOUT_FILENO, "standard output");
    // A WAV header is finished at the end: it is made in a file first.
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> work(std::tmpfile(), &std::fclose);
    if (!work) Fail(ExitStatus::kOutput, "standard output", "cannot be prepared: " + ErrorText(errno));
    const int descriptor = ::fileno(work.get());
    Extract(info, part, true, descriptor, "standard output");
    const off_t size = ::lseek(descriptor, 0, SEEK_END);
    ReadPart(descriptor, info, {0, static_cast<uint64_t>(size), {}}, [](std::span<const uint8_t> bytes) {
        WriteAll(STDOUT_FILENO, bytes.data(), bytes.size(), "standard output");
    });
}

ExitStatus Unwrap(const Options& o) {
    const auto range = ParseRange(o.frames);
    const bool standardOutput = o.folder == "-";
    std::vector<FileInfo> infos;
    FoundClips found = FindClips(o.files, o.only);
    for (Clip& clip : found.clips) std::move(clip.files.begin(), clip.files.end(), std::back_inserter(infos));
    if (standardOutput && infos.size() != 1) {
        throw Failure(ExitStatus::kUsage, "-o -: takes one stream, and these files hold " +
                                              std::to_string(infos.size()) + "; --only names one file");
    }

    std::set<std::string> names;
    for (const FileInfo& info : infos) {
        const std::string name = OutputName(info, o.raw);
        if (!names.insert(name).second) {
            throw Failure(ExitStatus::kUsage, info.path + ": another file is to become " + name + " as well");
        }
    }

    ExitStatus status = found.status;
    std::vector<std::unique_ptr<OutputFile>> outputs;
    if (!standardOutput) MakeFolder(o.folder);
    for (const FileInfo& info : infos) {
        if (info.verdict.kind == Verdict::Kind::kDamaged && info.dataOffset == 0) {
            Fail(ExitStatus::kInput, info.path, info.verdict.Text() + ": its essence cannot be found");
        }
        if (info.verdict.kind != Verdict::Kind::kClosed) {
            Say(info.path + ": " + info.verdict.Text() + "; what is there is given back");
            if (status == ExitStatus::kDone) status = ExitStatus::kFindings;
        }
        const Part part = PartOf(info, range, o.raw);
        if (standardOutput) {
            ToStandardOutput(info, part, o.raw);
            continue;
        }
        const auto path = std::filesystem::path(o.folder) / OutputName(info, o.raw);
        if (std::any_of(infos.begin(), infos.end(), [&](const FileInfo& each) {
                std::error_code error;
                return std::filesystem::equivalent(each.path, path, error);
            })) {
            throw Failure(ExitStatus::kUsage, path.string() + ": is a file to be unwrapped itself");
        }
        OutputFile& output = *outputs.emplace_back(std::make_unique<OutputFile>(path.string(), o.force));
        const bool asWav = !info.isVideo && !o.raw;
        Extract(info, part, asWav, output.Descriptor(), output.FinalPath());
        Prove(output, part, asWav);
    }
    PublishAll(outputs);
    return status;
}

}  // namespace

Run AddUnwrap(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
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
