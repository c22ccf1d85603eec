#pragma once

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

// H.264 streams of pictures put together bit by bit (ITU-T H.264).
namespace kmxf::program::coded {

using Stream = std::vector<uint8_t>;

// Syntax elements as ITU-T H.264, 9.1 has them.
class Bits {
public:
    Bits& U(unsigned count, uint32_t value) {
        for (unsigned i = count; i-- > 0;) bits_.push_back((value >> i & 1) != 0);
        return *this;
    }
    Bits& UE(uint32_t value) {
        unsigned length = 0;
        while ((value + 1) >> (length + 1) != 0) ++length;
        return U(length, 0).U(length + 1, value + 1);
    }
    Bits& SE(int32_t value) {
        return UE(value > 0 ? 2 * static_cast<uint32_t>(value) - 1 : 2 * static_cast<uint32_t>(-value));
    }
    // The NAL unit, with a stop bit, emulation prevention, and a start code of 3 or 4 bytes.
    Stream Nal(uint8_t head, bool longStartCode = true) const {
        Stream bytes{0, 0, 0, 1, head};
        if (!longStartCode) bytes.erase(bytes.begin());
        auto all = bits_;
        all.push_back(true);
        all.resize((all.size() + 7) / 8 * 8);
        size_t zeros = 0;
        for (size_t at = 0; at < all.size(); at += 8) {
            unsigned byte = 0;
            for (size_t i = 0; i < 8; ++i) byte = byte << 1 | (all[at + i] ? 1U : 0U);
            if (zeros >= 2 && byte <= 3) {
                bytes.push_back(3);
                zeros = 0;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            bytes.push_back(static_cast<uint8_t>(byte));
        }
        return bytes;
    }

private:
    std::vector<bool> bits_;
};

inline Stream operator+(Stream left, const Stream& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct Format {
    uint32_t orderType = 0;
    bool interlaced = false;
    uint32_t widthInBlocks = 120;
    bool weighted = false;
    bool redundant = false;
    uint32_t orderBits = 5;
};

inline constexpr uint32_t kFrameNumBits = 4;

// Main profile, level 4, 1920 x 1088, cropped by 8 lines.
inline Stream Sets(const Format& format = {}) {
    Bits sps;
    sps.U(8, 77).U(8, 0).U(8, 40).UE(0).UE(kFrameNumBits - 4).UE(format.orderType);
    if (format.orderType == 0) sps.UE(format.orderBits - 4);
    if (format.orderType == 1) sps.U(1, 0).SE(0).SE(0).UE(0);
    sps.UE(4).U(1, 0).UE(format.widthInBlocks - 1).UE(format.interlaced ? 33 : 67).U(1, format.interlaced ? 0 : 1);
    if (format.interlaced) sps.U(1, 0);
    sps.U(1, 1).U(1, 0).U(1, 0);
    Bits pps;
    pps.UE(0).UE(0).U(1, 0).U(1, format.interlaced ? 1 : 0).UE(0).UE(1).UE(0);
    pps.U(1, format.weighted ? 1 : 0).U(2, format.weighted ? 1 : 0).SE(0).SE(0).SE(0).U(2, 0);
    pps.U(1, format.redundant ? 1 : 0);
    return sps.Nal(0x67) + pps.Nal(0x68);
}

struct Picture {
    char type = 'I';
    uint32_t order = 0;  // pic_order_cnt_lsb
    uint32_t frameNum = 0;
    bool reference = true;
    bool idr = false;
    char field = ' ';  // 't', 'b'
    bool endsOrder = false;
    uint32_t redundant = 0;
    int32_t deltaBottom = 0;
};

inline Stream Slice(const Picture& picture, const Format& format = {}, uint32_t firstBlock = 0,
                    bool longStartCode = true) {
    Bits slice;
    slice.UE(firstBlock)
        .UE(picture.type == 'P'   ? 0
            : picture.type == 'B' ? 1
                                  : 2)
        .UE(0)
        .U(kFrameNumBits, picture.frameNum);
    if (format.interlaced) slice.U(1, picture.field == ' ' ? 0 : 1);
    if (picture.field != ' ') slice.U(1, picture.field == 'b' ? 1 : 0);
    if (picture.idr) slice.UE(0);
    if (format.orderType == 0) slice.U(format.orderBits, picture.order);
    if (format.orderType == 0 && format.interlaced && picture.field == ' ') slice.SE(picture.deltaBottom);
    if (format.redundant) slice.UE(picture.redundant);
    if (picture.type == 'B') slice.U(1, 1);
    if (picture.type != 'I') slice.U(1, 1).UE(2);  // three references in list 0
    if (picture.type == 'B') slice.UE(0);
    if (picture.type != 'I') slice.U(1, 1).UE(0).UE(5).UE(2).UE(1).UE(3);  // list 0 is put in order
    if (picture.type == 'B') slice.U(1, 0);
    if (format.weighted && picture.type != 'I') {
        slice.UE(5).UE(5);
        for (int reference = 0; reference < (picture.type == 'B' ? 4 : 3); ++reference)
            slice.U(1, 1).SE(-100).SE(20).U(1, 1).SE(1).SE(2).SE(3).SE(-64);
    }
    if (picture.reference && picture.idr) slice.U(2, 0);
    if (picture.reference && !picture.idr) {
        slice.U(1, picture.endsOrder ? 1 : 0);
        if (picture.endsOrder) slice.UE(1).UE(0).UE(3).UE(7).UE(1).UE(5).UE(0);
    }
    for (uint32_t i = 0; i < 40; ++i) slice.U(8, 0x55 + i);
    const unsigned importance = picture.reference ? 0x60 : 0;
    return slice.Nal(static_cast<uint8_t>(importance | (picture.idr ? 5U : 1U)), longStartCode);
}

inline const Stream kDelimiter{0, 0, 0, 1, 0x09, 0xF0};
inline const Stream kSEI{0, 0, 0, 1, 0x06, 0x05, 0x01, 0xAA, 0x80};

// "I4 B0 b2": types in stored order with their place in display order; b is a B picture that others refer to, K an IDR
// picture, each with its parameter sets.
inline Stream Pictures(const std::string& text, const Format& format = {}) {
    Stream stream;
    uint32_t frameNum = 0;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        Picture picture;
        picture.idr = word[0] == 'K';
        picture.type = word[0] == 'K' ? 'I' : word[0] == 'b' ? 'B' : word[0];
        picture.reference = word[0] != 'B';
        picture.order = 2 * static_cast<uint32_t>(std::stoul(word.substr(1))) % (1U << format.orderBits);
        if (picture.idr) frameNum = 0;
        picture.frameNum = frameNum % (1U << kFrameNumBits);
        if (picture.reference) ++frameNum;
        stream = stream + kDelimiter;
        if (picture.type == 'I') stream = stream + Sets(format);
        stream = stream + Slice(picture, format);
    }
    return stream;
}

}  // namespace kmxf::program::coded
