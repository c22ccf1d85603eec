#include "tools/Op1bScan.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/StreamRead.h"

namespace kmxf {

namespace {

constexpr uint32_t kMostFrames = 120;  // of a group

constexpr uint32_t kMostPack = 1024;  // of a partition pack that is looked at

// Whether a segment has one entry for each picture, with the place at which it is.
bool TellsPlaces(const CIndexCommon& segment, const std::vector<Op1bElement>& pictures) {
    MXFINDEXENTRYTag first, entry;
    if (segment.GetIndexEntryNum() != pictures.size() || segment.GetIndexEntry(0, &first) != kStatusOk) return false;
    for (uint32_t i = 0; i < pictures.size(); ++i) {
        segment.GetIndexEntry(i, &entry);
        if (entry.streamOffset - first.streamOffset != pictures[i].start - pictures.front().start) return false;
    }
    return true;
}

}  // namespace

Op1bScan::Found Op1bScan::Next(Op1bGroup& group) {
    group = Op1bGroup();
    group.start = position_;
    agrees_ = true;
    const bool whole = TakePictures(group) && TakeANC(group) && TakeSound(group) && agrees_;
    group.end = position_;
    if (readFailed_) return Found::kReadError;
    if (tooManyFrames_) return Found::kTooManyFrames;
    return whole ? Found::kGroup : Found::kEnd;
}

// What is there from the position on, and no more than asked for.
std::vector<uint8_t> Op1bScan::Read(uint64_t most) {
    const auto count = static_cast<uint32_t>(std::min(most, fileSize_ - position_));
    if (count == 0 || readFailed_) return {};
    const OwnedPiece piece(allocator_, count);
    if (!piece) throw std::bad_alloc();
    readFailed_ = !ReadWholeAt(stream_, position_, piece);
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
    const auto head = ReadKLVHead(Read(kMostKLVHead));
    if (!head || head->key != key) return false;
    const uint64_t start = position_, value = start + head->size;
    if (!StepOver(head->size)) return false;
    element = {start, value, std::min(head->length, fileSize_ - value)};
    if (StepOver(head->length)) return true;
    position_ = start;
    return false;
}

std::optional<CPartition> Op1bScan::ReadPack(uint32_t bodySID) {
    const auto head = ReadKLVHead(Read(kMostKLVHead));
    if (!head || head->length > kMostPack) return std::nullopt;
    const auto bytes = Read(head->size + head->length);  // no more: what is behind it may be unreadable
    CPartition pack;
    if (pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) return std::nullopt;
    const bool wanted = pack.GetKey().bytes[kPackKindByte] == kBodyPack && pack.GetBodySID() == bodySID;
    return wanted ? std::optional(std::move(pack)) : std::nullopt;
}

bool Op1bScan::TakePack(uint32_t bodySID, Op1bGroup& group, int64_t& indexByteCount) {
    const auto pack = ReadPack(bodySID);
    if (!pack) return false;
    group.partitions.push_back({position_, bodySID});
    indexByteCount = pack->GetIndexByteCount();
    const uint32_t labels = sound_.channels > 0 ? 3 : 2;  // of the essence containers
    agrees_ = agrees_ && pack->GetLength() == kKLVHeadSize + kPackFieldsSize + labels * sizeof(MXFKEYTag);
    return StepOver(pack->GetLength());
}

bool Op1bScan::TakeBody(uint32_t bodySID, Op1bGroup& group) {
    int64_t noIndex = 0;
    return TakePack(bodySID, group, noIndex);
}

bool Op1bScan::TakeIndex(uint32_t bodySID, Op1bGroup& group) {
    const uint64_t start = position_;
    int64_t count = 0;
    if (!TakePack(0, group, count) || count < 0) return false;
    // Behind the segment the count may take in a fill item.
    const auto bytes = Read(std::min<uint64_t>(static_cast<uint64_t>(count), kMostSegment));
    CIndexCommon segment(0, 0, 0, 0);
    if (segment.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) return false;
    group.index.push_back(segment);
    if (!StepOver(static_cast<uint64_t>(count))) return false;
    const auto units = [&](int64_t frames) { return bodySID < kFirstSoundSID ? frames : Samples(frames); };
    agrees_ = agrees_ && segment.GetBodySID() == bodySID && segment.GetDuration() == units(group.frames) &&
              segment.GetStartPosition() == units(group.index.front().GetStartPosition());
    // A fill item that is not counted brings the rest to a multiple of 4.
    const uint64_t rest = (position_ - start) % 4;
    return rest == 0 || StepOver(kKLVHeadSize + 4 - rest);
}

int64_t Op1bScan::Samples(int64_t frames) const {
    return DurationToAudioSample(sound_.videoStd, frames, kOp1bSamplesPerSec);
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
    if (group.frames == 0 || !TakeIndex(kPictureSID, group)) return false;
    agrees_ = agrees_ && TellsPlaces(group.index.front(), group.pictures);
    return true;
}

bool Op1bScan::TakeANC(Op1bGroup& group) {
    return TakeBody(kANCSID, group) && StepOver(uint64_t{kANCElementSize} * group.frames) && TakeIndex(kANCSID, group);
}

bool Op1bScan::TakeSound(Op1bGroup& group) {
    const auto size = static_cast<uint64_t>(Samples(group.frames) * sound_.bytesPerSample);
    for (uint32_t sid = kFirstSoundSID; sid < kFirstSoundSID + sound_.channels; ++sid) {
        if (!TakeBody(sid, group)) return false;
        Op1bElement samples;
        const bool whole = TakeElement(kPCMBlockElementKey, samples);
        agrees_ = agrees_ && whole && samples.size == size;
        group.sounds.push_back(samples);
        // Behind one that is cut off there is no index; one that is missing may have it.
        if (!TakeIndex(sid, group)) return false;
    }
    return true;
}

}  // namespace kmxf
