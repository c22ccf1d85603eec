#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "OwnedPiece.h"
#include "ParameterSets.h"
#include "PictureOrder.h"
#include "SliceHeader.h"
#include "StreamBytes.h"

namespace kmxf::program {

// Edit unit flags (SMPTE ST 377-1, 11.2.3).
inline constexpr uint8_t kFlagsI = 0x80, kFlagsIWithParameterSets = 0xC0, kFlagsP = 0x22, kFlagsB = 0x33;
inline constexpr uint8_t kFlagsBCutOff = 0x3B;  // one of its references is not there

// A frame of an H.264 stream: the access unit of a frame, or the two of its fields. The values of its index entry
// (SMPTE ST 377-1, 11.2.3) are of two kinds: the temporal offset of entry k is that of the picture shown k-th, all
// others are those of the picture stored k-th.
struct AccessUnit {
    uint64_t offset = 0;  // in the stream
    PictureType type = PictureType::kI;
    bool hasParameterSets = false;
    int8_t temporalOffset = 0;  // stored position of the picture shown k-th, minus k
    int8_t keyFrameOffset = 0;  // to the I picture at or before it
    uint8_t flags = 0;
    // Its bytes: from the start code of its first NAL unit up to the next access unit.
    std::unique_ptr<OwnedPiece> piece;

    bool IsCutOff() const { return flags == kFlagsBCutOff; }
};

// Splits an Annex B byte stream into frames. It keeps the few that may be shown before the next one stored, however
// long the stream is. All functions throw Failure, with the offset, when the stream cannot be read or indexed.
class AccessUnits {
public:
    // `file` is for messages.
    AccessUnits(std::unique_ptr<StreamBytes> bytes, std::string file);

    // The frame stored first and the one shown first, before Next takes any; empty when there is no frame.
    std::span<const uint8_t> FirstStored();
    std::span<const uint8_t> FirstShown();

    // The next frame in stored order; nothing at the end.
    std::optional<AccessUnit> Next();

    // What holds no picture that can be decoded, and is in no frame: bytes in front of the first I picture that has its
    // parameter sets, and behind the last picture.
    uint64_t LeftOutInFront() const { return leftOutInFront_; }
    uint64_t LeftOutAtEnd() const { return leftOutAtEnd_; }

private:
    // The frame whose slices are being met.
    struct Frame {
        SliceHeader first;  // of its first picture
        SliceHeader last;   // the slice before
        bool twoFields = false;
        PictureType type = PictureType::kI;
        int64_t orderCount = 0;
        bool hasParameterSets = false;
    };

    [[noreturn]] void FailAt(size_t at, const std::string& what) const;
    bool FillUntilShown();
    void ReadFrame();
    void OnNal(size_t at);
    void OnSlice(size_t at, size_t start);
    void OnEnd();
    int64_t OrderCount(const SliceHeader& slice, size_t at);
    void EndFrame(size_t end);
    std::optional<size_t> NextStartCode();
    std::span<const uint8_t> NalAt(size_t at, size_t most);
    void LeaveOut(size_t count);

    std::unique_ptr<StreamBytes> bytes_;
    std::string file_;

    // Places are counted from the first byte at hand, where the frame begins.
    uint64_t position_ = 0;           // of that byte in the stream
    bool synchronized_ = false;       // it belongs to a start code
    size_t searched_ = 0;             // what was looked through
    std::optional<size_t> boundary_;  // where the next access unit begins, if the next slice is not of this one
    bool parameterSetsMet_ = false, delimiterMet_ = false;  // since the slice before
    bool ended_ = false;

    ParameterSets sets_;
    std::optional<SequenceParameterSet> format_;  // what the pictures of the first frame are
    PictureOrderCount orderCount_;
    std::optional<Frame> frame_;

    uint64_t count_ = 0;         // frames found
    uint64_t lastKeyFrame_ = 0;  // the I picture before
    int64_t firstOrderCount_ = 0;
    bool firstSequence_ = true;
    DisplayOrder order_;
    std::deque<AccessUnit> stored_;  // found and not yet given
    uint64_t given_ = 0;
    std::optional<uint64_t> nextShown_;  // the stored position of the picture shown given_-th
    uint64_t leftOutInFront_ = 0, leftOutAtEnd_ = 0;
};

}  // namespace kmxf::program
