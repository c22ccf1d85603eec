#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "ParameterSets.h"

namespace kmxf::program {

enum class PictureType : uint8_t { kI, kP, kB };

// What the head of a slice tells of its picture (ITU-T H.264, 7.3.3).
struct SliceHeader {
    PictureType type = PictureType::kI;
    bool reference = false;
    bool idr = false;
    uint32_t pictureSet = 0;
    uint32_t frameNum = 0;
    bool field = false, bottom = false;
    uint32_t idrId = 0;
    uint32_t orderLsb = 0;         // type 0 of the picture order count
    int32_t orderDeltaBottom = 0;  // likewise
    bool redundant = false;        // a copy, in case the first is lost
    bool endsOrder = false;        // memory management 5: what follows is counted as behind an IDR picture

    // Whether the slices are of one picture (7.4.1.2.4).
    bool SamePicture(const SliceHeader& other) const;
    // Whether a picture that begins with this is the other field of the frame that began with `first`.
    bool IsSecondFieldOf(const SliceHeader& first) const;
};

// `nal` is the slice's NAL unit (types 1 and 5) from its first byte on, or as much of it as there is. Nothing when its
// parameter sets are missing, or when it is malformed or ends within the head.
std::optional<SliceHeader> ParseSliceHeader(std::span<const uint8_t> nal, const ParameterSets& sets);

// As many bytes of a slice as its head can take.
inline constexpr size_t kMostSliceHead = 1024;

}  // namespace kmxf::program
