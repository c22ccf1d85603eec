#include "Op1bOutput.h"

#include <utility>

namespace kmxf::program {

Op1bOutput::Op1bOutput(const OutputFile& file) : MxfOutput(file), writer_(std::make_unique<CCreateMXFOp1b>()) {}

Op1bOutput::~Op1bOutput() { writer_.reset(); }

void Op1bOutput::Open() {
    const int32_t status = writer_->Open(ShortName().c_str(), &stream_);
    RequireOpen(writer_->IsOpened(), status);
    writer_->RegisterCallback(this);
}

void Op1bOutput::WriteVideo(AccessUnit unit) {
    const uint32_t size = unit.piece->GetSize();
    RequireAccepted(
        writer_->WriteVideo(Keep(std::move(unit.piece)), unit.temporalOffset, unit.keyFrameOffset, unit.flags), size);
}

void Op1bOutput::WriteAudio(std::unique_ptr<OwnedPiece> block, uint8_t channel) {
    const uint32_t size = block->GetSize();
    RequireAccepted(writer_->WriteAudio(Keep(std::move(block)), channel), size);
}

void Op1bOutput::Close() { RequireClosed(writer_->Close()); }

}  // namespace kmxf::program
