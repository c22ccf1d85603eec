#pragma once

#include <cstdint>
#include <string>

#include "collaborators/Guards.h"
#include "core/Bytes.h"
#include "reader/StreamRead.h"

namespace kmxf {

// Whether FooterPartition, in the header partition pack of the named file, is not 0: a recording that was ended. False
// also when the first `headerSize` bytes cannot be read.
inline bool NamesFooter(const std::string& fileName, uint32_t headerSize) {
    constexpr size_t kFooterPartitionAt = 44;
    FactoryStream file;
    if (!file.Open(fileName.c_str(), kOpenRead)) return false;
    const OwnedPiece piece(file.Allocator(), headerSize);
    return piece && ReadWholeAt(*file.get(), 0, piece) &&
           ByteReader(piece.Bytes().subspan(kFooterPartitionAt)).U64() != 0;
}

}  // namespace kmxf
