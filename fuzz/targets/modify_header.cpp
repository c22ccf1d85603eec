// Another UMID for an OP-Atom file, on a stream and by name: nothing but its 32 bytes may change.
#include <algorithm>

#include "kmxf/core/Status.h"
#include "kmxf/tools/ModifyMXFHeader.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

namespace {

void RequireOneUMIDChanged(Bytes before, Bytes after, bool done) {
    Require(before.size() == after.size(), "the file keeps its size");
    const auto first = static_cast<size_t>(std::ranges::mismatch(before, after).in1 - before.begin());
    if (first == before.size()) return;
    Require(done, "a file that is refused is left alone");
    const size_t behind = std::min(first + 32, before.size());
    Require(std::ranges::equal(before.subspan(behind), after.subspan(behind)), "only the UMID changes");
}

}  // namespace

void Run(Bytes input) {
    MXFUMIDTag umid;
    std::fill(std::begin(umid.bytes), std::end(umid.bytes), uint8_t{0x5A});
    CMemoryFileIO stream({input.begin(), input.end()});
    CModifyMXFHeader onStream;
    onStream.SetFilename("clip.mxf");
    onStream.SetShotUMID(umid);
    const int32_t status = onStream.Save(&stream);
    RequireOneUMIDChanged(input, stream.GetContents(), status == kStatusOk);

    MemoryFiles file(input);
    CModifyMXFHeaderData byName;
    byName.SetShotUMID(umid);
    RequireOneUMIDChanged(input, file.Contents(), byName.Save("clip.mxf") == kStatusOk);
}

}  // namespace kmxf::fuzz
