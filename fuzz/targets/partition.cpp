// Partition packs.
#include "kmxf/structures/Partition.h"

#include "support/TakenOver.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CPartition taken, again;
    if (taken.SetData(input.data(), static_cast<uint32_t>(input.size())) != kStatusOk) return;
    const uint32_t containers = taken.GetEssenceContainerNum();
    MXFKEYTag label;
    for (uint32_t i = 0; i <= containers; ++i)
        Require((taken.GetEssenceContainer(&label, i) == kStatusOk) == (i < containers),
                "there are as many as counted");
    uint8_t* bytes = nullptr;
    if (taken.GetData(&bytes) != kStatusOk) return;
    const std::unique_ptr<uint8_t, Freer> owned(bytes);
    Require(again.SetData(bytes, 108 + 16 * containers) == kStatusOk, "what was written is read");
    Require(again.GetFooterPartition() == taken.GetFooterPartition(), "what was read is the same");
}

}  // namespace kmxf::fuzz
