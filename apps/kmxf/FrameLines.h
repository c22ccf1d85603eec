#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FileInfo.h"
#include "InputFile.h"
#include "Op1bGroups.h"
#include "kmxf/collaborators/VideoFrame.h"

namespace kmxf::program {

// What there is to tell of a frame.
struct FrameLine {
    struct Place {
        uint64_t offset = 0, size = 0;
    };
    // Of a clip's frame: its index entry, and what belongs to it besides the picture.
    struct Entry {
        int8_t temporalOffset = 0, keyFrameOffset = 0;
        uint8_t flags = 0;
        std::vector<Place> audio;  // for each channel; none where the sound of its group is missing
        std::optional<Place> anc;
    };

    uint64_t number = 0;
    Place place;
    std::string timecode, userBits;  // empty: the frame carries none
    std::optional<Entry> entry;
};

// Tells of the frames of a file, best of one behind the other. Of pictures it reads what may hold their timecode only.
class FrameLines {
public:
    explicit FrameLines(const FileInfo& info);

    // `frame` is below info.frames. Throws Failure.
    FrameLine Line(uint64_t frame);

private:
    void AddEntry(FrameLine& line);
    void LoadGroup(const ClipGroup& group);
    void LookAtKeyPicture(uint64_t frame);
    void ReadMarks(FrameLine& line);
    std::span<const uint8_t> Start(const FrameLine::Place& picture);

    const FileInfo& info_;
    InputFile file_;
    std::vector<uint8_t> look_;

    // OP-1b
    CAVCSEIData sei_;
    const ClipGroup* group_ = nullptr;  // the one that is loaded
    std::vector<FramePlace> places_;
    std::vector<ByteRange> sound_, anc_;
};

}  // namespace kmxf::program
