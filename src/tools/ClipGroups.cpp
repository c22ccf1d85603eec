#include "tools/ClipGroups.h"

#include <algorithm>

#include "core/Bytes.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "kmxf/structures/Inspect.h"
#include "kmxf/structures/RandomIndex.h"

namespace kmxf {

namespace {

constexpr uint32_t kPictureSid = 1;
constexpr uint64_t kRandomIndexEntrySize = 12;
constexpr size_t kHeadLook = 25;  // the most that key and length take

// In a group every other partition is an index; the others are pictures, ancillary data, and the channels of sound.
uint32_t SidInGroup(size_t position) {
    return position % 2 == 1 ? 0 : kPictureSid + static_cast<uint32_t>(position / 2);
}

// Whether all is there: packets that are not cut, and the index that the pack counts.
bool IsWhole(const InspectedPartition& partition) {
    const auto& packets = partition.packets;
    return std::all_of(packets.begin(), packets.end(), [](const InspectedPacket& packet) { return packet.whole; }) &&
           packets.back().End() - packets.front().End() >= static_cast<uint64_t>(partition.pack->GetIndexByteCount());
}

}  // namespace

std::optional<std::vector<ClipPartition>> ListedPartitions(const ClipSource& source, uint64_t footer,
                                                           uint64_t& damage) {
    const uint64_t fileSize = source.Size();
    const uint64_t length = ByteReader(source.Look(fileSize - 4, 4)).U32();  // of the whole pack, by its end
    if (length > fileSize - footer) return std::nullopt;
    const auto head = ReadKLVHead(source.Look(fileSize - length, kHeadLook));
    if (!head || head->key != kRandomIndexPackKey || head->size + head->length != length) return std::nullopt;
    const auto bytes = source.Look(fileSize - length, static_cast<size_t>(length));
    CRandomIndex index;
    if (index.SetData(bytes.data(), static_cast<uint32_t>(length)) != 0) return std::nullopt;

    const uint32_t count = index.GetPartitionNum();
    const auto entry = [&](uint32_t i) { return static_cast<uint64_t>(index.GetPartitionOffset(i)); };
    const uint64_t firstEntry = fileSize - 4 - kRandomIndexEntrySize * count;
    std::vector<ClipPartition> partitions;
    for (uint32_t i = 0; i < count; ++i) {
        damage = firstEntry + kRandomIndexEntrySize * i;
        const bool isFooter = i + 1 == count;
        if (i == 0 ? entry(i) != 0 : entry(i) <= entry(i - 1)) return std::nullopt;
        if (isFooter ? entry(i) != footer : entry(i) >= footer) return std::nullopt;
        if (i != 0 && !isFooter) partitions.push_back({{entry(i), entry(i + 1)}, index.GetBodySID(i), 0});
    }
    damage = firstEntry + kRandomIndexEntrySize;
    return count < 2 ? std::nullopt : std::optional(partitions);
}

std::vector<ClipPartition> WalkedPartitions(IByteSource& source) {
    CInspector inspector(source);
    std::vector<ClipPartition> found;
    bool good = true;
    while (auto partition = good ? inspector.NextPartition() : std::nullopt) {
        if (!partition->pack) break;
        const uint8_t kind = partition->pack->GetKey().bytes[kPackKindByte];
        if (kind == kHeaderPack) continue;
        auto& packets = partition->packets;
        const auto damage = std::find_if(packets.begin(), packets.end(), [](const InspectedPacket& packet) {
            return packet.kind == PacketKind::kDamage;
        });
        good = damage == packets.end();
        packets.erase(damage, packets.end());  // the start of a pack that was cut may stand behind a whole partition
        if (kind != kBodyPack || !IsWhole(*partition)) break;
        const auto pictures = std::count_if(packets.begin(), packets.end(), [](const InspectedPacket& packet) {
            return packet.kind == PacketKind::kEssence;
        });
        found.push_back({{packets.front().offset, packets.back().End()},
                         partition->pack->GetBodySID(),
                         static_cast<uint32_t>(pictures)});
    }
    return found;
}

std::vector<ClipGroup> GroupsOf(std::span<const ClipPartition> partitions, uint32_t channels) {
    constexpr size_t kWithoutSound = 4;
    std::vector<ClipGroup> groups;
    while (partitions.size() >= kWithoutSound) {
        const bool silent = partitions.size() == kWithoutSound;
        const size_t count = silent ? kWithoutSound : kWithoutSound + 2 * size_t{channels};
        if (partitions.size() < count) break;
        for (size_t i = 0; i < count; ++i) {
            if (partitions[i].bodySid != SidInGroup(i)) return groups;
        }
        ClipGroup& group = groups.emplace_back();
        group.frames = partitions[0].pictures;
        group.pictures = partitions[0].place;
        group.pictureIndex = partitions[1].place;
        group.anc = partitions[2].place;
        for (size_t i = kWithoutSound; i < count; i += 2) group.sound.push_back(partitions[i].place);
        group.end = partitions[count - 1].place.end;
        partitions = partitions.subspan(count);
    }
    return groups;
}

}  // namespace kmxf
