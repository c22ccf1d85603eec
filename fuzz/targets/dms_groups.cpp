// The groups of descriptive metadata in a header, and the two frameworks by themselves.
#include "kmxf/structures/DMSGroups.h"

#include "kmxf/core/VideoStandard.h"
#include "support/TakenOver.h"

namespace kmxf::fuzz {

namespace {

template <class Group>
void ReadAndBuild(Bytes input) {
    Group group(VIDEO_STD_59_94I);
    if (group.SetData(input.data(), static_cast<uint32_t>(input.size())) == kStatusOk) Serialised(group);
}

template <class Framework>
void TakeOver(Bytes input) {
    Framework framework;
    if (framework.SetData(input.data(), static_cast<uint32_t>(input.size())) == kStatusOk) Serialised(framework);
}

}  // namespace

void Run(Bytes input) {
    ReadAndBuild<CDMSClip>(input);
    ReadAndBuild<CDMSScene>(input);
    ReadAndBuild<CDMSKestralinStatic>(input);
    ReadAndBuild<CDMSKestralinEvent>(input);
    TakeOver<CKestralinFrameworkStatic>(input);
    TakeOver<CKestralinFrameworkEvent>(input);
}

}  // namespace kmxf::fuzz
