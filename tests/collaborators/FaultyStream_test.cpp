// The double that the tests of the writers and readers lean on.

#include "support/FaultyStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "support/Completions.h"

namespace kmxf {
namespace {

using test::Completion;
using test::Completions;
using test::Fault;
using test::FaultyStream;
using test::Op;
using testing::ElementsAre;
using testing::IsEmpty;

class FaultyStreamTest : public testing::Test {
protected:
    void Create() {
        ASSERT_TRUE(stream_.Open("a.mxf", kOpenCreate));
        ASSERT_TRUE(stream_.RegisterCallback(&completions_));
    }
    CMemoryPiece piece_{"abcd", 4};
    Completions completions_;
    FaultyStream stream_;
};

TEST_F(FaultyStreamTest, RemembersItsCalls) {
    Create();
    stream_.Write(&piece_, 1, 0);
    stream_.Seek(-2, kSeekEnd);
    stream_.Read(&piece_, 0);
    stream_.DataSync();
    stream_.Close();
    EXPECT_THAT(stream_.Calls(), ElementsAre("Open a.mxf 0x102", "RegisterCallback", "Write 4 tag 1", "Seek -2 2",
                                             "Read 4", "DataSync", "Close"));
    EXPECT_EQ(stream_.Count(Op::kWrite), 1);
    EXPECT_EQ(stream_.Count(Op::kAllocate), 0);
    EXPECT_EQ(stream_.CountOfAll(), 7);
    EXPECT_THAT(stream_.Bytes(), ElementsAre('a', 'b', 'c', 'd'));
}

TEST_F(FaultyStreamTest, FailsTheNthOfAKindAndTheNthOfAll) {
    stream_.FailNth(Op::kOpen, 1);
    stream_.FailNthOfAll(3);
    stream_.FailAll(Op::kSeek);
    EXPECT_FALSE(stream_.Open("a", kOpenCreate));
    EXPECT_TRUE(stream_.Open("a", kOpenCreate));
    EXPECT_FALSE(stream_.DataSync());
    EXPECT_TRUE(stream_.DataSync());
    EXPECT_EQ(stream_.Seek(0, kSeekBegin), -1);
    EXPECT_EQ(stream_.Seek(0, kSeekBegin), -1);
    EXPECT_TRUE(stream_.Close());
}

TEST_F(FaultyStreamTest, WritesFailInFourWays) {
    stream_.FailNth(Op::kWrite, 1, Fault::kFail);
    stream_.FailNth(Op::kWrite, 2, Fault::kFailCompleted);
    stream_.FailNth(Op::kWrite, 3, Fault::kShort);
    stream_.FailNth(Op::kWrite, 4, Fault::kBadCompletion);
    Create();
    EXPECT_EQ(stream_.Write(&piece_, 1, 0), -1);
    EXPECT_THAT(completions_.All(), IsEmpty());
    EXPECT_EQ(stream_.Write(&piece_, 2, 0), -1);
    EXPECT_THAT(stream_.Bytes(), IsEmpty());
    EXPECT_EQ(stream_.Write(&piece_, 3, 0), 3);
    EXPECT_EQ(stream_.Write(&piece_, 4, 0), 4);
    EXPECT_THAT(stream_.Bytes(), ElementsAre('a', 'b', 'c'));
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, -5, 2}, Completion{2, -5, 3}, Completion{3, -5, 4}));
}

TEST_F(FaultyStreamTest, ReadsFailInThreeWays) {
    FaultyStream stream(std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8});
    stream.FailNth(Op::kRead, 1, Fault::kFail);
    stream.FailNth(Op::kRead, 2, Fault::kEndOfFile);
    stream.FailNth(Op::kRead, 3, Fault::kShort);
    stream.Open("a", kOpenRead);
    EXPECT_EQ(stream.Read(&piece_, 0), -1);
    EXPECT_EQ(stream.Read(&piece_, 0), 0);
    EXPECT_EQ(stream.Read(&piece_, 0), 3);
    EXPECT_EQ(stream.Read(&piece_, 0), 4);
    EXPECT_EQ(stream.Position(), 7);
}

TEST_F(FaultyStreamTest, CompletesLaterOnItsOwnThread) {
    stream_.CompleteAsynchronously(std::chrono::milliseconds(20));
    stream_.FailNth(Op::kWrite, 2, Fault::kBadCompletion);
    Create();
    EXPECT_EQ(stream_.Write(&piece_, 1, 0), 4);
    EXPECT_THAT(completions_.All(), IsEmpty());
    EXPECT_EQ(stream_.Write(&piece_, 2, 0), 4);
    EXPECT_TRUE(stream_.Close());
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, 0, 1}, Completion{2, -5, 2}));
}

TEST_F(FaultyStreamTest, ShowsBytesThatNobodyWrote) {
    IStreamPieceAllocator* const allocator = stream_.GetPieceAllocator();
    StreamPiece* const piece = allocator->Allocate(2);
    EXPECT_EQ(piece->GetBuffer()[1], 0xEE);
    EXPECT_EQ(stream_.LivePieces(), 1);
    EXPECT_EQ(stream_.LiveAllocators(), 1);
    allocator->Free(piece);
    allocator->Release();
    EXPECT_EQ(stream_.LivePieces(), 0);
    EXPECT_EQ(stream_.LiveAllocators(), 0);
}

TEST_F(FaultyStreamTest, SharesItsBytes) {
    Create();
    stream_.Write(&piece_, 1, 0);
    FaultyStream other(stream_.Shared());
    other.Open("a.mxf", kOpenRead);
    EXPECT_EQ(other.Seek(0, kSeekEnd), 4);
}

}  // namespace
}  // namespace kmxf
