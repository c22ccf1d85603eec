#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

#include "core/Bytes.h"
#include "core/Labels.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Key and BER length written in front of every pack and set: 16 bytes, then 0x83 and 3 bytes.
inline constexpr uint32_t kKLVHeadSize = 20;

// The longest head: key, and a length as 0x88 and 8 bytes.
inline constexpr uint32_t kMostKLVHead = 25;

// Writes the head of a packet of `total` bytes, head included.
inline void WriteKLVHead(ByteWriter& writer, const MXFKEYTag& key, uint32_t total) {
    writer.Key(key);
    writer.BER(total - kKLVHeadSize, 3);
}

// Whether bytes begin as a partition pack does, as far as there are any; what it is of is not looked at.
inline bool BeginsLikePack(std::span<const uint8_t> bytes) {
    return std::ranges::equal(bytes.first(std::min(bytes.size(), kPackKindByte)),
                              std::span(kPartitionPackKey.bytes).first(std::min(bytes.size(), kPackKindByte)));
}

// How a BER length is read. Some walks take the first byte for the long form whatever its top bit says.
enum class BERForm { kAny, kLongOnly };

// The head of a KLV packet (SMPTE ST 336).
struct KLVHead {
    MXFKEYTag key;
    uint32_t size = 0;    // bytes of key and length: 17 in the short form, 17 + n in the long form
    uint64_t length = 0;  // bytes of the value, as stated; it may lead outside the buffer
};

// Reads the head at the start of `data`; nothing when the head itself does not fit into it.
std::optional<KLVHead> ReadKLVHead(std::span<const uint8_t> data, BERForm form = BERForm::kAny);

// The value of the packet at the start of `data`; nothing unless the whole packet lies inside.
std::optional<std::span<const uint8_t>> KLVValue(std::span<const uint8_t> data, const KLVHead& head);

}  // namespace kmxf
