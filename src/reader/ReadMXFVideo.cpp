#include "kmxf/reader/ReadMXFVideo.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "collaborators/SEI.h"
#include "core/Bytes.h"
#include "core/HandOut.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/EssenceFormats.h"
#include "reader/StreamRead.h"

namespace kmxf {

namespace {

constexpr uint32_t kLargestDIFUnit = 576000;   // 1080/50i, and two frames of 720/50p
constexpr uint32_t kTimecodePackOffset = 110;  // in the first subcode block of a frame (SMPTE ST 314)

int32_t Fail(LogPlace place, const char* message, int32_t status) {
    return Failed(place, "ReadMXFVideo", message, status);
}

// Passes a status on and logs it if it is a failure.
int32_t Checked(LogPlace place, const char* failed, int32_t status) {
    return status == kStatusOk ? status : Fail(place, failed, status);
}

template <class Value>
int32_t Answer(Value* out, bool known, Value value) {
    if (!known) return kStatusWrongState;
    if (out == nullptr) return kStatusInvalidArgument;
    *out = value;
    return kStatusOk;
}

int32_t Release(uint8_t* data) {
    std::free(data);
    return kStatusOk;
}

bool IsSecondOfPair(uint32_t compType, uint32_t frame) { return compType == COMP_TYPE_DV100_720P && frame % 2 != 0; }

// Where a kind of picture carries timecode, user bits and UMID.
struct Carrier {
    bool avcIntra;
    int32_t (CReadMXFVideo::*get)(uint32_t frame, uint8_t** data);
    const char* getFailed;
};
constexpr Carrier kDIFUnit{false, &CReadMXFVideo::GetDIFData, "GetDIFData Error."};
constexpr Carrier kSEIArea{true, &CReadMXFVideo::GetSEIData, "GetSEIData Error."};

// Fetches what carries the value of a frame and lets `parse` take the value out of it.
template <class Parse>
int32_t Extract(CReadMXFVideo& reader, const Carrier& carrier, LogPlace place, uint32_t frame, const void* out,
                const char* failed, Parse parse) {
    if (!reader.IsReadHeader() || out == nullptr || reader.IsAVCI() != carrier.avcIntra)
        return Fail(place, "Error.", kStatusFailure);
    uint8_t* data = nullptr;
    int32_t status = (reader.*carrier.get)(frame, &data);
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    if (status != kStatusOk) return Fail(place, carrier.getFailed, status);
    try {
        status = parse(data);
    } catch (const std::bad_alloc&) {
        status = kStatusNoMemory;
    }
    return status == kStatusFrameNoInfo ? kStatusNotFound : Checked(place, failed, status);
}

// The same through the parser of DIF frames, with the number of the frame within its unit.
template <class Get>
int32_t FromDIF(CReadMXFVideo& reader, LogPlace place, uint32_t frame, const void* out, const char* failed, Get get) {
    return Extract(reader, kDIFUnit, place, frame, out, failed, [&](const uint8_t* data) {
        uint32_t size = 0;
        reader.GetDIFDataSize(&size);
        CDIFFrame parser;
        parser.SetDIFData(data, size);
        const int32_t status = get(parser, IsSecondOfPair(reader.GetCompType(), frame) ? 2u : 1u);
        parser.ResetDIFData();
        return status;
    });
}

// The same through the parser of AVC-Intra frames.
template <class Get>
int32_t FromSEI(CReadMXFVideo& reader, LogPlace place, uint32_t frame, const void* out, const char* failed, Get get) {
    return Extract(reader, kSEIArea, place, frame, out, failed, [&](const uint8_t* data) {
        CAVCIFrame parser;
        parser.SetSEIData(data, kSEIAreaSize);
        return get(parser);
    });
}

// Puts the 4 bytes that `get` finds into a timecode or into user bits.
template <class Value, class Get>
int32_t Load(Value& value, Get get) {
    uint8_t bytes[4]{};
    const int32_t status = get(bytes);
    return status == kStatusOk ? value.SetData(bytes) : status;
}

}  // namespace

CReadMXFVideo::CReadMXFVideo() = default;
CReadMXFVideo::~CReadMXFVideo() = default;

int32_t CReadMXFVideo::ReadHeader() {
    const bool empty = CReadMXFBase::ReadHeader() == kStatusNotFound;
    const int32_t status = SetVideoFormat();
    if (empty) return kStatusNotFound;
    // The header's own failure comes out as "header not read", and so does a file that is not OP-Atom.
    if (status == kStatusOk) return kStatusOk;
    Fail("CReadMXFVideo::ReadHeader", "SetVideoFormat Error.", status);
    FileClose();
    return status;
}

int32_t CReadMXFVideo::Close() {
    CReadMXFBase::Close();
    frameDataSize_ = 0;
    dataOffset_ = 0;
    return kStatusOk;
}

int32_t CReadMXFVideo::SetVideoFormat() {
    if (!headerRead_) return kStatusWrongState;
    consumerDV_ = avcIntra_ = false;
    const LabelledFormat* format = FindRow(kContainerFormats, &LabelledFormat::label, essenceContainer_);
    if (format == nullptr) return kStatusFailure;
    consumerDV_ = format->consumerDV;
    avcIntra_ = format->label == kAVCIntraContainerLabel;

    const MXFKEYTag& descriptor = avcIntra_ ? kMPEGDescriptorKey : kCDCIDescriptorKey;
    if (avcIntra_) {
        MXFKEYTag coding;
        ReadMetadata(descriptor, kTagPictureEssenceCoding, coding.bytes);
        format = FindRow(kAVCIntraFormats, &LabelledFormat::label, coding);
    }
    // AVC-Intra needs a sample rate even where its coding label names the standard.
    uint8_t rate[8]{};
    const bool described =
        (!avcIntra_ && format->videoStd != kByRate) || ReadMetadata(descriptor, kTagSampleRate, rate) == kStatusOk;
    // Otherwise size and codes stay as they were: 0, unless something was set or read before.
    if (format != nullptr && described) {
        frameDataSize_ = format->frameDataSize;
        compType_ = format->compType;
        videoStd_ = format->videoStd != kByRate ? format->videoStd : EditRateToVideoStd(ByteReader(rate).Rational(), 0);
    }
    totalFrames_ = frameDataSize_ == 0 ? 0 : static_cast<uint32_t>(dataSize_ / frameDataSize_);
    endPosition_ = totalFrames_;
    return frameDataSize_ == 0 ? kStatusFailure : kStatusOk;
}

int32_t CReadMXFVideo::GetVideoStandard(uint32_t* videoStd) const { return Answer(videoStd, headerRead_, videoStd_); }
int32_t CReadMXFVideo::GetCompType(uint32_t* compType) const { return Answer(compType, headerRead_, compType_); }
int32_t CReadMXFVideo::GetFrameDataSize(uint32_t* size) const { return Answer(size, headerRead_, frameDataSize_); }
int32_t CReadMXFVideo::GetTotalFrame(uint32_t* frames) const { return Answer(frames, headerRead_, totalFrames_); }
uint32_t CReadMXFVideo::GetVideoStandard() const { return videoStd_; }
uint32_t CReadMXFVideo::GetCompType() const { return compType_; }
uint32_t CReadMXFVideo::GetFrameDataSize() const { return frameDataSize_; }
uint32_t CReadMXFVideo::GetDuration() const { return totalFrames_; }
bool CReadMXFVideo::IsConsumerDV() const { return consumerDV_; }
bool CReadMXFVideo::IsAVCI() const { return avcIntra_; }

int32_t CReadMXFVideo::GetDIFDataSize(uint32_t* size) const {
    if (headerRead_ && size != nullptr && avcIntra_) return kStatusFailure;
    return Answer(size, headerRead_, IsProgressive(videoStd_) ? 2 * frameDataSize_ : frameDataSize_);
}

int32_t CReadMXFVideo::GetAVCIHeaderSize(uint32_t* size) const {
    return Answer(size, true, avcIntra_ ? kParameterSetBlock : 0);
}

int32_t CReadMXFVideo::SetDataOffset(uint32_t offset) {
    dataOffset_ = offset;
    return kStatusOk;
}

int32_t CReadMXFVideo::SetFrameDataSize(uint32_t size) {
    frameDataSize_ = size;
    return kStatusOk;
}

int32_t CReadMXFVideo::SetEndPosition(uint32_t frames) {
    if (!headerRead_) return kStatusWrongState;
    endPosition_ = std::min(frames, totalFrames_);
    return kStatusOk;
}

uint64_t CReadMXFVideo::FrameOffset(uint32_t frame) const {
    return uint64_t{frame} * frameDataSize_ + dataOffset_ + (avcIntra_ ? kParameterSetBlock : 0);
}

int32_t CReadMXFVideo::Seek(uint32_t frame) {
    const ScopedLock lock(lock_);
    if (stream_ == nullptr || dataOffset_ == 0 || frameDataSize_ == 0) {
        FileClose();
        return Fail("CReadMXFVideo::Seek", "Not Init.", kStatusWrongState);
    }
    if (stream_->Seek(static_cast<int64_t>(FrameOffset(frame)), kSeekBegin) < 0) {
        FileClose();
        return Fail("CReadMXFVideo::Seek", "Seek Error.", kStatusIoError);
    }
    return kStatusOk;
}

int32_t CReadMXFVideo::ReadFrame(const LogPlace& place, const char* noPiece, uint32_t frame, uint32_t size,
                                 uint32_t capacity, uint8_t** data) {
    if (const int32_t status = Seek(frame); status != kStatusOk) return Fail(place, "Seek Error.", status);
    PieceAllocator allocator(stream_);
    const OwnedPiece piece(allocator, size);
    if (!piece) return Fail(place, noPiece, kStatusNoMemory);
    if (!ReadWhole(*stream_, piece)) return Fail(place, "Read Error.", kStatusIoError);
    return Checked(place, "Error.", HandOut(capacity, data, [&](ByteWriter& buffer) {
                       buffer.Bytes(piece.Bytes());
                       buffer.Zeros(buffer.Remaining());
                   }));
}

int32_t CReadMXFVideo::GetFrameData(uint32_t frame, uint8_t** data) {
    const LogPlace place("CReadMXFVideo::GetFrameData");
    if (!headerRead_ || data == nullptr) return Fail(place, "Error.", kStatusFailure);
    return ReadFrame(place, "Allocate Error.", frame, frameDataSize_, frameDataSize_, data);
}

int32_t CReadMXFVideo::GetSEIData(uint32_t frame, uint8_t** data) {
    const LogPlace place("CReadMXFVideo::GetSEIData");
    if (!headerRead_ || data == nullptr) return Fail(place, "Error.", kStatusFailure);
    return ReadFrame(place, "Allocate Error.", frame, kSEIAreaSize, kSEIAreaSize, data);
}

int32_t CReadMXFVideo::GetDIFData(uint32_t frame, uint8_t** data) {
    const LogPlace place("CReadMXFVideo::GetDIFData");
    uint32_t size = 0;
    // A frame size that was set from outside may be anything.
    if (data == nullptr || GetDIFDataSize(&size) != kStatusOk || size > kLargestDIFUnit)
        return Fail(place, "Error.", kStatusFailure);
    if (IsSecondOfPair(compType_, frame)) --frame;
    return ReadFrame(place, "Allocte Error.", frame, size, kLargestDIFUnit, data);
}

int32_t CReadMXFVideo::ReleaseFrameData(uint8_t* data) { return Release(data); }
int32_t CReadMXFVideo::ReleaseDIFData(uint8_t* data) { return Release(data); }
int32_t CReadMXFVideo::ReleaseSEIData(uint8_t* data) { return Release(data); }

int32_t CReadMXFVideo::TimecodeOf(uint32_t frame, CTimecode* timecode) {
    return avcIntra_ ? GetAVCITimecode(frame, timecode) : GetTimecode(frame, timecode);
}
int32_t CReadMXFVideo::UsersBitOf(uint32_t frame, CUsersBit* usersBit, eSEIDataType type) {
    return avcIntra_ ? GetAVCIUsersBit(frame, usersBit, type) : GetDIFUsersBit(frame, usersBit, type);
}
int32_t CReadMXFVideo::UMIDOf(uint32_t frame, MXFUMIDEXTag* umid) {
    return avcIntra_ ? GetAVCIUMID(frame, umid) : GetDIFUMID(frame, umid);
}

int32_t CReadMXFVideo::GetStartTimecode(CTimecode* timecode) {
    return Checked("CReadMXFVideo::GetStartTimecode", "GetTimecode Error.", TimecodeOf(0, timecode));
}
int32_t CReadMXFVideo::GetEndTimecode(CTimecode* timecode) {
    return Checked("CReadMXFVideo::GetEndTimecode", "GetTimecode Error.", TimecodeOf(endPosition_ - 1, timecode));
}
int32_t CReadMXFVideo::GetStartUsersBit(CUsersBit* usersBit, eSEIDataType type) {
    return Checked("CReadMXFVideo::GetStartUsersBit", "GetUsersBit Error.", UsersBitOf(0, usersBit, type));
}
int32_t CReadMXFVideo::GetEndUsersBit(CUsersBit* usersBit, eSEIDataType type) {
    return Checked("CReadMXFVideo::GetEndUsersBit", "GetUsersBit Error.", UsersBitOf(endPosition_ - 1, usersBit, type));
}
int32_t CReadMXFVideo::GetStartUMID(MXFUMIDEXTag* umid) {
    return Checked("CReadMXFVideo::GetStartUMID", "GetUMID Error.", UMIDOf(0, umid));
}
int32_t CReadMXFVideo::GetEndUMID(MXFUMIDEXTag* umid) {
    return Checked("CReadMXFVideo::GetEndUMID", "GetUMID Error.", UMIDOf(endPosition_ - 1, umid));
}

int32_t CReadMXFVideo::GetEndCLF(uint8_t* clf) {
    if (avcIntra_) return kStatusNotFound;
    const int32_t status = GetDIFCLF(endPosition_ - 1, clf);
    return status == kStatusNotFound ? status : Checked("CReadMXFVideo::GetEndCLF", "GetCLF Error.", status);
}

int32_t CReadMXFVideo::GetTimecode(uint32_t frame, CTimecode* timecode) {
    const LogPlace place("CReadMXFVideo::GetTimecode");
    if (stream_ == nullptr || !headerRead_) return kStatusWrongState;
    if (timecode == nullptr) return kStatusInvalidArgument;
    if (avcIntra_) return GetAVCITimecode(frame, timecode);
    timecode->SetVideoStd(ConvertTCVideoStd(videoStd_));

    // The pack's 5 bytes within words of 4 bytes
    const uint64_t pack = FrameOffset(frame) + kTimecodePackOffset;
    const auto lead = static_cast<uint32_t>(pack % 4);
    PieceAllocator allocator(stream_);
    const OwnedPiece piece(allocator, (lead + 5) / 4 * 4 + 4);
    if (!piece) return Fail(place, "Allocate Error.", kStatusIoError);
    if (!ReadWholeAt(*stream_, pack - lead, piece)) return Fail(place, "Read Error.", kStatusIoError);
    // The byte that tells a missing pack is the first one of the words, not the pack's own.
    if (piece.Bytes()[0] == 0xFF) return kStatusNotFound;
    return timecode->SetData(piece.Bytes().subspan(lead + 1, 4).data());
}

int32_t CReadMXFVideo::GetDIFTimecode(uint32_t frame, CTimecode* timecode) {
    return FromDIF(*this, "CReadMXFVideo::GetDIFTimecode", frame, timecode, "GetTimecode Error.",
                   [&](const CDIFFrame& dif, uint32_t sequence) {
                       timecode->SetVideoStd(ConvertTCVideoStd(videoStd_));
                       return Load(*timecode, [&](uint8_t* bytes) { return dif.GetTimecode(bytes, sequence); });
                   });
}
int32_t CReadMXFVideo::GetDIFUsersBit(uint32_t frame, CUsersBit* usersBit, eSEIDataType type) {
    return FromDIF(*this, "CReadMXFVideo::GetDIFUsersBit", frame, usersBit, "GetUsersBit Error.",
                   [&](const CDIFFrame& dif, uint32_t sequence) {
                       return Load(*usersBit, [&](uint8_t* bytes) { return dif.GetUsersBit(bytes, type, sequence); });
                   });
}
int32_t CReadMXFVideo::GetDIFUMID(uint32_t frame, MXFUMIDEXTag* umid) {
    if (headerRead_ && umid != nullptr && consumerDV_) return kStatusOk;
    return FromDIF(*this, "CReadMXFVideo::GetDIFUMID", frame, umid, "GetUMID Error.",
                   [&](const CDIFFrame& dif, uint32_t) { return dif.GetUMID(umid->bytes); });
}
int32_t CReadMXFVideo::GetDIFCLF(uint32_t frame, uint8_t* clf) {
    return FromDIF(*this, "CReadMXFVideo::GetDIFCLF", frame, clf, "GetCLF Error.",
                   [&](const CDIFFrame& dif, uint32_t sequence) { return dif.GetCLF(clf, sequence); });
}

int32_t CReadMXFVideo::GetAVCITimecode(uint32_t frame, CTimecode* timecode) {
    return FromSEI(
        *this, "CReadMXFVideo::GetAVCITimecode", frame, timecode, "GetTimecode Error.", [&](const CAVCIFrame& picture) {
            timecode->SetVideoStd(ConvertTCVideoStd(videoStd_));
            return Load(*timecode, [&](uint8_t* bytes) { return picture.GetTimecode(bytes, SEI_DATA_TYPE1); });
        });
}
int32_t CReadMXFVideo::GetAVCIUsersBit(uint32_t frame, CUsersBit* usersBit, eSEIDataType type) {
    return FromSEI(*this, "CReadMXFVideo::GetAVCIUsersBit", frame, usersBit, "GetUsersBit Error.",
                   [&](const CAVCIFrame& picture) {
                       return Load(*usersBit, [&](uint8_t* bytes) { return picture.GetUsersBit(bytes, type); });
                   });
}
int32_t CReadMXFVideo::GetAVCIUMID(uint32_t frame, MXFUMIDEXTag* umid) {
    return FromSEI(*this, "CReadMXFVideo::GetAVCIUMID", frame, umid, "GetUMID Error.", [&](const CAVCIFrame& picture) {
        picture.GetUMID(umid->bytes);  // whether there is one is not asked
        return kStatusOk;
    });
}

}  // namespace kmxf
