// Index table segments.
#include "kmxf/structures/IndexCommon.h"
#include "support/TakenOver.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CIndexCommon taken(1, 0, 0, 1), other(1, 0, 0, 1);
    if (taken.SetData(input.data(), static_cast<uint32_t>(input.size())) != kStatusOk) return;
    MXFDELTAENTRYTag delta;
    MXFINDEXENTRYTag entry;
    for (uint32_t i = 0; taken.GetDeltaEntry(i, &delta) == kStatusOk; ++i)
        Require(i < taken.GetDeltaEntryNum(), "no entry behind the last");
    for (uint32_t i = 0; taken.GetIndexEntry(i, &entry) == kStatusOk; ++i)
        Require(i < taken.GetIndexEntryNum(), "no entry behind the last");
    Serialised(taken);
    taken.AddIndexEntry(0, 0, 0, 0);
    taken.SetSliceCount(3);
    Serialised(taken);
}

}  // namespace kmxf::fuzz
