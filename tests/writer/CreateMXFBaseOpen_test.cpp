#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BaseRecording.h"
#include "support/FixedEnvironment.h"
#include "support/LogChecks.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFBase, OpenOpensTheStreamAndRegistersItself) {
    const FixedEnvironment environment;
    writer.SetFilename("a.mxf");
    writer.settings_.dataSize = 5;
    EXPECT_EQ(writer.Open(&stream, false), kStatusOk);
    EXPECT_EQ(writer.settings_.dataSize, 0);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(stream.Calls(), ElementsAre("Open a.mxf 0x102", "RegisterCallback"));
    EXPECT_NE(stream.Callback(), nullptr);
    EXPECT_FALSE(writer.settings_.rewriteHeader);
    EXPECT_EQ(writer.settings_.creationDate, (MXFTIMESTAMPTag{2026, 1, 2, 3, 4, 5, 0}));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, OpenReplacesACreationDateSetBefore) {
    const FixedEnvironment environment;
    writer.SetCreationDate({1999, 1, 1, 0, 0, 0, 0});
    writer.Open(&stream, true);
    EXPECT_EQ(writer.settings_.creationDate.year, 2026);
    writer.SetCreationDate({1999, 1, 1, 0, 0, 0, 0});
    EXPECT_EQ(writer.settings_.creationDate.year, 1999);
}

TEST_F(CreateMXFBase, OpenRefusesANullStreamWithoutLogOrReset) {
    writer.settings_.dataSize = 5;
    EXPECT_EQ(writer.Open(nullptr, true), kStatusInvalidArgument);
    EXPECT_EQ(writer.settings_.dataSize, 5);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, OpenOfAnOpenedWriterDoesNothing) {
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    const int calls = stream.CountOfAll();
    FaultyStream other;
    EXPECT_EQ(writer.Open(&other, false), kStatusOk);
    EXPECT_EQ(writer.Open(nullptr, false), kStatusInvalidArgument);
    EXPECT_EQ(other.CountOfAll(), 0);
    EXPECT_EQ(stream.CountOfAll(), calls);
    EXPECT_EQ(writer.settings_.dataSize, 10);
    EXPECT_TRUE(writer.settings_.rewriteHeader);
    EXPECT_EQ(writer.script_.built, 1);
    EXPECT_TRUE(writer.IsOpened());
}

TEST_F(CreateMXFBase, OpenFailsWhenTheStreamCannotBeOpened) {
    stream.FailAll(Op::kOpen);
    EXPECT_EQ(writer.Open(&stream, true), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: Open Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 0);
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, OpenFailsWhenTheCallbackCannotBeRegistered) {
    stream.FailAll(Op::kRegisterCallback);
    EXPECT_EQ(writer.Open(&stream, true), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: RegisterCallback Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 1);
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, LogRecordsNameTheSourceFileAndAreErrors) {
    writer.Write(Essence(1), 0);
    ExpectOneError(log, "CCreateMXFBase::Write", "CreateMXFBase", "Not Open.");
}

}  // namespace
}  // namespace kmxf::test
