#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/writer/OpAtomBase.h"

namespace kmxf {

// OP-Atom file of AVC-Intra pictures (SMPTE RP 2027, clip-wrapped by ST 381-3), described by an MPEG picture descriptor
// with an AVC sub-descriptor. The essence begins with a 512-byte parameter-set header (GetAVCIHeader).
class KMXF_API COpAtomPictureAVCI : public COpAtomBase {
public:
    // channel counts from 0: the picture track of the clip that this file holds.
    COpAtomPictureAVCI(uint32_t videoStd, uint32_t compType, uint32_t clipType, uint32_t channel,
                       uint32_t samplesPerSec, bool spanned);

    // kStatusInvalidArgument: no such AVC-Intra format.
    int32_t Initialize() override;
    int32_t SetDuration(int64_t duration) override;
    int32_t SetUMID(MXFUMIDTag umid) override;

    // The first frame is longer by the parameter-set header and has an index segment of its own; the footer carries
    // both.
    int32_t GetFooterData(uint8_t** data) override;
    uint32_t GetFooterSize() override;

private:
    uint32_t compType_;
    uint32_t channel_;
};

}  // namespace kmxf
