#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kmxf/core/Records.h"

// The three words that name a format (codec, raster, standard) and the codes behind them.
namespace kmxf::program {

struct VideoFormat {
    uint32_t videoStd = 0;
    uint32_t compType = 0;
    bool consumerDV = false;

    bool operator==(const VideoFormat&) const = default;
    uint32_t FrameSize() const;  // 0: pictures differ in size
    bool IsAVCIntra() const;
    bool IsLongGOP() const;
    std::string Codec() const;
    std::string Raster() const;
    std::string Standard() const;
    std::string Text() const;  // "avci100 1080 59.94i"
};

// Every combination that has a frame size.
const std::vector<VideoFormat>& AllVideoFormats();
// Every combination of AVC Long-GOP.
const std::vector<VideoFormat>& AllLongGOPFormats();

std::optional<uint32_t> StandardFromName(const std::string& name);
std::string StandardName(uint32_t videoStd);
std::vector<std::string> CodecNames();
std::vector<std::string> StandardNames();

}  // namespace kmxf::program
