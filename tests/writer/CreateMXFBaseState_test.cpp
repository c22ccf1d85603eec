#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "BaseRecording.h"
#include "support/Completions.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFBase, OperationsOfAClosedWriterResetAndLog) {
    const auto expectReset = [&](const char* line) {
        EXPECT_THAT(log.Lines(), ElementsAre(line));
        EXPECT_EQ(writer.settings_.channel, 0u);
        log.Clear();
        writer.SetChannel(3);
    };
    Completions client;
    Essence piece(10);
    writer.SetChannel(3);
    EXPECT_EQ(writer.Write(piece, 0), -1);
    expectReset("CCreateMXFBase::Write: Not Open.");
    EXPECT_EQ(writer.Write(nullptr, 0), -1);
    expectReset("CCreateMXFBase::Write: Not Open.");
    EXPECT_EQ(writer.Read(piece), -1);
    expectReset("CCreateMXFBase::Read: Not Open.");
    EXPECT_EQ(writer.Read(nullptr), -1);
    expectReset("CCreateMXFBase::Read: Not Open.");
    EXPECT_EQ(writer.ReadBack(piece), -1);
    expectReset("CCreateMXFBase::ReadBack: Not Open.");
    EXPECT_EQ(writer.ReadBack(nullptr), -1);
    expectReset("CCreateMXFBase::ReadBack: Not Open.");
    EXPECT_EQ(writer.DataSync(), kStatusWrongState);
    expectReset("CCreateMXFBase::DataSync: Not Open.");
    EXPECT_EQ(writer.RegisterCallback(&client), kStatusWrongState);
    expectReset("CCreateMXFBase::RegisterCallback: Not Open.");
    EXPECT_EQ(writer.RegisterCallback(nullptr), kStatusWrongState);
    expectReset("CCreateMXFBase::RegisterCallback: Not Open.");
}

TEST_F(CreateMXFBase, NullArgumentsCloseTheFile) {
    const struct {
        const char* line;
        int32_t result;
        std::function<int32_t()> call;
    } rows[] = {
        {"CCreateMXFBase::Write: Invalid argument.", -1, [&] { return writer.Write(nullptr, 0); }},
        {"CCreateMXFBase::Read: Invalid argument.", -1, [&] { return writer.Read(nullptr); }},
        {"CCreateMXFBase::ReadBack: Invalid argument.", -1, [&] { return writer.ReadBack(nullptr); }},
        {"CCreateMXFBase::RegisterCallback: Invalid argument.", kStatusInvalidArgument,
         [&] { return writer.RegisterCallback(nullptr); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        log.Clear();
        ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
        EXPECT_EQ(row.call(), row.result);
        EXPECT_THAT(log.Lines(), ElementsAre(row.line));
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, WriteWithoutABuilderFails) {
    writer.withBuilder_ = false;
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: m_pOpAtomBase is NULL."));
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, WriteStreamPieceNeedsPieceAndStream) {
    Essence piece(10);
    EXPECT_EQ(writer.WriteStreamPiece(piece, 0), -1);
    EXPECT_EQ(writer.WriteOwnPiece(nullptr, 1), -1);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.WriteStreamPiece(nullptr, 0), -1);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(writer.WriteStreamPiece(piece, 0), 10);
}

TEST_F(CreateMXFBase, FailingBuilderEndsTheRecording) {
    const struct {
        const char* operation;
        const char* line;
        int32_t status;
        int writes;  // that the client gets through
    } rows[] = {
        {"GetHeaderData", "CCreateMXFBase::Write: GetHeaderData Error.", kStatusNoMemory, 0},
        {"SetMXFParam", "CCreateMXFBase::Close: SetMXFParam Error.", kStatusInvalidArgument, 1},
        {"GetFooterData", "CCreateMXFBase::Close: GetFooterData Error.", kStatusFailure, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operation);
        log.Clear();
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.script_.answers = {{row.operation, row.status}};
        writer.Open(&stream, true);
        EXPECT_EQ(writer.Write(Essence(10), 0), row.writes == 0 ? -1 : 10);
        if (row.writes > 0) {
            EXPECT_EQ(writer.Close(), row.status);
        }
        EXPECT_THAT(log.Lines(), ElementsAre(row.line));
        ExpectGivenUp();
    }
}

}  // namespace
}  // namespace kmxf::test
