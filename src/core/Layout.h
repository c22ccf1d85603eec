#pragma once

#include <cstdint>

// Where things lie in every file of a layout, in bytes from its start (docs/format.md, docs/format-op1b.md).
namespace kmxf {

// OP-Atom: the header area, and behind it the essence.
inline constexpr uint32_t kOpAtomHeaderSize = 0x8000;

// OP-1b: the header in its three areas, and behind it the groups.
inline constexpr uint32_t kOp1bMetadataEnd = 0x8000;
inline constexpr uint32_t kOp1bXMLEnd = 0x1C000;
inline constexpr uint32_t kOp1bHeaderSize = 0x20000;

// In front of the samples of a sound element in OP-1b: key, and a length of 8 bytes.
inline constexpr uint32_t kAudioKLSize = 24;

}  // namespace kmxf
