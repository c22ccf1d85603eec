#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

// What every stream and file of the library makes of its open flags and of Seek's arguments.

struct Access {
    bool writes;
    bool creates;  // and empties what is there
};

// Nothing for flags other than the three.
constexpr std::optional<Access> AccessFor(uint32_t flags) {
    switch (flags) {
        case kOpenRead:
            return Access{false, false};
        case kOpenReadWrite:
            return Access{true, false};
        case kOpenCreate:
            return Access{true, true};
        default:
            return {};
    }
}

// The position that Seek goes to; -1 for one before the start or out of range, and for an unknown origin. end() gives
// the file's size, or a negative value, and is asked only when it is needed.
template <class End>
int64_t SeekTarget(int64_t offset, int32_t origin, int64_t current, End end) {
    int64_t base = -1;
    if (origin == kSeekBegin) base = 0;
    if (origin == kSeekCurrent) base = current;
    if (origin == kSeekEnd) base = end();
    if (base < 0 || offset > std::numeric_limits<int64_t>::max() - base || base + offset < 0) return -1;
    return base + offset;
}

}  // namespace kmxf
