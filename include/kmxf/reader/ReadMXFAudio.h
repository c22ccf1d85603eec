#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/reader/ReadMXFBase.h"

namespace kmxf {

// Reads an OP-Atom audio file: one channel of AES3/PCM samples, clip-wrapped (SMPTE ST 382).
class KMXF_API CReadMXFAudio : public CReadMXFBase {
public:
    CReadMXFAudio();
    ~CReadMXFAudio() override;

    // Moves to `offset` bytes from kSeekBegin, kSeekCurrent or kSeekEnd of the file, not of the essence: sample n is at
    // GetDataOffset + n x bytes per sample. Returns the new position, negative when the stream fails, -1 when not open.
    int64_t Seek(int64_t offset, int32_t origin);

    // Samples per second, from the AES3 descriptor; 0 when it has none or the header is not read.
    uint32_t GetSamplingRate();
    // Bits per sample, from the AES3 descriptor; 0 when it has none or the header is not read.
    uint32_t GetBitsPerSample();

private:
    uint32_t DescriptorNumber(uint16_t localTag);
};

}  // namespace kmxf
