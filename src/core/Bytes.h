#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "kmxf/core/Records.h"

namespace kmxf {

// Takes big-endian values from a span and never looks past its end: a read that does not fit yields zeros and leaves
// the reader failed for good. A structure inside gets a reader of its own (Take), which ends where its declared bytes
// end.
class ByteReader {
public:
    explicit ByteReader(std::span<const uint8_t> data) : data_(data) {}

    bool Ok() const { return ok_; }
    size_t Position() const { return position_; }
    size_t Remaining() const { return data_.size() - position_; }

    uint8_t U8() { return static_cast<uint8_t>(Number(1)); }
    uint16_t U16() { return static_cast<uint16_t>(Number(2)); }
    uint32_t U32() { return static_cast<uint32_t>(Number(4)); }
    uint64_t U64() { return Number(8); }
    int32_t I32() { return static_cast<int32_t>(U32()); }
    int64_t I64() { return static_cast<int64_t>(U64()); }
    MXFKEYTag Key() { return Fixed<MXFKEYTag>(); }
    MXFUMIDTag Umid() { return Fixed<MXFUMIDTag>(); }
    MXFRATIONALTag Rational() {
        const int32_t numerator = I32();
        return {numerator, I32()};
    }
    MXFTIMESTAMPTag Timestamp() {
        MXFTIMESTAMPTag t;
        t.year = U16();
        t.month = U8();
        t.day = U8();
        t.hour = U8();
        t.minute = U8();
        t.second = U8();
        t.quarterMillisecond = U8();
        return t;
    }

    void Skip(uint64_t count) { Take(count); }
    // The next `count` bytes; empty, and the reader failed, when there are fewer.
    std::span<const uint8_t> Take(uint64_t count) {
        if (!ok_ || count > Remaining()) {
            ok_ = false;
            return {};
        }
        const auto taken = data_.subspan(position_, static_cast<size_t>(count));
        position_ += static_cast<size_t>(count);
        return taken;
    }

private:
    uint64_t Number(size_t width) {
        uint64_t value = 0;
        for (const uint8_t byte : Take(width)) value = value << 8 | byte;
        return value;
    }
    template <class Record>
    Record Fixed() {
        Record record;
        const auto bytes = Take(sizeof record.bytes);
        if (!bytes.empty()) std::memcpy(record.bytes, bytes.data(), bytes.size());
        return record;
    }

    std::span<const uint8_t> data_;
    size_t position_ = 0;
    bool ok_ = true;
};

// Puts big-endian values into a span and never writes past its end: a value that does not fit is left out and leaves
// the writer failed for good.
class ByteWriter {
public:
    explicit ByteWriter(std::span<uint8_t> data) : data_(data) {}

    bool Ok() const { return ok_; }
    size_t Position() const { return position_; }
    size_t Remaining() const { return data_.size() - position_; }

    void U8(uint8_t value) { Number(value, 1); }
    void U16(uint16_t value) { Number(value, 2); }
    void U32(uint32_t value) { Number(value, 4); }
    void U64(uint64_t value) { Number(value, 8); }
    void I32(int32_t value) { Number(static_cast<uint32_t>(value), 4); }
    void I64(int64_t value) { Number(static_cast<uint64_t>(value), 8); }
    void Key(const MXFKEYTag& key) { Bytes(key.bytes); }
    void Umid(const MXFUMIDTag& umid) { Bytes(umid.bytes); }
    void Rational(const MXFRATIONALTag& rational) {
        I32(rational.numerator);
        I32(rational.denominator);
    }
    void Timestamp(const MXFTIMESTAMPTag& t) {
        U16(t.year);
        for (const uint8_t part : {t.month, t.day, t.hour, t.minute, t.second, t.quarterMillisecond}) U8(part);
    }
    // BER length in the fixed long form of `width` bytes behind the first (0x83 with 3, 0x87 with 7).
    void BER(uint64_t length, uint8_t width) {
        U8(static_cast<uint8_t>(0x80 | width));
        Number(length, width);
    }
    void Bytes(std::span<const uint8_t> bytes) {
        const auto room = Room(bytes.size());
        if (!room.empty()) std::memcpy(room.data(), bytes.data(), bytes.size());
    }
    void Zeros(size_t count) {
        const auto room = Room(count);
        std::fill(room.begin(), room.end(), uint8_t{0});
    }

private:
    std::span<uint8_t> Room(size_t count) {
        if (!ok_ || count > Remaining()) {
            ok_ = false;
            return {};
        }
        const auto room = data_.subspan(position_, count);
        position_ += count;
        return room;
    }
    void Number(uint64_t value, size_t width) {
        const auto room = Room(width);
        for (size_t i = room.size(); i-- > 0; value >>= 8) room[i] = static_cast<uint8_t>(value);
    }

    std::span<uint8_t> data_;
    size_t position_ = 0;
    bool ok_ = true;
};

// The big-endian bytes of one value, as an item holds them.
template <class Put>
std::vector<uint8_t> EncodedBytes(size_t size, Put put) {
    std::vector<uint8_t> bytes(size);
    ByteWriter writer(bytes);
    put(writer);
    return bytes;
}
inline std::vector<uint8_t> Encoded(uint8_t value) { return {value}; }
inline std::vector<uint8_t> Encoded(bool value) { return {static_cast<uint8_t>(value ? 1 : 0)}; }
inline std::vector<uint8_t> Encoded(uint16_t value) {
    return EncodedBytes(2, [&](ByteWriter& w) { w.U16(value); });
}
inline std::vector<uint8_t> Encoded(uint32_t value) {
    return EncodedBytes(4, [&](ByteWriter& w) { w.U32(value); });
}
inline std::vector<uint8_t> Encoded(int64_t value) {
    return EncodedBytes(8, [&](ByteWriter& w) { w.I64(value); });
}
inline std::vector<uint8_t> Encoded(const MXFRATIONALTag& value) {
    return EncodedBytes(8, [&](ByteWriter& w) { w.Rational(value); });
}
inline std::vector<uint8_t> Encoded(const MXFTIMESTAMPTag& value) {
    return EncodedBytes(8, [&](ByteWriter& w) { w.Timestamp(value); });
}
inline std::vector<uint8_t> Encoded(const MXFKEYTag& value) { return {value.bytes, value.bytes + 16}; }
inline std::vector<uint8_t> Encoded(const MXFUMIDTag& value) { return {value.bytes, value.bytes + 32}; }

}  // namespace kmxf
