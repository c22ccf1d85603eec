#include <gtest/gtest.h>

#include <string>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Descriptors.h"
#include "structures/Serialised.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

// What a format decides, as hex.
struct Format {
    uint32_t compType, videoStd;
    std::string profile, level, bitRate;
};

// A whole sub-descriptor, whose InstanceUID is the first that a fixed environment makes.
std::vector<uint8_t> SubDescriptor(const std::string& structure, const std::string& endOfStructure,
                                   const std::string& constraint, const Format& format) {
    return Hex(
        "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 6E 00  83 00 00 67"
        "3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01"
        "90 02 00 01 00"
        "90 03 00 01 00" +
        structure + "90 08 00 04" + format.bitRate + "90 09 00 01" + format.profile + "90 0A 00 01" + constraint +
        "90 0B 00 01" + format.level + endOfStructure +
        "90 0E 00 01 30"
        "90 0F 00 01 30"
        "90 14 00 04" +
        format.bitRate);
}
// Closed and identical GOP, GOP size, B pictures; decoding delay, reference frames.
std::vector<uint8_t> LongGOP(const Format& format) {
    return SubDescriptor("90 04 00 01 00  90 05 00 01 00  90 06 00 02 00 00  90 07 00 02 00 04",
                         "90 0C 00 01 02  90 0D 00 01 02", "00", format);
}
std::vector<uint8_t> Intra(const Format& format) {
    return SubDescriptor("90 04 00 01 01  90 05 00 01 01  90 06 00 02 00 01  90 07 00 02 00 00",
                         "90 0C 00 01 00  90 0D 00 01 00", "10", format);
}

void ExpectSubDescriptor(const std::vector<uint8_t>& expected, uint32_t videoStd, uint32_t compType) {
    const FixedEnvironment environment;
    CH264EssenceSubDescriptor descriptor(videoStd, compType);
    EXPECT_EQ(descriptor.GetLength(), 123u);
    EXPECT_TRUE(SameBytes(expected, Serialised(descriptor))) << std::hex << compType << ' ' << videoStd;
}

TEST(H264EssenceSubDescriptor, WholeSetOfLongGOP25At2997p) {
    ExpectSubDescriptor(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 6E 00  83 00 00 67
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        90 02 00 01  00
        90 03 00 01  00
        90 04 00 01  00
        90 05 00 01  00
        90 06 00 02  00 00
        90 07 00 02  00 04
        90 08 00 04  01 7D 78 40
        90 09 00 01  7A
        90 0A 00 01  00
        90 0B 00 01  28
        90 0C 00 01  02
        90 0D 00 01  02
        90 0E 00 01  30
        90 0F 00 01  30
        90 14 00 04  01 7D 78 40)"),
                        0x0200005E, 0x1000C100);
}

TEST(H264EssenceSubDescriptor, LongGOPOf1080LinesHasTwiceTheBitRateAt5994pAnd50p) {
    struct Class {
        uint32_t compType;
        std::string profile, bitRate, doubled;
    };
    for (const Class& c :
         {Class{0x0400C100, "64", "00 5B 8D 80", "00 B7 1B 00"}, Class{0x0C00C100, "64", "00 B7 1B 00", "01 6E 36 00"},
          Class{0x1000C100, "7A", "01 7D 78 40", "02 FA F0 80"},
          Class{0x2000C100, "7A", "02 FA F0 80", "05 F5 E1 00"}}) {
        for (const uint32_t videoStd : {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x02000099u})
            ExpectSubDescriptor(LongGOP({c.compType, videoStd, c.profile, "28", c.bitRate}), videoStd, c.compType);
        for (const uint32_t videoStd : {0x0200007Cu, 0x020000B2u})
            ExpectSubDescriptor(LongGOP({c.compType, videoStd, c.profile, "2A", c.doubled}), videoStd, c.compType);
    }
}

TEST(H264EssenceSubDescriptor, LongGOPOf720LinesHasOneBitRateAtEveryStandard) {
    struct Class {
        uint32_t compType;
        std::string profile, bitRate;
    };
    for (const Class& c : {Class{0x0400C200, "64", "00 5B 8D 80"}, Class{0x0C00C200, "64", "00 B7 1B 00"},
                           Class{0x1000C200, "7A", "01 7D 78 40"}, Class{0x2000C200, "7A", "02 FA F0 80"}}) {
        for (const uint32_t videoStd :
             {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x0200007Cu, 0x02000099u, 0x020000B2u})
            ExpectSubDescriptor(LongGOP({c.compType, videoStd, c.profile, "20", c.bitRate}), videoStd, c.compType);
    }
}

// clang-format off
const Format kIntraFormats[] = {
    {0xC900, 0x0100007C, "6E", "28", "03 52 66 4C"},
    {0xC900, 0x010000B2, "6E", "28", "03 58 40 00"},
    {0xC900, 0x02000058, "6E", "28", "02 A8 51 D7"},
    {0xC900, 0x0200005E, "6E", "28", "03 52 66 4C"},
    {0xC900, 0x0200007C, "6E", "2A", "06 A4 CC 98"},
    {0xC900, 0x02000099, "6E", "28", "03 58 40 00"},
    {0xC900, 0x020000B2, "6E", "2A", "06 B0 80 00"},
    {0xCA00, 0x02000058, "6E", "20", "01 54 28 EB"},
    {0xCA00, 0x0200005E, "6E", "20", "01 A9 33 26"},
    {0xCA00, 0x0200007C, "6E", "20", "03 52 66 4C"},
    {0xCA00, 0x02000099, "6E", "20", "01 AC 20 00"},
    {0xCA00, 0x020000B2, "6E", "20", "03 58 40 00"},
    {0xCD00, 0x0100007C, "7A", "29", "06 BF 05 E2"},
    {0xCD00, 0x010000B2, "7A", "29", "06 C6 60 00"},
    {0xCD00, 0x02000058, "7A", "29", "05 65 9E 4E"},
    {0xCD00, 0x0200005E, "7A", "29", "06 BF 05 E2"},
    {0xCD00, 0x0200007C, "7A", "2A", "0D 7E 0B C4"},
    {0xCD00, 0x02000099, "7A", "29", "06 C6 60 00"},
    {0xCD00, 0x020000B2, "7A", "2A", "0D 8C C0 00"},
    {0xCE00, 0x02000058, "7A", "29", "02 B2 CF 27"},
    {0xCE00, 0x0200005E, "7A", "29", "03 5F 82 F1"},
    {0xCE00, 0x0200007C, "7A", "2A", "06 BF 05 E2"},
    {0xCE00, 0x02000099, "7A", "29", "03 63 30 00"},
    {0xCE00, 0x020000B2, "7A", "2A", "06 C6 60 00"},
    {0xD100, 0x0100007C, "7A", "29", "0D 9C 04 18"},
    {0xD100, 0x010000B2, "7A", "29", "0D A2 A0 00"},
    {0xD100, 0x02000058, "7A", "29", "0A E3 36 79"},
    {0xD100, 0x0200005E, "7A", "29", "0D 9C 04 18"},
    {0xD100, 0x0200007C, "7A", "32", "1B 38 08 2F"},
    {0xD100, 0x02000099, "7A", "29", "0D A2 A0 00"},
    {0xD100, 0x020000B2, "7A", "32", "1B 45 40 00"},
    {0xD200, 0x02000058, "7A", "29", "05 71 9B 3D"},
    {0xD200, 0x0200005E, "7A", "29", "06 CE 02 0C"},
    {0xD200, 0x0200007C, "7A", "2A", "0D 9C 04 18"},
    {0xD200, 0x02000099, "7A", "29", "06 D1 50 00"},
    {0xD200, 0x020000B2, "7A", "2A", "0D A2 A0 00"},
};
// clang-format on

TEST(H264EssenceSubDescriptor, AVCIntraHasTheBitRateOfItsFrames) {
    for (const Format& format : kIntraFormats) ExpectSubDescriptor(Intra(format), format.videoStd, format.compType);
}

TEST(H264EssenceSubDescriptor, OtherFormatsLeaveTheValuesOfConstruction) {
    const auto construction = LongGOP({0, 0, "7A", "1E", "01 7D 78 40"});
    for (const uint32_t videoStd : {0x0100007Cu, 0x010000B2u}) {
        for (const uint32_t compType : {0xCA00u, 0xCE00u, 0xD200u})
            ExpectSubDescriptor(construction, videoStd, compType);
    }
    for (const uint32_t compType : {0u, 0x0400u, 0x4D00u, 0xC100u, 0xC200u, 0x1FFFFu, 0x0800C100u})
        ExpectSubDescriptor(construction, 0x02000099, compType);
    for (const uint32_t videoStd : {0u, 0x01000000u, 0xFFFFFFFFu}) {
        for (const uint32_t compType : {0xC900u, 0x1000C100u, 0x2000C200u})
            ExpectSubDescriptor(construction, videoStd, compType);
    }
}

TEST(H264EssenceSubDescriptor, EveryItemHasASetter) {
    const FixedEnvironment environment;
    CH264EssenceSubDescriptor descriptor(0, 0);
    EXPECT_EQ(descriptor.SetConstantBPictureFlag(0x01), kStatusOk);
    EXPECT_EQ(descriptor.SetCodedContentKind(0x02), kStatusOk);
    EXPECT_EQ(descriptor.SetClosedGOPIndicator(0x03), kStatusOk);
    EXPECT_EQ(descriptor.SetIdenticalGOPIndicator(0x04), kStatusOk);
    EXPECT_EQ(descriptor.SetMaximumGOPSize(0x0506), kStatusOk);
    EXPECT_EQ(descriptor.SetMaximumBPictureCount(0x0708), kStatusOk);
    EXPECT_EQ(descriptor.SetMaximumBitRate(0x090A0B0C), kStatusOk);
    EXPECT_EQ(descriptor.SetProfile(0x0D), kStatusOk);
    EXPECT_EQ(descriptor.SetProfileConstraint(0x0E), kStatusOk);
    EXPECT_EQ(descriptor.SetLevel(0x0F), kStatusOk);
    EXPECT_EQ(descriptor.SetDecodingDelay(0x10), kStatusOk);
    EXPECT_EQ(descriptor.SetMaximumReferenceFrames(0x11), kStatusOk);
    EXPECT_EQ(descriptor.SetSequenceParameterSetFlag(0x12), kStatusOk);
    EXPECT_EQ(descriptor.SetPictureParameterSetFlag(0x13), kStatusOk);
    EXPECT_EQ(descriptor.SetAverageBitRate(0x14151617), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 6E 00  83 00 00 67
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        90 02 00 01  01
        90 03 00 01  02
        90 04 00 01  03
        90 05 00 01  04
        90 06 00 02  05 06
        90 07 00 02  07 08
        90 08 00 04  09 0A 0B 0C
        90 09 00 01  0D
        90 0A 00 01  0E
        90 0B 00 01  0F
        90 0C 00 01  10
        90 0D 00 01  11
        90 0E 00 01  12
        90 0F 00 01  13
        90 14 00 04  14 15 16 17)"),
                          Serialised(descriptor)));
}

TEST(H264EssenceSubDescriptor, NullPointerIsRefused) {
    EXPECT_EQ(CH264EssenceSubDescriptor(0, 0).GetData(nullptr), kStatusInvalidArgument);
}

}  // namespace
}  // namespace kmxf::test
