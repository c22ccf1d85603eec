#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/MXFHeaderBase.h"

namespace kmxf {

// Index table segment (SMPTE ST 377-1): where the edit units of one essence stream begin. Essence whose edit units all
// have one size carries that size alone and takes 100 bytes; otherwise delta entries and one entry per edit unit
// follow. Setters and adders return 0 unless they say otherwise.
class KMXF_API CIndexCommon : public CMXFHeaderBase {
public:
    // For that many picture, sound and data elements in an edit unit. With fewer than two of them and the flag clear
    // the segment is of constant rate and writes no entries. Edit rate 0/0, IndexSID 1, BodySID 2, everything else 0.
    CIndexCommon(uint32_t pictureCount, uint32_t soundCount, uint32_t dataCount, uint8_t variableRate);

    // Serialises the segment into a new buffer of GetLength() bytes, which the caller gives to free(). The item of the
    // index entries has a length of 16 bits: it holds up to 5957 entries without slices, and of more entries it takes
    // what is left of their size. Returns 0, kStatusInvalidArgument (null pointer), kStatusNoMemory.
    int32_t GetData(uint8_t** data) override;  // slot 1

    // Replaces everything by the segment at `buffer`. Items may come in any order, but SliceCount before the index
    // entries; an item that this class does not write is not passed over: its value is read as further items. Entries
    // are taken as many as announced and as fit. Returns 0, or kStatusInvalidArgument, with nothing replaced: null
    // pointer, another key, more than 16 slices, or a segment that does not lie within `size` bytes. The form without a
    // size takes the segment's own length for the size.
    int32_t SetData(const uint8_t* buffer);
    int32_t SetData(const uint8_t* buffer, uint32_t size);

    // Edit units per second: the unit of start position and duration, which is the video frame or the audio sample.
    int32_t SetEditRate(MXFRATIONALTag editRate);
    int32_t SetStartPosition(int64_t position);    // first edit unit of the segment
    int32_t SetDuration(int64_t duration);         // edit units that it covers
    int32_t SetEditUnitByteCount(uint32_t bytes);  // size of an edit unit; 0 where they differ
    int32_t SetIndexSID(uint32_t sid);
    int32_t SetBodySID(uint32_t sid);
    // Slice offsets per index entry; those of present entries are kept or start at 0. 0 leaves the item out.
    // kStatusInvalidArgument: more than 16.
    int32_t SetSliceCount(uint8_t count);

    // Appends the delta entry of one element of the edit unit: always (-1, 0, 0), whatever is passed.
    int32_t AddDeltaEntry(int8_t posTableIndex, uint8_t slice, uint32_t elementDelta);
    // Appends the entry of the next edit unit: offsets to its place in display order and to its key frame, edit unit
    // flags, and the byte of the essence stream at which it begins. Slice offsets are 0.
    int32_t AddIndexEntry(int8_t temporalOffset, int8_t keyFrameOffset, uint8_t flags, uint64_t streamOffset);

    MXFRATIONALTag GetEditRate() const;
    int64_t GetStartPosition() const;
    int64_t GetDuration() const;
    uint32_t GetEditUnitByteCount() const;
    uint32_t GetIndexSID() const;
    uint32_t GetBodySID() const;
    uint8_t GetSliceCount() const;

    // Entries by position, from 0. kStatusInvalidArgument: null pointer, or a position at or beyond the count.
    uint32_t GetDeltaEntryNum() const;
    int32_t GetDeltaEntry(uint32_t position, MXFDELTAENTRYTag* entry) const;
    uint32_t GetIndexEntryNum() const;
    int32_t GetIndexEntry(uint32_t position, MXFINDEXENTRYTag* entry) const;
};

}  // namespace kmxf
