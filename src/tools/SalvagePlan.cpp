#include "kmxf/tools/SalvagePlan.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>

#include "core/Labels.h"
#include "core/Layout.h"
#include "core/NewUMID.h"
#include "kmxf/core/VideoStandard.h"
#include "tools/ClipGroups.h"
#include "tools/EssenceFrames.h"
#include "tools/SalvageHeader.h"
#include "tools/SalvageInput.h"
#include "tools/SalvageOp1b.h"
#include "tools/SalvageSheet.h"
#include "tools/WorkingName.h"

namespace kmxf {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kEssenceOffset = kOpAtomHeaderSize;
constexpr uint64_t kTail = 4 << 20;    // bytes of frames that are looked at in one step from the end
constexpr uint64_t kMostFooter = 512;  // bytes of an OP-Atom footer, its index included
constexpr size_t kLeastOfKey = 4;      // that tell a footer's beginning from samples
constexpr uint32_t kMostUnit = 2 * 1143808 + 1024;

const char* const kWritten = "a frame that was being written";
const char* const kNoFrame = "no whole frame";
const char* const kBeyond = "sound beyond the last frame";
const char* const kUneven = "frames beyond the end of the clip";

struct Scanned {
    SalvagedFile& file;
    std::unique_ptr<SalvageInput> source;
    SalvageHeader header;
    EssenceFormat format{};
    uint64_t essenceEnd = 0;
    bool isWhole = false;  // OP-Atom: closed, and nothing of its structure is damaged

    uint64_t Available() const { return essenceEnd > kEssenceOffset ? essenceEnd - kEssenceOffset : 0; }
    bool IsGivenUp() const { return file.action == SalvageAction::kGiveUp; }
    // A file that has its footer is closed as long as its header tells what it is.
    bool IsClosed() const { return header.footer && header.IsFinal() && (header.IsPicture() || header.IsSound()); }
};

std::string StemOf(const std::string& path) { return fs::path(FinalName(path)).stem().string(); }

bool IsMXF(const fs::directory_entry& entry) {
    const std::string name = FinalName(entry.path().string());
    std::string extension = fs::path(name).extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::error_code error;
    return extension == ".mxf" && !name.starts_with('.') && entry.is_regular_file(error);
}

// "CLIP00": the name of the clip, and the channel of a file that is named as sound.
struct MemberName {
    std::string clip;
    std::optional<uint32_t> channel;
};
MemberName NameOf(const std::string& path) {
    const std::string stem = StemOf(path);
    const size_t size = stem.size();
    const auto digit = [&](size_t i) { return std::isdigit(static_cast<unsigned char>(stem[i])) != 0; };
    if (size < 3 || !digit(size - 1) || !digit(size - 2)) return {stem, std::nullopt};
    return {stem.substr(0, size - 2), static_cast<uint32_t>(std::stoul(stem.substr(size - 2)))};
}

// The key of a pack, up to the byte that tells its kind.
constexpr size_t kSameInPacks = 13;

bool IsPack(SalvageInput& source, uint64_t offset) {
    const auto key = source.Copy(offset, kSameInPacks);
    return key.size() == kSameInPacks && std::ranges::equal(key, std::span(kPartitionPackKey.bytes, kSameInPacks));
}

// Where a footer begins that was written before the header could name it, and may be cut off itself.
uint64_t FooterAtEnd(SalvageInput& source) {
    const uint64_t size = source.GetSize();
    const uint64_t from = size - std::min(size, kMostFooter);
    const auto bytes = source.Copy(from, kMostFooter);
    // On the way to the end of a file a pack can only be a footer.
    const uint8_t* const key = kPartitionPackKey.bytes;
    for (size_t i = 0; i + kLeastOfKey <= bytes.size(); ++i) {
        if (std::equal(key, key + std::min(kSameInPacks, bytes.size() - i), bytes.data() + i)) return from + i;
    }
    return size;
}

void FindEssenceEnd(Scanned& scanned) {
    SalvagedFile& file = scanned.file;
    scanned.essenceEnd = scanned.header.footer.value_or(file.fileSize);
    if (!scanned.header.footer) scanned.essenceEnd = FooterAtEnd(*scanned.source);
    file.rebuiltSize = std::min(file.fileSize, kEssenceOffset) +
                       (file.fileSize - std::max(scanned.essenceEnd, std::min(file.fileSize, kEssenceOffset)));
    scanned.essenceEnd = std::max(scanned.essenceEnd, kEssenceOffset);
}

bool IsClip(const SalvageHeader& header, SalvageInput& source) {
    return header.layout == kOp1b || (header.layout == kOther && !header.otherPattern && HasOp1bBody(source));
}

// Whether packet follows packet in a file, from its beginning to its end, and no table that a pack announces is
// missing.
bool HoldsTogether(const Scanned& scanned) {
    CInspector inspector(*scanned.source);
    while (const auto partition = inspector.NextPartition()) {
        for (const InspectedPacket& packet : partition->packets)
            if (packet.kind == PacketKind::kDamage || !packet.whole) return false;
        const uint64_t content = partition->packets.back().End() - partition->packets.front().End();
        if (partition->pack && std::cmp_less(content, partition->pack->GetIndexByteCount())) return false;
    }
    return true;
}

// `beside`: pictures of its name are there, so that two digits at the end of it name a channel.
void Recognise(Scanned& scanned, const SalvageChoice& choice, bool beside) {
    SalvagedFile& file = scanned.file;
    const SalvageHeader& header = scanned.header;
    file.wide = header.wide;
    if (IsClip(header, *scanned.source)) {
        file.content = SalvageContent::kClip;
        file.action = SalvageAction::kMend;
        return;
    }
    if (header.otherPattern)
        return GiveUp(file, "it is an MXF file of another operational pattern than OP-Atom and OP-1b");
    if (header.elsewhere && !(scanned.IsClosed() && HoldsTogether(scanned)))
        return GiveUp(file, "its essence begins at byte " + std::to_string(*header.elsewhere) + ", not at " +
                                std::to_string(kEssenceOffset) + " as in the recordings that can be mended");
    if (header.IsPicture()) {
        scanned.format = {header.metadata.picture->videoStd, header.metadata.picture->compType, header.consumerDV};
        file.content = SalvageContent::kPicture;
    } else if (header.IsSound()) {
        file.content = SalvageContent::kSound;
        file.bytesPerSample = static_cast<uint16_t>(header.metadata.bytesPerSample);
        file.samplesPerSec = header.metadata.samplesPerSec;
    } else if (const auto format = FindEssenceFormat(scanned.source->Copy(kEssenceOffset, kMostUnit))) {
        scanned.format = *format;
        file.content = SalvageContent::kPicture;
        file.formatFrom = SalvageOrigin::kEssence;
    } else if (!beside && choice.compType && choice.videoStd) {
        file.content = SalvageContent::kPicture;
    } else if (NameOf(file.path).channel || choice.bytesPerSample) {
        file.content = SalvageContent::kSound;
        file.formatFrom = SalvageOrigin::kSiblings;
    } else {
        return GiveUpUntold(file, "neither its header nor its essence tells what it is");
    }
    if (file.content == SalvageContent::kPicture && (choice.compType || choice.videoStd)) {
        scanned.format.compType = choice.compType.value_or(scanned.format.compType);
        scanned.format.videoStd = choice.videoStd.value_or(scanned.format.videoStd);
        file.formatFrom = SalvageOrigin::kCaller;
    }
    file.action = SalvageAction::kMend;
    FindEssenceEnd(scanned);
}

struct WholeFrames {
    int64_t frames = 0, damaged = 0;
};

// How many frames there are up to the last whole one, of `there` that are as long as a frame.
WholeFrames FindWhole(Scanned& scanned, uint64_t first, uint32_t frameSize, int64_t there) {
    const uint32_t compType = scanned.format.compType;
    const auto structure = [&](int64_t frame) {
        const auto bytes = scanned.source->Copy(first + static_cast<uint64_t>(frame) * frameSize, frameSize);
        return bytes.size() == frameSize ? FrameStructure(bytes, compType) : 0;
    };
    std::map<uint32_t, int64_t> votes;
    const auto vote = [&](uint32_t found) {
        if (found != 0) ++votes[found];
    };
    const uint32_t atStart = structure(0);
    vote(atStart);
    const int64_t step = std::max<int64_t>(static_cast<int64_t>(kTail / frameSize), 2);
    for (int64_t end = there; end > 0;) {
        const int64_t begin = std::max<int64_t>(end - step, 0);
        std::vector<uint32_t> found;
        for (int64_t frame = begin; frame < end; ++frame) {
            found.push_back(frame == 0 ? atStart : structure(frame));
            if (frame != 0) vote(found.back());
        }
        // A frame that is cut has fewer slices, so of equally many the larger number counts.
        uint32_t whole = 0;
        int64_t most = 0;
        for (const auto& [value, count] : votes)
            if (count >= most) {
                whole = value;
                most = count;
            }
        if (most == 0 && end == there) return {there, 0};  // essence of another kind: nothing can be told
        for (auto last = found.rbegin(); last != found.rend() && whole != 0; ++last) {
            if (*last != whole) continue;
            const auto bad = std::count_if(last, found.rend(), [&](uint32_t value) { return value != whole; });
            return {begin + (found.rend() - last), bad};
        }
        end = begin;
    }
    return {};
}

void ScanPictures(Scanned& scanned, const SalvageChoice& choice) {
    SalvagedFile& file = scanned.file;
    file.videoStd = scanned.format.videoStd;
    file.compType = scanned.format.compType;
    const uint32_t frameSize = GetFrameDataSize(file.videoStd, file.compType);
    if (frameSize == 0) return GiveUp(file, "its format has no frame size");
    const uint64_t inFront = SizeInFront(file.compType);
    const uint64_t first = kEssenceOffset + inFront;
    const uint64_t bytes = scanned.Available() - std::min(scanned.Available(), inFront);
    auto there = static_cast<int64_t>(bytes / frameSize);
    file.framesFound = there + (bytes % frameSize != 0 ? 1 : 0);
    const bool inPairs = DataSizeToDuration(frameSize, file.videoStd, file.compType) == 0;
    if (inPairs) there -= there % 2;

    WholeFrames whole{there, 0};
    if (!choice.trustTail && !scanned.header.footer && there > 0) whole = FindWhole(scanned, first, frameSize, there);
    if (inPairs) whole.frames += whole.frames % 2;
    file.framesKept = whole.frames;
    file.framesDamaged = whole.damaged;
    const uint64_t keptEnd = first + static_cast<uint64_t>(whole.frames) * frameSize;
    const uint64_t thereEnd = first + static_cast<uint64_t>(there) * frameSize;
    file.keptSize = whole.frames == 0 ? 0 : keptEnd - kEssenceOffset;
    if (whole.frames == 0) {
        Lose(file, kEssenceOffset, scanned.Available(), there == 0 ? kWritten : kNoFrame);
        return GiveUp(file, "it holds no whole frame");
    }
    Lose(file, keptEnd, thereEnd - keptEnd, kNoFrame);
    Lose(file, thereEnd, scanned.essenceEnd - thereEnd, kWritten);
}

// Takes the pictures that are too many for the clip from its end.
void TrimPictures(SalvagedFile& file, int64_t duration) {
    if (file.framesKept <= duration) return;
    const uint64_t cut =
        static_cast<uint64_t>(file.framesKept - duration) * GetFrameDataSize(file.videoStd, file.compType);
    file.framesKept = duration;
    file.keptSize -= cut;
    file.cutSize += cut;
    Lose(file, kEssenceOffset + file.keptSize, cut, kUneven);
}

int64_t SamplesOf(const SalvagedFile& file, int64_t frames) {
    return DurationToAudioSample(file.videoStd, frames, file.samplesPerSec);
}

// Of a file of sound: what fills whole frames.
int64_t SoundFrames(const SalvagedFile& file, uint64_t bytes) {
    constexpr int64_t kSpareSamples = 4;  // that a recording may end in front of its last frame's end
    const auto samples = static_cast<int64_t>(bytes / file.bytesPerSample);
    int64_t frames = AudioSampleToDuration(file.videoStd, samples, file.samplesPerSec);
    while (SamplesOf(file, frames + 1) <= samples + kSpareSamples) ++frames;
    return frames;
}

void ScanSound(Scanned& scanned, const SalvageChoice& choice, const std::vector<Scanned>& all, int64_t pictures,
               uint32_t videoStd) {
    SalvagedFile& file = scanned.file;
    file.videoStd = choice.videoStd.value_or(videoStd != 0 ? videoStd : scanned.header.videoStd);
    if (ConvertTCVideoStd(file.videoStd) != file.videoStd) return GiveUpUntold(file, "its video standard is not known");
    for (const Scanned& other : all) {
        if (other.file.content != SalvageContent::kSound || other.file.formatFrom != SalvageOrigin::kHeader) continue;
        if (file.bytesPerSample == 0) file.bytesPerSample = other.file.bytesPerSample;
        if (file.samplesPerSec == 0) file.samplesPerSec = other.file.samplesPerSec;
    }
    if (file.samplesPerSec == 0) file.samplesPerSec = 48000;
    if (file.bytesPerSample == 0 && pictures > 0) {
        // Samples of 16 or 24 bits: whichever comes closer to the length of the picture.
        file.bytesPerSample = 2 * scanned.Available() > 5 * static_cast<uint64_t>(SamplesOf(file, pictures)) ? 3 : 2;
    }
    if (choice.bytesPerSample) {
        file.bytesPerSample = *choice.bytesPerSample;
        file.formatFrom = SalvageOrigin::kCaller;
    }
    if (file.bytesPerSample != 2 && file.bytesPerSample != 3) return GiveUpUntold(file, "its sample size is not known");
    file.channels = 1;
    file.framesFound = SoundFrames(file, scanned.Available());
}

void FitSound(Scanned& scanned, int64_t duration) {
    SalvagedFile& file = scanned.file;
    const uint64_t wanted = static_cast<uint64_t>(SamplesOf(file, duration)) * file.bytesPerSample;
    const uint64_t there = scanned.Available();
    file.framesKept = std::min(duration, file.framesFound);
    // A sample that is not whole gives way to silence.
    file.keptSize = there >= wanted ? wanted : there - there % file.bytesPerSample;
    file.silenceSize = wanted - file.keptSize;
    if (there > file.keptSize) {
        Lose(file, kEssenceOffset + file.keptSize, there - file.keptSize, there >= wanted ? kBeyond : kWritten);
        if (there >= wanted) file.cutSize = there - wanted;
    }
}

void HashLastFrame(Scanned& scanned) {
    SalvagedFile& file = scanned.file;
    const int64_t frames = file.framesKept;
    if (frames == 0 || file.action == SalvageAction::kGiveUp) return;
    uint64_t begin = 0, end = file.keptSize;
    if (file.content == SalvageContent::kPicture) {
        begin = end - GetFrameDataSize(file.videoStd, file.compType);
    } else {
        begin = static_cast<uint64_t>(SamplesOf(file, frames - 1)) * file.bytesPerSample;
    }
    file.lastFrameHash = HashOf(scanned.source->Copy(kEssenceOffset + begin, end - begin));
}

// A NAL unit stands at the start of the block in front of AVC-Intra frames, or the block is made anew.
void CountParameterSets(Scanned& scanned) {
    SalvagedFile& file = scanned.file;
    const uint32_t inFront = file.content == SalvageContent::kPicture ? SizeInFront(file.compType) : 0;
    constexpr uint8_t kDelimiter[] = {0, 0, 0, 1, 9};
    if (inFront == 0 || std::ranges::equal(scanned.source->Copy(kEssenceOffset, sizeof kDelimiter), kDelimiter)) return;
    file.keptSize -= inFront;
    file.rebuiltSize += inFront;
    file.rebuilt.emplace_back(kParameterSets);
}

void SayRebuilt(const Scanned& scanned, SalvagedFile& file) {
    std::vector<std::string> all{scanned.header.found ? "the header area" : "the header area, which was gone"};
    if (file.content == SalvageContent::kClip) {
        all.front() = scanned.header.found ? "the header" : "the header, which was gone";
        all.insert(all.end(), {"the footer with the index", "the random index"});
    } else {
        all.emplace_back("the footer");
    }
    file.rebuilt.insert(file.rebuilt.begin(), all.begin(), all.end());
}

void TakeIdentity(SalvagePlan& plan, const SalvageHeader& known) {
    plan.materialUMID = known.materialUMID;
    plan.packageName = known.packageName;
    plan.startTimecode = known.startTimecode;
    plan.startDrop = known.startDrop;
    plan.creationDate = known.creationDate;
    plan.company = known.company;
    plan.product = known.product;
    plan.version = known.version;
    plan.productUID = known.productUID;
    plan.metadata = known.descriptive;
}

void Complete(SalvagePlan& plan, const SalvageHeader& other) {
    if (plan.packageName.empty()) plan.packageName = other.packageName;
    if (plan.startTimecode == 0) {
        plan.startTimecode = other.startTimecode;
        plan.startDrop = plan.startDrop || other.startDrop;
    }
    if (plan.creationDate.year == 0) plan.creationDate = other.creationDate;
    if (plan.company.empty()) {
        plan.company = other.company;
        plan.product = other.product;
        plan.version = other.version;
        plan.productUID = other.productUID;
    }
}

// Of a clip whose footer is there: nothing when what the footer and the random index tell is not there or cut.
std::optional<int64_t> FramesOfClosedClip(Scanned& scanned) try {
    SalvageInput& input = *scanned.source;
    const ClipFile clip = ReadClipFileAtOnce(input, scanned.file.path);
    uint64_t damage = 0;
    const auto partitions = ListedPartitions(ClipSource(input, scanned.file.path), *scanned.header.footer, damage);
    const bool whole =
        clip.verdict.kind == ClipVerdict::Kind::kClosed && partitions &&
        std::ranges::all_of(*partitions, [&](const ClipPartition& each) { return IsPack(input, each.place.begin); });
    return whole ? std::optional(clip.frames) : std::nullopt;
} catch (const ClipError&) {
    return std::nullopt;
}

void ScanClip(Scanned& scanned, const SalvageChoice& choice, const SalvageIndexer& indexer) {
    SalvagedFile& file = scanned.file;
    if (const auto frames = scanned.IsClosed() ? FramesOfClosedClip(scanned) : std::nullopt) {
        file.action = SalvageAction::kLeave;
        file.reason = "it is complete";
        file.keptSize = file.fileSize;
        file.framesFound = file.framesKept = *frames;
        file.videoStd = scanned.header.metadata.picture->videoStd;
        file.compType = scanned.header.metadata.picture->compType;
        return;
    }
    ScanOp1bFile(file, *scanned.source, scanned.header, choice, indexer);
    if (!scanned.IsGivenUp()) SayRebuilt(scanned, file);
}

// A file of pictures without one, not for want of reading it or of knowing their format.
bool HoldsNoPicture(const Scanned& each) {
    const SalvagedFile& file = each.file;
    const bool empty =
        file.content == SalvageContent::kPicture
            ? GetFrameDataSize(file.videoStd, file.compType) != 0
            : file.content == SalvageContent::kUnknown && file.fileSize <= kEssenceOffset && !NameOf(file.path).channel;
    return empty && each.IsGivenUp() && each.source->IsOpened() && !each.source->Unreadable();
}

// What is the same in all files of the clip, from the headers that were finished.
void Identify(SalvagePlan& plan, const std::vector<Scanned>& all) {
    const Scanned* final = nullptr;
    const Scanned* header = nullptr;
    uint32_t pictures = 0, sounds = 0, lastSound = 0, announced = 0;
    for (const Scanned& each : all) {
        if (each.IsGivenUp()) continue;
        if (each.file.content == SalvageContent::kPicture) ++pictures;
        if (each.file.content == SalvageContent::kSound) ++sounds;
        if (each.file.content == SalvageContent::kSound) lastSound = std::max(lastSound, each.file.channel + 1);
        const uint32_t type = each.header.clipType;  // of a damaged header, with fewer tracks
        announced = std::max(announced & 0xFF00, type & 0xFF00) | std::max(announced & 0xFF, type & 0xFF);
        if (header == nullptr && type != 0) header = &each;
        if (final == nullptr && each.header.IsFinal()) final = &each;
    }
    // Pictures of which nothing came to the medium are no part of what is left.
    if (pictures == 0 && std::ranges::any_of(all, HoldsNoPicture)) announced &= 0xFF;
    // A recording that was cut off early may not have begun all files that it announced.
    const bool complete = pictures > 0 && lastSound == sounds;
    const bool asFound = header == nullptr || (final == nullptr && complete);
    plan.clipType = asFound ? pictures << 8 | sounds : announced;
    plan.packageName = NameOf(all.front().file.path).clip;
    if (all.front().file.content != SalvageContent::kSound && !all.front().file.path.empty())
        plan.packageName = StemOf(all.front().file.path);
    if (header != nullptr) plan.creationDate = header->header.creationDate;
    if (final != nullptr) {
        TakeIdentity(plan, final->header);
        // What a damaged header no longer tells, another does.
        for (const Scanned& each : all)
            if (!each.IsGivenUp() && each.header.materialUMID == plan.materialUMID) Complete(plan, each.header);
        return;
    }
    plan.newMaterialUMID = true;
    plan.materialUMID = NewUMID();
    for (const Scanned& each : all) {
        if (each.file.content != SalvageContent::kPicture || each.IsGivenUp()) continue;
        const uint64_t first = kEssenceOffset + SizeInFront(each.file.compType);
        const uint64_t size = 2 * uint64_t{GetFrameDataSize(each.file.videoStd, each.file.compType)};
        if (const auto timecode = FrameTimecode(each.source->Copy(first, size), each.format)) {
            plan.startTimecode = timecode->GetTotalFrame();
            plan.startDrop = timecode->IsDrop();
        }
        return;
    }
}

void NumberTracks(std::vector<Scanned>& all) {
    uint32_t pictures = 0;
    std::vector<bool> taken(256);
    for (Scanned& each : all) {
        SalvagedFile& file = each.file;
        if (file.content == SalvageContent::kPicture) file.channel = each.header.channel.value_or(pictures++);
        if (file.content != SalvageContent::kSound) continue;
        const auto named = NameOf(file.path).channel;
        file.channel = each.header.channel ? *each.header.channel : named.value_or(0);
        while (file.channel < taken.size() && taken[file.channel] && !each.header.channel) ++file.channel;
        if (file.channel < taken.size()) taken[file.channel] = true;
    }
}

// What follows the name of a file that a killed writer left: ".part123", empty for any other.
std::string WriterOf(const std::string& path) {
    const std::string name = fs::path(path).filename().string(), final = FinalName(path);
    return name == final ? "" : name.substr(final.size() + 1);
}

int Order(const SalvagedFile& file) { return file.content == SalvageContent::kSound ? 1 : 0; }

void ScanAtoms(SalvagePlan& plan, std::vector<Scanned>& all, const SalvageChoice& choice) {
    for (Scanned& each : all) each.isWhole = each.IsClosed() && HoldsTogether(each);
    if (std::ranges::all_of(all, &Scanned::isWhole)) {
        for (Scanned& each : all) each.file.action = SalvageAction::kLeave;
    }
    int64_t pictures = -1, sounds = 0;
    uint32_t videoStd = 0;
    for (Scanned& each : all) {
        if (each.file.content != SalvageContent::kPicture || each.IsGivenUp()) continue;
        ScanPictures(each, choice);
        if (videoStd == 0) videoStd = each.file.videoStd;
        if (!each.IsGivenUp())
            pictures = pictures < 0 ? each.file.framesKept : std::min(pictures, each.file.framesKept);
    }
    for (const Scanned& each : all)
        if (videoStd == 0) videoStd = each.header.videoStd;
    for (Scanned& each : all) {
        if (each.file.content != SalvageContent::kSound || each.IsGivenUp()) continue;
        ScanSound(each, choice, all, pictures, videoStd);
        if (!each.IsGivenUp()) sounds = std::max(sounds, each.file.framesFound);
    }
    // The one length of all files: that of the shortest picture. Sound is cut to it or filled up with silence, so that
    // no frame is lost for a file of sound that is behind, or gone.
    plan.duration = pictures >= 0 ? pictures : sounds;
    for (Scanned& each : all) {
        SalvagedFile& file = each.file;
        if (each.IsGivenUp()) continue;
        const int64_t length = file.content == SalvageContent::kSound ? file.framesFound : file.framesKept;
        // Whatever became of the others, complete pictures stay; complete sound comes to be as long, unless it is the
        // only copy.
        const bool fits = file.content != SalvageContent::kSound || length == plan.duration || plan.duration == 0 ||
                          choice.keepComplete;
        if (file.action == SalvageAction::kLeave || (each.isWhole && fits)) {
            file.action = SalvageAction::kLeave;
            file.reason = "it is complete";
            file.framesKept = length;
            file.keptSize = file.fileSize;
            file.rebuiltSize = 0;
            file.losses.clear();
            file.lostSize = 0;
            continue;
        }
        if (plan.duration == 0) {
            Lose(file, kEssenceOffset, each.Available(), kWritten);
            GiveUp(file, "it holds no whole frame");
            continue;
        }
        if (file.content == SalvageContent::kSound) {
            FitSound(each, plan.duration);
        } else {
            TrimPictures(file, plan.duration);
        }
        SayRebuilt(each, file);
        HashLastFrame(each);
        CountParameterSets(each);
        file.umid = each.header.fileUMID != MXFUMIDTag() ? each.header.fileUMID : NewUMID();
    }
}

// What cannot be read is not missing: such a file is not touched, and not judged by what could be read of it.
void GiveUpUnreadable(const Scanned& each) {
    const auto offset = each.source ? each.source->Unreadable() : std::nullopt;
    if (!offset) return;
    GiveUp(each.file, CannotRead(*offset));
    each.file.losses.clear();
    each.file.lostSize = 0;
}

// Of a file that was given up before all of it was told.
void Balance(SalvagedFile& file) {
    if (file.keptSize + file.lostSize + file.rebuiltSize == file.fileSize) return;
    file.keptSize = file.rebuiltSize = file.lostSize = file.cutSize = file.silenceSize = 0;
    file.framesKept = 0;
    file.losses.clear();
    Lose(file, 0, file.fileSize, "nothing can be told of it");
}

}  // namespace

bool SalvagePlan::IsComplete() const {
    return std::ranges::all_of(files, [](const SalvagedFile& file) { return file.action == SalvageAction::kLeave; });
}
bool SalvagePlan::IsHopeless() const {
    return std::ranges::all_of(files, [](const SalvagedFile& file) { return file.action == SalvageAction::kGiveUp; });
}
bool SalvagePlan::LosesAnything() const {
    return std::ranges::any_of(files, [](const SalvagedFile& file) {
        return file.action == SalvageAction::kGiveUp || file.lostSize != 0 || file.silenceSize != 0 ||
               file.framesDamaged != 0;
    });
}

const SalvagedFile* SalvagePlan::Unreadable() const {
    const auto file =
        std::ranges::find_if(files, [](const SalvagedFile& each) { return each.reason.starts_with(kUnreadable); });
    return file == files.end() ? nullptr : &*file;
}

std::vector<std::string> ListSalvageFiles(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
        if (IsMXF(entry)) files.push_back(entry.path().string());
    std::ranges::sort(files, {}, [](const std::string& file) { return std::pair(FinalName(file), file); });
    return files;
}

std::vector<std::vector<std::string>> GroupSalvageFiles(const std::vector<std::string>& paths) {
    struct Track {
        bool picture;
        std::optional<uint32_t> channel;
        std::string name;
        // One file of them is of another clip, as a recording that was killed beside a later one of its name.
        bool Excludes(const Track& other) const {
            return name == other.name || (picture == other.picture && channel && channel == other.channel);
        }
    };
    struct Group {
        std::string name, writer;
        MXFUMIDTag umid;  // zero: no file knows it
        bool alone = false;
        std::vector<std::string> files;
        std::vector<Track> tracks;
    };
    std::vector<Group> groups;
    for (const std::string& path : paths) {
        SalvageInput input(path);
        const SalvageHeader header = ReadSalvageHeader(input);
        const bool isClip = IsClip(header, input);
        // "TAKE01" is sound of "TAKE", unless it holds pictures. A damaged header may tell neither.
        const bool picture =
            isClip || header.IsPicture() ||
            (!header.IsSound() && FindEssenceFormat(input.Copy(kEssenceOffset, kMostUnit)).has_value());
        const MemberName name = NameOf(path);
        const auto channel = header.channel || picture ? header.channel : name.channel;
        Group own{picture ? StemOf(path) : name.clip,   WriterOf(path), header.materialUMID, isClip, {path},
                  {{picture, channel, FinalName(path)}}};
        const auto fits = [&](const Group& each, bool sameWriter) {
            const bool bothKnown = each.umid != MXFUMIDTag() && own.umid != MXFUMIDTag();
            return !each.alone && !own.alone && (each.writer == own.writer || (bothKnown && !sameWriter)) &&
                   (bothKnown ? each.umid == own.umid : each.name == own.name) &&
                   std::ranges::none_of(each.tracks, [&](const Track& t) { return t.Excludes(own.tracks.front()); });
        };
        auto group = std::ranges::find_if(groups, [&](const Group& each) { return fits(each, true); });
        if (group == groups.end())
            group = std::ranges::find_if(groups, [&](const Group& each) { return fits(each, false); });
        if (group == groups.end()) {
            groups.push_back(std::move(own));
        } else {
            group->files.push_back(path);
            group->tracks.push_back(std::move(own.tracks.front()));
            if (group->umid == MXFUMIDTag()) group->umid = own.umid;
        }
    }
    std::vector<std::vector<std::string>> clips;
    clips.reserve(groups.size());
    for (Group& group : groups) clips.push_back(std::move(group.files));
    return clips;
}

std::vector<std::string> FindSalvageFiles(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    std::vector<std::string> files = ListSalvageFiles(folder.empty() ? "." : folder.string());
    const auto sameFile = [&](const std::string& file) {
        return fs::path(file).filename() == fs::path(path).filename();
    };
    // In the words of the caller.
    for (std::string& file : files) {
        if (sameFile(file)) file = path;
        if (folder.empty()) file = fs::path(file).filename().string();
    }
    if (std::ranges::find(files, path) == files.end()) files.push_back(path);
    for (auto& clip : GroupSalvageFiles(files))
        if (std::ranges::find(clip, path) != clip.end()) return std::move(clip);
    return {path};
}

SalvagePlan ScanForSalvage(const std::vector<std::string>& paths, const SalvageChoice& choice,
                           const SalvageIndexer& indexer) {
    SalvagePlan plan;
    plan.alone = choice.alone;
    if (paths.empty()) return plan;
    std::vector<SalvagedFile> files(paths.size());
    std::vector<Scanned> all;
    for (size_t i = 0; i < paths.size(); ++i) {
        files[i].path = paths[i];
        files[i].name = FinalName(paths[i]);
        Scanned& scanned = all.emplace_back(Scanned{files[i], std::make_unique<SalvageInput>(paths[i]), {}});
        files[i].fileSize = scanned.source->GetSize();
        if (!scanned.source->IsOpened()) {
            GiveUp(files[i], "it cannot be opened");
            continue;
        }
        scanned.header = ReadSalvageHeader(*scanned.source);
        const std::string clip = NameOf(paths[i]).clip;
        Recognise(scanned, choice, std::ranges::any_of(paths, [&](const std::string& other) {
                      return other != paths[i] && StemOf(other) == clip;
                  }));
        if (scanned.IsGivenUp() && files[i].content != SalvageContent::kClip)
            Lose(files[i], 0, files[i].fileSize, "nothing can be told of it");
    }
    std::vector<Scanned> atoms;
    for (Scanned& each : all) {
        if (each.file.content != SalvageContent::kClip) {
            atoms.push_back(std::move(each));
            continue;
        }
        if (each.IsGivenUp()) continue;
        ScanClip(each, choice, indexer);
        plan.duration = std::max(plan.duration, each.file.framesKept);
        plan.clipType = 0x100 | each.file.channels;
        TakeIdentity(plan, each.header);
        plan.newMaterialUMID = plan.materialUMID == MXFUMIDTag();
        if (plan.newMaterialUMID) plan.materialUMID = NewUMID();
        if (plan.packageName.empty()) plan.packageName = StemOf(each.file.path);
    }
    if (!atoms.empty()) {
        ScanAtoms(plan, atoms, choice);
        NumberTracks(atoms);
        Identify(plan, atoms);
    }
    for (const Scanned& each : all) GiveUpUnreadable(each);
    for (const Scanned& each : atoms) GiveUpUnreadable(each);
    for (SalvagedFile& file : files) {
        if (file.action == SalvageAction::kGiveUp) Balance(file);
    }
    std::ranges::stable_sort(files, [](const SalvagedFile& a, const SalvagedFile& b) {
        return std::pair(Order(a), a.channel) < std::pair(Order(b), b.channel);
    });
    plan.files = std::move(files);
    return plan;
}

}  // namespace kmxf
