#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "ParameterSets.h"
#include "SliceHeader.h"

namespace kmxf::program {

// The picture order count (ITU-T H.264, 8.2.1) of pictures that come in the order in which they are stored.
class PictureOrderCount {
public:
    // The count of the picture, of a frame that of its earlier field. Types 0 and 2 of counting only.
    int64_t Next(const SliceHeader& slice, const SequenceParameterSet& sps);

private:
    int64_t NextOfType0(const SliceHeader& slice, const SequenceParameterSet& sps);
    int64_t NextOfType2(const SliceHeader& slice, const SequenceParameterSet& sps);

    int64_t msb_ = 0, lsb_ = 0;             // type 0: of the reference picture before
    int64_t frameNum_ = 0, frameBase_ = 0;  // type 2: of the picture before
};

// Puts frames that come in stored order into the order in which they are shown. No frame waits for more than 16 that
// are stored behind it (the most frames a decoder holds), so that little is kept of a stream of any length.
class DisplayOrder {
public:
    // The next stored frame; `first` when it is the first of a sequence: no frame before it is shown after it. False
    // when it should have been shown before one that is shown already.
    bool Add(int64_t orderCount, bool first);
    // No more frames come.
    void End();
    // The stored position of the frame that is shown next; nothing when that is not yet known.
    std::optional<uint64_t> Next();

private:
    struct Waiting {
        int64_t orderCount;
        uint64_t stored;
    };
    void Show();

    std::vector<Waiting> waiting_;  // the one to be shown first is the last
    std::deque<uint64_t> shown_;
    std::optional<int64_t> lastShown_;  // of this sequence
    uint64_t count_ = 0;
};

}  // namespace kmxf::program
