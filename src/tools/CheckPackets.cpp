#include <algorithm>

#include "core/KLVPacket.h"
#include "structures/InspectKeys.h"
#include "tools/CheckRule.h"

// KLV: the packets themselves (SMPTE ST 336).
namespace kmxf {

namespace {

constexpr uint32_t kKeySize = sizeof(MXFKEYTag);
constexpr uint32_t kShortElementLength = 4, kLongElementLength = 8;
constexpr uint64_t kLongestHead = kKeySize + 9;

// Elements whose length is written in 4 bytes; that of all others takes 8.
constexpr std::string_view kShortElements[] = {"AVCLongGOPElement", "ANCElement"};

bool IsPacket(const InspectedPacket& packet) {
    return packet.kind != PacketKind::kDamage && packet.kind != PacketKind::kRunIn;
}

constexpr Rule kRules[] = {
    {kCheckRuleNoMXF, "The file has partition packs.", kAny | kWhileOpen,
     [](const CheckedFile& file, const CheckReport& report) {
         if (file.partitions.empty()) report(0, "a partition pack", "none in " + Counted(file.size, "byte"));
     }},
    {"KLV-002", "The file begins with the header partition pack.", kAny | kWhileOpen,
     [](const CheckedFile& file, const CheckReport& report) {
         const InspectedPacket& first = *file.firstPacket;
         if (first.name == "HeaderPartitionPack") return;
         const std::string found = IsPacket(first) ? std::string(first.name.empty() ? "a packet" : first.name)
                                                   : std::string(KindName(first.kind));
         report(first.offset, "HeaderPartitionPack", found + " of " + Counted(first.End() - first.offset, "byte"));
     }},
    {"KLV-003", "Every byte belongs to a packet.", kAny | kWhileOpen,
     [](const CheckedFile& file, const InspectedPacket& packet, const CheckReport& report) {
         // What a cut leaves of a head is no damage.
         const bool restOfHead = file.open && packet.End() == file.size && packet.length < kLongestHead;
         if (packet.kind == PacketKind::kDamage && !restOfHead)
             report(packet.offset, "a packet", Counted(packet.available, "byte") + " of none");
     }},
    {"KLV-004", "A packet is as long as it says.", kAny | kWhileOpen,
     [](const CheckedFile& file, const InspectedPacket& packet, const CheckReport& report) {
         // Where a recording was cut off is told by another rule.
         if (packet.whole || !IsPacket(packet) || (file.open && packet.End() == file.size)) return;
         report(packet.offset, Counted(packet.length, "byte"), Counted(packet.available, "byte"));
     }},
    {"KLV-005", "The length of a pack, a set, an index segment and a fill item is written in 4 bytes: 83 and three.",
     kOurs | kWhileOpen,
     [](const CheckedFile&, const InspectedPacket& packet, const CheckReport& report) {
         if (!IsPacket(packet) || packet.kind == PacketKind::kEssence || packet.headSize == kKLVHeadSize) return;
         report(packet.offset + kKeySize, Counted(kKLVHeadSize - kKeySize, "byte"),
                Counted(packet.headSize - kKeySize, "byte"));
     }},
    {"KLV-006",
     "The length of an essence element is written in 8 bytes, 87 and seven; of picture and ANC elements of OP-1b in 4.",
     kOurs | kWhileOpen,
     [](const CheckedFile&, const InspectedPacket& packet, const CheckReport& report) {
         if (packet.kind != PacketKind::kEssence) return;
         const bool isShort = std::ranges::find(kShortElements, packet.name) != std::end(kShortElements);
         const uint32_t expected = isShort ? kShortElementLength : kLongElementLength;
         const uint32_t found = packet.headSize - kKeySize;
         if (found != expected) report(packet.offset + kKeySize, Counted(expected, "byte"), Counted(found, "byte"));
     }},
    {"KLV-007", "Every packet is one that the layout has: nothing dark.", kOurs | kWhileOpen,
     [](const CheckedFile&, const InspectedPacket& packet, const CheckReport& report) {
         if (IsPacket(packet) && packet.name.empty()) report(packet.offset, "a known key", TextOf(packet.key));
     }},
    {"KLV-008", "A key is written as it is registered, with its version.", kOurs | kWhileOpen,
     [](const CheckedFile&, const InspectedPacket& packet, const CheckReport& report) {
         const PacketKeyRow* row = IsPacket(packet) ? FindPacketKey(packet.key) : nullptr;
         if (row == nullptr || packet.name.empty()) return;
         MXFKEYTag expected = row->key;
         if (packet.kind == PacketKind::kPartition) expected.bytes[14] = packet.key.bytes[14];  // its status
         if (packet.kind == PacketKind::kEssence && row->compared != kWholeKey) return;
         if (packet.key != expected) report(packet.offset, TextOf(expected), TextOf(packet.key));
     }},
};

}  // namespace

std::span<const Rule> PacketRules() { return kRules; }

}  // namespace kmxf
