// Files made longer and shorter by name.
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    static const int kFile = memfd_create("fuzz", 0);
    static const std::string kName = "/proc/self/fd/" + std::to_string(kFile);
    int64_t length = 0;
    std::memcpy(&length, input.data(), std::min(input.size(), sizeof length));
    struct stat before {
    }, after{};
    fstat(kFile, &before);
    const bool done = TruncatePelmard(kName.c_str(), length);
    fstat(kFile, &after);
    Require(after.st_size == (done ? length : before.st_size), "the file has the length asked for, or the one it had");
    Require(done || length < 0 || length > 1 << 30, "what is possible is done");
    TruncatePelmard(std::string(input.begin(), input.end()).append("/no such").c_str(), length);
}

}  // namespace kmxf::fuzz
