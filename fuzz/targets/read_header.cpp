// The header of a file of any pattern, by name.
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFHeader.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const MemoryFiles file(input);
    CReadMXFHeader reader;
    if (reader.ReadHeader("clip.mxf") != kStatusOk) return;
    reader.GetOperationalPattern();
    std::vector<uint8_t> header(reader.GetHeaderSize());
    Require(reader.GetHeaderData(header.data()), "the header that was read can be had");
}

}  // namespace kmxf::fuzz
