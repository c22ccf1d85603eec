#include "tools/HeaderItems.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "core/FieldText.h"
#include "core/KLVPacket.h"
#include "core/Layout.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/Status.h"

namespace kmxf {

namespace {
// A partition pack counts its essence containers in one byte.
constexpr uint64_t kLongestPack = kPackFieldsSize + 255 * sizeof(MXFKEYTag);
}  // namespace

FileBytes::FileBytes(IFileIO& file)
    : file_(file), size_(static_cast<uint64_t>(std::max(file.Seek(0, kSeekEnd), int64_t{0}))) {}

bool FileBytes::StepOver(uint64_t& offset, std::initializer_list<uint64_t> steps) const {
    for (const uint64_t step : steps) {
        if (offset > size_ || step > size_ - offset) return false;
        offset += step;
    }
    return true;
}

int32_t FileBytes::Read(uint64_t offset, uint64_t size, std::vector<uint8_t>& bytes) const {
    uint64_t end = offset;
    if (size > uint64_t{std::numeric_limits<int32_t>::max()} || !StepOver(end, {size})) return kStatusIoError;
    try {
        bytes.resize(static_cast<size_t>(size));
    } catch (const std::bad_alloc&) {
        return kStatusNoMemory;
    }
    if (bytes.empty()) return kStatusOk;
    const bool whole = file_.Seek(static_cast<int64_t>(offset), kSeekBegin) >= 0 &&
                       std::cmp_equal(file_.Read(bytes.data(), static_cast<uint32_t>(size)), size);
    return whole ? kStatusOk : kStatusIoError;
}

int32_t FileBytes::ReadPack(uint64_t& offset, CPartition& pack) const {
    std::vector<uint8_t> bytes;
    if (const int32_t status = Read(offset, kPacketHeadSize, bytes); status != kStatusOk) return status;
    const auto head = ReadKLVHead(bytes);
    if (!head) return kStatusInvalidArgument;
    const uint64_t start = offset;
    if (!StepOver(offset, {head->size, head->length})) return kStatusIoError;
    if (head->length > kLongestPack) return kStatusInvalidArgument;
    if (const int32_t status = Read(start, offset - start, bytes); status != kStatusOk) return status;
    return pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

int32_t HeaderItems::Load() {
    CPartition pack;
    uint64_t end = 0;
    if (const int32_t status = file_.ReadPack(end, pack); status != kStatusOk) return status;
    int64_t headerBytes = 0;
    pack.GetHeaderByteCount(headerBytes);
    if (!file_.StepOver(end, {static_cast<uint64_t>(headerBytes)})) return kStatusIoError;
    const int32_t status = file_.Read(0, end, header_);
    if (status != kStatusOk) header_.clear();
    return status;
}

int32_t HeaderItems::Find(const MXFKEYTag& key, uint16_t localTag, int64_t& offset, uint32_t& length) {
    if (header_.empty()) {
        if (const int32_t status = Load(); status != kStatusOk) return status;
    }
    const auto size = static_cast<uint32_t>(header_.size());
    return GetKeyParam(header_.data(), size, key, localTag, &offset, &length) ? kStatusOk : kStatusFailure;
}

int32_t HeaderItems::Read(const MXFKEYTag& key, uint16_t localTag, uint32_t limit, std::vector<uint8_t>& value) {
    int64_t offset = 0;
    uint32_t length = 0;
    const int32_t status = Find(key, localTag, offset, length);
    // The value may run on behind the header metadata, so it is taken from the file.
    return status == kStatusOk ? file_.Read(static_cast<uint64_t>(offset), std::min(length, limit), value) : status;
}

int32_t HeaderItems::Copy(const MXFKEYTag& key, uint16_t localTag, std::span<uint8_t> buffer) {
    std::vector<uint8_t> value;
    const int32_t status = Read(key, localTag, kLongestItem, value);
    if (status != kStatusOk) return status;
    if (value.size() > buffer.size()) return kStatusInvalidArgument;
    std::ranges::copy(value, buffer.begin());
    return kStatusOk;
}

ByteReader HeaderItems::Field(const MXFKEYTag& key, uint16_t localTag, uint32_t size) {
    field_.assign(size, 0);
    if (status_ == kStatusOk) status_ = Copy(key, localTag, field_);
    return ByteReader(field_);
}

std::string HeaderItems::Text(const MXFKEYTag& key, uint16_t localTag, uint32_t limit) {
    std::vector<uint8_t> value;
    if (status_ == kStatusOk) status_ = Read(key, localTag, limit, value);
    return status_ == kStatusOk ? UTF16FieldText(value) : std::string();
}

}  // namespace kmxf
