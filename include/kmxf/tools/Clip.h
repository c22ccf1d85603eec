#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/Inspect.h"

// What a file of a recording says of itself, and the files of one recording as one thing: an OP-1b file (SMPTE ST
// 377-1), or the OP-Atom files (SMPTE ST 390) of picture and sound. Headers, footers and tables are read, essence is
// not.
namespace kmxf {

// A file cannot be read, or is none of these: what() is a line for the user, "PATH: what is wrong (offset where)".
class KMXF_API ClipError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Bytes of a file, without the one at `end`.
struct ByteRange {
    uint64_t begin = 0, end = 0;
    uint64_t Size() const { return end - begin; }
};

struct KMXF_API ClipVerdict {
    enum class Kind {
        kClosed,
        kCutOff,  // no footer where the header says, or none named
        kDamaged,
        kGrowing  // the same as cut off, while the file gets longer
    };
    Kind kind = Kind::kClosed;
    uint64_t at = 0;  // frames that are there, or the offset of the damage

    // "closed", "cut off at frame N", "damaged at offset X", "growing".
    std::string Text() const;
    bool operator==(const ClipVerdict&) const = default;
};

// The picture's codes, see VideoStandard.h.
struct ClipPictureFormat {
    uint32_t videoStd = 0, compType = 0;
    bool consumerDV = false;
};

// Bytes that the header of an OP-1b clip carries for others.
struct ClipSideData {
    ByteRange place;
    bool isPlaceholder = false;  // what a recorder writes that was given none
};

struct ClipThumbnail {
    ClipSideData picture;
    uint64_t width = 0, height = 0, format = 0;
};

// Descriptive metadata in UTF-8, project and scene number in the bytes of the file; empty where there is none.
struct ClipDescription {
    std::string jobFunction, familyName, firstGivenName, projectNumber, projectName;
    std::optional<uint64_t> takeNumber;
    std::string clipKind, sceneNumber;

    bool operator==(const ClipDescription&) const = default;
};

// Frames of an OP-1b clip whose partitions stand together: pictures and ancillary data, each with its index partition
// behind it, and the channels of sound. Places are those of whole partitions, pack included.
struct ClipGroup {
    uint64_t firstFrame = 0;
    uint32_t frames = 0;
    ByteRange pictures, pictureIndex, anc;
    std::vector<ByteRange> sound;  // one for each channel; none in a last group that was left without
    uint64_t end = 0;
};

// What one file says of itself. Of a file that is not closed, counts and sizes are those of the essence that is there.
struct KMXF_API ClipFile {
    std::string path;
    // What the files of one recording have alike: the material UMID as hex; of a file that has none yet, its folder and
    // name, that of a sound file without the two digits of its channel. The path of an OP-1b file, which stands alone.
    std::string recording;
    ClipVerdict verdict;
    bool isOp1b = false;  // everything of a clip in one file: isVideo, and sound if there are channels
    bool isVideo = false, isAudio = false;    // neither: the header does not tell any more
    std::optional<ClipPictureFormat> format;  // video
    uint64_t fileSize = 0;
    uint64_t dataOffset = 0;  // of the essence value, or of the first group; 0: it cannot be found
    int64_t dataSize = 0;     // bytes of the essence, or of the groups, that are there
    uint32_t frameSize = 0;   // video; 0: they differ
    MXFRATIONALTag frameRate;
    uint32_t rateStandard = 0;  // a standard of this frame rate, for cadences; 0: none
    int64_t duration = 0;       // video frames
    int64_t frames = 0;         // in the file: of an OP-1b clip also those in front of it and behind it
    int64_t startTimecode = 0;  // timecode frames
    uint32_t timecodeBase = 0;  // frames per second that it counts; 0: there is no timecode
    bool dropFrame = false;
    MXFUMIDTag materialUmid, fileUmid;
    std::string packageName;
    MXFTIMESTAMPTag creationDate;
    bool wide = false;
    uint32_t samplingRate = 0, bitsPerSample = 0;  // audio
    int64_t samples = 0;                           // of a channel
    uint32_t channels = 0;
    std::string company, product, productVersion;
    ClipDescription description;

    // TrackIDs of picture and sound: all that the clip has by its material package, and those whose essence this file
    // holds.
    std::vector<uint32_t> tracks, heldTracks;

    // OP-1b
    int64_t origin = 0;  // frames in front of the clip
    uint32_t partitionFrames = 0;
    std::optional<ClipSideData> xml;
    std::optional<ClipThumbnail> thumbnail;
    std::vector<ClipGroup> groups;  // the whole ones

    // Bytes of the parameter-set block in front of AVC-Intra frames; 0 for every other format.
    uint32_t LeadSize() const;
    // File offset of the first byte of a frame.
    uint64_t FrameOffset(uint64_t frame) const;
    // Audio: the first sample of a frame.
    int64_t FirstSample(uint64_t frame) const;
    // OP-1b: among the samples that a group has of a channel, those of its frames from `first` up to and without `end`.
    ByteRange SoundOf(const ClipGroup& group, const ByteRange& samplesOfGroup, uint32_t first, uint32_t end) const;
};

// Reads the header area, the footer's first bytes where the header says it is, and the random index of an OP-1b clip.
// Only an OP-1b clip that was cut off is walked through. The size of the source is asked more than once: a file without
// footer is watched for some tenths of a second. Throws ClipError when the file cannot be read, or is neither OP-Atom
// nor OP-1b; what the source throws passes through.
KMXF_API ClipFile ReadClipFile(IByteSource& source, const std::string& path);

// What the files of a clip should say alike, by the names that Clip::Disagreements uses: "material_umid",
// "package_name", "creation_date", "start_timecode", "drop_frame", "frame_rate", "duration", "company", "product",
// "product_version", "verdict", "descriptive_metadata".
KMXF_API std::span<const std::string_view> GetSharedProperties();

// The files of one recording; there is at least one.
struct KMXF_API Clip {
    std::vector<ClipFile> files;  // video first, then audio by name

    const ClipFile* Video() const;  // null when there is none
    // The shared properties that are not alike in all files.
    std::vector<std::string_view> Disagreements() const;
    // Whether the files are only put together by their names, for want of a material UMID.
    bool IsByName() const;
    // TrackIDs that a file tells of and none holds, and those that several files hold.
    std::vector<uint32_t> MissingTracks() const;
    std::vector<uint32_t> DoubleTracks() const;
};

// Opens a file to look at. Throws ClipError when it cannot be opened.
using OpenByteSource = std::function<std::unique_ptr<IByteSource>(const std::string& path)>;

// All clips that the paths name, each once, in the order of their first files: a file names the whole clip it belongs
// to, a folder every clip in it. With `only`, files name themselves. Files belong together by their material UMID and
// not by their names; OP-Atom files without one, as of a recording that was cut off, by the folder and the names
// NAME.mxf and NAMEcc.mxf.
//
// All files that are cut off are watched together. In a folder without other MXF files, those count that a writer has
// left under their working names (".NAME.mxf.part123"). Files of a folder that cannot be read are passed to `report`.
// Throws ClipError when a file that was named cannot be read, or when a folder has no other.
KMXF_API std::vector<Clip> FindClips(std::span<const std::string> paths, bool only, const OpenByteSource& open,
                                     const std::function<void(const ClipError&)>& report);

}  // namespace kmxf
