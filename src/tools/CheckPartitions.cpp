#include <algorithm>

#include "core/Labels.h"
#include "core/Layout.h"
#include "tools/CheckRule.h"

// PP: partition packs (SMPTE ST 377-1). What the layouts fix is in the tables of their own.
namespace kmxf {

namespace {

constexpr uint64_t kLabelSize = 16;

using File = CheckedFile;
using Partition = CheckedPartition;

uint64_t Place(const File& file, uint64_t offset) { return offset - file.runIn; }

// The place of the footer as a pack of this partition names it: in OP-1b the body is written before it is known.
uint64_t FooterNamedBy(const File& file, const Partition& partition) {
    if (file.layout == kOp1b && !partition.IsHeader() && !partition.IsFooter()) return 0;
    return file.namedFooter;
}

uint64_t MetadataSize(const File& file, const Partition& header) {
    if (file.layout == kOp1b) return kOp1bHeaderSize - (header.pack.End() - header.pack.offset);
    // In OP-Atom all that stands in front of the index.
    const auto end = std::ranges::find_if(header.packets, [](const InspectedPacket& packet) {
        return packet.kind != PacketKind::kPrimer && packet.kind != PacketKind::kSet;
    });
    return (end == header.packets.end() ? header.end : end->offset) - header.pack.End();
}

constexpr Rule kRules[] = {
    {"PP-001", "The recording was closed: a footer partition stands where the header says.", kAny | kWhileOpen,
     [](const File& file, const CheckReport& report) {
         if (!file.open) return;
         const InspectedItem* item = FindItem(file.header.fields, "FooterPartition");
         report(item == nullptr ? file.header.pack.offset : item->offset, "the place of a footer partition",
                file.missingFooter);
     }},
    {"PP-002", "A partition is closed and complete.", kOurs | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         report.ExpectText(partition.fields, "Status", "closed, complete");
     }},
    {"PP-003", "The version of a pack is 1.3.", kOurs | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         report.ExpectText(partition.fields, "MajorVersion", "1");
         report.ExpectText(partition.fields, "MinorVersion", "3");
     }},
    {"PP-004", "The KAG size is 1.", kOurs | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         report.ExpectText(partition.fields, "KAGSize", "1");
     }},
    {"PP-005", "A pack has 88 bytes, and 16 for each essence container that it counts.", kAny | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         const InspectedItem* containers = FindItem(partition.fields, "EssenceContainers");
         if (containers == nullptr) return;
         const ArrayHead head = ArrayHeadOf(*containers);
         const uint64_t expected = kPackFieldsSize + kLabelSize * head.count;
         if (partition.pack.length != expected || (head.count != 0 && head.size != kLabelSize))
             report(containers->offset,
                    Counted(expected, "byte") + " for " + Counted(head.count, "label") + " of 16 bytes",
                    Counted(partition.pack.length, "byte") + ", labels of " + TextOf(head.size));
     }},
    {"PP-006", "Behind the header partition come body partitions, and at the end the footer partition.",
     kAny | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         const bool last = partition.end == file.size;
         const std::string_view expected = last ? "FooterPartitionPack" : "BodyPartitionPack";
         if (partition.number == 0 || partition.pack.name == expected || (last && file.open)) return;
         report(partition.pack.offset, std::string(expected), std::string(partition.pack.name));
     }},
    {"PP-007", "ThisPartition is the place of the pack.", kAny | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         report.Expect(partition.fields, "ThisPartition", Place(file, partition.pack.offset));
     }},
    {"PP-008", "PreviousPartition is the place of the pack before; the first says 0.", kAny | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         // A pack may have been lost in the damage.
         if (file.previous && file.previous->damaged) return;
         report.Expect(partition.fields, "PreviousPartition",
                       file.previous ? Place(file, file.previous->pack.offset) : 0);
     }},
    {"PP-009", "FooterPartition is the place of the footer, everywhere but in body partitions of OP-1b, which say 0.",
     kOurs,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (file.hasHeader) report.Expect(partition.fields, "FooterPartition", FooterNamedBy(file, partition));
     }},
    {"PP-010", "OperationalPattern is that of the layout, and the same in all packs.", kAny | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (file.layout == kOpAtom) report.Expect(partition.fields, "OperationalPattern", kOpAtomLabel);
         if (file.layout == kOp1b) report.Expect(partition.fields, "OperationalPattern", kOp1bLabel);
         if (const auto label = file.header.Label("OperationalPattern"); label && file.layout == kOther)
             report.Expect(partition.fields, "OperationalPattern", *label);
     }},
    {"PP-011", "EssenceContainers is the same in all packs.", kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (const InspectedItem* item = FindItem(file.header.fields, "EssenceContainers"))
             report.ExpectText(partition.fields, "EssenceContainers", item->Text());
     }},
    {"PP-012", "HeaderByteCount is the size of the header metadata; in body and footer partitions, which have none, 0.",
     kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (partition.damaged) return;
         report.Expect(partition.fields, "HeaderByteCount",
                       partition.IsHeader() ? MetadataSize(file, partition) : uint64_t{0});
     }},
    {"PP-013", "IndexByteCount is the size of the index segments and the fill behind them, or 0.", kAny | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (!partition.damaged)
             report.Expect(partition.fields, "IndexByteCount", partition.indexEnd - partition.indexFrom);
     }},
    {"PP-014", "IndexSID is that of the first index segment in the partition; without one it is 0.", kAny | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (partition.damaged) return;
         const auto sid = partition.segments.empty() ? 0 : partition.segments.front().Number("IndexSID");
         if (sid) report.Expect(partition.fields, "IndexSID", *sid);
     }},
    {"PP-015", "A partition has a BodySID if it holds essence, and otherwise 0.", kAny | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         const InspectedItem* sid = FindItem(partition.fields, "BodySID");
         if (partition.damaged || sid == nullptr || (sid->Unsigned() != 0) == (partition.elements != 0)) return;
         report(sid->offset, partition.elements == 0 ? "BodySID 0" : "a BodySID", Described(*sid));
     }},
    {"PP-016", "BodyOffset is 0 in a partition without essence.", kAny | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (!partition.damaged && partition.elements == 0) report.ExpectText(partition.fields, "BodyOffset", "0");
     }},
};

}  // namespace

std::span<const Rule> PackRules() { return kRules; }

}  // namespace kmxf
