#include "kmxf/structures/DMSGroups.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Serialised.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/Packets.h"

namespace kmxf::test {
namespace {

using Sets = std::vector<std::string>;  // hex text, one per set

const std::string kStructuralKey = "060E2B34 02530101 0D010101 0101";  // and two bytes
const std::string kDescriptiveKey = "060E2B34 02530101 0D010401 01";   // and three bytes
const std::string kDescriptiveData = "0201 0010 060E2B34 04010101 01030201 10000000";

// The clip group with UUIDs 1 to 11 and these values: take 0x0102, project number "P-1", project name "River", job
// function "DoP", family name "Ng", first given name "Li".
const Sets kClip = {
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
const Sets kScene = {
    kStructuralKey + "3900 83000044 3C0A 0010" + UID(1) +
        "4801 0004 00000066  4804 0004 00000000  4B01 0008 00007530 000003E9  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000044 3C0A 0010" + UID(2) + kDescriptiveData + "1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 83000054 3C0A 0010" + UID(3) + kDescriptiveData +
        "0202 0008 0000000000000001  0601 0008 0000000000000007  6101 0010" + UID(5),
    kDescriptiveKey + "010300 8300003F 3C0A 0010" + UID(5) + "8001 0003 656E00  8011 0020 313241" + Zeros(29),
};

// The XML group with UUIDs 1 to 5 and the XML "<a/>".
const Sets kXML = {
    kStructuralKey + "3A00 83000038 3C0A 0010" + UID(1) + "4801 0004 000003E9  4804 0004 00000000  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000044 3C0A 0010" + UID(2) + kDescriptiveData + "1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 8300003C 3C0A 0010" + UID(3) + kDescriptiveData + "6101 0010" + UID(5),
    "060E2B34 01010109 0E0E0101 11010100 83000021 3C0A 0010" + UID(5) + "A001 0001 00  A002 0004 3C612F3E",
};

// The thumbnail group with UUIDs 1 to 5, 50p, start position 0x0102, format 1, 64 x 36, picture 42 4D.
const Sets kThumbnail = {
    kStructuralKey + "3900 83000044 3C0A 0010" + UID(1) +
        "4801 0004 000003EA  4804 0004 00000000  4B01 0008 00000032 00000001  4803 0010" + UID(2),
    kStructuralKey + "0F00 83000050 3C0A 0010" + UID(2) + kDescriptiveData +
        "0202 0008 0000000000000001  1001 0018 00000001 00000010" + UID(3),
    kStructuralKey + "4100 83000054 3C0A 0010" + UID(3) + kDescriptiveData +
        "0202 0008 0000000000000001  0601 0008 0000000000000102  6101 0010" + UID(5),
    "060E2B34 01010109 0E0E0101 11010200 8300002B 3C0A 0010" + UID(5) +
        "A011 0001 01  A012 0002 0040  A013 0002 0024  A014 0002 424D",
};

std::vector<uint8_t> Bytes(const Sets& sets) {
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

CDMSClip FilledClip() {
    auto clip = Built<CDMSClip>(VIDEO_STD_59_94I);
    EXPECT_EQ(clip.SetTakeNumber(0x0102), kStatusOk);
    EXPECT_EQ(clip.SetProjectNumber("P-1"), kStatusOk);
    EXPECT_EQ(clip.SetProjectName("River"), kStatusOk);
    EXPECT_EQ(clip.SetJobFunction("DoP"), kStatusOk);
    EXPECT_EQ(clip.SetFamilyName("Ng"), kStatusOk);
    EXPECT_EQ(clip.SetFirstGivenName("Li"), kStatusOk);
    return clip;
}

CDMSScene FilledScene() {
    auto scene = Built<CDMSScene>(VIDEO_STD_59_94I);
    EXPECT_EQ(scene.SetEventStartPosition(7), kStatusOk);
    EXPECT_EQ(scene.SetSceneNumber("12A"), kStatusOk);
    return scene;
}

CDMSKestralinStatic FilledXML() {
    auto group = Built<CDMSKestralinStatic>(VIDEO_STD_59_94I);
    const uint8_t xml[] = {'<', 'a', '/', '>'};
    EXPECT_EQ(group.SetXMLData(xml, 4), kStatusOk);
    return group;
}

CDMSKestralinEvent FilledThumbnail() {
    auto group = Built<CDMSKestralinEvent>(VIDEO_STD_50P);
    const uint8_t picture[] = {'B', 'M'};
    EXPECT_EQ(group.SetThumbnailData(picture, 2, 64, 36, 1), kStatusOk);
    EXPECT_EQ(group.SetEventStartPosition(0x0102), kStatusOk);
    return group;
}

void ExpectFilled(const CDMSClip& clip) {
    EXPECT_EQ(clip.GetTakeNumber(), 0x0102);
    EXPECT_EQ(clip.GetProjectNumber(), "P-1");
    EXPECT_EQ(clip.GetProjectName(), "River");
    EXPECT_EQ(clip.GetJobFunction(), "DoP");
    EXPECT_EQ(clip.GetFamilyName(), "Ng");
    EXPECT_EQ(clip.GetFirstGivenName(), "Li");
}
void ExpectFilled(const CDMSScene& scene) { EXPECT_EQ(scene.GetSceneNumber(), "12A"); }
void ExpectFilled(const CDMSKestralinStatic& group) {
    ASSERT_EQ(group.GetXMLDataSize(), 4);
    EXPECT_TRUE(SameBytes(Hex("3C612F3E"), {group.GetXMLData(), 4}));
}
void ExpectFilled(const CDMSKestralinEvent& group) {
    EXPECT_EQ(group.GetEventStartPosition(), 0x0102);
    EXPECT_EQ(group.GetThumbnailFormat(), 1);
    EXPECT_EQ(group.GetThumbnailWidth(), 64);
    EXPECT_EQ(group.GetThumbnailHeight(), 36);
    ASSERT_EQ(group.GetThumbnailDataSize(), 2);
    EXPECT_TRUE(SameBytes(Hex("424D"), {group.GetThumbnailData(), 2}));
}

// What holds for all four: the group, how it is filled, and its bytes.
template <class Group, Group (*fill)(), const Sets* sets, uint32_t builtLength>
struct Case {
    using Type = Group;
    static Group Filled() { return fill(); }
    static const Sets& Hexes() { return *sets; }
    static constexpr uint32_t kBuiltLength = builtLength;
};
template <class T>
class DMSGroup : public testing::Test {};
using Groups = testing::Types<Case<CDMSClip, FilledClip, &kClip, 1497>, Case<CDMSScene, FilledScene, &kScene, 363>,
                              Case<CDMSKestralinStatic, FilledXML, &kXML, 293>,
                              Case<CDMSKestralinEvent, FilledThumbnail, &kThumbnail, 353>>;
TYPED_TEST_SUITE(DMSGroup, Groups);

template <class Group>
int32_t Read(Group& group, const std::vector<uint8_t>& metadata) {
    return group.SetData(metadata.data(), static_cast<uint32_t>(metadata.size()));
}

TYPED_TEST(DMSGroup, WritesItsSetsInOrder) {
    auto group = TypeParam::Filled();
    const auto expected = Bytes(TypeParam::Hexes());
    EXPECT_EQ(group.GetLength(), expected.size());
    EXPECT_TRUE(SameBytes(expected, Serialised(group)));
    EXPECT_EQ(group.GetTrackInstanceUID(), FixedEnvironment::UUID(1));
}

TYPED_TEST(DMSGroup, HasTheLengthOfItsTables) {
    typename TypeParam::Type group(VIDEO_STD_50I);
    EXPECT_EQ(group.Build(), kStatusOk);
    EXPECT_EQ(group.GetLength(), TypeParam::kBuiltLength);
    EXPECT_EQ(Serialised(group).size(), TypeParam::kBuiltLength);
}

TYPED_TEST(DMSGroup, IsEmptyUntilItIsBuilt) {
    typename TypeParam::Type group(VIDEO_STD_50I);
    EXPECT_EQ(group.GetLength(), 0u);
    EXPECT_TRUE(Serialised(group).empty());
    uint8_t byte = 7;
    EXPECT_EQ(group.MemSetData(&byte, 0), 0u);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(group.GetTrackInstanceUID(), MXFKEYTag{});
}

TYPED_TEST(DMSGroup, SerialisersRefuseNull) {
    auto group = TypeParam::Filled();
    EXPECT_EQ(group.GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(group.MemSetData(nullptr, 0), 0u);
    EXPECT_EQ(group.MemSetData(nullptr, 100), 100u);
}

TYPED_TEST(DMSGroup, IsWrittenIntoABufferAtAnOffset) {
    auto group = TypeParam::Filled();
    const auto expected = Bytes(TypeParam::Hexes());
    std::vector<uint8_t> buffer(expected.size() + 5, 0xEE);
    EXPECT_EQ(group.MemSetData(buffer.data(), 3), 3 + expected.size());
    EXPECT_TRUE(SameBytes(expected, std::span(buffer).subspan(3, expected.size())));
    EXPECT_TRUE(SameBytes(Hex("EEEEEE"), std::span(buffer).first(3)));
    EXPECT_TRUE(SameBytes(Hex("EEEE"), std::span(buffer).last(2)));
}

TYPED_TEST(DMSGroup, BuildingAgainStartsAnew) {
    auto group = TypeParam::Filled();
    const auto before = group.GetTrackInstanceUID();
    EXPECT_EQ(group.Build(), kStatusOk);
    EXPECT_NE(group.GetTrackInstanceUID(), before);
    EXPECT_EQ(group.GetLength(), TypeParam::kBuiltLength);
}

TYPED_TEST(DMSGroup, CopiesAreDeepAndKeepTheInstanceUIDs) {
    auto original = TypeParam::Filled();
    const auto expected = Bytes(TypeParam::Hexes());
    auto copy(original);
    typename TypeParam::Type assigned(VIDEO_STD_25P);
    assigned = original;
    original.Build();
    EXPECT_TRUE(SameBytes(expected, Serialised(copy)));
    EXPECT_TRUE(SameBytes(expected, Serialised(assigned)));
    ExpectFilled(copy);
}

TYPED_TEST(DMSGroup, IsReadBackAsItWasWritten) {
    const auto bytes = Bytes(TypeParam::Hexes());
    typename TypeParam::Type group(VIDEO_STD_25P);
    ASSERT_EQ(Read(group, bytes), kStatusOk);
    ExpectFilled(group);
    EXPECT_TRUE(SameBytes(bytes, Serialised(group)));
    EXPECT_EQ(group.GetTrackInstanceUID(), FixedEnvironment::UUID(1));
}

TYPED_TEST(DMSGroup, ReadingReplacesWhatWasThere) {
    auto group = TypeParam::Filled();
    typename TypeParam::Type other(VIDEO_STD_25P);
    other.Build();
    const auto bytes = Serialised(other);
    ASSERT_EQ(Read(group, bytes), kStatusOk);
    EXPECT_TRUE(SameBytes(bytes, Serialised(group)));
}

TYPED_TEST(DMSGroup, IsReadWithItsSetsInAnyOrder) {
    Sets sets = TypeParam::Hexes();
    std::mt19937 random(1);
    for (int round = 0; round < 20; ++round) {
        std::shuffle(sets.begin(), sets.end(), random);
        typename TypeParam::Type group(VIDEO_STD_25P);
        ASSERT_EQ(Read(group, Bytes(sets)), kStatusOk);
        ExpectFilled(group);
        EXPECT_TRUE(SameBytes(Bytes(TypeParam::Hexes()), Serialised(group)));
    }
}

TYPED_TEST(DMSGroup, IsNotFoundWhenAnySetIsMissing) {
    for (size_t missing = 0; missing < TypeParam::Hexes().size(); ++missing) {
        Sets sets = TypeParam::Hexes();
        sets.erase(sets.begin() + static_cast<std::ptrdiff_t>(missing));
        auto group = TypeParam::Filled();
        EXPECT_EQ(Read(group, Bytes(sets)), kStatusNotFound) << missing;
        EXPECT_EQ(group.GetLength(), TypeParam::kBuiltLength);
        EXPECT_NE(group.GetTrackInstanceUID(), FixedEnvironment::UUID(1));
    }
}

TYPED_TEST(DMSGroup, NullIsRefusedAndChangesNothing) {
    auto group = TypeParam::Filled();
    EXPECT_EQ(group.SetData(nullptr, 100), kStatusInvalidArgument);
    EXPECT_EQ(group.SetData(nullptr, 0), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(Bytes(TypeParam::Hexes()), Serialised(group)));
}

TYPED_TEST(DMSGroup, NothingIsReadFromMetadataCutAtAnyByte) {
    const auto bytes = Bytes(TypeParam::Hexes());
    typename TypeParam::Type group(VIDEO_STD_25P);
    for (size_t size = 1; size < bytes.size(); ++size) {
        const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        const int32_t status = Read(group, cut);
        EXPECT_TRUE(status == kStatusNotFound || status == kStatusFailure) << size;
        EXPECT_EQ(group.GetLength(), TypeParam::kBuiltLength);
    }
    const uint8_t byte = 6;
    EXPECT_EQ(group.SetData(&byte, 0), kStatusNotFound);
}

TYPED_TEST(DMSGroup, LastSetThatLeadsOutsideIsMalformed) {
    Sets sets = TypeParam::Hexes();
    auto bytes = Bytes(sets);
    bytes.pop_back();
    auto group = TypeParam::Filled();
    EXPECT_EQ(Read(group, bytes), kStatusFailure);
    EXPECT_EQ(group.GetLength(), TypeParam::kBuiltLength);
}

TYPED_TEST(DMSGroup, DamagedBytesNeverLeadOutside) {
    const auto bytes = Bytes(TypeParam::Hexes());
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        auto damaged = bytes;
        for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        typename TypeParam::Type group(VIDEO_STD_25P);
        const int32_t status = Read(group, damaged);
        EXPECT_TRUE(status == kStatusOk || status == kStatusNotFound || status == kStatusFailure);
        const auto written = Serialised(group);
        EXPECT_NO_THROW(Packets(written, 0, written.size())) << "round " << round;  // whole packets, and nothing else
    }
}

TYPED_TEST(DMSGroup, LengthsThatLieAreSurvived) {
    const auto readWithLength = [](size_t set, const std::string& length) {
        Sets sets = TypeParam::Hexes();
        const auto at = sets[set].find("83000");
        sets[set] = sets[set].substr(0, at) + length + sets[set].substr(at + 8);
        typename TypeParam::Type group(VIDEO_STD_25P);
        return Read(group, Bytes(sets));
    };
    for (size_t set = 0; set < TypeParam::Hexes().size(); ++set) {
        for (const char* tooLong : {"83FFFFFF", "88FFFFFFFFFFFFFFFF", "887FFFFFFFFFFFFFFF"})
            EXPECT_NE(readWithLength(set, tooLong), kStatusOk) << set << ' ' << tooLong;
        for (const char* length : {"83000000", "83000001", "80", "7F", "FF"}) {
            const int32_t status = readWithLength(set, length);
            EXPECT_TRUE(status == kStatusOk || status == kStatusNotFound || status == kStatusFailure)
                << set << ' ' << length << ": " << status;
        }
    }
}

// Segments, sequences and static tracks of the groups share their keys, and so do sequences of other tracks.
TEST(DMSGroups, EachIsFoundAmongTheOthers) {
    CDMSClip clip(VIDEO_STD_59_94I);
    CDMSScene scene(VIDEO_STD_59_94I);
    CDMSKestralinStatic xml(VIDEO_STD_59_94I);
    CDMSKestralinEvent thumbnail(VIDEO_STD_59_94I);
    clip.Build();
    scene.Build();
    xml.Build();
    thumbnail.Build();
    clip.SetFamilyName("Ng");
    scene.SetEventStartPosition(11);
    const uint8_t data[] = {1, 2, 3};
    xml.SetXMLData(data, 2);
    thumbnail.SetThumbnailData(data, 3, 1, 2, 0);
    thumbnail.SetEventStartPosition(22);
    // A fill item with a short length, and a sequence of a timecode track with two components.
    auto metadata =
        Hex("060E2B34 01010102 03010210 01000000 02 0000" + kStructuralKey + "0F00 83000060 3C0A 0010" + UID(200) +
            "0201 0010 060E2B34 04010101 01030201 01000000  0202 0008 0000000000000005"
            "1001 0028 00000002 00000010" +
            UID(201) + UID(202));
    const auto append = [&](auto& group) {
        const auto bytes = Serialised(group);
        metadata.insert(metadata.end(), bytes.begin(), bytes.end());
    };
    append(thumbnail);
    append(xml);
    append(scene);
    append(clip);

    const auto expectRead = [&](auto group, auto& written) {
        ASSERT_EQ(Read(group, metadata), kStatusOk);
        EXPECT_TRUE(SameBytes(Serialised(written), Serialised(group)));
    };
    expectRead(CDMSClip(0), clip);
    expectRead(CDMSScene(0), scene);
    expectRead(CDMSKestralinStatic(0), xml);
    expectRead(CDMSKestralinEvent(0), thumbnail);
}

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
