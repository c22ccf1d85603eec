#include "tools/Op1bScan.h"

#include <algorithm>
#include <utility>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/Partition.h"
#include "reader/StreamRead.h"

namespace kmxf {

namespace {

constexpr uint32_t kPictureSID = 1, kANCSID = 2, kFirstSoundSID = 3;
constexpr uint32_t kANCElementSize = 512;
constexpr uint32_t kMostFrames = 120;  // of a group

constexpr uint32_t kMostHead = 25;         // of a KLV packet: key, and a length of 8 bytes
constexpr uint32_t kMostPack = 1024;       // of a partition pack that is looked at
constexpr uint32_t kMostSegment = 131072;  // an index table segment has two arrays of up to 65535 bytes

constexpr size_t kPackKind = 13;  // in the key of a partition pack
constexpr uint8_t kBodyPack = 3;

}  // namespace

Op1bScan::Found Op1bScan::Next(Op1bGroup& group) {
    group = Op1bGroup();
    const bool whole = TakePictures(group) && TakeIndex(group) && TakeANC(group) && TakeSound(group);
    if (readFailed_) return Found::kReadError;
    if (tooManyFrames_) return Found::kTooManyFrames;
    group.end = position_;
    return whole ? Found::kGroup : Found::kEnd;
}

// What is there from the position on, and no more than asked for.
std::vector<uint8_t> Op1bScan::Read(uint64_t most) {
    const auto count = static_cast<uint32_t>(std::min(most, fileSize_ - position_));
    if (count == 0 || readFailed_) return {};
    const OwnedPiece piece(allocator_, count);
    readFailed_ = !piece || !ReadWholeAt(stream_, position_, piece);
    if (readFailed_) return {};
    const auto bytes = piece.Bytes();
    return {bytes.begin(), bytes.end()};
}

bool Op1bScan::StepOver(uint64_t count) {
    if (count > fileSize_ - position_) return false;
    position_ += count;
    return true;
}

bool Op1bScan::TakeElement(const MXFKEYTag& key, Op1bElement& element) {
    const auto head = ReadKLVHead(Read(kMostHead));
    if (!head || head->key != key) return false;
    const uint64_t start = position_, value = start + head->size;
    if (!StepOver(head->size)) return false;
    element = {start, value, std::min(head->length, fileSize_ - value)};
    if (StepOver(head->length)) return true;
    position_ = start;
    return false;
}

bool Op1bScan::TakePack(uint32_t bodySID, Op1bGroup& group, int64_t& indexByteCount) {
    const auto bytes = Read(kMostPack);
    const auto head = ReadKLVHead(bytes);
    CPartition pack;
    if (!head || pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) return false;
    if (pack.GetKey().bytes[kPackKind] != kBodyPack || pack.GetBodySID() != bodySID) return false;
    group.partitions.push_back({position_, bodySID});
    indexByteCount = pack.GetIndexByteCount();
    return StepOver(head->size) && StepOver(head->length);
}

bool Op1bScan::TakeBody(uint32_t bodySID, Op1bGroup& group) {
    int64_t noIndex = 0;
    return TakePack(bodySID, group, noIndex);
}

bool Op1bScan::TakeIndex(Op1bGroup& group) {
    const uint64_t start = position_;
    int64_t count = 0;
    if (!TakePack(0, group, count) || count < 0) return false;
    // Behind the segment the count may take in a fill item.
    const auto bytes = Read(std::min<uint64_t>(static_cast<uint64_t>(count), kMostSegment));
    CIndexCommon segment(0, 0, 0, 0);
    if (segment.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) return false;
    group.index.push_back(std::move(segment));
    if (!StepOver(static_cast<uint64_t>(count))) return false;
    // A fill item that is not counted brings the rest to a multiple of 4.
    const uint64_t rest = (position_ - start) % 4;
    return rest == 0 || StepOver(kKLVHeadSize + 4 - rest);
}

bool Op1bScan::TakePictures(Op1bGroup& group) {
    if (!TakeBody(kPictureSID, group)) return false;
    for (Op1bElement picture; TakeElement(kAVCLongGOPElementKey, picture); ++group.frames) {
        tooManyFrames_ = group.frames == kMostFrames;
        if (tooManyFrames_) return false;
        if (group.frames == 0) {
            group.firstPictureAt = picture.offset;
            group.firstPictureSize = picture.size;
        }
        group.pictureSize += picture.size;
        group.pictures.push_back(picture);
    }
    return group.frames > 0;
}

bool Op1bScan::TakeANC(Op1bGroup& group) {
    return TakeBody(kANCSID, group) && StepOver(uint64_t{kANCElementSize} * group.frames) && TakeIndex(group);
}

bool Op1bScan::TakeSound(Op1bGroup& group) {
    for (uint32_t channel = 0; channel < channels_; ++channel) {
        if (!TakeBody(kFirstSoundSID + channel, group)) return false;
        // Without its element, or with one that is not whole, there is no index pack at the position.
        Op1bElement samples;
        TakeElement(kPCMBlockElementKey, samples);
        group.sounds.push_back(samples);
        if (!TakeIndex(group)) return false;
    }
    return true;
}

}  // namespace kmxf
