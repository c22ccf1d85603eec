// SEI messages of AVC-Intra and Long-GOP pictures, and the picture timing in them.
#include "collaborators/SEI.h"

#include "kmxf/collaborators/VideoFrame.h"
#include "support/Target.h"

namespace kmxf::fuzz {

namespace {

template <class Parser>
void Ask(const Parser& parser) {
    uint8_t bytes[64];
    for (const eSEIDataType type : {SEI_DATA_TYPE1, SEI_DATA_TYPE2}) {
        parser.GetTimecode(bytes, type);
        parser.GetUsersBit(bytes, type);
    }
    parser.GetUMID(bytes);
}

}  // namespace

void Run(Bytes input) {
    const auto size = static_cast<uint32_t>(input.size());
    CAVCIFrame intra;
    intra.SetFrameData(input.data(), size);
    Ask(intra);
    intra.SetSEIData(input.data(), size);
    Ask(intra);
    CAVCSEIData longGOP;
    longGOP.SetSEIData(input.data(), size, false);
    Ask(longGOP);
    longGOP.SetSEIData(input.data(), size / 2, true);  // with the parameter set that was seen
    Ask(longGOP);
    if (const auto layout = ReadPicTimingLayout(input)) ReadClockTimestamp(input, *layout, 1);
}

}  // namespace kmxf::fuzz
