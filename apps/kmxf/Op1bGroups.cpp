#include "Op1bGroups.h"

#include <algorithm>
#include <string>

#include "Program.h"
#include "core/Bytes.h"
#include "core/Labels.h"
#include "kmxf/core/KLV.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Partition.h"

namespace kmxf::program {

namespace {

constexpr size_t kPackLook = 256;          // more than any partition pack of these files
constexpr uint64_t kMostIndex = 1 << 20;   // bytes of a group's index
constexpr uint64_t kPictureHeadSize = 20;  // key and length in front of each picture

// Key and length in front of a packet (SMPTE ST 336).
constexpr size_t kMostHead = 25;
struct PacketHead {
    MXFKEYTag key;
    size_t size = 0;      // of key and length
    uint64_t length = 0;  // of the value
};
std::optional<PacketHead> ReadHead(std::span<const uint8_t> bytes) {
    ByteReader reader(bytes);
    PacketHead head{.key = reader.Key()};
    const uint8_t form = reader.U8();
    const size_t width = form >= 0x80 ? form & 0x7F : 0;
    const auto length = reader.Take(width);
    head.length = form >= 0x80 ? static_cast<uint64_t>(BERtoSize(length.data(), static_cast<uint8_t>(width))) : form;
    head.size = reader.Position();
    return reader.Ok() && head.size <= kMostHead ? std::optional(head) : std::nullopt;
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

const ClipGroup& GroupOf(std::span<const ClipGroup> groups, uint64_t frame) {
    return *std::prev(std::upper_bound(groups.begin(), groups.end(), frame,
                                       [](uint64_t f, const ClipGroup& group) { return f < group.firstFrame; }));
}

std::vector<FramePlace> FramePlaces(const InputFile& file, const ClipGroup& group) {
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
        const auto head = ReadHead(window_.At(at_, static_cast<size_t>(std::min<uint64_t>(kMostHead, end_ - at_))));
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
