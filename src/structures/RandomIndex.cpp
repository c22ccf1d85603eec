#include "kmxf/structures/RandomIndex.h"

#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "structures/StatedSize.h"

namespace kmxf {

// On disk: key and length, the entries, and the size of the whole pack, by which it is found from the end of the file.
namespace {

constexpr uint32_t kEntrySize = 12;  // BodySID, then offset
constexpr uint32_t kOverallSize = 4;

}  // namespace

CRandomIndex::CRandomIndex() : key_(kRandomIndexPackKey) {}
CRandomIndex::CRandomIndex(const CRandomIndex&) = default;
CRandomIndex& CRandomIndex::operator=(const CRandomIndex&) = default;
CRandomIndex::~CRandomIndex() = default;

int32_t CRandomIndex::AddPartitionInfo(MXF_PARTITION_INFOTag info) {
    entries_.push_back(info);
    return kStatusOk;
}

uint32_t CRandomIndex::GetPartitionNum() const { return static_cast<uint32_t>(entries_.size()); }

int64_t CRandomIndex::GetPartitionOffset(uint32_t index) const {
    return index < entries_.size() ? static_cast<int64_t>(entries_[index].offset) : -1;
}

uint32_t CRandomIndex::GetBodySID(uint32_t index) const {
    return index < entries_.size() ? entries_[index].bodySID : 0xFFFFFFFF;
}

uint32_t CRandomIndex::GetLength() { return kKLVHeadSize + kEntrySize * GetPartitionNum() + kOverallSize; }

int32_t CRandomIndex::GetData(uint8_t** data) {
    const uint32_t length = GetLength();
    return HandOut(length, data, [&](ByteWriter& writer) {
        WriteKLVHead(writer, key_, length);
        for (const MXF_PARTITION_INFOTag& entry : entries_) {
            writer.U32(entry.bodySID);
            writer.U64(entry.offset);
        }
        writer.U32(length);
    });
}

int32_t CRandomIndex::SetData(const uint8_t* buffer) {
    return SetData(buffer, StatedSize(buffer, kRandomIndexPackKey.bytes));
}

int32_t CRandomIndex::SetData(const uint8_t* buffer, uint32_t size) {
    if (buffer == nullptr) return kStatusInvalidArgument;
    const std::span<const uint8_t> pack(buffer, size);
    if (size < sizeof key_.bytes) return kStatusInvalidArgument;
    key_ = ByteReader(pack).Key();  // taken over before it is looked at: a packet of another kind leaves its key here
    if (key_ != kRandomIndexPackKey) return kStatusInvalidArgument;
    const auto head = ReadKLVHead(pack);
    const auto value = head ? KLVValue(pack, *head) : std::nullopt;
    if (!value) return kStatusInvalidArgument;

    // What the entries leave over, too little even for the overall length included, is passed over.
    const size_t count = value->size() < kOverallSize ? 0 : (value->size() - kOverallSize) / kEntrySize;
    ByteReader reader(*value);
    entries_.clear();
    entries_.reserve(count);
    while (entries_.size() < count) {
        const uint32_t bodySID = reader.U32();
        entries_.push_back({.offset = reader.U64(), .bodySID = bodySID});
    }
    return kStatusOk;
}

}  // namespace kmxf
