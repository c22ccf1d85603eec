#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Partition pack (SMPTE ST 377-1): what stands at the start of the header, of each body partition and of the footer. On
// disk 108 bytes and 16 per essence container. A value: copies are deep. Setters return 0.
class KMXF_API CPartition {
public:
    // `kind`: 1 header, 2 body, 3 footer; any other leaves the key zero. Versions are 1.3, KAGSize 1, the operational
    // pattern is OP-Atom, everything else is 0.
    explicit CPartition(uint32_t kind = 1, bool closed = true, bool complete = true);
    CPartition(const CPartition&);
    CPartition& operator=(const CPartition&);
    virtual ~CPartition();  // the only virtual

    // Serialises the pack into a new buffer, which the caller gives to free(). The buffer has 108 bytes and 16 per
    // essence container, with the length in its 4-byte form, whatever form a pack that was parsed had. Returns 0,
    // kStatusInvalidArgument (null pointer), kStatusNoMemory.
    int32_t GetData(uint8_t** data) const;

    // Takes over the pack at `buffer`: of any kind, status and version, in any BER length form. Of the count of essence
    // containers only the lowest byte is read, and of the containers no more than `size` bytes hold. Returns 0, or
    // kStatusInvalidArgument: null pointer, another key, or a pack whose fixed part does not lie within `size` bytes.
    // The form without a size takes the pack's own length for the size.
    int32_t SetData(const uint8_t* buffer);
    int32_t SetData(const uint8_t* buffer, uint32_t size);

    // Whole pack in bytes, key and length included; after SetData the size of the pack as it was parsed.
    uint32_t GetLength() const;
    // Partition pack key; byte 13 tells header, body or footer, byte 14 the status.
    MXFKEYTag GetKey() const;
    uint16_t GetMajorVersion() const;
    uint16_t GetMinorVersion() const;
    uint32_t GetKAGSize() const;

    // Offsets of partitions are in bytes from the start of the file.
    int32_t SetThisPartition(int64_t offset);
    int64_t GetThisPartition() const;
    int32_t SetPreviousPartition(int64_t offset);
    int64_t GetPreviousPartition() const;
    int32_t SetFooterPartition(int64_t offset);
    int64_t GetFooterPartition() const;
    // Bytes of header metadata and of index table segments behind the pack. The getters by reference return 0.
    int32_t SetHeaderByteCount(int64_t count);
    int32_t GetHeaderByteCount(int64_t& count) const;
    int32_t SetIndexByteCount(int64_t count);
    int32_t GetIndexByteCount(int64_t& count) const;
    int64_t GetIndexByteCount() const;
    int32_t SetIndexSID(uint32_t sid);
    uint32_t GetIndexSID() const;
    // Offset of the partition's essence within its essence container, in bytes.
    int32_t SetBodyOffset(int64_t offset);
    int64_t GetBodyOffset() const;
    int32_t SetBodySID(uint32_t sid);
    uint32_t GetBodySID() const;

    int32_t SetOperationPattern(MXFKEYTag label);
    MXFKEYTag GetOperationPattern() const;
    // By all 16 bytes of the label; OP-Atom has two.
    bool IsOpAtom() const;
    bool IsOp1b() const;

    // Appends an essence container label; the pack grows by 16 bytes. Returns 0.
    int32_t AddEssenceContainer(MXFKEYTag label);
    uint32_t GetEssenceContainerNum() const;
    // Returns 0, or kStatusInvalidArgument: null pointer, or `index` at or beyond the count.
    int32_t GetEssenceContainer(MXFKEYTag* label, uint32_t index) const;

private:
    // The pack's fixed part behind key and length, in disk order, for writer and parser.
    template <class Pack>
    static auto Fields(Pack& pack);

    MXFKEYTag key_;
    uint32_t length_;
    uint16_t majorVersion_ = 1;
    uint16_t minorVersion_ = 3;
    uint32_t kagSize_ = 1;
    int64_t thisPartition_ = 0;
    int64_t previousPartition_ = 0;
    int64_t footerPartition_ = 0;
    int64_t headerByteCount_ = 0;
    int64_t indexByteCount_ = 0;
    uint32_t indexSID_ = 0;
    int64_t bodyOffset_ = 0;
    uint32_t bodySID_ = 0;
    MXFKEYTag operationalPattern_;
    std::array<uint8_t, 8> batchHead_;  // count and element size, as on disk
    std::vector<MXFKEYTag> essenceContainers_;
};

}  // namespace kmxf
