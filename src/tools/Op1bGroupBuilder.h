#pragma once

#include <cstdint>
#include <new>
#include <optional>
#include <vector>

#include "kmxf/core/Records.h"
#include "kmxf/core/Status.h"
#include "kmxf/writer/Op1bBase.h"
#include "tools/Op1bScan.h"
#include "tools/SalvageInput.h"

namespace kmxf {

// The format of an OP-1b clip.
struct Op1bFormat {
    uint32_t videoStd = 0, compType = 0;
    uint8_t bytesPerSample = 2;
    uint32_t channels = 0;
    bool playerLayout = false;
};

// A part of a body: bytes of the old file, or bytes that are made.
struct Op1bPiece {
    uint64_t from = 0, size = 0;  // in the old file
    std::vector<uint8_t> made;    // empty: they are in the old file
    bool old = false;             // they are, or were, in the old file
    bool seal = false;            // made, and tells what follows: to be written when that stands
};

// A group of frames by the places of its essence in the old file, and what its index says.
struct Op1bContent {
    uint64_t start = 0;                     // of the group
    std::vector<Op1bElement> pictures;      // with the places of their heads
    std::vector<MXFINDEXENTRYTag> entries;  // their stream offsets are not looked at
    uint64_t ancAt = 0;                     // of the ANC elements
    std::vector<uint64_t> soundAt;          // of the samples of each channel
    uint64_t soundSize = 0;
};

// How large the parts of a group are behind its pictures.
struct Op1bGroupSizes {
    uint64_t pack = 0;          // of any partition
    uint64_t pictureIndex = 0;  // index partition
    uint64_t anc = 0;           // both partitions
    uint64_t soundHead = 0;     // what is in front of the samples of a channel
    uint64_t soundIndex = 0;
    uint64_t sound = 0;  // the samples of a channel

    uint64_t Anc() const { return pictureIndex + pack; }
    // From the end of the pictures to the samples of a channel.
    uint64_t Sound(uint32_t channel) const {
        return pictureIndex + anc + channel * (soundHead + sound + soundIndex) + soundHead;
    }
    uint64_t All(uint32_t channels) const { return pictureIndex + anc + channels * (soundHead + sound + soundIndex); }
};
Op1bGroupSizes SizesOf(const Op1bFormat& format, uint32_t frames, uint64_t sound);

// Sets groups one behind the other as the writer of the clip did: the builder makes the packs, heads and tables that
// belong to a place, and what stands there already is left as it is.
class Op1bGroupBuilder {
public:
    // `source` and `format` must outlive the builder. The first group is to stand at `start`.
    Op1bGroupBuilder(const Op1bFormat& format, SalvageInput& source, uint64_t start);

    int64_t Frames() const { return frames_; }
    uint64_t End() const { return end_; }

    // Whether nothing went wrong that concerns more than one group.
    bool IsGood() const { return good_; }
    // The pieces of the next group; nothing when it is none that a clip has, which leaves the others alone. `damaged`
    // counts pictures whose head had to be made. With `load` what is kept and does not stay at its place is taken into
    // memory.
    std::optional<std::vector<Op1bPiece>> Add(const Op1bContent& group, bool load, int64_t& damaged);
    // Instead of the pieces that Add gave last: the group stays as it is up to `end`, and `last` is its last partition.
    void Keep(uint64_t end, const MXF_PARTITION_INFOTag& last);

private:
    void Require(int32_t status) {
        if (status == kStatusNoMemory) throw std::bad_alloc();
        good_ = good_ && status == kStatusOk;
    }
    template <class Get>
    std::vector<uint8_t> Built(Get get, uint64_t size);
    void Put(std::vector<uint8_t> made, bool seal = false);
    void PutBytes(std::vector<uint8_t> bytes, bool old, bool seal = false);
    void PutFrom(uint64_t from, uint64_t size);
    void PutPicture(const Op1bElement& picture);
    void PutANC(const Op1bContent& group, uint32_t frames);
    void PutSound(uint8_t channel, uint32_t frames, const Op1bContent& group);

    const Op1bFormat& format_;
    SalvageInput& source_;
    COp1bBase builder_;
    bool good_ = false, load_ = false;
    int64_t frames_ = 0, pictureBytes_ = 0, soundBytes_ = 0;
    uint64_t end_;         // of what is put, in the new file
    uint64_t cursor_ = 0;  // where it is, or would be, in the old one
    std::vector<Op1bPiece> pieces_;
};

}  // namespace kmxf
