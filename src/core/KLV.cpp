#include "kmxf/core/KLV.h"

#include <algorithm>

#include "core/KLVPacket.h"
#include "core/Labels.h"

namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

// Big-endian; of more than 8 bytes the last 8 count.
uint64_t BERLength(Bytes bytes) {
    uint64_t length = 0;
    for (const uint8_t byte : bytes) length = length << 8 | byte;
    return length;
}

bool StartsWith(Bytes data, const MXFKEYTag& key) {
    return data.size() >= sizeof key.bytes && std::equal(key.bytes, key.bytes + sizeof key.bytes, data.data());
}

// What stands behind the packet at the start of `data`; empty when nothing does or when its length leads outside.
Bytes NextPacket(Bytes data, BERForm form) {
    const auto head = ReadKLVHead(data, form);
    const auto value = head ? KLVValue(data, *head) : std::nullopt;
    return value ? data.subspan(head->size + value->size()) : Bytes{};
}

// `data` from the first packet with this key on; empty when there is none.
Bytes FindPacket(Bytes data, const MXFKEYTag& key, BERForm form) {
    while (!data.empty() && !StartsWith(data, key)) data = NextPacket(data, form);
    return data;
}

}  // namespace

std::optional<KLVHead> ReadKLVHead(Bytes data, BERForm form) {
    ByteReader reader(data);
    KLVHead head;
    head.key = reader.Key();
    const uint8_t first = reader.U8();
    const bool longForm = form == BERForm::kLongOnly || first >= 0x80;
    const Bytes length = reader.Take(longForm ? first & 0x7F : 0);
    if (!reader.Ok()) return std::nullopt;
    head.size = static_cast<uint32_t>(reader.Position());
    head.length = longForm ? BERLength(length) : first;
    return head;
}

std::optional<Bytes> KLVValue(Bytes data, const KLVHead& head) {
    ByteReader reader(data);
    reader.Skip(head.size);
    const Bytes value = reader.Take(head.length);
    return reader.Ok() ? std::optional(value) : std::nullopt;
}

int64_t BERtoSize(const uint8_t* bytes, uint8_t count) {
    return bytes == nullptr ? 0 : static_cast<int64_t>(BERLength({bytes, count}));
}

bool GetKeyParam(const uint8_t* buffer, uint32_t size, MXFKEYTag key, uint16_t localTag, int64_t* offset,
                 uint32_t* length) {
    if (buffer == nullptr || offset == nullptr || length == nullptr) return false;
    const Bytes set = FindPacket({buffer, size}, key, BERForm::kAny);
    const auto head = ReadKLVHead(set);
    if (!head) return false;
    // The walk runs to the end of the buffer, not of the set: a tag that the set lacks is sought in the bytes behind
    // it.
    for (ByteReader items(set.subspan(head->size));;) {
        const uint16_t itemTag = items.U16();
        const uint16_t itemLength = items.U16();
        if (!items.Ok()) return false;
        if (itemTag == localTag) {
            *offset = static_cast<int64_t>(size - items.Remaining());
            *length = itemLength;
            return true;
        }
        items.Skip(itemLength);
    }
}

uint32_t GetKeyNum(const uint8_t* buffer, uint32_t size, MXFKEYTag key) {
    if (buffer == nullptr) return 0;
    uint32_t count = 0;
    // The first packet is examined even when `size` is 0.
    for (Bytes data{buffer, size == 0 ? sizeof key.bytes : size}; !data.empty(); data = NextPacket(data, BERForm::kAny))
        if (StartsWith(data, key)) ++count;
    return count;
}

uint16_t GetLocalTag(const uint8_t* buffer, uint32_t size, MXFKEYTag ul) {
    if (buffer == nullptr) return 0;
    // Lengths are taken for the long form throughout: headers written here have no other.
    const Bytes primer = FindPacket({buffer, size}, kPrimerPackKey, BERForm::kLongOnly);
    const auto head = ReadKLVHead(primer, BERForm::kLongOnly);
    if (!head) return 0;
    ByteReader reader(primer.subspan(head->size));
    uint32_t count = reader.U32();
    reader.Skip(4);  // the length of an entry, always 18
    for (; count > 0 && reader.Ok(); --count) {
        const uint16_t tag = reader.U16();
        if (reader.Key() == ul && reader.Ok()) return tag;
    }
    return 0;
}

}  // namespace kmxf
