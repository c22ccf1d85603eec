// The process-wide reader of OP-1b clips.
#include <cstring>
#include <vector>

#include "kmxf/reader/ReadMXFOp1b.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const MemoryFiles file(input);
    READOP1BREQUESTTag request;
    std::strcpy(request.fileName, "clip.mxf");
    VIDEOFRAMEINFOTag info;
    if (Readop1b(&request, nullptr, 1) != 1) return;
    std::vector<uint8_t> header(Readop1bHeaderSize());
    Readop1bHeader(header.data());
    Choices choices(input);
    for (const uint32_t frame : {0u, request.duration - 1, choices.Below(request.duration + 3), ~0u}) {
        request.frame = frame;
        request.mode = choices.Below(3);
        for (const int32_t command : {3, 2, 5}) Readop1b(&request, &info, command);
    }
    Require(Readop1b(&request, nullptr, 4) == 4, "closing is always done");
}

}  // namespace kmxf::fuzz
