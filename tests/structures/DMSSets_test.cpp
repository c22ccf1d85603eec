#include "kmxf/structures/DMSSets.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Serialised.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

constexpr int32_t kTextRefused = -1;

// A set as hex text against the bytes of an object; the size is said twice, so that it can be held against the tables.
template <class Set>
void ExpectBytes(Set& set, uint32_t size, const std::string& hex) {
    EXPECT_EQ(set.GetLength(), size);
    EXPECT_TRUE(SameBytes(Hex(hex), Serialised(set)));
}

std::string Repeat(size_t count, const std::string& text) {
    std::string repeated;
    for (size_t i = 0; i < count; ++i) repeated += text;
    return repeated;
}

const std::string kStructuralKey = "060E2B34 02530101 0D010101 0101";  // and two bytes
const std::string kDescriptiveKey = "060E2B34 02530101 0D010401 01";   // and three bytes
const std::string kDescriptiveData = "0201 0010 060E2B34 04010101 01030201 10000000";
const std::string kClipKind =  // "moving pictures and sound"
    "8012 003C 006D006F00760069006E00670020 0070006900630074007500720065007300200061006E00640020 "
    "0073006F0075006E0064" +
    Zeros(10);

TEST(DMSTrack, StaticTrackIs76Bytes) {
    FixedEnvironment fixed;
    CDMSTrack track(false, VIDEO_STD_59_94I);
    ExpectBytes(track, 76,
                kStructuralKey + "3A00 83000038 3C0A 0010" + UID(1) +
                    "4801 0004 00000000  4804 0004 00000000  4803 0010" + Zeros(16));
}

TEST(DMSTrack, EventTrackIs88BytesWithTheVideoEditRate) {
    FixedEnvironment fixed;
    CDMSTrack track(true, VIDEO_STD_59_94P);
    EXPECT_EQ(track.SetTrackID(0x01020304), kStatusOk);
    EXPECT_EQ(track.SetSequence(FixedEnvironment::UUID(9)), kStatusOk);
    ExpectBytes(track, 88,
                kStructuralKey + "3900 83000044 3C0A 0010" + UID(1) +
                    "4801 0004 01020304  4804 0004 00000000  4B01 0008 0000EA60 000003E9  4803 0010" + UID(9));
}

TEST(DMSTrack, EditRateOfAnUnknownStandardIsZero) {
    FixedEnvironment fixed;
    CDMSTrack track(true, 0);
    ExpectBytes(track, 88,
                kStructuralKey + "3900 83000044 3C0A 0010" + UID(1) +
                    "4801 0004 00000000  4804 0004 00000000  4B01 0008 00000000 00000000  4803 0010" + Zeros(16));
}

TEST(DMSSequence, SequenceWithoutDurationIs88Bytes) {
    FixedEnvironment fixed;
    CDMSSequence sequence;
    ExpectBytes(sequence, 88,
                kStructuralKey + "0F00 83000044 3C0A 0010" + UID(1) + kDescriptiveData + "1001 0018 00000001 00000010" +
                    Zeros(16));
}

TEST(DMSSequence, DurationAddsTwelveBytes) {
    FixedEnvironment fixed;
    CDMSSequence sequence(1);
    EXPECT_EQ(sequence.SetSegment(FixedEnvironment::UUID(9)), kStatusOk);
    ExpectBytes(sequence, 100,
                kStructuralKey + "0F00 83000050 3C0A 0010" + UID(1) + kDescriptiveData +
                    "0202 0008 0000000000000001  1001 0018 00000001 00000010" + UID(9));
    EXPECT_EQ(sequence.SetDuration(0), kStatusOk);
    EXPECT_EQ(sequence.GetLength(), 88u);
    EXPECT_EQ(sequence.SetDuration(-1), kStatusOk);
    ExpectBytes(sequence, 100,
                kStructuralKey + "0F00 83000050 3C0A 0010" + UID(1) + kDescriptiveData +
                    "0202 0008 FFFFFFFFFFFFFFFF  1001 0018 00000001 00000010" + UID(9));
}

TEST(DMSSequence, SecondSegmentReplacesTheFirst) {
    CDMSSequence sequence;
    sequence.SetSegment(FixedEnvironment::UUID(8));
    sequence.SetSegment(FixedEnvironment::UUID(9));
    const auto bytes = Serialised(sequence);
    EXPECT_EQ(bytes.size(), 88u);
    EXPECT_TRUE(SameBytes(Hex("00000001 00000010" + UID(9)), std::span(bytes).last(24)));
}

TEST(StaticSegment, FrameworkIsAFreshUUIDUntilItIsSet) {
    FixedEnvironment fixed;
    CStaticSegment segment;
    ExpectBytes(segment, 80,
                kStructuralKey + "4100 8300003C 3C0A 0010" + UID(1) + kDescriptiveData + "6101 0010" + UID(2));
    EXPECT_EQ(segment.SetFramework(FixedEnvironment::UUID(9)), kStatusOk);
    ExpectBytes(segment, 80,
                kStructuralKey + "4100 8300003C 3C0A 0010" + UID(1) + kDescriptiveData + "6101 0010" + UID(9));
}

TEST(EventSegment, HasDurationOneAndAStartPosition) {
    FixedEnvironment fixed;
    CEventSegment segment;
    ExpectBytes(segment, 104,
                kStructuralKey + "4100 83000054 3C0A 0010" + UID(1) + kDescriptiveData +
                    "0202 0008 0000000000000001  0601 0008 0000000000000000  6101 0010" + UID(2));
    EXPECT_EQ(segment.SetEventStartPosition(0x0102030405060708), kStatusOk);
    EXPECT_EQ(segment.SetFramework(FixedEnvironment::UUID(9)), kStatusOk);
    ExpectBytes(segment, 104,
                kStructuralKey + "4100 83000054 3C0A 0010" + UID(1) + kDescriptiveData +
                    "0202 0008 0000000000000001  0601 0008 0102030405060708  6101 0010" + UID(9));
}

TEST(ClipFramework, IsEnglishMovingPicturesAndSound) {
    FixedEnvironment fixed;
    CClipFramework framework;
    ExpectBytes(framework, 185,
                kDescriptiveKey + "010200 830000A5 3C0A 0010" + UID(1) + "8001 0003 656E00" + kClipKind + "8004 0010" +
                    Zeros(16) + "800D 0010" + Zeros(16) + "8005 0018 00000001 00000010" + Zeros(16) + "8010 0002 0000");
    EXPECT_EQ(framework.SetContactsList(FixedEnvironment::UUID(5)), kStatusOk);
    EXPECT_EQ(framework.SetProject(FixedEnvironment::UUID(6)), kStatusOk);
    EXPECT_EQ(framework.SetParticipant(FixedEnvironment::UUID(7)), kStatusOk);
    EXPECT_EQ(framework.SetTakeNumber(0xFFFE), kStatusOk);
    ExpectBytes(framework, 185,
                kDescriptiveKey + "010200 830000A5 3C0A 0010" + UID(1) + "8001 0003 656E00" + kClipKind + "8004 0010" +
                    UID(5) + "800D 0010" + UID(6) + "8005 0018 00000001 00000010" + UID(7) + "8010 0002 FFFE");
}

TEST(ContactsList, HasOnePerson) {
    FixedEnvironment fixed;
    CContactsList list;
    ExpectBytes(list, 68,
                kDescriptiveKey + "190100 83000030 3C0A 0010" + UID(1) + "8008 0018 00000001 00000010" + Zeros(16));
    EXPECT_EQ(list.SetPerson(FixedEnvironment::UUID(9)), kStatusOk);
    ExpectBytes(list, 68,
                kDescriptiveKey + "190100 83000030 3C0A 0010" + UID(1) + "8008 0018 00000001 00000010" + UID(9));
}

TEST(Project, NumberIsRawAndNameIsUTF16) {
    FixedEnvironment fixed;
    CProject project;
    ExpectBytes(
        project, 480,
        kDescriptiveKey + "200200 830001CC 3C0A 0010" + UID(1) + "800E 0020" + Zeros(32) + "800F 0190" + Zeros(400));
    EXPECT_EQ(project.SetProjectNumber("P\xFF\xE9"), kStatusOk);            // not UTF-8, and need not be
    EXPECT_EQ(project.SetProjectName("Z\xC3\xA9\xE3\x81\x82"), kStatusOk);  // Z, e acute, hiragana a
    ExpectBytes(project, 480,
                kDescriptiveKey + "200200 830001CC 3C0A 0010" + UID(1) + "800E 0020 50FFE9" + Zeros(29) +
                    "800F 0190 005A 00E9 3042" + Zeros(394));
}

TEST(Project, NumberOf32BytesFillsItsFieldAndALongerOneIsDropped) {
    CProject project;
    EXPECT_EQ(project.SetProjectNumber(std::string(32, 'n')), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex("800E 0020" + Repeat(32, "6E") + "800F"), Part(project, 40, 38)));
    EXPECT_EQ(project.SetProjectNumber(std::string(33, 'n')), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex("800E 0020" + Zeros(32) + "800F"), Part(project, 40, 38)));
}

TEST(Project, ShorterNumberLeavesNothingOfALongerOne) {
    CProject project;
    project.SetProjectNumber("abcdef");
    project.SetProjectNumber("x");
    EXPECT_TRUE(SameBytes(Hex("800E 0020 78" + Zeros(31)), Part(project, 40, 36)));
}

TEST(Project, NameOf200UnitsFitsAndOneMoreDoesNot) {
    CProject project;
    EXPECT_EQ(project.SetProjectName(std::string(200, 'n')), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(Repeat(200, "006E")), Part(project, 80, 400)));
    EXPECT_EQ(project.SetProjectName(std::string(201, 'n')), kTextRefused);
    EXPECT_TRUE(SameBytes(Hex(Zeros(400)), Part(project, 80, 400)));
}

TEST(Participant, IdentifierIsAFreshUUID) {
    FixedEnvironment fixed;
    CParticipant participant;
    ExpectBytes(participant, 212,
                kDescriptiveKey + "180100 830000C0 3C0A 0010" + UID(1) + "8006 0010" + UID(2) + "8007 0078" +
                    Zeros(120) + "800C 0018 00000001 00000010" + Zeros(16));
    EXPECT_EQ(participant.SetJobFunction("DoP"), kStatusOk);
    EXPECT_EQ(participant.SetPerson(FixedEnvironment::UUID(9)), kStatusOk);
    ExpectBytes(participant, 212,
                kDescriptiveKey + "180100 830000C0 3C0A 0010" + UID(1) + "8006 0010" + UID(2) +
                    "8007 0078 0044 006F 0050" + Zeros(114) + "800C 0018 00000001 00000010" + UID(9));
}

TEST(Person, HasTwoNames) {
    FixedEnvironment fixed;
    CPerson person;
    ExpectBytes(person, 308,
                kDescriptiveKey + "1A0200 83000120 3C0A 0010" + UID(1) + "8009 0010" + UID(2) + "800A 0078" +
                    Zeros(120) + "800B 0078" + Zeros(120));
    EXPECT_EQ(person.SetFamilyName("Ng"), kStatusOk);
    EXPECT_EQ(person.SetFirstGivenName("Li"), kStatusOk);
    ExpectBytes(person, 308,
                kDescriptiveKey + "1A0200 83000120 3C0A 0010" + UID(1) + "8009 0010" + UID(2) + "800A 0078 004E 0067" +
                    Zeros(116) + "800B 0078 004C 0069" + Zeros(116));
}

// Each text of 60 units with its setter, and where its field stands in the set.
template <class Set>
void ExpectSixtyUnits(int32_t (Set::*setText)(const std::string&), size_t offset) {
    Set set;
    const auto field = [&] { return Part(set, offset, 120); };
    EXPECT_EQ((set.*setText)(std::string(60, 'u')), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(Repeat(60, "0075")), field()));
    EXPECT_EQ((set.*setText)(std::string(61, 'u')), kTextRefused);
    EXPECT_TRUE(SameBytes(Hex(Zeros(120)), field()));
    // A four-byte sequence takes two units, which are not the surrogates of the character.
    const std::string fourBytes = "\xF0\x9F\x98\x80";
    EXPECT_EQ((set.*setText)(std::string(58, 'u') + fourBytes), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(Repeat(58, "0075") + "D8CC DE00"), field()));
    EXPECT_EQ((set.*setText)(std::string(59, 'u') + fourBytes), kTextRefused);
    EXPECT_TRUE(SameBytes(Hex(Zeros(120)), field()));
    for (const char* malformed : {"a\xFF", "a\x80", "a\xC3", "a\xC3(", "a\xE3\x81", "a\xE3\x28\x82", "a\xF0\x9F\x98"}) {
        (set.*setText)("before");
        EXPECT_EQ((set.*setText)(malformed), kTextRefused);
        EXPECT_TRUE(SameBytes(Hex(Zeros(120)), field()));
    }
    EXPECT_EQ((set.*setText)(""), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(Zeros(120)), field()));
}

TEST(Participant, JobFunctionHas60Units) { ExpectSixtyUnits(&CParticipant::SetJobFunction, 64); }
TEST(Person, FamilyNameHas60Units) { ExpectSixtyUnits(&CPerson::SetFamilyName, 64); }
TEST(Person, FirstGivenNameHas60Units) { ExpectSixtyUnits(&CPerson::SetFirstGivenName, 188); }

TEST(SceneFramework, IsEnglishWithARawSceneNumber) {
    FixedEnvironment fixed;
    CSceneFramework framework;
    ExpectBytes(framework, 83,
                kDescriptiveKey + "010300 8300003F 3C0A 0010" + UID(1) + "8001 0003 656E00  8011 0020" + Zeros(32));
    EXPECT_EQ(framework.SetSceneNumber("12A"), kStatusOk);
    ExpectBytes(
        framework, 83,
        kDescriptiveKey + "010300 8300003F 3C0A 0010" + UID(1) + "8001 0003 656E00  8011 0020 313241" + Zeros(29));
    EXPECT_EQ(framework.SetSceneNumber(std::string(32, 's')), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(Repeat(32, "73")), Part(framework, 51, 32)));
    EXPECT_EQ(framework.SetSceneNumber(std::string(33, 's')), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(Zeros(32)), Part(framework, 51, 32)));
}

const std::string kXMLKey = "060E2B34 01010109 0E0E0101 11010100";
const std::string kThumbnailKey = "060E2B34 01010109 0E0E0101 11010200";

template <class Set>
int32_t Parse(Set& set, const std::vector<uint8_t>& bytes) {
    return set.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

TEST(KestralinFrameworkStatic, Is49BytesAndTheXML) {
    FixedEnvironment fixed;
    CKestralinFrameworkStatic framework;
    ExpectBytes(framework, 49, kXMLKey + "8300001D 3C0A 0010" + UID(1) + "A001 0001 00  A002 0000");
    EXPECT_EQ(framework.GetXMLDataSize(), 0);
    const auto xml = Hex("3C612F3E 0A");
    EXPECT_EQ(framework.SetXMLData(xml.data(), 5), kStatusOk);
    ExpectBytes(framework, 54, kXMLKey + "83000022 3C0A 0010" + UID(1) + "A001 0001 00  A002 0005 3C612F3E 0A");
    ASSERT_EQ(framework.GetXMLDataSize(), 5);
    EXPECT_TRUE(SameBytes(xml, {framework.GetXMLData(), 5}));
    EXPECT_EQ(framework.SetXMLData(xml.data(), 0), kStatusOk);
    EXPECT_EQ(framework.GetLength(), 49u);
}

TEST(KestralinFrameworkStatic, NullXMLIsRefusedAndChangesNothing) {
    CKestralinFrameworkStatic framework;
    const uint8_t xml[] = {1, 2, 3};
    framework.SetXMLData(xml, 3);
    EXPECT_EQ(framework.SetXMLData(nullptr, 0), kStatusInvalidArgument);
    EXPECT_EQ(framework.SetXMLData(nullptr, 3), kStatusInvalidArgument);
    EXPECT_EQ(framework.GetXMLDataSize(), 3);
}

TEST(KestralinFrameworkStatic, HoldsAsMuchXMLAsALengthCanSay) {
    CKestralinFrameworkStatic framework, other;
    const std::vector<uint8_t> xml(65535, 'x');
    EXPECT_EQ(framework.SetXMLData(xml.data(), 65535), kStatusOk);
    EXPECT_EQ(framework.GetLength(), 49u + 65535);
    const auto bytes = Serialised(framework);
    EXPECT_EQ(Parse(other, bytes), kStatusOk);
    EXPECT_EQ(other.GetXMLDataSize(), 65535);
    EXPECT_TRUE(SameBytes(bytes, Serialised(other)));
}

TEST(KestralinFrameworkStatic, IsReadBackWithItsInstanceUID) {
    CKestralinFrameworkStatic framework, sized, unsized;
    const uint8_t xml[] = {'<', 'a', '/', '>'};
    framework.SetXMLData(xml, 4);
    const auto bytes = Serialised(framework);
    EXPECT_EQ(Parse(sized, bytes), kStatusOk);
    EXPECT_EQ(unsized.SetData(bytes.data()), kStatusOk);
    EXPECT_EQ(sized.GetInstanceUID(), framework.GetInstanceUID());
    EXPECT_TRUE(SameBytes(bytes, Serialised(sized)));
    EXPECT_TRUE(SameBytes(bytes, Serialised(unsized)));
}

TEST(KestralinFrameworkStatic, ReadsItemsInAnyOrderAndAnyLengthForm) {
    FixedEnvironment fixed;
    CKestralinFrameworkStatic framework;
    const std::string items = "A002 0002 3C3E  3C0A 0010" + UID(7) + "A001 0001 05";
    for (const char* length : {"1F", "811F", "8300001F", "880000000000 00001F"}) {
        ASSERT_EQ(Parse(framework, Hex((kXMLKey + length).append(items))), kStatusOk) << length;
        ExpectBytes(framework, 51, kXMLKey + "8300001F 3C0A 0010" + UID(7) + "A001 0001 05  A002 0002 3C3E");
    }
}

TEST(KestralinFrameworkStatic, ItemThatIsMissingStaysAsItIs) {
    FixedEnvironment fixed;
    CKestralinFrameworkStatic framework;
    ASSERT_EQ(Parse(framework, Hex(kXMLKey + "83000006 A002 0002 3C3E")), kStatusOk);
    ExpectBytes(framework, 51, kXMLKey + "8300001F 3C0A 0010" + UID(1) + "A001 0001 00  A002 0002 3C3E");
    ASSERT_EQ(Parse(framework, Hex(kXMLKey + "83000000")), kStatusOk);
    EXPECT_EQ(framework.GetXMLDataSize(), 2);
}

TEST(KestralinFrameworkStatic, WhatCannotBeReadChangesNothing) {
    CKestralinFrameworkStatic framework;
    const uint8_t xml[] = {1, 2, 3};
    framework.SetXMLData(xml, 3);
    const auto before = Serialised(framework);
    EXPECT_EQ(framework.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(framework.SetData(nullptr, 49), kStatusInvalidArgument);
    for (const auto& [what, hex] : std::vector<std::pair<std::string, std::string>>{
             {"another key", kThumbnailKey + "83000006 A002 0002 3C3E"},
             {"another tag", kXMLKey + "8300000B A002 0002 3C3E A003 0001 00"},
             {"tag zero", kXMLKey + "8300000B A002 0002 3C3E 0000 0001 00"},
             {"a value too long", kXMLKey + "8300000C A002 0002 3C3E A001 0002 0000"},
             {"an item that leads out of the set", kXMLKey + "83000006 A002 0003 3C3E 3E"},
             {"a set that leads out of the buffer", kXMLKey + "83000007 A002 0002 3C3E"},
             {"a length that leads far out", kXMLKey + "88FFFFFFFFFFFFFFFF A002 0002 3C3E"},
         }) {
        EXPECT_EQ(Parse(framework, Hex(hex)), kStatusFailure) << what;
    }
    EXPECT_EQ(framework.SetData(Hex(kThumbnailKey + "83000006 A002 0002 3C3E").data()), kStatusFailure);
    EXPECT_TRUE(SameBytes(before, Serialised(framework)));
}

template <class Set>
void ExpectNothingReadFromACutSet(Set& whole) {
    const auto bytes = Serialised(whole);
    Set set;
    const auto before = Serialised(set);
    for (size_t size = 0; size < bytes.size(); ++size) {
        const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        // An empty buffer may be a null pointer.
        EXPECT_EQ(Parse(set, cut), size == 0 ? kStatusInvalidArgument : kStatusFailure) << size;
    }
    EXPECT_TRUE(SameBytes(before, Serialised(set)));
}

TEST(KestralinFrameworkStatic, SetCutAtAnyByteIsRefused) {
    CKestralinFrameworkStatic whole;
    const uint8_t xml[] = {1, 2, 3};
    whole.SetXMLData(xml, 3);
    ExpectNothingReadFromACutSet(whole);
}

TEST(KestralinFrameworkEvent, Is61BytesAndThePicture) {
    FixedEnvironment fixed;
    CKestralinFrameworkEvent framework;
    ExpectBytes(
        framework, 61,
        kThumbnailKey + "83000029 3C0A 0010" + UID(1) + "A011 0001 00  A012 0002 0050  A013 0002 002D  A014 0000");
    EXPECT_EQ(framework.GetThumbnailFormat(), 0);
    EXPECT_EQ(framework.GetThumbnailWidth(), 80);
    EXPECT_EQ(framework.GetThumbnailHeight(), 45);
    EXPECT_EQ(framework.GetThumbnailDataSize(), 0);

    const auto picture = Hex("424D FF00");
    EXPECT_EQ(framework.SetThumbnailFormat(1), kStatusOk);
    EXPECT_EQ(framework.SetThumbnailWidth(0x1234), kStatusOk);
    EXPECT_EQ(framework.SetThumbnailHeight(0xFFFF), kStatusOk);
    EXPECT_EQ(framework.SetThumbnailData(picture.data(), 4), kStatusOk);
    ExpectBytes(framework, 65,
                kThumbnailKey + "8300002D 3C0A 0010" + UID(1) +
                    "A011 0001 01  A012 0002 1234  A013 0002 FFFF  A014 0004 424DFF00");
    EXPECT_EQ(framework.GetThumbnailFormat(), 1);
    EXPECT_EQ(framework.GetThumbnailWidth(), 0x1234);
    EXPECT_EQ(framework.GetThumbnailHeight(), 0xFFFF);
    ASSERT_EQ(framework.GetThumbnailDataSize(), 4);
    EXPECT_TRUE(SameBytes(picture, {framework.GetThumbnailData(), 4}));
}

TEST(KestralinFrameworkEvent, FormatIsZeroOrOne) {
    CKestralinFrameworkEvent framework;
    EXPECT_EQ(framework.SetThumbnailFormat(1), kStatusOk);
    EXPECT_EQ(framework.SetThumbnailFormat(2), kStatusInvalidArgument);
    EXPECT_EQ(framework.SetThumbnailFormat(255), kStatusInvalidArgument);
    EXPECT_EQ(framework.GetThumbnailFormat(), 1);
}

TEST(KestralinFrameworkEvent, PictureHasUpTo16384Bytes) {
    CKestralinFrameworkEvent framework;
    const std::vector<uint8_t> picture(16385, 7);
    EXPECT_EQ(framework.SetThumbnailData(picture.data(), 16384), kStatusOk);
    EXPECT_EQ(framework.GetLength(), 61u + 16384);
    EXPECT_EQ(framework.SetThumbnailData(picture.data(), 16385), kStatusInvalidArgument);
    EXPECT_EQ(framework.SetThumbnailData(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(framework.SetThumbnailData(nullptr, 0), kStatusInvalidArgument);
    EXPECT_EQ(framework.GetThumbnailDataSize(), 16384);
    EXPECT_EQ(framework.SetThumbnailData(picture.data(), 0), kStatusOk);
    EXPECT_EQ(framework.GetLength(), 61u);
}

TEST(KestralinFrameworkEvent, PictureTooLongForTheSetIsNotRead) {
    CKestralinFrameworkEvent framework;
    EXPECT_EQ(Parse(framework, Hex(kThumbnailKey + "83004004 A014 4000" + Zeros(16384))), kStatusOk);
    EXPECT_EQ(framework.GetThumbnailDataSize(), 16384);
    EXPECT_EQ(Parse(framework, Hex(kThumbnailKey + "83004005 A014 4001" + Zeros(16385))), kStatusFailure);
    EXPECT_EQ(framework.GetThumbnailDataSize(), 16384);
}

TEST(KestralinFrameworkEvent, IsReadBackInAnyOrder) {
    FixedEnvironment fixed;
    CKestralinFrameworkEvent framework, unsized;
    const auto bytes = Hex(kThumbnailKey + "8300002B A014 0002 424D  A013 0002 0030  3C0A 0010" + UID(7) +
                           "A012 0002 0040  A011 0001 01");
    const std::string written =
        kThumbnailKey + "8300002B 3C0A 0010" + UID(7) + "A011 0001 01  A012 0002 0040  A013 0002 0030  A014 0002 424D";
    ASSERT_EQ(Parse(framework, bytes), kStatusOk);
    ExpectBytes(framework, 63, written);
    ASSERT_EQ(unsized.SetData(bytes.data()), kStatusOk);
    ExpectBytes(unsized, 63, written);
}

TEST(KestralinFrameworkEvent, WhatCannotBeReadChangesNothing) {
    CKestralinFrameworkEvent framework;
    framework.SetThumbnailWidth(99);
    const auto before = Serialised(framework);
    EXPECT_EQ(framework.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(framework.SetData(nullptr, 61), kStatusInvalidArgument);
    EXPECT_EQ(Parse(framework, Hex(kXMLKey + "83000006 A012 0002 0001")), kStatusFailure);
    EXPECT_EQ(Parse(framework, Hex(kThumbnailKey + "8300000C A012 0002 0001 A002 0002 3C3E")), kStatusFailure);
    EXPECT_EQ(Parse(framework, Hex(kThumbnailKey + "8300000D A012 0002 0001 A013 0003 000001")), kStatusFailure);
    EXPECT_TRUE(SameBytes(before, Serialised(framework)));
}

TEST(KestralinFrameworkEvent, SetCutAtAnyByteIsRefused) {
    CKestralinFrameworkEvent whole;
    const uint8_t picture[] = {1, 2, 3};
    whole.SetThumbnailData(picture, 3);
    ExpectNothingReadFromACutSet(whole);
}

template <class Set>
void ExpectNullRefusedAndCopiesDeep(Set set) {
    EXPECT_EQ(set.GetData(nullptr), kStatusInvalidArgument);
    Set copy(set);
    EXPECT_EQ(copy.GetInstanceUID(), set.GetInstanceUID());
    EXPECT_TRUE(SameBytes(Serialised(set), Serialised(copy)));
}

TEST(DMSSets, SerialisersRefuseNullAndCopiesKeepTheInstanceUID) {
    ExpectNullRefusedAndCopiesDeep(CDMSTrack(true, VIDEO_STD_25P));
    ExpectNullRefusedAndCopiesDeep(CDMSSequence(1));
    ExpectNullRefusedAndCopiesDeep(CStaticSegment());
    ExpectNullRefusedAndCopiesDeep(CEventSegment());
    ExpectNullRefusedAndCopiesDeep(CClipFramework());
    ExpectNullRefusedAndCopiesDeep(CContactsList());
    ExpectNullRefusedAndCopiesDeep(CProject());
    ExpectNullRefusedAndCopiesDeep(CParticipant());
    ExpectNullRefusedAndCopiesDeep(CPerson());
    ExpectNullRefusedAndCopiesDeep(CSceneFramework());
    ExpectNullRefusedAndCopiesDeep(CKestralinFrameworkStatic());
    ExpectNullRefusedAndCopiesDeep(CKestralinFrameworkEvent());
}

}  // namespace
}  // namespace kmxf::test
