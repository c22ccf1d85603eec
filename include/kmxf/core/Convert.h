#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Stores a random UUID (RFC 4122, version 4, network byte order), as every InstanceUID and package identifier is made.
// It comes from the source set with SetUUIDSource. Always true; with null nothing is stored.
KMXF_API bool CreateUUID(MXFKEYTag* uuid);

// The current local time as a TimeStamp (SMPTE ST 377-1), to the second: the quarter milliseconds are 0. It comes from
// the source set with SetNowSource.
KMXF_API MXFTIMESTAMPTag GetCurrentTimeMXF();

// Converts UTF-8 to 16-bit units in host order. `source` ends at its zero byte; `destination` gets no terminator and
// must have room for every unit; null only counts.
//
// Returns the bytes produced, 2 for each unit; -1 for a null source and for bytes of no UTF-8 pattern, with the units
// in front of them already stored. Overlong forms and coded surrogates pass. A 4-byte sequence gives two units, which
// are not the surrogate pair of its character: the plane is taken from the low bits of the second byte (F0 9F 98 80
// gives D8CC DE00).
KMXF_API int32_t UTF8ToUTF16(const char* source, uint16_t* destination);

// Converts 16-bit units in host order to UTF-8. `source` ends at its zero unit; `destination` gets no terminator and
// must have room for every byte (at most 3 for each unit, 4 for a surrogate that stands last); null only counts.
//
// Returns the bytes produced; -1 for a null source. A unit D800 to DFFF makes a pair with whatever unit follows, and
// with 0 when none does.
KMXF_API int32_t UTF16ToUTF8(const uint16_t* source, char* destination);

}  // namespace kmxf
