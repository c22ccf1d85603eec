#include "kmxf/tools/SalvageMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kmxf/collaborators/Log.h"
#include "kmxf/core/Environment.h"
#include "kmxf/core/Status.h"
#include "tools/ClipSalvage.h"
#include "tools/StreamFactory.h"

// The thread of a run: notifications, cancelling, starting and ending.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXFOp1b, ProgressIsToldAfterEachGroupAndAtTheEnd) {
    const RecordedClip clip{.channels = 0, .frames = 150};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 0);
    const Bytes file = First(closed, starts[3] - 1);
    ASSERT_EQ(Run(file), kCompleted);
    const auto percent = [&](size_t at) { return static_cast<int32_t>(90 * at / file.size()); };
    EXPECT_THAT(notes, ElementsAre(Note{2, percent(starts[1])}, Note{2, percent(starts[2])}, Note{2, 100}, kCompleted));
    EXPECT_EQ(Run(First(closed, 500)), kFailed);
    EXPECT_THAT(notes, ElementsAre(kFailed));
}

TEST_F(SalvageMXFOp1b, CancelledRunLeavesTheFileAlone) {
    const Bytes file = Record(RecordedClip{.channels = 0, .frames = 150}, false);
    for (const size_t at : {size_t{1}, size_t{2}, size_t{3}}) {
        FaultyStream reading(file);
        const StreamFactory factory(&reading);
        CSalvageMXFOp1b cancelled;
        cancelled.SetFilename(name.c_str());
        cancelled.Cancel();  // nothing to cancel yet
        size_t count = 0;
        Notes told([&](Note) {
            if (++count == at) cancelled.Cancel();
        });
        ASSERT_EQ(cancelled.Salvage(&told), kStatusOk);
        const auto all = told.UntilTheEnd();
        EXPECT_EQ(all.size(), at + 1);
        EXPECT_EQ(all.back(), kCancelled);
        EXPECT_TRUE(SameBytes(file, reading.Bytes()));
        EXPECT_EQ(cancelled.GetDuration(), 0);
        EXPECT_TRUE(reading.Released());
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXFOp1b, CancellingIsTooLateWhenEverythingIsWritten) {
    FaultyStream reading(Record(RecordedClip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b late;
    late.SetFilename(name.c_str());
    Notes told([&](Note note) {
        if (note == Note{2, 100}) late.Cancel();
    });
    ASSERT_EQ(late.Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_EQ(late.GetDuration(), 50);
}

// It is cancelled while it says why it failed.
TEST_F(SalvageMXFOp1b, CancelWinsOverAFailure) {
    FaultyStream reading(First(Record(RecordedClip{.frames = 50}, false), kClipHeader));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b both;
    both.SetFilename(name.c_str());
    std::vector<std::string> messages;
    SetLogSink([&](const LogRecord& record) {
        messages.push_back(record.message);
        both.Cancel();
    });
    Notes told;
    ASSERT_EQ(both.Salvage(&told), kStatusOk);
    EXPECT_THAT(told.UntilTheEnd(), ElementsAre(kCancelled));
    SetLogSink({});
    EXPECT_THAT(messages, ElementsAre("Duration is 0."));
}

TEST_F(SalvageMXFOp1b, RunThatIsCancelledBeforeItBeginsOpensNothing) {
    FaultyStream reading(Record(RecordedClip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b early;
    early.SetFilename(name.c_str());
    std::thread thread;
    SetThreadStarter([&](std::function<void()> run) {
        early.Cancel();
        thread = std::thread(std::move(run));
        return 0;
    });
    Notes told;
    EXPECT_EQ(early.Salvage(&told), kStatusOk);
    SetThreadStarter({});
    thread.join();
    EXPECT_THAT(told.UntilTheEnd(), ElementsAre(kCancelled));
    EXPECT_EQ(reading.Count(Op::kOpen), 0);
    EXPECT_TRUE(reading.Released());
}

// Lets a run wait in its first notification until it is let go.
class Gate {
public:
    void Wait() {
        std::unique_lock lock(mutex_);
        reached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    void UntilReached() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return reached_; });
    }
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool reached_ = false, open_ = false;
};

TEST_F(SalvageMXFOp1b, RunGoesOnBehindTheCallAndRefusesAnother) {
    FaultyStream reading(Record(RecordedClip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b slow;
    slow.SetFilename(name.c_str());
    Gate gate;
    Notes told([&](Note) { gate.Wait(); });
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(slow.Salvage(&told), kStatusOk);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    Notes other;
    EXPECT_EQ(slow.Salvage(&other), kStatusWrongState);
    EXPECT_EQ(slow.GetDuration(), 0);
    gate.Open();
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_EQ(slow.GetDuration(), 50);
}

TEST_F(SalvageMXFOp1b, RunIsOverWithItsFinalNotification) {
    Notes second;
    int32_t status = -1;
    {
        CSalvageMXFOp1b again;
        again.SetFilename("/nowhere/clip.mxf");
        Notes first([&](Note note) {
            if (note.first == kSalvageFinished) status = again.Salvage(&second);
        });
        EXPECT_EQ(again.Salvage(&first), kStatusOk);
        EXPECT_THAT(first.UntilTheEnd(), ElementsAre(kFailed));
        EXPECT_EQ(status, kStatusOk);
    }
    EXPECT_THAT(second.UntilTheEnd(), ElementsAre(kFailed)) << "the destructor has waited for both";
}

TEST_F(SalvageMXFOp1b, DestructorCancelsAndWaits) {
    const Bytes file = Record(RecordedClip{.channels = 0, .frames = 150}, false);
    FaultyStream reading(file);
    const StreamFactory factory(&reading);
    auto dying = std::make_unique<CSalvageMXFOp1b>();
    dying->SetFilename(name.c_str());
    Gate gate;
    Notes told([&](Note) { gate.Wait(); });
    std::thread caller([&] { EXPECT_EQ(dying->Salvage(&told), kStatusOk); });
    gate.UntilReached();
    caller.join();  // the call has given up waiting
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        gate.Open();
    });
    dying.reset();
    EXPECT_EQ(told.UntilTheEnd(), (std::vector<Note>{told.UntilTheEnd().front(), kCancelled}));
    EXPECT_TRUE(reading.Released());
    EXPECT_TRUE(SameBytes(file, reading.Bytes()));
    opener.join();
}

TEST_F(SalvageMXFOp1b, DestroyedInItsOwnNotificationItDoesNotWaitForItself) {
    FaultyStream reading(Record(RecordedClip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    Gate gate;
    std::unique_ptr<CSalvageMXFOp1b> own = std::make_unique<CSalvageMXFOp1b>();
    own->SetFilename(name.c_str());
    Notes told([&](Note note) {
        gate.Wait();
        if (note.first == 1) own.reset();
    });
    ASSERT_EQ(own->Salvage(&told), kStatusOk);  // gives up waiting at the gate
    gate.Open();
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_EQ(own, nullptr);
}

TEST_F(SalvageMXFOp1b, ThreadThatCannotBeStartedIsThrown) {
    const Bytes file = Record(RecordedClip{.frames = 50}, false);
    FaultyStream reading(file);
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b refused;
    refused.SetFilename(name.c_str());
    Notes told;
    SetThreadStarter([](const std::function<void()>&) { return 1; });
    for (int i = 0; i < 2; ++i) {
        try {
            refused.Salvage(&told);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const jq_middle_common::ThreadException& exception) {
            EXPECT_EQ(exception.GetValue(), 0);
        }
    }
    // Nor one that throws instead: nothing runs, and nothing is waited for.
    SetThreadStarter([](const std::function<void()>&) -> int32_t { throw std::runtime_error("no thread"); });
    EXPECT_THROW(refused.Salvage(&told), jq_middle_common::ThreadException);
    {
        CSalvageMXFOp1b dying;
        dying.SetFilename(name.c_str());
        EXPECT_THROW(dying.Salvage(&told), jq_middle_common::ThreadException);
    }
    EXPECT_EQ(reading.CountOfAll(), 0);
    // A thread of the caller's own does as well.
    std::thread thread;
    SetThreadStarter([&](std::function<void()> run) {
        thread = std::thread(std::move(run));
        return 0;
    });
    EXPECT_EQ(refused.Salvage(&told), kStatusOk);
    SetThreadStarter({});
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    thread.join();
    EXPECT_EQ(refused.GetDuration(), 50);
}

TEST_F(SalvageMXFOp1b, OnlyTheAnswer1SaysThatNoThreadWasStarted) {
    const Bytes file = Record(RecordedClip{.frames = 50}, false);
    for (const int32_t answer : {2, -1}) {
        FaultyStream reading(file);
        const StreamFactory factory(&reading);
        CSalvageMXFOp1b asked;
        asked.SetFilename(name.c_str());
        std::thread thread;
        SetThreadStarter([&](std::function<void()> run) {
            thread = std::thread(std::move(run));
            return answer;
        });
        Notes told;
        EXPECT_NO_THROW(EXPECT_EQ(asked.Salvage(&told), kStatusOk)) << answer;
        SetThreadStarter({});
        thread.join();
        EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
        EXPECT_EQ(asked.GetDuration(), 50);
    }
}

TEST_F(SalvageMXFOp1b, ArgumentsAreChecked) {
    CSalvageMXFOp1b asked;
    EXPECT_EQ(asked.Salvage(nullptr), kStatusInvalidArgument);
    EXPECT_FALSE(asked.SetFilename(nullptr));
    EXPECT_FALSE(asked.SetFilename(""));
    EXPECT_TRUE(asked.SetFilename("x"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
