#include "collaborators/PicTiming.h"

#include <algorithm>
#include <iterator>

#include "collaborators/BitReader.h"

namespace kmxf {

namespace {

// Profiles whose parameter sets have the chroma format and scaling matrices (7.3.2.1.1).
constexpr uint32_t kHighProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
constexpr uint32_t kExtendedSAR = 255;

void SkipScalingList(BitReader& bits, int size) {
    int32_t last = 8, next = 8;
    for (int i = 0; i < size && next != 0 && bits.Ok(); ++i) {
        next = (last + bits.SE() % 256 + 256) % 256;
        if (next != 0) last = next;
    }
}

void SkipChromaAndScaling(BitReader& bits) {
    const uint32_t chromaFormat = bits.UE();
    if (chromaFormat == 3) bits.Skip(1);  // separate_colour_plane_flag
    bits.UE();                            // bit depths
    bits.UE();
    bits.Skip(1);  // qpprime_y_zero_transform_bypass_flag
    if (!bits.Flag()) return;
    const int lists = chromaFormat == 3 ? 12 : 8;
    for (int i = 0; i < lists; ++i)
        if (bits.Flag()) SkipScalingList(bits, i < 6 ? 16 : 64);
}

void SkipPictureOrder(BitReader& bits) {
    const uint32_t type = bits.UE();
    if (type == 0) bits.UE();  // log2_max_pic_order_cnt_lsb_minus4
    if (type != 1) return;
    bits.Skip(1);  // delta_pic_order_always_zero_flag
    bits.UE();     // two offsets
    bits.UE();
    const uint32_t count = bits.UE();
    for (uint32_t i = 0; i < count && bits.Ok(); ++i) bits.UE();
}

void ReadHRD(BitReader& bits, PicTimingLayout& layout) {
    const uint32_t last = bits.UE();
    bits.Skip(8);  // scales
    for (uint32_t i = 0; i <= last && bits.Ok(); ++i) {
        bits.UE();  // bit rate, size
        bits.UE();
        bits.Skip(1);  // cbr_flag
    }
    bits.Skip(5);  // initial_cpb_removal_delay_length_minus1
    layout.delayBits = bits.U(5) + 1;
    layout.delayBits += bits.U(5) + 1;
    layout.timeOffsetBits = bits.U(5);
}

void ReadVUI(BitReader& bits, PicTimingLayout& layout) {
    if (bits.Flag() && bits.U(8) == kExtendedSAR) bits.Skip(32);
    if (bits.Flag()) bits.Skip(1);  // overscan
    if (bits.Flag()) {              // video signal type
        bits.Skip(4);
        if (bits.Flag()) bits.Skip(24);
    }
    if (bits.Flag()) {  // chroma sample location
        bits.UE();
        bits.UE();
    }
    if (bits.Flag()) bits.Skip(65);  // timing
    const bool nal = bits.Flag();
    if (nal) ReadHRD(bits, layout);
    const bool vcl = bits.Flag();
    if (vcl) ReadHRD(bits, layout);  // of the same lengths
    if (nal || vcl) bits.Skip(1);    // low_delay_hrd_flag
    layout.hasTimestamps = bits.Flag();
}

}  // namespace

std::optional<PicTimingLayout> ReadPicTimingLayout(std::span<const uint8_t> parameterSet) {
    BitReader bits(parameterSet);
    const uint32_t profile = bits.U(8);
    bits.Skip(16);  // constraints, level
    bits.UE();      // id
    if (std::find(std::begin(kHighProfiles), std::end(kHighProfiles), profile) != std::end(kHighProfiles))
        SkipChromaAndScaling(bits);
    bits.UE();  // log2_max_frame_num_minus4
    SkipPictureOrder(bits);
    bits.UE();     // max_num_ref_frames
    bits.Skip(1);  // gaps_in_frame_num_value_allowed_flag
    bits.UE();     // width, height
    bits.UE();
    if (!bits.Flag()) bits.Skip(1);  // frame_mbs_only_flag, mb_adaptive_frame_field_flag
    bits.Skip(1);                    // direct_8x8_inference_flag
    if (bits.Flag())
        for (int side = 0; side < 4; ++side) bits.UE();  // cropping

    PicTimingLayout layout;
    layout.hasTimestamps = false;
    if (bits.Flag()) ReadVUI(bits, layout);
    if (!bits.Ok()) return {};
    return layout;
}

std::optional<PackData> ReadClockTimestamp(std::span<const uint8_t> payload, const PicTimingLayout& layout,
                                           int32_t number) {
    static constexpr uint8_t kTimestamps[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};  // by pic_struct
    static constexpr unsigned kTimeBits[] = {6, 6, 5};                     // seconds, minutes, hours
    static constexpr uint32_t kUnknown = ~uint32_t{0};
    static constexpr uint32_t kCountsDropFrame = 4, kLastCountingType = 6, kReservedScan = 3;

    if (!layout.hasTimestamps) return {};
    BitReader bits(payload);
    bits.Skip(layout.delayBits);
    const uint32_t picStruct = bits.U(4);
    if (picStruct >= std::size(kTimestamps)) return {};

    int32_t seen = 0;
    std::optional<PackData> found;
    std::array<uint32_t, 4> time = {kUnknown, kUnknown, kUnknown, kUnknown};  // what a timestamp leaves out stays
    for (int i = 0; i < kTimestamps[picStruct]; ++i) {
        if (!bits.Flag()) continue;
        const uint32_t scan = bits.U(2);
        bits.Skip(1);  // nuit_field_based_flag
        const uint32_t countingType = bits.U(5);
        if (scan == kReservedScan || countingType > kLastCountingType) return {};
        const bool full = bits.Flag();
        bits.Skip(2);  // discontinuity_flag, cnt_dropped_flag
        time[0] = bits.U(8);
        for (size_t part = 0; part < std::size(kTimeBits); ++part) {
            if (!full && !bits.Flag()) break;
            time[part + 1] = bits.U(kTimeBits[part]);
        }
        bits.Skip(layout.timeOffsetBits);
        if (++seen == number) found = PackTimecode(time, countingType == kCountsDropFrame);
    }
    return bits.AtEnd() ? found : std::nullopt;
}

}  // namespace kmxf
