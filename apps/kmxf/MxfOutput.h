#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CountingStream.h"
#include "OutputFile.h"
#include "OwnedPiece.h"

namespace kmxf::program {

// The way of essence into a library writer, whose stream writes while the caller prepares the next pieces. What is
// derived from it has the writer, and destroys it first: a writer that is still open closes the stream, which brings
// all pieces back.
class MxfOutput : public IFileIOCallback {
public:
    MxfOutput(const MxfOutput&) = delete;
    MxfOutput& operator=(const MxfOutput&) = delete;
    ~MxfOutput() override = default;

    // The file that mapped pieces are parts of, for messages.
    void SetSource(std::string path) { source_ = std::move(path); }

protected:
    explicit MxfOutput(const OutputFile& file) : file_(file), stream_(file.WorkPath()) {}

    // What the writers' functions take for a file's name; the stream knows it anyway, however long it is.
    std::string ShortName() const { return file_.WorkPath().substr(0, 255); }
    // Throws Failure when the writer is not open, or did not accept all.
    void RequireOpen(bool opened, int32_t status);
    void RequireAccepted(int32_t accepted, uint32_t size);
    void RequireClosed(int32_t status);
    // Keeps a piece until its write is complete. To be called before the write.
    StreamPiece* Keep(std::unique_ptr<OwnedPiece> piece);
    // Gets the pieces back, on the stream's thread. Here they wait for the next Keep: that thread has the most to do,
    // and it takes time to give a mapped piece back to the system.
    virtual void TakeBack(std::unique_ptr<OwnedPiece> piece);

    const OutputFile& file_;
    CountingStream stream_;

private:
    void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) final;
    [[noreturn]] void FailWriting();

    std::string source_;
    std::mutex mutex_;
    // Guarded by mutex_.
    std::deque<std::unique_ptr<OwnedPiece>> underWay_;  // in the order of their writes
    std::vector<std::unique_ptr<OwnedPiece>> written_;
};

}  // namespace kmxf::program
