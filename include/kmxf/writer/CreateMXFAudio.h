#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/writer/CreateMXFBase.h"

namespace kmxf {

// Writes one sound channel as an OP-Atom file: PCM samples of 16 or 24 bits at 48 or 96 kHz, little-endian,
// clip-wrapped as AES3 essence (SMPTE ST 382). Needs SetFilename, SetVideoStandard, SetClipType, SetChannel,
// SetSamplesPerSec, SetBytesPerSample and SetUMID before Open.
class KMXF_API CCreateMXFAudio : public CCreateMXFBase {
public:
    CCreateMXFAudio();
    ~CCreateMXFAudio() override;

    // As CCreateMXFBase::Open, and the builder's status when it cannot be initialised. Every failure is returned.
    int32_t Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) override;

    // kStatusIoError without a builder, kStatusInvalidArgument when the video standard gives no duration, or the status
    // of the builder's failing setter.
    int32_t SetMXFParam() override;

    // Video frames of the samples written, four samples generously counted; at 48 kHz 0xFFFFFFFF for an unknown video
    // standard.
    uint32_t GetDuration() override;

    // 2 or 3; any other value stores 2. Returns 0. ResetParam keeps it.
    int32_t SetBytesPerSample(uint16_t bytes);

private:
    uint16_t bytesPerSample_ = 2;
};

}  // namespace kmxf
