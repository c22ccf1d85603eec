#include "collaborators/HeapPieces.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace kmxf {

namespace {

// Whoever reads a file frame by frame gives a piece back and asks for one of the same size next. One piece is kept for
// that: returned to the heap, large ones would cost fresh pages from the system every time.
class Allocator final : public IStreamPieceAllocator {
public:
    StreamPiece* Allocate(uint32_t size) override {
        std::unique_ptr<HeapPiece> spare(spare_.exchange(nullptr));
        if (!spare || spare->GetSize() != size) return HeapPiece::Create(size);
        spare->Forget();
        return spare.release();
    }
    void Free(StreamPiece* piece) override {
        std::unique_ptr<HeapPiece> free(static_cast<HeapPiece*>(piece));
        if (free && free->GetSize() <= kLargestSpare) free.reset(spare_.exchange(free.release()));
    }
    void Release() override {}

private:
    static constexpr uint32_t kLargestSpare = 4 << 20;

    std::atomic<HeapPiece*> spare_{nullptr};
};

}  // namespace

void CopyIntoPiece(uint8_t* piece, uint32_t pieceSize, uint32_t offset, const void* source, uint32_t size) {
    if (source == nullptr || offset >= pieceSize) return;
    std::memcpy(piece + offset, source, std::min(size, pieceSize - offset));
}

HeapPiece::HeapPiece(std::unique_ptr<uint8_t, Freer> bytes, uint32_t size) : bytes_(std::move(bytes)), size_(size) {}

HeapPiece* HeapPiece::Create(uint32_t size) {
    // A stream's counts are signed: no more could be read or written in one go.
    if (size > static_cast<uint32_t>(std::numeric_limits<int32_t>::max())) return nullptr;
    std::unique_ptr<uint8_t, Freer> bytes(static_cast<uint8_t*>(std::malloc(std::max(size, uint32_t{1}))));
    return bytes ? new (std::nothrow) HeapPiece(std::move(bytes), size) : nullptr;
}

uint8_t* HeapPiece::GetBuffer() {
    ZeroUpTo(size_);
    return bytes_.get();
}

void HeapPiece::CopyIn(uint32_t offset, const void* source, uint32_t size) {
    if (source == nullptr || offset >= size_) return;
    ZeroUpTo(offset);
    CopyIntoPiece(bytes_.get(), size_, offset, source, size);
    SetWritten(offset + std::min(size, size_ - offset));
}

void HeapPiece::SetWritten(uint32_t size) { written_ = std::max(written_, size); }

void HeapPiece::ZeroUpTo(uint32_t size) {
    if (size <= written_) return;
    std::memset(bytes_.get() + written_, 0, size - written_);
    written_ = size;
}

IStreamPieceAllocator& HeapPieceAllocator() {
    static auto& allocator = *new Allocator;  // never destroyed: global writers give pieces back after everything else
    return allocator;
}

}  // namespace kmxf
