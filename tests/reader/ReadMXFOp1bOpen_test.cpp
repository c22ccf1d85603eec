#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "reader/Op1bReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFOp1b, StartsClosedAndAnswersZero) {
    EXPECT_EQ(0, reader.GetDuration());
    EXPECT_EQ(0, reader.GetOrigin());
    EXPECT_EQ(0u, reader.GetPartitionFrame());
    EXPECT_EQ(0u, reader.GetVideoStandard());
    EXPECT_EQ(0u, reader.GetCompressionType());
    EXPECT_EQ(0u, reader.GetAudioCh());
    EXPECT_EQ(0, reader.GetAudioDataSize());
    EXPECT_EQ(0u, reader.GetSamplingRate());
    EXPECT_EQ(0, reader.GetBytesPerSample());
    EXPECT_FALSE(reader.IsValidDMS());
    EXPECT_EQ(0u, reader.GetXMLDataSize());
    EXPECT_EQ(0, reader.GetXMLOffset());
    EXPECT_EQ(-1, reader.GetThumbnailType());
    EXPECT_EQ(0, reader.GetThumbnailWidth());
    EXPECT_EQ(0, reader.GetThumbnailHeight());
    EXPECT_EQ(0u, reader.GetThumbnailDataSize());
    EXPECT_EQ(0u, reader.GetHeaderSize());
    uint8_t buffer[512];
    EXPECT_FALSE(reader.GetHeaderData(buffer));
    EXPECT_EQ(kStatusNotFound, reader.GetXMLData(buffer));
    EXPECT_EQ(kStatusNotFound, reader.GetThumbnailData(buffer));
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDTag umid;
    EXPECT_EQ(kStatusWrongState, reader.GetStartTimecode(timecode));
    EXPECT_EQ(kStatusWrongState, reader.GetMaterialUID(umid));
    EXPECT_EQ(0, reader.Close());
    EXPECT_THAT(log.Lines(), IsEmpty());
    MXFINDEXENTRYTag entry;
    EXPECT_EQ(kStatusWrongState, reader.GetVideoInfo(0, video));
    EXPECT_EQ(kStatusWrongState, reader.GetVideoInfoFiller(0, video));
    EXPECT_EQ(kStatusWrongState, reader.GetVideoIndexEntry(0, entry));
    EXPECT_EQ(kStatusWrongState, reader.GetAudioInfo(0, 0, audio));
    EXPECT_EQ(kStatusWrongState, reader.GetANCInfo(0, anc));
    EXPECT_EQ(-1, reader.GetCodingPosition(0));
    EXPECT_EQ(kStatusWrongState, reader.GetSEIType1(0, buffer));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusWrongState, reader.GetTimecode(0, timecode, SEI_DATA_TYPE1));
    EXPECT_EQ(kStatusWrongState, reader.GetUsersBit(0, usersBit, SEI_DATA_TYPE1));
}

TEST_F(ReadMXFOp1b, OpensForReadingWithHeaderRandomIndexAndFirstIndex) {
    OpenClip();
    const auto calls = stream->Calls();
    EXPECT_EQ("Open clip.mxf 0x0", calls.at(0));
    const std::string index = std::to_string(clip.RandomIndex().size());
    std::vector<std::string> reads;
    for (const auto& call : calls)
        if (call.starts_with("Read ")) reads.push_back(call);
    // 100 + 30 + 11 x 48 bytes of segment and 22 of fill
    EXPECT_THAT(reads,
                ElementsAre("Read 80", "Read 131072", "Read 4", "Read 24", "Read " + index, "Read 156", "Read 680"));
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectNothingHeld();
}

TEST_F(ReadMXFOp1b, TellsWhatTheHeaderSays) {
    clip.origin = 3;
    clip.duration = 103;
    OpenClip();
    EXPECT_EQ(103, reader.GetDuration());
    EXPECT_EQ(3, reader.GetOrigin());
    EXPECT_EQ(48u, reader.GetPartitionFrame());
    EXPECT_EQ(VIDEO_STD_23_98P, reader.GetVideoStandard());
    EXPECT_EQ(COMP_TYPE_LONGG25_1080, reader.GetCompressionType());
    EXPECT_EQ(2u, reader.GetAudioCh());
    EXPECT_EQ((25 * 8008 + 6008) * 2, reader.GetAudioDataSize());
    EXPECT_EQ(48000u, reader.GetSamplingRate());
    EXPECT_EQ(2, reader.GetBytesPerSample());
    EXPECT_FALSE(reader.IsValidDMS());
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(timecode));
    EXPECT_EQ("01:00:00;00", timecode.GetText()) << "of the material package, at 24 frames, flag kept";
    MXFUMIDTag umid, expected;
    std::ranges::copy(Hex(kSomeUMID), expected.bytes);
    EXPECT_EQ(0, reader.GetMaterialUID(umid));
    EXPECT_EQ(expected, umid);
}

TEST_F(ReadMXFOp1b, OriginCountsPicturesWhereATimecodeFrameSpansTwo) {
    clip.groupFrames = 100;
    clip.rate = "00 00 00 32 00 00 00 01";
    clip.bitRate = 50000000;
    clip.origin = 2;
    clip.AddPictures(3);
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_EQ(4, reader.GetOrigin());
    EXPECT_EQ(100u, reader.GetPartitionFrame());
}

TEST_F(ReadMXFOp1b, HandsOutTheHeader) {
    clip.headerSize = 3001;
    clip.AddPictures(1);
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(3004u, reader.GetHeaderSize()) << "a multiple of 4";
    ByteVector header(3004);
    EXPECT_TRUE(reader.GetHeaderData(header.data()));
    EXPECT_TRUE(SameBytes(std::span(bytes).first(3004), header));
    EXPECT_FALSE(reader.GetHeaderData(nullptr));
}

TEST_F(ReadMXFOp1b, RefusesNullAndClosesWhatWasOpen) {
    OpenClip();
    FaultyStream other(clip.Bytes());
    EXPECT_EQ(kStatusInvalidArgument, reader.Open(nullptr, &other));
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_EQ(0, other.CountOfAll());
    EXPECT_EQ(kStatusInvalidArgument, reader.Open("clip.mxf", nullptr));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFOp1b::Open: Invalid argument.", "CReadMXFOp1b::Open: Invalid argument."));
    EXPECT_EQ("ReadMXFOp1b", log.Records().at(0).sourceFile);
}

TEST_F(ReadMXFOp1b, ReportsAFileThatCannotBeOpened) {
    FaultyStream file(ByteVector{});
    file.FailNth(Op::kOpen, 1);
    EXPECT_EQ(kStatusIoError, reader.Open("clip.mxf", &file));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Open: Open Error."));
    EXPECT_EQ(0, file.Count(Op::kClose)) << "what was not opened is not closed";
}

TEST_F(ReadMXFOp1b, SecondOpenClosesTheFirstFile) {
    OpenClip();
    Op1bClip shorter;
    shorter.AddPictures(2);
    FaultyStream second(shorter.Bytes());
    EXPECT_EQ(0, reader.Open("b.mxf", &second));
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_EQ(2, reader.GetDuration());
    EXPECT_EQ(0, reader.Close());
    EXPECT_FALSE(second.IsOpened());
    EXPECT_EQ(1, second.Count(Op::kClose));
}

TEST_F(ReadMXFOp1b, DestructorCloses) {
    clip.AddPictures(1);
    FaultyStream file(clip.Bytes());
    {
        CReadMXFOp1b other;
        ASSERT_EQ(0, other.Open("a", &file));
    }
    EXPECT_FALSE(file.IsOpened());
}

TEST_F(ReadMXFOp1b, FailingCloseIsLoggedAndCountsAsClosed) {
    OpenClip();
    stream->FailAll(Op::kClose);
    EXPECT_EQ(0, reader.Close());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Close: FileClose Error."));
    EXPECT_EQ(0, reader.GetDuration());
}

}  // namespace
}  // namespace kmxf::test
