#include "Essence.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "LongGOP.h"
#include "ParameterSets.h"
#include "Program.h"
#include "Text.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

// Two frames of the largest format with their blocks.
constexpr size_t kHeadSize = 2 * (1143808 + kParameterSetBlock) + 16;

bool StartsWith(std::span<const uint8_t> bytes, std::initializer_list<uint8_t> prefix) {
    return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

bool StartsWithStartCode(std::span<const uint8_t> bytes) {
    return StartsWith(bytes, {0, 0, 0, 1}) || StartsWith(bytes, {0, 0, 1});
}

std::string Join(const std::vector<VideoFormat>& formats) {
    std::string text;
    for (size_t i = 0; i < formats.size(); ++i) {
        if (i != 0) text += i + 1 == formats.size() ? " or " : ", ";
        text += formats[i].Text();
    }
    return text;
}

Candidates DVCandidates(std::span<const uint8_t> head) {
    CDIFFrame frame;
    uint32_t videoStd = 0, compType = 0;
    bool consumerDV = false;
    if (head.size() < 12000 || frame.SetDIFData(head.data(), static_cast<uint32_t>(head.size())) != 0 ||
        frame.GetVideoSystem(&videoStd) != 0 || frame.GetCompType(&compType) != 0 ||
        frame.GetConsumerDVFlag(&consumerDV) != 0) {
        return {};
    }
    const VideoFormat seen{videoStd, compType, compType == COMP_TYPE_DV25 && consumerDV};
    Candidates candidates;
    for (const VideoFormat& format : AllVideoFormats()) {
        // DIF frames of 720 lines do not tell how many of them a second shows.
        if (format.compType == seen.compType && format.consumerDV == seen.consumerDV &&
            format.FrameSize() == seen.FrameSize()) {
            candidates.formats.push_back(format);
        }
    }
    candidates.preferred = seen;
    return candidates;
}

bool MatchesParameterSets(const VideoFormat& format, const SequenceParameterSet& sps) {
    const bool class50 = format.compType == COMP_TYPE_AVCI50_1080 || format.compType == COMP_TYPE_AVCI50_720;
    const MXFRATIONALTag rate = GetVideoEditRate(format.videoStd);
    const bool sameRate =
        sps.timeScale == 0 || uint64_t{sps.timeScale} * static_cast<uint32_t>(rate.denominator) ==
                                  2 * uint64_t{sps.unitsInTick} * static_cast<uint32_t>(rate.numerator);
    return sps.profile == (class50 ? 110 : 122) && std::to_string(sps.height) == format.Raster() &&
           sps.interlaced == !IsProgressive(format.videoStd) && sameRate;
}

// Whether frames of this size lie in the file as the layout says: the sizes divide, and a frame begins where it should.
bool FramesFit(std::span<const uint8_t> head, uint64_t size, const EssenceLayout& layout) {
    const uint64_t lead = layout.blockFirst ? kParameterSetBlock : 0;
    const uint64_t frame = layout.format.FrameSize();
    const uint64_t stride = frame + (layout.blockEveryFrame ? kParameterSetBlock : 0);
    const uint64_t rest = layout.blockEveryFrame ? size : size - std::min(lead, size);
    if (size != 0 && (rest == 0 || rest % stride != 0)) return false;
    const uint64_t second = lead + frame;
    if (head.size() < second + 4) return size == 0 ? head.size() == second : size == second;
    const auto next = head.subspan(second);
    if (!StartsWithStartCode(next)) return false;
    const bool hasBlock = !FindNal(next.first(std::min<size_t>(next.size(), kParameterSetBlock)), kSequenceSet).empty();
    return hasBlock == layout.blockEveryFrame;
}

struct AVCIntraFound {
    Candidates candidates;
    std::vector<EssenceLayout> layouts;  // one for each candidate
};

AVCIntraFound AVCIntraCandidates(std::span<const uint8_t> head, uint64_t size) {
    AVCIntraFound found;
    const auto block = head.first(std::min<size_t>(head.size(), kParameterSetBlock));
    const auto spsNal = FindNal(block, kSequenceSet);
    const auto sps = ParseSequenceParameterSet(spsNal);
    if (!spsNal.empty() && !sps) return found;
    for (const VideoFormat& format : AllVideoFormats()) {
        if (!format.IsAVCIntra() || (sps && !MatchesParameterSets(format, *sps))) continue;
        for (const bool every : {false, true}) {
            const EssenceLayout layout{format, sps.has_value(), every};
            if ((every && !sps) || !FramesFit(head, size, layout)) continue;
            found.candidates.formats.push_back(format);
            found.layouts.push_back(layout);
            break;
        }
    }
    if (found.candidates.formats.size() == 1) found.candidates.preferred = found.candidates.formats.front();
    return found;
}

bool Chosen(const VideoFormat& format, const FormatChoice& choice) {
    return (!choice.codec || *choice.codec == format.Codec()) &&
           (!choice.raster || *choice.raster == format.Raster()) &&
           (!choice.standard || *choice.standard == format.Standard());
}

std::string ChoiceText(const FormatChoice& choice) {
    std::string text;
    for (const auto* word : {&choice.codec, &choice.raster, &choice.standard}) {
        if (*word) text += (text.empty() ? "" : " ") + **word;
    }
    return text;
}

VideoFormat Choose(const Candidates& candidates, const FormatChoice& choice, const std::string& file) {
    std::vector<VideoFormat> left;
    for (const VideoFormat& format : candidates.formats) {
        if (Chosen(format, choice)) left.push_back(format);
    }
    if (left.empty()) {
        Fail(ExitStatus::kInput, file, "is " + Join(candidates.formats) + ", not " + ChoiceText(choice));
    }
    if (left.size() == 1) return left.front();
    if (candidates.preferred && std::find(left.begin(), left.end(), *candidates.preferred) != left.end()) {
        return *candidates.preferred;
    }
    Fail(ExitStatus::kInput, file, "can be " + Join(left) + ": say which with --standard, --raster or --codec");
}

// The file gets the parameter sets of its format, so the essence must have been coded with these.
void RequireFormatsParameterSets(std::span<const uint8_t> block, const VideoFormat& format, const std::string& file) {
    std::vector<uint8_t> own(kParameterSetBlock);
    GetAVCIHeader(format.videoStd, format.compType, own.data());
    const auto theirs = ParseSequenceParameterSet(FindNal(block, kSequenceSet));
    const auto ours = ParseSequenceParameterSet(FindNal(own, kSequenceSet));
    const auto theirPictureSet = FindNal(block, kPictureSet);
    const auto ourPictureSet = FindNal(own, kPictureSet);
    if (!theirs || !ours || theirs->decodingValues != ours->decodingValues ||
        !std::equal(theirPictureSet.begin(), theirPictureSet.end(), ourPictureSet.begin(), ourPictureSet.end())) {
        Fail(ExitStatus::kInput, file,
             "its parameter sets are not those of " + format.Text() +
                 ", with which its pictures would not decode (offset 0)");
    }
}

// Files that hold essence among other things.
struct Container {
    std::string_view name;
    size_t offset;
    std::string_view bytes;
    size_t repeated = 0;  // so many bytes on they stand again
};
using namespace std::string_view_literals;
constexpr auto kMXF = "an MXF"sv;
constexpr Container kContainers[] = {
    {kMXF, 0, "\x06\x0E\x2B\x34"sv},
    {"an MP4 or QuickTime", 4, "ftyp"sv},
    {"an MP4 or QuickTime", 4, "moov"sv},
    {"an MP4 or QuickTime", 4, "mdat"sv},
    {"an MP4 or QuickTime", 4, "wide"sv},
    {"a Matroska or WebM", 0, "\x1A\x45\xDF\xA3"sv},
    {"an MPEG transport stream", 0, "\x47"sv, 188},
    {"an MPEG transport stream", 4, "\x47"sv, 192},
    {"an MPEG program stream", 0, "\x00\x00\x01\xBA"sv},
    {"an AVI", 8, "AVI "sv},
    {"a Flash video", 0, "FLV\x01"sv},
    {"an ASF", 0, "\x30\x26\xB2\x75\x8E\x66\xCF\x11"sv},
    {"an Ogg", 0, "OggS"sv},
};

bool Holds(std::span<const uint8_t> head, size_t offset, std::string_view bytes) {
    return head.size() >= offset + bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), head.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

bool IsIn(const Container& container, std::span<const uint8_t> head) {
    const size_t times = container.repeated == 0 ? 1 : 5;
    for (size_t i = 0; i < times; ++i) {
        if (!Holds(head, container.offset + i * container.repeated, container.bytes)) return false;
    }
    return true;
}

void RefuseContainers(std::span<const uint8_t> head, const std::string& file) {
    for (const Container& container : kContainers) {
        if (!IsIn(container, head)) continue;
        Fail(
            ExitStatus::kInput, file,
            "is " + std::string(container.name) + " file; bare essence is needed: " +
                (container.name == kMXF ? "unwrap it first"
                                        : "take the picture out first, as \"ffmpeg -i FILE -c:v copy OUT.h264\" does") +
                " (offset " + std::to_string(container.offset) + ")");
    }
}

[[noreturn]] void Refuse(std::span<const uint8_t> head, const std::string& file) {
    const auto saw = [&](const std::string& what) { Fail(ExitStatus::kInput, file, what); };
    if (head.empty()) saw("is empty");
    if (StartsWith(head, {'R', 'I', 'F', 'F'})) saw("is a RIFF file; sound goes with --audio (offset 0)");
    if (StartsWithStartCode(head)) {
        const auto sps = ParseSequenceParameterSet(FindNal(head, kSequenceSet));
        if (!sps) saw("is H.264 without parameter sets, and no AVC-Intra frame size fits it (offset 0)");
        static constexpr const char* kSamplings[] = {"4:0:0", "4:2:0", "4:2:2", "4:4:4"};
        saw("is H.264, profile " + std::to_string(sps->profile) + ", " + std::to_string(sps->width) + " x " +
            std::to_string(sps->height) + (sps->interlaced ? " interlaced, " : ", ") + std::to_string(sps->bitDepth) +
            " bit " + kSamplings[sps->chromaFormat % 4] +
            ", and neither an AVC-Intra frame size nor a Long-GOP format fits it (offset 0)");
    }
    saw("is no essence known here: neither DIF frames nor AVC-Intra nor Annex B H.264; it begins with " +
        Hex(head.data(), std::min<size_t>(head.size(), 8)) + " (offset 0)");
    throw Failure(ExitStatus::kInternal, file);
}

}  // namespace

EssenceLayout DetectEssence(std::span<const uint8_t> head, uint64_t size, const FormatChoice& choice,
                            const std::string& file) {
    RefuseContainers(head, file);
    if (const Candidates dv = DVCandidates(head); !dv.formats.empty()) return {Choose(dv, choice, file), false, false};
    if (StartsWithStartCode(head)) {
        const AVCIntraFound found = AVCIntraCandidates(head, size);
        if (!found.layouts.empty()) {
            const VideoFormat format = Choose(found.candidates, choice, file);
            const auto layout = std::find_if(found.layouts.begin(), found.layouts.end(),
                                             [&](const EssenceLayout& each) { return each.format == format; });
            if (layout->blockFirst) RequireFormatsParameterSets(head.first(kParameterSetBlock), format, file);
            return *layout;
        }
    }
    if (const Candidates longGOP = FindLongGOPFormats(head, choice.codec); !longGOP.formats.empty()) {
        return {Choose(longGOP, choice, file), false, false};
    }
    Refuse(head, file);
}

EssenceInput::EssenceInput(const std::string& path, const FormatChoice& choice) : path_(path) {
    const bool standardInput = path == "-";
    descriptor_ = standardInput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0 && interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
    if (descriptor_ < 0) Fail(ExitStatus::kInput, path, "cannot be opened: " + ErrorText(errno));
    struct stat status {};
    if (::fstat(descriptor_, &status) == 0) {
        if (S_ISDIR(status.st_mode)) Fail(ExitStatus::kInput, path, "is a folder");
        isFile_ = S_ISREG(status.st_mode);
        if (isFile_) size_ = static_cast<uint64_t>(status.st_size);
    }
    ::posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
    head_.resize(kHeadSize);
    head_.resize(ReadFile(head_));
    // What Ctrl-C ended is not the whole of it.
    if (standardInput && head_.size() < kHeadSize && !interrupted) size_ = head_.size();
    try {
        layout_ = DetectEssence(head_, size_, choice, path_);
    } catch (const Failure&) {
        if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
        throw;
    }

    const uint64_t frame = layout_.format.FrameSize();
    if (size_ != 0 && frame != 0) {
        const uint64_t lead = layout_.blockFirst && !layout_.blockEveryFrame ? kParameterSetBlock : 0;
        const uint64_t stride = frame + (layout_.blockEveryFrame ? kParameterSetBlock : 0);
        if ((size_ - lead) % stride != 0) {
            Fail(ExitStatus::kInput, path_,
                 "ends within frame " + std::to_string((size_ - lead) / stride) + " of " + layout_.format.Text() +
                     " (offset " + std::to_string(size_ - (size_ - lead) % stride) + ")");
        }
        frames_ = (size_ - lead) / stride;
        if (layout_.format.compType == COMP_TYPE_DV100_720P && *frames_ % 2 != 0) {
            Fail(ExitStatus::kInput, path_,
                 "holds " + std::to_string(*frames_) + " frames; those of dv100 720 come in pairs");
        }
    }
}

EssenceInput::~EssenceInput() {
    if (descriptor_ > STDIN_FILENO) ::close(descriptor_);
}

std::span<const uint8_t> EssenceInput::FirstFrame() const {
    const size_t lead = layout_.blockFirst ? kParameterSetBlock : 0;
    return std::span(head_).subspan(lead, std::min<size_t>(layout_.format.FrameSize(), head_.size() - lead));
}

size_t EssenceInput::ReadFile(std::span<uint8_t> room) {
    size_t filled = 0;
    while (filled < room.size() && !interrupted) {
        const ssize_t count = ::read(descriptor_, room.data() + filled, room.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            Fail(ExitStatus::kInput, path_,
                 "cannot be read: " + ErrorText(errno) + " (offset " + std::to_string(offset_ + filled) + ")");
        }
        if (count == 0) break;
        ++statistics.reads;
        statistics.bytesRead += static_cast<uint64_t>(count);
        filled += static_cast<size_t>(count);
    }
    offset_ += filled;
    return filled;
}

size_t EssenceInput::ReadRaw(std::span<uint8_t> room) {
    const auto left = std::span(head_).subspan(headTaken_);
    const size_t fromHead = std::min(room.size(), left.size());
    std::copy_n(left.begin(), fromHead, room.begin());
    headTaken_ += fromHead;
    return fromHead + ReadFile(room.subspan(fromHead));
}

std::unique_ptr<StreamBytes> EssenceInput::Stream() {
    if (isFile_ && path_ != "-") {
        if (auto stream = MappedStream(descriptor_, size_, path_)) return stream;
    }
    return PipedStream([this](std::span<uint8_t> room) { return ReadRaw(room); });
}

size_t EssenceInput::Read(std::span<uint8_t> room) {
    const uint64_t frame = layout_.format.FrameSize();
    // What is added to a file meanwhile is left out.
    if (frames_) room = room.first(static_cast<size_t>(std::min<uint64_t>(room.size(), *frames_ * frame - position_)));
    size_t filled = 0;
    while (filled < room.size()) {
        const uint64_t within = position_ % frame;
        const bool block = within == 0 && (layout_.blockEveryFrame || (layout_.blockFirst && position_ == 0));
        if (block) {
            uint8_t skipped[kParameterSetBlock];
            if (ReadRaw(skipped) < kParameterSetBlock) break;
        }
        // A file with blocks between frames is read frame by frame, any other in one go.
        const uint64_t wanted =
            layout_.blockEveryFrame ? std::min<uint64_t>(room.size() - filled, frame - within) : room.size() - filled;
        const size_t count = ReadRaw(room.subspan(filled, static_cast<size_t>(wanted)));
        filled += count;
        position_ += count;
        if (count < wanted) break;
    }
    if (filled < room.size() && frames_ && path_ != "-" && !interrupted) {
        Fail(ExitStatus::kInput, path_, "became shorter meanwhile (offset " + std::to_string(offset_) + ")");
    }
    return filled;
}

}  // namespace kmxf::program
