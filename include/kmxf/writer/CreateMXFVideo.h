#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/writer/CreateMXFBase.h"

namespace kmxf {

// Writes one picture stream as an OP-Atom file: DV and DV-based DIF frames (SMPTE ST 383) or AVC-Intra pictures
// (SMPTE ST 381-3), clip-wrapped. Needs SetFilename, SetVideoStandard, SetDVType, SetClipType and SetUMID before Open.
// In front of AVC-Intra essence the writer puts the 512 bytes of GetAVCIHeader.
class KMXF_API CCreateMXFVideo : public CCreateMXFBase {
public:
    CCreateMXFVideo();
    ~CCreateMXFVideo() override;

    // Returns the builder's status when it cannot be initialised (a combination of standard and compression type that
    // has no frame size), otherwise 0 always, also when the stream could not be opened: ask IsOpened.
    int32_t Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) override;

    // kStatusIoError without a builder, kStatusFailure when the builder is not the one for the compression type, or the
    // status of the builder's SetDuration or SetDMS; the other setters' results are not looked at.
    int32_t SetMXFParam() override;

    void ResetParam() override;

    // Whole frames written. Except AVC-Intra, progressive standards count an even number of them.
    uint32_t GetDuration() override;

    // A code of VideoStandard.h. AVC-Intra and the 100 Mb/s DV types are never consumer DV and always wide.
    int32_t SetDVType(uint32_t compType);
    // IEC 61834 DV instead of SMPTE ST 314 DV; COMP_TYPE_DV25 only.
    int32_t SetConsumerDV(bool consumerDV);
    // 16:9 instead of 4:3.
    int32_t SetWide(bool wide);
    // 0 or 1 for COMP_TYPE_DV100_720P, otherwise kStatusInvalidArgument; ignored for other types. Set the type first.
    int32_t SetUnusedOutOffset(int32_t offset);

private:
    struct Picture {
        bool consumerDV = false;
        bool wide = false;
        bool useAVCI = false;  // the builder for AVC-Intra
        int32_t unusedOutOffset = 0;
    };

    void FollowCompType();

    Picture picture_;
};

}  // namespace kmxf
