#pragma once

#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "Formats.h"
#include "kmxf/tools/Clip.h"

// What one MXF file says of itself, as the library tells it.
namespace kmxf::program {

using FileInfo = ClipFile;
using Verdict = ClipVerdict;

// Opens a file for the library, counted as all that is read. Throws ClipError when that cannot be done; what it hands
// out throws Failure when the command is interrupted.
std::unique_ptr<IByteSource> OpenSource(const std::string& path);

// Reads on when the command is interrupted: what was written until then is proven by it. Throws Failure when the file
// cannot be read, or is neither OP-Atom nor OP-1b.
FileInfo ReadFileInfo(const std::string& path);

// Of a file with pictures.
VideoFormat FormatOf(const FileInfo& info);

nlohmann::ordered_json Json(const FileInfo& info);

}  // namespace kmxf::program
