#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FileInfo.h"
#include "InputFile.h"
#include "StreamOutput.h"

// How an OP-1b clip is taken apart.
namespace kmxf::program {

struct FrameRange {
    uint64_t first, last;  // both included
};

// What a file holds that becomes a file of its own.
struct EssenceStream {
    enum class Kind { kPicture, kSound, kXml, kThumbnail };
    std::string name;
    Kind kind;
    bool IsSideData() const { return kind == Kind::kXml || kind == Kind::kThumbnail; }
};

// Pictures, each channel of sound, XML and thumbnail; no placeholders.
std::vector<EssenceStream> Op1bStreams(const FileInfo& info, const std::string& stem, bool raw);

// Brings the frames to the outputs, which are those of the streams, in one pass through the file. Without `raw` the
// first picture is one that can be decoded, where there is one; what that changes is said.
void ExtractOp1b(const InputFile& from, const FileInfo& info, const std::vector<EssenceStream>& streams,
                 const std::optional<FrameRange>& range, bool raw,
                 const std::vector<std::unique_ptr<StreamOutput>>& outputs);

}  // namespace kmxf::program
