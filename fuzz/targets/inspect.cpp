// The walk over any file: packets and stretches fill it, and everything in them can be told.
#include "kmxf/structures/Inspect.h"
#include "support/Target.h"
#include "support/Walk.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    test::MemorySource source(input);
    CInspector inspector(source);
    uint64_t end = 0;
    while (const auto packet = inspector.Next()) {
        Require(packet->offset == end, "there is neither gap nor overlap");
        Require(packet->End() > end, "the walk goes on");
        end = packet->End();
        for (const InspectedItem& item : inspector.Items(*packet)) {
            Require(item.value.size() <= item.length, "no value is longer than stated");
            item.Text();
            item.Elements();
            item.Keys();
            item.Rational();
            item.Timestamp();
            item.Umid();
        }
        inspector.Value(*packet, 64);
    }
    Require(end == input.size(), "the walk ends with the file");
    if (input.size() > 1 << 18) return;  // more of the same
    CInspector partitions(source);
    while (partitions.NextPartition()) {
    }
}

}  // namespace kmxf::fuzz
