#include <algorithm>
#include <cstdio>
#include <iterator>

#include "core/Bytes.h"
#include "core/HexText.h"
#include "core/LocalTags.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/KLV.h"
#include "kmxf/structures/Inspect.h"

// The values of items, in print and by type.
namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kArrayHeadSize = 8;  // count and element size, 4 bytes each
constexpr size_t kDeltaEntrySize = 6, kLeastIndexEntrySize = 11;

template <class... Values>
std::string Format(const char* format, Values... values) {
    char text[64];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

// Big-endian numbers of 1 to 8 bytes.
uint64_t Number(Bytes bytes) {
    return static_cast<uint64_t>(BERtoSize(bytes.data(), static_cast<uint8_t>(bytes.size())));
}
int64_t SignedNumber(Bytes bytes) {
    const auto unused = static_cast<int>(8 * (sizeof(int64_t) - bytes.size()));
    return static_cast<int64_t>(Number(bytes) << unused) >> unused;
}

std::string UnsignedText(Bytes bytes) { return std::to_string(Number(bytes)); }
std::string SignedText(Bytes bytes) { return std::to_string(SignedNumber(bytes)); }
std::string BooleanText(Bytes bytes) { return bytes[0] != 0 ? "true" : "false"; }
std::string VersionText(Bytes bytes) { return Format("%d.%d", bytes[0], bytes[1]); }

std::string RationalText(Bytes bytes) {
    const MXFRATIONALTag rational = ByteReader(bytes).Rational();
    return Format("%d/%d", rational.numerator, rational.denominator);
}

std::string TimestampText(Bytes bytes) {
    const MXFTIMESTAMPTag t = ByteReader(bytes).Timestamp();
    const std::string text =
        Format("%04d-%02d-%02dT%02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute, t.second);
    return t.quarterMillisecond == 0 ? text : text + Format(".%03d", 4 * t.quarterMillisecond);
}

std::string UTF16Text(Bytes bytes) {
    if (bytes.size() % 2 != 0) return HexText(bytes);
    std::vector<uint16_t> units;
    for (ByteReader reader(bytes); reader.Remaining() > 0;) units.push_back(reader.U16());
    units.push_back(0);
    std::string text(static_cast<size_t>(UTF16ToUTF8(units.data(), nullptr)), '\0');
    UTF16ToUTF8(units.data(), text.data());
    return text;
}

// Text of a single-byte coding that nobody names: only what ASCII has is safe to print.
std::string ASCIIText(Bytes bytes) {
    const auto end = std::ranges::find(bytes, uint8_t{0});
    const bool printable = std::all_of(
        bytes.begin(), end, [](uint8_t c) { return (c >= 0x20 && c < 0x7F) || c == '\t' || c == '\r' || c == '\n'; });
    return printable ? std::string(bytes.begin(), end) : HexText(bytes);
}

std::string DeltaEntryText(Bytes bytes) {
    ByteReader reader(bytes);
    const auto position = static_cast<int8_t>(reader.U8());
    const uint8_t slice = reader.U8();
    return Format("(%d, %d, %u)", position, slice, reader.U32());
}

std::string IndexEntryText(Bytes bytes) {
    ByteReader reader(bytes);
    const auto temporalOffset = static_cast<int8_t>(reader.U8());
    const auto keyFrameOffset = static_cast<int8_t>(reader.U8());
    const uint8_t flags = reader.U8();
    std::string text = Format("(%d, %d, 0x%02X, ", temporalOffset, keyFrameOffset, flags);
    text += std::to_string(reader.U64());
    while (reader.Remaining() >= 4) text += Format(", %u", reader.U32());
    return text + ")";
}

std::string PartitionStatusText(Bytes bytes) {
    constexpr const char* kTexts[] = {"open, incomplete", "closed, incomplete", "open, complete", "closed, complete"};
    return bytes[0] >= 1 && bytes[0] <= std::size(kTexts) ? kTexts[bytes[0] - 1] : HexText(bytes);
}

struct KindText {
    ValueKind kind;
    bool array;
    size_t least, most;  // bytes of a value, or of an element
    std::string (*text)(Bytes);
};
constexpr KindText kKindTexts[] = {
    {ValueKind::kUnsigned, false, 1, 8, UnsignedText},
    {ValueKind::kSigned, false, 1, 8, SignedText},
    {ValueKind::kBoolean, false, 1, 1, BooleanText},
    {ValueKind::kVersion, false, 2, 2, VersionText},
    {ValueKind::kRational, false, 8, 8, RationalText},
    {ValueKind::kTimestamp, false, 8, 8, TimestampText},
    {ValueKind::kUMID, false, 32, 32, HexText},
    {ValueKind::kKey, false, 16, 16, HexText},
    {ValueKind::kUTF16, false, 0, SIZE_MAX, UTF16Text},
    {ValueKind::kText, false, 0, SIZE_MAX, ASCIIText},
    {ValueKind::kNumbers, true, 1, 8, SignedText},
    {ValueKind::kKeys, true, 16, 16, HexText},
    {ValueKind::kDeltaEntries, true, kDeltaEntrySize, kDeltaEntrySize, DeltaEntryText},
    {ValueKind::kIndexEntries, true, kLeastIndexEntrySize, SIZE_MAX, IndexEntryText},
    {ValueKind::kPartitionStatus, false, 1, 1, PartitionStatusText},
};
constexpr KindText kBytesText = {ValueKind::kBytes, false, 0, SIZE_MAX, HexText};

const KindText& TextOf(ValueKind kind) {
    const auto* row = std::ranges::find(kKindTexts, kind, &KindText::kind);
    return row == std::end(kKindTexts) ? kBytesText : *row;
}

bool Fits(const KindText& kind, Bytes value) { return value.size() >= kind.least && value.size() <= kind.most; }

std::string ValueText(const KindText& kind, Bytes value) {
    return Fits(kind, value) ? kind.text(value) : HexText(value);
}

bool IsNumber(ValueKind kind) {
    return kind == ValueKind::kUnsigned || kind == ValueKind::kSigned || kind == ValueKind::kBoolean ||
           kind == ValueKind::kVersion || kind == ValueKind::kPartitionStatus;
}

}  // namespace

std::string InspectedItem::Text() const {
    const KindText& row = TextOf(kind);
    if (!row.array) return ValueText(row, value);
    if (value.size() < kArrayHeadSize) return HexText(value);
    std::string text = "[";
    for (const Bytes element : Elements()) {
        if (text.size() > 1) text += ", ";
        text += ValueText(row, element);
    }
    return text + "]";
}

std::optional<uint64_t> InspectedItem::Unsigned() const {
    return IsNumber(kind) && Fits(TextOf(kind), value) ? std::optional(Number(value)) : std::nullopt;
}

std::optional<int64_t> InspectedItem::Signed() const {
    return IsNumber(kind) && Fits(TextOf(kind), value) ? std::optional(SignedNumber(value)) : std::nullopt;
}

std::optional<MXFRATIONALTag> InspectedItem::Rational() const {
    if (kind != ValueKind::kRational || !Fits(TextOf(kind), value)) return std::nullopt;
    return ByteReader(value).Rational();
}

std::optional<MXFTIMESTAMPTag> InspectedItem::Timestamp() const {
    if (kind != ValueKind::kTimestamp || !Fits(TextOf(kind), value)) return std::nullopt;
    return ByteReader(value).Timestamp();
}

std::optional<MXFUMIDTag> InspectedItem::Umid() const {
    if (kind != ValueKind::kUMID || !Fits(TextOf(kind), value)) return std::nullopt;
    return ByteReader(value).Umid();
}

std::vector<MXFKEYTag> InspectedItem::Keys() const {
    std::vector<MXFKEYTag> keys;
    const auto add = [&](Bytes bytes) {
        if (bytes.size() == sizeof(MXFKEYTag)) keys.push_back(ByteReader(bytes).Key());
    };
    if (kind == ValueKind::kKey) add(value);
    if (kind == ValueKind::kKeys) std::ranges::for_each(Elements(), add);
    return keys;
}

std::vector<Bytes> InspectedItem::Elements() const {
    if (!TextOf(kind).array) return {};
    ByteReader reader(value);
    const uint64_t stated = reader.U32();
    const uint32_t size = reader.U32();
    if (!reader.Ok() || size == 0) return {};
    std::vector<Bytes> elements;
    for (uint64_t left = std::min<uint64_t>(stated, reader.Remaining() / size); left > 0; --left)
        elements.push_back(reader.Take(size));
    return elements;
}

}  // namespace kmxf
