// OP-Atom sound: opening, items of the header, samples.
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    CMemoryFileIO stream({input.begin(), input.end()});
    CReadMXFAudio audio;
    audio.SetFilename("clip.mxf");
    audio.Open(&stream, true);
    if (!audio.IsReadHeader()) return;
    audio.GetSamplingRate();
    audio.GetBitsPerSample();
    audio.IsValidDMS();
    uint32_t fileType = 0, size = 0;
    int64_t offset = 0;
    audio.GetFileType(&fileType);
    if (audio.ReadMetadata(kMaterialPackageKey, kTagPackageName, nullptr, &size, &offset) == kStatusOk) {
        std::vector<uint8_t> value(size);
        audio.ReadMetadata(kMaterialPackageKey, kTagPackageName, value.data(), nullptr, nullptr);
    }
    uint32_t start = 0;
    audio.GetDataOffset(&start);
    audio.Seek(start, kSeekBegin);
    CMemoryPiece piece(4096);
    for (int i = 0; i < 4 && audio.Read(&piece) > 0; ++i) {
    }
}

}  // namespace kmxf::fuzz
