#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "core/Bytes.h"
#include "kmxf/core/Records.h"

// Single values of header metadata in memory: `header` starts at the first byte of the file, or at any KLV key behind.
// The functions of kmxf/reader/ReadMXFHeader.h are these, over 131072 bytes.
namespace kmxf {

using HeaderBytes = std::span<const uint8_t>;

// Where the first packet with this key begins.
std::optional<size_t> FindPacket(HeaderBytes header, const MXFKEYTag& key);

// The value of an item of the first set with this key; nothing unless it has this many bytes and lies inside.
std::optional<ByteReader> FindItem(HeaderBytes header, const MXFKEYTag& key, uint16_t localTag, uint32_t length);

// The tag under which the header's primer holds an item of ours; 0 when it has none for it.
uint16_t FileTag(HeaderBytes header, uint16_t localTag);

// Whether there is a clip or scene framework.
bool HasDescriptiveMetadata(HeaderBytes header);

uint32_t GetVideoStandardFromHeader(HeaderBytes header);
uint32_t GetCompTypeLongGFromHeader(HeaderBytes header);
int64_t GetSampleNumFromHeader(HeaderBytes header);
uint32_t GetSamplingRateFromHeader(HeaderBytes header);
uint8_t GetBytesPerSampleFromHeader(HeaderBytes header);
int64_t GetStartTimecodeFromHeader(HeaderBytes header);
uint16_t GetRoundedTCBaseFromHeader(HeaderBytes header);
bool GetDropFlagFromHeader(HeaderBytes header);
MXFUMIDTag GetMaterialUIDFromHeader(HeaderBytes header);

}  // namespace kmxf
