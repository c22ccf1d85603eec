#include "kmxf/structures/Partition.h"

#include <algorithm>
#include <iterator>
#include <tuple>

#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "structures/StatedSize.h"

namespace kmxf {

namespace {

constexpr uint32_t kContainerSize = sizeof(MXFKEYTag);

constexpr std::span<const uint8_t> kKeyStart = std::span(kPartitionPackKey.bytes).first<kPackKindByte>();

// Low byte of the count in the head of the batch: the only one that is used.
constexpr size_t kCountByte = 3;

MXFKEYTag PackKey(uint32_t kind, bool closed, bool complete) {
    if (kind < 1 || kind > 3) return {};
    MXFKEYTag key = kPartitionPackKey;
    key.bytes[kPackKindByte] = static_cast<uint8_t>(kind + 1);
    key.bytes[kPackStatusByte] = static_cast<uint8_t>(1 + (closed ? 1 : 0) + (complete ? 2 : 0));
    return key;
}

void Put(ByteWriter& writer, uint16_t value) { writer.U16(value); }
void Put(ByteWriter& writer, uint32_t value) { writer.U32(value); }
void Put(ByteWriter& writer, int64_t value) { writer.I64(value); }
void Put(ByteWriter& writer, const MXFKEYTag& value) { writer.Key(value); }
void Put(ByteWriter& writer, const std::array<uint8_t, 8>& value) { writer.Bytes(value); }

void Get(ByteReader& reader, uint16_t& value) { value = reader.U16(); }
void Get(ByteReader& reader, uint32_t& value) { value = reader.U32(); }
void Get(ByteReader& reader, int64_t& value) { value = reader.I64(); }
void Get(ByteReader& reader, MXFKEYTag& value) { value = reader.Key(); }
void Get(ByteReader& reader, std::array<uint8_t, 8>& value) { std::ranges::copy(reader.Take(8), value.begin()); }

template <class Value>
int32_t Store(Value& to, const Value& value) {
    to = value;
    return kStatusOk;
}

}  // namespace

template <class Pack>
auto CPartition::Fields(Pack& pack) {
    return std::tie(pack.majorVersion_, pack.minorVersion_, pack.kagSize_, pack.thisPartition_, pack.previousPartition_,
                    pack.footerPartition_, pack.headerByteCount_, pack.indexByteCount_, pack.indexSID_,
                    pack.bodyOffset_, pack.bodySID_, pack.operationalPattern_, pack.batchHead_);
}

CPartition::CPartition(uint32_t kind, bool closed, bool complete)
    : key_(PackKey(kind, closed, complete)),
      length_(kKLVHeadSize + kPackFieldsSize),
      operationalPattern_(kOpAtomLabel),
      batchHead_{0, 0, 0, 0, 0, 0, 0, kContainerSize} {}
CPartition::CPartition(const CPartition&) = default;
CPartition& CPartition::operator=(const CPartition&) = default;
CPartition::~CPartition() = default;

int32_t CPartition::GetData(uint8_t** data) const {
    const uint32_t size = kKLVHeadSize + kPackFieldsSize + kContainerSize * GetEssenceContainerNum();
    return HandOut(size, data, [&](ByteWriter& writer) {
        WriteKLVHead(writer, key_, size);
        std::apply([&](const auto&... field) { (Put(writer, field), ...); }, Fields(*this));
        for (const MXFKEYTag& label : essenceContainers_) writer.Key(label);
    });
}

int32_t CPartition::SetData(const uint8_t* buffer) { return SetData(buffer, StatedSize(buffer, kKeyStart)); }

int32_t CPartition::SetData(const uint8_t* buffer, uint32_t size) {
    if (buffer == nullptr || size < sizeof key_.bytes) return kStatusInvalidArgument;
    const std::span<const uint8_t> pack(buffer, size);
    key_ = ByteReader(pack).Key();  // taken over before it is looked at: a packet of another kind leaves its key here
    if (!std::ranges::equal(pack.first(kKeyStart.size()), kKeyStart)) return kStatusInvalidArgument;
    const auto head = ReadKLVHead(pack);
    if (!head || size - head->size < kPackFieldsSize) return kStatusInvalidArgument;

    length_ = static_cast<uint32_t>(head->length + head->size);
    ByteReader reader(pack.subspan(head->size));
    std::apply([&](auto&... field) { (Get(reader, field), ...); }, Fields(*this));
    essenceContainers_.clear();
    for (size_t count = batchHead_[kCountByte]; count > 0 && reader.Remaining() >= kContainerSize; --count)
        essenceContainers_.push_back(reader.Key());
    batchHead_[kCountByte] = static_cast<uint8_t>(essenceContainers_.size());
    return kStatusOk;
}

uint32_t CPartition::GetLength() const { return length_; }
MXFKEYTag CPartition::GetKey() const { return key_; }
uint16_t CPartition::GetMajorVersion() const { return majorVersion_; }
uint16_t CPartition::GetMinorVersion() const { return minorVersion_; }
uint32_t CPartition::GetKAGSize() const { return kagSize_; }
int32_t CPartition::SetThisPartition(int64_t offset) { return Store(thisPartition_, offset); }
int64_t CPartition::GetThisPartition() const { return thisPartition_; }
int32_t CPartition::SetPreviousPartition(int64_t offset) { return Store(previousPartition_, offset); }
int64_t CPartition::GetPreviousPartition() const { return previousPartition_; }
int32_t CPartition::SetFooterPartition(int64_t offset) { return Store(footerPartition_, offset); }
int64_t CPartition::GetFooterPartition() const { return footerPartition_; }
int32_t CPartition::SetHeaderByteCount(int64_t count) { return Store(headerByteCount_, count); }
int32_t CPartition::GetHeaderByteCount(int64_t& count) const { return Store(count, headerByteCount_); }
int32_t CPartition::SetIndexByteCount(int64_t count) { return Store(indexByteCount_, count); }
int32_t CPartition::GetIndexByteCount(int64_t& count) const { return Store(count, indexByteCount_); }
int64_t CPartition::GetIndexByteCount() const { return indexByteCount_; }
int32_t CPartition::SetIndexSID(uint32_t sid) { return Store(indexSID_, sid); }
uint32_t CPartition::GetIndexSID() const { return indexSID_; }
int32_t CPartition::SetBodyOffset(int64_t offset) { return Store(bodyOffset_, offset); }
int64_t CPartition::GetBodyOffset() const { return bodyOffset_; }
int32_t CPartition::SetBodySID(uint32_t sid) { return Store(bodySID_, sid); }
uint32_t CPartition::GetBodySID() const { return bodySID_; }
int32_t CPartition::SetOperationPattern(MXFKEYTag label) { return Store(operationalPattern_, label); }
MXFKEYTag CPartition::GetOperationPattern() const { return operationalPattern_; }
bool CPartition::IsOpAtom() const {
    return operationalPattern_ == kOpAtomLabel || operationalPattern_ == kOpAtomLabel3;
}
bool CPartition::IsOp1b() const { return operationalPattern_ == kOp1bLabel; }
int32_t CPartition::AddEssenceContainer(MXFKEYTag label) {
    essenceContainers_.push_back(label);
    batchHead_[kCountByte] = static_cast<uint8_t>(essenceContainers_.size());
    length_ += kContainerSize;
    return kStatusOk;
}
uint32_t CPartition::GetEssenceContainerNum() const { return static_cast<uint32_t>(essenceContainers_.size()); }
int32_t CPartition::GetEssenceContainer(MXFKEYTag* label, uint32_t index) const {
    if (label == nullptr || index >= essenceContainers_.size()) return kStatusInvalidArgument;
    *label = essenceContainers_[index];
    return kStatusOk;
}

}  // namespace kmxf
