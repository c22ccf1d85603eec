#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

// Copies into a piece of `pieceSize` bytes; what would lie past its end is left out.
void CopyIntoPiece(uint8_t* piece, uint32_t pieceSize, uint32_t offset, const void* source, uint32_t size);

// The piece that the library's own streams hand out. Its memory comes unwritten from the heap; a byte that nobody has
// written is zeroed before anybody can see it, so that a piece that is filled from its front by Read or CopyIn costs no
// zeroing, and no byte of another use of the memory gets into a file.
class HeapPiece final : public StreamPiece {
public:
    static HeapPiece* Create(uint32_t size);  // null when there is no memory

    uint32_t GetSize() override { return size_; }
    uint8_t* GetBuffer() override;
    void CopyIn(uint32_t offset, const void* source, uint32_t size) override;

    // For who fills the piece from its front: the memory as it is, and then how many bytes were written.
    uint8_t* Unwritten() { return bytes_.get(); }
    void SetWritten(uint32_t size);
    // The piece is as good as new: what was written in it is not seen again.
    void Forget() { written_ = 0; }

private:
    struct Freer {
        void operator()(uint8_t* bytes) const { std::free(bytes); }
    };
    HeapPiece(std::unique_ptr<uint8_t, Freer> bytes, uint32_t size);
    void ZeroUpTo(uint32_t size);

    std::unique_ptr<uint8_t, Freer> bytes_;
    uint32_t size_;
    uint32_t written_ = 0;  // bytes from the front that have been written
};

// Lets fill(buffer), which returns the number of bytes it put at the front or a negative value, fill any kind of piece.
template <class Fill>
int32_t FillPiece(StreamPiece& piece, Fill fill) {
    auto* const own = dynamic_cast<HeapPiece*>(&piece);
    const int32_t count = fill(own ? own->Unwritten() : piece.GetBuffer());
    if (own && count > 0) own->SetWritten(static_cast<uint32_t>(count));
    return count;
}

// The one allocator of these pieces: it serves every stream and thread, and its Release does nothing.
IStreamPieceAllocator& HeapPieceAllocator();

}  // namespace kmxf
