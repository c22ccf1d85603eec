#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf::program {

struct FactoryReleaser {
    void operator()(IFileIOFactory* factory) const { factory->Release(); }
};
using FactoryPointer = std::unique_ptr<IFileIOFactory, FactoryReleaser>;

// A stream on one local file that counts what goes through it (--stats) and remembers why an operation failed. It opens
// the path it was made for, however long, whatever name it is told.
class CountingStream final : public IStreamFileIO {
public:
    explicit CountingStream(std::string path);
    CountingStream(const CountingStream&) = delete;
    CountingStream& operator=(const CountingStream&) = delete;
    ~CountingStream();

    // errno of the first operation that failed; 0 when none did or none was told.
    int Error() const { return error_; }

    bool Open(const char* fileName, uint32_t flags) override;
    bool Close() override;
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override;
    int32_t Read(StreamPiece* piece, int32_t reserved) override;
    int64_t Seek(int64_t offset, int32_t origin) override;
    bool DataSync() override;
    bool RegisterCallback(IFileIOCallback* callback) override;
    IStreamPieceAllocator* GetPieceAllocator() override;
    uint32_t GetClusterSize() override;
    void Release() override {}

private:
    bool Noted(bool good);

    std::string path_;
    FactoryPointer factory_;
    IStreamFileIO* stream_;
    int error_ = 0;
};

}  // namespace kmxf::program
