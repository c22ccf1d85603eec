#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kmxf/core/Records.h"

// Header metadata in memory, to look at one set at a time.
namespace kmxf::program {

using Bytes = std::span<const uint8_t>;

// Key and length in front of a KLV packet (SMPTE ST 336).
struct PacketHead {
    static constexpr size_t kMost = 25;  // bytes of key and length

    MXFKEYTag key;
    size_t size = 0;      // of key and length
    uint64_t length = 0;  // of the value
};
// Nothing when the head does not lie within `bytes`, or has a length that nobody means.
std::optional<PacketHead> ReadPacketHead(Bytes bytes);

class HeaderSets {
public:
    HeaderSets() = default;
    explicit HeaderSets(Bytes metadata);

    // Where no packet follows that fits.
    std::optional<size_t> Broken() const { return broken_; }

    std::vector<Bytes> All(const MXFKEYTag& key) const;
    // The sets from the first with this key on; none without it.
    HeaderSets From(const MXFKEYTag& key) const;

    // The value of an item in one set; empty when there is none.
    static Bytes Item(Bytes set, uint16_t tag);
    // The value of an item in the first set with this key.
    Bytes Item(const MXFKEYTag& key, uint16_t tag) const;

private:
    std::vector<Bytes> sets_;
    std::optional<size_t> broken_;
};

// Values of items; zeros and empty text where there is none.
uint64_t Number(Bytes value);
MXFRATIONALTag Rational(Bytes value);
MXFUMIDTag Umid(Bytes value);
MXFTIMESTAMPTag Timestamp(Bytes value);
std::string Utf16Text(Bytes field);
std::string RawText(Bytes field);

}  // namespace kmxf::program
