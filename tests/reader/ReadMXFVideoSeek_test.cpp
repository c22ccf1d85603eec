#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "reader/VideoReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFVideo, SeeksToTheStartOfAFrame) {
    MustOpen(VideoFile(kDV25At5994i));
    EXPECT_EQ(0, reader.Seek(0));
    EXPECT_EQ(32768, stream->Position());
    EXPECT_EQ(0, reader.Seek(35792));
    EXPECT_EQ(32768 + 4295040000, stream->Position()) << "beyond 32 bits";
    EXPECT_EQ(0, reader.Seek(0xFFFFFFFF));
    EXPECT_EQ(32768 + 515396075400000, stream->Position());

    ASSERT_EQ(0, Open(Stating(AVCIFile("31 01", kRate2997), 944640)));
    EXPECT_EQ(0, reader.Seek(2));
    EXPECT_EQ(32768 + 512 + 944128, stream->Position());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, OffsetAndSizeCanBeReplaced) {
    MustOpen(VideoFile(kDV25At5994i));
    EXPECT_EQ(0, reader.SetDataOffset(100));
    EXPECT_EQ(0, reader.SetFrameDataSize(7));
    EXPECT_EQ(7u, reader.GetFrameDataSize());
    EXPECT_EQ(0, reader.Seek(3));
    EXPECT_EQ(121, stream->Position());
}

TEST_F(ReadMXFVideo, SeekNeedsOffsetAndFrameSize) {
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init."));
    for (const auto set : {&CReadMXFVideo::SetDataOffset, &CReadMXFVideo::SetFrameDataSize}) {
        MustOpen(VideoFile(kDV25At5994i));
        (reader.*set)(0);
        EXPECT_EQ(kStatusWrongState, reader.Seek(0));
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_FALSE(reader.IsReadHeader());
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init."));
    }
}

TEST_F(ReadMXFVideo, SeekWithoutAStreamIsNotInit) {
    reader.SetDataOffset(32768);
    reader.SetFrameDataSize(120000);
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
}

TEST_F(ReadMXFVideo, FailingSeekCloses) {
    MustOpen(VideoFile(kDV25At5994i));
    stream->FailAll(Op::kSeek);
    EXPECT_EQ(kStatusIoError, reader.Seek(0));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error."));
}

TEST_F(ReadMXFVideo, PositionThatNoFileHasIsASeekError) {
    MustOpen(VideoFile(kDV25At5994i));
    reader.SetDataOffset(0xFFFFFFFF);
    reader.SetFrameDataSize(0xFFFFFFFF);
    EXPECT_EQ(kStatusIoError, reader.Seek(0xFFFFFFFF));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error."));
}

TEST_F(ReadMXFVideo, CloseForgetsFrameSizeAndOffsetAndKeepsTheRest) {
    ASSERT_EQ(0, Open(Stating(VideoFile(kIECAt50i), 288000)));
    EXPECT_EQ(0, reader.Close());
    EXPECT_EQ(0u, reader.GetFrameDataSize());
    EXPECT_EQ(0x010000B2u, reader.GetVideoStandard());
    EXPECT_EQ(0x0400u, reader.GetCompType());
    EXPECT_EQ(2u, reader.GetDuration());
    EXPECT_TRUE(reader.IsConsumerDV());
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init."));
}

TEST_F(ReadMXFVideo, CloseAtTheEndOfTheFileKeepsTheFrameSize) {
    ASSERT_EQ(0, Open(Stating(VideoFile(kIECAt50i), 288000)));
    CMemoryPiece piece(1);
    EXPECT_EQ(-1, reader.Read(&piece));
    EXPECT_EQ(144000u, reader.GetFrameDataSize());
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Read: End of file.", "CReadMXFVideo::Seek: Not Init."));
}

}  // namespace
}  // namespace kmxf::test
