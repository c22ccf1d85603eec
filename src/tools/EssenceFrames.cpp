#include "tools/EssenceFrames.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "collaborators/SEI.h"
#include "core/CompressionType.h"
#include "core/Layout.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Status.h"

namespace kmxf {

namespace {

constexpr uint32_t kBlockSize = 80, kSequenceBlocks = 150;
constexpr uint32_t kSequence60 = 10, kSequence50 = 12;  // sequences of a channel

struct BlockID {
    uint8_t section, number;
};
// What stands where in a DIF sequence: a header, 2 blocks of subcode, 3 of VAUX, then 9 times one of audio and 15 of
// video.
constexpr std::array<BlockID, kSequenceBlocks> kBlocks = [] {
    std::array<BlockID, kSequenceBlocks> blocks{};
    uint8_t audio = 0, video = 0;
    for (uint32_t i = 0; i < kSequenceBlocks; ++i) {
        const auto at = static_cast<uint8_t>(i);
        if (i == 0) {
            blocks[i] = {0, 0};
        } else if (i < 3) {
            blocks[i] = {1, static_cast<uint8_t>(at - 1)};
        } else if (i < 6) {
            blocks[i] = {2, static_cast<uint8_t>(at - 3)};
        } else if ((i - 6) % 16 == 0) {
            blocks[i] = {3, audio++};
        } else {
            blocks[i] = {4, video++};
        }
    }
    return blocks;
}();

bool IsWholeDV(std::span<const uint8_t> frame) {
    const uint32_t sequences =
        frame.size() % (size_t{kSequence50} * kSequenceBlocks * kBlockSize) == 0 ? kSequence50 : kSequence60;
    for (size_t i = 0; (i + 1) * kBlockSize <= frame.size(); ++i) {
        const uint8_t* const id = frame.data() + i * kBlockSize;
        const BlockID& expected = kBlocks[i % kSequenceBlocks];
        if (id[0] >> 5 != expected.section || id[2] != expected.number ||
            id[1] >> 4 != i / kSequenceBlocks % sequences) {
            return false;
        }
    }
    return !frame.empty() && frame.size() % (size_t{kSequenceBlocks} * kBlockSize) == 0;
}

bool BeginsNAL(std::span<const uint8_t> bytes) {
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    return bytes.size() > 4 && (std::equal(kStartCode, kStartCode + 4, bytes.begin()) ||
                                std::equal(kStartCode + 1, kStartCode + 4, bytes.begin()));
}

uint32_t CountSlices(std::span<const uint8_t> frame) {
    uint32_t slices = 0;
    const uint8_t* const end = frame.data() + frame.size();
    for (const uint8_t* at = frame.data() + 2; at + 1 < end; ++at) {
        at = static_cast<const uint8_t*>(std::memchr(at, 1, static_cast<size_t>(end - at - 1)));
        if (at == nullptr) break;
        const uint8_t type = at[1] & 0x1F;
        if (at[-1] == 0 && at[-2] == 0 && (type == 1 || type == 5)) ++slices;
    }
    return slices;
}

std::optional<EssenceFormat> FindDV(std::span<const uint8_t> essence) {
    CDIFFrame frame;
    EssenceFormat found;
    const bool told = frame.SetDIFData(essence.data(), static_cast<uint32_t>(essence.size())) == kStatusOk &&
                      frame.GetVideoSystem(&found.videoStd) == kStatusOk &&
                      frame.GetCompType(&found.compType) == kStatusOk;
    if (!told || GetFrameDataSize(found.videoStd, found.compType) == 0) return std::nullopt;
    frame.GetConsumerDVFlag(&found.consumerDV);
    return found;
}

// By the parameter sets in front; where they are damaged, by the place at which the second frame begins.
std::optional<EssenceFormat> FindAVCIntra(std::span<const uint8_t> essence) {
    constexpr uint32_t kStandards[] = {VIDEO_STD_59_94I, VIDEO_STD_50I, VIDEO_STD_23_98P, VIDEO_STD_29_97P,
                                       VIDEO_STD_59_94P, VIDEO_STD_25P, VIDEO_STD_50P};
    constexpr uint32_t kTypes[] = {COMP_TYPE_AVCI50_1080, COMP_TYPE_AVCI50_720,   COMP_TYPE_AVCI100_1080,
                                   COMP_TYPE_AVCI100_720, COMP_TYPE_AVCI200_1080, COMP_TYPE_AVCI200_720};
    if (essence.size() < kParameterSetBlock) return std::nullopt;
    std::optional<EssenceFormat> bySize;
    const bool readable = BeginsNAL(essence);
    for (const uint32_t compType : kTypes) {
        for (const uint32_t videoStd : kStandards) {
            const uint32_t frameSize = GetFrameDataSize(videoStd, compType);
            if (frameSize == 0) continue;
            const size_t second = kParameterSetBlock + size_t{frameSize};
            const bool fits = essence.size() >= second + 5 && BeginsNAL(essence.subspan(second));
            if (fits && !bySize) bySize = EssenceFormat{videoStd, compType, false};
            uint8_t block[kParameterSetBlock]{};
            if (!readable || !GetAVCIHeader(videoStd, compType, block)) continue;
            if (std::equal(block, block + kParameterSetBlock, essence.begin()) && (fits || essence.size() < second + 5))
                return EssenceFormat{videoStd, compType, false};
        }
    }
    return bySize;
}

}  // namespace

uint32_t SizeInFront(uint32_t compType) { return IsAVCFamily(compType) ? kParameterSetBlock : 0; }

std::optional<EssenceFormat> FindEssenceFormat(std::span<const uint8_t> essence) {
    const auto dv = essence.empty() ? std::nullopt : FindDV(essence);
    return dv ? dv : FindAVCIntra(essence);
}

uint32_t FrameStructure(std::span<const uint8_t> frame, uint32_t compType) {
    if (IsDV(compType)) return IsWholeDV(frame) ? 1 : 0;
    return BeginsNAL(frame) ? CountSlices(frame) : 0;
}

std::optional<CTimecode> FrameTimecode(std::span<const uint8_t> frame, const EssenceFormat& format) {
    uint8_t packed[4]{};
    bool found = false;
    if (IsDV(format.compType)) {
        CDIFFrame parser;
        parser.SetDIFData(frame.data(), static_cast<uint32_t>(frame.size()));
        found = parser.GetTimecode(packed, 1) == kStatusOk;
    } else {
        CAVCIFrame parser;
        parser.SetFrameData(frame.data(), static_cast<uint32_t>(std::min<size_t>(frame.size(), kSEIAreaSize)));
        found = parser.GetTimecode(packed, SEI_DATA_TYPE1) == kStatusOk;
    }
    CTimecode timecode;
    timecode.SetVideoStd(format.videoStd);
    return found && timecode.SetData(packed) == kStatusOk ? std::optional(timecode) : std::nullopt;
}

}  // namespace kmxf
