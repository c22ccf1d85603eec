#include "MxfOutput.h"

#include <cerrno>
#include <utility>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

void MxfOutput::FailWriting() {
    const int error = stream_.Error();
    if (error == EFAULT && !source_.empty()) {
        Fail(ExitStatus::kInput, source_, "cannot be read: its medium fails, or it became shorter meanwhile");
    }
    Fail(ExitStatus::kOutput, file_.FinalPath(), "cannot be written" + (error != 0 ? ": " + ErrorText(error) : ""));
}

void MxfOutput::RequireOpen(bool opened, int32_t status) {
    if (opened) return;
    if (stream_.Error() != 0) FailWriting();
    Fail(ExitStatus::kInternal, file_.FinalPath(), "the format was refused, status " + std::to_string(status));
}

void MxfOutput::RequireAccepted(int32_t accepted, uint32_t size) {
    if (accepted < 0 || static_cast<uint32_t>(accepted) < size) FailWriting();
}

void MxfOutput::RequireClosed(int32_t status) {
    if (status != 0 || stream_.Error() != 0) FailWriting();
}

StreamPiece* MxfOutput::Keep(std::unique_ptr<OwnedPiece> piece) {
    std::vector<std::unique_ptr<OwnedPiece>> written;  // goes when the lock is free again
    const std::lock_guard lock(mutex_);
    written.swap(written_);
    return underWay_.emplace_back(std::move(piece)).get();
}

void MxfOutput::TakeBack(std::unique_ptr<OwnedPiece> piece) {
    const std::lock_guard lock(mutex_);
    written_.push_back(std::move(piece));
}

void MxfOutput::CallbackForWriteComplete(uint64_t, int32_t, int32_t) {
    std::unique_ptr<OwnedPiece> piece;
    {
        const std::lock_guard lock(mutex_);
        if (underWay_.empty()) return;
        piece = std::move(underWay_.front());
        underWay_.pop_front();
    }
    TakeBack(std::move(piece));
}

}  // namespace kmxf::program
