#include "Op1bGroups.h"

#include <algorithm>
#include <limits>
#include <string>

#include "HeaderSets.h"
#include "Program.h"
#include "core/Bytes.h"
#include "core/Labels.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Inspect.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/structures/RandomIndex.h"

namespace kmxf::program {

namespace {

constexpr uint32_t kPictureSid = 1;
constexpr size_t kPackLook = 256;         // more than any partition pack of these files
constexpr uint64_t kMostIndex = 1 << 20;  // bytes of a group's index
constexpr uint64_t kRandomIndexEntrySize = 12;
constexpr uint64_t kPictureHeadSize = 20;  // key and length in front of each picture

class WholeFile final : public IByteSource {
public:
    explicit WholeFile(const InputFile& file) : file_(file) {}
    uint64_t GetSize() override { return file_.Size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override { return file_.ReadSome(offset, bytes); }

private:
    const InputFile& file_;
};

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

bool IsFill(const MXFKEYTag& key) {
    return std::equal(key.bytes, key.bytes + 7, kFillKey.bytes) &&
           std::equal(key.bytes + 8, key.bytes + 16, kFillKey.bytes + 8);
}

bool IsEssence(const MXFKEYTag& key) { return std::equal(key.bytes, key.bytes + 7, kPCMBlockElementKey.bytes); }

[[noreturn]] void FailAt(const InputFile& file, uint64_t offset, const std::string& what) {
    Fail(ExitStatus::kInput, file.Path(), what + " (offset " + std::to_string(offset) + ")");
}

}  // namespace

std::optional<std::vector<Op1bPartition>> ListedPartitions(const InputFile& file, uint64_t footer, uint64_t& damage) {
    const uint64_t fileSize = file.Size();
    const uint64_t length = Number(file.Look(fileSize - 4, 4));  // of the whole pack, by its end
    if (length > fileSize - footer || length > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    const auto head = ReadPacketHead(file.Look(fileSize - length, PacketHead::kMost));
    if (!head || head->key != kRandomIndexPackKey || head->size + head->length != length) return std::nullopt;
    const auto bytes = file.Look(fileSize - length, static_cast<size_t>(length));
    CRandomIndex index;
    if (index.SetData(bytes.data(), static_cast<uint32_t>(length)) != 0) return std::nullopt;

    const uint32_t count = index.GetPartitionNum();
    const auto entry = [&](uint32_t i) { return static_cast<uint64_t>(index.GetPartitionOffset(i)); };
    const uint64_t firstEntry = fileSize - 4 - kRandomIndexEntrySize * count;
    std::vector<Op1bPartition> partitions;
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

std::vector<Op1bPartition> WalkedPartitions(const InputFile& file) {
    WholeFile source(file);
    CInspector inspector(source);
    std::vector<Op1bPartition> found;
    bool good = true;
    while (auto partition = good ? inspector.NextPartition() : std::nullopt) {
        if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
        if (!partition->pack) break;
        const uint8_t kind = partition->pack->GetKey().bytes[13];
        if (kind == 0x02) continue;  // the header
        auto& packets = partition->packets;
        const auto damage = std::find_if(packets.begin(), packets.end(), [](const InspectedPacket& packet) {
            return packet.kind == PacketKind::kDamage;
        });
        good = damage == packets.end();
        packets.erase(damage, packets.end());  // the start of a pack that was cut may stand behind a whole partition
        if (kind != 0x03 || !IsWhole(*partition)) break;
        const auto pictures = std::count_if(packets.begin(), packets.end(), [](const InspectedPacket& packet) {
            return packet.kind == PacketKind::kEssence;
        });
        found.push_back({{packets.front().offset, packets.back().End()},
                         partition->pack->GetBodySID(),
                         static_cast<uint32_t>(pictures)});
    }
    return found;
}

std::vector<Op1bGroup> GroupsOf(std::span<const Op1bPartition> partitions, uint32_t channels) {
    constexpr size_t kWithoutSound = 4;
    std::vector<Op1bGroup> groups;
    while (partitions.size() >= kWithoutSound) {
        const bool silent = partitions.size() == kWithoutSound;
        const size_t count = silent ? kWithoutSound : kWithoutSound + 2 * size_t{channels};
        if (partitions.size() < count) break;
        for (size_t i = 0; i < count; ++i) {
            if (partitions[i].bodySid != SidInGroup(i)) return groups;
        }
        Op1bGroup& group = groups.emplace_back();
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

const Op1bGroup& GroupOf(std::span<const Op1bGroup> groups, uint64_t frame) {
    return *std::prev(std::upper_bound(groups.begin(), groups.end(), frame,
                                       [](uint64_t f, const Op1bGroup& group) { return f < group.firstFrame; }));
}

std::vector<FramePlace> FramePlaces(const InputFile& file, const Op1bGroup& group) {
    const auto fail = [&] {
        FailAt(file, group.pictureIndex.begin,
               "the index of its frames from " + std::to_string(group.firstFrame) + " on is damaged");
    };
    if (group.pictureIndex.Size() > kMostIndex) fail();
    const auto bytes = file.Look(group.pictureIndex.begin, static_cast<size_t>(group.pictureIndex.Size()));
    CPartition pack;
    CIndexCommon index(0, 0, 0, 0);
    const auto size = static_cast<uint32_t>(bytes.size());
    if (pack.SetData(bytes.data(), size) != 0 || pack.GetLength() > size ||
        index.SetData(bytes.data() + pack.GetLength(), size - pack.GetLength()) != 0 ||
        index.GetIndexEntryNum() < group.frames) {
        fail();
    }
    std::vector<MXFINDEXENTRYTag> entries(group.frames);
    for (uint32_t i = 0; i < group.frames; ++i) index.GetIndexEntry(i, &entries[i]);

    // All packs of a file have one size.
    const uint64_t first = group.pictures.begin + pack.GetLength();
    const uint64_t room = group.pictures.end - std::min(first, group.pictures.end);
    std::vector<FramePlace> places;
    for (uint32_t i = 0; i < group.frames; ++i) {
        const MXFINDEXENTRYTag& entry = entries[i];
        const uint64_t begin = entry.streamOffset - entries.front().streamOffset;
        const uint64_t end = i + 1 < group.frames ? entries[i + 1].streamOffset - entries.front().streamOffset : room;
        if (end > room || begin > end || end - begin < kPictureHeadSize) fail();
        places.push_back(
            {{first + begin + kPictureHeadSize, first + end}, entry.temporalOffset, entry.keyFrameOffset, entry.flags});
    }
    return places;
}

Elements::Elements(const InputFile& file, ReadingWindow& window, const ByteRange& partition)
    : file_(file), window_(window), at_(partition.begin), end_(partition.end) {
    const auto bytes = window_.At(at_, static_cast<size_t>(std::min<uint64_t>(kPackLook, partition.Size())));
    CPartition pack;
    if (pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != 0 || pack.GetLength() > partition.Size()) {
        FailAt(file_, at_, "has no partition where one should begin");
    }
    at_ += pack.GetLength();
}

std::optional<ByteRange> Elements::Next() {
    while (at_ < end_) {
        const auto head =
            ReadPacketHead(window_.At(at_, static_cast<size_t>(std::min<uint64_t>(PacketHead::kMost, end_ - at_))));
        if (!head || head->length > end_ - at_ - head->size || !(IsFill(head->key) || IsEssence(head->key))) {
            FailAt(file_, at_, "has no essence where it should be");
        }
        const ByteRange value{at_ + head->size, at_ + head->size + head->length};
        at_ = value.end;
        if (!IsFill(head->key)) return value;
    }
    return std::nullopt;
}

}  // namespace kmxf::program
