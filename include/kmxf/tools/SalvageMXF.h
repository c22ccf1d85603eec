#pragma once

#include <cstdint>
#include <optional>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/CreateMXFBase.h"

namespace kmxf {

// Repairs one OP-Atom file (SMPTE ST 390) whose recording was cut off, in place: the essence that is there is kept up
// to its last whole frame, the header area is written anew for it and the footer directly behind it.
//
// A header that was never finished does not tell the format, so the client says it: SetFilename, SetFileType,
// SetVideoStandard, SetClipType, SetChannel, for pictures SetCompType, for sound SetBytesPerSample and
// SetSamplesPerSec. Identification, UMIDs, timecode, package name and descriptive metadata go into the new header as
// the writer would put them there. Then Salvage; after it, whatever it returned, every setting but the file name is at
// its default again.
//
// One client thread at a time. Every failure is logged. Files come from CFileIOMain.
class KMXF_API CSalvageMXF : public CCreateMXFBase {
public:
    // The end of an interrupted recording is not trusted: GetCutSize says how much is given up. With `completed`
    // nothing is: the essence is known to be whole, and only a header or footer was lost.
    explicit CSalvageMXF(bool completed);
    ~CSalvageMXF() override;

    // kOpenReadWrite: the file must exist and keeps what it holds.
    uint32_t GetOpenFlag() override;

    // Makes the builder for the format set and passes it every setting. Returns a builder's status.
    int32_t SetMXFParam() override;

    // Puts every setting back to its default; the results of Salvage stay.
    void ResetParam() override;

    // As the form with a status; 0 where that fails.
    uint32_t GetDuration() override;

    // The setters store and return 0.

    // kFileTypeVideo; every other type is salvaged as sound.
    int32_t SetFileType(uint32_t fileType);
    // 16:9 instead of 4:3; DV only.
    int32_t SetWide(bool wide);
    // 2 or 3; any other value stores 2.
    int32_t SetBytesPerSample(uint16_t bytes);
    // 48000 or 96000; any other value stores 48000.
    int32_t SetSamplesPerSec(uint32_t samplesPerSec);
    // Without effect on the file, whose duration is that of the essence.
    int32_t SetMaterialDuration(uint32_t duration);
    // A code of VideoStandard.h; both are the same, and unlike the video writer's leave the wide flag alone.
    int32_t SetDVType(uint32_t compType);
    int32_t SetCompType(uint32_t compType);

    // Whether the header names a footer (FooterPartition is not 0); false also for a file that cannot be opened or is
    // shorter than its header area.
    bool IsCompletedFile();

    // Repairs the named file. It is never cut: what stands behind the new footer stays there. Nothing is written before
    // all that can be known beforehand is in order.
    //
    // Returns 0; kStatusNotFound when not even one frame is kept; kStatusInvalidArgument for a format that has no frame
    // size, or for sound of an unknown video standard; kStatusIoError; kStatusNoMemory, also when the header metadata
    // does not fit; or a builder's or the writer's status.
    int32_t Salvage();

    // Frames kept by Salvage, 0 after a failure. Before Salvage: the frames that it would keep, found from the size of
    // the file. kStatusInvalidArgument: null pointer, or a format as above; kStatusIoError: the file has no size.
    int32_t GetDuration(uint32_t* duration);
    // File offset of the essence: 32768. kStatusInvalidArgument: null pointer.
    int32_t GetDataOffset(uint32_t* offset);
    uint32_t GetDataOffset();
    // Bytes of essence kept by Salvage, AVC-Intra header included; 0 before and after a failure.
    // kStatusInvalidArgument: null pointer.
    int32_t GetDataSize(int64_t* size);
    int64_t GetDataSize();

    // What Salvage found in the first and last frame kept: of AVC-Intra in the SEI messages, of DV in the DIF packs.
    // kStatusInvalidArgument: null pointer; kStatusNotFound, with nothing stored: the frame does not carry it or could
    // not be read, there are no pictures, or nothing was salvaged. Without a status these values are empty then.
    int32_t GetStartTimecode(CTimecode* timecode);
    CTimecode GetStartTimecode();
    int32_t GetStartUsersBit(CUsersBit* usersBit);
    CUsersBit GetStartUsersBit();
    int32_t GetStartUMID(MXFUMIDEXTag* umid);
    MXFUMIDEXTag GetStartUMID();
    int32_t GetEndUMID(MXFUMIDEXTag* umid);
    MXFUMIDEXTag GetEndUMID();
    // The same UMIDs, of DV only.
    int32_t GetStartDIFUMID(MXFUMIDEXTag* umid);
    int32_t GetEndDIFUMID(MXFUMIDEXTag* umid);

    // Bytes given up at the end of an incomplete file: 4 MiB of pictures, 128 KiB of sound, 256 KiB where the clip has
    // one picture and two sound tracks or no picture and two (clip types 0x10102 and 0x10002). 0, with a log record,
    // for any other file type.
    static uint32_t GetCutSize(uint32_t fileType, uint32_t clipType);

protected:
    // The steps of Salvage. This one trims the essence of pictures to whole frames and looks at the first and the last
    // of them. kStatusInvalidArgument, which Salvage logs: a format that has no frame size.
    int32_t GetVideoParam();
    // These make the builder and pass it every setting. Each logs its failures. Return a builder's status.
    int32_t CreateVideoHeader();
    int32_t CreateAudioHeader();

private:
    // What the writer's settings lack.
    struct Format {
        uint32_t fileType = kFileTypeUnknown;
        bool wide = false;
        uint16_t bytesPerSample = 2;
    };

    // What a frame says of itself.
    struct Frame {
        bool dif = false;         // it is DV,
        bool consumerDV = false;  // of IEC 61834
        std::optional<CTimecode> timecode;
        std::optional<CUsersBit> usersBit;
        std::optional<MXFUMIDEXTag> umid;
    };

    // The essence that is kept.
    struct Kept {
        int64_t size = 0;  // bytes, of which the first frame may have a header in front
        uint32_t duration = 0;
        Frame first, last;
    };

    bool IsVideo() const { return format_.fileType == kFileTypeVideo; }
    int32_t SalvageFile(IStreamFileIO* stream);
    int64_t TrustedSize(int64_t fileSize) const;
    // Trims the size to whole frames and counts them. Returns what stands against it, or null.
    const char* Trim(Kept& kept) const;
    Frame ReadFrame(uint32_t frame);
    int32_t PassSettings(const LogPlace& place);
    int32_t WriteBuilt(int64_t offset, int32_t (COpAtomBase::*get)(uint8_t**), uint32_t (COpAtomBase::*getSize)(),
                       int32_t tag, const char* failure);

    const bool completed_;
    Format format_;
    bool salvaged_ = false;  // Salvage has run, with whatever result
    Kept kept_;
};

}  // namespace kmxf
