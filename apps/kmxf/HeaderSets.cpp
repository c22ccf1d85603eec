#include "HeaderSets.h"

#include <algorithm>

#include "core/Bytes.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/KLV.h"

namespace kmxf::program {

namespace {

bool IsOf(Bytes set, const MXFKEYTag& key) {
    return std::equal(std::begin(key.bytes), std::end(key.bytes), set.begin());
}

}  // namespace

std::optional<PacketHead> ReadPacketHead(Bytes bytes) {
    ByteReader reader(bytes);
    PacketHead head{.key = reader.Key()};
    const uint8_t form = reader.U8();
    const size_t width = (form & 0x80) != 0 ? form & 0x7F : 0;
    head.length = width == 0 ? form & 0x7F : Number(reader.Take(width));
    head.size = 17 + width;
    return reader.Ok() && head.size <= PacketHead::kMost ? std::optional(head) : std::nullopt;
}

HeaderSets::HeaderSets(Bytes metadata) {
    const size_t size = metadata.size();
    while (!metadata.empty()) {
        const auto head = ReadPacketHead(metadata);
        if (!head || head->length > metadata.size() - head->size) {
            broken_ = size - metadata.size();
            return;
        }
        sets_.push_back(metadata.first(head->size + static_cast<size_t>(head->length)));
        metadata = metadata.subspan(sets_.back().size());
    }
}

std::vector<Bytes> HeaderSets::All(const MXFKEYTag& key) const {
    std::vector<Bytes> found;
    for (const Bytes set : sets_) {
        if (IsOf(set, key)) found.push_back(set);
    }
    return found;
}

HeaderSets HeaderSets::From(const MXFKEYTag& key) const {
    HeaderSets rest;
    rest.sets_.assign(std::find_if(sets_.begin(), sets_.end(), [&](Bytes set) { return IsOf(set, key); }), sets_.end());
    return rest;
}

Bytes HeaderSets::Item(Bytes set, uint16_t tag) {
    const MXFKEYTag key = ByteReader(set).Key();
    int64_t offset = 0;
    uint32_t length = 0;
    if (!GetKeyParam(set.data(), static_cast<uint32_t>(set.size()), key, tag, &offset, &length)) return {};
    const auto start = static_cast<uint64_t>(offset);
    if (start > set.size() || length > set.size() - start) return {};
    return set.subspan(static_cast<size_t>(start), length);
}

Bytes HeaderSets::Item(const MXFKEYTag& key, uint16_t tag) const {
    const auto found = All(key);
    return found.empty() ? Bytes{} : Item(found.front(), tag);
}

uint64_t Number(Bytes value) {
    return static_cast<uint64_t>(BERtoSize(value.data(), static_cast<uint8_t>(value.size())));
}
MXFRATIONALTag Rational(Bytes value) { return ByteReader(value).Rational(); }
MXFUMIDTag Umid(Bytes value) { return ByteReader(value).Umid(); }
MXFTIMESTAMPTag Timestamp(Bytes value) { return ByteReader(value).Timestamp(); }

std::string Utf16Text(Bytes field) {
    std::vector<uint16_t> units;
    for (ByteReader reader(field); reader.Remaining() >= 2;) units.push_back(reader.U16());
    units.push_back(0);
    std::string text(units.size() * 4, '\0');
    const int32_t size = UTF16ToUTF8(units.data(), text.data());
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
}

std::string RawText(Bytes field) {
    const auto end = std::find(field.begin(), field.end(), uint8_t{0});
    return {field.begin(), end};
}

}  // namespace kmxf::program
