// Frames of DV and AVC-Intra by what they are themselves.
#include "tools/EssenceFrames.h"

#include "kmxf/core/VideoStandard.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    if (const auto format = FindEssenceFormat(input)) FrameTimecode(input, *format);
    for (const uint32_t compType : {COMP_TYPE_DV25, COMP_TYPE_DV100_720P, COMP_TYPE_AVCI50_720}) {
        FrameStructure(input, compType);
        FrameTimecode(input, {VIDEO_STD_59_94I, compType});
    }
}

}  // namespace kmxf::fuzz
