#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "InputFile.h"
#include "kmxf/tools/Clip.h"

// Where everything lies in an OP-1b clip: groups of frames, in each the partitions of pictures, ancillary data and
// sound, every one with its index partition behind it.
namespace kmxf::program {

// The group of a frame that one of them has.
const ClipGroup& GroupOf(std::span<const ClipGroup> groups, uint64_t frame);

// What a group's index says of a frame.
struct FramePlace {
    ByteRange picture;  // with the zeros that align it
    int8_t temporalOffset = 0, keyFrameOffset = 0;
    uint8_t flags = 0;
};

// The frames of a group, by its index; throws Failure when that is damaged.
std::vector<FramePlace> FramePlaces(const InputFile& file, const ClipGroup& group);

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
