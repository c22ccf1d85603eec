#pragma once

#include <cstdint>
#include <utility>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

// Writes the piece to a place in the file and waits until it is on the medium, so that the piece may go; false unless
// every byte is there.
inline bool WriteWholeAt(IStreamFileIO& stream, int64_t offset, const OwnedPiece& piece) {
    if (stream.Seek(offset, kSeekBegin) < 0) return false;
    const bool accepted = std::cmp_equal(stream.Write(piece.get(), 0, 0), piece->GetSize());
    return stream.DataSync() && accepted;
}

}  // namespace kmxf
