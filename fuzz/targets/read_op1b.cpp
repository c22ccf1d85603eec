// OP-1b clips: opening, and what is to be known of frames of several groups.
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CMemoryFileIO stream({input.begin(), input.end()});
    CReadMXFOp1b reader;
    if (reader.Open("clip.mxf", &stream) != kStatusOk) return;
    std::vector<uint8_t> data(reader.GetXMLDataSize());
    if (!data.empty()) reader.GetXMLData(data.data());
    data.assign(reader.GetThumbnailDataSize(), 0);
    if (!data.empty()) reader.GetThumbnailData(data.data());
    data.assign(reader.GetHeaderSize(), 0);
    Require(reader.GetHeaderData(data.data()), "the header that was read can be had");
    MXFUMIDTag umid;
    reader.GetMaterialUID(umid);

    const auto duration = static_cast<uint32_t>(reader.GetDuration());
    const uint32_t group = reader.GetPartitionFrame();
    for (const uint32_t frame : {0u, 1u, duration - 1, duration, group - 1, group, Choices(input).Below(~0u)}) {
        VIDEOFRAMEINFOTag video;
        MXFINDEXENTRYTag entry;
        ANCDATAINFOTag anc;
        AUDIODATAINFOTag sound;
        CTimecode timecode;
        CUsersBit usersBit;
        uint8_t area[512];
        reader.GetVideoInfo(frame, video);
        reader.GetVideoInfoFiller(frame, video);
        reader.GetVideoIndexEntry(frame, entry);
        reader.GetANCInfo(frame, anc);
        for (uint32_t channel = 0; channel < 3; ++channel) reader.GetAudioInfo(frame, channel, sound);
        reader.GetCodingPosition(frame);
        reader.GetSEIType1(frame, area);
        reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1);
        reader.GetUsersBit(frame, usersBit, SEI_DATA_TYPE2);
    }
}

}  // namespace kmxf::fuzz
