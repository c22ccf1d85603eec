// What may be done from several threads at once, for the thread sanitizer to see.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kmxf/collaborators/Log.h"
#include "soak/Clips.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

void SideBySide(uint32_t count, const std::function<void(uint32_t)>& run) {
    std::vector<std::thread> threads;
    for (uint32_t number = 0; number < count; ++number) threads.emplace_back(run, number);
    for (std::thread& thread : threads) thread.join();
}

// A recording of three groups that nobody closed.
void LeaveOpen(const std::string& file) { RecordClip(*LocalStream(), file, SomeClip(150), false); }

TEST(Threads, SalvageIsWatchedAndCancelledFromOtherThreadsAtAnyMoment) {
    const TemporaryFolder folder;
    const std::string file = folder.File("clip.mxf");
    int cancelled = 0, completed = 0;
    for (int round = 0; round < 30; ++round) {
        LeaveOpen(file);
        CSalvageMXFOp1b salvager;
        Outcome outcome;
        salvager.SetFilename(file.c_str());
        std::atomic<bool> ended = false;
        std::thread watcher([&] {
            while (!ended) {
                const int64_t duration = salvager.GetDuration();
                EXPECT_TRUE(duration == 0 || duration == 148) << duration;
                EXPECT_TRUE(salvager.GetUMID() == MXFUMIDTag() || salvager.GetClipType() == 0x10102 ||
                            salvager.GetClipType() == 0);
            }
        });
        std::thread canceller([&, round] {
            std::this_thread::sleep_for(std::chrono::microseconds(round * 300));
            salvager.Cancel();
        });
        ASSERT_EQ(salvager.Salvage(&outcome), kStatusOk);
        const int32_t value = outcome.Wait();
        canceller.join();
        ended = true;
        watcher.join();
        (value == kSalvageCompleted ? completed : cancelled) += 1;
        EXPECT_TRUE(value == kSalvageCompleted || value == kSalvageCancelled) << value;
        EXPECT_EQ(salvager.IsCompletedFile(), value == kSalvageCompleted);
    }
    EXPECT_EQ(cancelled + completed, 30);
}

TEST(Threads, SalvagersThatGoAwayEarlyEndTheirRuns) {
    const TemporaryFolder folder;
    SideBySide(6, [&](uint32_t number) {
        const std::string file = folder.File(std::to_string(number) + ".mxf");
        LeaveOpen(file);
        Outcome outcome;
        {
            CSalvageMXFOp1b salvager;
            salvager.SetFilename(file.c_str());
            ASSERT_EQ(salvager.Salvage(&outcome), kStatusOk);
        }
        EXPECT_NE(outcome.Wait(), kSalvageFailed);
    });
}

TEST(Threads, ManyReadersReadOneFileSideBySide) {
    const TemporaryFolder folder;
    constexpr uint32_t kFrames = 8;
    Place place(2, folder.File("picture.mxf"));
    RecordPicture(place, kFrames, 3);
    const std::string clip = folder.File("clip.mxf");
    RecordClip(*LocalStream(), clip, SomeClip(110));
    SideBySide(16, [&](uint32_t number) {
        const LocalStream stream;
        if (number % 2 == 0) {
            ExpectPicture(*stream, place.File(), kFrames, 3);
        } else {
            ExpectClip(*stream, clip, SomeClip(110), 110);
        }
    });
}

TEST(Threads, OneReaderServesTheWholeProcess) {
    const TemporaryFolder folder;
    const std::string clip = folder.File("clip.mxf");
    RecordClip(*LocalStream(), clip, SomeClip(60));
    std::atomic<int> looked = 0;
    SideBySide(8, [&](uint32_t number) {
        READOP1BREQUESTTag request;
        std::snprintf(request.fileName, sizeof request.fileName, "%s", clip.c_str());
        for (uint32_t round = 0; round < 20; ++round) {
            EXPECT_EQ(Readop1b(&request, nullptr, 1), 1);
            request.frame = (7 * number + round) % 60;
            VIDEOFRAMEINFOTag info;
            // Another thread may have closed the file meanwhile.
            const int32_t found = Readop1b(&request, &info, 3);
            EXPECT_TRUE(found == 3 || found == -3) << found;
            if (found == 3) {
                EXPECT_EQ(info.size, (1 + request.frame % 9 + 3) / 4 * 4);
                ++looked;
            }
            if (round % 5 == 4) {
                EXPECT_EQ(Readop1b(&request, nullptr, 4), 4);
            }
        }
    });
    EXPECT_GT(looked, 0);
    READOP1BREQUESTTag request;
    EXPECT_EQ(Readop1b(&request, nullptr, 4), 4);
}

// The client's callback runs on the stream's thread while the client asks and writes on.
TEST(Threads, ClientIsToldWhileItWrites) {
    class Counting final : public IFileIOCallback {
    public:
        void CallbackForWriteComplete(uint64_t, int32_t status, int32_t) override { told += status == 0 ? 1 : 0; }
        std::atomic<uint32_t> told = 0;
    };
    const TemporaryFolder folder;
    SideBySide(4, [&](uint32_t number) {
        const LocalStream stream;
        Counting counting;
        CMemoryPiece frame(kDV25FrameSize);  // none is changed, so one will do
        CCreateMXFVideo writer;
        writer.SetFilename(folder.File(std::to_string(number) + ".mxf").c_str());
        writer.SetVideoStandard(VIDEO_STD_59_94I);
        writer.SetDVType(COMP_TYPE_DV25);
        writer.SetClipType(0x100);
        ASSERT_EQ(writer.Open(&*stream, true), kStatusOk);
        ASSERT_EQ(writer.RegisterCallback(&counting), kStatusOk);
        for (uint32_t i = 0; i < 60; ++i) {
            ASSERT_EQ(writer.Write(&frame, 0), static_cast<int32_t>(kDV25FrameSize));
            EXPECT_LE(counting.told, i + 1);
            EXPECT_EQ(writer.GetDuration(), i + 1);
            if (i == 30) {
                ASSERT_EQ(writer.DataSync(), kStatusOk);
                EXPECT_EQ(counting.told, 31u);
            }
        }
        ASSERT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(counting.told, 60u);
    });
}

TEST(Threads, EveryLogRecordGoesToOneSinkWhileSinksChange) {
    std::atomic<int> first = 0, second = 0;
    SetLogSink([&](const LogRecord&) { ++first; });
    std::atomic<bool> ended = false;
    std::thread changer([&] {
        for (bool turn = true; !ended; turn = !turn) {
            SetLogSink([&first, &second, turn](const LogRecord&) { ++(turn ? second : first); });
        }
    });
    SideBySide(8, [](uint32_t) {
        CCreateMXFVideo writer;
        for (int i = 0; i < 200; ++i) EXPECT_EQ(writer.Write(nullptr, 0), -1);  // "Not Open."
    });
    ended = true;
    changer.join();
    SetLogSink({});
    EXPECT_EQ(first + second, 8 * 200);
}

}  // namespace
}  // namespace kmxf::test
