#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "InputFile.h"

// Where everything lies in an OP-1b clip: groups of frames, in each the partitions of pictures, ancillary data and
// sound, every one with its index partition behind it.
namespace kmxf::program {

struct ByteRange {
    uint64_t begin = 0, end = 0;  // of the file
    uint64_t Size() const { return end - begin; }
};

struct Op1bGroup {
    uint64_t firstFrame = 0;
    uint32_t frames = 0;
    // Whole partitions, pack included.
    ByteRange pictures, pictureIndex, anc;
    std::vector<ByteRange> sound;  // one for each channel; none in a last group that was left without
    uint64_t end = 0;
};

// A partition of the body.
struct Op1bPartition {
    ByteRange place;
    uint32_t bodySid = 0;   // 0: an index partition
    uint32_t pictures = 0;  // as far as they are counted
};

// The partitions of the body that the random index names, in a file that has its footer partition at `footer`; nothing
// when the index is not as it should be. `damage` comes with the place where it should begin, if it is not found at the
// end of the file, and becomes that of the wrong entry; of the first one, when all are good by themselves.
std::optional<std::vector<Op1bPartition>> ListedPartitions(const InputFile& file, uint64_t footer, uint64_t& damage);

// The partitions of the body that are whole, as far as they are found by walking through the file. Pictures are
// counted.
std::vector<Op1bPartition> WalkedPartitions(const InputFile& file);

// Sorts partitions into groups, up to the first that is out of order. Frames are not counted yet.
std::vector<Op1bGroup> GroupsOf(std::span<const Op1bPartition> partitions, uint32_t channels);

// The group of a frame that one of them has.
const Op1bGroup& GroupOf(std::span<const Op1bGroup> groups, uint64_t frame);

// What a group's index says of a frame.
struct FramePlace {
    ByteRange picture;  // with the zeros that align it
    int8_t temporalOffset = 0, keyFrameOffset = 0;
    uint8_t flags = 0;
};

// The frames of a group, by its index; throws Failure when that is damaged.
std::vector<FramePlace> FramePlaces(const InputFile& file, const Op1bGroup& group);

// The values of the elements of a partition of pictures, sound or ancillary data, as they are met one behind the other.
// Throws Failure where there is another packet than such an element or fill, or one that leads out of its partition.
class Elements {
public:
    Elements(const InputFile& file, ReadingWindow& window, const ByteRange& partition);

    // The next one; nothing at the end of the partition.
    std::optional<ByteRange> Next();

private:
    const InputFile& file_;
    ReadingWindow& window_;
    uint64_t at_, end_;
};

}  // namespace kmxf::program
