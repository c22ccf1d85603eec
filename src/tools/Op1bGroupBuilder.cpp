#include "tools/Op1bGroupBuilder.h"

#include <algorithm>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "writer/OwnPieces.h"

namespace kmxf {

namespace {

constexpr uint32_t kANCHeadSize = 42;  // of an element without data, with the head of the fill item behind it
constexpr uint64_t kMostANC = 470;     // bytes of data

bool IsANCElement(std::span<const uint8_t> bytes) {
    const auto head = ReadKLVHead(bytes);
    if (!head || bytes.size() < kANCHeadSize || head->key != kANCElementKey || head->size != kKLVHeadSize) return false;
    if (head->length != 2) return head->length > 2 && head->length <= kMostANC + 2;
    const auto fill = ReadKLVHead(bytes.subspan(head->size + 2));
    return fill && fill->key == kFillKey && fill->length == kMostANC;
}

// Whether index partitions differ in nothing but the InstanceUID of the segment, which is a new one every time.
bool AreAlike(std::span<const uint8_t> made, std::span<const uint8_t> old) {
    constexpr uint8_t kInstanceUID[] = {kTagInstanceUID >> 8, kTagInstanceUID & 0xFF, 0, sizeof(MXFKEYTag)};
    if (made.size() != old.size()) return false;
    const auto item = std::search(made.begin(), made.end(), std::begin(kInstanceUID), std::end(kInstanceUID));
    const auto front = static_cast<size_t>(item - made.begin());
    const size_t behind = std::min(front + sizeof kInstanceUID + sizeof(MXFKEYTag), made.size());
    return std::ranges::equal(made.first(front), old.first(front)) &&
           std::ranges::equal(made.subspan(behind), old.subspan(behind));
}

}  // namespace

Op1bGroupSizes SizesOf(const Op1bFormat& format, uint32_t frames, uint64_t sound) {
    COp1bBase builder(format.videoStd, format.compType, format.bytesPerSample, format.channels);
    Op1bGroupSizes sizes;
    if (builder.Initialize(false) != kStatusOk) return sizes;
    for (uint32_t i = 0; i < frames; ++i) builder.AddIndexEntry(0, 0, 0, 0);
    sizes.pack = builder.GetBodyPartitionSize(false, false);
    sizes.pictureIndex = builder.GetBodyPartitionSize(true, false);
    sizes.anc = builder.GetBodyPartitionSizeANCData(frames);
    sizes.soundHead = sizes.pack + kAudioKLSize;
    sizes.soundIndex = builder.GetBodyPartitionSize(true, true);
    sizes.sound = sound;
    return sizes;
}

Op1bGroupBuilder::Op1bGroupBuilder(const Op1bFormat& format, SalvageInput& source, uint64_t start)
    : format_(format),
      source_(source),
      builder_(format.videoStd, format.compType, format.bytesPerSample, format.channels),
      end_(start) {
    builder_.SetPlayerLayout(format.playerLayout);
    good_ = builder_.Initialize(false) == kStatusOk && builder_.AddPartitionInfo({0, 0}) == kStatusOk;
}

std::optional<std::vector<Op1bPiece>> Op1bGroupBuilder::Add(const Op1bContent& group, bool load, int64_t& damaged) {
    const auto frames = static_cast<uint32_t>(group.pictures.size());
    if (frames == 0 || group.entries.size() < frames || group.soundAt.size() < format_.channels) return std::nullopt;
    const auto tooLarge = [](const Op1bElement& picture) { return !picture.headed && picture.size > kMostPicture; };
    if (std::ranges::any_of(group.pictures, tooLarge)) return std::nullopt;
    pieces_.clear();
    load_ = load;
    cursor_ = group.start;
    const auto at = [&] { return static_cast<int64_t>(end_); };
    Require(builder_.SetBodyPartitionParamVideo(at(), pictureBytes_, frames, false, true));
    Put(Built([&](uint8_t** data) { return builder_.GetBodyPartitionDataVideo(data, false); },
              builder_.GetBodyPartitionSize(false, false)));
    const int64_t first = at();
    for (uint32_t i = 0; i < frames; ++i) {
        const MXFINDEXENTRYTag& entry = group.entries[i];
        Require(builder_.AddIndexEntry(entry.temporalOffset, entry.keyFrameOffset, entry.flags,
                                       pictureBytes_ + at() - first));
        PutPicture(group.pictures[i]);
        damaged += group.pictures[i].headed ? 0 : 1;
    }
    pictureBytes_ += at() - first;
    Require(builder_.SetBodyPartitionParamVideo(at(), pictureBytes_, frames, true, false));
    const uint32_t indexSize = builder_.GetBodyPartitionSize(true, false);
    Put(Built([&](uint8_t** data) { return builder_.GetBodyPartitionDataVideo(data, true); }, indexSize));
    PutANC(group, frames);
    for (uint32_t channel = 0; channel < format_.channels; ++channel)
        PutSound(static_cast<uint8_t>(channel), frames, group);
    soundBytes_ += static_cast<int64_t>(group.soundSize);
    frames_ += frames;
    return good_ ? std::optional(std::move(pieces_)) : std::nullopt;
}

void Op1bGroupBuilder::Keep(uint64_t end, const MXF_PARTITION_INFOTag& last) {
    Require(builder_.AddPartitionInfo(last));
    end_ = end;
}

template <class Get>
std::vector<uint8_t> Op1bGroupBuilder::Built(Get get, uint64_t size) {
    BuiltBytes built;
    Require(get(&built.data));
    return good_ ? std::vector<uint8_t>(built.data, built.data + size) : std::vector<uint8_t>();
}

// Bytes that stand there already stay.
void Op1bGroupBuilder::Put(std::vector<uint8_t> made, bool seal) {
    const uint64_t size = made.size();
    if ((!load_ || cursor_ == end_) && AreAlike(made, source_.Copy(cursor_, size))) return PutFrom(cursor_, size);
    PutBytes(std::move(made), false, seal);
}

void Op1bGroupBuilder::PutBytes(std::vector<uint8_t> bytes, bool old, bool seal) {
    const uint64_t size = bytes.size();
    pieces_.push_back({cursor_, size, std::move(bytes), old, seal});
    end_ += size;
    cursor_ += size;
}

void Op1bGroupBuilder::PutFrom(uint64_t from, uint64_t size) {
    if (size == 0) return;
    if (load_ && from != end_) {
        auto bytes = source_.Copy(from, size);
        good_ = good_ && bytes.size() == size;
        cursor_ = end_;
        return PutBytes(std::move(bytes), true);
    }
    if (!pieces_.empty() && pieces_.back().made.empty() && pieces_.back().from + pieces_.back().size == from) {
        pieces_.back().size += size;
    } else {
        pieces_.push_back({from, size, {}, true});
    }
    end_ += size;
    cursor_ = from + size;
}

void Op1bGroupBuilder::PutPicture(const Op1bElement& picture) {
    cursor_ = picture.start;
    if (picture.headed) {
        PutFrom(picture.start, picture.offset - picture.start);
    } else {
        std::vector<uint8_t> head(kKLVHeadSize);
        Require(builder_.GetKLData(kTrackCodePicture, static_cast<int64_t>(picture.size), head.data()));
        Put(std::move(head));
    }
    PutFrom(picture.offset, picture.size);
}

void Op1bGroupBuilder::PutANC(const Op1bContent& group, uint32_t frames) {
    const uint64_t size = builder_.GetBodyPartitionSizeANCData(frames);
    const uint64_t packSize = builder_.GetBodyPartitionSize(false, false);
    const auto at = static_cast<int64_t>(end_);
    const auto block =
        Built([&](uint8_t** data) { return builder_.GetBodyPartitionDataANCData(data, at, frames); }, size);
    if (!good_) return;
    const auto part = [&](uint64_t from, uint64_t count) {
        const auto begin = block.begin() + static_cast<std::ptrdiff_t>(from);
        return std::vector<uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(count));
    };
    Put(part(0, packSize));
    for (uint32_t i = 0; i < frames; ++i) {
        const uint64_t element = group.ancAt + uint64_t{i} * kANCElementSize;
        cursor_ = element;
        if (element + kANCElementSize <= source_.GetSize() && IsANCElement(source_.Copy(element, kANCHeadSize))) {
            PutFrom(element, kANCElementSize);
        } else {
            Put(part(packSize + uint64_t{i} * kANCElementSize, kANCElementSize));
        }
    }
    const uint64_t index = packSize + uint64_t{frames} * kANCElementSize;
    Put(part(index, size - index));
}

void Op1bGroupBuilder::PutSound(uint8_t channel, uint32_t frames, const Op1bContent& group) {
    const auto partition = [&](bool index) {
        Require(builder_.SetBodyPartitionParamAudio(static_cast<int64_t>(end_), soundBytes_, frames, channel, index,
                                                    !index));
        const uint32_t size = builder_.GetBodyPartitionSize(index, true);
        Put(Built([&](uint8_t** data) { return builder_.GetBodyPartitionDataAudio(data, index, channel); }, size));
    };
    partition(false);
    std::vector<uint8_t> head(kAudioKLSize);
    Require(builder_.GetKLData(kTrackCodeSound + channel, static_cast<int64_t>(group.soundSize), head.data()));
    Put(std::move(head), true);
    PutFrom(group.soundAt[channel], group.soundSize);
    partition(true);
}

}  // namespace kmxf
