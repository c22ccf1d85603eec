#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/core/Records.h"
#include "support/Hex.h"

// OP-Atom files put together from hex text, without any of the library's own code.
namespace kmxf::test {

using ByteVector = std::vector<uint8_t>;

inline ByteVector Join(std::initializer_list<ByteVector> parts) {
    ByteVector joined;
    for (const auto& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

// A number in `width` bytes, big-endian.
inline ByteVector BigEndian(uint64_t value, size_t width) {
    ByteVector bytes(width);
    for (size_t i = width; i-- > 0; value >>= 8) bytes[i] = static_cast<uint8_t>(value);
    return bytes;
}

inline void Patch(ByteVector& bytes, size_t offset, const ByteVector& patch) {
    if (offset + patch.size() > bytes.size()) throw std::out_of_range("patch past the end");
    std::copy(patch.begin(), patch.end(), bytes.begin() + static_cast<ptrdiff_t>(offset));
}

inline constexpr std::string_view kOpAtom = "06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00";
inline constexpr std::string_view kOp1b = "06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00";
inline constexpr std::string_view kLabelStart = "06 0E 2B 34 04 01 01 01 0D 01 03 01";
inline constexpr std::string_view kAES3Clip = "06 0E 2B 34 04 01 01 01 0D 01 03 01 02 06 04 00";
inline constexpr std::string_view kPrimerKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 05 01 00";
inline constexpr std::string_view kFillItemKey = "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00";
inline constexpr std::string_view kCDCIKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 28 00";
inline constexpr std::string_view kMPEGKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 51 00";
inline constexpr std::string_view kAES3Key = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 47 00";
inline constexpr std::string_view kTrackSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3B 00";

inline MXFKEYTag Key(std::string_view text) {
    MXFKEYTag key;
    std::ranges::copy(Hex(text), key.bytes);
    return key;
}

// A local item: tag, 2-byte length, value.
inline ByteVector LocalItem(std::string_view tag, std::string_view value) {
    const auto bytes = Hex(value);
    return Join({Hex(tag), BigEndian(bytes.size(), 2), bytes});
}
// A KLV packet with the 4-byte length form.
inline ByteVector Packet(std::string_view key, const ByteVector& value) {
    return Join({Hex(key), {0x83}, BigEndian(value.size(), 3), value});
}

// A partition pack with one essence container, 124 bytes; with none, 108.
struct Pack {
    std::string_view kind = "02 04";  // header, closed and complete
    std::string_view pattern = kOpAtom;
    ByteVector container = Hex(kAES3Clip);  // one label or nothing
    uint64_t headerByteCount = 0, indexByteCount = 0, footerPartition = 0;

    ByteVector Bytes() const {
        return Join({Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01"), Hex(kind), Hex("00"),  // key
                     Hex("83 00 00"), BigEndian(88 + container.size(), 1),                 // length
                     Hex("00 01 00 03 00 00 00 01"),                                       // version 1.3, KAG size 1
                     Hex("00 00 00 00 00 00 00 00"),                                       // ThisPartition
                     Hex("00 00 00 00 00 00 00 00"),                                       // PreviousPartition
                     BigEndian(footerPartition, 8), BigEndian(headerByteCount, 8), BigEndian(indexByteCount, 8),
                     Hex("00 00 00 01"),              // IndexSID
                     Hex("00 00 00 00 00 00 00 00"),  // BodyOffset
                     Hex("00 00 00 02"),              // BodySID
                     Hex(pattern), BigEndian(container.size() / 16, 4), Hex("00 00 00 10"), container});
    }
};

// Where things are in the file below.
inline constexpr size_t kHeaderByteCountAt = 52, kIndexByteCountAt = 60;  // in a pack
inline constexpr size_t kBodyPackAt = 32620, kElementAt = 32744, kElementLengthAt = 32760, kEssenceAt = 32768;

// An OP-Atom file: header pack, primer, sets, fill item, body pack, key and length of the element in 32768 bytes; then
// the essence and a footer pack.
struct OpAtomFile {
    ByteVector container = Hex(kAES3Clip);
    std::string_view pattern = kOpAtom;
    ByteVector sets;     // whole packets
    ByteVector essence;  // the element states as many bytes

    // File offset of the first set: behind the pack (124) and an empty primer (28).
    static constexpr int64_t kSetsAt = 152;

    ByteVector HeaderArea() const {
        const auto metadata = Join({Packet(kPrimerKey, Hex("00 00 00 00 00 00 00 12")), sets});
        const size_t fill = kBodyPackAt - 124 - metadata.size();
        const uint64_t footer = kEssenceAt + essence.size();
        const Pack header{"02 04", pattern, container, metadata.size(), fill, footer};
        const Pack body{"03 04", pattern, container, 0, 0, footer};
        return Join({header.Bytes(), metadata, Packet(kFillItemKey, ByteVector(fill - 20)), body.Bytes(),
                     Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 04 01 87"), BigEndian(essence.size(), 7)});
    }
    ByteVector Bytes() const {
        return Join(
            {HeaderArea(), essence, Pack{"04 04", pattern, container, 0, 0, kEssenceAt + essence.size()}.Bytes()});
    }
};

inline std::string Label(std::string_view lastFour) { return std::string(kLabelStart) + " " + std::string(lastFour); }

}  // namespace kmxf::test
