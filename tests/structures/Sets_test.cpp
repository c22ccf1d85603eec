#include "kmxf/structures/Sets.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "kmxf/core/KLV.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/FilledRecords.h"
#include "structures/Serialised.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

constexpr MXFTIMESTAMPTag kDate = {2026, 1, 2, 3, 4, 5, 6};              // 07 EA 01 02 03 04 05 06
constexpr MXFTIMESTAMPTag kOtherDate = {1999, 12, 31, 23, 59, 58, 249};  // 07 CF 0C 1F 17 3B 3A F9

// With the environment fixed, each set of a test is the first whose InstanceUID is made, ...01.
class Sets : public testing::Test {
    FixedEnvironment environment_;
};

TEST_F(Sets, FreshPrefaceIs150Bytes) {
    CPreface preface;
    EXPECT_EQ(preface.GetLength(), 150u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 2F 00  83 00 00 82
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        3B 02 00 08  00 00 00 00 00 00 00 00
        3B 05 00 02  01 03
        3B 06 00 18  00 00 00 01 00 00 00 10  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3B 03 00 10  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3B 09 00 10  06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00
        3B 0A 00 08  00 00 00 00 00 00 00 10
        3B 0B 00 08  00 00 00 00 00 00 00 00)"),
                          Serialised(preface)));
}

TEST_F(Sets, PrefaceWithEverythingSet) {
    CPreface preface;
    EXPECT_EQ(preface.SetLastModifiedDate(kDate), kStatusOk);
    EXPECT_EQ(preface.SetVersion(0x0102), kStatusOk);
    EXPECT_EQ(preface.SetPrimaryPackageFlag(true), kStatusOk);
    EXPECT_EQ(preface.SetPrimaryPackage(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(preface.SetIdentification(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(preface.SetContentStorage(KeyOf(0xA3)), kStatusOk);
    EXPECT_EQ(preface.SetOperationalPattern(KeyOf(0xA4)), kStatusOk);
    EXPECT_EQ(preface.AddEssenceContainer(KeyOf(0xA5)), kStatusOk);
    EXPECT_EQ(preface.AddEssenceContainer(KeyOf(0xA6)), kStatusOk);
    EXPECT_EQ(preface.AddDMScheme(KeyOf(0xA7)), kStatusOk);
    EXPECT_EQ(preface.GetLength(), 218u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 2F 00  83 00 00 C6
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        3B 02 00 08  07 EA 01 02 03 04 05 06
        3B 05 00 02  01 02
        3B 08 00 10  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        3B 06 00 18  00 00 00 01 00 00 00 10  A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2
        3B 03 00 10  A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3
        3B 09 00 10  A4 A4 A4 A4 A4 A4 A4 A4 A4 A4 A4 A4 A4 A4 A4 A4
        3B 0A 00 28  00 00 00 02 00 00 00 10
                     A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5
                     A6 A6 A6 A6 A6 A6 A6 A6 A6 A6 A6 A6 A6 A6 A6 A6
        3B 0B 00 18  00 00 00 01 00 00 00 10  A7 A7 A7 A7 A7 A7 A7 A7 A7 A7 A7 A7 A7 A7 A7 A7)"),
                          Serialised(preface)));
}

TEST_F(Sets, PrimaryPackageFlagAddsExactly20Bytes) {
    CPreface preface;
    preface.SetPrimaryPackage(KeyOf(0xA1));
    EXPECT_EQ(preface.GetLength(), 150u);
    preface.SetPrimaryPackageFlag(true);
    EXPECT_EQ(preface.GetLength(), 170u);
    EXPECT_EQ(Serialised(preface).size(), 170u);
    preface.SetPrimaryPackageFlag(false);
    EXPECT_EQ(preface.GetLength(), 150u);
}

TEST_F(Sets, FreshIdentificationIs176Bytes) {
    CIdentification identification;
    EXPECT_EQ(identification.GetLength(), 176u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 30 00  83 00 00 9C
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        3C 09 00 10  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3C 01 00 20  00 4B 00 65 00 73 00 74 00 72 00 61 00 6C 00 69 00 6E 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3C 02 00 20  00 4A 00 71 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3C 04 00 08  00 32 00 2E 00 30 00 00
        3C 05 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 01 00 00 01
        3C 06 00 08  00 00 00 00 00 00 00 00)"),
                          Serialised(identification)));
}

TEST_F(Sets, IdentificationWithEverythingSet) {
    CIdentification identification;
    EXPECT_EQ(identification.SetThisGenerationUID(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(identification.SetCompanyName("0123456789ABCDEF"), kStatusOk);  // no room for a terminator
    EXPECT_EQ(identification.SetProductName("\xC3\xA9"), kStatusOk);
    EXPECT_EQ(identification.SetVersionString("12.3"), kStatusOk);
    EXPECT_EQ(identification.SetProductUID(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(identification.SetModificationDate(kDate), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 30 00  83 00 00 9C
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        3C 09 00 10  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        3C 01 00 20  00 30 00 31 00 32 00 33 00 34 00 35 00 36 00 37 00 38 00 39 00 41 00 42 00 43 00 44 00 45 00 46
        3C 02 00 20  00 E9 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3C 04 00 08  00 31 00 32 00 2E 00 33
        3C 05 00 10  A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2
        3C 06 00 08  07 EA 01 02 03 04 05 06)"),
                          Serialised(identification)));
}

TEST_F(Sets, IdentificationTextThatIsTooLongOrMalformedLeavesItsFieldZero) {
    CIdentification identification;
    EXPECT_EQ(identification.SetCompanyName("0123456789ABCDEFG"), kStatusInvalidArgument);
    EXPECT_EQ(identification.SetProductName("Jq\xFF"), kStatusInvalidArgument);
    EXPECT_EQ(identification.SetVersionString("1.234"), kStatusInvalidArgument);
    const auto bytes = Serialised(identification);
    ASSERT_EQ(bytes.size(), 176u);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 64, bytes.begin() + 96), std::vector<uint8_t>(32, 0));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 100, bytes.begin() + 132), std::vector<uint8_t>(32, 0));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 136, bytes.begin() + 144), std::vector<uint8_t>(8, 0));
}

TEST_F(Sets, ContentStorageHoldsPackagesAndEssenceContainerData) {
    CContentStorage storage;
    EXPECT_EQ(storage.GetLength(), 64u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 18 00  83 00 00 2C
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        19 01 00 08  00 00 00 00 00 00 00 10
        19 02 00 08  00 00 00 00 00 00 00 10)"),
                          Serialised(storage)));
    EXPECT_EQ(storage.AddPackage(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(storage.AddEssenceContainerData(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(storage.AddPackage(KeyOf(0xA3)), kStatusOk);
    EXPECT_EQ(storage.GetLength(), 112u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 18 00  83 00 00 5C
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        19 01 00 28  00 00 00 02 00 00 00 10
                     A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
                     A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3
        19 02 00 18  00 00 00 01 00 00 00 10  A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2)"),
                          Serialised(storage)));
}

TEST_F(Sets, EssenceContainerDataIs92Bytes) {
    CEssenceContainerData data;
    EXPECT_EQ(data.GetLength(), 92u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 23 00  83 00 00 48
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        27 01 00 20  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        3F 06 00 04  00 00 00 01
        3F 07 00 04  00 00 00 02)"),
                          Serialised(data)));
    EXPECT_EQ(data.SetLinkedPackageUID(UmidOf(0xA1)), kStatusOk);
    EXPECT_EQ(data.SetIndexSID(0x11121314), kStatusOk);
    EXPECT_EQ(data.SetBodySID(0x21222324), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 23 00  83 00 00 48
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        27 01 00 20  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        3F 06 00 04  11 12 13 14
        3F 07 00 04  21 22 23 24)"),
                          Serialised(data)));
}

// The material package up to its name, and from behind it.
std::vector<uint8_t> MaterialPackage(const std::string& head, const std::string& name, const std::string& tail) {
    auto bytes = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 36 00" + head +
                     "3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01" + tail);
    auto field = Hex("44 02 01 90" + name);
    field.resize(4 + 400);
    bytes.insert(bytes.begin() + 16 + 4 + 20 + 36, field.begin(), field.end());
    return bytes;
}

TEST_F(Sets, FreshMaterialPackageIs516Bytes) {
    CMaterialPackage package;
    EXPECT_EQ(package.GetLength(), 516u);
    EXPECT_TRUE(SameBytes(MaterialPackage("83 00 01 F0", "", R"(
        44 01 00 20  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        44 05 00 08  00 00 00 00 00 00 00 00
        44 04 00 08  00 00 00 00 00 00 00 00
        44 03 00 08  00 00 00 00 00 00 00 10)"),
                          Serialised(package)));
}

TEST_F(Sets, MaterialPackageWithEverythingSet) {
    CMaterialPackage package;
    EXPECT_EQ(package.SetPackageUID(UmidOf(0xA1)), kStatusOk);
    EXPECT_EQ(package.SetName("Clip \xE2\x82\xAC"), kStatusOk);
    EXPECT_EQ(package.SetPackageCreationDate(kDate), kStatusOk);
    EXPECT_EQ(package.SetPackageModifiedDate(kOtherDate), kStatusOk);
    EXPECT_EQ(package.AddTrack(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(package.AddTrack(KeyOf(0xA3)), kStatusOk);
    EXPECT_EQ(package.GetLength(), 548u);
    EXPECT_TRUE(SameBytes(MaterialPackage("83 00 02 10", "00 43 00 6C 00 69 00 70 00 20 20 AC", R"(
        44 01 00 20  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        44 05 00 08  07 EA 01 02 03 04 05 06
        44 04 00 08  07 CF 0C 1F 17 3B 3A F9
        44 03 00 28  00 00 00 02 00 00 00 10
                     A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2
                     A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3)"),
                          Serialised(package)));
}

TEST_F(Sets, MaterialPackageNameHasRoomFor200Units) {
    CMaterialPackage package;
    EXPECT_EQ(package.SetName(std::string(200, 'x')), kStatusOk);
    auto bytes = Serialised(package);
    ASSERT_EQ(bytes.size(), 516u);
    for (size_t i = 80; i < 480; i += 2) {
        ASSERT_EQ(bytes[i], 0x00) << i;
        ASSERT_EQ(bytes[i + 1], 'x') << i;
    }
    for (const std::string& name : {std::string(201, 'x'), std::string("x\x80")}) {
        package.SetName("before");
        EXPECT_EQ(package.SetName(name), kStatusInvalidArgument);
        bytes = Serialised(package);
        EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 80, bytes.begin() + 480), std::vector<uint8_t>(400, 0));
    }
}

TEST_F(Sets, FilePackageIs132BytesAnd16PerTrack) {
    CFilePackage package;
    EXPECT_EQ(package.GetLength(), 132u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 37 00  83 00 00 70
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        44 01 00 20  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        44 05 00 08  00 00 00 00 00 00 00 00
        44 04 00 08  00 00 00 00 00 00 00 00
        44 03 00 08  00 00 00 00 00 00 00 10
        47 01 00 10  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00)"),
                          Serialised(package)));
    EXPECT_EQ(package.SetPackageUID(UmidOf(0xA1)), kStatusOk);
    EXPECT_EQ(package.SetPackageCreationDate(kDate), kStatusOk);
    EXPECT_EQ(package.SetPackageModifiedDate(kOtherDate), kStatusOk);
    EXPECT_EQ(package.AddTrack(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(package.SetDescriptor(KeyOf(0xA3)), kStatusOk);
    EXPECT_EQ(package.GetLength(), 148u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 37 00  83 00 00 80
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        44 01 00 20  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        44 05 00 08  07 EA 01 02 03 04 05 06
        44 04 00 08  07 CF 0C 1F 17 3B 3A F9
        44 03 00 18  00 00 00 01 00 00 00 10  A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2
        47 01 00 10  A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3 A3)"),
                          Serialised(package)));
}

TEST_F(Sets, TrackIs100Bytes) {
    CTrack track;
    EXPECT_EQ(track.GetLength(), 100u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3B 00  83 00 00 50
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        48 01 00 04  00 00 00 00
        48 04 00 04  00 00 00 00
        4B 01 00 08  00 00 00 00 00 00 00 00
        4B 02 00 08  00 00 00 00 00 00 00 00
        48 03 00 10  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00)"),
                          Serialised(track)));
    EXPECT_EQ(track.SetTrackID(0x11121314), kStatusOk);
    EXPECT_EQ(track.SetTrackNumber(0x15010601), kStatusOk);
    EXPECT_EQ(track.SetEditRate({60000, 1001}), kStatusOk);
    EXPECT_EQ(track.SetOrigin(-2), kStatusOk);
    EXPECT_EQ(track.SetSequence(KeyOf(0xA1)), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3B 00  83 00 00 50
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        48 01 00 04  11 12 13 14
        48 04 00 04  15 01 06 01
        4B 01 00 08  00 00 EA 60 00 00 03 E9
        4B 02 00 08  FF FF FF FF FF FF FF FE
        48 03 00 10  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1)"),
                          Serialised(track)));
}

TEST_F(Sets, SequenceIs84BytesAnd16PerComponent) {
    CSequence sequence(kTrackCodePicture);
    EXPECT_EQ(sequence.GetLength(), 84u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 0F 00  83 00 00 40
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 02 01 00 00 00
        02 02 00 08  00 00 00 00 00 00 00 00
        10 01 00 08  00 00 00 00 00 00 00 10)"),
                          Serialised(sequence)));
    EXPECT_EQ(sequence.SetDuration(0x0102030405060708), kStatusOk);
    EXPECT_EQ(sequence.AddStructuralComponent(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(sequence.GetLength(), 100u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 0F 00  83 00 00 50
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 02 01 00 00 00
        02 02 00 08  01 02 03 04 05 06 07 08
        10 01 00 18  00 00 00 01 00 00 00 10  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1)"),
                          Serialised(sequence)));
}

TEST_F(Sets, SourceClipIs128BytesWithItsStartBeforeItsDuration) {
    CSourceComponent clip(kTrackCodeSound);
    EXPECT_EQ(clip.GetLength(), 128u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 11 00  83 00 00 6C
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 02 02 00 00 00
        12 01 00 08  00 00 00 00 00 00 00 00
        02 02 00 08  00 00 00 00 00 00 00 00
        11 01 00 20  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
        11 02 00 04  00 00 00 00)"),
                          Serialised(clip)));
    EXPECT_EQ(clip.SetStartPosition(0x1112131415161718), kStatusOk);
    EXPECT_EQ(clip.SetDuration(0x2122232425262728), kStatusOk);
    EXPECT_EQ(clip.SetSourcePackageID(UmidOf(0xA1)), kStatusOk);
    EXPECT_EQ(clip.SetSourceTrackID(0x31323334), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 11 00  83 00 00 6C
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 02 02 00 00 00
        12 01 00 08  11 12 13 14 15 16 17 18
        02 02 00 08  21 22 23 24 25 26 27 28
        11 01 00 20  A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        11 02 00 04  31 32 33 34)"),
                          Serialised(clip)));
}

TEST_F(Sets, TimecodeComponentIs95Bytes) {
    CTimecodeComponent timecode(VIDEO_STD_50I);
    EXPECT_EQ(timecode.GetLength(), 95u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 14 00  83 00 00 4B
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 01 01 00 00 00
        02 02 00 08  00 00 00 00 00 00 00 00
        15 02 00 02  00 19
        15 01 00 08  00 00 00 00 00 00 00 00
        15 03 00 01  00)"),
                          Serialised(timecode)));
    EXPECT_EQ(timecode.SetDuration(0x1112131415161718), kStatusOk);
    EXPECT_EQ(timecode.SetRoundedTimecodeBase(0x2122), kStatusOk);
    EXPECT_EQ(timecode.SetStartTimecode(0x3132333435363738), kStatusOk);
    EXPECT_EQ(timecode.SetDropFrame(true), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 14 00  83 00 00 4B
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 01 01 00 00 00
        02 02 00 08  11 12 13 14 15 16 17 18
        15 02 00 02  21 22
        15 01 00 08  31 32 33 34 35 36 37 38
        15 03 00 01  01)"),
                          Serialised(timecode)));
    EXPECT_EQ(timecode.SetDropFrame(false), kStatusOk);
    EXPECT_EQ(Serialised(timecode).back(), 0x00);
}

TEST_F(Sets, TimecodeBaseAndDropFrameFollowFromTheVideoStandard) {
    struct Case {
        uint32_t videoStd;
        uint8_t base, drop;
    };
    for (const Case& c : {Case{0x010000B2, 0x19, 0}, Case{0x02000099, 0x19, 0}, Case{0x020000B2, 0x19, 0},
                          Case{0x02000058, 0x18, 1}, Case{0x0100007C, 0x1E, 1}, Case{0x0200005E, 0x1E, 1},
                          Case{0x0200007C, 0x1E, 1}, Case{0, 0x1E, 1}, Case{0xFFFFFFFF, 0x1E, 1}}) {
        CTimecodeComponent timecode(c.videoStd);
        const auto bytes = Serialised(timecode);
        ASSERT_EQ(bytes.size(), 95u);
        EXPECT_TRUE(SameBytes(Hex("15 02 00 02 00"), std::span(bytes).subspan(72, 5)));
        EXPECT_EQ(bytes[77], c.base) << std::hex << c.videoStd;
        EXPECT_EQ(bytes[94], c.drop) << std::hex << c.videoStd;
    }
}

TEST_F(Sets, FillerComponentIs72Bytes) {
    CFillerComponent filler(VIDEO_STD_50I, kTrackCodeSound + 1, 48000);
    EXPECT_EQ(filler.GetLength(), 72u);
    EXPECT_EQ(filler.GetTrackCode(), 0x30002u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 09 00  83 00 00 34
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        02 01 00 10  06 0E 2B 34 04 01 01 01 01 03 02 02 02 00 00 00
        02 02 00 08  00 00 00 00 00 00 00 00)"),
                          Serialised(filler)));
    EXPECT_EQ(filler.SetDuration(1920), kStatusOk);  // as given, whatever the track
    EXPECT_EQ(Part(filler, 60, 12), Hex("02 02 00 08  00 00 00 00 00 00 07 80"));
}

TEST_F(Sets, DataDefinitionFollowsFromTheTrackCode) {
    const auto kTimecode = Hex("06 0E 2B 34 04 01 01 01 01 03 02 01 01 00 00 00");
    const auto kPicture = Hex("06 0E 2B 34 04 01 01 01 01 03 02 02 01 00 00 00");
    const auto kSound = Hex("06 0E 2B 34 04 01 01 01 01 03 02 02 02 00 00 00");
    const auto kData = Hex("06 0E 2B 34 04 01 01 01 01 03 02 02 03 00 00 00");
    const auto kNone = Hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    struct Case {
        uint32_t trackCode;
        std::vector<uint8_t> inSequence, inComponent;
    };
    for (const Case& c : {
             Case{0x31000, kTimecode, kNone},
             Case{0x01000, kTimecode, kNone},
             Case{0x30000, kTimecode, kPicture},  // no more than every kind has
             Case{0x00000, kTimecode, kPicture},
             Case{0x30100, kPicture, kPicture},
             Case{0x30F00, kPicture, kPicture},
             Case{0x00200, kPicture, kPicture},
             Case{0x30001, kSound, kSound},
             Case{0x300FF, kSound, kSound},
             Case{0x32000, kData, kData},
             Case{0x30101, kNone, kNone},  // picture and sound at once
             Case{0x33000, kNone, kNone},
             Case{0x40000, kNone, kNone},
             Case{0xFFFFFFFF, kNone, kNone},
         }) {
        const auto definition = [](auto&& set) {
            const auto bytes = Serialised(set);
            return std::vector<uint8_t>(bytes.begin() + 44, bytes.begin() + 60);
        };
        EXPECT_EQ(definition(CSequence(c.trackCode)), c.inSequence) << std::hex << c.trackCode;
        EXPECT_EQ(definition(CSourceComponent(c.trackCode)), c.inComponent) << std::hex << c.trackCode;
        EXPECT_EQ(definition(CFillerComponent(VIDEO_STD_50I, c.trackCode, 48000)), c.inComponent)
            << std::hex << c.trackCode;
    }
}

TEST_F(Sets, PrimerIs2152BytesWithAll118Entries) {
    CPrimer primer;
    EXPECT_EQ(primer.GetLength(), 2152u);
    const auto text = LoadTestData("primer.hex");
    EXPECT_TRUE(SameBytes(Hex(std::string(text.begin(), text.end())), Serialised(primer)));
}

TEST_F(Sets, PrimerAnswersTheScannerThatLooksForTags) {
    CPrimer primer;
    const auto bytes = Serialised(primer);
    const MXFKEYTag averageBitRate = {
        {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x0E, 0x04, 0x01, 0x06, 0x06, 0x01, 0x14, 0x00, 0x00}};
    EXPECT_EQ(GetLocalTag(bytes.data(), static_cast<uint32_t>(bytes.size()), averageBitRate), 0x9014);
    EXPECT_EQ(GetLocalTag(bytes.data(), static_cast<uint32_t>(bytes.size()), KeyOf(0xA1)), 0);
}

TEST_F(Sets, NullPointersAreRefused) {
    EXPECT_EQ(CPrimer().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CPreface().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CIdentification().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CContentStorage().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CEssenceContainerData().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CMaterialPackage().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CFilePackage().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CTrack().GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CSequence(0).GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CSourceComponent(0).GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CTimecodeComponent(0).GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(CFillerComponent(0, 0, 0).GetData(nullptr), kStatusInvalidArgument);
}

TEST_F(Sets, SetsAreSerialisedThroughTheirBase) {
    CPrimer primer;
    CTrack track;
    for (const auto& [set, size] : {std::pair<CMXFHeaderBase*, size_t>{&primer, 2152}, {&track, 100}})
        EXPECT_EQ(Serialised(*set).size(), size);
}

TEST_F(Sets, CopyKeepsInstanceUIDAndItemsAndGoesItsOwnWay) {
    CSequence sequence(kTrackCodePicture);
    sequence.AddStructuralComponent(KeyOf(0xA1));
    const auto before = Serialised(sequence);
    CSequence copy(sequence);
    CSequence assigned(kTrackCodeSound);
    assigned = sequence;
    sequence.AddStructuralComponent(KeyOf(0xA2));
    EXPECT_TRUE(SameBytes(before, Serialised(copy)));
    EXPECT_TRUE(SameBytes(before, Serialised(assigned)));
    EXPECT_EQ(copy.GetInstanceUID(), sequence.GetInstanceUID());
    EXPECT_EQ(copy.GetKey(), sequence.GetKey());
}

}  // namespace
}  // namespace kmxf::test
