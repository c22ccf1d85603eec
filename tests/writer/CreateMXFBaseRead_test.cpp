#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BaseRecording.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFBase, ReadReadsFromTheCurrentPosition) {
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    stream.Seek(32768 + 4, kSeekBegin);
    Essence piece(100, 0);
    EXPECT_EQ(writer.Read(piece), 6);
    EXPECT_EQ(Runs(piece.Bytes().first(6)), "e*6");
    EXPECT_EQ(writer.Read(piece), -1);  // the end of the file is a failure
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Read: Read Error."));
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, ReadBackOfWholeUnitsReadsNothing) {
    writer.Open(&stream, true);
    Essence piece(10);
    EXPECT_EQ(writer.ReadBack(piece), 0);
    writer.Write(Essence(65536), 0);
    EXPECT_EQ(writer.GetReadBackSize(), 0u);
    EXPECT_EQ(writer.ReadBack(piece), 0);
    EXPECT_EQ(stream.Count(Op::kRead), 0);
    EXPECT_EQ(stream.Count(Op::kSeek), 0);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, ReadBackGivesTheIncompleteUnitBackAndMovesThePosition) {
    writer.Open(&stream, true);
    writer.Write(Essence(65536, 'a'), 0);
    writer.Write(Essence(4464, 'b'), 0);
    EXPECT_EQ(writer.GetReadBackSize(), 4464u);
    Essence piece(4464, 0);
    EXPECT_EQ(writer.ReadBack(piece), 4464);
    EXPECT_EQ(Runs(piece.Bytes()), "b*4464");
    EXPECT_EQ(writer.settings_.dataSize, 65536);
    EXPECT_EQ(stream.Position(), 32768 + 65536);
    EXPECT_EQ(writer.Write(Essence(32768, 'c'), 0), 32768);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 a*65536 c*32768");
    EXPECT_EQ(writer.settings_.dataSize, 98304);
}

TEST_F(CreateMXFBase, ReadBackOfTheFirstUnitDoesNotBringASecondHeader) {
    OpenForAVCIntra();
    writer.Write(Essence(100, 'a'), 0);
    Essence piece(612, 0);
    EXPECT_EQ(writer.ReadBack(piece), 612);  // the parameter set header too
    EXPECT_EQ(writer.settings_.dataSize, 0);
    EXPECT_EQ(stream.Position(), 32768);
    EXPECT_EQ(writer.Write(Essence(700, 'b'), 0), 700);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 b*700");
    EXPECT_EQ(writer.settings_.dataSize, 700);
}

TEST_F(CreateMXFBase, ReadBackNeedsAPieceOfTheExactSize) {
    for (const uint32_t size : {4463u, 4465u, 32768u}) {
        log.Clear();
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.Open(&stream, true);
        writer.Write(Essence(70000), 0);
        EXPECT_EQ(writer.ReadBack(Essence(size)), -1);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::ReadBack: ReadBack Error."));
        EXPECT_EQ(stream.Count(Op::kRead), 0);
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, ReadBackReturnsWhatAShortReadGave) {
    stream.FailNth(Op::kRead, 1, Fault::kShort);
    stream.FailNth(Op::kRead, 2, Fault::kEndOfFile);
    writer.Open(&stream, true);
    writer.Write(Essence(100), 0);
    EXPECT_EQ(writer.ReadBack(Essence(100)), 99);
    EXPECT_EQ(writer.settings_.dataSize, 0);
    writer.Write(Essence(100), 0);
    EXPECT_EQ(writer.ReadBack(Essence(100)), 0);
    EXPECT_TRUE(writer.IsOpened());
}

TEST_F(CreateMXFBase, DataSyncSyncsTheStream) {
    writer.Open(&stream, true);
    EXPECT_EQ(writer.DataSync(), kStatusOk);
    EXPECT_EQ(stream.Count(Op::kDataSync), 1);
}

}  // namespace
}  // namespace kmxf::test
