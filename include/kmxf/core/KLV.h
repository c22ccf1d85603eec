#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

// BER lengths and look-ups in serialised header metadata (SMPTE ST 336, ST 377-1).
//
// A buffer to look in starts at the key of a KLV packet and holds packets back to back. Keys are compared in all 16
// bytes, version byte included. Nothing is read at or beyond `size`, whatever the lengths in the buffer say (GetKeyNum
// has one exception): a length that leads outside ends the walk.
namespace kmxf {

// The big-endian number in the `count` bytes that follow the first byte of a long-form BER length; of more than 8 bytes
// the last 8 count. 0 for null and for no bytes.
KMXF_API int64_t BERtoSize(const uint8_t* bytes, uint8_t count);

// Looks for the item `localTag` in the first set with `key`, and stores the offset of its value from the start of the
// buffer, and its length in bytes. The walk over the items ends with the buffer, not with the set: when the set lacks
// the item, the bytes behind it are read as items too.
//
// False when there is none and for a null pointer, with nothing stored. The length is as the item states it: offset and
// length may lead outside the buffer, which is for the caller to check.
KMXF_API bool GetKeyParam(const uint8_t* buffer, uint32_t size, MXFKEYTag key, uint16_t localTag, int64_t* offset,
                          uint32_t* length);

// Counts the packets with `key`; 0 for null. The first packet's key is compared even when `size` is 0: the buffer must
// then hold 16 bytes all the same.
KMXF_API uint32_t GetKeyNum(const uint8_t* buffer, uint32_t size, MXFKEYTag key);

// The local tag that the first primer pack in the buffer gives to `ul`; 0 for null and when there is none. On the way
// to the primer pack and in it, lengths are taken for the long form, the only one that the library writes: a short-form
// length misleads.
KMXF_API uint16_t GetLocalTag(const uint8_t* buffer, uint32_t size, MXFKEYTag ul);

}  // namespace kmxf
