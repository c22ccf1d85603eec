#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "collaborators/FramePacks.h"
#include "collaborators/PicTiming.h"

// What stands before the slices of an H.264 picture in byte stream format (ITU-T H.264, Annexes B and D).
namespace kmxf {

// Bytes that the callers have at hand at the start of a picture.
inline constexpr uint32_t kSEIAreaSize = 512;

inline constexpr uint64_t kSEIPicTiming = 1, kSEIUserDataUnregistered = 5;

struct SEIMessage {
    uint64_t type{};
    std::vector<uint8_t> payload;  // as much of it as the area holds
    bool whole{};                  // all of it
};

// The SEI messages of an area that begins at a picture, an SEI NAL unit or an SEI message, up to the first slice.
std::vector<SEIMessage> ReadSEIMessages(std::span<const uint8_t> area);

// The layout that the last whole sequence parameter set of the area gives.
std::optional<PicTimingLayout> FindPicTimingLayout(std::span<const uint8_t> area);

// What the user data of the area carry; `number` from 1.
std::optional<PackData> FindSEITimecode(std::span<const uint8_t> area, int32_t number);
std::optional<PackData> FindSEIUsersBit(std::span<const uint8_t> area, int32_t number);
std::optional<UMIDBytes> FindSEIUMID(std::span<const uint8_t> area);

}  // namespace kmxf
