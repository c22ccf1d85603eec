#include "ReadAhead.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "InputFile.h"
#include "Program.h"

namespace kmxf::program {

namespace {

constexpr uint64_t kStep = 128 << 10;  // the system reads no more at once than the device is set to

void Read(const std::stop_token& stop, const std::string& path) try {
    const InputFile file(path);
    for (uint64_t at = 0; at < file.Size() && !stop.stop_requested(); at += kStep)
        ::posix_fadvise(file.Descriptor(), static_cast<off_t>(at), kStep, POSIX_FADV_WILLNEED);
} catch (const Failure&) {  // which those who need the file will find too
}

}  // namespace

ReadAhead::ReadAhead(const std::vector<std::string>& paths) {
    uint64_t size = 0;
    for (const std::string& path : paths) {
        std::error_code ignored;
        size += std::filesystem::file_size(path, ignored);
    }
    const auto memory =
        static_cast<uint64_t>(::sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
    if (size > memory / 4) return;
    try {
        thread_ = std::jthread([paths](const std::stop_token& stop) {
            for (const std::string& path : paths) Read(stop, path);
        });
    } catch (const std::system_error&) {  // no thread: slower, and no harm
    }
}

}  // namespace kmxf::program
