#pragma once

#include <cstdint>
#include <memory>

#include "AccessUnits.h"
#include "MxfOutput.h"
#include "kmxf/writer/CreateMXFOp1b.h"

namespace kmxf::program {

// How many pieces are under way is up to the stream, which waits when it holds enough.
class Op1bOutput final : public MxfOutput {
public:
    explicit Op1bOutput(const OutputFile& file);
    ~Op1bOutput() override;

    void Open();
    CCreateMXFOp1b& Writer() { return *writer_; }
    void WriteVideo(AccessUnit unit);
    void WriteAudio(std::unique_ptr<OwnedPiece> block, uint8_t channel);
    void Close();

private:
    std::unique_ptr<CCreateMXFOp1b> writer_;
};

}  // namespace kmxf::program
