#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "support/Target.h"

namespace kmxf::fuzz {

// The path of a file that holds the input, for what opens files by itself; it holds it until the next input.
inline std::string MemoryFile(Bytes input) {
    static const int kFile = memfd_create("fuzz", MFD_CLOEXEC);
    Require(
        ftruncate(kFile, 0) == 0 && pwrite(kFile, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()),
        "a file can be written");
    return "/proc/self/fd/" + std::to_string(kFile);
}

}  // namespace kmxf::fuzz
