#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "kmxf/core/VideoStandard.h"
#include "support/Hex.h"

namespace kmxf {
namespace {

using test::Hex;
using test::SameBytes;
using Bytes = std::vector<uint8_t>;

struct Header {
    bool result;
    Bytes bytes = Bytes(512, 0xEE);
};
Header Get(uint32_t standard, uint32_t type) {
    Header header{};
    header.result = GetAVCIHeader(standard, type, header.bytes.data());
    return header;
}

Bytes Part(const Bytes& bytes, size_t offset, size_t size) {
    const auto from = bytes.begin() + static_cast<ptrdiff_t>(offset);
    return {from, from + static_cast<ptrdiff_t>(size)};
}

// CRC-32 as in IEEE 802.3.
uint32_t Checksum(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

// Every standard with every type: level_idc and checksum of the 96 bytes; 0 where there is no parameter set.
struct Cell {
    uint32_t standard, type;
    uint8_t level;
    uint32_t checksum;
};
// clang-format off
constexpr Cell kCells[] = {
    // 5994I
    {0x0100007C, 0xC900, 0x28, 0x65DDA921},  // I50-1080-5994I
    {0x0100007C, 0xCA00, 0, 0},
    {0x0100007C, 0xCD00, 0x29, 0xB21D1A84},  // I100-1080-5994I
    {0x0100007C, 0xD100, 0x29, 0xB21D1A84},  // I100-1080-5994I
    {0x0100007C, 0xCE00, 0, 0},
    {0x0100007C, 0xD200, 0, 0},
    // 50I
    {0x010000B2, 0xC900, 0x28, 0x73F622B8},  // I50-1080-50I
    {0x010000B2, 0xCA00, 0, 0},
    {0x010000B2, 0xCD00, 0x29, 0x6DF1FA2A},  // I100-1080-50I
    {0x010000B2, 0xD100, 0x29, 0x6DF1FA2A},  // I100-1080-50I
    {0x010000B2, 0xCE00, 0, 0},
    {0x010000B2, 0xD200, 0, 0},
    // 2398P
    {0x02000058, 0xC900, 0x28, 0x452034F0},  // I50-1080-2398P
    {0x02000058, 0xCA00, 0x20, 0x100CC7C1},  // I50-720-2398P
    {0x02000058, 0xCD00, 0x29, 0x505A274D},  // I100-1080-2398P
    {0x02000058, 0xD100, 0x29, 0x505A274D},  // I100-1080-2398P
    {0x02000058, 0xCE00, 0x29, 0x61BD5D09},  // I100-720-2398P
    {0x02000058, 0xD200, 0x29, 0x61BD5D09},  // I100-720-2398P
    // 2997P
    {0x0200005E, 0xC900, 0x28, 0x4A09C607},  // I50-1080-2997P
    {0x0200005E, 0xCA00, 0x20, 0x6E8F8A3D},  // I50-720-2997P
    {0x0200005E, 0xCD00, 0x29, 0xF142AD44},  // I100-1080-2997P
    {0x0200005E, 0xD100, 0x29, 0xF142AD44},  // I100-1080-2997P
    {0x0200005E, 0xCE00, 0x29, 0x6800349C},  // I100-720-2997P
    {0x0200005E, 0xD200, 0x29, 0x6800349C},  // I100-720-2997P
    // 25P
    {0x02000099, 0xC900, 0x28, 0x4FDF56F7},  // I50-1080-25P
    {0x02000099, 0xCA00, 0x20, 0x7CEE1665},  // I50-720-25P
    {0x02000099, 0xCD00, 0x29, 0x0820CAA7},  // I100-1080-25P
    {0x02000099, 0xD100, 0x29, 0x0820CAA7},  // I100-1080-25P
    {0x02000099, 0xCE00, 0x29, 0xE2B08626},  // I100-720-25P
    {0x02000099, 0xD200, 0x29, 0xE2B08626},  // I100-720-25P
    // 5994P
    {0x0200007C, 0xC900, 0x2A, 0x51E843E8},  // I50-1080-5994P
    {0x0200007C, 0xCA00, 0x20, 0x28612268},  // I50-720-5994P
    {0x0200007C, 0xCD00, 0x2A, 0xF78F4FEA},  // I100-1080-5994P
    {0x0200007C, 0xD100, 0x32, 0xA38CA7FA},  // I200-1080-5994P
    {0x0200007C, 0xCE00, 0x2A, 0xB2DFF95E},  // I100-720-5994P
    {0x0200007C, 0xD200, 0x2A, 0xB2DFF95E},  // I100-720-5994P
    // 50P
    {0x020000B2, 0xC900, 0x2A, 0xC23C4405},  // I50-1080-50P
    {0x020000B2, 0xCA00, 0x20, 0xA78A8D0D},  // I50-720-50P
    {0x020000B2, 0xCD00, 0x2A, 0x7D60E00B},  // I100-1080-50P
    {0x020000B2, 0xD100, 0x32, 0x2963081B},  // I200-1080-50P
    {0x020000B2, 0xCE00, 0x2A, 0xE9076A67},  // I100-720-50P
    {0x020000B2, 0xD200, 0x2A, 0xE9076A67},  // I100-720-50P
};

// What the type alone says; the picture parameter set is complete, start code included.
struct Type {
    uint32_t type;
    uint8_t profile, chroma, aspect;  // chroma_format_idc, aspect_ratio_idc
    uint32_t width, height;
    const char* pps;
};
constexpr Type kTypes[] = {
    {0xC900, 110, 1, 14, 1440, 1080, "00 00 00 01 68 EE 31 12 11"},
    {0xCA00, 110, 1, 14,  960,  720, "00 00 00 01 68 EE 31 12 11"},
    {0xCD00, 122, 2,  1, 1920, 1080, "00 00 00 01 68 CE 33 48 D0"},
    {0xD100, 122, 2,  1, 1920, 1080, "00 00 00 01 68 CE 33 48 D0"},
    {0xCE00, 122, 2,  1, 1280,  720, "00 00 00 01 68 CE 31 12 11"},
    {0xD200, 122, 2,  1, 1280,  720, "00 00 00 01 68 CE 31 12 11"},
};

// What the standard alone says; the clock of H.264 counts fields.
struct Standard {
    uint32_t standard;
    bool progressive;
    uint32_t timeScale, unitsInTick;
};
constexpr Standard kStandards[] = {
    {0x0100007C, false,  60000, 1001},
    {0x010000B2, false,     50,    1},
    {0x02000058, true,   48000, 1001},
    {0x0200005E, true,   60000, 1001},
    {0x02000099, true,      50,    1},
    {0x0200007C, true,  120000, 1001},
    {0x020000B2, true,     100,    1},
};
// clang-format on

const Type& TypeOf(const Cell& cell) { return *std::ranges::find(kTypes, cell.type, &Type::type); }
const Standard& StandardOf(const Cell& cell) {
    return *std::ranges::find(kStandards, cell.standard, &Standard::standard);
}

// The bits of a NAL unit, its emulation prevention bytes left out (ITU-T H.264, 7.3.1 and 9.1).
class Bits {
public:
    explicit Bits(std::span<const uint8_t> nal) {
        size_t zeros = 0;
        for (const uint8_t byte : nal) {
            if (zeros >= 2 && byte == 3) {
                zeros = 0;
                continue;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            for (int bit = 7; bit >= 0; --bit) bits_.push_back((byte >> bit & 1) != 0);
        }
    }
    uint32_t U(uint32_t count) {
        uint32_t value = 0;
        for (; count > 0; --count) value = value << 1 | (bits_.at(position_++) ? 1u : 0u);
        return value;
    }
    uint32_t UE() {
        uint32_t zeros = 0;
        while (U(1) == 0) ++zeros;
        return (1u << zeros) - 1 + U(zeros);
    }
    int32_t SE() {
        const auto code = static_cast<int32_t>(UE());
        return code % 2 != 0 ? (code + 1) / 2 : -(code / 2);
    }
    // The stop bit and zeros to the end.
    bool AtTrailingBits() {
        if (U(1) != 1) return false;
        while (position_ < bits_.size())
            if (U(1) != 0) return false;
        return true;
    }

private:
    std::vector<bool> bits_;
    size_t position_ = 0;
};

// Reads the sequence parameter set of a header (ITU-T H.264, 7.3.2.1.1 and E.1.1) and holds it against its cell.
void ExpectParameterSet(const Cell& cell, const Bytes& block) {
    const Type& type = TypeOf(cell);
    const Standard& standard = StandardOf(cell);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 01 09 10  00 00 00 01 67"), Part(block, 0, 11)));
    Bits bits{std::span(block).subspan(11)};
    EXPECT_EQ(bits.U(8), type.profile);
    EXPECT_EQ(bits.U(8), 0x10u) << "constraint_set3_flag: intra only";
    EXPECT_EQ(bits.U(8), cell.level);
    EXPECT_EQ(bits.UE(), 0u) << "seq_parameter_set_id";
    EXPECT_EQ(bits.UE(), type.chroma);
    EXPECT_EQ(bits.UE(), 2u) << "10 bits of luma";
    EXPECT_EQ(bits.UE(), 2u) << "10 bits of chroma";
    EXPECT_EQ(bits.U(1), 0u) << "qpprime_y_zero_transform_bypass_flag";
    ASSERT_EQ(bits.U(1), 1u) << "seq_scaling_matrix_present_flag";
    for (uint32_t list = 0; list < 8; ++list) {
        const bool present = bits.U(1) != 0;
        EXPECT_EQ(present, list == 1 || list == 2 || list == 6) << list;
        if (!present) continue;
        for (int32_t k = 0, scale = 8; k < (list < 6 ? 16 : 64); ++k) {
            scale += bits.SE();
            ASSERT_TRUE(scale > 0 && scale < 256) << list << " " << k;
            if (k == 0) {
                EXPECT_EQ(scale, 16) << list;
            }
        }
    }
    EXPECT_EQ(bits.UE(), 0u) << "log2_max_frame_num_minus4";
    EXPECT_EQ(bits.UE(), 0u) << "pic_order_cnt_type";
    EXPECT_EQ(bits.UE(), 0u) << "log2_max_pic_order_cnt_lsb_minus4";
    EXPECT_EQ(bits.UE(), 0u) << "max_num_ref_frames";
    EXPECT_EQ(bits.U(1), 0u) << "gaps_in_frame_num_value_allowed_flag";
    const uint32_t width = 16 * (bits.UE() + 1);
    const uint32_t mapUnits = bits.UE() + 1;
    const bool frameMbsOnly = bits.U(1) != 0;
    EXPECT_EQ(frameMbsOnly, standard.progressive);
    if (!frameMbsOnly) {
        EXPECT_EQ(bits.U(1), 1u) << "mb_adaptive_frame_field_flag";
    }
    EXPECT_EQ(bits.U(1), 1u) << "direct_8x8_inference_flag";
    uint32_t cropLeft = 0, cropRight = 0, cropTop = 0, cropBottom = 0;
    if (bits.U(1) != 0) {
        cropLeft = bits.UE();
        cropRight = bits.UE();
        cropTop = bits.UE();
        cropBottom = bits.UE();
    }
    const uint32_t lines = frameMbsOnly ? 1 : 2;  // of the frame in one line of a field or frame
    const uint32_t cropUnit = (type.chroma == 1 ? 2 : 1) * lines;
    EXPECT_EQ(cropLeft + cropRight + cropTop, 0u);
    EXPECT_EQ(width, type.width);
    EXPECT_EQ(16 * mapUnits * lines - cropBottom * cropUnit, type.height);
    ASSERT_EQ(bits.U(1), 1u) << "vui_parameters_present_flag";
    ASSERT_EQ(bits.U(1), 1u) << "aspect_ratio_info_present_flag";
    EXPECT_EQ(bits.U(8), type.aspect);
    EXPECT_EQ(bits.U(1), 0u) << "overscan_info_present_flag";
    ASSERT_EQ(bits.U(1), 1u) << "video_signal_type_present_flag";
    EXPECT_EQ(bits.U(3), 5u) << "video_format unspecified";
    EXPECT_EQ(bits.U(1), 0u) << "video_full_range_flag";
    ASSERT_EQ(bits.U(1), 1u) << "colour_description_present_flag";
    EXPECT_EQ(bits.U(24), 0x010101u) << "ITU-R BT.709";
    EXPECT_EQ(bits.U(1), 0u) << "chroma_loc_info_present_flag";
    ASSERT_EQ(bits.U(1), 1u) << "timing_info_present_flag";
    EXPECT_EQ(bits.U(32), standard.unitsInTick);
    EXPECT_EQ(bits.U(32), standard.timeScale);
    EXPECT_EQ(bits.U(1), 1u) << "fixed_frame_rate_flag";
    EXPECT_EQ(bits.U(4), 0u) << "no HRD, pic_struct or bitstream restriction";
    EXPECT_TRUE(bits.AtTrailingBits());
}

TEST(AVCIHeader, HasTheParameterSetOfItsStandardAndType) {
    static_assert(std::size(kCells) == 42);
    std::vector<uint32_t> blocks;
    for (const Cell& cell : kCells) {
        SCOPED_TRACE(testing::Message() << std::hex << cell.standard << " " << cell.type);
        const Header header = Get(cell.standard, cell.type);
        EXPECT_TRUE(header.result);
        const Bytes block = Part(header.bytes, 0, 96);
        if (cell.level == 0) {
            EXPECT_EQ(block, Bytes(96));
            continue;
        }
        EXPECT_EQ(Checksum(block), cell.checksum);
        EXPECT_EQ(block[13], cell.level);
        ExpectParameterSet(cell, block);
        blocks.push_back(cell.checksum);
    }
    std::sort(blocks.begin(), blocks.end());
    blocks.erase(std::unique(blocks.begin(), blocks.end()), blocks.end());
    EXPECT_EQ(blocks.size(), 26u) << "different parameter sets";
}

TEST(AVCIHeader, HasThePictureParameterSetOfItsTypeAndZerosElsewhere) {
    for (const Cell& cell : kCells) {
        const Header header = Get(cell.standard, cell.type);
        EXPECT_TRUE(SameBytes(Hex(TypeOf(cell).pps), Part(header.bytes, 256, 9)));
        EXPECT_EQ(Part(header.bytes, 96, 160), Bytes(160));
        EXPECT_EQ(Part(header.bytes, 265, 247), Bytes(247));
    }
}

TEST(AVCIHeader, OfClass100At1080InterlacedIsThis) {
    Bytes expected = Hex(R"(
        00 00 00 01 09 10                                # access unit delimiter
        00 00 00 01 67 7A 10 29                          # sequence parameter set: High 4:2:2 Intra, level 4.1
        B6 D4
        20 22 33 19 C6 63 23 21 01 11 98 CE 33 19 18 21
        03 3A 46 65 6A 65 24 AD E9 12 32 14 1A 26 34 AD
        A4 41 82 23 01 50 2B 1A 24 69 48 30 40 2E 11 12
        08 C6 8C 04 41 28 4C 34 F0 1E 01 13 F2 E0 2D 40
        40 40 50 00 00 3E 90 00 0E A6 08 40)");
    expected.resize(256);
    const Bytes pps = Hex("00 00 00 01 68 CE 33 48 D0");
    expected.insert(expected.end(), pps.begin(), pps.end());
    expected.resize(512);
    const Header header = Get(0x0100007C, 0xCD00);
    EXPECT_TRUE(header.result);
    EXPECT_TRUE(SameBytes(expected, header.bytes));
}

TEST(AVCIHeader, Of720LinesInterlacedHasNoSequenceParameterSet) {
    const Header header = Get(0x0100007C, 0xCA00);
    EXPECT_TRUE(header.result);
    EXPECT_EQ(Part(header.bytes, 0, 256), Bytes(256));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 01 68 EE 31 12 11"), Part(header.bytes, 256, 9)));
}

TEST(AVCIHeader, OfOtherH264TypesIsZero) {
    for (const Standard& standard : kStandards)
        for (const uint32_t type : {0x0400C100u, 0x0400C200u, 0x0C00C100u, 0x0C00C200u, 0x1000C100u, 0x1000C200u,
                                    0x2000C100u, 0x2000C200u, 0xC000u, 0xC100u, 0x1FFFFu, 0xFFFFFFFFu}) {
            const Header header = Get(standard.standard, type);
            EXPECT_TRUE(header.result) << type;
            EXPECT_EQ(header.bytes, Bytes(512)) << type;
        }
}

TEST(AVCIHeader, OfAnUnknownStandardIsZeroAndRefused) {
    for (const uint32_t standard : {0u, 0x0100005Eu, 0x0200007Du, 0xFFFFFFFFu})
        for (const uint32_t type : {0xC900u, 0xD200u, 0x0400C100u}) {
            const Header header = Get(standard, type);
            EXPECT_FALSE(header.result);
            EXPECT_EQ(header.bytes, Bytes(512));
        }
}

TEST(AVCIHeader, OfAnyOtherTypeIsRefusedAndLeavesTheBuffer) {
    for (const uint32_t type : {0u, 0x0400u, 0x4800u, 0x4D00u, 0x4E00u, 0x8000u, 0x8900u, 0xFFFF3FFFu}) {
        const Header header = Get(0x0100007C, type);
        EXPECT_FALSE(header.result) << type;
        EXPECT_EQ(header.bytes, Bytes(512, 0xEE)) << type;
    }
    EXPECT_FALSE(GetAVCIHeader(0x0100007C, 0xCD00, nullptr));
}

}  // namespace
}  // namespace kmxf
