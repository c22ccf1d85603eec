#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "collaborators/Guards.h"
#include "tools/SalvageInput.h"

namespace kmxf {

// A new file, of bytes of another and bytes that are made: a stream writes them while the next ones are read.
class FileCopy final : private IFileIOCallback {
public:
    FileCopy() = default;
    FileCopy(const FileCopy&) = delete;
    FileCopy& operator=(const FileCopy&) = delete;
    ~FileCopy() override { stream_.Close(); }  // which has the pieces until then

    bool Open(const std::string& path);
    // Bytes of `source`, behind those that are there. False when they cannot be read, which the source remembers, or
    // cannot be written.
    bool Append(SalvageInput& source, uint64_t from, uint64_t size);
    bool Append(std::span<const uint8_t> bytes);
    bool Close();

private:
    static constexpr uint32_t kPieceSize = 512 << 10;
    static constexpr size_t kPieces = 4;

    std::span<uint8_t> Room();
    bool Filled(size_t count);
    bool Write(StreamPiece* piece);
    void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) override;

    FactoryStream stream_;
    std::vector<OwnedPiece> pieces_;  // go round
    size_t filled_ = 0;               // of the next one
    uint64_t given_ = 0;              // pieces

    std::mutex mutex_;
    std::condition_variable completed_;
    uint64_t done_ = 0;  // pieces; guarded
};

}  // namespace kmxf
