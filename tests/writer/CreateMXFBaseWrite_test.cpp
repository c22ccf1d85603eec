#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>

#include "BaseRecording.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFBase, RecordsHeaderEssenceAndFooterAndRewritesTheHeader) {
    stream.SetClusterSize(512);
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(1000, 'a'), 0), 1000);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 a*1000");
    EXPECT_EQ(stream.LivePieces(), 0);  // the header's piece went back with its completion
    EXPECT_EQ(stream.LiveAllocators(), 0);
    EXPECT_EQ(writer.Write(Essence(500, 'b'), 99), 500);
    int64_t size = 0;
    writer.GetTotalDataSize(&size);
    EXPECT_EQ(size, 1500);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "h*32768 a*1000 b*500 F*224");
    EXPECT_THAT(writer.script_.calls,
                ElementsAre("SetDataSize 0", "GetHeaderData", "SetMXFParam 1500", "GetFooterData", "GetHeaderData"));
    EXPECT_THAT(stream.Calls(),
                ElementsAre("Open  0x102", "RegisterCallback", "GetPieceAllocator", "Allocate 32768",
                            "Write 32768 tag 1", "GetPieceAllocator", "Write 1000 tag 0", "Write 500 tag 0",
                            "GetPieceAllocator", "Allocate 224", "Write 224 tag 2", "GetPieceAllocator", "Seek 0 0",
                            "Allocate 32768", "Seek 0 0", "Write 32768 tag 1", "GetPieceAllocator", "Close"));
    ExpectGivenUp();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, PutsTheParameterSetHeaderInFrontOfAVCIntra) {
    OpenForAVCIntra();
    EXPECT_EQ(writer.Write(Essence(1000, 'a'), 0), 1000);
    const auto& bytes = stream.Bytes();
    ASSERT_EQ(bytes.size(), 32768u + 512 + 1000);
    EXPECT_EQ(Runs(std::span(bytes).first(32768)), "H*32768");
    // access unit delimiter, sequence parameter set of profile 122; picture parameter set at 256
    EXPECT_EQ(HexLine(bytes, 32768).substr(0, 35), "00 00 00 01 09 10 00 00 00 01 67 7A");
    EXPECT_EQ(HexLine(bytes, 32768 + 256).substr(0, 26), "00 00 00 01 68 CE 33 48 D0");
    EXPECT_EQ(Runs(std::span(bytes).subspan(33280)), "a*1000");
    int64_t size = 0;
    writer.GetTotalDataSize(&size);
    EXPECT_EQ(size, 1512);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(stream.Bytes().size(), 32768u + 512 + 1000 + 224);
}

TEST_F(CreateMXFBase, AFileWithoutPictureNeverGetsAParameterSetHeader) {
    writer.settings_.compType = 0x1FFFF;  // has the bits of the AVC family
    writer.hasPicture_ = false;
    writer.SetRenderingDataSize(10);
    EXPECT_EQ(writer.settings_.renderingDataSize, 10);
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10");
}

TEST_F(CreateMXFBase, AnEmptyPieceWritesTheHeaderOnce) {
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(0), 0), 0);
    EXPECT_EQ(writer.Write(Essence(10), 0), 10);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10");
}

TEST_F(CreateMXFBase, RenderModeWritesTheFinalHeaderFirst) {
    writer.SetRenderingDataSize(1500);
    EXPECT_EQ(writer.Open(&stream, false), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(1000, 'a'), 0), 1000);
    EXPECT_EQ(writer.Write(Essence(500, 'b'), 0), 500);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 a*1000 b*500 F*224");
    EXPECT_THAT(writer.script_.calls,
                ElementsAre("SetMXFParam 1500", "GetHeaderData", "SetMXFParam 1500", "GetFooterData"));
    EXPECT_EQ(stream.Count(Op::kSeek), 0);
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, RenderModeCountsTheParameterSetHeader) {
    writer.settings_.compType = COMP_TYPE_AVCI100_1080;
    writer.SetRenderingDataSize(1000);
    OpenForAVCIntra(false);
    EXPECT_EQ(writer.Write(Essence(1000), 0), 1000);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(writer.script_.calls,
                ElementsAre("SetMXFParam 1512", "GetHeaderData", "SetMXFParam 1512", "GetFooterData"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, RenderModeWithAnotherSizeFailsBehindTheFooter) {
    for (const int64_t said : {999, 1001, 0}) {
        SCOPED_TRACE(said);
        log.Clear();
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.SetRenderingDataSize(said);
        writer.Open(&stream, false);
        EXPECT_EQ(writer.Write(Essence(1000), 0), 1000);
        EXPECT_EQ(writer.Close(), kStatusFailure);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Close: Different DataSize."));
        EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*1000 F*224");
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, RenderModeWithParametersThatFailWritesNothing) {
    writer.script_.answers["SetMXFParam"] = kStatusInvalidArgument;
    writer.SetRenderingDataSize(1000);
    writer.Open(&stream, false);
    EXPECT_EQ(writer.Write(Essence(1000), 0), -1);
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());  // the failing step has its own record
    ExpectGivenUp();
}

}  // namespace
}  // namespace kmxf::test
