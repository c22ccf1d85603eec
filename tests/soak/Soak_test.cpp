// Writers, readers and salvagers side by side, for a while: every clip is right, and the memory stays flat.
//
// KMXF_SOAK_SECONDS says for how long (5), KMXF_SOAK_FOLDER where (a folder for temporary files).
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "kmxf/collaborators/Log.h"
#include "kmxf/core/Environment.h"
#include "soak/Clips.h"
#include "support/HeapUse.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

using std::chrono::steady_clock;

constexpr uint32_t kThreads = 64;
// The last third of a long run may take this much more than the first.
constexpr double kFlatFactor = 1.05;
constexpr double kFlatMiB = 8;
constexpr std::chrono::seconds kLongRun{60};
// What a run may leave on the heap: buffers of the standard library that stay with the process.
constexpr size_t kLeftOver = 256 << 10;

// Clips that lie there for all to read.
struct Shared {
    static constexpr uint32_t kFrames = 5, kSeed = 77;
    std::string picture, clip;

    explicit Shared(const TemporaryFolder& folder)
        : picture(folder.File("picture.mxf")), clip(folder.File("clip.mxf")) {
        // A place removes its file: what it holds is moved away before.
        Place place(2, folder.File("shared.mxf"));
        RecordPicture(place, kFrames, kSeed);
        std::filesystem::rename(place.File(), picture);
        RecordClip(*LocalStream(), clip, SomeClip(120));
    }
};

struct Turn {
    Chance& chance;
    const Shared& shared;
    std::string file;  // a name of its own
    std::atomic<uint64_t>& salvaged;
};

void PictureTurn(const Turn& turn) {
    const uint32_t frames = turn.chance(1, 6), seed = turn.chance(0, 1000);
    Place place(turn.chance(0, Place::kKinds - 1), turn.file);
    RecordPicture(place, frames, seed);
    ExpectPicture(place.Reading(), place.File(), frames, seed);
}

void SoundTurn(const Turn& turn) {
    const uint32_t samples = turn.chance(1, 100000), seed = turn.chance(0, 1000);
    Place place(turn.chance(0, Place::kKinds - 1), turn.file);
    RecordSound(place, samples, seed);
    ExpectSound(place.Reading(), place.File(), samples, seed);
}

void ClipTurn(const Turn& turn) {
    const Op1bClip clip = SomeClip(turn.chance(1, 130));
    Place place(turn.chance(0, Place::kKinds - 1), turn.file);
    RecordClip(place.Writing(), place.File(), clip);
    ExpectClip(place.Reading(), place.File(), clip, clip.frames);
}

void SharedTurn(const Turn& turn) {
    const LocalStream stream;
    if (turn.chance(0, 1) == 0) {
        ExpectPicture(*stream, turn.shared.picture, Shared::kFrames, Shared::kSeed);
    } else {
        ExpectClip(*stream, turn.shared.clip, SomeClip(120), 120);
    }
}

// A recording that was cut off somewhere is salvaged, and mostly cancelled by another thread at some moment.
void SalvageTurn(const Turn& turn) {
    const Op1bClip clip = SomeClip(150);
    const Place place(2, turn.file);
    RecordClip(*LocalStream(), turn.file, clip, false);
    const auto whole = std::filesystem::file_size(turn.file);
    const uintmax_t size = turn.chance(static_cast<uint32_t>(whole / 2), static_cast<uint32_t>(whole));
    std::filesystem::resize_file(turn.file, size);

    CSalvageMXFOp1b salvager;
    Outcome outcome;
    salvager.SetFilename(turn.file.c_str());
    const auto delay = std::chrono::microseconds(turn.chance(0, 30000));
    std::thread other([&] {
        std::this_thread::sleep_for(delay);
        salvager.GetDuration();
        salvager.Cancel();
    });
    EXPECT_EQ(salvager.Salvage(&outcome), kStatusOk);
    const int32_t ended = outcome.Wait();
    other.join();
    if (ended == kSalvageCancelled) {
        EXPECT_EQ(std::filesystem::file_size(turn.file), size);
        EXPECT_EQ(salvager.GetDuration(), 0);
    } else {
        ++turn.salvaged;
        ASSERT_EQ(ended, kSalvageCompleted);
        EXPECT_GE(salvager.GetDuration(), 40);
        ExpectClip(*LocalStream(), turn.file, clip, salvager.GetDuration());
    }
}

// Failures, which make log records.
void MistakenTurn(const Turn& turn) {
    CCreateMXFVideo writer;
    EXPECT_EQ(writer.Write(nullptr, 0), -1);
    const LocalStream stream;
    CReadMXFOp1b reader;
    EXPECT_NE(reader.Open((turn.file + ".none").c_str(), &*stream), kStatusOk);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the others have more to do
}

struct Task {
    const char* name;
    void (*run)(const Turn& turn);
};
// One thread in as many does each.
constexpr std::array<Task, 8> kTasks = {{{"OP-Atom pictures written and read", PictureTurn},
                                         {"OP-Atom sound written and read", SoundTurn},
                                         {"OP-1b clips written and read", ClipTurn},
                                         {"shared files read", SharedTurn},
                                         {"OP-1b clips salvaged or cancelled", SalvageTurn},
                                         {"OP-Atom pictures written and read", PictureTurn},
                                         {"OP-1b clips written and read", ClipTurn},
                                         {"mistakes logged", MistakenTurn}}};

// What is set for the whole process changes all the while.
class Meddler {
public:
    Meddler() {
        Meddle(0);
        thread_ = std::thread([this] { Run(); });
    }
    Meddler(const Meddler&) = delete;
    Meddler& operator=(const Meddler&) = delete;
    ~Meddler() {
        stopping_ = true;
        thread_.join();
        SetLogSink({});
        SetNowSource({});
    }
    uint64_t Records() const { return records_; }

private:
    void Meddle(int turn) {
        SetLogSink([this, text = "sink " + std::to_string(turn)](const LogRecord& record) {
            records_ += record.message.empty() || text.empty() ? 0 : 1;
        });
        SetNowSource(turn % 2 == 0 ? std::function<LocalTime()>() : [] { return LocalTime{}; });
    }
    void Run() {
        for (int turn = 1; !stopping_; ++turn) {
            Meddle(turn);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::atomic<uint64_t> records_ = 0;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

double ResidentMiB() {
    std::ifstream file("/proc/self/statm");
    double pages = 0;
    file >> pages >> pages;
    return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1 << 20);
}

double Mean(std::span<const double> values) {
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

// Works in 64 threads until then; gives the rounds of each task and what memory the process took all the while.
struct Result {
    std::array<std::atomic<uint64_t>, kTasks.size()> rounds{};
    std::atomic<uint64_t> salvaged = 0;
    uint64_t records = 0;
    std::vector<double> memory;
};
void Soak(std::chrono::duration<double> time, const TemporaryFolder& folder, const Shared& shared, Result& result) {
    const auto end = steady_clock::now() + time;
    const Meddler meddler;
    std::vector<std::thread> threads;
    for (uint32_t number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            Chance chance(number);
            const size_t task = number % kTasks.size();
            const std::string file = folder.File(std::to_string(number) + ".mxf");
            while (steady_clock::now() < end && !testing::Test::HasFailure()) {
                kTasks[task].run({chance, shared, file, result.salvaged});
                ++result.rounds[task];
            }
        });
    }
    while (steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        result.memory.push_back(ResidentMiB());
    }
    for (std::thread& thread : threads) thread.join();
    result.records = meddler.Records();
}

TEST(Soak, ManyWritersReadersAndSalvagersSideBySideKeepTheirClipsAndTheMemoryFlat) {
    const char* const seconds = std::getenv("KMXF_SOAK_SECONDS");
    const std::chrono::duration<double> time(seconds ? std::strtod(seconds, nullptr) : 5);
    if (const char* const place = std::getenv("KMXF_SOAK_FOLDER")) ::setenv("TMPDIR", place, 1);
    const TemporaryFolder folder;
    const Shared shared(folder);
    // A short run first: it fills what stays for the life of the process.
    Result warm, result;
    Soak(time / 20, folder, shared, warm);
    const size_t heap = HeapBytes();
    Soak(time, folder, shared, result);
    EXPECT_LE(HeapBytes(), heap + kLeftOver);

    for (size_t task = 0; task < kTasks.size(); ++task) {
        std::printf("%10lu  %s\n", static_cast<unsigned long>(result.rounds[task]), kTasks[task].name);
        EXPECT_GT(result.rounds[task], 0u) << kTasks[task].name;
    }
    EXPECT_GT(result.records, 0u);
    std::printf("%10lu  of the clips salvaged, the others cancelled\n", static_cast<unsigned long>(result.salvaged));
    const std::span<const double> memory(result.memory);
    const size_t third = memory.size() / 3;
    const double first = Mean(memory.first(third)), last = Mean(memory.last(third));
    std::printf("%10.0f  threads for %.0f s; memory %.1f MiB in the first third, %.1f in the last, %.1f at most\n",
                double{kThreads}, time.count(), first, last, *std::max_element(memory.begin(), memory.end()));
    if (!KMXF_TEST_SANITIZED_HEAP && time >= kLongRun) {
        EXPECT_LE(last, first * kFlatFactor + kFlatMiB);
    }
}

}  // namespace
}  // namespace kmxf::test
