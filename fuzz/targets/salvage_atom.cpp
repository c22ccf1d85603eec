// OP-Atom files mended with settings that may or may not be theirs: what comes out is a file that can be opened.
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "kmxf/tools/SalvageMXF.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    constexpr uint32_t kStandards[] = {VIDEO_STD_59_94I, VIDEO_STD_50I, VIDEO_STD_23_98P, VIDEO_STD_59_94P, 1};
    constexpr uint32_t kTypes[] = {COMP_TYPE_DV25, COMP_TYPE_DV100_720P, COMP_TYPE_AVCI50_720, COMP_TYPE_AVCI100_1080,
                                   1};
    MemoryFiles file(input);
    Choices choices(input);
    CSalvageMXF salvage(choices.Below(8) != 0);
    const bool video = choices.Flip();
    salvage.SetFilename("clip.mxf");
    salvage.SetFileType(video ? kFileTypeVideo : kFileTypeAudio);
    salvage.SetVideoStandard(choices.Of(kStandards));
    salvage.SetCompType(choices.Of(kTypes));
    salvage.SetClipType(0x102 + choices.Below(3));
    salvage.SetChannel(static_cast<uint8_t>(choices.Below(2)));
    salvage.SetBytesPerSample(static_cast<uint16_t>(2 + choices.Below(2)));
    salvage.SetSamplesPerSec(choices.Flip() ? 48000 : 96000);
    salvage.IsCompletedFile();
    uint32_t duration = 0;
    salvage.GetDuration(&duration);
    if (salvage.Salvage() != kStatusOk) return;
    salvage.GetStartTimecode();
    salvage.GetStartUsersBit();
    salvage.GetEndUMID();

    CMemoryFileIO stream(file.Contents());
    CReadMXFVideo pictures;
    CReadMXFAudio sound;
    CReadMXFBase& reader = video ? static_cast<CReadMXFBase&>(pictures) : sound;
    reader.SetFilename("clip.mxf");
    Require(reader.Open(&stream, true) == kStatusOk && reader.IsOpened(), "what was mended can be opened");
}

}  // namespace kmxf::fuzz
