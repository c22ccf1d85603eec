#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Formats.h"
#include "Op1bGroups.h"
#include "kmxf/core/Records.h"

// What one MXF file says of itself, read from its header area and a look at its footer.
namespace kmxf::program {

struct Verdict {
    enum class Kind { kClosed, kCutOff, kDamaged, kGrowing };
    Kind kind = Kind::kClosed;
    uint64_t at = 0;  // frame or offset
    std::string Text() const;
};

// Bytes that the header of an OP-1b clip carries for others.
struct SideData {
    ByteRange place;
    bool isPlaceholder = false;  // what a recorder writes that was given none
};

struct Thumbnail {
    SideData picture;
    uint64_t width = 0, height = 0, format = 0;
};

struct FileInfo {
    std::string path;
    Verdict verdict;
    bool isOp1b = false;  // everything of a clip in one file: isVideo, and sound if there are channels
    bool isVideo = false, isAudio = false;  // neither: the header does not tell any more
    std::optional<VideoFormat> format;      // video
    uint64_t fileSize = 0;
    uint32_t dataOffset = 0;  // of the essence value, or of the first group; 0: it cannot be found
    int64_t dataSize = 0;     // bytes of the essence, or of the groups, that are there
    uint32_t frameSize = 0;   // video; 0: they differ
    MXFRATIONALTag frameRate;
    uint32_t rateStandard = 0;  // a standard of this frame rate, for cadences; 0: none
    int64_t duration = 0;       // video frames
    int64_t frames = 0;         // in the file: of an OP-1b clip also those in front of it and behind it
    int64_t startTimecode = 0;  // timecode frames
    uint32_t timecodeBase = 0;
    bool dropFrame = false;
    MXFUMIDTag materialUmid, fileUmid;
    std::string packageName;
    MXFTIMESTAMPTag creationDate;
    bool wide = false;
    uint32_t samplingRate = 0, bitsPerSample = 0;  // audio
    int64_t samples = 0;                           // of a channel
    uint32_t channels = 0;
    std::string company, product, productVersion;
    nlohmann::ordered_json descriptiveMetadata;  // absent values are left out

    // OP-1b
    int64_t origin = 0;  // frames in front of the clip
    uint32_t partitionFrames = 0;
    std::optional<SideData> xml;
    std::optional<Thumbnail> thumbnail;
    std::vector<Op1bGroup> groups;  // the whole ones

    std::string StartTimecodeText() const;
    // File offset of the first byte of a frame; AVC-Intra frames come behind a parameter-set block.
    uint64_t FrameOffset(uint64_t frame) const;
    // Audio: the first sample of a frame.
    int64_t FirstSample(uint64_t frame) const;
    // OP-1b: among the samples that a group has of a channel, those of its frames from `first` up to and without `end`.
    ByteRange SoundOf(const Op1bGroup& group, const ByteRange& samplesOfGroup, uint32_t first, uint32_t end) const;
    nlohmann::ordered_json Json() const;
};

// Reads the header area, the footer's first bytes where the header says it is, and the random index of an OP-1b clip.
// Only an OP-1b clip that was cut off is walked through. Throws Failure when the file cannot be read, or is neither
// OP-Atom nor OP-1b.
FileInfo ReadFileInfo(const std::string& path);

// The material UMID by which an OP-Atom file belongs to others; nothing for any other file, and when it is not
// readable.
std::optional<MXFUMIDTag> ReadMaterialUmid(const std::string& path);

}  // namespace kmxf::program
