#include "kmxf/writer/CreateMXFVideo.h"

#include <new>

#include "collaborators/Report.h"
#include "core/CompressionType.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/OpAtomPictureAVCI.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"

namespace kmxf {

namespace {

constexpr char kSourceFile[] = "CreateMXFVideo";

// The 100 Mb/s types of DV and AVC-Intra, told by two bits.
bool Is100Class(uint32_t compType) { return (compType & 0x0C00) == 0x0C00; }

}  // namespace

CCreateMXFVideo::CCreateMXFVideo() = default;
CCreateMXFVideo::~CCreateMXFVideo() { FileClose(); }

void CCreateMXFVideo::ResetParam() {
    CCreateMXFBase::ResetParam();
    picture_ = Picture();
}

int32_t CCreateMXFVideo::SetDVType(uint32_t compType) {
    settings_.compType = compType;
    FollowCompType();
    return kStatusOk;
}

int32_t CCreateMXFVideo::SetConsumerDV(bool consumerDV) {
    picture_.consumerDV = consumerDV;
    return kStatusOk;
}

int32_t CCreateMXFVideo::SetWide(bool wide) {
    picture_.wide = wide;
    return kStatusOk;
}

int32_t CCreateMXFVideo::SetUnusedOutOffset(int32_t offset) {
    if (settings_.compType != COMP_TYPE_DV100_720P) return kStatusOk;
    if (offset != 0 && offset != 1) return kStatusInvalidArgument;
    picture_.unusedOutOffset = offset;
    return kStatusOk;
}

// Never goes back: a type without these bits leaves the flags as they are.
void CCreateMXFVideo::FollowCompType() {
    const bool avc = IsAVCFamily(settings_.compType);
    if (avc || Is100Class(settings_.compType)) {
        picture_.consumerDV = false;
        picture_.wide = true;
    }
    if (avc) picture_.useAVCI = true;
}

int32_t CCreateMXFVideo::Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) try {
    if (IsOpened()) return kStatusOk;
    FollowCompType();
    if (picture_.useAVCI) {
        builder_ = std::make_unique<COpAtomPictureAVCI>(settings_.videoStd, settings_.compType, settings_.clipType,
                                                        settings_.channel, settings_.samplesPerSec, IsSpanned());
    } else {
        builder_ = std::make_unique<COpAtomPictureCDCI>(
            settings_.videoStd, settings_.compType, settings_.clipType, settings_.channel, settings_.samplesPerSec,
            IsSpanned(), picture_.consumerDV, static_cast<uint32_t>(picture_.unusedOutOffset));
    }
    if (const int32_t status = builder_->Initialize(); status != kStatusOk) {
        return ResetAndClose(Failed("CCreateMXFVideo::Open", kSourceFile, "Initialize Error.", status));
    }
    CCreateMXFBase::Open(stream, rewriteHeaderAtClose);
    return kStatusOk;  // deliberately: clients ask IsOpened
} catch (const std::bad_alloc&) {
    return ResetAndClose(Failed("CCreateMXFVideo::Open", kSourceFile, "Allocate Error.", kStatusNoMemory));
}

uint32_t CCreateMXFVideo::GetDuration() {
    return DataSizeToDuration(settings_.dataSize, settings_.videoStd, settings_.compType);
}

int32_t CCreateMXFVideo::SetMXFParam() {
    const LogPlace place("CCreateMXFVideo::SetMXFParam");
    if (!builder_) return Failed(place, kSourceFile, "m_pOpAtomBase is NULL.", kStatusIoError);
    // Unlike GetDuration, the header counts an even number of frames in interlaced DV files too.
    settings_.duration = GetDuration();
    if (!IsAVCFamily(settings_.compType)) settings_.duration &= ~1u;
    if (const int32_t status = PassRecording(place, kSourceFile, false); status != kStatusOk) return status;
    if (auto* const builder = dynamic_cast<COpAtomPictureCDCI*>(builder_.get())) {
        builder->SetWide(picture_.wide);
    } else if (!picture_.useAVCI) {
        return Failed(place, kSourceFile, "Error.", kStatusFailure);
    }
    return PassTexts(place, kSourceFile, false);
}

}  // namespace kmxf
