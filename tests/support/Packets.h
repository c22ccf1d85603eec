#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <stdexcept>
#include <vector>

namespace kmxf::test {

// A KLV packet as it lies in bytes, found by a walk of its own that shares nothing with the library.
struct Packet {
    size_t offset = 0;       // of the key
    size_t valueOffset = 0;  // of the value
    std::vector<uint8_t> key;
    std::vector<uint8_t> value;

    size_t End() const { return valueOffset + value.size(); }
    // Byte 14 tells structural sets apart, bytes 13 and 14 packs.
    uint8_t Kind() const { return key[14]; }

    // The items of a local set, by tag.
    std::map<uint16_t, std::vector<uint8_t>> Items() const {
        std::map<uint16_t, std::vector<uint8_t>> items;
        for (size_t at = 0; at + 4 <= value.size();) {
            const auto tag = static_cast<uint16_t>(value[at] << 8 | value[at + 1]);
            const auto length = static_cast<size_t>(value[at + 2] << 8 | value[at + 3]);
            if (at + 4 + length > value.size()) throw std::runtime_error("an item leads out of its set");
            const auto start = value.begin() + static_cast<std::ptrdiff_t>(at + 4);
            items[tag].assign(start, start + static_cast<std::ptrdiff_t>(length));
            at += 4 + length;
        }
        return items;
    }
    std::vector<uint8_t> Item(uint16_t tag) const { return Items().at(tag); }
};

// All packets from `offset` to `end`; throws when they do not fill the range exactly.
inline std::vector<Packet> Packets(std::span<const uint8_t> bytes, size_t offset, size_t end) {
    std::vector<Packet> packets;
    while (offset < end) {
        if (offset + 17 > end) throw std::runtime_error("no room for a packet");
        size_t head = 17;
        uint64_t length = bytes[offset + 16];
        if (length >= 0x80) {
            head += length & 0x7F;
            length = 0;
            for (size_t i = 17; i < head; ++i) length = length << 8 | bytes[offset + i];
        }
        if (offset + head + length > end) throw std::runtime_error("a packet leads out of its range");
        Packet packet;
        packet.offset = offset;
        packet.valueOffset = offset + head;
        packet.key.assign(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                          bytes.begin() + static_cast<std::ptrdiff_t>(offset + 16));
        packet.value.assign(bytes.begin() + static_cast<std::ptrdiff_t>(packet.valueOffset),
                            bytes.begin() + static_cast<std::ptrdiff_t>(packet.valueOffset + length));
        offset = packet.End();
        packets.push_back(std::move(packet));
    }
    return packets;
}

// The packets with this byte 14 among structural sets (key ... 0D 01 01 01 01 01 kind 00).
inline std::vector<Packet> SetsOfKind(const std::vector<Packet>& packets, uint8_t kind) {
    std::vector<Packet> found;
    for (const Packet& packet : packets) {
        const bool structural = packet.key[4] == 0x02 && packet.key[5] == 0x53 && packet.key[9] == 0x01 &&
                                packet.key[10] == 0x01 && packet.key[13] == 0x01;
        if (structural && packet.Kind() == kind) found.push_back(packet);
    }
    return found;
}

inline uint64_t BigEndian(std::span<const uint8_t> bytes) {
    uint64_t number = 0;
    for (const uint8_t byte : bytes) number = number << 8 | byte;
    return number;
}

}  // namespace kmxf::test
