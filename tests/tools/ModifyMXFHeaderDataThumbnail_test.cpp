#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/core/Status.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "tools/HeaderEditing.h"
#include "tools/StreamFactory.h"

// The thumbnail of a clip and its position.
namespace kmxf::test {
namespace {

using testing::IsEmpty;

constexpr const char* kThumbnailNotFound = "CModifyMXFHeaderData::ModifyThumbnailData: GetKeyParam Error.";
constexpr const char* kThumbnailUnfit = "CModifyMXFHeaderData::ModifyThumbnailData: DMS SetData Error.";

const std::string kThumbnailSet = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00 83 00 2A 8F  3C 0A 00 10" + U('9') +
                                  "A0 11 00 01 01  A0 12 00 02 00 40  A0 13 00 02 00 24  A0 14 2A 66";

// A clip whose old picture has this size.
ByteVector ClipWithPicture(size_t size) {
    HexClip clip;
    clip.thumbnail =
        Filled(ThumbnailGroup(ThumbnailFramework(Pattern(size, 1)), EventSegment("00 00 00 00 00 00 01 02")),
               kThumbnailAreaSize);
    return clip.Bytes();
}

TEST_F(ModifyMXFHeaderData, ThumbnailAndItsPositionAreReplacedAndNothingElse) {
    const auto picture = Pattern(10854, 77);
    auto expected = HexClip().Bytes();
    Patch(expected, kPositionAt, Hex("01 02 03 04 05 06 07 08"));
    Patch(expected, kThumbnailFrameworkAt, Join({Hex(kThumbnailSet), picture}));
    ExpectEdited(Thumbnail(picture, 0x0102030405060708), HexClip().Bytes(), expected);
    // The set is as long as before, so the fill item is not touched, whatever it looks like.
    auto strange = HexClip().Bytes();
    Patch(strange, kThumbnailFrameworkAt + 10915, ByteVector(300, 0x55));
    Patch(expected, kThumbnailFrameworkAt + 10915, ByteVector(300, 0x55));
    ExpectEdited(Thumbnail(picture, 0x0102030405060708), strange, expected);
}

TEST_F(ModifyMXFHeaderData, PositionMayBeAsItWasOrNegative) {
    const auto picture = Pattern(10854, 1);
    ExpectEdited(Thumbnail(picture, 0x102), HexClip().Bytes(), HexClip().Bytes());
    auto expected = HexClip().Bytes();
    Patch(expected, kPositionAt, Hex("80 00 00 00 00 00 00 00"));
    ExpectEdited(Thumbnail(picture, std::numeric_limits<int64_t>::min()), HexClip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, PictureOfAnotherSizeTakesTheFillItemAlong) {
    const auto picture = Pattern(10854, 77);
    for (const size_t size : {0u, 3u, 10853u, 10855u, 16011u, 16031u}) {
        auto expected = ClipWithPicture(size);
        Patch(expected, kPositionAt, Hex("00 00 00 00 00 00 00 00"));
        Patch(expected, kThumbnailFrameworkAt,
              Join({Hex(kThumbnailSet), picture, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 14 25")}));
        ExpectEdited(Thumbnail(picture, 0), ClipWithPicture(size), expected);
    }
}

TEST_F(ModifyMXFHeaderData, ThumbnailHasExactly10854Bytes) {
    FaultyStream stream(HexClip().Bytes());
    const StreamFactory factory(&stream);
    const ByteVector picture(65535);
    for (const uint16_t length : {uint16_t{0}, uint16_t{10853}, uint16_t{10855}, uint16_t{65535}})
        EXPECT_EQ(editor.ModifyThumbnailData("a.mxf", picture.data(), 0, length), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyThumbnailData(nullptr, picture.data(), 0, 10854), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyThumbnailData("a.mxf", nullptr, 0, 10854), kStatusInvalidArgument);
    EXPECT_EQ(stream.CountOfAll(), 0) << "the file is not even opened";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeaderData, ModifyThumbnailDataNeedsTheWholeHeader) {
    const auto edit = Thumbnail(Pattern(10854, 1), 0);
    auto bytes = HexClip().Bytes();
    bytes.resize(0x1FFFF);
    ExpectRefused(edit, bytes, "CModifyMXFHeaderData::ModifyThumbnailData: Read Error.", kStatusIoError);
}

TEST_F(ModifyMXFHeaderData, ClipWithoutAThumbnailIsLeftAlone) {
    const auto edit = Thumbnail(Pattern(10854, 1), 0);
    HexClip clip;
    clip.thumbnail = Filled({}, kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
    // A segment without a position, with one of another width, or without the framework.
    const auto framework = ThumbnailFramework(Pattern(10854, 1));
    clip.thumbnail = Filled(ThumbnailGroup({}, Packet(kSegmentSetKey, LocalItem("3C 0A", U('8')))), kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
    clip.thumbnail = Filled(ThumbnailGroup(framework, EventSegment("00 00 00 01")), kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
    clip.thumbnail = Filled(ThumbnailGroup({}, EventSegment("00 00 00 00 00 00 00 01")), kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
}

TEST_F(ModifyMXFHeaderData, ThumbnailSetThatIsNotAsOursIsLeftAlone) {
    const auto edit = Thumbnail(Pattern(10854, 1), 0);
    HexClip clip;
    clip.thumbnail =
        Filled(ThumbnailGroup(Packet(kThumbnailKey, Join({LocalItem("3C 0A", U('9')), LocalItem("A0 14", "42 4D"),
                                                          LocalItem("A0 77", "01")})),
                              EventSegment("00 00 00 00 00 00 00 01")),
               kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailUnfit);
    // A set that is a byte longer than its room.
    auto bytes = ClipWithPicture(16031);
    Patch(bytes, kThumbnailFrameworkAt + 17, Hex("00 3E C9"));
    ExpectRefused(edit, bytes, kThumbnailUnfit);
}

TEST_F(ModifyMXFHeaderData, ThumbnailThatDoesNotFitIsLeftAlone) {
    // The set needs 10915 bytes, and then none or at least 20.
    const auto room = [](size_t size) {
        HexClip clip;
        clip.thumbnail = Join({Filled(EventSegment("00 00 00 00 00 00 00 01"), kThumbnailAreaSize - size),
                               Filled(ThumbnailFramework(Hex("42 4D")), size)});
        return clip.Bytes();
    };
    const auto edit = Thumbnail(Pattern(10854, 1), 1);
    for (const size_t size : {10000u, 10914u, 10916u, 10934u}) ExpectRefused(edit, room(size), kThumbnailUnfit);
    for (const auto& [size, fill] : std::vector<std::pair<size_t, std::string_view>>{
             {10915, ""},
             {10935, "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 00 00"},
             {12000, "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 04 29"},
         }) {
        auto expected = room(size);
        Patch(expected, 0x1C000 + 76, Hex("00 00 00 00 00 00 00 01"));
        Patch(expected, 0x20000 - size, Join({Hex(kThumbnailSet), Pattern(10854, 1), Hex(fill)}));
        ExpectEdited(edit, room(size), expected);
    }
}

TEST_F(ModifyMXFHeaderData, SetsOfOtherWritersBehindTheThumbnailAreNotCovered) {
    const auto stranger = Packet("06 0E 2B 34 02 53 01 01 0F 0F 0F 0F 0F 0F 0F 00", Hex("01 02 03"));
    HexClip clip;
    clip.thumbnail = Filled(
        Join({ThumbnailGroup(ThumbnailFramework(Hex("42 4D")), EventSegment("00 00 00 00 00 00 00 01")), stranger}),
        kThumbnailAreaSize);
    ExpectRefused(Thumbnail(Pattern(10854, 1), 0), clip.Bytes(), kThumbnailUnfit);
}

TEST_F(ModifyMXFHeaderData, ModifyThumbnailDataReportsEveryFailureOfTheStreamButOpenByItsStatusOnly) {
    const auto edit = Thumbnail(Pattern(10854, 77), 5);
    FaultyStream stream(ClipWithPicture(2));
    ASSERT_EQ(Run(edit, stream), kStatusOk);
    ExpectEveryFailureReported(edit, ClipWithPicture(2), stream.Bytes(), {},
                               "CModifyMXFHeaderData::ModifyThumbnailData");
}

TEST_F(ModifyMXFHeaderData, ModifyThumbnailDataReportsMissingMemory) {
    // The old picture is as large, and read first.
    ExpectMissingMemoryReported(Thumbnail(Pattern(10854, 9), 5), 10854, 10854 + 61,
                                "CModifyMXFHeaderData::ModifyThumbnailData: Allocate Error.");
}

}  // namespace
}  // namespace kmxf::test
