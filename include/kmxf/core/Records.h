#pragma once

#include <cstdint>

// The value records of the interface. Numbers are held in host order, keys, labels and UMIDs as their bytes in the
// file. Every record is an aggregate, zero by default, that compares field by field and can be copied byte by byte.
namespace kmxf {

// KLV key, universal label (SMPTE ST 298) or UUID.
struct MXFKEYTag {
    uint8_t bytes[16]{};
    bool operator==(const MXFKEYTag&) const = default;
};

// Basic UMID (SMPTE ST 330): 12 bytes of label, length, 3 bytes of instance number, 16 bytes of material number.
struct MXFUMIDTag {
    uint8_t bytes[32]{};
    bool operator==(const MXFUMIDTag&) const = default;
};

// Extended UMID (SMPTE ST 330): basic UMID and 32 bytes of source pack.
struct MXFUMIDEXTag {
    uint8_t bytes[64]{};
    bool operator==(const MXFUMIDEXTag&) const = default;
};

// TimeStamp (SMPTE ST 377-1).
struct MXFTIMESTAMPTag {
    uint16_t year{};                                     // in full, as 2013
    uint8_t month{}, day{}, hour{}, minute{}, second{};  // month and day from 1
    uint8_t quarterMillisecond{};                        // units of 4 ms; the library writes 0
    bool operator==(const MXFTIMESTAMPTag&) const = default;
};

// Rational (SMPTE ST 377-1); 0/0 means unknown.
struct MXFRATIONALTag {
    int32_t numerator{}, denominator{};
    bool operator==(const MXFRATIONALTag&) const = default;
};

// Entry of the random index pack. In the file bodySID comes first.
struct [[gnu::packed]] MXF_PARTITION_INFOTag {
    uint64_t offset{};  // in bytes, from the start of the file
    uint32_t bodySID{};
    bool operator==(const MXF_PARTITION_INFOTag&) const = default;
};

// Entry of the primer pack.
struct MXFLOCALTAGENTRYTag {
    uint16_t localTag{};
    MXFKEYTag ul{};
    bool operator==(const MXFLOCALTAGENTRYTag&) const = default;
};

// Delta entry of an index table segment.
struct [[gnu::packed]] MXFDELTAENTRYTag {
    int8_t posTableIndex{};
    uint8_t slice{};
    uint32_t elementDelta{};
    bool operator==(const MXFDELTAENTRYTag&) const = default;
};

// Index entry of an index table segment.
struct [[gnu::packed]] MXFINDEXENTRYTag {
    int8_t temporalOffset{}, keyFrameOffset{};
    uint8_t flags{};
    uint64_t streamOffset{};
    uint32_t sliceOffset[16]{};  // as many as the segment's slice count are used
    bool operator==(const MXFINDEXENTRYTag&) const = default;
};

// The layouts are part of the interface; packed records have nothing between their fields.
static_assert(sizeof(MXFKEYTag) == 16 && sizeof(MXFUMIDTag) == 32 && sizeof(MXFUMIDEXTag) == 64);
static_assert(sizeof(MXFTIMESTAMPTag) == 8 && sizeof(MXFRATIONALTag) == 8);
static_assert(sizeof(MXF_PARTITION_INFOTag) == 12 && sizeof(MXFLOCALTAGENTRYTag) == 18);
static_assert(sizeof(MXFDELTAENTRYTag) == 6 && sizeof(MXFINDEXENTRYTag) == 75);

}  // namespace kmxf
