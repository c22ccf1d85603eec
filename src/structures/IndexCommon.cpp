#include "kmxf/structures/IndexCommon.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/Bytes.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/Status.h"
#include "structures/StatedSize.h"

namespace kmxf {

// Entries are kept as the file has them, inside their items: count and entry size, 4 bytes each, then the entries.
namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kArrayHeadSize = 8;
constexpr uint32_t kDeltaEntrySize = 6;
constexpr uint8_t kMostSlices = std::size(MXFINDEXENTRYTag{}.sliceOffset);
constexpr uint32_t IndexEntrySize(uint8_t slices) { return 11 + 4U * slices; }

std::vector<uint8_t> EncodedArray(uint32_t entrySize, Bytes entries) {
    return EncodedBytes(kArrayHeadSize + entries.size(), [&](ByteWriter& writer) {
        writer.U32(static_cast<uint32_t>(entries.size() / entrySize));
        writer.U32(entrySize);
        writer.Bytes(entries);
    });
}

Bytes Entries(const std::vector<uint8_t>& array) { return Bytes(array).subspan(kArrayHeadSize); }

uint32_t Count(const std::vector<uint8_t>& array, uint32_t entrySize) {
    return static_cast<uint32_t>(Entries(array).size() / entrySize);
}

// An array with as many of its entries as there are. The entry size it states is not looked at.
std::vector<uint8_t> ReadArray(ByteReader& reader, uint32_t entrySize) {
    const uint64_t count = reader.U32();
    reader.Skip(4);
    return EncodedArray(entrySize, reader.Take(std::min<uint64_t>(count, reader.Remaining() / entrySize) * entrySize));
}

std::vector<uint8_t> ReadBytes(ByteReader& reader, size_t size) {
    const Bytes bytes = reader.Take(size);
    return {bytes.begin(), bytes.end()};
}

}  // namespace

CIndexCommon::CIndexCommon(uint32_t pictureCount, uint32_t soundCount, uint32_t dataCount, uint8_t variableRate)
    : CMXFHeaderBase(kIndexSegmentKey) {
    const bool arrays = variableRate != 0 || uint64_t{pictureCount} + soundCount + dataCount >= 2;
    Declare({
        {kTagIndexEditRate, Encoded(MXFRATIONALTag{})},
        {kTagIndexStartPosition, Encoded(int64_t{0})},
        {kTagIndexDuration, Encoded(int64_t{0})},
        {kTagEditUnitByteCount, Encoded(uint32_t{0})},
        {kTagIndexSID, Encoded(uint32_t{1})},
        {kTagBodySID, Encoded(uint32_t{2})},
        {kTagSliceCount, Encoded(uint8_t{0}), false},
        {kTagDeltaEntryArray, EncodedArray(kDeltaEntrySize, {}), arrays},
        {kTagIndexEntryArray, EncodedArray(IndexEntrySize(0), {}), arrays},
    });
}

int32_t CIndexCommon::GetData(uint8_t** data) { return CMXFHeaderBase::GetData(data); }

int32_t CIndexCommon::SetData(const uint8_t* buffer) {
    return SetData(buffer, StatedSize(buffer, kIndexSegmentKey.bytes));
}

int32_t CIndexCommon::SetData(const uint8_t* buffer, uint32_t size) {
    const Bytes data(buffer, buffer == nullptr ? 0 : size);
    const auto head = ReadKLVHead(data);
    if (!head || head->key != kIndexSegmentKey || !KLVValue(data, *head)) return kStatusInvalidArgument;

    CIndexCommon parsed(0, 0, 0, 0);
    uint8_t sliceCount = 0;
    ByteReader reader(data);
    reader.Skip(head->size);
    // The end is that of a segment with a 4-byte length, whatever form the length has. Stated item lengths are not
    // looked at: an item of ours has its own width, of any other only tag and length are consumed.
    const uint64_t end = kKLVHeadSize + head->length;
    while (reader.Ok() && reader.Position() < end) {
        const uint16_t tag = reader.U16();
        reader.Skip(2);
        if (!parsed.Declares(tag)) continue;
        std::vector<uint8_t> value = tag == kTagDeltaEntryArray   ? ReadArray(reader, kDeltaEntrySize)
                                     : tag == kTagIndexEntryArray ? ReadArray(reader, IndexEntrySize(sliceCount))
                                                                  : ReadBytes(reader, parsed.Value(tag).size());
        if (!reader.Ok()) break;
        if (tag == kTagSliceCount) {
            // Set at the end, so that entries in front of it are coded anew once only.
            sliceCount = value[0];
            if (sliceCount > kMostSlices) return kStatusInvalidArgument;
            continue;
        }
        if (tag == kTagIndexEntryArray) parsed.Store(kTagSliceCount, Encoded(sliceCount));
        parsed.Store(tag, std::move(value));
        parsed.StoreWritten(tag, true);
    }
    parsed.SetSliceCount(sliceCount);
    *this = parsed;
    return kStatusOk;
}

int32_t CIndexCommon::SetEditRate(MXFRATIONALTag editRate) { return Store(kTagIndexEditRate, Encoded(editRate)); }
int32_t CIndexCommon::SetStartPosition(int64_t position) { return Store(kTagIndexStartPosition, Encoded(position)); }
int32_t CIndexCommon::SetDuration(int64_t duration) { return Store(kTagIndexDuration, Encoded(duration)); }
int32_t CIndexCommon::SetEditUnitByteCount(uint32_t bytes) { return Store(kTagEditUnitByteCount, Encoded(bytes)); }
int32_t CIndexCommon::SetIndexSID(uint32_t sid) { return Store(kTagIndexSID, Encoded(sid)); }
int32_t CIndexCommon::SetBodySID(uint32_t sid) { return Store(kTagBodySID, Encoded(sid)); }

int32_t CIndexCommon::SetSliceCount(uint8_t count) {
    if (count > kMostSlices) return kStatusInvalidArgument;
    const uint32_t oldSize = IndexEntrySize(GetSliceCount());
    const uint32_t newSize = IndexEntrySize(count);
    if (newSize != oldSize) {
        const Bytes entries = Entries(Value(kTagIndexEntryArray));
        const uint32_t kept = std::min(oldSize, newSize);
        const auto recoded = EncodedBytes(entries.size() / oldSize * newSize, [&](ByteWriter& writer) {
            for (size_t at = 0; at < entries.size(); at += oldSize) {
                writer.Bytes(entries.subspan(at, kept));
                writer.Zeros(newSize - kept);
            }
        });
        Store(kTagIndexEntryArray, EncodedArray(newSize, recoded));
    }
    Store(kTagSliceCount, Encoded(count));
    return StoreWritten(kTagSliceCount, count != 0);
}

int32_t CIndexCommon::AddDeltaEntry(int8_t, uint8_t, uint32_t) {
    // Deliberately blind to its arguments: every element of the edit unit begins in slice 0 at delta 0.
    static constexpr uint8_t kEntry[kDeltaEntrySize] = {0xFF};
    return AppendToArray(kTagDeltaEntryArray, kEntry);
}

int32_t CIndexCommon::AddIndexEntry(int8_t temporalOffset, int8_t keyFrameOffset, uint8_t flags,
                                    uint64_t streamOffset) {
    return AppendToArray(kTagIndexEntryArray, EncodedBytes(IndexEntrySize(GetSliceCount()), [&](ByteWriter& writer) {
                             writer.U8(static_cast<uint8_t>(temporalOffset));
                             writer.U8(static_cast<uint8_t>(keyFrameOffset));
                             writer.U8(flags);
                             writer.U64(streamOffset);
                         }));
}

MXFRATIONALTag CIndexCommon::GetEditRate() const { return ByteReader(Value(kTagIndexEditRate)).Rational(); }
int64_t CIndexCommon::GetStartPosition() const { return ByteReader(Value(kTagIndexStartPosition)).I64(); }
int64_t CIndexCommon::GetDuration() const { return ByteReader(Value(kTagIndexDuration)).I64(); }
uint32_t CIndexCommon::GetEditUnitByteCount() const { return ByteReader(Value(kTagEditUnitByteCount)).U32(); }
uint32_t CIndexCommon::GetIndexSID() const { return ByteReader(Value(kTagIndexSID)).U32(); }
uint32_t CIndexCommon::GetBodySID() const { return ByteReader(Value(kTagBodySID)).U32(); }
uint8_t CIndexCommon::GetSliceCount() const { return ByteReader(Value(kTagSliceCount)).U8(); }

uint32_t CIndexCommon::GetDeltaEntryNum() const { return Count(Value(kTagDeltaEntryArray), kDeltaEntrySize); }

int32_t CIndexCommon::GetDeltaEntry(uint32_t position, MXFDELTAENTRYTag* entry) const {
    if (entry == nullptr || position >= GetDeltaEntryNum()) return kStatusInvalidArgument;
    ByteReader reader(Entries(Value(kTagDeltaEntryArray)).subspan(size_t{position} * kDeltaEntrySize));
    entry->posTableIndex = static_cast<int8_t>(reader.U8());
    entry->slice = reader.U8();
    entry->elementDelta = reader.U32();
    return kStatusOk;
}

uint32_t CIndexCommon::GetIndexEntryNum() const {
    return Count(Value(kTagIndexEntryArray), IndexEntrySize(GetSliceCount()));
}

int32_t CIndexCommon::GetIndexEntry(uint32_t position, MXFINDEXENTRYTag* entry) const {
    if (entry == nullptr || position >= GetIndexEntryNum()) return kStatusInvalidArgument;
    const uint8_t slices = GetSliceCount();
    ByteReader reader(Entries(Value(kTagIndexEntryArray)).subspan(size_t{position} * IndexEntrySize(slices)));
    *entry = {};
    entry->temporalOffset = static_cast<int8_t>(reader.U8());
    entry->keyFrameOffset = static_cast<int8_t>(reader.U8());
    entry->flags = reader.U8();
    entry->streamOffset = reader.U64();
    for (uint8_t slice = 0; slice < slices; ++slice) entry->sliceOffset[slice] = reader.U32();
    return kStatusOk;
}

}  // namespace kmxf
