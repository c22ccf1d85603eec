#include "kmxf/writer/OpAtomPictureAVCI.h"

#include <algorithm>
#include <utility>

#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/AVCIntraPicture.h"
#include "writer/OpAtomParts.h"

namespace kmxf {

namespace {}

COpAtomPictureAVCI::COpAtomPictureAVCI(uint32_t videoStd, uint32_t compType, uint32_t clipType, uint32_t channel,
                                       uint32_t samplesPerSec, bool spanned)
    : COpAtomBase(videoStd, clipType, samplesPerSec, spanned), compType_(compType), channel_(channel) {}

int32_t COpAtomPictureAVCI::Initialize() {
    CMPEGEssenceDescriptor descriptor(videoStd_, compType_);
    if (const int32_t status = DescribeAVCIntraPicture(descriptor, videoStd_, compType_); status != kStatusOk) {
        return status;
    }
    Parts& parts = BuildClip();
    parts.SetEssence({videoStd_, samplesPerSec_}, kAVCIntraElementKey, kTrackCodePicture, kAVCIntraContainerLabel,
                     EssenceDescriptor(std::move(descriptor), CH264EssenceSubDescriptor(videoStd_, compType_)));
    // An edit unit of its own for the first frame, which the parameter sets precede.
    const uint32_t frameSize = GetFrameDataSize(videoStd_, compType_);
    const MXFRATIONALTag editRate = GetVideoEditRate(videoStd_);
    parts.AddIndexSegment(CIndexCommon(1, 0, 0, 0), editRate, 0, frameSize + kParameterSetBlock);
    parts.AddIndexSegment(CIndexCommon(1, 0, 0, 0), editRate, 1, frameSize);
    return kStatusOk;
}

int32_t COpAtomPictureAVCI::SetDuration(int64_t duration) {
    if (const int32_t status = COpAtomBase::SetDuration(duration); status != kStatusOk) return status;
    parts_->Descriptor().Common().SetContainerDuration(duration);
    const int64_t first = std::clamp<int64_t>(duration, 0, 1);
    parts_->index[0].SetDuration(first);
    parts_->index[1].SetDuration(std::max<int64_t>(duration, 0) - first);
    return kStatusOk;
}

int32_t COpAtomPictureAVCI::SetUMID(MXFUMIDTag umid) {
    if (const int32_t status = COpAtomBase::SetUMID(umid); status != kStatusOk) return status;
    ReferToFilePackage(Kind::kPicture, channel_, umid);
    return kStatusOk;
}

int32_t COpAtomPictureAVCI::GetFooterData(uint8_t** data) { return WriteFooter(data, 2); }

uint32_t COpAtomPictureAVCI::GetFooterSize() { return FooterSize(2); }

}  // namespace kmxf
