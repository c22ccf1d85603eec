#include "OpAtomOutput.h"

#include <algorithm>
#include <utility>

namespace kmxf::program {

OpAtomOutput::OpAtomOutput(std::unique_ptr<CCreateMXFBase> writer, const OutputFile& file, uint32_t pieceSize)
    : MxfOutput(file), pieceSize_(pieceSize), writer_(std::move(writer)) {}

OpAtomOutput::~OpAtomOutput() { writer_.reset(); }

void OpAtomOutput::Open(bool rewriteHeaderAtClose) {
    writer_->SetFilename(ShortName().c_str());
    const int32_t status = writer_->Open(&stream_, rewriteHeaderAtClose);
    RequireOpen(writer_->IsOpened(), status);
    writer_->RegisterCallback(this);
}

std::span<uint8_t> OpAtomOutput::Room() {
    if (!current_) {
        std::unique_lock lock(mutex_);
        pieceBack_.wait(lock, [this] { return underWay_ < kPieces; });
        if (free_.empty()) {
            current_ = std::make_unique<HeapPiece>(pieceSize_);
        } else {
            current_ = std::move(free_.back());
            free_.pop_back();
        }
    }
    return {current_->GetBuffer(), pieceSize_};
}

void OpAtomOutput::Write(size_t count) {
    if (count == 0) return;
    std::unique_ptr<OwnedPiece> piece = std::move(current_);
    if (count < pieceSize_) {  // a write takes a piece whole: the last bytes need one of their own size
        auto last = std::make_unique<HeapPiece>(static_cast<uint32_t>(count));
        std::copy_n(piece->GetBuffer(), count, last->GetBuffer());
        piece = std::move(last);
    }
    {
        const std::lock_guard lock(mutex_);
        ++underWay_;
    }
    RequireAccepted(writer_->Write(Keep(std::move(piece)), 0), static_cast<uint32_t>(count));
}

void OpAtomOutput::TakeBack(std::unique_ptr<OwnedPiece> piece) {
    const std::lock_guard lock(mutex_);
    if (piece->GetSize() == pieceSize_) free_.push_back(std::move(piece));
    --underWay_;
    pieceBack_.notify_one();
}

void OpAtomOutput::Close() { RequireClosed(writer_->Close()); }

}  // namespace kmxf::program
