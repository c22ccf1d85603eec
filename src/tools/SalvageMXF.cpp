#include "kmxf/tools/SalvageMXF.h"

#include <algorithm>
#include <memory>
#include <new>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "collaborators/SEI.h"
#include "core/Layout.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Status.h"
#include "kmxf/writer/OpAtomPictureAVCI.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"
#include "kmxf/writer/OpAtomSound.h"
#include "reader/StreamRead.h"
#include "tools/EssenceFrames.h"
#include "tools/NamesFooter.h"
#include "writer/OwnPieces.h"

namespace kmxf {

namespace {

constexpr char kSourceFile[] = "SalvageMXF";

constexpr uint32_t kUnknown = 0xFFFFFFFF;

// What is given up at the end of a file.
constexpr uint32_t kVideoCut = 0x400000;
constexpr uint32_t kAudioCut = 0x20000;
constexpr uint32_t kTwoChannelCut = 0x40000;
constexpr uint32_t kTwoChannelClips[] = {0x10002, 0x10102};

int32_t Fail(const char* message, int32_t status, LogPlace place = "CSalvageMXF::Salvage") {
    return Failed(place, kSourceFile, message, status);
}

// A value of 4 bytes that `get` finds, in `value`.
template <class Value, class Get>
std::optional<Value> Load(Value value, Get get) {
    uint8_t bytes[4]{};
    const bool found = get(bytes) == kStatusOk && value.SetData(bytes) == kStatusOk;
    return found ? std::optional(value) : std::nullopt;
}

template <class Parser>
std::optional<MXFUMIDEXTag> LoadUMID(const Parser& parser) {
    MXFUMIDEXTag umid;
    return parser.GetUMID(umid.bytes) == kStatusOk ? std::optional(umid) : std::nullopt;
}

template <class Value>
int32_t Answer(Value* out, const std::optional<Value>& value) {
    if (out == nullptr) return kStatusInvalidArgument;
    if (!value) return kStatusNotFound;
    *out = *value;
    return kStatusOk;
}

}  // namespace

CSalvageMXF::CSalvageMXF(bool completed) : completed_(completed) { CSalvageMXF::ResetParam(); }
CSalvageMXF::~CSalvageMXF() { FileClose(); }

uint32_t CSalvageMXF::GetOpenFlag() { return kOpenReadWrite; }

void CSalvageMXF::ResetParam() {
    CCreateMXFBase::ResetParam();
    settings_.compType = COMP_TYPE_DV25;
    format_ = Format();
}

int32_t CSalvageMXF::SetFileType(uint32_t fileType) {
    format_.fileType = fileType;
    return kStatusOk;
}

int32_t CSalvageMXF::SetWide(bool wide) {
    format_.wide = wide;
    return kStatusOk;
}

int32_t CSalvageMXF::SetBytesPerSample(uint16_t bytes) {
    format_.bytesPerSample = bytes == 3 ? 3 : 2;
    return kStatusOk;
}

int32_t CSalvageMXF::SetSamplesPerSec(uint32_t samplesPerSec) {
    return CCreateMXFBase::SetSamplesPerSec(samplesPerSec);
}

int32_t CSalvageMXF::SetMaterialDuration(uint32_t) { return kStatusOk; }

int32_t CSalvageMXF::SetDVType(uint32_t compType) { return SetCompType(compType); }

int32_t CSalvageMXF::SetCompType(uint32_t compType) {
    settings_.compType = compType;
    return kStatusOk;
}

uint32_t CSalvageMXF::GetCutSize(uint32_t fileType, uint32_t clipType) {
    if (fileType == kFileTypeVideo) return kVideoCut;
    if (fileType == kFileTypeAudio) {
        return std::ranges::find(kTwoChannelClips, clipType) == std::end(kTwoChannelClips) ? kAudioCut : kTwoChannelCut;
    }
    Report("CSalvageMXF::GetCutSize", kSourceFile, "Invalid FileType.");
    return 0;
}

bool CSalvageMXF::IsCompletedFile() { return NamesFooter(fileName_, kOpAtomHeaderSize); }

int32_t CSalvageMXF::Salvage() {
    salvaged_ = true;
    FactoryStream file;
    int32_t status = kStatusNoMemory;
    try {
        status = SalvageFile(file.get());
    } catch (const std::bad_alloc&) {
        ResetAndClose(Fail("Allocate Error.", status));  // while the stream is there
    }
    if (status != kStatusOk) kept_ = Kept();
    stream_ = nullptr;  // it goes with its factory
    return status;
}

int32_t CSalvageMXF::SalvageFile(IStreamFileIO* stream) {
    if (const int32_t status = Open(stream, true); status != kStatusOk)
        return ResetAndClose(Fail("Open Error.", status));
    if (stream_->Seek(0, kSeekBegin) < 0) return ResetAndClose(Fail("Seek Error.", kStatusIoError));
    const int64_t fileSize = stream_->Seek(0, kSeekEnd);
    if (fileSize < 0) return ResetAndClose(Fail("Seek Error.", kStatusIoError));

    kept_ = Kept();
    kept_.size = TrustedSize(fileSize);
    if (kept_.size <= 0) return ResetAndClose(Fail("No Data.", kStatusNotFound));
    if (IsVideo()) {
        if (const int32_t status = GetVideoParam(); status != kStatusOk)
            return ResetAndClose(Fail("Invalid Format.", status));
    } else if (const char* const fault = Trim(kept_)) {
        return ResetAndClose(Fail(fault, kStatusInvalidArgument));
    }
    if (kept_.duration == 0) return ResetAndClose(Fail("No Data.", kStatusNotFound));
    const char* const failure = IsVideo() ? "CreateVideoHeader Error." : "CreateAudioHeader Error.";
    if (const int32_t status = SetMXFParam(); status != kStatusOk) return ResetAndClose(Fail(failure, status));

    if (const int32_t status = WriteBuilt(0, &COpAtomBase::GetHeaderData, &COpAtomBase::GetHeaderSize, kHeaderPiece,
                                          "GetHeaderData Error.");
        status != kStatusOk) {
        return status;
    }
    if (const int32_t status = WriteBuilt(kOpAtomHeaderSize + kept_.size, &COpAtomBase::GetFooterData,
                                          &COpAtomBase::GetFooterSize, kFooterPiece, "GetFooterData Error.");
        status != kStatusOk) {
        return status;
    }
    // Close only logs it when a write was lost.
    if (!stream_->DataSync()) return ResetAndClose(Fail("DataSync Error.", kStatusIoError));
    return Close();
}

int64_t CSalvageMXF::TrustedSize(int64_t fileSize) const {
    const uint32_t cut = completed_ ? 0 : GetCutSize(format_.fileType, settings_.clipType);
    return std::max<int64_t>(fileSize - kOpAtomHeaderSize - cut, 0);
}

const char* CSalvageMXF::Trim(Kept& kept) const {
    const uint32_t videoStd = settings_.videoStd;
    if (IsVideo()) {
        const int64_t frameSize = GetFrameDataSize(videoStd, settings_.compType);
        if (frameSize == 0) return "Invalid Format.";
        const int64_t inFront = SizeInFront(settings_.compType);
        kept.duration = DataSizeToDuration(std::max<int64_t>(kept.size - inFront, 0), videoStd, settings_.compType);
        kept.size = inFront + kept.duration * frameSize;
    } else {
        // At 96 kHz the duration of an unknown standard looks like a number.
        if (ConvertTCVideoStd(videoStd) == kUnknown) return "AudioSampleToDuration Error.";
        const int64_t samples = kept.size / format_.bytesPerSample;
        kept.duration = AudioSampleToDuration(videoStd, samples, settings_.samplesPerSec);
        // The two counts differ by up to 4 samples in favour of the last frame. It takes them from what was not
        // trusted, or, at the end of the file, gets zeros.
        kept.size = format_.bytesPerSample * DurationToAudioSample(videoStd, kept.duration, settings_.samplesPerSec);
    }
    return nullptr;
}

int32_t CSalvageMXF::GetVideoParam() {
    if (Trim(kept_) != nullptr) return kStatusInvalidArgument;
    if (kept_.duration == 0) return kStatusOk;
    kept_.first = ReadFrame(0);
    kept_.last = ReadFrame(kept_.duration - 1);
    return kStatusOk;
}

// A frame that cannot be read must not cost the others: it only says nothing.
CSalvageMXF::Frame CSalvageMXF::ReadFrame(uint32_t frame) {
    const uint32_t frameSize = GetFrameDataSize(settings_.videoStd, settings_.compType);
    const bool dif = IsDV(settings_.compType);
    const bool paired = settings_.compType == COMP_TYPE_DV100_720P;  // two frames in a DIF unit
    const uint32_t start = paired ? frame & ~1u : frame;
    const uint64_t offset = kOpAtomHeaderSize + SizeInFront(settings_.compType) + uint64_t{start} * frameSize;

    PieceAllocator allocator(stream_);
    const OwnedPiece piece(allocator, !dif ? kSEIAreaSize : paired ? 2 * frameSize : frameSize);
    Frame found;
    if (!piece || !ReadWholeAt(*stream_, offset, piece)) {
        Report("CSalvageMXF::GetVideoParam", kSourceFile, "Read Error.");
        return found;
    }
    const auto bytes = piece.Bytes();
    CTimecode timecode;
    timecode.SetVideoStd(settings_.videoStd);
    const auto take = [&](const auto& parser, auto getTimecode, auto getUsersBit) {
        found.timecode = Load(timecode, getTimecode);
        found.usersBit = Load(CUsersBit(), getUsersBit);
        found.umid = LoadUMID(parser);
    };
    if (dif) {
        const uint32_t sequence = frame - start + 1;
        CDIFFrame parser;
        parser.SetDIFData(bytes.data(), piece->GetSize());
        take(
            parser, [&](uint8_t* data) { return parser.GetTimecode(data, sequence); },
            [&](uint8_t* data) { return parser.GetUsersBit(data, SEI_DATA_TYPE1, sequence); });
        found.dif = true;
        parser.GetConsumerDVFlag(&found.consumerDV);
    } else {
        CAVCIFrame parser;
        parser.SetFrameData(bytes.data(), piece->GetSize());
        take(
            parser, [&](uint8_t* data) { return parser.GetTimecode(data, SEI_DATA_TYPE1); },
            [&](uint8_t* data) { return parser.GetUsersBit(data, SEI_DATA_TYPE1); });
    }
    return found;
}

int32_t CSalvageMXF::SetMXFParam() { return IsVideo() ? CreateVideoHeader() : CreateAudioHeader(); }

int32_t CSalvageMXF::CreateVideoHeader() {
    const LogPlace place("CSalvageMXF::CreateVideoHeader");
    const Settings& s = settings_;
    if (IsAVCI(s.compType)) {
        builder_ = std::make_unique<COpAtomPictureAVCI>(s.videoStd, s.compType, s.clipType, s.channel, s.samplesPerSec,
                                                        IsSpanned());
    } else {
        const bool consumerDV = s.compType == COMP_TYPE_DV25 && kept_.first.consumerDV;
        builder_ = std::make_unique<COpAtomPictureCDCI>(s.videoStd, s.compType, s.clipType, s.channel, s.samplesPerSec,
                                                        IsSpanned(), consumerDV, 0);
    }
    if (const int32_t status = builder_->Initialize(); status != kStatusOk) {
        return Failed(place, kSourceFile, "Initialize Error.", status);
    }
    if (auto* const builder = dynamic_cast<COpAtomPictureCDCI*>(builder_.get())) {
        if (const int32_t status = builder->SetWide(format_.wide); status != kStatusOk) {
            return Failed(place, kSourceFile, "SetWide Error.", status);
        }
    }
    return PassSettings(place);
}

int32_t CSalvageMXF::CreateAudioHeader() {
    const LogPlace place("CSalvageMXF::CreateAudioHeader");
    const Settings& s = settings_;
    builder_ = std::make_unique<COpAtomSound>(s.videoStd, s.clipType, s.samplesPerSec, s.channel,
                                              format_.bytesPerSample * 8u, IsSpanned());
    if (const int32_t status = builder_->Initialize(); status != kStatusOk) {
        return Failed(place, kSourceFile, "Initialize Error.", status);
    }
    return PassSettings(place);
}

int32_t CSalvageMXF::PassSettings(const LogPlace& place) {
    settings_.duration = kept_.duration;
    settings_.dataSize = kept_.size;
    int32_t status = PassRecording(place, kSourceFile, true);
    settings_.dataSize = 0;  // otherwise Close would write a second footer
    if (status == kStatusOk) status = PassTexts(place, kSourceFile, true);
    if (status == kStatusOk) PassIdentification();
    return status;
}

int32_t CSalvageMXF::WriteBuilt(int64_t offset, int32_t (COpAtomBase::*get)(uint8_t**),
                                uint32_t (COpAtomBase::*getSize)(), int32_t tag, const char* failure) {
    if (stream_->Seek(offset, kSeekBegin) < 0) return ResetAndClose(Fail("Seek Error.", kStatusIoError));
    BuiltBytes bytes;
    if (const int32_t status = (*builder_.*get)(&bytes.data); status != kStatusOk)
        return ResetAndClose(Fail(failure, status));
    const uint32_t size = (*builder_.*getSize)();
    PieceAllocator allocator(stream_);
    OwnedPiece piece(allocator, size);
    if (!piece) return ResetAndClose(Fail("Allocate Error.", kStatusNoMemory));
    piece->CopyIn(0, bytes.data, size);
    if (WriteOwnPiece(piece.release(), tag) < 0) return ResetAndClose(Fail("Write Error.", kStatusIoError));
    return kStatusOk;
}

int32_t CSalvageMXF::GetDuration(uint32_t* duration) {
    if (duration == nullptr) return kStatusInvalidArgument;
    const LogPlace place("CSalvageMXF::GetDuration");
    Kept kept = kept_;
    if (!salvaged_) {
        FactoryStream file;
        const int64_t fileSize = file.Open(fileName_.c_str(), kOpenRead) ? file->Seek(0, kSeekEnd) : -1;
        if (fileSize < 0) return Failed(place, kSourceFile, "Stat Error.", kStatusIoError);
        kept.size = TrustedSize(fileSize);
        if (const char* const fault = Trim(kept)) return Failed(place, kSourceFile, fault, kStatusInvalidArgument);
    }
    *duration = kept.duration;
    return kStatusOk;
}

uint32_t CSalvageMXF::GetDuration() {
    uint32_t duration = 0;
    GetDuration(&duration);
    return duration;
}

int32_t CSalvageMXF::GetDataOffset(uint32_t* offset) {
    if (offset == nullptr) return kStatusInvalidArgument;
    return CCreateMXFBase::GetDataOffset(offset);
}
uint32_t CSalvageMXF::GetDataOffset() { return kOpAtomHeaderSize; }

int32_t CSalvageMXF::GetDataSize(int64_t* size) {
    if (size == nullptr) return kStatusInvalidArgument;
    *size = kept_.size;
    return kStatusOk;
}
int64_t CSalvageMXF::GetDataSize() { return kept_.size; }

int32_t CSalvageMXF::GetStartTimecode(CTimecode* timecode) { return Answer(timecode, kept_.first.timecode); }
CTimecode CSalvageMXF::GetStartTimecode() { return kept_.first.timecode.value_or(CTimecode()); }
int32_t CSalvageMXF::GetStartUsersBit(CUsersBit* usersBit) { return Answer(usersBit, kept_.first.usersBit); }
CUsersBit CSalvageMXF::GetStartUsersBit() { return kept_.first.usersBit.value_or(CUsersBit()); }
int32_t CSalvageMXF::GetStartUMID(MXFUMIDEXTag* umid) { return Answer(umid, kept_.first.umid); }
MXFUMIDEXTag CSalvageMXF::GetStartUMID() { return kept_.first.umid.value_or(MXFUMIDEXTag()); }
int32_t CSalvageMXF::GetEndUMID(MXFUMIDEXTag* umid) { return Answer(umid, kept_.last.umid); }
MXFUMIDEXTag CSalvageMXF::GetEndUMID() { return kept_.last.umid.value_or(MXFUMIDEXTag()); }
int32_t CSalvageMXF::GetStartDIFUMID(MXFUMIDEXTag* umid) {
    return Answer(umid, kept_.first.dif ? kept_.first.umid : std::nullopt);
}
int32_t CSalvageMXF::GetEndDIFUMID(MXFUMIDEXTag* umid) {
    return Answer(umid, kept_.last.dif ? kept_.last.umid : std::nullopt);
}

}  // namespace kmxf
