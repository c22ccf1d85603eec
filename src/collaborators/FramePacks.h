#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kmxf/core/Status.h"

namespace kmxf {

// The packs of IEC 61834-4 and SMPTE ST 314: an id and four data bytes. DIF frames carry them as they stand, SEI
// messages in a stuffed form.
using PackData = std::array<uint8_t, 4>;
struct FramePack {
    uint8_t id{};
    PackData data{};
};
using UMIDBytes = std::array<uint8_t, 64>;

inline constexpr uint8_t kPackTimecode = 0x13, kPackUsersBit = 0x14;
inline constexpr uint8_t kPackVAUXSource = 0x60, kPackVAUXUsersBit = 0x64;

// The data of a timecode pack, if it is a time of day.
std::optional<PackData> CheckedTimecode(const PackData& data);

// The data of a timecode pack for frames, seconds, minutes, hours, if that is a time of day.
std::optional<PackData> PackTimecode(const std::array<uint32_t, 4>& parts, bool dropFrame);

// The first whole UMID among the bytes; a basic one is filled up with zeros.
std::optional<UMIDBytes> FindUMID(std::span<const uint8_t> bytes);

// The same among packs: their bytes with the ids, or only the data of those packs that have no known use.
std::optional<UMIDBytes> FindUMID(const std::vector<FramePack>& packs);

// The end of every getter: stores what the frame carries.
template <class Value>
int32_t GiveOut(const std::optional<Value>& value, Value* output) {
    if (output == nullptr) return kStatusInvalidArgument;
    if (!value) return kStatusFrameNoInfo;
    *output = *value;
    return kStatusOk;
}
template <size_t Size>
int32_t GiveOut(const std::optional<std::array<uint8_t, Size>>& value, uint8_t* output) {
    if (output == nullptr) return kStatusInvalidArgument;
    if (!value) return kStatusFrameNoInfo;
    std::copy(value->begin(), value->end(), output);
    return kStatusOk;
}

}  // namespace kmxf
