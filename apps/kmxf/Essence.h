#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Formats.h"
#include "StreamBytes.h"
#include "core/Layout.h"

// Bare picture essence as a user has it: DIF frames, AVC-Intra frames with or without parameter-set blocks in front, or
// a Long-GOP stream.
namespace kmxf::program {

// What the user says of the format; what is not said is taken from the essence.
struct FormatChoice {
    std::optional<std::string> codec, raster, standard;
};

// How frames lie in a file of bare essence.
struct EssenceLayout {
    VideoFormat format;
    bool blockFirst = false;       // a parameter-set block in front of the first frame
    bool blockEveryFrame = false;  // and in front of all others
};

// Reads the layout off the first bytes. `size` is the file's size, 0 when it is not known (a pipe); `head` should hold
// two frames of the largest format, or the whole file. Throws Failure when it is no essence of a known format, or not
// the one chosen, and says what it saw.
EssenceLayout DetectEssence(std::span<const uint8_t> head, uint64_t size, const FormatChoice& choice,
                            const std::string& file);

// A file of essence ("-": standard input).
class EssenceInput {
public:
    EssenceInput(const std::string& path, const FormatChoice& choice);
    EssenceInput(const EssenceInput&) = delete;
    EssenceInput& operator=(const EssenceInput&) = delete;
    ~EssenceInput();

    const VideoFormat& Format() const { return layout_.format; }
    const std::string& Path() const { return path_; }
    uint64_t Size() const { return size_; }  // in bytes; 0: not known

    // Live essence comes from a pipe and cannot be had again.
    bool IsLive() const { return !isFile_; }

    // A Long-GOP stream from its first byte on; it ends with this object.
    std::unique_ptr<StreamBytes> Stream();

    // All else has frames of one size, which are given in order, without parameter-set blocks.
    std::optional<uint64_t> Frames() const { return frames_; }  // nothing: read to the end to know
    std::span<const uint8_t> FirstFrame() const;

    // Fills `room` with the next frame bytes; fewer only at the end, which may lie within a frame of a pipe. Throws
    // Failure when reading fails, or a file has become shorter.
    size_t Read(std::span<uint8_t> room);

private:
    size_t ReadFile(std::span<uint8_t> room);
    size_t ReadRaw(std::span<uint8_t> room);

    std::string path_;
    int descriptor_ = -1;
    std::vector<uint8_t> head_;
    size_t headTaken_ = 0;
    EssenceLayout layout_;
    std::optional<uint64_t> frames_;
    bool isFile_ = false;
    uint64_t size_ = 0;
    uint64_t position_ = 0;  // frame bytes handed out
    uint64_t offset_ = 0;    // bytes read of the file
};

}  // namespace kmxf::program
