#include "MxfOutput.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

MxfOutput::MxfOutput(std::unique_ptr<CCreateMXFBase> writer, const OutputFile& file, uint32_t pieceSize)
    : writer_(std::move(writer)),
      file_(file),
      pieceSize_(pieceSize),
      stream_(file.WorkPath()),
      allocator_(stream_.GetPieceAllocator()) {
    underWay_.reserve(kPieces);
    free_.reserve(kPieces);
}

MxfOutput::~MxfOutput() {
    // A writer still open, because something failed, closes the stream, which brings all pieces back.
    writer_.reset();
    if (current_ != nullptr) allocator_->Free(current_);
    for (const UnderWay& item : underWay_) TakeBack(item);
    for (StreamPiece* piece : free_) allocator_->Free(piece);
    allocator_->Release();
}

void MxfOutput::FailWriting() {
    const int error = stream_.Error();
    if (error == EFAULT && !mappedFrom_.empty()) {
        Fail(ExitStatus::kInput, mappedFrom_, "cannot be read: its medium fails, or it became shorter meanwhile");
    }
    Fail(ExitStatus::kOutput, file_.FinalPath(), "cannot be written" + (error != 0 ? ": " + ErrorText(error) : ""));
}

StreamPiece* MxfOutput::Allocate(uint32_t size) {
    StreamPiece* piece = allocator_->Allocate(size);
    if (piece == nullptr) Fail(ExitStatus::kInternal, file_.FinalPath(), "no memory for a buffer");
    return piece;
}

void MxfOutput::Open(bool rewriteHeaderAtClose) {
    writer_->SetFilename(file_.WorkPath().substr(0, 255).c_str());
    const int32_t status = writer_->Open(&stream_, rewriteHeaderAtClose);
    if (!writer_->IsOpened()) {
        if (stream_.Error() == 0)
            Fail(ExitStatus::kInternal, file_.FinalPath(), "the format was refused, status " + std::to_string(status));
        FailWriting();
    }
    writer_->RegisterCallback(this);
}

std::span<uint8_t> MxfOutput::Room() {
    if (current_ == nullptr) {
        std::unique_lock lock(mutex_);
        if (free_.empty() && allocated_ < kPieces) {
            ++allocated_;
            current_ = Allocate(pieceSize_);
        } else {
            pieceBack_.wait(lock, [this] { return !free_.empty(); });
            current_ = free_.back();
            free_.pop_back();
        }
    }
    return {current_->GetBuffer(), pieceSize_};
}

void MxfOutput::Write(size_t count) {
    if (count == 0) return;
    StreamPiece* piece = current_;
    current_ = nullptr;
    if (count < pieceSize_) {  // a write takes a piece whole: the last bytes need one of their own size
        StreamPiece* last = Allocate(static_cast<uint32_t>(count));
        last->CopyIn(0, piece->GetBuffer(), static_cast<uint32_t>(count));
        std::swap(piece, last);
        allocator_->Free(last);
        --allocated_;
    }
    Give({piece, false});
}

void MxfOutput::Write(std::unique_ptr<MappedPiece> piece, const std::string& source) {
    mappedFrom_ = source;
    {
        std::unique_lock lock(mutex_);
        pieceBack_.wait(lock, [this] { return underWay_.size() < kPieces; });
    }
    Give({piece.release(), true});
}

void MxfOutput::Give(const UnderWay& item) {
    const auto size = static_cast<int32_t>(item.piece->GetSize());
    {
        const std::lock_guard lock(mutex_);
        underWay_.push_back(item);
    }
    if (writer_->Write(item.piece, 0) != size) FailWriting();
}

void MxfOutput::TakeBack(const UnderWay& item) {
    if (item.mapped) {
        delete static_cast<MappedPiece*>(item.piece);
    } else if (item.piece->GetSize() == pieceSize_) {
        free_.push_back(item.piece);
    } else {
        allocator_->Free(item.piece);
    }
}

void MxfOutput::CallbackForWriteComplete(uint64_t, int32_t, int32_t) {
    const std::lock_guard lock(mutex_);
    if (underWay_.empty()) return;
    const UnderWay item = underWay_.front();
    underWay_.erase(underWay_.begin());
    TakeBack(item);
    pieceBack_.notify_one();
}

void MxfOutput::Close() {
    if (writer_->Close() != 0 || stream_.Error() != 0) FailWriting();
}

}  // namespace kmxf::program
