// Another XML and another thumbnail for an OP-1b clip: what stands behind the header stays, and a clip that is refused
// as a whole.
#include <algorithm>

#include "kmxf/core/Status.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    Choices choices(input);
    MemoryFiles file(input);
    CModifyMXFHeaderData modify;
    const std::vector<uint8_t> xml(1 + choices.Below(0xFFFF), 'x'), thumbnail(10854, 0x42);
    const auto length = static_cast<uint16_t>(choices.Flip() ? xml.size() : 1 + (xml.size() - 1) % 2000);
    const bool xmlDone = modify.ModifyXMLData("clip.mxf", xml.data(), length) == kStatusOk;
    Require(xmlDone || std::ranges::equal(file.Contents(), input), "a clip that is refused is left alone");

    const auto before = file.Contents();
    const bool done = modify.ModifyThumbnailData("clip.mxf", thumbnail.data(), 7, 10854) == kStatusOk;
    Require(done || file.Contents() == before, "a clip that is refused is left alone");
    Require(file.Contents().size() == input.size(), "the file keeps its size");
    const size_t header = std::min<size_t>(input.size(), 131072);
    Require(std::ranges::equal(Bytes(file.Contents()).subspan(header), input.subspan(header)), "the body stays");
}

}  // namespace kmxf::fuzz
