#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "collaborators/Guards.h"
#include "core/Layout.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Partition.h"

namespace kmxf {

inline constexpr uint32_t kMostSegment = 131072;    // an index table segment has two arrays of up to 65535 bytes
inline constexpr uint64_t kMostPicture = 0xFFFFFF;  // the writers' length of 3 bytes tells no more

struct Op1bElement {
    uint64_t start = 0;             // file offset of its key
    uint64_t offset = 0, size = 0;  // of the value
    bool headed = true;             // its key and length stand there, and say so
};

// The sound that belongs to every group of a clip.
struct Op1bSound {
    uint32_t videoStd = 0;
    uint32_t channels = 0;
    uint8_t bytesPerSample = 0;
};

// One group of frames in the body of an OP-1b clip, with the ANC elements, the sound and the index that go with them.
// Of one that is not whole it has what is there, whether the rest agrees with it or not.
struct Op1bGroup {
    uint64_t start = 0, end = 0;  // file offsets of it and behind it
    uint32_t frames = 0;
    uint64_t pictureSize = 0;     // bytes of all pictures, without their keys and lengths
    uint64_t firstPictureAt = 0;  // file offset
    uint64_t firstPictureSize = 0;
    std::vector<MXF_PARTITION_INFOTag> partitions;  // in the order of the file
    std::vector<CIndexCommon> index;                // likewise; that of the pictures comes first
    std::vector<Op1bElement> pictures;              // whole ones
    std::vector<Op1bElement> sounds;                // of the channels; the last may be cut off
};

// Walks over the body of a clip from group to group, by keys and lengths alone: a recording that was cut off has no
// random index. No step leads out of the file. A group is whole when its index segments cover its frames, those of the
// pictures place by place, every channel has its element with the samples of these frames, and its packs are as long as
// those of a clip with such sound.
//
// Memory that runs out is std::bad_alloc.
class Op1bScan {
public:
    // The body begins at `start`, and the file has `fileSize` bytes. The allocator is that of the stream.
    Op1bScan(IStreamFileIO& stream, PieceAllocator& allocator, uint64_t start, uint64_t fileSize,
             const Op1bSound& sound)
        : stream_(stream), allocator_(allocator), position_(start), fileSize_(fileSize), sound_(sound) {}

    enum class Found {
        kGroup,
        kEnd,            // what follows is no group, or not a whole one
        kTooManyFrames,  // more than any group has
        kReadError       // not a whole one, as far as it can be read
    };
    Found Next(Op1bGroup& group);
    // Whether one more channel than the clip should have stands behind the group.
    bool HasMoreSound() { return ReadPack(kFirstSoundSID + sound_.channels).has_value(); }

private:
    std::vector<uint8_t> Read(uint64_t most);
    bool StepOver(uint64_t count);
    // The body partition pack at the position, when it has this BodySID.
    std::optional<CPartition> ReadPack(uint32_t bodySID);
    // Each steps over what it names; false when that is not there, or not whole.
    // Of an element that is not whole it tells what there is.
    bool TakeElement(const MXFKEYTag& key, Op1bElement& element);
    bool TakePack(uint32_t bodySID, Op1bGroup& group, int64_t& indexByteCount);
    bool TakeBody(uint32_t bodySID, Op1bGroup& group);
    bool TakeIndex(uint32_t bodySID, Op1bGroup& group);
    bool TakePictures(Op1bGroup& group);
    bool TakeANC(Op1bGroup& group);
    bool TakeSound(Op1bGroup& group);
    int64_t Samples(int64_t frames) const;

    IStreamFileIO& stream_;
    PieceAllocator& allocator_;
    uint64_t position_;
    uint64_t fileSize_;
    Op1bSound sound_;
    bool agrees_ = true;  // index and sound of the group, with its frames
    bool tooManyFrames_ = false;
    bool readFailed_ = false;
};

}  // namespace kmxf
