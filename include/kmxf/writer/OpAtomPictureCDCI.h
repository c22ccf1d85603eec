#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/writer/OpAtomBase.h"

namespace kmxf {

// OP-Atom file of DV and DV-based DIF frames (SMPTE ST 383, clip-wrapped), described by a CDCI picture descriptor.
class KMXF_API COpAtomPictureCDCI : public COpAtomBase {
public:
    // channel counts from 0: the picture track of the clip that this file holds. consumerDV: IEC 61834 rather than
    // SMPTE ST 314 frames. unusedOutOffset: 1 when the last frame of a two-frame unit is not used; kept, without effect
    // on the file.
    COpAtomPictureCDCI(uint32_t videoStd, uint32_t compType, uint32_t clipType, uint32_t channel,
                       uint32_t samplesPerSec, bool spanned, bool consumerDV, uint32_t unusedOutOffset);

    // kStatusInvalidArgument: no such DV format.
    int32_t Initialize() override;
    int32_t SetDuration(int64_t duration) override;
    int32_t SetUMID(MXFUMIDTag umid) override;

    // Picture aspect ratio, 16:9 or 4:3. Returns 0; kStatusWrongState before Initialize.
    int32_t SetWide(bool wide);

private:
    uint32_t compType_;
    uint32_t channel_;
    bool consumerDV_;
    [[maybe_unused]] uint32_t unusedOutOffset_;
};

}  // namespace kmxf
