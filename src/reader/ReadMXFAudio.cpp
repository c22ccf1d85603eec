#include "kmxf/reader/ReadMXFAudio.h"

#include "collaborators/Guards.h"
#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/LocalTags.h"

namespace kmxf {

CReadMXFAudio::CReadMXFAudio() = default;
CReadMXFAudio::~CReadMXFAudio() = default;

int64_t CReadMXFAudio::Seek(int64_t offset, int32_t origin) {
    const ScopedLock lock(lock_);
    return opened_ ? stream_->Seek(offset, origin) : -1;
}

uint32_t CReadMXFAudio::GetSamplingRate() { return DescriptorNumber(kTagAudioSamplingRate); }
uint32_t CReadMXFAudio::GetBitsPerSample() { return DescriptorNumber(kTagQuantizationBits); }

// The first 4 bytes of an item of the AES3 descriptor: all of it, or the numerator of a rate. A shorter value has zeros
// for the bytes that it lacks; 0 if there is none.
uint32_t CReadMXFAudio::DescriptorNumber(uint16_t localTag) {
    uint8_t value[4]{};
    ReadMetadata(kAES3DescriptorKey, localTag, value);
    return ByteReader(value).U32();
}

}  // namespace kmxf
