#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// What the sequence parameter set of an H.264 stream says (ITU-T H.264, 7.3.2.1 and Annex E).
namespace kmxf::program {

struct SequenceParameterSet {
    uint8_t profile = 0;
    uint8_t level = 0;
    uint32_t width = 0;   // cropped, in pixels
    uint32_t height = 0;  // cropped, in lines
    bool interlaced = false;
    uint32_t timeScale = 0;  // 0: no timing information
    uint32_t unitsInTick = 0;
    // The bits that decide how pictures decode: everything but constraint flags, level and VUI.
    std::vector<bool> decodingBits;
};

// `nal` is the NAL unit from its first byte (0x67) on. Nothing when it is malformed.
std::optional<SequenceParameterSet> ParseSequenceParameterSet(std::span<const uint8_t> nal);

// The first NAL unit of a type in Annex B bytes, without its start code and trailing zeros; empty when there is none.
std::span<const uint8_t> FindNal(std::span<const uint8_t> bytes, uint8_t type);

}  // namespace kmxf::program
