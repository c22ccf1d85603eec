#include "kmxf/collaborators/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "collaborators/Report.h"
#include "support/LogRecorder.h"

namespace kmxf {
namespace {

using jq_middle_common::Log;
using jq_middle_common::ThreadException;
using test::LogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Log, ARecordIsDeliveredWhenTheObjectIsDestroyed) {
    const LogRecorder recorder;
    {
        Log log("", "CCreateMXFBase::Write", "CreateMXFBase", 321, 0);
        log.SetMessage("Write Callback Error. Status:%d.", -458757);
        EXPECT_THAT(recorder.Records(), IsEmpty());
    }
    const auto records = recorder.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].module, "");
    EXPECT_EQ(records[0].function, "CCreateMXFBase::Write");
    EXPECT_EQ(records[0].sourceFile, "CreateMXFBase");
    EXPECT_EQ(records[0].line, 321);
    EXPECT_EQ(records[0].level, 0);
    EXPECT_EQ(records[0].message, "Write Callback Error. Status:-458757.");
}

TEST(Log, ModuleAndInformationalLevelPassThrough) {
    const LogRecorder recorder;
    Log("module", "f", "File", 1, 1).SetMessage("dump");
    ASSERT_EQ(recorder.Records().size(), 1u);
    EXPECT_EQ(recorder.Records()[0].module, "module");
    EXPECT_EQ(recorder.Records()[0].level, kLogInfo);
}

TEST(Log, ARecordWithoutAMessageIsDropped) {
    const LogRecorder recorder;
    { const Log log("", "f", "File", 1, 0); }
    {
        Log log("", "f", "File", 1, 0);
        const char* format = nullptr;
        log.SetMessage(format, 1);
    }
    EXPECT_THAT(recorder.Records(), IsEmpty());
}

TEST(Log, AnEmptyMessageIsAMessageAndTheLastOneCounts) {
    const LogRecorder recorder;
    Log("", "f", "File", 1, 0).SetMessage("%s", "");
    {
        Log log("", "g", "File", 2, 0);
        log.SetMessage("first");
        log.SetMessage("second");
    }
    EXPECT_THAT(recorder.Lines(), ElementsAre("f: ", "g: second"));
}

TEST(Log, MessagesHaveAnyLength) {
    const LogRecorder recorder;
    const std::string text(100000, 'x');
    Log("", "f", "File", 1, 0).SetMessage("%s.", text.c_str());
    EXPECT_THAT(recorder.Lines(), ElementsAre("f: " + text + "."));
}

TEST(Log, NullTextsCountAsEmpty) {
    const LogRecorder recorder;
    Log(nullptr, nullptr, nullptr, 0, 0).SetMessage("text");
    ASSERT_EQ(recorder.Records().size(), 1u);
    EXPECT_EQ(recorder.Records()[0].function + recorder.Records()[0].sourceFile + recorder.Records()[0].module, "");
}

TEST(Log, WithoutASinkErrorsGoToStandardErrorAndNothingElseDoes) {
    SetLogSink({});
    testing::internal::CaptureStderr();
    Log("", "CReadMXFBase::Open", "ReadMXFBase", 77, kLogError).SetMessage("Open Error.");
    Log("", "CReadMXFBase::Open", "ReadMXFBase", 78, kLogInfo).SetMessage("A dump.");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "CReadMXFBase::Open (ReadMXFBase:77): Open Error.\n");
}

TEST(Log, ASinkThatThrowsOrLogsDoesNoHarm) {
    int calls = 0;
    SetLogSink([&](const LogRecord&) {
        ++calls;
        Log("", "inner", "File", 1, 0).SetMessage("dropped");
        throw std::runtime_error("sink");
    });
    Log("", "outer", "File", 1, 0).SetMessage("one");
    Log("", "outer", "File", 1, 0).SetMessage("two");
    SetLogSink({});
    EXPECT_EQ(calls, 2);
}

TEST(Log, TheSinkIsCalledByOneThreadAtATime) {
    int calls = 0;  // unguarded: the sanitizer and the count tell
    SetLogSink([&](const LogRecord&) { ++calls; });
    {
        std::vector<std::jthread> threads;
        threads.reserve(4);
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([] {
                for (int i = 0; i < 500; ++i) Report("f", "File", "%d", i);
            });
        }
    }
    SetLogSink({});
    EXPECT_EQ(calls, 2000);
}

TEST(Report, LogsAnErrorWithThePlaceOfTheCall) {
    const LogRecorder recorder;
    Report("CCreateMXFBase::Write", "CreateMXFBase", "Not Open.");
    const int line = __LINE__ - 1;
    Report("CCreateMXFBase::CallbackForWriteComplete", "CreateMXFBase", "Write Callback Error. Status:%d.", -1);
    const auto records = recorder.Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].module, "");
    EXPECT_EQ(records[0].function, "CCreateMXFBase::Write");
    EXPECT_EQ(records[0].sourceFile, "CreateMXFBase");
    EXPECT_EQ(records[0].line, line);
    EXPECT_EQ(records[0].level, kLogError);
    EXPECT_EQ(records[0].message, "Not Open.");
    EXPECT_EQ(records[1].message, "Write Callback Error. Status:-1.");
}

TEST(ThreadException, CarriesItsValue) {
    EXPECT_EQ(ThreadException().GetValue(), 0);
    try {
        throw ThreadException(11);
    } catch (const std::exception& exception) {
        EXPECT_STREQ(exception.what(), "A thread could not be started.");
        EXPECT_EQ(dynamic_cast<const ThreadException&>(exception).GetValue(), 11);
    }
}

}  // namespace
}  // namespace kmxf
