#pragma once

#include <cstdint>
#include <utility>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

// Fills the piece from the stream's position; false unless every byte came.
inline bool ReadWhole(IStreamFileIO& stream, const OwnedPiece& piece) {
    return std::cmp_equal(stream.Read(piece.get(), 0), piece->GetSize());
}
// The same from a place in the file.
inline bool ReadWholeAt(IStreamFileIO& stream, uint64_t offset, const OwnedPiece& piece) {
    return stream.Seek(static_cast<int64_t>(offset), kSeekBegin) >= 0 && ReadWhole(stream, piece);
}

}  // namespace kmxf
