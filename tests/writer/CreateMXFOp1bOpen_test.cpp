#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Op1bRecording.h"
#include "support/LogChecks.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFOp1b, OpenOpensTheStreamAndRegistersItself) {
    Open(Clip(1));
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(stream.Calls(), ElementsAre("Open clip.mxf 0x102", "RegisterCallback"));
    EXPECT_EQ(stream.Callback(), &writer);
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, OpenRefusesNullWithoutLog) {
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.Open(nullptr, &stream), kStatusInvalidArgument);
    EXPECT_EQ(writer.Open("clip.mxf", nullptr), kStatusInvalidArgument);
    EXPECT_EQ(stream.CountOfAll(), 0);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, OpenOfAnOpenedWriterDoesNothing) {
    Open(Clip(2));
    WriteVideo();
    FaultyStream other;
    const int calls = stream.CountOfAll();
    EXPECT_EQ(writer.Open("other.mxf", &other), kStatusOk);
    EXPECT_EQ(writer.Open(nullptr, &other), kStatusInvalidArgument);
    EXPECT_EQ(other.CountOfAll(), 0);
    EXPECT_EQ(stream.CountOfAll(), calls);
    EXPECT_EQ(writer.GetDuration(), 1u);
}

TEST_F(CreateMXFOp1b, OpenFailsWhenTheStreamCannotBeOpened) {
    stream.FailAll(Op::kOpen);
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: Open Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 0);
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, OpenFailsWhenTheCallbackCannotBeRegistered) {
    stream.FailAll(Op::kRegisterCallback);
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: RegisterCallback Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 1);
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, AFormatThatIsRefusedLeavesTheStreamOpen) {
    SetFormat(writer, {0x0100007C, 0x1000C200});
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusFailure);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: CheckFormat Error."));
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_TRUE(stream.IsOpened());
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(stream.Count(Op::kClose), 0);
    EXPECT_TRUE(stream.Close());
    SetFormat(writer, Clip(1));  // the writer is as good as before
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
}

TEST_F(CreateMXFOp1b, AFormatWithoutABuilderClosesTheStream) {
    const Op1bClip formats[] = {{0x0100007C, 0xC900}, {0x0100007C, 0x0400}, {0, 0x1000C100}, {0, 0}};
    for (const Op1bClip& format : formats) {
        log.Clear();
        SetFormat(writer, format);
        EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: Initialize Error."));
        ExpectClosed();
    }
}

TEST_F(CreateMXFOp1b, LogRecordsNameTheSourceFileAndAreErrors) {
    WriteVideo();
    ExpectOneError(log, "CCreateMXFOp1b::WriteVideo", "CreateMXFOp1b", "Error.");
}

}  // namespace
}  // namespace kmxf::test
