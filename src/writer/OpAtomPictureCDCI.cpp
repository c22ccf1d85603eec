#include "kmxf/writer/OpAtomPictureCDCI.h"

#include <utility>

#include "core/Labels.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "writer/OpAtomParts.h"

namespace kmxf {

COpAtomPictureCDCI::COpAtomPictureCDCI(uint32_t videoStd, uint32_t compType, uint32_t clipType, uint32_t channel,
                                       uint32_t samplesPerSec, bool spanned, bool consumerDV, uint32_t unusedOutOffset)
    : COpAtomBase(videoStd, clipType, samplesPerSec, spanned),
      compType_(compType),
      channel_(channel),
      consumerDV_(consumerDV),
      unusedOutOffset_(unusedOutOffset) {}

int32_t COpAtomPictureCDCI::Initialize() {
    CCDCIEssenceDescriptor descriptor(videoStd_, compType_, consumerDV_);
    const uint32_t frameSize = GetFrameDataSize(videoStd_, compType_);
    MXFKEYTag container;
    if (frameSize == 0 || descriptor.SetVideoFormat(videoStd_, compType_, consumerDV_) != kStatusOk ||
        !GetEssenceContainerLabel(videoStd_, compType_, consumerDV_, false, &container)) {
        return kStatusInvalidArgument;
    }
    Parts& parts = BuildClip();
    parts.SetEssence({videoStd_, samplesPerSec_}, kDVElementKey, kTrackCodePicture, container,
                     EssenceDescriptor(std::move(descriptor)));
    parts.AddIndexSegment(CIndexCommon(1, 0, 0, 0), GetVideoEditRate(videoStd_), 0, frameSize);
    return kStatusOk;
}

int32_t COpAtomPictureCDCI::SetDuration(int64_t duration) {
    if (const int32_t status = COpAtomBase::SetDuration(duration); status != kStatusOk) return status;
    parts_->Descriptor().Common().SetContainerDuration(duration);
    parts_->index.front().SetDuration(duration);
    return kStatusOk;
}

int32_t COpAtomPictureCDCI::SetUMID(MXFUMIDTag umid) {
    if (const int32_t status = COpAtomBase::SetUMID(umid); status != kStatusOk) return status;
    ReferToFilePackage(Kind::kPicture, channel_, umid);
    return kStatusOk;
}

int32_t COpAtomPictureCDCI::SetWide(bool wide) {
    if (!parts_) return kStatusWrongState;
    const MXFRATIONALTag ratio = wide ? MXFRATIONALTag{16, 9} : MXFRATIONALTag{4, 3};
    return std::get<CCDCIEssenceDescriptor>(parts_->Descriptor().descriptor).SetAspectRatio(ratio);
}

}  // namespace kmxf
