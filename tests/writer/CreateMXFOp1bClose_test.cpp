#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Op1bRecording.h"
#include "support/Op1bLayout.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFOp1b, AWriterMakesOneFileAfterTheOther) {
    for (const Op1bClip& clip : {Clip(61, 1), Clip(2, 4), Clip(60, 0)}) {
        Open(clip);
        EXPECT_EQ(writer.GetDuration(), 0u);
        EXPECT_EQ(writer.GetCurrentOffset(), 0);
        WriteClip(writer, clip);
        EXPECT_EQ(writer.Close(), kStatusOk);
        Op1bLayout(stream.Bytes(), clip).Check();
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, CloseOfAClosedWriterKeepsItsSettings) {
    writer.SetVideoStandard(0x0200005E);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.GetPartitionFrame(), 60u);
    EXPECT_EQ(stream.CountOfAll(), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, CloseWithoutFramesWritesNothing) {
    Open(Clip(1));
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open clip.mxf 0x102", "RegisterCallback", "Close"));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_EQ(writer.GetPartitionFrame(), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, AFailedWriteKeepsTheSettings) {
    stream.FailNth(Op::kWrite, 1);
    Open(Clip(1));
    EXPECT_EQ(WriteVideo(), -1);
    EXPECT_EQ(writer.GetPartitionFrame(), 60u);
    ExpectClosed();
    log.Clear();
    EXPECT_EQ(writer.Open("again.mxf", &stream), kStatusOk);  // with the same format
    EXPECT_EQ(WriteVideo(), 8);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, AFileThatIsNotClosedKeepsItsFirstHeader) {
    {
        CCreateMXFOp1b other;
        SetFormat(other, Clip(1));
        other.Open("clip.mxf", &stream);
        other.WriteVideo(client.Piece(8), 0, 0, 0);
    }
    EXPECT_FALSE(stream.IsOpened());
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_EQ(stream.Bytes().size(), 131072u + 140 + 28);
    EXPECT_EQ(BigEndian(std::span(stream.Bytes()).subspan(44, 8)), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
