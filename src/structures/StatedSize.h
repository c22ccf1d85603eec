#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

#include "core/KLVPacket.h"

namespace kmxf {

// The size that a packet gives itself, for the parsers whose signature carries none and who take the packet's word for
// it. Of a packet whose key begins otherwise nothing but the key is looked at.
inline uint32_t StatedSize(const uint8_t* packet, std::span<const uint8_t> keyStart) {
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    constexpr size_t kKeySize = sizeof(MXFKEYTag);
    if (packet == nullptr) return 0;
    if (!std::equal(keyStart.begin(), keyStart.end(), packet)) return kKeySize;
    const uint8_t first = packet[kKeySize];
    const size_t headSize = kKeySize + 1 + (first >= 0x80 ? first & 0x7F : 0);
    const uint64_t length = ReadKLVHead({packet, headSize})->length;
    return static_cast<uint32_t>(std::min(length, kMost - headSize) + headSize);
}

}  // namespace kmxf
