#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "kmxf/core/Records.h"
#include "reader/HeaderFields.h"

namespace kmxf {

// Bytes that the header carries for others.
struct SideData {
    size_t offset = 0;  // in the header, and so in the file
    uint32_t size = 0;
};

struct Thumbnail {
    uint8_t format = 0;
    uint16_t width = 80, height = 45;  // pixels
    SideData picture;
};

// What the header of an OP-1b clip says of it. Counts of frames, samples and bytes are never negative.
struct Op1bHeader {
    uint32_t videoStd = 0;
    uint32_t compType = 0;
    int64_t origin = 0;    // frames in front of the clip
    int64_t duration = 0;  // frames of the clip
    int64_t frames = 0;    // frames in the file
    uint32_t channels = 0;
    int64_t samples = 0;  // of one channel
    uint32_t samplingRate = 0;
    uint8_t bytesPerSample = 0;
    int64_t startTimecode = -1;  // timecode frames, -1: none
    bool drop = false;
    MXFUMIDTag materialUID;
    bool validDMS = false;
    std::optional<SideData> xml;
    std::optional<Thumbnail> thumbnail;
};

// The structural metadata, from the whole header. False, with a log record where the format is not one of ours, when
// something is missing that the clip cannot be read without.
bool GetHeaderParam(HeaderBytes header, Op1bHeader& clip);

// The private groups of descriptive metadata; a header may have none. False when one leads out of the header, or has a
// value that is none.
bool GetMetadata(HeaderBytes header, Op1bHeader& clip);

}  // namespace kmxf
