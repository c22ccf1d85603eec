#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "reader/ReadFailures.h"
#include "reader/VideoReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Ten DV25 frames at 59.94i whose timecode packs hold these bytes from 108 on.
OpAtomFile DVWithTimecode(std::string_view from108, uint32_t frame = 0) {
    auto essence = NumberedFrames(2, 120000);
    Patch(essence, frame * 120000 + 108, Hex(from108));
    return VideoFile(kDV25At5994i, {}, essence);
}

TEST_F(ReadMXFVideo, TimecodeComesFromAFewBytesOfTheFrame) {
    MustOpen(DVWithTimecode("F0 FF 13 44 03 02 01", 1));
    const int before = stream->CountOfAll();
    CTimecode timecode;
    timecode.SetVideoStd(VIDEO_STD_50I);  // that of the file replaces it
    EXPECT_EQ(0, reader.GetTimecode(1, &timecode));
    EXPECT_EQ("01:02:03;04", timecode.GetText());
    EXPECT_EQ(0x0100007Cu, timecode.GetVideoStd());
    EXPECT_THAT(CallsSince(before), ElementsAre("GetPieceAllocator", "Allocate 8", "Seek 152876 0", "Read 8"));
    ExpectNothingHeld();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, TimecodeTakesTheStandardOfTheFile) {
    auto essence = NumberedFrames(1, 144000);
    Patch(essence, 108, Hex("F0 FF 13 20 59 59 23"));
    MustOpen(VideoFile(kDV25At50i, {}, essence));
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
    EXPECT_EQ(0x010000B2u, timecode.GetVideoStd());
    EXPECT_EQ("23:59:59:20", timecode.GetText());
    EXPECT_EQ(25u * 86400 - 5, timecode.GetTotalFrame());
}

TEST_F(ReadMXFVideo, TimecodeAtAnUnknownRateKeepsTheStandardOfItsObject) {
    auto essence = NumberedFrames(1, 240000);
    Patch(essence, 108, Hex("F0 FF 13 20 59 59 23"));
    MustOpen(DV720File(kDV720At60, "00 00 00 00 00 00 00 00", essence));
    for (const uint32_t standard : {0x0100007Cu, 0x010000B2u}) {
        CTimecode timecode;
        timecode.SetVideoStd(standard);
        EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
        EXPECT_EQ(standard, timecode.GetVideoStd());
        EXPECT_EQ("23:59:59:20", timecode.GetText());
    }
}

TEST_F(ReadMXFVideo, AlignedByteInFrontOfThePackTellsThatThereIsNone) {
    CTimecode timecode;
    MustOpen(DVWithTimecode("FF FF 13 04 03 02 01"));
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(0, &timecode));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusNotFound, reader.GetStartTimecode(&timecode));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error."));
    ExpectNothingHeld();
    // The pack's own head does not.
    MustOpen(DVWithTimecode("F0 FF FF 04 03 02 01"));
    ExpectTimecode(0, "01:02:03:04");
}

TEST_F(ReadMXFVideo, BytesThatAreNoTimecodeAreTheTimecodesOwnFailure) {
    CTimecode timecode;
    MustOpen(DVWithTimecode("F0 FF 13 FF FF FF FF"));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetTimecode(0, &timecode));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusInvalidArgument, reader.GetStartTimecode(&timecode));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error."));
}

TEST_F(ReadMXFVideo, TimecodeIsReadInWordsAtAnyDataOffset) {
    struct Case {
        uint32_t shift;
        const char* allocate;
        const char* seek;
    };
    // The pack lies at 32878 + shift.
    for (const auto& [shift, allocate, seek] : {
             Case{0, "Allocate 8", "Seek 32876 0"},
             Case{1, "Allocate 12", "Seek 32876 0"},
             Case{2, "Allocate 8", "Seek 32880 0"},
             Case{3, "Allocate 8", "Seek 32880 0"},
         }) {
        auto essence = NumberedFrames(1, 120010);
        Patch(essence, 110 + shift, Hex("13 04 03 02 01"));
        MustOpen(VideoFile(kDV25At5994i, {}, essence));
        reader.SetDataOffset(32768 + shift);
        const int before = stream->CountOfAll();
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
        EXPECT_EQ("01:02:03:04", timecode.GetText()) << shift;
        EXPECT_EQ(allocate, CallsSince(before).at(1));
        EXPECT_EQ(seek, CallsSince(before).at(2));
    }
}

TEST_F(ReadMXFVideo, TimecodeNeedsTheHeaderThenAPointer) {
    CTimecode timecode;
    EXPECT_EQ(kStatusWrongState, reader.GetTimecode(0, nullptr));
    EXPECT_EQ(kStatusWrongState, reader.GetTimecode(0, &timecode));
    MustOpen(DVWithTimecode("F0 FF 13 04 03 02 01"));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetTimecode(0, nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, FailingOperationsOfTheTimecodeLeaveTheFileOpen) {
    for (const auto& [name, op, fault, message] : kAreaReadFailures) {
        SCOPED_TRACE(name);
        MustOpen(DVWithTimecode("F0 FF 13 04 03 02 01"));
        stream->FailAll(op, fault);
        CTimecode timecode;
        EXPECT_EQ(kStatusIoError, reader.GetStartTimecode(&timecode));
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetTimecode: " + std::string(message),
                                             "CReadMXFVideo::GetStartTimecode: GetTimecode Error."));
        EXPECT_TRUE(reader.IsOpened());
        ExpectNothingHeld();
    }
}

}  // namespace
}  // namespace kmxf::test
