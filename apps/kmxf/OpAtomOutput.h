#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "MxfOutput.h"
#include "kmxf/writer/CreateMXFBase.h"

namespace kmxf::program {

// A few pieces of one size go round between the caller, who fills them, and the stream.
class OpAtomOutput final : public MxfOutput {
public:
    OpAtomOutput(std::unique_ptr<CCreateMXFBase> writer, const OutputFile& file, uint32_t pieceSize);
    ~OpAtomOutput() override;

    void Open(bool rewriteHeaderAtClose);
    CCreateMXFBase& Writer() { return *writer_; }
    // The bytes to fill next; waits until a piece is free.
    std::span<uint8_t> Room();
    // Writes the first `count` bytes of the room.
    void Write(size_t count);
    void Close();

private:
    void TakeBack(std::unique_ptr<OwnedPiece> piece) override;

    static constexpr size_t kPieces = 4;

    uint32_t pieceSize_;
    std::unique_ptr<OwnedPiece> current_;

    std::mutex mutex_;
    std::condition_variable pieceBack_;
    std::vector<std::unique_ptr<OwnedPiece>> free_;  // guarded by mutex_
    size_t underWay_ = 0;                            // guarded by mutex_

    std::unique_ptr<CCreateMXFBase> writer_;
};

}  // namespace kmxf::program
