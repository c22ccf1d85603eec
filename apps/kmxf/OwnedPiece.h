#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf::program {

// A piece that whoever holds it deletes: on its way into a file that is the output, until its write is complete.
class OwnedPiece : public StreamPiece {
public:
    virtual ~OwnedPiece() = default;
    void CopyIn(uint32_t offset, const void* source, uint32_t size) override {
        std::memcpy(GetBuffer() + offset, source, size);
    }

protected:
    OwnedPiece() = default;
    OwnedPiece(const OwnedPiece&) = delete;
    OwnedPiece& operator=(const OwnedPiece&) = delete;
};

// A piece in memory; its bytes are undefined until they are written.
class HeapPiece final : public OwnedPiece {
public:
    explicit HeapPiece(uint32_t size) : bytes_(std::make_unique_for_overwrite<uint8_t[]>(size)), size_(size) {}

    uint32_t GetSize() override { return size_; }
    uint8_t* GetBuffer() override { return bytes_.get(); }

private:
    std::unique_ptr<uint8_t[]> bytes_;
    uint32_t size_;
};

}  // namespace kmxf::program
