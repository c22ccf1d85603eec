#pragma once

#include <cstdint>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Random index pack (SMPTE ST 377-1): where each partition of a file begins, in the last packet of the file. On disk 24
// bytes and 12 per entry. A value: copies are deep.
class KMXF_API CRandomIndex {
public:
    // No entries.
    CRandomIndex();
    CRandomIndex(const CRandomIndex&);
    CRandomIndex& operator=(const CRandomIndex&);
    virtual ~CRandomIndex();  // the only virtual

    // Appends an entry; nothing is sorted or checked. Returns 0.
    int32_t AddPartitionInfo(MXF_PARTITION_INFOTag info);

    uint32_t GetPartitionNum() const;
    // Offset of entry `index`, in bytes from the start of the file; -1 at or beyond the count.
    int64_t GetPartitionOffset(uint32_t index) const;
    // BodySID of entry `index`; 0xFFFFFFFF at or beyond the count.
    uint32_t GetBodySID(uint32_t index) const;

    // Size of the pack in bytes: 24 + 12 per entry, whatever the size of a pack that was parsed.
    uint32_t GetLength();

    // Serialises the pack into a new buffer of GetLength() bytes, which the caller gives to free(). Returns 0,
    // kStatusInvalidArgument (null pointer), kStatusNoMemory.
    int32_t GetData(uint8_t** data);

    // Replaces the entries by those of the pack at `buffer`, in any BER length form; the overall length at its end is
    // not checked. Returns 0, or kStatusInvalidArgument: null pointer, another key, or a pack that does not lie within
    // `size` bytes; the entries then stay. The form without a size takes the pack's own length for the size.
    int32_t SetData(const uint8_t* buffer);
    int32_t SetData(const uint8_t* buffer, uint32_t size);

private:
    MXFKEYTag key_;
    std::vector<MXF_PARTITION_INFOTag> entries_;
};

}  // namespace kmxf
