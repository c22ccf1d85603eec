// OP-1b clips mended on the salvager's own thread, some of them cancelled.
#include <atomic>

#include "kmxf/collaborators/Notify.h"
#include "kmxf/core/Status.h"
#include "kmxf/tools/SalvageMXFOp1b.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

namespace {

class Listener final : public ISalvageMXFNotify {
public:
    std::atomic<int> finished = 0;

    void Notify(int32_t kind, int32_t) override { finished += kind == kSalvageFinished; }
};

}  // namespace

void Run(Bytes input) {
    const MemoryFiles file(input);
    Listener listener;
    {
        CSalvageMXFOp1b salvage;
        salvage.SetFilename("clip.mxf");
        salvage.IsCompletedFile();
        Require(salvage.Salvage(&listener) == kStatusOk, "a run begins");
        if (Choices(input).Below(4) == 0) salvage.Cancel();
        salvage.GetDuration();
        salvage.GetStartTimecode();
    }
    Require(listener.finished == 1, "a run ends once, and before the salvager is gone");
}

}  // namespace kmxf::fuzz
