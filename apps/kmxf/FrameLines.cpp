#include "FrameLines.h"

#include <algorithm>
#include <utility>

#include "Program.h"
#include "Text.h"
#include "collaborators/SEI.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

// What is looked at of a frame: its first DIF sequence, or the area of its first SEI messages.
constexpr size_t kDIFSequenceSize = 12000;

constexpr size_t kElementHeadLook = 256;  // the start of a sound partition: its pack, and the head of its element
constexpr size_t kANCLook = 1 << 16;

std::string TimecodeText(const ClipPictureFormat& format, const uint8_t* packed) {
    CTimecode timecode;
    timecode.SetVideoStd(format.videoStd);
    return timecode.SetData(packed) == 0 ? timecode.GetText() : "";
}

}  // namespace

FrameLines::FrameLines(const FileInfo& info) : info_(info), file_(info.path) {}

FrameLine FrameLines::Line(uint64_t frame) {
    FrameLine line;
    line.number = frame;
    if (info_.isOp1b) {
        AddEntry(line);
    } else if (info_.isVideo) {
        line.place = {info_.FrameOffset(frame), info_.frameSize};
    } else {
        const uint64_t bytesPerSample = info_.bitsPerSample / 8;
        const auto first = static_cast<uint64_t>(info_.FirstSample(frame));
        line.place.offset = info_.dataOffset + first * bytesPerSample;
        line.place.size = (static_cast<uint64_t>(info_.FirstSample(frame + 1)) - first) * bytesPerSample;
    }
    if (info_.isVideo) ReadMarks(line);
    return line;
}

void FrameLines::LoadGroup(const ClipGroup& group) {
    places_ = FramePlaces(file_, group);
    sound_.clear();
    for (const ByteRange& partition : group.sound) {
        ReadingWindow window(file_, kElementHeadLook);
        sound_.push_back(Elements(file_, window, partition).Next().value_or(ByteRange{partition.end, partition.end}));
    }
    anc_.clear();
    ReadingWindow window(file_, kANCLook);
    Elements elements(file_, window, group.anc);
    while (anc_.size() < group.frames) {
        const auto element = elements.Next();
        if (!element) break;
        anc_.push_back(*element);
    }
    group_ = &group;
}

void FrameLines::AddEntry(FrameLine& line) {
    const bool first = group_ == nullptr;
    const ClipGroup& group = GroupOf(info_.groups, line.number);
    if (group_ != &group) LoadGroup(group);
    const auto position = static_cast<uint32_t>(line.number - group.firstFrame);
    const FramePlace& place = places_[position];
    line.place = {place.picture.begin, place.picture.Size()};
    FrameLine::Entry entry;
    entry.temporalOffset = place.temporalOffset;
    entry.keyFrameOffset = place.keyFrameOffset;
    entry.flags = place.flags;
    for (const ByteRange& sound : sound_) {
        const ByteRange own = info_.SoundOf(group, sound, position, position + 1);
        entry.audio.push_back({own.begin, own.Size()});
    }
    if (position < anc_.size()) entry.anc = {anc_[position].begin, anc_[position].Size()};
    line.entry = std::move(entry);
    if (first) LookAtKeyPicture(line.number);
}

// The parameter set by which the timecode of pictures is read may stand in the key picture only.
void FrameLines::LookAtKeyPicture(uint64_t frame) {
    const auto key =
        static_cast<uint64_t>(static_cast<int64_t>(frame) + places_[frame - group_->firstFrame].keyFrameOffset);
    if (key >= frame) return;
    const ClipGroup& group = GroupOf(info_.groups, key);
    const auto places = &group == group_ ? places_ : FramePlaces(file_, group);
    const ByteRange& picture = places[static_cast<size_t>(key - group.firstFrame)].picture;
    const auto start = Start({picture.begin, picture.Size()});
    sei_.SetSEIData(start.data(), static_cast<uint32_t>(start.size()), false);
}

std::span<const uint8_t> FrameLines::Start(const FrameLine::Place& picture) {
    const size_t most = info_.isOp1b || IsAVCI(info_.format->compType) ? kSEIAreaSize : kDIFSequenceSize;
    look_.resize(static_cast<size_t>(std::min<uint64_t>(most, picture.size)));
    file_.Read(picture.offset, look_);
    return look_;
}

void FrameLines::ReadMarks(FrameLine& line) {
    uint8_t timecode[4], userBits[4];
    bool hasTimecode = false, hasUserBits = false;
    const auto start = Start(line.place);
    const auto size = static_cast<uint32_t>(start.size());
    if (info_.isOp1b) {
        sei_.SetSEIData(start.data(), size, false);
        hasTimecode = sei_.GetTimecode(timecode, SEI_DATA_TYPE1) == 0;
        hasUserBits = sei_.GetUsersBit(userBits, SEI_DATA_TYPE1) == 0;
    } else if (IsAVCI(info_.format->compType)) {
        CAVCIFrame picture;
        if (picture.SetFrameData(start.data(), size) != 0) return;
        hasTimecode = picture.GetTimecode(timecode, SEI_DATA_TYPE1) == 0;
        hasUserBits = picture.GetUsersBit(userBits, SEI_DATA_TYPE1) == 0;
    } else {
        CDIFFrame picture;
        if (picture.SetDIFData(start.data(), size) != 0) return;
        hasTimecode = picture.GetTimecode(timecode, 1) == 0;
        hasUserBits = picture.GetUsersBit(userBits, SEI_DATA_TYPE1, 1) == 0;
    }
    if (hasTimecode) line.timecode = TimecodeText(*info_.format, timecode);
    if (hasUserBits) line.userBits = Hex(userBits, sizeof userBits);
}

}  // namespace kmxf::program
