#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "CountingStream.h"
#include "MappedPiece.h"
#include "OutputFile.h"
#include "kmxf/writer/CreateMXFBase.h"

namespace kmxf::program {

// Moves essence into a library writer while its stream writes: either a few pieces of one size go round between the
// caller, who fills them, and the stream, or the caller has mapped pieces.
class MxfOutput final : public IFileIOCallback {
public:
    MxfOutput(std::unique_ptr<CCreateMXFBase> writer, const OutputFile& file, uint32_t pieceSize);
    MxfOutput(const MxfOutput&) = delete;
    MxfOutput& operator=(const MxfOutput&) = delete;
    ~MxfOutput() override;

    void Open(bool rewriteHeaderAtClose);
    CCreateMXFBase& Writer() { return *writer_; }
    // The bytes to fill next; waits until a piece is free.
    std::span<uint8_t> Room();
    // Writes the first `count` bytes of the room.
    void Write(size_t count);
    // Writes a part of the file `source`; waits while too many are under way.
    void Write(std::unique_ptr<MappedPiece> piece, const std::string& source);
    void Close();

private:
    void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) override;
    struct UnderWay {
        StreamPiece* piece;
        bool mapped;
    };
    [[noreturn]] void FailWriting();
    StreamPiece* Allocate(uint32_t size);
    void Give(const UnderWay& item);
    void TakeBack(const UnderWay& item);

    static constexpr size_t kPieces = 4;

    std::unique_ptr<CCreateMXFBase> writer_;
    const OutputFile& file_;
    uint32_t pieceSize_;
    CountingStream stream_;
    IStreamPieceAllocator* allocator_;
    StreamPiece* current_ = nullptr;
    size_t allocated_ = 0;
    std::string mappedFrom_;

    std::mutex mutex_;
    std::condition_variable pieceBack_;
    std::vector<StreamPiece*> free_;  // guarded by mutex_
    std::vector<UnderWay> underWay_;  // guarded by mutex_; in the order of their writes
};

}  // namespace kmxf::program
