#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/IndexCommon.h"

namespace kmxf {

struct Op1bElement {
    uint64_t start = 0;             // file offset of its key
    uint64_t offset = 0, size = 0;  // of the value
};

// One group of frames in the body of an OP-1b clip, with the ANC elements, the sound and the index that go with them.
// Of the last one of a recording that was cut off it has what is there.
struct Op1bGroup {
    uint64_t end = 0;  // file offset behind it
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
// random index. No step leads out of the file.
class Op1bScan {
public:
    // The body begins at `start`, and the file has `fileSize` bytes. The allocator is that of the stream.
    Op1bScan(IStreamFileIO& stream, PieceAllocator& allocator, uint64_t start, uint64_t fileSize, uint32_t channels)
        : stream_(stream), allocator_(allocator), position_(start), fileSize_(fileSize), channels_(channels) {}

    enum class Found {
        kGroup,
        kEnd,            // what follows is no group, or not a whole one
        kTooManyFrames,  // more than any group has
        kReadError       // the end is not known
    };
    Found Next(Op1bGroup& group);

private:
    std::vector<uint8_t> Read(uint64_t most);
    bool StepOver(uint64_t count);
    // Each steps over what it names; false when that is not there, or not whole.
    // Of an element that is not whole it tells what there is.
    bool TakeElement(const MXFKEYTag& key, Op1bElement& element);
    bool TakePack(uint32_t bodySID, Op1bGroup& group, int64_t& indexByteCount);
    bool TakeBody(uint32_t bodySID, Op1bGroup& group);
    bool TakeIndex(Op1bGroup& group);
    bool TakePictures(Op1bGroup& group);
    bool TakeANC(Op1bGroup& group);
    bool TakeSound(Op1bGroup& group);

    IStreamFileIO& stream_;
    PieceAllocator& allocator_;
    uint64_t position_;
    uint64_t fileSize_;
    uint32_t channels_;
    bool tooManyFrames_ = false;
    bool readFailed_ = false;
};

}  // namespace kmxf
