#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "support/Op1bClip.h"

namespace kmxf::test {

inline constexpr uint8_t kChannelCounts[] = {0, 1, 4, 8, 16};

inline std::vector<uint32_t> Op1bStandardCodes() {
    std::vector<uint32_t> codes;
    for (const Op1bStandard& standard : Op1bStandards()) codes.push_back(standard.code);
    return codes;
}

inline testing::Message Name(const Op1bClip& clip) {
    return testing::Message() << std::hex << "standard 0x" << clip.videoStd << ", type 0x" << clip.compType << std::dec
                              << ", " << clip.frames << " frames, " << int{clip.channels} << " channels of "
                              << int{clip.bytesPerSample} << " bytes, " << clip.hidden << " hidden"
                              << (clip.players ? ", players" : ", strict");
}

}  // namespace kmxf::test
