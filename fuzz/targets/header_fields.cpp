// Single values of a header in memory, and all that the header of an OP-1b clip says.
#include <algorithm>

#include "reader/HeaderFields.h"

#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/reader/ReadMXFHeader.h"
#include "reader/Op1bHeader.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    FindPacket(input, kTrackKey);
    for (const uint16_t tag : {kTagXMLData, kTagThumbnailData, kTagAVCMaximumBitRate, kTagTakeNumber})
        FileTag(input, tag);
    HasDescriptiveMetadata(input);
    GetVideoStandardFromHeader(input);
    GetCompTypeLongGFromHeader(input);
    GetSampleNumFromHeader(input);
    GetSamplingRateFromHeader(input);
    GetBytesPerSampleFromHeader(input);
    GetStartTimecodeFromHeader(input);
    GetRoundedTCBaseFromHeader(input);
    GetDropFlagFromHeader(input);
    GetMaterialUIDFromHeader(input);

    Op1bHeader clip;
    if (GetHeaderParam(input, clip)) {
        Require(clip.origin >= 0 && clip.duration >= 0 && clip.frames >= 0 && clip.samples >= 0,
                "counts are not negative");
    }
    const auto lies = [&](const SideData& data) {
        return data.offset <= input.size() && data.size <= input.size() - data.offset;
    };
    if (GetMetadata(input, clip)) {
        Require(!clip.xml || lies(*clip.xml), "the XML lies in the header");
        Require(!clip.thumbnail || lies(clip.thumbnail->picture), "the thumbnail lies in the header");
    }
}

}  // namespace kmxf::fuzz
