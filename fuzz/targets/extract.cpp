// The values of a clip's files gathered: picture and sound of one.
#include <memory>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/tools/MXFExtractMetaData.h"
#include "support/MemoryFiles.h"

namespace kmxf::fuzz {

namespace {

// The steps that a file goes through, for one that fails in the first.
class Steps : public CMXFExtractMetaData {
public:
    void Sound(IFileIO& file) {
        GetAudioInformation("clip.mxf");
        if (!file.Open("clip.mxf", kOpenRead)) return;
        std::vector<MXFLOCALTAGENTRYTag> entries;
        if (GetPrimerPackData(&file, entries) == kStatusOk) GetLocalTag(entries, MXFKEYTag{});
        GetDataOffset(&file);
        GetMXFBodyDataSize(&file);
        std::string text;
        uint16_t take = 0;
        GetDMSData(&file, &text, &text, &text, &text, &text, &take, &text, &text);
        uint32_t type = 0, videoStd = 0, compType = 0;
        bool consumerDV = false, wide = false, avci = false;
        GetPelmardFormat(&file, &type, &videoStd, &compType, &consumerDV, &wide, &avci);
        file.Close();
    }
};

}  // namespace

void Run(Bytes input) {
    const MemoryFiles memory(input);
    Steps extract;
    struct Releaser {
        void operator()(IFileIO* file) const { file->Release(); }
    };
    IFileIOFactory* factory = CFileIOMain::GetFactory(0, nullptr, 32768);
    const std::unique_ptr<IFileIO, Releaser> file(factory->CreateFileIO(1));
    factory->Release();
    extract.Sound(*file);
    if (extract.ExtractMetaData("clip.mxf", {}) != kStatusOk) return;
    std::string text;
    uint32_t number = 0;
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    extract.GetClipDuration(&number);
    extract.GetClipName(&text);
    extract.GetMXFStartTimecode(&timecode);
    extract.GetDIFStartTimecode(&timecode);
    extract.GetDIFStartUsersBit(&usersBit);
    extract.GetDIFEndUMID(&umid);
    extract.ExtractMetaData("clip.mxf", {"clip.mxf"});
}

}  // namespace kmxf::fuzz
