#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/writer/OpAtomBase.h"

namespace kmxf {

// OP-Atom file of one PCM channel (AES3, SMPTE ST 382, clip-wrapped). Its file package, descriptor and index count
// samples.
class KMXF_API COpAtomSound : public COpAtomBase {
public:
    // channel counts from 0: the sound track of the clip that this file holds. bitsPerSample: 16 or 24; any other value
    // becomes 16.
    COpAtomSound(uint32_t videoStd, uint32_t clipType, uint32_t samplesPerSec, uint32_t channel, uint32_t bitsPerSample,
                 bool spanned);

    int32_t Initialize() override;
    int32_t SetDuration(int64_t duration) override;
    int32_t SetUMID(MXFUMIDTag umid) override;

private:
    uint32_t channel_;
    uint32_t bitsPerSample_;
};

}  // namespace kmxf
