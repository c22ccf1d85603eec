#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DMSGroups.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

// The groups of sets of descriptive metadata, filled, and their bytes.
namespace kmxf::test {

using Sets = std::vector<std::string>;  // hex text, one per set

inline const std::string kStructuralKey = "060E2B34 02530101 0D010101 0101";  // and two bytes
inline const std::string kDescriptiveKey = "060E2B34 02530101 0D010401 01";   // and three bytes
inline const std::string kDescriptiveData = "0201 0010 060E2B34 04010101 01030201 10000000";

// The clip group with UUIDs 1 to 11 and these values: take 0x0102, project number "P-1", project name "River", job
// function "DoP", family name "Ng", first given name "Li".
inline const Sets kClip = {
    kStructuralKey + "3A00 83000038 3C0A 0010" + UID(1) + "4801 0004 00000065  4804 0004 00000000  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000044 3C0A 0010" + UID(2) + kDescriptiveData + "1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 8300003C 3C0A 0010" + UID(3) + kDescriptiveData + "6101 0010" + UID(5),
    kDescriptiveKey + "010200 830000A5 3C0A 0010" + UID(5) + R"(
        8001 0003 656E00
        8012 003C 006D006F00760069006E00670020 0070006900630074007500720065007300200061006E00640020
                  0073006F0075006E0064 00000000000000000000
        8004 0010)" +
        UID(6) + "800D 0010" + UID(7) + "8005 0018 00000001 00000010" + UID(8) + "8010 0002 0102",
    kDescriptiveKey + "190100 83000030 3C0A 0010" + UID(6) + "8008 0018 00000001 00000010" + UID(10),
    kDescriptiveKey + "200200 830001CC 3C0A 0010" + UID(7) + "800E 0020 502D31" + Zeros(29) +
        "800F 0190 0052 0069 0076 0065 0072" + Zeros(390),
    kDescriptiveKey + "180100 830000C0 3C0A 0010" + UID(8) + "8006 0010" + UID(9) + "8007 0078 0044 006F 0050" +
        Zeros(114) + "800C 0018 00000001 00000010" + UID(10),
    kDescriptiveKey + "1A0200 83000120 3C0A 0010" + UID(10) + "8009 0010" + UID(11) + "800A 0078 004E 0067" +
        Zeros(116) + "800B 0078 004C 0069" + Zeros(116),
};

// The scene group with UUIDs 1 to 5, 59.94i, start position 7, scene number "12A".
inline const Sets kScene = {
    kStructuralKey + "3900 83000044 3C0A 0010" + UID(1) +
        "4801 0004 00000066  4804 0004 00000000  4B01 0008 00007530 000003E9  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000044 3C0A 0010" + UID(2) + kDescriptiveData + "1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 83000054 3C0A 0010" + UID(3) + kDescriptiveData +
        "0202 0008 0000000000000001  0601 0008 0000000000000007  6101 0010" + UID(5),
    kDescriptiveKey + "010300 8300003F 3C0A 0010" + UID(5) + "8001 0003 656E00  8011 0020 313241" + Zeros(29),
};

// The XML group with UUIDs 1 to 5 and the XML "<a/>".
inline const Sets kXML = {
    kStructuralKey + "3A00 83000038 3C0A 0010" + UID(1) + "4801 0004 000003E9  4804 0004 00000000  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000044 3C0A 0010" + UID(2) + kDescriptiveData + "1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 8300003C 3C0A 0010" + UID(3) + kDescriptiveData + "6101 0010" + UID(5),
    "060E2B34 01010109 0E0E0101 11010100 83000021 3C0A 0010" + UID(5) + "A001 0001 00  A002 0004 3C612F3E",
};

// The thumbnail group with UUIDs 1 to 5, 50p, start position 0x0102, format 1, 64 x 36, picture 42 4D.
inline const Sets kThumbnail = {
    kStructuralKey + "3900 83000044 3C0A 0010" + UID(1) +
        "4801 0004 000003EA  4804 0004 00000000  4B01 0008 00000032 00000001  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000050 3C0A 0010" + UID(2) + kDescriptiveData +
        "0202 0008 0000000000000001  1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 83000054 3C0A 0010" + UID(3) + kDescriptiveData +
        "0202 0008 0000000000000001  0601 0008 0000000000000102  6101 0010" + UID(5),
    "060E2B34 01010109 0E0E0101 11010200 8300002B 3C0A 0010" + UID(5) +
        "A011 0001 01  A012 0002 0040  A013 0002 0024  A014 0002 424D",
};

inline std::vector<uint8_t> Bytes(const Sets& sets) {
    std::string text;
    for (const std::string& set : sets) text += set;
    return Hex(text);
}

// A group with UUIDs of its own, which start at 1 with each call.
template <class Group>
Group Built(uint32_t videoStd) {
    FixedEnvironment fixed;
    Group group(videoStd);
    EXPECT_EQ(group.Build(), kStatusOk);
    return group;
}

inline CDMSClip FilledClip() {
    auto clip = Built<CDMSClip>(VIDEO_STD_59_94I);
    EXPECT_EQ(clip.SetTakeNumber(0x0102), kStatusOk);
    EXPECT_EQ(clip.SetProjectNumber("P-1"), kStatusOk);
    EXPECT_EQ(clip.SetProjectName("River"), kStatusOk);
    EXPECT_EQ(clip.SetJobFunction("DoP"), kStatusOk);
    EXPECT_EQ(clip.SetFamilyName("Ng"), kStatusOk);
    EXPECT_EQ(clip.SetFirstGivenName("Li"), kStatusOk);
    return clip;
}

inline CDMSScene FilledScene() {
    auto scene = Built<CDMSScene>(VIDEO_STD_59_94I);
    EXPECT_EQ(scene.SetEventStartPosition(7), kStatusOk);
    EXPECT_EQ(scene.SetSceneNumber("12A"), kStatusOk);
    return scene;
}

inline CDMSKestralinStatic FilledXML() {
    auto group = Built<CDMSKestralinStatic>(VIDEO_STD_59_94I);
    const uint8_t xml[] = {'<', 'a', '/', '>'};
    EXPECT_EQ(group.SetXMLData(xml, 4), kStatusOk);
    return group;
}

inline CDMSKestralinEvent FilledThumbnail() {
    auto group = Built<CDMSKestralinEvent>(VIDEO_STD_50P);
    const uint8_t picture[] = {'B', 'M'};
    EXPECT_EQ(group.SetThumbnailData(picture, 2, 64, 36, 1), kStatusOk);
    EXPECT_EQ(group.SetEventStartPosition(0x0102), kStatusOk);
    return group;
}

inline void ExpectFilled(const CDMSClip& clip) {
    EXPECT_EQ(clip.GetTakeNumber(), 0x0102);
    EXPECT_EQ(clip.GetProjectNumber(), "P-1");
    EXPECT_EQ(clip.GetProjectName(), "River");
    EXPECT_EQ(clip.GetJobFunction(), "DoP");
    EXPECT_EQ(clip.GetFamilyName(), "Ng");
    EXPECT_EQ(clip.GetFirstGivenName(), "Li");
}
inline void ExpectFilled(const CDMSScene& scene) { EXPECT_EQ(scene.GetSceneNumber(), "12A"); }
inline void ExpectFilled(const CDMSKestralinStatic& group) {
    ASSERT_EQ(group.GetXMLDataSize(), 4);
    EXPECT_TRUE(SameBytes(Hex("3C612F3E"), {group.GetXMLData(), 4}));
}
inline void ExpectFilled(const CDMSKestralinEvent& group) {
    EXPECT_EQ(group.GetEventStartPosition(), 0x0102);
    EXPECT_EQ(group.GetThumbnailFormat(), 1);
    EXPECT_EQ(group.GetThumbnailWidth(), 64);
    EXPECT_EQ(group.GetThumbnailHeight(), 36);
    ASSERT_EQ(group.GetThumbnailDataSize(), 2);
    EXPECT_TRUE(SameBytes(Hex("424D"), {group.GetThumbnailData(), 2}));
}

template <class Group>
int32_t Read(Group& group, const std::vector<uint8_t>& metadata) {
    return group.SetData(metadata.data(), static_cast<uint32_t>(metadata.size()));
}

}  // namespace kmxf::test
