#include "kmxf/writer/OpAtomSound.h"

#include <utility>

#include "core/Labels.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "writer/OpAtomParts.h"

namespace kmxf {

COpAtomSound::COpAtomSound(uint32_t videoStd, uint32_t clipType, uint32_t samplesPerSec, uint32_t channel,
                           uint32_t bitsPerSample, bool spanned)
    : COpAtomBase(videoStd, clipType, samplesPerSec, spanned),
      channel_(channel),
      bitsPerSample_(bitsPerSample == 24 ? 24 : 16) {}

int32_t COpAtomSound::Initialize() {
    const uint32_t bytesPerSample = bitsPerSample_ / 8;
    const MXFRATIONALTag rate = GetAudioEditRate(samplesPerSec_);
    CAESEssenceDescriptor descriptor;
    descriptor.SetSampleRate(rate);
    descriptor.SetAudioSamplingRate(rate);
    descriptor.SetQuantizationBits(bitsPerSample_);
    descriptor.SetBlockAlign(static_cast<uint16_t>(bytesPerSample));
    descriptor.SetAverageBytesPerSecond(samplesPerSec_ * bytesPerSample);

    Parts& parts = BuildClip();
    parts.SetEssence({videoStd_, samplesPerSec_}, kAES3ElementKey, kTrackCodeSound, kAES3ClipContainerLabel,
                     EssenceDescriptor(std::move(descriptor)));
    parts.AddIndexSegment(CIndexCommon(0, 1, 0, 0), rate, 0, bytesPerSample);
    return kStatusOk;
}

int32_t COpAtomSound::SetDuration(int64_t duration) {
    if (const int32_t status = COpAtomBase::SetDuration(duration); status != kStatusOk) return status;
    const int64_t samples = DurationToAudioSample(videoStd_, duration, samplesPerSec_);
    parts_->Descriptor().Common().SetContainerDuration(samples);
    parts_->index.front().SetDuration(samples);
    return kStatusOk;
}

int32_t COpAtomSound::SetUMID(MXFUMIDTag umid) {
    if (const int32_t status = COpAtomBase::SetUMID(umid); status != kStatusOk) return status;
    ReferToFilePackage(Kind::kSound, channel_, umid);
    return kStatusOk;
}

}  // namespace kmxf
