#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the user gives an OP-1b clip to carry in its header. The functions throw Failure when the file cannot be read,
// or is longer than a length field of the header can tell.
namespace kmxf::program {

// A whole file, for the option that names it.
std::vector<uint8_t> ReadSideFile(const char* option, const std::string& path);

// The thumbnail is the whole file; its size in pixels stands in the file's header.
struct ThumbnailFile {
    std::vector<uint8_t> bytes;
    uint16_t width = 0, height = 0;
};
// Throws Failure too when it is no BMP.
ThumbnailFile ReadThumbnailFile(const std::string& path);

}  // namespace kmxf::program
