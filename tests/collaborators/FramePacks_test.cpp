#include "collaborators/FramePacks.h"

#include <gtest/gtest.h>

#include "collaborators/Given.h"
#include "support/Hex.h"

namespace kmxf::test {

namespace {

const Bytes kBasic =
    Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00"
        "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10");

Bytes Found(const Bytes& bytes) {
    const auto umid = FindUMID(bytes);
    return umid ? Bytes(umid->begin(), umid->end()) : Bytes();
}

}  // namespace

TEST(FramePacks, TimecodeIsATimeOfDay) {
    const std::optional<PackData> kLast(PackData{0x29, 0x59, 0x59, 0x23});
    EXPECT_EQ(CheckedTimecode({0x29, 0x59, 0x59, 0x23}), kLast);
    EXPECT_EQ(CheckedTimecode({0x00, 0x00, 0x00, 0x00}), (std::optional(PackData{0x00, 0x00, 0x00, 0x00})));
    // Flags stand in the bits above the tens and are kept.
    EXPECT_EQ(CheckedTimecode({0xE9, 0xD9, 0xD9, 0xE3}), (std::optional(PackData{0xE9, 0xD9, 0xD9, 0xE3})));
    for (const PackData& data : {PackData{0x30, 0x00, 0x00, 0x00},
                                 {0x00, 0x60, 0x00, 0x00},
                                 {0x00, 0x00, 0x60, 0x00},
                                 {0x00, 0x00, 0x00, 0x24},
                                 {0x0A, 0x00, 0x00, 0x00},
                                 {0x00, 0x0F, 0x00, 0x00},
                                 {0x00, 0x00, 0x1A, 0x00},
                                 {0x00, 0x00, 0x00, 0x0C},
                                 {0xFF, 0xFF, 0xFF, 0xFF}})
        EXPECT_EQ(CheckedTimecode(data), std::nullopt) << static_cast<int>(data[0]);
}

TEST(FramePacks, TimecodeIsPackedInBCD) {
    EXPECT_EQ(PackTimecode({25, 59, 4, 3}, true), (std::optional(PackData{0x65, 0x59, 0x04, 0x03})));
    EXPECT_EQ(PackTimecode({29, 59, 59, 23}, false), (std::optional(PackData{0x29, 0x59, 0x59, 0x23})));
    EXPECT_EQ(PackTimecode({30, 0, 0, 0}, false), std::nullopt);
    EXPECT_EQ(PackTimecode({0, 60, 0, 0}, false), std::nullopt);
    EXPECT_EQ(PackTimecode({0, 0, 60, 0}, false), std::nullopt);
    EXPECT_EQ(PackTimecode({0, 0, 0, 24}, false), std::nullopt);
    EXPECT_EQ(PackTimecode({0, 0, 0xFFFFFFFF, 0}, false), std::nullopt);
}

TEST(FramePacks, UMIDIsFoundAnywhere) {
    Bytes expected = kBasic;
    expected.resize(64, 0x00);
    for (const size_t before : {0u, 1u, 31u}) {
        Bytes bytes(before, 0x06);  // the label's first byte
        bytes.insert(bytes.end(), kBasic.begin(), kBasic.end());
        EXPECT_EQ(Found(bytes), expected);
    }
    EXPECT_EQ(Found({}), Bytes());
    EXPECT_EQ(Found(Bytes(100, 0x06)), Bytes());
}

TEST(FramePacks, UMIDCutShortIsNone) {
    for (size_t size = 0; size < 32; ++size) EXPECT_EQ(Found(Part(kBasic, 0, size)), Bytes()) << size;
    Bytes extended = kBasic;
    extended[12] = 0x33;
    for (size_t size = 32; size < 64; ++size) {
        extended.resize(size, 0x55);
        EXPECT_EQ(Found(extended), Bytes()) << size;
    }
    extended.resize(64, 0x55);
    EXPECT_EQ(Found(extended), extended);
}

TEST(FramePacks, WholeUMIDBehindACutOneIsFound) {
    Bytes bytes = kBasic;  // says that it is extended, and is not
    bytes[12] = 0x33;
    bytes.resize(20);
    bytes.insert(bytes.end(), kBasic.begin(), kBasic.end());
    Bytes expected = kBasic;
    expected.resize(64, 0x00);
    EXPECT_EQ(Found(bytes), expected);
}

TEST(FramePacks, PacksGiveTheirUMIDInOrder) {
    std::vector<FramePack> packs;
    for (size_t i = 0; i < 32; i += 4) {
        packs.push_back({0x70, {kBasic[i], kBasic[i + 1], kBasic[i + 2], kBasic[i + 3]}});
        packs.push_back({0xFF, {0xFF, 0xFF, 0xFF, 0xFF}});  // no pack
        packs.push_back({0x51, {0x01, 0x02, 0x03, 0x04}});  // a known one
    }
    const auto umid = FindUMID(packs);
    ASSERT_TRUE(umid);
    EXPECT_EQ(Bytes(umid->begin(), umid->begin() + 32), kBasic);
    EXPECT_EQ(Bytes(umid->begin() + 32, umid->end()), Bytes(32, 0x00));
    packs.pop_back();
    packs.pop_back();
    packs.pop_back();
    EXPECT_FALSE(FindUMID(packs));
    EXPECT_FALSE(FindUMID(std::vector<FramePack>()));
}

}  // namespace kmxf::test
