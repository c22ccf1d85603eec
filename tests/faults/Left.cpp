#include "faults/Left.h"

#include <algorithm>
#include <fstream>
#include <map>

#include "collaborators/Guards.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/tools/SalvagePlan.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {

namespace {

struct Salvaged {
    bool hopeless = false;
    uint32_t frames = 0;
    std::vector<std::string> faults;
};

// Of a file that is complete; the plan of a whole OP-1b clip does not say.
uint32_t FramesOf(const SalvagedFile& file, const SalvagePlan& plan) {
    if (file.content != SalvageContent::kClip) return static_cast<uint32_t>(plan.duration);
    FactoryStream stream;
    CReadMXFOp1b reader;
    return reader.Open(file.path.c_str(), stream.get()) == kStatusOk ? static_cast<uint32_t>(reader.GetDuration()) : 0;
}

Salvaged Salvage(const Bytes& left) {
    Salvaged salvaged;
    const LogRecorder log;
    const TemporaryFolder folder;
    const std::string path = folder.File("CLIP.mxf");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(left.data()), static_cast<std::streamsize>(left.size()));
    const SalvagePlan plan = ScanForSalvage({path});
    if (plan.files.size() != 1) return {false, 0, {"the plan has not the one file"}};
    const SalvagedFile& file = plan.files[0];
    salvaged.hopeless = file.action == SalvageAction::kGiveUp;
    salvaged.frames = static_cast<uint32_t>(file.framesKept);
    if (salvaged.hopeless) {
        if (file.reason.empty()) salvaged.faults.push_back("it is given up without a reason");
        return salvaged;
    }
    if (file.action == SalvageAction::kLeave) salvaged.frames = FramesOf(file, plan);
    const SalvageResult result = CarryOutSalvage(plan, {path});
    if (!result.done) salvaged.faults.push_back("it cannot be salvaged: " + result.failure);
    for (const CheckFinding& finding : result.findings) {
        salvaged.faults.push_back("the salvaged file has a fault: " + std::string(finding.rule) + ", expected " +
                                  finding.expected + ", found " + finding.found);
    }
    return salvaged;
}

}  // namespace

std::vector<std::string> SalvageWhatIsLeft(const Bytes& left, uint32_t framesConfirmed, bool mayHaveHoles) {
    static std::map<std::string, Salvaged> known;  // many failures leave the same
    if (left.empty()) return {};
    const std::string key(left.begin(), left.end());
    auto found = known.find(key);
    if (found == known.end()) found = known.emplace(key, Salvage(left)).first;
    const Salvaged& salvaged = found->second;
    if (mayHaveHoles) return {};
    auto faults = salvaged.faults;
    if (salvaged.hopeless) {
        if (framesConfirmed > 0) faults.push_back("nothing can be salvaged");
    } else if (salvaged.frames < framesConfirmed) {
        faults.push_back("salvaged frames " + std::to_string(salvaged.frames) + ", confirmed " +
                         std::to_string(framesConfirmed));
    }
    return faults;
}

}  // namespace kmxf::test
