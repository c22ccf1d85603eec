#include "kmxf/writer/CreateMXFAudio.h"

#include <new>

#include "collaborators/Report.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/OpAtomSound.h"

namespace kmxf {

namespace {

constexpr char kSourceFile[] = "CreateMXFAudio";

constexpr uint32_t kUnknown = 0xFFFFFFFF;

// Counted on top of what was written: a recording may end a few samples before the boundary of its last frame.
constexpr int64_t kSpareSamples = 4;

}  // namespace

CCreateMXFAudio::CCreateMXFAudio() { hasPicture_ = false; }
CCreateMXFAudio::~CCreateMXFAudio() { FileClose(); }

int32_t CCreateMXFAudio::SetBytesPerSample(uint16_t bytes) {
    bytesPerSample_ = bytes == 3 ? 3 : 2;
    return kStatusOk;
}

int32_t CCreateMXFAudio::Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) try {
    if (IsOpened()) return CCreateMXFBase::Open(stream, rewriteHeaderAtClose);  // keeps its builder
    builder_ = std::make_unique<COpAtomSound>(settings_.videoStd, settings_.clipType, settings_.samplesPerSec,
                                              settings_.channel, bytesPerSample_ * 8u, IsSpanned());
    if (const int32_t status = builder_->Initialize(); status != kStatusOk) {
        return ResetAndClose(Failed("CCreateMXFAudio::Open", kSourceFile, "Initialize Error.", status));
    }
    if (const int32_t status = CCreateMXFBase::Open(stream, rewriteHeaderAtClose); status != kStatusOk) {
        return ResetAndClose(Failed("CCreateMXFAudio::Open", kSourceFile, "Open Error.", status));
    }
    return kStatusOk;
} catch (const std::bad_alloc&) {
    return ResetAndClose(Failed("CCreateMXFAudio::Open", kSourceFile, "Allocate Error.", kStatusNoMemory));
}

uint32_t CCreateMXFAudio::GetDuration() {
    const int64_t samples = settings_.dataSize / bytesPerSample_ + kSpareSamples;
    return AudioSampleToDuration(settings_.videoStd, samples, settings_.samplesPerSec);
}

int32_t CCreateMXFAudio::SetMXFParam() {
    const LogPlace place("CCreateMXFAudio::SetMXFParam");
    if (!builder_) return Failed(place, kSourceFile, "m_pOpAtomBase is NULL.", kStatusIoError);
    settings_.duration = GetDuration();
    // At 96 kHz the duration of an unknown standard looks like a number.
    if (settings_.duration == kUnknown || ConvertTCVideoStd(settings_.videoStd) == kUnknown) {
        return Failed(place, kSourceFile, "GetDuration Error.", kStatusInvalidArgument);
    }
    if (const int32_t status = PassRecording(place, kSourceFile, true); status != kStatusOk) return status;
    return PassTexts(place, kSourceFile, true);
}

}  // namespace kmxf
