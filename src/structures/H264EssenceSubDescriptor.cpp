#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Descriptors.h"
#include "structures/PictureFormat.h"

namespace kmxf {

namespace {

// How the pictures of a sequence depend on each other.
struct Structure {
    uint8_t closedGOP, identicalGOP;
    uint16_t gopSize, bPictures;
    uint8_t profileConstraint, decodingDelay, referenceFrames;
};
constexpr Structure kLongGOP = {0, 0, 0, 4, 0x00, 2, 2};
constexpr Structure kIntra = {1, 1, 1, 0, 0x10, 0, 0};  // constraint_set3_flag: an intra profile

// profile_idc
constexpr uint8_t kHigh = 100, kHigh10 = 110, kHigh422 = 122;

struct AVCFormat {
    uint32_t compType;
    StandardSet standards;
    Structure structure;
    uint8_t profile, level;
    uint32_t bitRateFactor = 1;  // 1080 lines at 50 frames and more: of the rate that the type is named for
};

constexpr StandardSet kDoubleRate = k5994P | k50P;
constexpr StandardSet kSingleRate = kAnyStandard & ~kDoubleRate;
constexpr StandardSet kProgressiveSingleRate = kProgressive & ~kDoubleRate;

// clang-format off

constexpr AVCFormat kFormats[] = {
    {COMP_TYPE_LONGG6_1080,  kSingleRate,            kLongGOP, kHigh,    40},
    {COMP_TYPE_LONGG6_1080,  kDoubleRate,            kLongGOP, kHigh,    42, 2},
    {COMP_TYPE_LONGG6_720,   kAnyStandard,           kLongGOP, kHigh,    32},
    {COMP_TYPE_LONGG12_1080, kSingleRate,            kLongGOP, kHigh,    40},
    {COMP_TYPE_LONGG12_1080, kDoubleRate,            kLongGOP, kHigh,    42, 2},
    {COMP_TYPE_LONGG12_720,  kAnyStandard,           kLongGOP, kHigh,    32},
    {COMP_TYPE_LONGG25_1080, kSingleRate,            kLongGOP, kHigh422, 40},
    {COMP_TYPE_LONGG25_1080, kDoubleRate,            kLongGOP, kHigh422, 42, 2},
    {COMP_TYPE_LONGG25_720,  kAnyStandard,           kLongGOP, kHigh422, 32},
    {COMP_TYPE_LONGG50_1080, kSingleRate,            kLongGOP, kHigh422, 40},
    {COMP_TYPE_LONGG50_1080, kDoubleRate,            kLongGOP, kHigh422, 42, 2},
    {COMP_TYPE_LONGG50_720,  kAnyStandard,           kLongGOP, kHigh422, 32},
    // The levels of AVC-Intra are those of its sequence parameter sets.
    {COMP_TYPE_AVCI50_1080,  kSingleRate,            kIntra,   kHigh10,  40},
    {COMP_TYPE_AVCI50_1080,  kDoubleRate,            kIntra,   kHigh10,  42},
    {COMP_TYPE_AVCI50_720,   kProgressive,           kIntra,   kHigh10,  32},
    {COMP_TYPE_AVCI100_1080, kSingleRate,            kIntra,   kHigh422, 41},
    {COMP_TYPE_AVCI100_1080, kDoubleRate,            kIntra,   kHigh422, 42},
    {COMP_TYPE_AVCI100_720,  kProgressiveSingleRate, kIntra,   kHigh422, 41},
    {COMP_TYPE_AVCI100_720,  kDoubleRate,            kIntra,   kHigh422, 42},
    {COMP_TYPE_AVCI200_1080, kSingleRate,            kIntra,   kHigh422, 41},
    {COMP_TYPE_AVCI200_1080, kDoubleRate,            kIntra,   kHigh422, 50},
    {COMP_TYPE_AVCI200_720,  kProgressiveSingleRate, kIntra,   kHigh422, 41},
    {COMP_TYPE_AVCI200_720,  kDoubleRate,            kIntra,   kHigh422, 42},
};

// clang-format on

// In bits per second: AVC-Intra frames all have the same size, Long-GOP types are named for their rate.
uint32_t BitRate(const AVCFormat& format, uint32_t videoStd) {
    const uint64_t frameSize = GetFrameDataSize(videoStd, format.compType);
    if (frameSize == 0) return GetAVCBitRate(format.compType) * format.bitRateFactor;
    const MXFRATIONALTag rate = GetVideoEditRate(videoStd);
    const auto numerator = static_cast<uint64_t>(rate.numerator);
    const auto denominator = static_cast<uint64_t>(rate.denominator);
    return static_cast<uint32_t>((frameSize * 8 * numerator + denominator / 2) / denominator);
}

}  // namespace

CH264EssenceSubDescriptor::CH264EssenceSubDescriptor(uint32_t videoStd, uint32_t compType)
    : CMXFHeaderBase(kAVCSubDescriptorKey) {
    Declare({{kTagAVCConstantBPictureFlag, Encoded(uint8_t{0})},
             {kTagAVCCodedContentKind, Encoded(uint8_t{0})},
             {kTagAVCClosedGOPIndicator, Encoded(uint8_t{0})},
             {kTagAVCIdenticalGOPIndicator, Encoded(uint8_t{0})},
             {kTagAVCMaximumGOPSize, Encoded(uint16_t{0})},
             {kTagAVCMaximumBPictureCount, Encoded(uint16_t{4})},
             {kTagAVCMaximumBitRate, Encoded(uint32_t{25000000})},
             {kTagAVCProfile, Encoded(kHigh422)},
             {kTagAVCProfileConstraint, Encoded(uint8_t{0})},
             {kTagAVCLevel, Encoded(uint8_t{30})},
             {kTagAVCDecodingDelay, Encoded(uint8_t{2})},
             {kTagAVCMaximumReferenceFrames, Encoded(uint8_t{2})},
             {kTagAVCSequenceParameterSetFlag, Encoded(uint8_t{0x30})},
             {kTagAVCPictureParameterSetFlag, Encoded(uint8_t{0x30})},
             {kTagAVCAverageBitRate, Encoded(uint32_t{25000000})}});

    const auto* format = FindFormat<AVCFormat>(kFormats, videoStd, compType);
    if (format == nullptr) return;
    const Structure& structure = format->structure;
    SetClosedGOPIndicator(structure.closedGOP);
    SetIdenticalGOPIndicator(structure.identicalGOP);
    SetMaximumGOPSize(structure.gopSize);
    SetMaximumBPictureCount(structure.bPictures);
    SetProfile(format->profile);
    SetProfileConstraint(structure.profileConstraint);
    SetLevel(format->level);
    SetDecodingDelay(structure.decodingDelay);
    SetMaximumReferenceFrames(structure.referenceFrames);
    SetMaximumBitRate(BitRate(*format, videoStd));
    SetAverageBitRate(BitRate(*format, videoStd));
}
int32_t CH264EssenceSubDescriptor::SetConstantBPictureFlag(uint8_t value) {
    return Store(kTagAVCConstantBPictureFlag, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetCodedContentKind(uint8_t value) {
    return Store(kTagAVCCodedContentKind, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetClosedGOPIndicator(uint8_t value) {
    return Store(kTagAVCClosedGOPIndicator, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetIdenticalGOPIndicator(uint8_t value) {
    return Store(kTagAVCIdenticalGOPIndicator, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetMaximumGOPSize(uint16_t pictures) {
    return Store(kTagAVCMaximumGOPSize, Encoded(pictures));
}
int32_t CH264EssenceSubDescriptor::SetMaximumBPictureCount(uint16_t pictures) {
    return Store(kTagAVCMaximumBPictureCount, Encoded(pictures));
}
int32_t CH264EssenceSubDescriptor::SetMaximumBitRate(uint32_t bitsPerSecond) {
    return Store(kTagAVCMaximumBitRate, Encoded(bitsPerSecond));
}
int32_t CH264EssenceSubDescriptor::SetProfile(uint8_t value) { return Store(kTagAVCProfile, Encoded(value)); }
int32_t CH264EssenceSubDescriptor::SetProfileConstraint(uint8_t value) {
    return Store(kTagAVCProfileConstraint, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetLevel(uint8_t value) { return Store(kTagAVCLevel, Encoded(value)); }
int32_t CH264EssenceSubDescriptor::SetDecodingDelay(uint8_t value) {
    return Store(kTagAVCDecodingDelay, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetMaximumReferenceFrames(uint8_t value) {
    return Store(kTagAVCMaximumReferenceFrames, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetSequenceParameterSetFlag(uint8_t value) {
    return Store(kTagAVCSequenceParameterSetFlag, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetPictureParameterSetFlag(uint8_t value) {
    return Store(kTagAVCPictureParameterSetFlag, Encoded(value));
}
int32_t CH264EssenceSubDescriptor::SetAverageBitRate(uint32_t bitsPerSecond) {
    return Store(kTagAVCAverageBitRate, Encoded(bitsPerSecond));
}

}  // namespace kmxf
