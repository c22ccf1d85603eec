#include "kmxf/structures/Descriptors.h"

#include <gtest/gtest.h>

#include <string>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/FilledRecords.h"
#include "structures/PictureDescriptor.h"
#include "structures/Serialised.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

const std::string kZeroLabel = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

struct Standard {
    uint32_t code;
    std::string rate;
};
const Standard k5994I = {0x0100007C, k30000}, k50I = {0x010000B2, k25};
const Standard k2398P = {0x02000058, k24000}, k2997P = {0x0200005E, k30000}, k5994P = {0x0200007C, k60000};
const Standard k25P = {0x02000099, k25}, k50P = {0x020000B2, k50};
const std::vector<Standard> kInterlaced = {k5994I, k50I};
const std::vector<Standard> kProgressive = {k2398P, k2997P, k5994P, k25P, k50P};
const std::vector<Standard> kAll = {k5994I, k50I, k2398P, k2997P, k5994P, k25P, k50P};

const std::string kFrames = "00", kFields = "01";
const std::string k4 = "00 00 00 04";
const std::string k8Bits = "00 00 00 08", k10Bits = "00 00 00 0A";
const std::string k240 = "00 00 00 F0", k288 = "00 00 01 20";
const std::string k4To3 = "00 00 00 04 00 00 00 03", k16To9 = "00 00 00 10 00 00 00 09";
const std::string kLines23And285 = "00 00 00 17 00 00 01 1D", kLines23And335 = "00 00 00 17 00 00 01 4F";

std::string DVContainer(const std::string& byte) { return "06 0E 2B 34 04 01 01 01 0D 01 03 01 02 02" + byte + "02"; }
std::string DVCoding(const std::string& secondHalfEnd) {
    return "06 0E 2B 34 04 01 01 01 04 01 02 02 02" + secondHalfEnd;
}
const std::string kLongGOPContainer = "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01";
const std::string kHigh422 = "06 0E 2B 34 04 01 01 0D 04 01 02 02 01 31 60 01";
const std::string kHigh = "06 0E 2B 34 04 01 01 0D 04 01 02 02 01 31 40 01";

// What a descriptor says of a format that it does not describe.
PictureItems Construction(const std::string& container) {
    return {
        "00 00 00 00 00 00 00 00", container, kZeroLabel, kFields, k720, k240, k4To3, kLines23And285, k8Bits, k4, k1};
}

void ExpectPicture(uint32_t videoStd, uint32_t compType, bool consumerDV, const PictureItems& items) {
    const FixedEnvironment environment;
    CCDCIEssenceDescriptor descriptor(videoStd, compType, consumerDV);
    EXPECT_EQ(descriptor.GetLength(), 201u);
    EXPECT_TRUE(SameBytes(PictureDescriptor("28", items), Serialised(descriptor)))
        << std::hex << videoStd << ' ' << compType;
}

TEST(Descriptors, WholePictureDescriptorOfDV25At50i) {
    const FixedEnvironment environment;
    CCDCIEssenceDescriptor descriptor(VIDEO_STD_50I, COMP_TYPE_DV25, false);
    EXPECT_EQ(descriptor.GetLength(), 201u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 28 00  83 00 00 B5
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        30 06 00 04  00 00 00 00
        30 01 00 08  00 00 00 19 00 00 00 01
        30 02 00 08  00 00 00 00 00 00 00 00
        30 04 00 10  06 0E 2B 34 04 01 01 01 0D 01 03 01 02 02 41 02
        32 01 00 10  06 0E 2B 34 04 01 01 01 04 01 02 02 02 02 02 00
        32 0C 00 01  01
        32 03 00 04  00 00 02 D0
        32 02 00 04  00 00 01 20
        32 0E 00 08  00 00 00 04 00 00 00 03
        32 0D 00 10  00 00 00 02 00 00 00 04 00 00 00 17 00 00 01 4F
        33 01 00 04  00 00 00 08
        33 02 00 04  00 00 00 04
        33 08 00 04  00 00 00 01
        90 01 00 08  00 00 00 00 00 00 00 10)"),
                          Serialised(descriptor)));
}

TEST(Descriptors, PicturesOfStandardDefinitionDV) {
    ExpectPicture(
        0x0100007C, 0x0400, false,
        {k30000, DVContainer("40"), DVCoding("02 01 00"), kFields, k720, k240, k4To3, kLines23And285, k8Bits, k4, k1});
    ExpectPicture(
        0x010000B2, 0x0400, false,
        {k25, DVContainer("41"), DVCoding("02 02 00"), kFields, k720, k288, k4To3, kLines23And335, k8Bits, k4, k1});
    for (const bool consumerDV : {false, true}) {
        ExpectPicture(0x0100007C, 0x4800, consumerDV,
                      {k30000, DVContainer("50"), DVCoding("02 03 00"), kFields, k720, k240, k4To3, kLines23And285,
                       k8Bits, k2, k1});
        ExpectPicture(
            0x010000B2, 0x4800, consumerDV,
            {k25, DVContainer("51"), DVCoding("02 04 00"), kFields, k720, k288, k4To3, kLines23And335, k8Bits, k2, k1});
    }
}

TEST(Descriptors, PicturesOfConsumerDVHaveTheirOwnCodingAndAt50iSubsampling) {
    ExpectPicture(
        0x0100007C, 0x0400, true,
        {k30000, DVContainer("01"), DVCoding("01 01 00"), kFields, k720, k240, k4To3, kLines23And285, k8Bits, k4, k1});
    ExpectPicture(
        0x010000B2, 0x0400, true,
        {k25, DVContainer("02"), DVCoding("01 02 00"), kFields, k720, k288, k4To3, kLines23And335, k8Bits, k2, k2});
}

TEST(Descriptors, PicturesOfHighDefinitionDV) {
    for (const bool consumerDV : {false, true}) {
        ExpectPicture(0x0100007C, 0x4D00, consumerDV,
                      {k30000, DVContainer("60"), DVCoding("02 05 00"), kFields, k1920, k540, k16To9, kLines21And584,
                       k10Bits, k2, k1});
        ExpectPicture(0x010000B2, 0x4D00, consumerDV,
                      {k25, DVContainer("61"), DVCoding("02 06 00"), kFields, k1920, k540, k16To9, kLines21And584,
                       k10Bits, k2, k1});
        for (const Standard& standard : {k2398P, k2997P, k5994P})
            ExpectPicture(standard.code, 0x4E00, consumerDV,
                          {standard.rate, DVContainer("62"), DVCoding("02 07 00"), kFrames, k1280, k720, k16To9,
                           kLines26, k10Bits, k2, k1});
        for (const Standard& standard : {k25P, k50P})
            ExpectPicture(standard.code, 0x4E00, consumerDV,
                          {standard.rate, DVContainer("63"), DVCoding("02 08 00"), kFrames, k1280, k720, k16To9,
                           kLines26, k10Bits, k2, k1});
    }
}

// Of 1080 and of 720 lines, at every standard. That the material is of consumer DV is nothing to them.
void ExpectLongGOP(std::initializer_list<uint32_t> bitRates, const std::string& coding, const std::string& depth,
                   const std::string& verticalSubsampling) {
    const auto expect = [&](uint32_t compType, const std::vector<Standard>& standards, const std::string& layout,
                            const std::string& width, const std::string& height, const std::string& lines) {
        for (const Standard& standard : standards) {
            for (const bool consumerDV : {false, true})
                ExpectPicture(standard.code, compType, consumerDV,
                              {standard.rate, kLongGOPContainer, coding, layout, width, height, k16To9, lines, depth,
                               k2, verticalSubsampling});
        }
    };
    for (const uint32_t bitRate : bitRates) {
        expect(bitRate | 0xC100, kInterlaced, kFields, k1920, k540, kLines21And584);
        expect(bitRate | 0xC100, kProgressive, kFrames, k1920, k1080, kLines42);
        expect(bitRate | 0xC200, kAll, kFrames, k1280, k720, kLines26);
    }
}

TEST(Descriptors, PicturesOfLongGOPAt25And50MegabitsAre422Of10Bits) {
    ExpectLongGOP({0x10000000, 0x20000000}, kHigh422, k10Bits, k1);
}

TEST(Descriptors, PicturesOfLongGOPAt6And12MegabitsAre420Of8Bits) {
    ExpectLongGOP({0x04000000, 0x0C000000}, kHigh, k8Bits, k2);
}

TEST(Descriptors, FormatsThatAreNotDescribedLeaveTheValuesOfConstruction) {
    const std::string kAVCIntraContainer = "06 0E 2B 34 04 01 01 01 0D 01 03 01 02 10 60 02";
    for (const Standard& standard : kProgressive) {
        for (const uint32_t compType : {0x0400u, 0x4800u, 0x4D00u})
            ExpectPicture(standard.code, compType, false, Construction(kZeroLabel));
    }
    for (const Standard& standard : kInterlaced) ExpectPicture(standard.code, 0x4E00, false, Construction(kZeroLabel));
    for (const Standard& standard : kAll) {
        for (const uint32_t compType : {0xC900u, 0xCA00u, 0xCD00u, 0xCE00u, 0xD100u, 0xD200u})
            ExpectPicture(standard.code, compType, false, Construction(kAVCIntraContainer));
        for (const uint32_t compType : {0u, 0x1FFFFu, 0xC100u, 0x4900u, 0x0800C100u})
            ExpectPicture(standard.code, compType, false, Construction(kZeroLabel));
    }
    for (const uint32_t videoStd : {0u, 0x01000000u, 0x02000059u, 0xFFFFFFFFu}) {
        ExpectPicture(videoStd, 0x0400, false, Construction(kZeroLabel));
        ExpectPicture(videoStd, 0x2000C100, false, Construction(kLongGOPContainer));
        ExpectPicture(videoStd, 0x2000C200, false, Construction(kLongGOPContainer));
    }
}

TEST(Descriptors, FormatIsReplacedOrKeptAsAWhole) {
    const FixedEnvironment environment;
    CCDCIEssenceDescriptor descriptor(VIDEO_STD_59_94I, COMP_TYPE_DV25, false);
    EXPECT_EQ(descriptor.SetVideoFormat(VIDEO_STD_50P, COMP_TYPE_DV100_720P, false), kStatusOk);
    const auto expected = PictureDescriptor(
        "28", {k50, DVContainer("40"), DVCoding("02 08 00"), kFrames, k1280, k720, k16To9, kLines26, k10Bits, k2, k1});
    EXPECT_TRUE(SameBytes(expected, Serialised(descriptor)));
    EXPECT_EQ(descriptor.SetVideoFormat(VIDEO_STD_50I, COMP_TYPE_DV100_720P, false), kStatusInvalidArgument);
    EXPECT_EQ(descriptor.SetVideoFormat(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080, false), kStatusInvalidArgument);
    EXPECT_EQ(descriptor.SetVideoFormat(0, COMP_TYPE_DV25, true), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(expected, Serialised(descriptor)));
}

TEST(Descriptors, EveryItemOfAPictureDescriptorHasASetter) {
    const FixedEnvironment environment;
    CCDCIEssenceDescriptor descriptor(0, 0, false);
    EXPECT_EQ(descriptor.SetLinkedTrackID(0x01020304), kStatusOk);
    EXPECT_EQ(descriptor.SetSampleRate({0x11121314, 0x15161718}), kStatusOk);
    EXPECT_EQ(descriptor.SetContainerDuration(0x2122232425262728), kStatusOk);
    EXPECT_EQ(descriptor.SetEssenceContainer(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(descriptor.SetPictureEssenceCoding(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(descriptor.SetFrameLayout(0x31), kStatusOk);
    EXPECT_EQ(descriptor.SetStoredWidth(0x41424344), kStatusOk);
    EXPECT_EQ(descriptor.SetStoredHeight(0x51525354), kStatusOk);
    EXPECT_EQ(descriptor.SetAspectRatio({16, 9}), kStatusOk);
    EXPECT_EQ(descriptor.SetVideoLineMap(0x61626364, 0x65666768), kStatusOk);
    EXPECT_EQ(descriptor.SetComponentDepth(0x71727374), kStatusOk);
    EXPECT_EQ(descriptor.SetHorizontalSubsampling(0x01121314), kStatusOk);
    EXPECT_EQ(descriptor.SetVerticalSubsampling(0x21222324), kStatusOk);
    EXPECT_EQ(descriptor.AddSubDescriptor(KeyOf(0xA3)), kStatusOk);
    EXPECT_EQ(descriptor.GetLength(), 217u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 28 00  83 00 00 C5
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        30 06 00 04  01 02 03 04
        30 01 00 08  11 12 13 14 15 16 17 18
        30 02 00 08  21 22 23 24 25 26 27 28
        30 04 00 10  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        32 01 00 10  A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2
        32 0C 00 01  31
        32 03 00 04  41 42 43 44
        32 02 00 04  51 52 53 54
        32 0E 00 08  00 00 00 10 00 00 00 09
        32 0D 00 10  00 00 00 02 00 00 00 04 61 62 63 64 65 66 67 68
        33 01 00 04  71 72 73 74
        33 02 00 04  01 12 13 14
        33 08 00 04  21 22 23 24
        90 01 00 18  00 00 00 01 00 00 00 10  A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3)"),
                          Serialised(descriptor)));
}

TEST(Descriptors, MPEGDescriptorHasTheSameItemsUnderItsOwnKey) {
    const FixedEnvironment environment;
    CMPEGEssenceDescriptor descriptor(VIDEO_STD_50P, COMP_TYPE_LONGG50_1080);
    EXPECT_EQ(descriptor.GetLength(), 201u);
    EXPECT_TRUE(SameBytes(PictureDescriptor("51", {k50, kLongGOPContainer, kHigh422, kFrames, k1920, k1080, k16To9,
                                                   kLines42, k10Bits, k2, k1}),
                          Serialised(descriptor)));
}

TEST(Descriptors, MPEGDescriptorLeavesAVCIntraPicturesToTheirBuilder) {
    const FixedEnvironment environment;
    CMPEGEssenceDescriptor descriptor(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080);
    EXPECT_TRUE(SameBytes(PictureDescriptor("51", Construction("06 0E 2B 34 04 01 01 01 0D 01 03 01 02 10 60 02")),
                          Serialised(descriptor)));
}

TEST(Descriptors, FreshAES3DescriptorIs159Bytes) {
    const FixedEnvironment environment;
    CAESEssenceDescriptor descriptor;
    EXPECT_EQ(descriptor.GetLength(), 159u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 47 00  83 00 00 8B
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        30 06 00 04  00 00 00 00
        30 01 00 08  00 00 BB 80 00 00 00 01
        30 02 00 08  00 00 00 00 00 00 00 00
        30 04 00 10  06 0E 2B 34 04 01 01 01 0D 01 03 01 02 06 04 00
        3D 03 00 08  00 00 BB 80 00 00 00 01
        3D 02 00 01  01
        3D 07 00 04  00 00 00 01
        3D 01 00 04  00 00 00 10
        3D 06 00 10  06 0E 2B 34 04 01 01 01 04 02 02 01 7F 00 00 00
        3D 0A 00 02  00 02
        3D 09 00 04  00 01 77 00)"),
                          Serialised(descriptor)));
}

TEST(Descriptors, EveryItemOfAnAES3DescriptorHasASetter) {
    const FixedEnvironment environment;
    CAESEssenceDescriptor descriptor;
    EXPECT_EQ(descriptor.SetLinkedTrackID(1), kStatusOk);
    EXPECT_EQ(descriptor.SetSampleRate({96000, 1}), kStatusOk);
    EXPECT_EQ(descriptor.SetContainerDuration(1920), kStatusOk);
    EXPECT_EQ(descriptor.SetEssenceContainer(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(descriptor.SetAudioSamplingRate({96000, 1}), kStatusOk);
    EXPECT_EQ(descriptor.SetLocked(false), kStatusOk);
    EXPECT_EQ(descriptor.SetChannelCount(0x01020304), kStatusOk);
    EXPECT_EQ(descriptor.SetQuantizationBits(24), kStatusOk);
    EXPECT_EQ(descriptor.SetSoundEssenceCompression(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(descriptor.SetBlockAlign(3), kStatusOk);
    EXPECT_EQ(descriptor.SetAverageBytesPerSecond(288000), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 47 00  83 00 00 8B
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        30 06 00 04  00 00 00 01
        30 01 00 08  00 01 77 00 00 00 00 01
        30 02 00 08  00 00 00 00 00 00 07 80
        30 04 00 10  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        3D 03 00 08  00 01 77 00 00 00 00 01
        3D 02 00 01  00
        3D 07 00 04  01 02 03 04
        3D 01 00 04  00 00 00 18
        3D 06 00 10  A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2
        3D 0A 00 02  00 03
        3D 09 00 04  00 04 65 00)"),
                          Serialised(descriptor)));
}

TEST(Descriptors, ANCDescriptorIs92BytesAtTheEditRateItIsGiven) {
    const FixedEnvironment environment;
    CDataEssenceDescriptor descriptor({60000, 1001});
    EXPECT_EQ(descriptor.GetLength(), 92u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 5C 00  83 00 00 48
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        30 06 00 04  00 00 00 00
        30 01 00 08  00 00 EA 60 00 00 03 E9
        30 02 00 08  00 00 00 00 00 00 00 00
        30 04 00 10  06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00)"),
                          Serialised(descriptor)));
    EXPECT_EQ(descriptor.SetContainerDuration(0x0102030405060708), kStatusOk);
    EXPECT_EQ(Part(descriptor, 60, 12), Hex("30 02 00 08  01 02 03 04 05 06 07 08"));
}

TEST(Descriptors, NullPointersAreRefused) {
    EXPECT_EQ(CCDCIEssenceDescriptor(0, 0, false).GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CMPEGEssenceDescriptor(0, 0).GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CAESEssenceDescriptor().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CDataEssenceDescriptor({25, 1}).GetData(nullptr), kStatusInvalidArgument);
}

TEST(Descriptors, CopyGoesItsOwnWay) {
    CCDCIEssenceDescriptor descriptor(VIDEO_STD_50I, COMP_TYPE_DV50, false);
    const auto before = Serialised(descriptor);
    CCDCIEssenceDescriptor copy(descriptor);
    descriptor.AddSubDescriptor(KeyOf(0xA1));
    descriptor.SetStoredWidth(1);
    EXPECT_TRUE(SameBytes(before, Serialised(copy)));
    EXPECT_EQ(copy.GetInstanceUID(), descriptor.GetInstanceUID());
}

}  // namespace
}  // namespace kmxf::test
