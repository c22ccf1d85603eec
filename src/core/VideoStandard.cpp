#include "kmxf/core/VideoStandard.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "core/CompressionType.h"
#include "core/Labels.h"
#include "core/Lookup.h"

namespace kmxf {

namespace {

// clang-format off

constexpr MXFRATIONALTag k24000{24000, 1001}, k25{25, 1}, k30000{30000, 1001}, k50{50, 1}, k60000{60000, 1001};

struct StandardRow {
    VideoStd videoStd;
    MXFRATIONALTag editRate, timecodeRate;
    bool progressive, halfRateTimecode;  // half rate: a timecode frame spans two pictures
    uint32_t groupFrames;                // in a body partition of OP-1b
};
constexpr StandardRow kStandards[] = {
    {VIDEO_STD_59_94I, k30000, k30000, false, false,  60},
    {VIDEO_STD_50I,    k25,    k25,    false, false,  50},
    {VIDEO_STD_23_98P, k24000, k24000, true,  false,  48},
    {VIDEO_STD_29_97P, k30000, k30000, true,  false,  60},
    {VIDEO_STD_59_94P, k60000, k30000, true,  true,  120},
    {VIDEO_STD_25P,    k25,    k25,    true,  false,  50},
    {VIDEO_STD_50P,    k50,    k25,    true,  true,  100},
};

enum class Codec { kDV, kAVCIntra, kLongGOP1080, kLongGOP720 };
using enum Codec;
struct CompressionRow {
    CompType compType;
    Codec codec;
    uint32_t avcBitRate;    // bits per second, Long-GOP only
    uint32_t frameSize[7];  // by the rows of kStandards; 0 where there is no such format
};
constexpr CompressionRow kCompressions[] = {
    //                                              59.94i      50i  23.98p  29.97p  59.94p      25p      50p
    {COMP_TYPE_DV25,         kDV,                 0, {120000,  144000,      0,      0,      0,       0,       0}},
    {COMP_TYPE_DV50,         kDV,                 0, {240000,  288000,      0,      0,      0,       0,       0}},
    {COMP_TYPE_DV100_1080I,  kDV,                 0, {480000,  576000,      0,      0,      0,       0,       0}},
    {COMP_TYPE_DV100_720P,   kDV,                 0, {     0,       0, 240000, 240000, 240000,  288000,  288000}},
    {COMP_TYPE_AVCI50_1080,  kAVCIntra,           0, {232448,  280576, 232448, 232448, 232448,  280576,  280576}},
    {COMP_TYPE_AVCI50_720,   kAVCIntra,           0, {     0,       0, 116224, 116224, 116224,  140288,  140288}},
    {COMP_TYPE_AVCI100_1080, kAVCIntra,           0, {472064,  568320, 472064, 472064, 472064,  568320,  568320}},
    {COMP_TYPE_AVCI100_720,  kAVCIntra,           0, {     0,       0, 236032, 236032, 236032,  284160,  284160}},
    {COMP_TYPE_AVCI200_1080, kAVCIntra,           0, {952320, 1143808, 952320, 952320, 952320, 1143808, 1143808}},
    {COMP_TYPE_AVCI200_720,  kAVCIntra,           0, {     0,       0, 476160, 476160, 476160,  571904,  571904}},
    {COMP_TYPE_LONGG6_1080,  kLongGOP1080,  6000000, {}},
    {COMP_TYPE_LONGG6_720,   kLongGOP720,   6000000, {}},
    {COMP_TYPE_LONGG12_1080, kLongGOP1080, 12000000, {}},
    {COMP_TYPE_LONGG12_720,  kLongGOP720,  12000000, {}},
    {COMP_TYPE_LONGG25_1080, kLongGOP1080, 25000000, {}},
    {COMP_TYPE_LONGG25_720,  kLongGOP720,  25000000, {}},
    {COMP_TYPE_LONGG50_1080, kLongGOP1080, 50000000, {}},
    {COMP_TYPE_LONGG50_720,  kLongGOP720,  50000000, {}},
};

// By numerator alone; the denominator is not looked at.
struct EditRateRow {
    int32_t numerator;
    VideoStd interlaced, progressive;
};
constexpr EditRateRow kEditRates[] = {
    {   24, 0,                VIDEO_STD_23_98P},
    {24000, 0,                VIDEO_STD_23_98P},
    {   25, VIDEO_STD_50I,    VIDEO_STD_25P},
    {   30, VIDEO_STD_59_94I, VIDEO_STD_29_97P},
    {30000, VIDEO_STD_59_94I, VIDEO_STD_29_97P},
    {   50, 0,                VIDEO_STD_50P},
    {   60, 0,                VIDEO_STD_59_94P},
    {60000, 0,                VIDEO_STD_59_94P},
};

// How samples at 48 kHz spread over the frames: the first sample of each frame of a cycle that repeats.
struct Cadence {
    int64_t frames, samples;  // in a cycle
    std::array<int64_t, 10> starts;
};
struct CadenceRow {
    VideoStd videoStd;
    Cadence toSamples, toDuration;
};
// The two ways differ on purpose at 23.98p and in two frames of 59.94p: a count of samples that falls a little short of
// a frame's start belongs to that frame all the same.
constexpr CadenceRow kCadences[] = {
    {VIDEO_STD_50I,    { 1, 1920, {}},
                       { 1, 1920, {}}},
    {VIDEO_STD_25P,    { 1, 1920, {}},
                       { 1, 1920, {}}},
    {VIDEO_STD_50P,    { 1,  960, {}},
                       { 1,  960, {}}},
    {VIDEO_STD_59_94I, { 5, 8008, {0, 1600, 3204, 4804, 6408}},
                       { 5, 8008, {0, 1600, 3204, 4804, 6408}}},
    {VIDEO_STD_29_97P, { 5, 8008, {0, 1600, 3204, 4804, 6408}},
                       { 5, 8008, {0, 1600, 3204, 4804, 6408}}},
    {VIDEO_STD_59_94P, {10, 8008, {0, 800, 1600, 2404, 3204, 4004, 4804, 5608, 6408, 7208}},
                       {10, 8008, {0, 800, 1600, 2402, 3204, 4004, 4804, 5606, 6408, 7208}}},
    {VIDEO_STD_23_98P, { 4, 8008, {0, 2004, 4004, 6008}},
                       { 1, 2002, {}}},
};

// Byte 14 of the DV container label (SMPTE ST 383), for DV-based and for IEC 61834 pictures.
struct DVLabelRow {
    CompType compType;
    VideoStd videoStd;
    uint8_t dvBased, iec;
};
constexpr DVLabelRow kDVLabels[] = {
    {COMP_TYPE_DV25,        VIDEO_STD_59_94I, 0x40, 0x01},
    {COMP_TYPE_DV25,        VIDEO_STD_50I,    0x41, 0x02},
    {COMP_TYPE_DV50,        VIDEO_STD_59_94I, 0x50, 0x50},
    {COMP_TYPE_DV50,        VIDEO_STD_50I,    0x51, 0x51},
    {COMP_TYPE_DV100_1080I, VIDEO_STD_59_94I, 0x60, 0x60},
    {COMP_TYPE_DV100_1080I, VIDEO_STD_50I,    0x61, 0x61},
    {COMP_TYPE_DV100_720P,  VIDEO_STD_23_98P, 0x62, 0x62},
    {COMP_TYPE_DV100_720P,  VIDEO_STD_29_97P, 0x62, 0x62},
    {COMP_TYPE_DV100_720P,  VIDEO_STD_59_94P, 0x62, 0x62},
    {COMP_TYPE_DV100_720P,  VIDEO_STD_25P,    0x63, 0x63},
    {COMP_TYPE_DV100_720P,  VIDEO_STD_50P,    0x63, 0x63},
};

// clang-format on

const StandardRow* FindStandard(VideoStd videoStd) { return FindRow(kStandards, &StandardRow::videoStd, videoStd); }

bool HasCodec(CompType compType, Codec codec) {
    const auto* row = FindRow(kCompressions, &CompressionRow::compType, compType);
    return row != nullptr && row->codec == codec;
}

// What the library treats as 96 kHz; every other rate counts as 48 kHz.
bool IsDoubleRate(uint32_t samplingRate) { return samplingRate == 96000; }

uint64_t FramesToSamples(const Cadence& cadence, int64_t frames) {
    const auto cycles = static_cast<uint64_t>(frames / cadence.frames);
    const auto frame = static_cast<size_t>(std::max<int64_t>(frames % cadence.frames, 0));
    return cycles * static_cast<uint64_t>(cadence.samples) + static_cast<uint64_t>(cadence.starts[frame]);
}

int64_t SamplesToFrames(const Cadence& cadence, int64_t samples) {
    const int64_t rest = samples % cadence.samples;
    int64_t frame = cadence.frames - 1;
    while (frame > 0 && rest < cadence.starts[static_cast<size_t>(frame)]) --frame;
    return samples / cadence.samples * cadence.frames + frame;
}

}  // namespace

uint32_t GetFrameDataSize(uint32_t videoStd, uint32_t compType) {
    const auto* standard = FindStandard(videoStd);
    const auto* compression = FindRow(kCompressions, &CompressionRow::compType, compType);
    return standard == nullptr || compression == nullptr ? 0 : compression->frameSize[standard - kStandards];
}

uint32_t DataSizeToDuration(int64_t dataSize, uint32_t videoStd, uint32_t compType) {
    const int64_t frameSize = GetFrameDataSize(videoStd, compType);
    if (frameSize == 0) return 0;
    const int64_t frames = dataSize / frameSize;
    // 720-line DV comes in units of two frames, at every rate.
    const bool paired = !IsAVCFamily(compType) && IsProgressive(videoStd);
    return static_cast<uint32_t>(paired ? frames & ~int64_t{1} : frames);
}

MXFRATIONALTag GetVideoEditRate(uint32_t videoStd) {
    const auto* row = FindStandard(videoStd);
    return row == nullptr ? MXFRATIONALTag{} : row->editRate;
}

MXFRATIONALTag GetTimecodeEditRate(uint32_t videoStd) {
    const auto* row = FindStandard(videoStd);
    return row == nullptr ? MXFRATIONALTag{} : row->timecodeRate;
}

MXFRATIONALTag GetAudioEditRate(uint32_t samplingRate) { return {IsDoubleRate(samplingRate) ? 96000 : 48000, 1}; }

uint32_t ConvertTCVideoStd(uint32_t videoStd) { return FindStandard(videoStd) == nullptr ? 0xFFFFFFFF : videoStd; }

int64_t CalcTimecodeDuration(uint32_t videoStd, int64_t duration) {
    const auto* row = FindStandard(videoStd);
    return row == nullptr || !row->halfRateTimecode ? duration
                                                    : static_cast<int64_t>(static_cast<uint64_t>(duration) + 1) / 2;
}

uint32_t EditRateToVideoStd(MXFRATIONALTag editRate, uint8_t interlaced) {
    const auto* row = FindRow(kEditRates, &EditRateRow::numerator, editRate.numerator);
    if (row == nullptr) return 0;
    return interlaced != 0 ? row->interlaced : row->progressive;
}

bool IsProgressive(uint32_t videoStd) {
    const auto* row = FindStandard(videoStd);
    return row != nullptr && row->progressive;
}

bool IsDV(uint32_t compType) { return HasCodec(compType, kDV); }

bool IsAVCI(uint32_t compType) { return HasCodec(compType, kAVCIntra); }

bool IsAVCGOP(uint32_t compType) { return HasCodec(compType, kLongGOP1080); }

uint32_t GetAVCBitRate(uint32_t compType) {
    const auto* row = FindRow(kCompressions, &CompressionRow::compType, compType);
    return row == nullptr ? 0 : row->avcBitRate;
}

int64_t DurationToAudioSample(uint32_t videoStd, int64_t duration, uint32_t samplingRate) {
    const auto* row = FindRow(kCadences, &CadenceRow::videoStd, videoStd);
    // The failure is doubled like any other result: -1, at 96 kHz -2.
    const uint64_t samples = row == nullptr ? ~uint64_t{0} : FramesToSamples(row->toSamples, duration);
    return static_cast<int64_t>(IsDoubleRate(samplingRate) ? 2 * samples : samples);
}

uint32_t AudioSampleToDuration(uint32_t videoStd, int64_t samples, uint32_t samplingRate) {
    const auto* row = FindRow(kCadences, &CadenceRow::videoStd, videoStd);
    // At 96 kHz the frames are halved, not the samples; so is the failure.
    const uint32_t frames =
        row == nullptr ? 0xFFFFFFFF : static_cast<uint32_t>(SamplesToFrames(row->toDuration, samples));
    return IsDoubleRate(samplingRate) ? frames >> 1 : frames;
}

bool GetEssenceContainerLabel(uint32_t videoStd, uint32_t compType, bool iec, bool frameWrap, MXFKEYTag* label) {
    const auto* compression = FindRow(kCompressions, &CompressionRow::compType, compType);
    if (compression == nullptr || label == nullptr) return false;
    MXFKEYTag result = kAVCLongGOPContainerLabel;
    if (compression->codec == kAVCIntra) {
        result = kAVCIntraContainerLabel;
    } else if (compression->codec == kDV) {
        const auto* row = std::ranges::find_if(
            kDVLabels, [&](const DVLabelRow& r) { return r.compType == compType && r.videoStd == videoStd; });
        if (row == std::end(kDVLabels)) return false;
        result = kDVContainerLabel;
        result.bytes[14] = iec ? row->iec : row->dvBased;
    }
    if (frameWrap) result.bytes[15] = 0x01;
    *label = result;
    return true;
}

uint32_t GetPictureTrackNum(uint32_t trackCode) { return trackCode >> 8 & 0x0F; }

uint32_t GetSoundTrackNum(uint32_t trackCode) { return trackCode & 0xFF; }

uint32_t VideoStandardToPartitionFrame(uint32_t videoStd) {
    const auto* row = FindStandard(videoStd);
    return row == nullptr ? 0 : row->groupFrames;
}

}  // namespace kmxf
