#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "BaseRecording.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFBase, CloseRightAfterOpenWritesNothing) {
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open  0x102", "RegisterCallback", "Close"));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, CloseOfAClosedWriterKeepsItsSettings) {
    writer.SetChannel(3);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.settings_.channel, 3u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, CloseAfterEmptyPiecesOnlyWritesNoFooter) {
    writer.Open(&stream, true);
    writer.Write(Essence(0), 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768");
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, AFileThatIsNotClosedKeepsItsFirstHeader) {
    {
        TestWriter other;
        other.Open(&stream, true);
        other.Write(Essence(10), 0);
    }
    EXPECT_FALSE(stream.IsOpened());
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10");
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFBase, TheBaseClosesWhatAConcreteClassLeftOpen) {
    class Careless final : public CCreateMXFBase {
    public:
        int32_t SetMXFParam() override { return kStatusOk; }
    };
    Careless().Open(&stream, true);
    EXPECT_FALSE(stream.IsOpened());
}

TEST_F(CreateMXFBase, FinalHeaderThatFailsLeavesTheFooter) {
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    writer.script_.answers["GetHeaderData"] = kStatusNoMemory;
    EXPECT_EQ(writer.Close(), kStatusNoMemory);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Close: GetHeaderData Error."));
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10 F*224");
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, AWriterMakesOneFileAfterTheOther) {
    for (int i = 0; i < 3; ++i) {
        FaultyStream file;
        writer.settings_.compType = COMP_TYPE_DV25;
        EXPECT_EQ(writer.Open(&file, true), kStatusOk);
        EXPECT_EQ(writer.Write(Essence(100), 0), 100);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*100 F*224");
    }
    EXPECT_EQ(writer.script_.built, 3);
    EXPECT_EQ(writer.script_.destroyed, 3);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, TheRewrittenUnitIsTheCluster) {
    stream.SetClusterSize(65536);
    writer.Open(&stream, true);
    writer.Write(Essence(40000), 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "h*32768 e*40000 F*224");
    const auto calls = stream.Calls();
    ASSERT_GE(calls.size(), 7u);
    EXPECT_THAT(std::vector(calls.end() - 7, calls.end()),
                ElementsAre("Seek 0 0", "Allocate 65536", "Read 65536", "Seek 0 0", "Write 65536 tag 1",
                            "GetPieceAllocator", "Close"));
}

TEST_F(CreateMXFBase, TheRewrittenUnitEndsWithTheEssence) {
    for (const uint32_t cluster : {65536u, 0xFFFFFFFFu}) {
        FaultyStream file;
        file.SetClusterSize(cluster);
        RecordDV(file, 1000);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*1000 F*224");
        EXPECT_THAT(file.Calls(), testing::Contains("Read 33768"));
        EXPECT_THAT(file.Calls(), testing::Contains("Write 33768 tag 1"));
    }
}

TEST_F(CreateMXFBase, AClusterNoLargerThanTheHeaderLeavesItAlone) {
    for (const uint32_t cluster : {0u, 1u, 4096u, 32768u}) {
        FaultyStream file;
        file.SetClusterSize(cluster);
        RecordDV(file, 100000);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*100000 F*224");
        EXPECT_EQ(file.Count(Op::kRead), 0);
    }
}

TEST_F(CreateMXFBase, AFirstUnitNotReadWholeIsReadAgainAfterASync) {
    for (const Fault fault : {Fault::kFail, Fault::kEndOfFile, Fault::kShort}) {
        FaultyStream file;
        file.SetClusterSize(65536);
        file.FailNth(Op::kRead, 1, fault);
        RecordDV(file, 1000);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*1000 F*224");
        const auto calls = file.Calls();
        EXPECT_THAT(std::vector(calls.end() - 8, calls.end()),
                    ElementsAre("Read 33768", "DataSync", "Seek 0 0", "Read 33768", "Seek 0 0", "Write 33768 tag 1",
                                "GetPieceAllocator", "Close"));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, AFirstUnitThatCannotBeReadFailsTheClose) {
    const struct {
        Op op;
        int n;
        Fault fault;
        const char* line;
    } rows[] = {
        {Op::kRead, 2, Fault::kFail, "CCreateMXFBase::Close: First Cluster Read Error."},
        {Op::kRead, 2, Fault::kEndOfFile, "CCreateMXFBase::Close: First Cluster Read Error."},
        {Op::kRead, 2, Fault::kShort, "CCreateMXFBase::Close: First Cluster Read Error."},
        {Op::kDataSync, 1, Fault::kFail, "CCreateMXFBase::Close: DataSync Error."},
        {Op::kSeek, 2, Fault::kFail, "CCreateMXFBase::Close: Seek Error."},
        {Op::kSeek, 3, Fault::kFail, "CCreateMXFBase::Close: Seek Error."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        log.Clear();
        FaultyStream file;
        file.SetClusterSize(65536);
        file.FailNth(Op::kRead, 1, Fault::kShort);
        file.FailNth(row.op, row.n, row.fault);
        RecordDV(file, 1000);
        EXPECT_EQ(writer.Close(), kStatusIoError);
        EXPECT_THAT(log.Lines(), ElementsAre(row.line));
        EXPECT_EQ(Runs(file.Bytes()), "H*32768 e*1000 F*224");  // the open header stands, and the footer
        ExpectNothingHeld(file);
        EXPECT_FALSE(file.IsOpened());
    }
}

}  // namespace
}  // namespace kmxf::test
