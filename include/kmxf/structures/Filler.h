#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/structures/MXFHeaderBase.h"

namespace kmxf {

// KLV fill item (SMPTE ST 377-1): key, 4-byte length form and zeros. The owner decides the size; the InstanceUID is
// never written.
class KMXF_API CFiller : public CMXFHeaderBase {
public:
    // 20 bytes: key and length only.
    CFiller();

    // The size of the whole item in bytes, key and length included. Returns 0, also for a size that GetData refuses:
    // owners leave an item of such a size out.
    int32_t SetLength(uint32_t length);

    // Serialises the item into a new buffer of GetLength() bytes, which the caller gives to free(). Returns 0,
    // kStatusInvalidArgument (null pointer; fewer than 20 bytes, or more than 3 bytes of length can say),
    // kStatusNoMemory.
    int32_t GetData(uint8_t** data) override;
};

}  // namespace kmxf
