// Random index packs.
#include "kmxf/structures/RandomIndex.h"

#include "support/TakenOver.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CRandomIndex taken, other;
    if (taken.SetData(input.data(), static_cast<uint32_t>(input.size())) != kStatusOk) return;
    for (uint32_t i = 0; i <= taken.GetPartitionNum(); ++i) {
        taken.GetPartitionOffset(i);
        taken.GetBodySID(i);
    }
    WriteAndReadAgain(taken, other);
}

}  // namespace kmxf::fuzz
