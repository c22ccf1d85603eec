#pragma once

#include <cstdint>
#include <cstdlib>
#include <deque>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

// A writer's own pieces that are being written, oldest first. The client's thread adds, the stream's thread takes: the
// lock is held for that alone, never while the stream or the client is called.
class OwnPieces {
public:
    // Add a piece before it is written: its completion may come inside Write.
    void Add(StreamPiece* piece) {
        const ScopedLock lock(mutex_);
        pieces_.push_back(piece);
    }

    // At a completion. Without a piece nothing is asked of the stream.
    void FreeOldest(IStreamFileIO* stream) {
        if (!IsEmpty()) {
            if (PieceAllocator allocator(stream); allocator) allocator.Free(TakeOldest());
        }
    }

    // After the stream was closed: a piece whose write failed may never have been completed, or there was no allocator
    // to give it back to.
    void FreeAll(IStreamFileIO* stream) {
        while (StreamPiece* piece = TakeOldest()) PieceAllocator(stream).Free(piece);
    }

private:
    bool IsEmpty() {
        const ScopedLock lock(mutex_);
        return pieces_.empty();
    }
    StreamPiece* TakeOldest() {
        const ScopedLock lock(mutex_);
        if (pieces_.empty()) return nullptr;
        StreamPiece* const piece = pieces_.front();
        pieces_.pop_front();
        return piece;
    }

    Mutex mutex_;
    std::deque<StreamPiece*> pieces_;
};

// Bytes that a builder handed out.
struct BuiltBytes {
    BuiltBytes() = default;
    BuiltBytes(const BuiltBytes&) = delete;
    BuiltBytes& operator=(const BuiltBytes&) = delete;
    ~BuiltBytes() { std::free(data); }
    uint8_t* data = nullptr;
};

}  // namespace kmxf
