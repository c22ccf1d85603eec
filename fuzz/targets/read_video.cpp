// OP-Atom pictures: opening, frames, and what they carry.
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CMemoryFileIO stream({input.begin(), input.end()});
    CReadMXFVideo video;
    video.SetFilename("clip.mxf");
    video.Open(&stream, true);
    if (!video.IsReadHeader()) return;
    video.IsValidDMS();
    const uint32_t total = video.GetDuration();
    for (const uint32_t frame : {0u, 1u, total - 1, total, Choices(input).Below(~0u)}) {
        for (const auto get : {&CReadMXFVideo::GetFrameData, &CReadMXFVideo::GetDIFData, &CReadMXFVideo::GetSEIData}) {
            uint8_t* data = nullptr;
            if ((video.*get)(frame, &data) == kStatusOk) video.ReleaseFrameData(data);
        }
        CTimecode timecode;
        video.GetTimecode(frame, &timecode);
        if (!video.IsOpened()) video.Open(&stream, true);
    }
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    uint8_t clf = 0;
    video.GetStartTimecode(&timecode);
    video.GetEndTimecode(&timecode);
    video.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1);
    video.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2);
    video.GetStartUMID(&umid);
    video.GetEndUMID(&umid);
    video.GetEndCLF(&clf);
}

}  // namespace kmxf::fuzz
