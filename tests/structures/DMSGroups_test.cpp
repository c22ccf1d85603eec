#include "kmxf/structures/DMSGroups.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "Serialised.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/FilledGroups.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/Packets.h"

// What holds for every group.
namespace kmxf::test {
namespace {

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

}  // namespace
}  // namespace kmxf::test
