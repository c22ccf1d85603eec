#pragma once

#include <cstdint>
#include <memory>

#include "OwnedPiece.h"

namespace kmxf::program {

// A part of a file as a piece to write: the stream takes the bytes out of the page cache, and nobody copies them
// before. Only the system looks at the bytes, so that a medium that fails, or a file that becomes shorter, is a failed
// write with EFAULT and not a signal.
class MappedPiece final : public OwnedPiece {
public:
    // Null when the file cannot be mapped.
    static std::unique_ptr<MappedPiece> Map(int descriptor, uint64_t offset, uint32_t size);
    ~MappedPiece() override;

    uint32_t GetSize() override { return size_; }
    uint8_t* GetBuffer() override { return bytes_; }
    void CopyIn(uint32_t, const void*, uint32_t) override {}  // it is for reading only

private:
    MappedPiece(void* mapping, size_t mappingSize, uint32_t lead, uint32_t size);

    void* mapping_;
    size_t mappingSize_;
    uint8_t* bytes_;
    uint32_t size_;
};

}  // namespace kmxf::program
