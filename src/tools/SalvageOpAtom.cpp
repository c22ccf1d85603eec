#include "tools/SalvageOpAtom.h"

#include <algorithm>
#include <map>

#include "core/KLVPacket.h"
#include "core/Layout.h"
#include "core/NewUMID.h"
#include "kmxf/core/VideoStandard.h"
#include "tools/MemberName.h"
#include "tools/SalvageSheet.h"

namespace kmxf {

namespace {

constexpr uint64_t kEssenceOffset = kOpAtomHeaderSize;
constexpr uint64_t kTail = 4 << 20;    // bytes of frames that are looked at in one step from the end
constexpr uint64_t kMostFooter = 512;  // bytes of an OP-Atom footer, its index included
constexpr size_t kLeastOfKey = 4;      // that tell a footer's beginning from samples
constexpr uint32_t kMostUnit = 2 * 1143808 + 1024;

const char* const kNoFrame = "no whole frame";
const char* const kBeyond = "sound beyond the last frame";
const char* const kUneven = "frames beyond the end of the clip";

// Where a footer begins that was written before the header could name it, and may be cut off itself.
uint64_t FooterAtEnd(SalvageInput& source) {
    const uint64_t size = source.GetSize();
    const uint64_t from = size - std::min(size, kMostFooter);
    const auto bytes = source.Copy(from, kMostFooter);
    // On the way to the end of a file a pack can only be a footer.
    for (size_t i = 0; i + kLeastOfKey <= bytes.size(); ++i)
        if (BeginsLikePack(std::span(bytes).subspan(i))) return from + i;
    return size;
}

void FindEssenceEnd(ScannedFile& scanned) {
    SalvagedFile& file = scanned.file;
    scanned.essenceEnd = scanned.header.footer.value_or(file.fileSize);
    if (!scanned.header.footer) scanned.essenceEnd = FooterAtEnd(*scanned.source);
    file.rebuiltSize = std::min(file.fileSize, kEssenceOffset) +
                       (file.fileSize - std::max(scanned.essenceEnd, std::min(file.fileSize, kEssenceOffset)));
    scanned.essenceEnd = std::max(scanned.essenceEnd, kEssenceOffset);
}

// Whether packet follows packet in a file, from its beginning to its end, and no table that a pack announces is
// missing.
bool HoldsTogether(SalvageInput& source) {
    CInspector inspector(source);
    while (const auto partition = inspector.NextPartition()) {
        for (const InspectedPacket& packet : partition->packets)
            if (packet.kind == PacketKind::kDamage || !packet.whole) return false;
        const uint64_t content = partition->packets.back().End() - partition->packets.front().End();
        if (partition->pack && std::cmp_less(content, partition->pack->GetIndexByteCount())) return false;
    }
    return true;
}

struct WholeFrames {
    int64_t frames = 0, damaged = 0;
};

// How many frames there are up to the last whole one, of `there` that are as long as a frame.
WholeFrames FindWhole(ScannedFile& scanned, uint64_t first, uint32_t frameSize, int64_t there) {
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
    const auto samples = std::min(static_cast<int64_t>(bytes / file.bytesPerSample), SamplesOf(file, kMostSoundFrames));
    int64_t frames = AudioSampleToDuration(file.videoStd, samples, file.samplesPerSec);
    while (SamplesOf(file, frames + 1) <= samples + kSpareSamples) ++frames;
    return frames;
}

void FitSound(ScannedFile& scanned, int64_t duration) {
    SalvagedFile& file = scanned.file;
    const uint64_t wanted = static_cast<uint64_t>(SamplesOf(file, duration)) * file.bytesPerSample;
    const uint64_t there = scanned.EssenceSize();
    file.framesKept = std::min(duration, file.framesFound);
    // A sample that is not whole gives way to silence.
    file.keptSize = there >= wanted ? wanted : there - there % file.bytesPerSample;
    file.silenceSize = wanted - file.keptSize;
    if (there > file.keptSize) {
        Lose(file, kEssenceOffset + file.keptSize, there - file.keptSize, there >= wanted ? kBeyond : kWritten);
        if (there >= wanted) file.cutSize = there - wanted;
    }
}

void HashLastFrame(ScannedFile& scanned) {
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
void CountParameterSets(ScannedFile& scanned) {
    SalvagedFile& file = scanned.file;
    const uint32_t inFront = file.content == SalvageContent::kPicture ? SizeInFront(file.compType) : 0;
    constexpr uint8_t kDelimiter[] = {0, 0, 0, 1, 9};
    if (inFront == 0 || std::ranges::equal(scanned.source->Copy(kEssenceOffset, sizeof kDelimiter), kDelimiter)) return;
    file.keptSize -= inFront;
    file.rebuiltSize += inFront;
    file.rebuilt.emplace_back(kParameterSets);
}

}  // namespace

uint64_t ScannedFile::EssenceSize() const { return essenceEnd > kEssenceOffset ? essenceEnd - kEssenceOffset : 0; }

std::optional<EssenceFormat> FindEssenceFormat(SalvageInput& source) {
    return FindEssenceFormat(source.Copy(kEssenceOffset, kMostUnit));
}

void RecogniseOpAtom(ScannedFile& scanned, const SalvageChoice& choice, bool beside) {
    SalvagedFile& file = scanned.file;
    const SalvageHeader& header = scanned.header;
    scanned.isWhole = scanned.IsClosed() && HoldsTogether(*scanned.source);
    if (header.otherPattern)
        return GiveUp(file, "it is an MXF file of another operational pattern than OP-Atom and OP-1b");
    if (header.elsewhere && !scanned.isWhole)
        return GiveUp(file, "its essence begins at byte " + std::to_string(*header.elsewhere) + ", not at " +
                                std::to_string(kEssenceOffset) + " as in the recordings that can be mended");
    if (header.IsPicture()) {
        scanned.format = {header.metadata.picture->videoStd, header.metadata.picture->compType, header.consumerDV};
        file.content = SalvageContent::kPicture;
    } else if (header.IsSound()) {
        file.content = SalvageContent::kSound;
        file.bytesPerSample = static_cast<uint16_t>(header.metadata.bytesPerSample);
        file.samplesPerSec = header.metadata.samplesPerSec;
    } else if (const auto format = FindEssenceFormat(*scanned.source)) {
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

void ScanPictures(ScannedFile& scanned, const SalvageChoice& choice) {
    SalvagedFile& file = scanned.file;
    file.videoStd = scanned.format.videoStd;
    file.compType = scanned.format.compType;
    const uint32_t frameSize = GetFrameDataSize(file.videoStd, file.compType);
    if (frameSize == 0) return GiveUp(file, "its format has no frame size");
    const uint64_t inFront = SizeInFront(file.compType);
    const uint64_t first = kEssenceOffset + inFront;
    const uint64_t bytes = scanned.EssenceSize() - std::min(scanned.EssenceSize(), inFront);
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
        Lose(file, kEssenceOffset, scanned.EssenceSize(), there == 0 ? kWritten : kNoFrame);
        return GiveUp(file, "it holds no whole frame");
    }
    Lose(file, keptEnd, thereEnd - keptEnd, kNoFrame);
    Lose(file, thereEnd, scanned.essenceEnd - thereEnd, kWritten);
}

void ScanSound(ScannedFile& scanned, const SalvageChoice& choice, const std::vector<ScannedFile>& all, int64_t pictures,
               uint32_t videoStd) {
    SalvagedFile& file = scanned.file;
    file.videoStd = choice.videoStd.value_or(videoStd != 0 ? videoStd : scanned.header.videoStd);
    if (ConvertTCVideoStd(file.videoStd) != file.videoStd) return GiveUpUntold(file, "its video standard is not known");
    for (const ScannedFile& other : all) {
        if (other.file.content != SalvageContent::kSound || other.file.formatFrom != SalvageOrigin::kHeader) continue;
        if (file.bytesPerSample == 0) file.bytesPerSample = other.file.bytesPerSample;
        if (file.samplesPerSec == 0) file.samplesPerSec = other.file.samplesPerSec;
    }
    if (file.samplesPerSec == 0) file.samplesPerSec = 48000;
    if (file.bytesPerSample == 0 && pictures > 0) {
        // Samples of 16 or 24 bits: whichever comes closer to the length of the picture.
        file.bytesPerSample = 2 * scanned.EssenceSize() > 5 * static_cast<uint64_t>(SamplesOf(file, pictures)) ? 3 : 2;
    }
    if (choice.bytesPerSample) {
        file.bytesPerSample = *choice.bytesPerSample;
        file.formatFrom = SalvageOrigin::kCaller;
    }
    if (file.bytesPerSample != 2 && file.bytesPerSample != 3) return GiveUpUntold(file, "its sample size is not known");
    file.channels = 1;
    file.framesFound = SoundFrames(file, scanned.EssenceSize());
}

void FitOpAtom(ScannedFile& scanned, int64_t duration) {
    SalvagedFile& file = scanned.file;
    if (file.content == SalvageContent::kSound) {
        FitSound(scanned, duration);
    } else {
        TrimPictures(file, duration);
    }
    HashLastFrame(scanned);
    CountParameterSets(scanned);
    file.umid = scanned.header.fileUMID != MXFUMIDTag() ? scanned.header.fileUMID : NewUMID();
}

bool HoldsNoPicture(const ScannedFile& scanned) {
    const SalvagedFile& file = scanned.file;
    const bool empty =
        file.content == SalvageContent::kPicture
            ? GetFrameDataSize(file.videoStd, file.compType) != 0
            : file.content == SalvageContent::kUnknown && file.fileSize <= kEssenceOffset && !NameOf(file.path).channel;
    return empty && scanned.IsGivenUp() && scanned.source->IsOpened() && !scanned.source->Unreadable();
}

std::optional<CTimecode> FirstTimecode(const ScannedFile& scanned) {
    const SalvagedFile& file = scanned.file;
    const uint64_t first = kEssenceOffset + SizeInFront(file.compType);
    const uint64_t size = 2 * uint64_t{GetFrameDataSize(file.videoStd, file.compType)};
    return FrameTimecode(scanned.source->Copy(first, size), scanned.format);
}

}  // namespace kmxf
