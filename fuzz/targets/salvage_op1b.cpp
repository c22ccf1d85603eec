// OP-1b clips mended, on this thread: what comes out is a clip that can be opened.
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "kmxf/collaborators/Notify.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "support/MemoryFiles.h"
#include "tools/Op1bSalvage.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    // The file lies in memory; under its name stands another one, of which only the length counts, where it is cut.
    static const int kFile = memfd_create("fuzz", 0);
    const std::string name = "/proc/self/fd/" + std::to_string(kFile);
    Require(ftruncate(kFile, 0) == 0, "a length can be set");
    MemoryFiles file(input);
    const std::atomic<bool> cancel{false};
    const std::function<void(int32_t)> progress = [](int32_t percent) {
        Require(percent >= 0 && percent <= 100, "progress goes from 0 to 100");
    };
    Op1bSalvage salvage(name, cancel, progress);
    if (salvage.Execute() != kSalvageCompleted) return;

    struct stat status {};
    fstat(kFile, &status);
    if (status.st_size > 0) file.Contents().resize(static_cast<size_t>(status.st_size));
    CMemoryFileIO stream(file.Contents());
    CReadMXFOp1b reader;
    Require(reader.Open("clip.mxf", &stream) == kStatusOk, "what was mended can be opened");
    Require(reader.GetDuration() + reader.GetOrigin() <= salvage.Clip().duration + salvage.Clip().origin,
            "it has no more frames");
}

}  // namespace kmxf::fuzz
