#include "collaborators/HeapPieces.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <thread>
#include <vector>

namespace kmxf::test {
namespace {

std::vector<uint8_t> BytesOf(StreamPiece& piece) { return {piece.GetBuffer(), piece.GetBuffer() + piece.GetSize()}; }

TEST(HeapPieces, APieceUsedBeforeShowsNothingOfIt) {
    IStreamPieceAllocator& allocator = HeapPieceAllocator();
    StreamPiece* piece = allocator.Allocate(1000);
    std::fill_n(piece->GetBuffer(), 1000, uint8_t{0xA5});
    allocator.Free(piece);
    piece = allocator.Allocate(1000);
    EXPECT_EQ(BytesOf(*piece), std::vector<uint8_t>(1000));
    allocator.Free(piece);
}

TEST(HeapPieces, AnotherSizeIsAnotherPiece) {
    IStreamPieceAllocator& allocator = HeapPieceAllocator();
    allocator.Free(allocator.Allocate(1000));
    StreamPiece* piece = allocator.Allocate(999);
    EXPECT_EQ(piece->GetSize(), 999u);
    allocator.Free(piece);
    allocator.Free(nullptr);
}

TEST(HeapPieces, PiecesCrossThreads) {
    IStreamPieceAllocator& allocator = HeapPieceAllocator();
    const auto churn = [&] {
        for (int i = 0; i < 200; ++i) {
            StreamPiece* piece = allocator.Allocate(64);
            EXPECT_EQ(BytesOf(*piece), std::vector<uint8_t>(64));
            std::fill_n(piece->GetBuffer(), 64, uint8_t{0xFF});
            allocator.Free(piece);
        }
    };
    std::thread one(churn), other(churn);
    one.join();
    other.join();
}

// Destroyed after everything that the tests above made: the allocator must still be there. The sanitizers tell.
struct LateUser {
    ~LateUser() { HeapPieceAllocator().Free(HeapPieceAllocator().Allocate(1000)); }
} lateUser;

}  // namespace
}  // namespace kmxf::test
