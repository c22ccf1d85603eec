#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kmxf/core/Status.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/TestData.h"
#include "tools/HeaderEditing.h"
#include "tools/StreamFactory.h"

// The XML of a clip.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kXMLNotFound = "CModifyMXFHeaderData::ModifyXMLData: GetKeyParam Error.";
constexpr const char* kXMLUnfit = "CModifyMXFHeaderData::ModifyXMLData: DMS SetData Error.";

constexpr std::string_view kXMLSetStart = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00 83";
const std::string kXMLSetItems = "3C 0A 00 10" + U('5') + "A0 01 00 01 00 A0 02";

TEST_F(ModifyMXFHeaderData, ShorterXMLLetsTheFillItemGrowUpToTheThumbnail) {
    auto expected = HexClip().Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("00 00 23"), Hex(kXMLSetItems), Hex("00 06"), Text("<new/>"),
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3E C1")}));
    ExpectEdited(XML(Text("<new/>")), HexClip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, LongerXMLTakesFromTheFillItem) {
    const auto xml = Pattern(1000, 5);
    auto expected = HexClip().Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("00 04 05"), Hex(kXMLSetItems), Hex("03 E8"), xml,
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3A DF")}));
    ExpectEdited(XML(xml), HexClip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, XMLOfTheSameLengthChangesTheXMLOnly) {
    const auto xml = Pattern(41, 9);
    auto expected = HexClip().Bytes();
    Patch(expected, kXMLFrameworkAt + 49, xml);
    ExpectEdited(XML(xml), HexClip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, LongestXMLFits) {
    const auto xml = Pattern(65535, 2);
    auto expected = HexClip().Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("01 00 1C"), Hex(kXMLSetItems), Hex("FF FF"), xml,
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 3E C8")}));
    ExpectEdited(XML(xml), HexClip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, XMLIsReplacedAgainAndAgain) {
    FaultyStream stream(HexClip().Bytes());
    for (const size_t size : {65535u, 1u, 700u, 41u}) EXPECT_EQ(Run(XML(Pattern(size, 4)), stream), kStatusOk);
    // As if the last text were the only one, but for what the fill item covers: it begins at 0x814E.
    auto last = stream.Bytes();
    const auto original = HexClip().Bytes();
    std::copy(original.begin() + 0x8162, original.begin() + 0x1C000, last.begin() + 0x8162);
    auto expected = original;
    Patch(expected, kXMLFrameworkAt + 49, Pattern(41, 4));
    EXPECT_TRUE(SameBytes(expected, last));
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataReadsAndWritesTheHeaderOnce) {
    FaultyStream stream(HexClip().Bytes());
    EXPECT_EQ(Run(XML(Text("a")), stream), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open a.mxf 0x2", "GetPieceAllocator", "Allocate 131072", "Seek 0 0",
                                            "Read 131072", "Seek 0 0", "Write 131072 tag 0", "DataSync", "Close"));
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataTakesNoNullAndNoEmptyText) {
    FaultyStream stream(HexClip().Bytes());
    const StreamFactory factory(&stream);
    const uint8_t xml = 'x';
    EXPECT_EQ(editor.ModifyXMLData(nullptr, &xml, 1), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyXMLData("a.mxf", nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyXMLData("a.mxf", &xml, 0), kStatusInvalidArgument);
    EXPECT_EQ(stream.CountOfAll(), 0) << "the file is not even opened";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataNeedsTheWholeHeader) {
    auto bytes = HexClip().Bytes();
    bytes.resize(0x20000);
    FaultyStream stream(bytes);
    EXPECT_EQ(Run(XML(Text("a")), stream), kStatusOk);
    bytes.resize(0x1FFFF);
    ExpectRefused(XML(Text("a")), bytes, "CModifyMXFHeaderData::ModifyXMLData: Read Error.", kStatusIoError);
    ExpectRefused(XML(Text("a")), OpAtomBytes(), "CModifyMXFHeaderData::ModifyXMLData: Read Error.", kStatusIoError);
}

TEST_F(ModifyMXFHeaderData, ClipWithoutXMLIsLeftAlone) {
    HexClip clip;
    clip.xml = Filled({}, kXMLAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLNotFound);
    ExpectRefused(XML(Text("a")), ByteVector(0x20000), kXMLNotFound);
}

TEST_F(ModifyMXFHeaderData, XMLSetThatIsNotAsOursIsLeftAlone) {
    const auto with = [](const ByteVector& framework) {
        HexClip clip;
        clip.xml = Filled(XMLGroup(framework), kXMLAreaSize);
        return clip.Bytes();
    };
    // An item of somebody else's would be lost.
    ExpectRefused(XML(Text("a")),
                  with(Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78"),
                                             LocalItem("A0 77", "01 02")}))),
                  kXMLUnfit);
    // The InstanceUID is not the first item.
    ExpectRefused(
        XML(Text("a")),
        with(Packet(kXMLKey, Join({LocalItem("A0 01", "00"), LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")}))),
        kXMLUnfit);
    // A type wider than its field.
    ExpectRefused(XML(Text("a")),
                  with(Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 01", "00 00"),
                                             LocalItem("A0 02", "78")}))),
                  kXMLUnfit);
    // No InstanceUID, or one of another width.
    ExpectRefused(XML(Text("a")), with(Packet(kXMLKey, LocalItem("A0 02", "78"))), kXMLNotFound);
    ExpectRefused(XML(Text("a")), with(Packet(kXMLKey, Join({LocalItem("3C 0A", "01 02"), LocalItem("A0 02", "78")}))),
                  kXMLNotFound);
    // A length of another form: the set begins elsewhere than it seems.
    ExpectRefused(XML(Text("a")),
                  with(Join({Hex(kXMLKey), {25}, LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")})), kXMLUnfit);
}

TEST_F(ModifyMXFHeaderData, XMLSetWithAShortLengthAtTheVeryStartOfItsRoomIsNotFound) {
    HexClip clip;
    clip.xml = Filled(Join({Hex(kXMLKey), {25}, LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")}), kXMLAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLNotFound);
}

TEST_F(ModifyMXFHeaderData, XMLSetWithoutItsTypeGetsOne) {
    HexClip clip;
    clip.xml =
        Filled(XMLGroup(Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")}))), kXMLAreaSize);
    auto expected = clip.Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("00 00 1E"), Hex(kXMLSetItems), Hex("00 01"), Text("y"),
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3E C6")}));
    ExpectEdited(XML(Text("y")), clip.Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, XMLFitsItsRoomExactlyOrWithAFillItem) {
    // The set of a text of one byte has 50 bytes; one of n bytes 49 + n.
    const auto room = [](size_t size) {
        HexClip clip;
        clip.xml = Filled(Filled({}, kXMLAreaSize - size), kXMLAreaSize - size);
        clip.xml = Join({clip.xml, Filled(XMLFramework(Text("x")), size)});
        return clip.Bytes();
    };
    const auto edited = [](ByteVector bytes, size_t size, const ByteVector& set) {
        Patch(bytes, 0x1C000 - size, set);
        return bytes;
    };
    const auto set = [](std::string_view length, std::string_view size, std::string_view xml) {
        return Join({Hex(kXMLSetStart), Hex(length), Hex(kXMLSetItems), Hex(size), Text(xml)});
    };
    const auto emptyFill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 00 00");
    // 80 bytes of room: 31 fill it, 11 leave room for an empty fill item, what is between does not fit, nor do 32.
    const auto bytes = room(80);
    ExpectEdited(XML(Text("0123456789012345678901234567890")), bytes,
                 edited(bytes, 80, set("00 00 3C", "00 1F", "0123456789012345678901234567890")));
    ExpectEdited(XML(Text("01234567890")), bytes,
                 edited(bytes, 80, Join({set("00 00 28", "00 0B", "01234567890"), emptyFill})));
    for (const size_t size : {12u, 21u, 30u, 32u, 33u, 65535u})
        ExpectRefused(XML(ByteVector(size, 'x')), bytes, kXMLUnfit);
}

TEST_F(ModifyMXFHeaderData, XMLSetInTheRoomOfTheThumbnailIsLeftAlone) {
    HexClip clip;
    clip.xml = Filled({}, kXMLAreaSize);
    clip.thumbnail = Filled(XMLGroup(XMLFramework(Text("x"))), kThumbnailAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
    clip.thumbnail = Filled(XMLFramework(Text("x")), kThumbnailAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
}

TEST_F(ModifyMXFHeaderData, XMLSetThatReachesOutOfItsRoomIsLeftAlone) {
    const auto set = XMLFramework(Text("0123456789"));
    for (size_t inside = 1; inside < set.size(); ++inside) {
        HexClip clip;
        clip.xml = Filled({}, kXMLAreaSize - inside);
        auto bytes = Join({clip.Bytes()});
        // The set runs from the end of its room into that of the thumbnail.
        bytes.resize(0x20000);
        Patch(bytes, 0x1C000 - inside, set);
        FaultyStream stream(bytes);
        ASSERT_EQ(Run(XML(Text("a")), stream), kStatusFailure) << inside;
        ASSERT_EQ(stream.Count(Op::kWrite), 0);
    }
}

TEST_F(ModifyMXFHeaderData, SetsOfOtherWritersBehindTheXMLAreNotCovered) {
    const auto stranger = Packet("06 0E 2B 34 02 53 01 01 0F 0F 0F 0F 0F 0F 0F 00", Hex("01 02 03"));
    HexClip clip;
    clip.xml = Filled(Join({XMLGroup(XMLFramework(Text("x"))), stranger}), kXMLAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
    clip.xml = Join({Filled(XMLGroup(XMLFramework(Text("x"))), 1000), Filled(stranger, kXMLAreaSize - 1000)});
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
    // In front of the XML they may stand.
    clip.xml = Filled(Join({stranger, XMLGroup(XMLFramework(Text("x")))}), kXMLAreaSize);
    auto expected = clip.Bytes();
    Patch(expected, kXMLFrameworkAt + 23 + 49, Text("y"));
    ExpectEdited(XML(Text("y")), clip.Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, WhatIsNoPacketIsCoveredByTheFillItem) {
    const auto group = XMLGroup(XMLFramework(Text("x")));  // 294 bytes
    const auto fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3E C6");
    for (const auto& rest : {
             ByteVector(kXMLAreaSize - 294),                                                 // zeros
             Pattern(kXMLAreaSize - 294, 1),                                                 // anything
             Join({Filled({}, 500), Filled({}, kXMLAreaSize - 794)}),                        // two fill items
             Join({Filled({}, 500), ByteVector(kXMLAreaSize - 794, 0xFF)}),                  // a fill item and anything
             Join({Hex(kFillItemKey), Hex("83 FF FF FF"), ByteVector(kXMLAreaSize - 314)}),  // one that leads outside
         }) {
        HexClip clip;
        clip.xml = Join({group, rest});
        auto expected = clip.Bytes();
        Patch(expected, 0x8000 + 293, Text("y"));
        Patch(expected, 0x8000 + 294, fill);
        ExpectEdited(XML(Text("y")), clip.Bytes(), expected);
    }
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataReportsEveryFailureOfTheStreamButOpenByItsStatusOnly) {
    FaultyStream stream(HexClip().Bytes());
    ASSERT_EQ(Run(XML(Text("<new/>")), stream), kStatusOk);
    ExpectEveryFailureReported(XML(Text("<new/>")), HexClip().Bytes(), stream.Bytes(), {},
                               "CModifyMXFHeaderData::ModifyXMLData");
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataReportsMissingMemory) {
    ExpectMissingMemoryReported(XML(Pattern(5003, 9)), 5003, 5003 + 49,
                                "CModifyMXFHeaderData::ModifyXMLData: Allocate Error.");
}

}  // namespace
}  // namespace kmxf::test
