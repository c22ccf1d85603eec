#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Serialised.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DMSGroups.h"
#include "structures/FilledGroups.h"
#include "support/Hex.h"

// The items of each group: what is read, taken and refused.
namespace kmxf::test {
namespace {

// A primer pack of these rows: tag and label.
std::string Primer(const std::vector<std::string>& rows) {
    const size_t length = 8 + 18 * rows.size();
    char head[64];
    std::snprintf(head, sizeof head, "8300%04zX %08zX 00000012", length, rows.size());
    std::string text = std::string("060E2B34 02050101 0D010201 01050100") + head;
    for (const std::string& row : rows) text += row;
    return text;
}

TEST(DMSClip, ItemsAreReadInAnyOrderAndOthersPassedOver) {
    Sets sets = kClip;
    sets[3] = kDescriptiveKey + "010200 830000AE" + R"(
        8010 0002 0102
        8005 0018 00000001 00000010)" +
              UID(8) + R"(
        FFFF 0005 3C0A001000
        800D 0010)" +
              UID(7) + "3C0A 0010" + UID(5) + "8004 0010" + UID(6) + R"(
        8012 003C 006D006F00760069006E00670020 0070006900630074007500720065007300200061006E00640020
                  0073006F0075006E0064 00000000000000000000
        8001 0003 656E00)";
    sets[7] = kDescriptiveKey + "1A0200 83000120 800B 0078 004C 0069" + Zeros(116) + "800A 0078 004E 0067" +
              Zeros(116) + "8009 0010" + UID(11) + "3C0A 0010" + UID(10);
    CDMSClip clip(VIDEO_STD_25P);
    ASSERT_EQ(Read(clip, Bytes(sets)), kStatusOk);
    ExpectFilled(clip);
    EXPECT_TRUE(SameBytes(Bytes(kClip), Serialised(clip)));
}

TEST(DMSClip, MissingItemsKeepTheirDefaultsAndShortTextsArePadded) {
    Sets sets = kClip;
    sets[5] = kDescriptiveKey + "200200 83000020 3C0A 0010" + UID(7) + "800F 0008 0041 0042 0043 0044";
    sets[6] = kDescriptiveKey + "180100 83000014 3C0A 0010" + UID(8);
    auto clip = FilledClip();
    ASSERT_EQ(Read(clip, Bytes(sets)), kStatusOk);
    EXPECT_EQ(clip.GetProjectNumber(), "");
    EXPECT_EQ(clip.GetProjectName(), "ABCD");
    EXPECT_EQ(clip.GetJobFunction(), "");
    EXPECT_EQ(clip.GetFamilyName(), "Ng");
    EXPECT_EQ(clip.GetLength(), 1497u);
}

TEST(DMSClip, ValueTooLongForItsFieldIsMalformed) {
    Sets sets = kClip;
    sets[5] = kDescriptiveKey + "200200 83000039 3C0A 0010" + UID(7) + "800E 0021" + Zeros(33);
    auto clip = FilledClip();
    EXPECT_EQ(Read(clip, Bytes(sets)), kStatusFailure);
    EXPECT_EQ(clip.GetFamilyName(), "");
}

// Dynamic tags as another writer may number them: each of ours plus 0x0100.
const std::vector<std::string> kForeignPrimer = {
    "3C0A 060E2B34 01010101 01011502 00000000", "8101 060E2B34 01010107 03010102 02130000",
    "8104 060E2B34 01010105 06010104 02402200", "8105 060E2B34 01010105 06010104 05401300",
    "8106 060E2B34 01010108 01011540 01010000", "8107 060E2B34 01010103 02300501 01000000",
    "8108 060E2B34 01010105 06010104 05401400", "8109 060E2B34 01010108 01011540 01020000",
    "810A 060E2B34 01010103 02300603 01010100", "810B 060E2B34 01010103 02300603 01020100",
    "810C 060E2B34 01010105 06010104 03401400", "810D 060E2B34 01010105 06010104 02402100",
    "810E 060E2B34 01010102 01030106 00000000", "810F 060E2B34 01010105 01030108 01000000",
    "8110 060E2B34 01010101 01050700 00000000", "8112 060E2B34 01010105 03020504 00000000",
};

TEST(DMSClip, ReadsTheDynamicTagsOfTheFile) {
    Sets sets = kClip;
    sets[3] = kDescriptiveKey + "010200 830000A5 3C0A 0010" + UID(5) + R"(
        8101 0003 656E00
        8112 003C 006D006F00760069006E00670020 0070006900630074007500720065007300200061006E00640020
                  0073006F0075006E0064 00000000000000000000
        8104 0010)" +
              UID(6) + "810D 0010" + UID(7) + "8105 0018 00000001 00000010" + UID(8) + "8110 0002 0102";
    sets[4] = kDescriptiveKey + "190100 83000030 3C0A 0010" + UID(6) + "8108 0018 00000001 00000010" + UID(10);
    sets[5] = kDescriptiveKey + "200200 830001CC 3C0A 0010" + UID(7) + "810E 0020 502D31" + Zeros(29) +
              "810F 0190 0052 0069 0076 0065 0072" + Zeros(390);
    sets[6] = kDescriptiveKey + "180100 830000C0 3C0A 0010" + UID(8) + "8106 0010" + UID(9) +
              "8107 0078 0044 006F 0050" + Zeros(114) + "810C 0018 00000001 00000010" + UID(10);
    sets[7] = kDescriptiveKey + "1A0200 83000120 3C0A 0010" + UID(10) + "8109 0010" + UID(11) + "810A 0078 004E 0067" +
              Zeros(116) + "810B 0078 004C 0069" + Zeros(116);
    sets.insert(sets.begin(), Primer(kForeignPrimer));
    CDMSClip clip(VIDEO_STD_25P);
    ASSERT_EQ(Read(clip, Bytes(sets)), kStatusOk);
    ExpectFilled(clip);
    EXPECT_TRUE(SameBytes(Bytes(kClip), Serialised(clip)));  // written with our own tags
}

TEST(DMSScene, TagsThatTheFileHasTheOtherWayRoundAreReadAsItMeansThem) {
    Sets sets = kScene;
    sets[3] = kDescriptiveKey + "010300 8300003F 3C0A 0010" + UID(5) + "8011 0003 656E00  8001 0020 313241" + Zeros(29);
    sets.insert(sets.begin(), Primer({"8001 060E2B34 01010101 01050600 00000000",     // scene number
                                      "8011 060E2B34 01010107 03010102 02130000"}));  // language
    CDMSScene scene(VIDEO_STD_25P);
    ASSERT_EQ(Read(scene, Bytes(sets)), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), "12A");
    EXPECT_TRUE(SameBytes(Bytes(kScene), Serialised(scene)));
}

TEST(DMSScene, TagThatTheFilesPrimerDoesNotGiveTheLabelIsPassedOver) {
    Sets sets = kScene;
    sets.insert(sets.begin(), Primer({"8001 060E2B34 01010107 03010102 02130000"}));
    CDMSScene scene(VIDEO_STD_25P);
    ASSERT_EQ(Read(scene, Bytes(sets)), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), "");
    // Nor is an item of tag 0 taken for it.
    sets[4] = kDescriptiveKey + "010300 8300003F 3C0A 0010" + UID(5) + "8001 0003 656E00  0000 0020 313241" + Zeros(29);
    ASSERT_EQ(Read(scene, Bytes(sets)), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), "");
}

TEST(DMSScene, EmptyPrimerLeavesNoDynamicTag) {
    Sets sets = kScene;
    sets.insert(sets.begin(), Primer({}));
    CDMSScene scene(VIDEO_STD_25P);
    ASSERT_EQ(Read(scene, Bytes(sets)), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), "");
    EXPECT_EQ(scene.GetLength(), 363u);
}

TEST(DMSClip, FullTextFieldsAreReadWithoutATerminator) {
    auto clip = Built<CDMSClip>(VIDEO_STD_50I);
    EXPECT_EQ(clip.SetProjectNumber(std::string(32, 'n')), kStatusOk);
    EXPECT_EQ(clip.SetProjectName(std::string(200, 'p')), kStatusOk);
    EXPECT_EQ(clip.SetJobFunction(std::string(60, 'j')), kStatusOk);
    EXPECT_EQ(clip.SetFamilyName(std::string(60, 'f')), kStatusOk);
    EXPECT_EQ(clip.SetFirstGivenName(std::string(60, 'g')), kStatusOk);
    EXPECT_EQ(clip.GetProjectNumber(), std::string(32, 'n'));
    EXPECT_EQ(clip.GetProjectName(), std::string(200, 'p'));
    EXPECT_EQ(clip.GetJobFunction(), std::string(60, 'j'));
    EXPECT_EQ(clip.GetFamilyName(), std::string(60, 'f'));
    EXPECT_EQ(clip.GetFirstGivenName(), std::string(60, 'g'));
    EXPECT_EQ(clip.GetLength(), 1497u);
}

TEST(DMSClip, SurrogateAtTheVeryEndOfAFullFieldStopsThere) {
    Sets sets = kClip;
    std::string name;
    for (int i = 0; i < 59; ++i) name += "0061";
    sets[7] = kDescriptiveKey + "1A0200 83000120 3C0A 0010" + UID(10) + "8009 0010" + UID(11) + "800A 0078" + name +
              "D83D  800B 0078 004C 0069" + Zeros(116);
    CDMSClip clip(VIDEO_STD_25P);
    ASSERT_EQ(Read(clip, Bytes(sets)), kStatusOk);
    EXPECT_EQ(clip.GetFamilyName(), std::string(59, 'a') + "\xF0\x9F\x90\x80");
    EXPECT_EQ(clip.GetFirstGivenName(), "Li");
}

TEST(DMSClip, TextsComeBackAsUTF8) {
    auto clip = Built<CDMSClip>(VIDEO_STD_50I);
    const std::string text = "Zo\xC3\xAB \xE3\x81\x82";
    EXPECT_EQ(clip.SetProjectName(text), kStatusOk);
    EXPECT_EQ(clip.GetProjectName(), text);
}

TEST(DMSClip, TextsThatDoNotFitAreRefusedAndNumbersDropped) {
    auto clip = FilledClip();
    EXPECT_EQ(clip.SetProjectName(std::string(201, 'p')), -1);
    EXPECT_EQ(clip.SetJobFunction(std::string(61, 'j')), -1);
    EXPECT_EQ(clip.SetFamilyName("\xC3"), -1);
    EXPECT_EQ(clip.SetFirstGivenName("\xFF"), -1);
    EXPECT_EQ(clip.SetProjectNumber(std::string(33, 'n')), kStatusOk);
    EXPECT_EQ(clip.GetProjectName(), "");
    EXPECT_EQ(clip.GetJobFunction(), "");
    EXPECT_EQ(clip.GetFamilyName(), "");
    EXPECT_EQ(clip.GetFirstGivenName(), "");
    EXPECT_EQ(clip.GetProjectNumber(), "");
}

TEST(DMSClip, TakesNoValueBeforeItIsBuilt) {
    CDMSClip clip(VIDEO_STD_50I);
    EXPECT_EQ(clip.SetTakeNumber(1), kStatusWrongState);
    EXPECT_EQ(clip.SetProjectNumber("a"), kStatusWrongState);
    EXPECT_EQ(clip.SetProjectName("a"), kStatusWrongState);
    EXPECT_EQ(clip.SetJobFunction("a"), kStatusWrongState);
    EXPECT_EQ(clip.SetFamilyName("a"), kStatusWrongState);
    EXPECT_EQ(clip.SetFirstGivenName("a"), kStatusWrongState);
    EXPECT_EQ(clip.GetTakeNumber(), 0);
    EXPECT_EQ(clip.GetProjectNumber(), "");
    EXPECT_EQ(clip.GetProjectName(), "");
}

TEST(DMSScene, TakesNoValueBeforeItIsBuilt) {
    CDMSScene scene(VIDEO_STD_50I);
    EXPECT_EQ(scene.SetEventStartPosition(1), kStatusWrongState);
    EXPECT_EQ(scene.SetSceneNumber("a"), kStatusWrongState);
    EXPECT_EQ(scene.GetSceneNumber(), "");
}

TEST(DMSScene, SceneNumberHasUpTo32Bytes) {
    auto scene = Built<CDMSScene>(VIDEO_STD_50I);
    EXPECT_EQ(scene.SetSceneNumber(std::string(32, 's')), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), std::string(32, 's'));
    EXPECT_EQ(scene.SetSceneNumber(std::string(33, 's')), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), "");
    EXPECT_EQ(scene.SetSceneNumber("1\xFF"), kStatusOk);
    EXPECT_EQ(scene.GetSceneNumber(), "1\xFF");
}

TEST(DMSScene, EditRateOfAnUnknownStandardIsZero) {
    auto scene = Built<CDMSScene>(0xFFFFFFFF);
    EXPECT_TRUE(SameBytes(Hex("4B01 0008 00000000 00000000"), Part(scene, 56, 12)));
}

TEST(DMSKestralinStatic, TakesNoValueBeforeItIsBuilt) {
    CDMSKestralinStatic group(VIDEO_STD_50I);
    const uint8_t byte = 0;
    EXPECT_EQ(group.SetXMLData(&byte, 1), kStatusWrongState);
    EXPECT_EQ(group.GetXMLDataSize(), 0);
    EXPECT_EQ(group.GetXMLData(), nullptr);
}

TEST(DMSKestralinStatic, LengthFollowsTheXML) {
    auto group = Built<CDMSKestralinStatic>(VIDEO_STD_50I);
    const std::vector<uint8_t> xml(65535, 'x');
    EXPECT_EQ(group.SetXMLData(xml.data(), 65535), kStatusOk);
    EXPECT_EQ(group.GetLength(), 293u + 65535);
    EXPECT_EQ(group.SetXMLData(xml.data(), 0), kStatusOk);
    EXPECT_EQ(group.GetLength(), 293u);
    EXPECT_EQ(group.SetXMLData(nullptr, 1), kStatusInvalidArgument);
}

TEST(DMSKestralinEvent, TakesNoValueBeforeItIsBuilt) {
    CDMSKestralinEvent group(VIDEO_STD_50I);
    const uint8_t byte = 0;
    EXPECT_EQ(group.SetEventStartPosition(1), kStatusWrongState);
    EXPECT_EQ(group.SetThumbnailData(&byte, 1, 1, 1, 0), kStatusWrongState);
    EXPECT_EQ(group.GetEventStartPosition(), 0);
    EXPECT_EQ(group.GetThumbnailFormat(), 0);
    EXPECT_EQ(group.GetThumbnailWidth(), 0);
    EXPECT_EQ(group.GetThumbnailHeight(), 0);
    EXPECT_EQ(group.GetThumbnailDataSize(), 0);
    EXPECT_EQ(group.GetThumbnailData(), nullptr);
}

TEST(DMSKestralinEvent, StartsWithoutAPicture) {
    const auto group = Built<CDMSKestralinEvent>(VIDEO_STD_50I);
    EXPECT_EQ(group.GetEventStartPosition(), 0);
    EXPECT_EQ(group.GetThumbnailFormat(), 0);
    EXPECT_EQ(group.GetThumbnailWidth(), 80);
    EXPECT_EQ(group.GetThumbnailHeight(), 45);
    EXPECT_EQ(group.GetThumbnailDataSize(), 0);
}

TEST(DMSKestralinEvent, PictureLeavesRoomForAFillItemOrFillsItsAreaExactly) {
    auto group = Built<CDMSKestralinEvent>(VIDEO_STD_50I);
    for (const auto& [size, status] : std::vector<std::pair<uint16_t, int32_t>>{{0, kStatusOk},
                                                                                {10854, kStatusOk},
                                                                                {16011, kStatusOk},
                                                                                {16012, kStatusInvalidArgument},
                                                                                {16030, kStatusInvalidArgument},
                                                                                {16031, kStatusOk},
                                                                                {16032, kStatusInvalidArgument},
                                                                                {16384, kStatusInvalidArgument},
                                                                                {65535, kStatusInvalidArgument}}) {
        const uint32_t before = group.GetLength();
        const std::vector<uint8_t> data(std::max<size_t>(size, 1), 7);
        EXPECT_EQ(group.SetThumbnailData(data.data(), size, 80, 45, 0), status) << size;
        EXPECT_EQ(group.GetLength(), status == kStatusOk ? 353u + size : before) << size;
    }
}

TEST(DMSKestralinEvent, WhatIsRefusedChangesNothing) {
    auto group = FilledThumbnail();
    const std::vector<uint8_t> picture(16384, 7);
    EXPECT_EQ(group.SetThumbnailData(nullptr, 0, 1, 2, 0), kStatusInvalidArgument);
    EXPECT_EQ(group.SetThumbnailData(picture.data(), 3, 1, 2, 2), kStatusInvalidArgument);
    EXPECT_EQ(group.SetThumbnailData(picture.data(), 16384, 1, 2, 0), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(Bytes(kThumbnail), Serialised(group)));
}

}  // namespace
}  // namespace kmxf::test
