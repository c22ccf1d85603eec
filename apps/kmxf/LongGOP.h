#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Formats.h"

namespace kmxf::program {

// What essence can be.
struct Candidates {
    std::vector<VideoFormat> formats;
    std::optional<VideoFormat> preferred;  // when the essence itself settles it
};

// The Long-GOP formats that a stream of H.264 can be of, by what its parameter sets say of size, frame rate and bit
// rate. `head` are its first bytes; what is no part of the stream may stand in front. Empty when it is no such stream.
//
// The bit rate is that of the HRD parameters, otherwise what the head takes; the class nearest to it is taken. With a
// codec named by the user, that is the class, whatever the stream says.
Candidates FindLongGOPFormats(std::span<const uint8_t> head, const std::optional<std::string>& codec);

}  // namespace kmxf::program
