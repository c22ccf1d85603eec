#include "collaborators/FileStream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "support/Completions.h"
#include "support/Hex.h"
#include "support/Sanitizers.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"

namespace kmxf {
namespace {

using test::Completion;
using test::Completions;
using test::SameBytes;
using testing::ElementsAre;

constexpr uint32_t kMiB = 1 << 20;

class FileStreamTest : public testing::Test {
protected:
    void Create(const std::string& name) {
        ASSERT_TRUE(stream_.Open(name.c_str(), kOpenCreate));
        ASSERT_TRUE(stream_.RegisterCallback(&completions_));
    }

    test::TemporaryFolder folder_;
    std::string name_ = folder_.File("a.mxf");
    CMemoryPiece small_{"abcd", 4};
    Completions completions_;
    FileStream stream_;
};

TEST_F(FileStreamTest, OpensOnlyWhatIsThereUnlessItCreates) {
    for (const uint32_t flags : {kOpenRead, kOpenReadWrite}) {
        errno = 0;
        EXPECT_FALSE(stream_.Open(name_.c_str(), flags));
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_FALSE(std::filesystem::exists(name_));
    EXPECT_FALSE(stream_.Open((name_ + "/below").c_str(), kOpenCreate));
    EXPECT_EQ(errno, ENOENT);
    Create(name_);
    EXPECT_TRUE(std::filesystem::exists(name_));
    EXPECT_TRUE(stream_.Close());
    EXPECT_FALSE(stream_.Open((name_ + "/below").c_str(), kOpenCreate));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(FileStreamTest, OpensNoDirectory) {
    for (const uint32_t flags : {kOpenRead, kOpenReadWrite, kOpenCreate}) {
        errno = 0;
        EXPECT_FALSE(stream_.Open(folder_.Path().c_str(), flags));
        EXPECT_EQ(errno, EISDIR);
        EXPECT_FALSE(stream_.Close());
    }
}

TEST_F(FileStreamTest, HasSixtyFourBitPositions) {
    constexpr int64_t kFar = int64_t{5} << 30;
    Create(name_);
    EXPECT_EQ(stream_.Seek(kFar, kSeekBegin), kFar);
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_EQ(stream_.Seek(0, kSeekEnd), kFar + 4);
    EXPECT_EQ(stream_.Seek(-3, kSeekCurrent), kFar + 1);
    CMemoryPiece piece(8);
    EXPECT_EQ(stream_.Read(&piece, 0), 3);
    EXPECT_EQ(piece.GetBuffer()[0], 'b');
    EXPECT_TRUE(stream_.Close());
    EXPECT_EQ(std::filesystem::file_size(name_), (uint64_t{5} << 30) + 4);
}

TEST_F(FileStreamTest, ReadSeekToTheEndDataSyncAndCloseSeeQueuedWrites) {
    Create(name_);
    completions_.Hold();
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_EQ(stream_.Write(&small_, 2, 0), 4);
    EXPECT_EQ(stream_.Seek(0, kSeekBegin), 0);  // needs nothing of what is queued
    for (const auto& waits : std::vector<std::function<void()>>{[&] { EXPECT_EQ(stream_.Seek(0, kSeekEnd), 8); },
                                                                [&] {
                                                                    CMemoryPiece piece(100);
                                                                    EXPECT_EQ(stream_.Seek(0, kSeekBegin), 0);
                                                                    EXPECT_EQ(stream_.Read(&piece, 0), 8);
                                                                    EXPECT_EQ(piece.GetBuffer()[7], 'd');
                                                                },
                                                                [&] { EXPECT_TRUE(stream_.DataSync()); },
                                                                [&] { EXPECT_TRUE(stream_.Close()); }}) {
        auto done = std::async(std::launch::async, waits);
        EXPECT_EQ(done.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        completions_.LetGo();
        done.get();
        completions_.Hold();
        if (stream_.Seek(0, kSeekBegin) == 0) {
            stream_.Write(&small_, 3, 0);
            stream_.Write(&small_, 4, 0);
        }
    }
    completions_.LetGo();
    EXPECT_EQ(std::filesystem::file_size(name_), 8u);
}

TEST_F(FileStreamTest, WriteReturnsWhileTheDiskIsBusyAndWaitsWhenTheQueueIsFull) {
    Create(name_);
    completions_.Hold();
    std::vector<std::unique_ptr<CMemoryPiece>> pieces;
    for (int i = 0; i < 3; ++i) {  // below the limit of 4 MiB
        pieces.push_back(std::make_unique<CMemoryPiece>(kMiB));
        EXPECT_EQ(stream_.Write(pieces.back().get(), i, 0), int32_t{kMiB});
    }
    CMemoryPiece last(kMiB);
    auto write = std::async(std::launch::async, [&] { return stream_.Write(&last, 3, 0); });
    EXPECT_EQ(write.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    completions_.LetGo();
    EXPECT_EQ(write.get(), int32_t{kMiB});
    EXPECT_TRUE(stream_.Close());
    EXPECT_EQ(completions_.All().size(), 4u);
    EXPECT_EQ(std::filesystem::file_size(name_), 4u * kMiB);
}

TEST_F(FileStreamTest, TheQueueOfVerySmallPiecesIsBoundedToo) {
    Create(name_);
    completions_.Hold();
    CMemoryPiece empty(0);
    auto writes = std::async(std::launch::async, [&] {
        for (int i = 0; i < 20000; ++i) EXPECT_EQ(stream_.Write(&empty, i, 0), 0);
    });
    EXPECT_EQ(writes.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    completions_.LetGo();
    writes.get();
    EXPECT_TRUE(stream_.Close());
    EXPECT_EQ(completions_.All().size(), 20000u);
}

TEST_F(FileStreamTest, APieceLargerThanTheQueueIsWritten) {
    Create(name_);
    CMemoryPiece large(5 * kMiB);
    large.GetBuffer()[5 * kMiB - 1] = 1;
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_EQ(stream_.Write(&large, 2, 0), int32_t{5 * kMiB});
    EXPECT_EQ(stream_.Write(&large, 3, 0), int32_t{5 * kMiB});
    EXPECT_TRUE(stream_.Close());
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, 0, 1}, Completion{2, 0, 2}, Completion{3, 0, 3}));
    EXPECT_EQ(std::filesystem::file_size(name_), 4u + 2u * 5 * kMiB);
}

TEST_F(FileStreamTest, AFullDiskIsReportedByTheCompletionAndByEveryLaterOperation) {
    Create("/dev/full");
    EXPECT_EQ(stream_.Write(&small_, 7, 0), 4);  // accepted before it is tried
    EXPECT_FALSE(stream_.DataSync());
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, kStatusIoError, 7}));

    errno = 0;
    EXPECT_EQ(stream_.Write(&small_, 8, 0), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, kStatusIoError, 7}, Completion{2, kStatusIoError, 8}));
    CMemoryPiece piece(4);
    EXPECT_EQ(stream_.Read(&piece, 0), -1);
    EXPECT_EQ(stream_.Seek(0, kSeekEnd), -1);
    EXPECT_EQ(stream_.Seek(0, kSeekBegin), 0);
    EXPECT_FALSE(stream_.DataSync());

    errno = 0;
    EXPECT_FALSE(stream_.Close());
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(completions_.All().size(), 2u);

    Create(name_);  // as good as new
    EXPECT_EQ(stream_.Write(&small_, 9, 0), 4);
    EXPECT_TRUE(stream_.DataSync());
    EXPECT_TRUE(stream_.Close());
}

TEST_F(FileStreamTest, CloseAloneReportsALostWrite) {
    Create("/dev/full");
    EXPECT_EQ(stream_.Write(&small_, 7, 0), 4);
    EXPECT_FALSE(stream_.Close());
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, kStatusIoError, 7}));
}

TEST_F(FileStreamTest, OpeningAgainReportsALostWriteToo) {
    Create("/dev/full");
    EXPECT_EQ(stream_.Write(&small_, 7, 0), 4);
    EXPECT_FALSE(stream_.Open(name_.c_str(), kOpenCreate));
    EXPECT_FALSE(std::filesystem::exists(name_));
    EXPECT_FALSE(stream_.Close());
}

TEST_F(FileStreamTest, AWriteBehindAFailedOneIsRefusedAndCompletedInOrder) {
    Create("/dev/full");
    completions_.Hold();
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    // It is completed, or about to be: from now on the stream knows.
    while (completions_.All().empty()) std::this_thread::yield();
    auto refused = std::async(std::launch::async, [&] {
        // Refused, and completed behind the first, which is still under way.
        return stream_.Write(&small_, 2, 0);
    });
    EXPECT_EQ(refused.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    EXPECT_EQ(completions_.All().size(), 1u);
    completions_.LetGo();
    EXPECT_EQ(refused.get(), -1);
    EXPECT_EQ(completions_.All(), (std::vector<Completion>{{1, kStatusIoError, 1}, {2, kStatusIoError, 2}}));
    EXPECT_FALSE(stream_.Close());
}

// While it lives, no file may grow beyond `size` bytes, and trying is an error instead of a signal.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) {
        getrlimit(RLIMIT_FSIZE, &before_);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{size, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    rlimit before_{};
    void (*handler_)(int);
};

TEST_F(FileStreamTest, AWriteThatTheSystemCutsShortIsGoneOnWithUntilItFails) {
    Create(name_);
    CMemoryPiece first(4096), second(4096);
    std::fill_n(second.GetBuffer(), 4096, uint8_t{2});
    {
        const FileSizeLimit limit(6000);
        EXPECT_EQ(stream_.Write(&first, 1, 0), 4096);
        EXPECT_TRUE(stream_.DataSync());
        EXPECT_EQ(stream_.Write(&second, 2, 0), 4096);
        EXPECT_FALSE(stream_.DataSync());
        EXPECT_EQ(errno, EFBIG);
    }
    // The failure stays although there would be room now; what the system took is in the file.
    EXPECT_EQ(stream_.Write(&second, 3, 0), -1);
    EXPECT_FALSE(stream_.Close());
    EXPECT_THAT(completions_.All(),
                ElementsAre(Completion{1, 0, 1}, Completion{2, kStatusIoError, 2}, Completion{3, kStatusIoError, 3}));
    std::vector<uint8_t> expected(6000);
    std::fill(expected.begin() + 4096, expected.end(), uint8_t{2});
    EXPECT_TRUE(SameBytes(expected, test::LoadFile(name_)));
}

TEST_F(FileStreamTest, NothingIsWrittenBehindAFailedWrite) {
    Create(name_);
    completions_.Hold();  // the thread stops in the first completion, so that the other two are queued together
    CMemoryPiece large(4096);
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_EQ(stream_.Write(&large, 2, 0), 4096);
    stream_.Seek(0, kSeekBegin);
    CMemoryPiece later("XX", 2);
    EXPECT_EQ(stream_.Write(&later, 3, 0), 2);
    while (completions_.All().empty()) std::this_thread::yield();
    {
        const FileSizeLimit limit(1000);
        completions_.LetGo();
        EXPECT_FALSE(stream_.DataSync());
    }
    EXPECT_FALSE(stream_.Close());
    EXPECT_THAT(completions_.All(),
                ElementsAre(Completion{1, 0, 1}, Completion{2, kStatusIoError, 2}, Completion{3, kStatusIoError, 3}));
    EXPECT_EQ(test::LoadFile(name_)[0], 'a');
}

TEST_F(FileStreamTest, SyncsAlsoReadOnlyFilesAndDevicesWithoutAMedium) {
    Create(name_);
    EXPECT_TRUE(stream_.Close());
    ASSERT_TRUE(stream_.Open(name_.c_str(), kOpenRead));
    EXPECT_TRUE(stream_.DataSync());
    ASSERT_TRUE(stream_.Open("/dev/null", kOpenCreate));
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_TRUE(stream_.DataSync());
    EXPECT_TRUE(stream_.Close());
}

// A device takes no hint of what is to go on to its medium.
TEST_F(FileStreamTest, WhatCannotBeginToSyncIsWritten) {
    Create("/dev/null");
    CMemoryPiece large(5 * kMiB);
    for (int tag = 1; tag <= 4; ++tag) EXPECT_EQ(stream_.Write(&large, tag, 0), int32_t{5 * kMiB});
    EXPECT_TRUE(stream_.DataSync());
    EXPECT_TRUE(stream_.Close());
    EXPECT_THAT(completions_.All(),
                ElementsAre(Completion{1, 0, 1}, Completion{2, 0, 2}, Completion{3, 0, 3}, Completion{4, 0, 4}));
}

// The descriptor under which this process has the file open.
int DescriptorOf(const std::string& name) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == name) return std::stoi(entry.path().filename());
    }
    return -1;
}

TEST_F(FileStreamTest, AFailedSyncIsReportedByCloseToo) {
    Create(name_);
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_TRUE(stream_.DataSync());
    // Behind the stream's back its descriptor becomes one that cannot be synced, and then again what it was.
    const int descriptor = DescriptorOf(name_);
    ASSERT_GE(descriptor, 0);
    const int saved = dup(descriptor), pathOnly = open(name_.c_str(), O_PATH);
    ASSERT_EQ(dup2(pathOnly, descriptor), descriptor);
    EXPECT_FALSE(stream_.DataSync());
    EXPECT_EQ(errno, EBADF);
    ASSERT_EQ(dup2(saved, descriptor), descriptor);
    close(saved);
    close(pathOnly);
    EXPECT_FALSE(stream_.DataSync());
    EXPECT_FALSE(stream_.Close());
    EXPECT_EQ(errno, EBADF);
}

// The sanitizers need more address space than there is left.
#if !KMXF_TEST_SANITIZED_HEAP
TEST(FileStreamDeathTest, AWriteIsRefusedWhenNoThreadCanBeStarted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has had no threads whose stacks it could use
    const auto refused = [] {
        size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t limit = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + kMiB;
        const rlimit limits{limit, limit};
        Completions completions;
        FileStream stream;
        CMemoryPiece piece(4);
        return stream.Open("/dev/null", kOpenCreate) && stream.RegisterCallback(&completions) &&
               setrlimit(RLIMIT_AS, &limits) == 0 && stream.Write(&piece, 3, 0) == -1 && errno == ENOMEM &&
               completions.All() == std::vector{Completion{1, kStatusIoError, 3}} && stream.Close();
    };
    EXPECT_EXIT(std::exit(refused() ? 0 : 1), testing::ExitedWithCode(0), "");
}
#endif

size_t Threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

TEST_F(FileStreamTest, HasAThreadOnlyBetweenTheFirstWriteAndClose) {
    // A sanitizer may start a thread of its own with the first one; a joined one may stay on the list for a moment.
    std::thread([] {}).join();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const size_t before = Threads();
    Create(name_);
    CMemoryPiece piece(4);
    EXPECT_EQ(stream_.Read(&piece, 0), 0);
    EXPECT_TRUE(stream_.DataSync());
    EXPECT_EQ(Threads(), before);
    EXPECT_EQ(stream_.Write(&small_, 1, 0), 4);
    EXPECT_EQ(Threads(), before + 1);
    EXPECT_TRUE(stream_.Close());
    // The system may take a moment to take a joined thread off the list.
    for (int i = 0; i < 1000 && Threads() != before; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(Threads(), before);
}

TEST_F(FileStreamTest, ReleaseWritesWhatIsQueued) {
    auto* const stream = new FileStream;
    ASSERT_TRUE(stream->Open(name_.c_str(), kOpenCreate));
    for (int i = 0; i < 100; ++i) EXPECT_EQ(stream->Write(&small_, i, 0), 4);
    stream->Release();
    EXPECT_EQ(std::filesystem::file_size(name_), 400u);
}

TEST_F(FileStreamTest, TheCallbackMayBeExchangedWhileWritesComplete) {
    Create(name_);
    Completions other;
    for (int i = 0; i < 500; ++i) {
        EXPECT_TRUE(stream_.RegisterCallback(i % 2 == 0 ? &completions_ : &other));
        EXPECT_EQ(stream_.Write(&small_, i, 0), 4);
    }
    EXPECT_TRUE(stream_.Close());
    EXPECT_EQ(completions_.All().size() + other.All().size(), 500u);
}

TEST_F(FileStreamTest, SignalsDoNotBreakOffOpen) {
    // Opening a pipe waits until somebody opens its other end.
    const std::string pipe = folder_.File("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    struct sigaction action {
    }, before{};
    action.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    std::promise<pthread_t> thread;
    auto opened = std::async(std::launch::async, [&] {
        thread.set_value(pthread_self());
        return stream_.Open(pipe.c_str(), kOpenRead);
    });
    const pthread_t target = thread.get_future().get();
    for (int i = 0; i < 20; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        pthread_kill(target, SIGUSR1);
    }
    FileStream other;
    EXPECT_TRUE(other.Open(pipe.c_str(), kOpenReadWrite));
    EXPECT_TRUE(opened.get());
    sigaction(SIGUSR1, &before, nullptr);
}

// Random operations against a plain vector; pieces are freed by their completions, on the stream's thread.
TEST_F(FileStreamTest, BehavesAsOneSequenceOfReadsAndWrites) {
    struct Freeing final : IFileIOCallback {
        void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) override {
            EXPECT_EQ(status, kStatusOk);
            EXPECT_EQ(id, ++lastId);
            EXPECT_EQ(tag, static_cast<int32_t>(id % 1000));
            PieceAllocator allocator(stream);
            const std::lock_guard lock(mutex);
            allocator.Free(pieces.front());
            pieces.pop_front();
        }
        IStreamFileIO* stream;
        uint64_t lastId = 0;
        std::mutex mutex;
        std::deque<StreamPiece*> pieces;
    } freeing;
    freeing.stream = &stream_;
    ASSERT_TRUE(stream_.Open(name_.c_str(), kOpenCreate));
    ASSERT_TRUE(stream_.RegisterCallback(&freeing));

    std::mt19937 random(20260102);
    const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    std::vector<uint8_t> model;
    size_t position = 0;
    PieceAllocator allocator(&stream_);
    int32_t writes = 0;
    for (int i = 0; i < 1500; ++i) {
        const uint32_t action = below(20);
        if (action < 16) {
            const uint32_t size = below(4096);
            StreamPiece* const piece = allocator.Allocate(size);
            ASSERT_NE(piece, nullptr);
            std::generate_n(piece->GetBuffer(), size, [&] { return static_cast<uint8_t>(random()); });
            model.resize(std::max(model.size(), position + size));
            std::copy_n(piece->GetBuffer(), size, model.begin() + static_cast<std::ptrdiff_t>(position));
            position += size;
            {
                const std::lock_guard lock(freeing.mutex);
                freeing.pieces.push_back(piece);
            }
            ASSERT_EQ(stream_.Write(piece, ++writes % 1000, 0), static_cast<int32_t>(size));
        } else if (action == 16) {
            position = below(static_cast<uint32_t>(model.size()) + 100);
            ASSERT_EQ(stream_.Seek(static_cast<int64_t>(position), kSeekBegin), static_cast<int64_t>(position));
        } else if (action == 17) {
            ASSERT_EQ(stream_.Seek(0, kSeekEnd), static_cast<int64_t>(model.size()));
            position = model.size();
        } else {
            position = std::min(position, model.size());
            const size_t start = position - std::min<size_t>(position, 5000);
            ASSERT_EQ(stream_.Seek(static_cast<int64_t>(start), kSeekBegin), static_cast<int64_t>(start));
            const OwnedPiece piece(allocator, 3000);
            const auto count = std::min<size_t>(3000, model.size() - start);
            ASSERT_EQ(stream_.Read(piece.get(), 0), static_cast<int32_t>(count));
            ASSERT_TRUE(SameBytes(std::span(model).subspan(start, count), piece.Bytes().first(count)));
            position = start + count;
        }
    }
    EXPECT_TRUE(stream_.DataSync());
    EXPECT_TRUE(stream_.Close());
    EXPECT_EQ(freeing.lastId, static_cast<uint64_t>(writes));
    EXPECT_TRUE(freeing.pieces.empty());
    EXPECT_TRUE(SameBytes(model, test::LoadFile(name_)));
}

}  // namespace
}  // namespace kmxf
