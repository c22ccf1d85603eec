#include "kmxf/collaborators/MemoryFileIO.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <thread>

#include "kmxf/core/Status.h"
#include "support/Completions.h"
#include "support/Sanitizers.h"

namespace kmxf {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(MemoryPiece, IsZeroedOrACopy) {
    CMemoryPiece zeroed(3);
    EXPECT_EQ(zeroed.GetSize(), 3u);
    EXPECT_THAT(std::vector<uint8_t>(zeroed.GetBuffer(), zeroed.GetBuffer() + 3), ElementsAre(0, 0, 0));
    const uint8_t source[] = {1, 2};
    CMemoryPiece copy(source, 2);
    EXPECT_EQ(copy.GetSize(), 2u);
    EXPECT_THAT(std::vector<uint8_t>(copy.GetBuffer(), copy.GetBuffer() + 2), ElementsAre(1, 2));
    CMemoryPiece noSource(nullptr, 2);
    EXPECT_THAT(std::vector<uint8_t>(noSource.GetBuffer(), noSource.GetBuffer() + 2), ElementsAre(0, 0));
}

TEST(MemoryPiece, CopyInStaysInside) {
    CMemoryPiece piece(4);
    const uint8_t source[] = {1, 2, 3, 4, 5};
    piece.CopyIn(2, source, 5);
    piece.CopyIn(4, source, 5);
    piece.CopyIn(0xFFFFFFFF, source, 0xFFFFFFFF);
    piece.CopyIn(0, nullptr, 4);
    EXPECT_THAT(std::vector<uint8_t>(piece.GetBuffer(), piece.GetBuffer() + 4), ElementsAre(0, 0, 1, 2));
}

TEST(MemoryFileIO, ContentsOutliveClose) {
    CMemoryFileIO file;
    EXPECT_THAT(file.GetContents(), IsEmpty());
    EXPECT_FALSE(file.IsOpened());
    ASSERT_TRUE(file.Open("clip.mxf", kOpenCreate));
    EXPECT_TRUE(file.IsOpened());
    CMemoryPiece piece("abc", 3);
    EXPECT_EQ(file.Write(&piece, 1, 0), 3);
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.IsOpened());
    EXPECT_EQ(file.GetFileName(), "clip.mxf");
    EXPECT_THAT(file.GetContents(), ElementsAre('a', 'b', 'c'));
}

TEST(MemoryFileIO, AnyNameOpensTheOneFile) {
    CMemoryFileIO file({1, 2, 3});
    ASSERT_TRUE(file.Open("", kOpenRead));
    ASSERT_TRUE(file.Open("other", kOpenReadWrite));
    EXPECT_EQ(file.GetFileName(), "other");
    EXPECT_EQ(file.Seek(0, kSeekEnd), 3);
    EXPECT_FALSE(file.Open(nullptr, kOpenRead));
    EXPECT_FALSE(file.IsOpened());
    file.SetContents({4});
    EXPECT_THAT(file.GetContents(), ElementsAre(4));
    ASSERT_TRUE(file.Open("other", kOpenCreate));
    EXPECT_THAT(file.GetContents(), IsEmpty());
}

TEST(MemoryFileIO, WritesCompleteInsideWriteOnTheCallersThread) {
    struct Callback final : IFileIOCallback {
        void CallbackForWriteComplete(uint64_t, int32_t status, int32_t) override {
            EXPECT_EQ(status, kStatusOk);
            EXPECT_EQ(std::this_thread::get_id(), caller);
            ++calls;
        }
        std::thread::id caller = std::this_thread::get_id();
        int calls = 0;
    } callback;
    CMemoryFileIO file;
    file.Open("a", kOpenCreate);
    file.RegisterCallback(&callback);
    CMemoryPiece piece(10);
    EXPECT_EQ(file.Write(&piece, 1, 0), 10);
    EXPECT_EQ(callback.calls, 1);
}

#if !KMXF_TEST_SANITIZED_HEAP
TEST(MemoryFileIO, AWriteThatDoesNotFitInMemoryIsRefused) {
    CMemoryFileIO file({1, 2, 3});
    test::Completions completions;
    file.Open("a", kOpenReadWrite);
    file.RegisterCallback(&completions);
    file.Seek(std::numeric_limits<int64_t>::max() - 10, kSeekBegin);
    CMemoryPiece piece(4);
    EXPECT_EQ(file.Write(&piece, 3, 0), kCountFailed);
    EXPECT_THAT(completions.All(), ElementsAre(test::Completion{1, kStatusIoError, 3}));
    EXPECT_THAT(file.GetContents(), ElementsAre(1, 2, 3));
}
#endif

TEST(MemoryFileIO, AWriteAcrossTheEndOfWhatCanBeAddressedIsRefused) {
    CMemoryFileIO file({1, 2, 3});
    file.Open("a", kOpenReadWrite);
    constexpr uint64_t kMost =
        std::min<uint64_t>(std::numeric_limits<size_t>::max(), std::numeric_limits<int64_t>::max());
    file.Seek(static_cast<int64_t>(kMost - 1), kSeekBegin);
    CMemoryPiece piece(4);
    EXPECT_EQ(file.Write(&piece, 0, 0), kCountFailed);
    EXPECT_THAT(file.GetContents(), ElementsAre(1, 2, 3));
}

TEST(MemoryFileIO, AReadFourGigabytesBehindTheStartFindsNothing) {
    CMemoryFileIO file({1, 2, 3});
    file.Open("a", kOpenRead);
    file.Seek(int64_t{1} << 32, kSeekBegin);
    CMemoryPiece piece(4);
    EXPECT_EQ(file.Read(&piece, 0), 0);
}

TEST(MemoryFileIO, SetContentsMayShortenTheFileBehindThePosition) {
    CMemoryFileIO file({1, 2, 3});
    file.Open("a", kOpenRead);
    file.Seek(0, kSeekEnd);
    file.SetContents({1});
    CMemoryPiece piece(4);
    EXPECT_EQ(file.Read(&piece, 0), 0);
}

TEST(MemoryFileIO, TheClusterSizeIsTheClients) {
    CMemoryFileIO file;
    EXPECT_EQ(file.GetClusterSize(), 32768u);
    file.SetClusterSize(65536);
    EXPECT_EQ(file.GetClusterSize(), 65536u);
}

TEST(MemoryFileIO, ReleaseDeletesIt) {
    auto* const file = new CMemoryFileIO({1, 2, 3});
    file->Open("a", kOpenRead);
    file->Release();  // the leak checker tells
}

}  // namespace
}  // namespace kmxf
