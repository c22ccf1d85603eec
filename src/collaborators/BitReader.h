#pragma once

#include <cstdint>
#include <span>

namespace kmxf {

// Takes the syntax elements of ITU-T H.264 from a span, most significant bit first, and never looks past its end: what
// does not fit yields zero and leaves the reader failed for good.
class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> data) : data_(data) {}

    bool Ok() const { return ok_; }
    bool Flag() { return U(1) != 0; }
    uint32_t U(unsigned count) {  // u(n), n up to 32
        if (!Take(count)) return 0;
        uint32_t value = 0;
        for (uint64_t i = position_ - count; i < position_; ++i)
            value = value << 1 | (uint32_t{data_[static_cast<size_t>(i / 8)]} >> (7 - i % 8) & 1);
        return value;
    }
    uint32_t UE() {  // ue(v)
        unsigned zeros = 0;
        while (ok_ && !Flag()) ++zeros;
        if (zeros > 31) ok_ = false;
        return ok_ ? (uint32_t{1} << zeros) - 1 + U(zeros) : 0;
    }
    int32_t SE() {  // se(v)
        const uint32_t code = UE();
        const auto magnitude = static_cast<int32_t>(code / 2 + code % 2);
        return code % 2 != 0 ? magnitude : -magnitude;
    }
    void Skip(uint64_t count) { Take(count); }
    // Whether all was taken but the bits that fill up the last byte: a one, then zeros.
    bool AtEnd() {
        const uint64_t rest = Remaining();
        return ok_ && (rest == 0 || (rest < 8 && U(static_cast<unsigned>(rest)) == 1u << (rest - 1)));
    }

private:
    uint64_t Remaining() const { return uint64_t{data_.size()} * 8 - position_; }
    bool Take(uint64_t count) {
        ok_ = ok_ && count <= Remaining();
        if (ok_) position_ += count;
        return ok_;
    }

    std::span<const uint8_t> data_;
    uint64_t position_ = 0;
    bool ok_ = true;
};

}  // namespace kmxf
