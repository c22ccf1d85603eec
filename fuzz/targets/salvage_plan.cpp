// The plan for what was cut off, and what carrying it out does.
#include "kmxf/tools/SalvagePlan.h"

#include "kmxf/core/VideoStandard.h"
#include "support/FileOnTmpfs.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    Choices choices(input);
    const FileOnTmpfs file(input, choices.Flip() ? "clip.mxf" : "clip01.mxf");
    SalvageChoice choice;
    if (choices.Below(4) == 0) choice.videoStd = VIDEO_STD_50I;
    if (choices.Below(4) == 0) choice.compType = COMP_TYPE_DV25;
    choice.trustTail = choices.Flip();
    GroupSalvageFiles(ListSalvageFiles(file.Folder()));
    const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(file.Path()), choice);
    for (const SalvagedFile& salvaged : plan.files) {
        if (salvaged.action == SalvageAction::kGiveUp) continue;
        Require(salvaged.rebuiltSize + salvaged.keptSize + salvaged.lostSize == input.size(), "the bytes add up");
    }
    if (plan.IsHopeless() || plan.IsComplete() || plan.duration > 100000) return;
    CarryOutSalvage(plan, {file.Path()});
}

}  // namespace kmxf::fuzz
