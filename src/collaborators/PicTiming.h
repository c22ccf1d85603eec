#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "collaborators/FramePacks.h"

namespace kmxf {

// What the sequence parameter set says of the picture timing SEI message (ITU-T H.264, D.1.3). The defaults are what
// holds without HRD parameters (E.2.1), for a stream whose pictures carry clock timestamps.
struct PicTimingLayout {
    uint32_t delayBits = 0;  // of cpb_removal_delay and dpb_output_delay together
    uint32_t timeOffsetBits = 24;
    bool hasTimestamps = true;  // pic_struct_present_flag
};

// The layout that a sequence parameter set (its RBSP, behind the NAL unit header) gives; nothing when that is cut
// short.
std::optional<PicTimingLayout> ReadPicTimingLayout(std::span<const uint8_t> parameterSet);

// The n-th (from 1) clock timestamp of a picture timing payload as the data of a timecode pack. The payload must be
// used up exactly and hold no reserved value: so a payload of another layout is not mistaken for a timecode.
std::optional<PackData> ReadClockTimestamp(std::span<const uint8_t> payload, const PicTimingLayout& layout,
                                           int32_t number);

}  // namespace kmxf
