// What every stream of the library keeps, and the double with which the other tests replace them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "support/Completions.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/TemporaryFolder.h"

namespace kmxf {
namespace {

using test::Completion;
using test::Completions;
using test::FaultyStream;
using test::SameBytes;
using testing::ElementsAre;
using testing::IsEmpty;

struct Kind {
    const char* name;
    std::function<std::shared_ptr<IStreamFileIO>()> make;
};

// The library's own first, then the double.
const Kind kKinds[] = {
    {"Memory", [] { return std::make_shared<CMemoryFileIO>(); }},
    {"File",
     [] {
         const auto stream = std::make_shared<FactoryStream>();
         return std::shared_ptr<IStreamFileIO>(stream, stream->get());
     }},
    {"Faulty", [] { return std::make_shared<FaultyStream>(); }},
    {"FaultyAsynchronous",
     [] {
         auto stream = std::make_shared<FaultyStream>();
         stream->CompleteAsynchronously();
         return stream;
     }},
};

class StreamContract : public testing::TestWithParam<Kind> {
protected:
    bool Open(uint32_t flags) { return stream_->Open(name_.c_str(), flags); }
    void Create() {
        ASSERT_TRUE(Open(kOpenCreate));
        ASSERT_TRUE(stream_->RegisterCallback(&completions_));
    }
    int32_t Write(const std::vector<uint8_t>& bytes, int32_t tag = 7) {
        pieces_.push_back(std::make_unique<CMemoryPiece>(bytes.data(), static_cast<uint32_t>(bytes.size())));
        return stream_->Write(pieces_.back().get(), tag, 0);
    }
    // What one Read of `size` bytes gives.
    std::vector<uint8_t> Read(uint32_t size) {
        CMemoryPiece piece(size);
        const int32_t count = stream_->Read(&piece, 0);
        EXPECT_GE(count, 0);
        return {piece.GetBuffer(), piece.GetBuffer() + std::max(count, 0)};
    }
    std::vector<uint8_t> ReadAll() {
        EXPECT_EQ(stream_->Seek(0, kSeekBegin), 0);
        return Read(1 << 20);
    }

    test::TemporaryFolder folder_;
    std::string name_ = folder_.File("a.mxf");
    std::vector<std::unique_ptr<CMemoryPiece>> pieces_;
    Completions completions_;
    std::shared_ptr<IStreamFileIO> stream_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(All, StreamContract, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(StreamContract, WhatWasWrittenIsReadBack) {
    Create();
    EXPECT_EQ(Write({1, 2, 3}), 3);
    EXPECT_EQ(Write({4, 5}), 2);
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), 5);
    EXPECT_THAT(ReadAll(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_TRUE(stream_->Close());
}

TEST_P(StreamContract, ReadAdvancesAndIsShortOnlyAtTheEndWhereItIsZero) {
    Create();
    Write({1, 2, 3, 4, 5});
    stream_->Seek(1, kSeekBegin);
    EXPECT_THAT(Read(3), ElementsAre(2, 3, 4));
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), 4);
    EXPECT_THAT(Read(3), ElementsAre(5));
    EXPECT_THAT(Read(3), IsEmpty());
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), 5);
    stream_->Seek(100, kSeekBegin);
    EXPECT_THAT(Read(3), IsEmpty());
}

TEST_P(StreamContract, SeekHasThreeOrigins) {
    Create();
    Write({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_EQ(stream_->Seek(0, kSeekEnd), 10);
    EXPECT_EQ(stream_->Seek(-4, kSeekEnd), 6);  // that many bytes before the end
    EXPECT_THAT(Read(1), ElementsAre(6));
    EXPECT_EQ(stream_->Seek(-3, kSeekCurrent), 4);
    EXPECT_EQ(stream_->Seek(1, kSeekCurrent), 5);
    EXPECT_EQ(stream_->Seek(2, kSeekBegin), 2);
    EXPECT_THAT(Read(1), ElementsAre(2));
}

TEST_P(StreamContract, SeekGoesPastTheEndButNotBeforeTheStart) {
    Create();
    Write({1, 2, 3});
    EXPECT_EQ(stream_->Seek(20, kSeekEnd), 23);
    EXPECT_EQ(stream_->Seek(2, kSeekBegin), 2);
    EXPECT_EQ(stream_->Seek(-1, kSeekBegin), -1);
    EXPECT_EQ(stream_->Seek(-3, kSeekCurrent), -1);
    EXPECT_EQ(stream_->Seek(-4, kSeekEnd), -1);
    EXPECT_EQ(stream_->Seek(0, 3), -1);
    EXPECT_EQ(stream_->Seek(0, -1), -1);
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), 2);  // where it was
}

TEST_P(StreamContract, AWritePastTheEndFillsTheGapWithZeros) {
    Create();
    Write({1});
    stream_->Seek(4, kSeekBegin);
    EXPECT_EQ(Write({5}), 1);
    EXPECT_THAT(ReadAll(), ElementsAre(1, 0, 0, 0, 5));
}

TEST_P(StreamContract, AWriteInTheMiddleReplacesBytes) {
    Create();
    Write({1, 2, 3, 4});
    stream_->Seek(1, kSeekBegin);
    Write({8, 9});
    EXPECT_THAT(ReadAll(), ElementsAre(1, 8, 9, 4));
}

TEST_P(StreamContract, EveryWriteIsCompletedOnceInOrderWithItsTag) {
    Create();
    Write({1}, 5);
    Write({2}, -3);
    Write({}, 2147483647);
    Write({3}, 5);
    EXPECT_TRUE(stream_->DataSync());
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, 0, 5}, Completion{2, 0, -3}, Completion{3, 0, 2147483647},
                                                Completion{4, 0, 5}));
    EXPECT_TRUE(stream_->Close());
    EXPECT_EQ(completions_.All().size(), 4u);
}

TEST_P(StreamContract, WritesNeedNoCallback) {
    ASSERT_TRUE(Open(kOpenCreate));
    EXPECT_EQ(Write({1}), 1);
    EXPECT_TRUE(stream_->DataSync());  // it completes without one
    EXPECT_TRUE(stream_->RegisterCallback(&completions_));
    EXPECT_TRUE(stream_->RegisterCallback(nullptr));
    EXPECT_EQ(Write({2}), 1);
    EXPECT_TRUE(stream_->Close());
    EXPECT_THAT(completions_.All(), IsEmpty());
}

TEST_P(StreamContract, APieceMayBeFreedByItsCompletion) {
    struct Freeing final : IFileIOCallback {
        void CallbackForWriteComplete(uint64_t, int32_t, int32_t tag) override {
            PieceAllocator allocator(stream);
            allocator.Free(pieces[static_cast<size_t>(tag)]);
        }
        IStreamFileIO* stream;
        std::vector<StreamPiece*> pieces;
    } freeing;
    freeing.stream = stream_.get();
    ASSERT_TRUE(Open(kOpenCreate));
    PieceAllocator allocator(stream_.get());
    for (uint8_t i = 0; i < 20; ++i) {
        freeing.pieces.push_back(allocator.Allocate(1000));
        std::fill_n(freeing.pieces.back()->GetBuffer(), 1000, i);
    }
    ASSERT_TRUE(stream_->RegisterCallback(&freeing));
    for (int32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(stream_->Write(freeing.pieces[static_cast<size_t>(i)], i, 0), 1000);
    }
    const auto bytes = ReadAll();
    ASSERT_EQ(bytes.size(), 20000u);
    for (size_t i = 0; i < bytes.size(); ++i) ASSERT_EQ(bytes[i], i / 1000);
    EXPECT_TRUE(stream_->Close());
}

TEST_P(StreamContract, PiecesHaveExactlyTheSizeAskedForAndCopyInStaysInside) {
    PieceAllocator allocator(stream_.get());
    for (const uint32_t size : {0u, 1u, 512u, 32768u, 576000u}) {
        const OwnedPiece piece(allocator, size);
        ASSERT_TRUE(piece);
        EXPECT_EQ(piece->GetSize(), size);
    }
    OwnedPiece piece(allocator, 4);
    const uint8_t bytes[] = {1, 2, 3, 4, 5, 6};
    piece->CopyIn(0, bytes, 2);
    piece->CopyIn(2, bytes + 2, 4);
    EXPECT_THAT(piece.Bytes(), ElementsAre(1, 2, 3, 4));
    piece->CopyIn(4, bytes, 6);
    piece->CopyIn(0xFFFFFFFF, bytes, 6);
    piece->CopyIn(1, bytes, 1);
    EXPECT_THAT(piece.Bytes(), ElementsAre(1, 1, 3, 4));
}

TEST_P(StreamContract, OneAllocatorFreesThePiecesOfAnotherAlsoAfterClose) {
    Create();
    PieceAllocator first(stream_.get());
    StreamPiece* const piece = first.Allocate(10);
    EXPECT_TRUE(stream_->Close());
    PieceAllocator(stream_.get()).Free(piece);
    first.Free(nullptr);
    EXPECT_TRUE(OwnedPiece(first, 10));
}

TEST_P(StreamContract, NothingWorksOnAStreamThatIsNotOpen) {
    CMemoryPiece piece(4);
    for (const bool before : {true, false}) {
        EXPECT_EQ(stream_->Write(&piece, 1, 0), -1);
        EXPECT_EQ(stream_->Read(&piece, 0), -1);
        EXPECT_EQ(stream_->Seek(0, kSeekBegin), -1);
        EXPECT_EQ(stream_->Seek(0, kSeekEnd), -1);
        EXPECT_FALSE(stream_->DataSync());
        EXPECT_FALSE(stream_->Close());
        if (before) {
            Create();
            EXPECT_TRUE(stream_->Close());
        }
    }
    EXPECT_THAT(completions_.All(), IsEmpty());
}

TEST_P(StreamContract, ANullPieceIsRefusedWithoutACompletion) {
    Create();
    EXPECT_EQ(stream_->Write(nullptr, 1, 0), -1);
    EXPECT_EQ(stream_->Read(nullptr, 0), -1);
    EXPECT_TRUE(stream_->Close());
    EXPECT_THAT(completions_.All(), IsEmpty());
}

TEST_P(StreamContract, CreatingEmptiesAndReopeningDoesNot) {
    Create();
    Write({1, 2, 3});
    EXPECT_TRUE(stream_->Close());

    ASSERT_TRUE(Open(kOpenReadWrite));
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), 0);
    EXPECT_EQ(Write({9}), 1);
    EXPECT_THAT(ReadAll(), ElementsAre(9, 2, 3));
    EXPECT_TRUE(stream_->Close());

    ASSERT_TRUE(Open(kOpenRead));
    EXPECT_THAT(ReadAll(), ElementsAre(9, 2, 3));
    EXPECT_TRUE(stream_->Close());

    ASSERT_TRUE(Open(kOpenCreate));
    EXPECT_EQ(stream_->Seek(0, kSeekEnd), 0);
    EXPECT_TRUE(stream_->Close());
}

TEST_P(StreamContract, TheClusterIs32768Bytes) { EXPECT_EQ(stream_->GetClusterSize(), 32768u); }

class OwnStreamContract : public StreamContract {};

INSTANTIATE_TEST_SUITE_P(All, OwnStreamContract, testing::ValuesIn(kKinds, kKinds + 2),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(OwnStreamContract, OpenRefusesANullNameAndUnknownFlags) {
    EXPECT_FALSE(stream_->Open(nullptr, kOpenCreate));
    for (const uint32_t flags : {1u, 3u, 0x100u, 0x101u, 0x103u, 0xFFFFFFFFu}) EXPECT_FALSE(Open(flags)) << flags;
    CMemoryPiece piece(4);
    EXPECT_EQ(stream_->Read(&piece, 0), -1);
}

TEST_P(OwnStreamContract, AReadOnlyStreamRefusesWritesButReportsNoLoss) {
    Create();
    Write({1, 2, 3});
    EXPECT_TRUE(stream_->Close());
    ASSERT_TRUE(Open(kOpenRead));
    stream_->RegisterCallback(&completions_);
    EXPECT_EQ(Write({9}, 4), -1);
    EXPECT_EQ(completions_.All().back(), (Completion{1, kStatusIoError, 4}));
    EXPECT_THAT(Read(8), ElementsAre(1, 2, 3));
    EXPECT_TRUE(stream_->DataSync());
    EXPECT_TRUE(stream_->Close());
}

TEST_P(OwnStreamContract, OpeningAgainClosesTheFirstFile) {
    Create();
    Write({1, 2, 3});
    ASSERT_TRUE(Open(kOpenReadWrite));
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), 0);
    Write({9}, 1);
    EXPECT_THAT(ReadAll(), ElementsAre(9, 2, 3));
    EXPECT_EQ(completions_.All().size(), 1u);  // the callback went with the first file
    EXPECT_TRUE(stream_->Close());
}

TEST_P(OwnStreamContract, TheCallbackIsForgottenAtCloseAndTheIdsBeginAgain) {
    Create();
    Write({1}, 1);
    EXPECT_TRUE(stream_->Close());
    ASSERT_TRUE(Open(kOpenCreate));
    Write({1}, 2);
    EXPECT_TRUE(stream_->RegisterCallback(nullptr));
    EXPECT_TRUE(stream_->Close());
    Create();
    Write({1}, 3);
    EXPECT_TRUE(stream_->Close());
    EXPECT_THAT(completions_.All(), ElementsAre(Completion{1, 0, 1}, Completion{1, 0, 3}));
}

TEST_P(OwnStreamContract, PositionsBeyondTheRangeOfACountAreRefused) {
    constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
    Create();
    EXPECT_EQ(stream_->Seek(kLast, kSeekBegin), kLast);
    EXPECT_EQ(stream_->Seek(1, kSeekCurrent), -1);
    EXPECT_EQ(Write({1, 2}, 9), -1);
    EXPECT_EQ(stream_->Seek(0, kSeekCurrent), kLast);
    EXPECT_EQ(stream_->Seek(0, kSeekEnd), 0);
    EXPECT_EQ(completions_.All().back(), (Completion{1, kStatusIoError, 9}));
    EXPECT_EQ(stream_->Seek(std::numeric_limits<int64_t>::min(), kSeekEnd), -1);
}

TEST_P(OwnStreamContract, BytesOfAPieceThatNobodyWroteAreZeroInTheFile) {
    Create();
    {
        // Leaves its bytes behind in the heap.
        PieceAllocator allocator(stream_.get());
        for (int i = 0; i < 8; ++i) {
            const OwnedPiece dirty(allocator, 5000);
            std::fill_n(dirty->GetBuffer(), 5000, uint8_t{0xDD});
        }
    }
    PieceAllocator allocator(stream_.get());
    const OwnedPiece piece(allocator, 5000);
    piece->CopyIn(2000, "x", 1);
    EXPECT_EQ(stream_->Write(piece.get(), 1, 0), 5000);
    std::vector<uint8_t> expected(5000);
    expected[2000] = 'x';
    EXPECT_TRUE(SameBytes(expected, ReadAll()));
}

TEST_P(OwnStreamContract, AShortReadLeavesZerosInAFreshPiece) {
    Create();
    Write({1, 2, 3});
    stream_->Seek(0, kSeekBegin);
    PieceAllocator allocator(stream_.get());
    const OwnedPiece piece(allocator, 6);
    EXPECT_EQ(stream_->Read(piece.get(), 0), 3);
    EXPECT_THAT(piece.Bytes(), ElementsAre(1, 2, 3, 0, 0, 0));
}

TEST_P(OwnStreamContract, AReadKeepsWhatThePieceHeldBehindIt) {
    Create();
    Write({1, 2, 3});
    stream_->Seek(1, kSeekBegin);
    PieceAllocator allocator(stream_.get());
    const OwnedPiece piece(allocator, 4);
    std::fill_n(piece->GetBuffer(), 4, uint8_t{7});
    EXPECT_EQ(stream_->Read(piece.get(), 0), 2);
    EXPECT_THAT(piece.Bytes(), ElementsAre(2, 3, 7, 7));
}

TEST_P(OwnStreamContract, NoPieceIsLargerThanACount) {
    PieceAllocator allocator(stream_.get());
    EXPECT_EQ(allocator.Allocate(0x80000000u), nullptr);
    EXPECT_EQ(allocator.Allocate(0xFFFFFFFFu), nullptr);
}

}  // namespace
}  // namespace kmxf
