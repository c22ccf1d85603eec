#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/ClipHeader.h"

// The body of an OP-1b clip: its partitions, sorted into groups of frames.
namespace kmxf {

// A partition of the body.
struct ClipPartition {
    ByteRange place;
    uint32_t bodySid = 0;   // 0: an index partition
    uint32_t pictures = 0;  // as far as they are counted
};

// The partitions of the body that the random index names, in a file that has its footer partition at `footer`; nothing
// when the index is not as it should be. `damage` comes with the place where it should begin, if it is not found at the
// end of the file, and becomes that of the wrong entry; of the first one, when all are good by themselves.
std::optional<std::vector<ClipPartition>> ListedPartitions(const ClipSource& source, uint64_t footer, uint64_t& damage);

// The partitions of the body that are whole, as far as they are found by walking through the file. Pictures are
// counted.
std::vector<ClipPartition> WalkedPartitions(IByteSource& source);

// Sorts partitions into groups, up to the first that is out of order. Frames are not counted yet.
std::vector<ClipGroup> GroupsOf(std::span<const ClipPartition> partitions, uint32_t channels);

}  // namespace kmxf
