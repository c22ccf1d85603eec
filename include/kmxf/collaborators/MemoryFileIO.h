#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Export.h"

namespace kmxf {

// A piece that a client makes for itself, for any stream.
class KMXF_API CMemoryPiece final : public StreamPiece {
public:
    explicit CMemoryPiece(uint32_t size);             // zeroed
    CMemoryPiece(const void* source, uint32_t size);  // copies `size` bytes from source; null: zeroed
    CMemoryPiece(const CMemoryPiece&) = delete;
    CMemoryPiece& operator=(const CMemoryPiece&) = delete;
    ~CMemoryPiece();

    uint32_t GetSize() override;
    uint8_t* GetBuffer() override;
    void CopyIn(uint32_t offset, const void* source, uint32_t size) override;

private:
    std::vector<uint8_t> bytes_;
};

// One file in memory, for callers without a file system and for tests. Writes complete inside Write, on the caller's
// thread. The contents outlive Close; the object may be looked at from one thread at a time.
class KMXF_API CMemoryFileIO final : public IStreamFileIO {
public:
    CMemoryFileIO();  // an empty file, cluster size 32768
    explicit CMemoryFileIO(std::vector<uint8_t> contents);
    CMemoryFileIO(const CMemoryFileIO&) = delete;
    CMemoryFileIO& operator=(const CMemoryFileIO&) = delete;
    ~CMemoryFileIO();

    // Any name but null opens the one file; kOpenCreate empties it, kOpenRead refuses writes. False for other flags.
    bool Open(const char* fileName, uint32_t flags) override;
    // False if not open. The contents stay, the callback is forgotten.
    bool Close() override;
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override;
    int32_t Read(StreamPiece* piece, int32_t reserved) override;
    // A write past the end fills the gap with zeros.
    int64_t Seek(int64_t offset, int32_t origin) override;
    // Nothing to wait for: true if open.
    bool DataSync() override;
    bool RegisterCallback(IFileIOCallback* callback) override;
    IStreamPieceAllocator* GetPieceAllocator() override;
    uint32_t GetClusterSize() override;
    // Deletes this: only for objects made with new.
    void Release() override;

    const std::vector<uint8_t>& GetContents() const;
    void SetContents(std::vector<uint8_t> contents);
    void SetClusterSize(uint32_t size);      // bytes
    const std::string& GetFileName() const;  // the name last opened
    bool IsOpened() const;

private:
    bool Put(StreamPiece& piece);

    std::vector<uint8_t> contents_;
    std::string fileName_;
    int64_t position_ = 0;
    uint64_t lastId_ = 0;
    uint32_t clusterSize_ = 32768;
    IFileIOCallback* callback_ = nullptr;
    bool opened_ = false;
    bool writable_ = false;
};

}  // namespace kmxf
