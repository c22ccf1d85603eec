#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "kmxf/collaborators/Timecode.h"

// Frames of DV and AVC-Intra by what they are themselves, without a header that tells of them.
namespace kmxf {

struct EssenceFormat {
    uint32_t videoStd = 0, compType = 0;
    bool consumerDV = false;
};

// The bytes that stand in front of the first frame.
uint32_t SizeInFront(uint32_t compType);

// The format of essence that begins with these bytes, of which two frames should be there.
std::optional<EssenceFormat> FindEssenceFormat(std::span<const uint8_t> essence);

// What the frames of a file have in common as long as nothing is missing from them; 0 for what is no whole frame. Of DV
// every block is where its id says (SMPTE ST 314, ST 370); AVC-Intra frames have one number of slices.
uint32_t FrameStructure(std::span<const uint8_t> frame, uint32_t compType);

// The timecode that a frame carries.
std::optional<CTimecode> FrameTimecode(std::span<const uint8_t> frame, const EssenceFormat& format);

}  // namespace kmxf
