#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "Formats.h"
#include "kmxf/core/Records.h"

// What one MXF file says of itself, read from its header area and a look at its footer.
namespace kmxf::program {

struct Verdict {
    enum class Kind { kClosed, kCutOff, kDamaged, kGrowing };
    Kind kind = Kind::kClosed;
    uint64_t at = 0;  // frame or offset
    std::string Text() const;
};

struct FileInfo {
    std::string path;
    Verdict verdict;
    bool isVideo = false, isAudio = false;  // neither: the header does not tell any more
    std::optional<VideoFormat> format;      // video
    uint64_t fileSize = 0;
    uint32_t dataOffset = 0;  // of the essence value
    int64_t dataSize = 0;     // bytes of the essence that is there
    uint32_t frameSize = 0;   // video
    MXFRATIONALTag frameRate;
    uint32_t rateStandard = 0;  // a standard of this frame rate, for cadences; 0: none
    int64_t duration = 0;       // video frames
    int64_t startTimecode = 0;  // timecode frames
    uint32_t timecodeBase = 0;
    bool dropFrame = false;
    MXFUMIDTag materialUmid, fileUmid;
    std::string packageName;
    MXFTIMESTAMPTag creationDate;
    bool wide = false;
    uint32_t samplingRate = 0, bitsPerSample = 0;  // audio
    int64_t samples = 0;
    std::string company, product, productVersion;
    nlohmann::ordered_json descriptiveMetadata;  // absent values are left out

    std::string StartTimecodeText() const;
    // File offset of the first byte of a frame; AVC-Intra frames come behind a parameter-set block.
    uint64_t FrameOffset(uint64_t frame) const;
    // Audio: the first sample of a frame.
    int64_t FirstSample(uint64_t frame) const;
    nlohmann::ordered_json Json() const;
};

// Reads the header area, and the footer's first bytes where the header says it is. Throws Failure when the file cannot
// be read or is no OP-Atom file.
FileInfo ReadFileInfo(const std::string& path);

// The material UMID of an MXF file; nothing when the file is not one, or not readable.
std::optional<MXFUMIDTag> ReadMaterialUmid(const std::string& path);

}  // namespace kmxf::program
