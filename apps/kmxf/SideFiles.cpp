#include "SideFiles.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

namespace {

constexpr size_t kMost = 0xFFFF;  // bytes that a length field can tell

}  // namespace

std::vector<uint8_t> ReadSideFile(const char* option, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<uint8_t> bytes(kMost + 1);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.is_open() || file.bad()) Fail(ExitStatus::kInput, path, "cannot be read: " + ErrorText(errno));
    bytes.resize(static_cast<size_t>(file.gcount()));
    if (bytes.empty()) Fail(ExitStatus::kInput, path, "is empty");
    if (bytes.size() > kMost) {
        Fail(ExitStatus::kUsage, option, path + " is too long; up to " + std::to_string(kMost) + " bytes fit");
    }
    return bytes;
}

ThumbnailFile ReadThumbnailFile(const std::string& path) {
    ThumbnailFile thumbnail{ReadSideFile("--thumbnail", path)};
    const std::vector<uint8_t>& file = thumbnail.bytes;
    const auto number = [&](size_t at) {
        uint32_t value = 0;
        for (size_t i = 4; i-- > 0;) value = value << 8 | file[at + i];
        return static_cast<int32_t>(value);
    };
    if (file.size() < 54 || file[0] != 'B' || file[1] != 'M') Fail(ExitStatus::kInput, path, "is no BMP (offset 0)");
    const int64_t width = number(18), height = std::abs(int64_t{number(22)});  // negative: the top line comes first
    if (width < 1 || height < 1 || width > 0xFFFF || height > 0xFFFF) {
        Fail(ExitStatus::kInput, path,
             "is a BMP of " + std::to_string(width) + " x " + std::to_string(height) + " pixels (offset 18)");
    }
    thumbnail.width = static_cast<uint16_t>(width);
    thumbnail.height = static_cast<uint16_t>(height);
    return thumbnail;
}

}  // namespace kmxf::program
