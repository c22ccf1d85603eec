#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Partition.h"
#include "tools/Op1bScan.h"
#include "tools/SalvageInput.h"

// The parts of an OP-1b body in a file, damaged or not, told by their keys. What cannot be read is passed over, and the
// source remembers it.
namespace kmxf {

inline constexpr uint64_t kFirstGroup = 256 << 20;  // bytes in which the first group ends

// The pack of a body partition that names this place as its own.
std::optional<CPartition> BodyPackAt(SalvageInput& source, uint64_t place);

// A picture that ends in front of `limit`.
std::optional<Op1bElement> PictureAt(SalvageInput& source, uint64_t place, uint64_t limit);

// The index table segment behind such a pack.
std::optional<CIndexCommon> SegmentBehind(SalvageInput& source, const CPartition& pack);

// Where there is one that is wanted; nothing in front of `limit`: `limit`, and no pack.
struct Op1bPack {
    uint64_t place = 0;
    std::optional<CPartition> pack;
};
Op1bPack FindBodyPack(SalvageInput& source, uint64_t from, uint64_t limit,
                      const std::function<bool(const CPartition&)>& wanted);

// The next place from `from` on where a group begins: the pack of a partition of pictures, and behind it one, or what a
// cut leaves of one. There is none: the end of the file.
uint64_t FindGroup(SalvageInput& source, uint64_t from);

// Pictures as they stand behind each other. Where a head is damaged, the picture ends at the next head that is whole,
// or at the pack behind the pictures.
struct Op1bPictures {
    std::vector<Op1bElement> pictures;
    std::vector<size_t> guessed;  // which have a damaged head
    uint64_t end = 0;

    // Makes of those with damaged heads so many that there are `count` in all: how they were divided can't be told, and
    // nothing in them is whole.
    bool Divide(size_t count);
};
// No more than one beyond `most`. A picture that would be larger than any is the end.
Op1bPictures FindPictures(SalvageInput& source, uint64_t from, uint64_t limit, bool upToLimit, size_t most);

// The channels of sound and their bytes per sample by the partitions of the first group; nothing where it has no
// partitions that can be read.
struct Op1bSoundFormat {
    uint32_t channels = 0;
    uint8_t bytesPerSample = 2;
};
std::optional<Op1bSoundFormat> FindOp1bSound(SalvageInput& source);

// The pictures of the first group, one behind the other, up to `most` bytes. Empty: there are none.
std::vector<uint8_t> FirstOp1bPictures(SalvageInput& source, uint64_t most);

}  // namespace kmxf
