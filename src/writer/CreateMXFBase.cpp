#include "kmxf/writer/CreateMXFBase.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <span>
#include <utility>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/CompressionType.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/OpAtomBase.h"
#include "writer/OwnPieces.h"
#include "writer/StoreSetting.h"

namespace kmxf {

namespace {

constexpr char kSourceFile[] = "CreateMXFBase";

constexpr uint32_t kReadBackUnit = 32768;
constexpr size_t kFileNameCapacity = 256;  // with its terminator

}  // namespace

CCreateMXFBase::Settings::Settings()
    : company("Kestralin"), product("Jq"), version("2.0"), productUID(kDefaultProductUID) {}

CCreateMXFBase::CCreateMXFBase() : ownPieces_(std::make_unique<OwnPieces>()) {}
CCreateMXFBase::~CCreateMXFBase() { FileClose(); }

uint32_t CCreateMXFBase::GetOpenFlag() { return kOpenCreate; }
void CCreateMXFBase::ResetParam() { settings_ = Settings(); }
uint32_t CCreateMXFBase::GetDuration() { return 0; }

int32_t CCreateMXFBase::SetFilename(const char* fileName) {
    if (fileName == nullptr) return kStatusInvalidArgument;
    if (strnlen(fileName, kFileNameCapacity) == kFileNameCapacity) return kStatusInvalidArgument;
    return StoreSetting(fileName_, fileName);
}

int32_t CCreateMXFBase::SetVideoStandard(uint32_t videoStd) {
    settings_.videoStd = videoStd;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetClipType(uint32_t clipType) {
    settings_.clipType = clipType;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetChannel(uint32_t channel) {
    settings_.channel = channel;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetSamplesPerSec(uint32_t samplesPerSec) {
    settings_.samplesPerSec = samplesPerSec == 96000 ? 96000 : 48000;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetUMID(MXFUMIDTag umid) {
    settings_.umid = umid;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetShotUMID(MXFUMIDTag umid) {
    settings_.shotUMID = umid;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetPrevDuration(int64_t duration) {
    settings_.prevDuration = duration;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetStartTimecode(int64_t totalFrames, bool drop) {
    settings_.startTimecode = totalFrames;
    settings_.startDrop = drop;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetStartTimecode(const CTimecode& timecode) {
    return SetStartTimecode(timecode.GetTotalFrame(), timecode.IsDrop());
}

int32_t CCreateMXFBase::SetCreationDate(MXFTIMESTAMPTag date) {
    settings_.creationDate = date;
    return kStatusOk;
}

int32_t CCreateMXFBase::SetPackageName(const std::string& utf8) { return StoreSetting(settings_.packageName, utf8); }

int32_t CCreateMXFBase::SetDescriptiveMetadata(const CDescriptiveMetadata& metadata) {
    return StoreSetting(settings_.metadata, metadata);
}

int32_t CCreateMXFBase::SetIdentification(const std::string& company, const std::string& product,
                                          const std::string& version, const uint8_t* productUID) {
    return StoreIdentification(settings_, company, product, version, productUID);
}

int32_t CCreateMXFBase::SetRenderingDataSize(int64_t size) {
    settings_.renderingDataSize = size + (HasAVCIHeader() ? kParameterSetBlock : 0);
    return kStatusOk;
}

int32_t CCreateMXFBase::SetWriteRetry(IMXFStatus*) { return kStatusOk; }

bool CCreateMXFBase::IsOpened() const { return opened_; }
bool CCreateMXFBase::IsSpanned() const { return settings_.prevDuration != 0; }

int32_t CCreateMXFBase::GetTotalDataSize(int64_t* size) {
    if (size != nullptr) *size = settings_.dataSize;
    return kStatusOk;
}

int32_t CCreateMXFBase::GetTotalDuration(uint32_t* duration) {
    if (duration != nullptr) *duration = GetDuration();
    return kStatusOk;
}

int32_t CCreateMXFBase::GetDataOffset(uint32_t* offset) {
    if (offset != nullptr) *offset = kOpAtomHeaderSize;
    return kStatusOk;
}

uint32_t CCreateMXFBase::GetReadBackSize() { return static_cast<uint32_t>(settings_.dataSize % kReadBackUnit); }

int32_t CCreateMXFBase::Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) try {
    const ScopedLock lock(mutex_);
    if (stream == nullptr) return kStatusInvalidArgument;
    if (opened_) return kStatusOk;
    settings_.dataSize = 0;
    settings_.creationDate = GetCurrentTimeMXF();
    headerWritten_ = false;
    callback_ = nullptr;
    if (!stream->Open(fileName_.c_str(), GetOpenFlag())) {
        return GiveUp("CCreateMXFBase::Open", "Open Error.", kStatusIoError);
    }
    stream_ = stream;
    opened_ = true;
    if (!stream->RegisterCallback(this)) {
        return GiveUp("CCreateMXFBase::Open", "RegisterCallback Error.", kStatusIoError);
    }
    settings_.rewriteHeader = rewriteHeaderAtClose;
    return kStatusOk;
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFBase::Open", kStatusNoMemory);
}

int32_t CCreateMXFBase::Write(StreamPiece* piece, int32_t) try {
    const ScopedLock lock(mutex_);
    if (Admit("CCreateMXFBase::Write", piece) != kStatusOk) return kCountFailed;
    if (!headerWritten_ && WriteHeader() != kStatusOk) return kCountFailed;
    const int32_t written = WriteStreamPiece(piece, kEssencePiece);
    if (written > 0) settings_.dataSize += written;
    return written;
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFBase::Write", kCountFailed);
}

int32_t CCreateMXFBase::Read(StreamPiece* piece) {
    const ScopedLock lock(mutex_);
    if (Admit("CCreateMXFBase::Read", piece) != kStatusOk) return kCountFailed;
    const int32_t count = stream_->Read(piece, 0);
    if (count > 0) return count;
    return Failed("CCreateMXFBase::Read", kSourceFile, "Read Error.", ResetAndClose(kCountFailed));
}

int32_t CCreateMXFBase::ReadBack(StreamPiece* piece) {
    const ScopedLock lock(mutex_);
    const auto failed = [this](const LogPlace& place, const char* message) {
        return Failed(place, kSourceFile, message, ResetAndClose(kCountFailed));
    };
    if (Admit("CCreateMXFBase::ReadBack", piece) != kStatusOk) return kCountFailed;
    const uint32_t size = GetReadBackSize();
    if (size == 0) return 0;
    if (piece->GetSize() != size) return failed("CCreateMXFBase::ReadBack", "ReadBack Error.");
    if (stream_->Seek(-int64_t{size}, kSeekEnd) < 0) return failed("CCreateMXFBase::ReadBack", "Seek Error.");
    const int32_t count = stream_->Read(piece, 0);
    if (count < 0) return failed("CCreateMXFBase::ReadBack", "Read Error.");
    if (stream_->Seek(-int64_t{size}, kSeekEnd) < 0) return failed("CCreateMXFBase::ReadBack", "Seek Error.");
    settings_.dataSize -= size;
    return count;
}

int32_t CCreateMXFBase::DataSync() {
    const ScopedLock lock(mutex_);
    if (const int32_t status = Admit("CCreateMXFBase::DataSync", stream_); status != kStatusOk) return status;
    if (stream_->DataSync()) return kStatusOk;
    return Failed("CCreateMXFBase::DataSync", kSourceFile, "DataSync Error.", ResetAndClose(kStatusIoError));
}

int32_t CCreateMXFBase::RegisterCallback(IFileIOCallback* callback) {
    const ScopedLock lock(mutex_);
    const int32_t status = Admit("CCreateMXFBase::RegisterCallback", callback);
    if (status == kStatusOk) callback_ = callback;
    return status;
}

int32_t CCreateMXFBase::Close() try {
    const ScopedLock lock(mutex_);
    if (!opened_) return kStatusOk;
    if (settings_.dataSize == 0) return ResetAndClose(kStatusOk);
    if (const int32_t status = SetMXFParam(); status != kStatusOk) {
        return GiveUp("CCreateMXFBase::Close", "SetMXFParam Error.", status);
    }
    // The footer comes first, so that a final header always has its footer.
    PieceAllocator allocator(stream_);
    if (const int32_t status = WriteFooter(allocator); status != kStatusOk) return status;
    if (settings_.rewriteHeader) {
        if (const int32_t status = RewriteHeader(allocator); status != kStatusOk) return status;
    } else if (settings_.dataSize != settings_.renderingDataSize) {
        return GiveUp("CCreateMXFBase::Close", "Different DataSize.", kStatusFailure);
    }
    return ResetAndClose(kStatusOk);
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFBase::Close", kStatusNoMemory);
}

void CCreateMXFBase::CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) {
    if (status != 0) {
        Report("CCreateMXFBase::CallbackForWriteComplete", kSourceFile, "Write Callback Error. Status:%d.", status);
    }
    if (tag != kHeaderPiece && tag != kFooterPiece) {
        if (IFileIOCallback* callback = callback_) callback->CallbackForWriteComplete(id, status, tag);
    } else {
        ownPieces_->FreeOldest(stream_);
    }
}

// The header is known now: with its final values, or as that of a recording that is still going on.
int32_t CCreateMXFBase::WriteHeader() {
    PieceAllocator allocator(stream_);
    if (!builder_) {
        return GiveUp("CCreateMXFBase::Write", "m_pOpAtomBase is NULL.", kStatusWrongState);
    }
    if (settings_.rewriteHeader) {
        // The metadata comes into the header at close only, but must not be found too long when all essence is written.
        if (const int32_t status = builder_->CheckRoom(settings_.metadata); status != kStatusOk) {
            return GiveUp("CCreateMXFBase::Write", "GetHeaderData Error.", status);
        }
        builder_->SetDataSize(0);
        builder_->MarkOpen();
    } else {
        settings_.dataSize = settings_.renderingDataSize;
        const int32_t status = SetMXFParam();
        settings_.dataSize = 0;
        if (status != kStatusOk) return ResetAndClose(status);
        PassIdentification();
    }
    BuiltBytes header;
    if (const int32_t status = builder_->GetHeaderData(&header.data); status != kStatusOk) {
        return GiveUp("CCreateMXFBase::Write", "GetHeaderData Error.", status);
    }
    int32_t status =
        WriteBytes("CCreateMXFBase::Write", allocator, header.data, builder_->GetHeaderSize(), kHeaderPiece);
    if (status != kStatusOk) return status;
    if (HasAVCIHeader()) {
        uint8_t parameterSets[kParameterSetBlock]{};
        GetAVCIHeader(settings_.videoStd, settings_.compType, parameterSets);
        status = WriteBytes("CCreateMXFBase::Write", allocator, parameterSets, kParameterSetBlock, kHeaderPiece);
        if (status != kStatusOk) return status;
        settings_.dataSize += kParameterSetBlock;
    }
    headerWritten_ = true;
    return kStatusOk;
}

int32_t CCreateMXFBase::WriteFooter(PieceAllocator& allocator) {
    BuiltBytes footer;
    if (const int32_t status = builder_->GetFooterData(&footer.data); status != kStatusOk) {
        return GiveUp("CCreateMXFBase::Close", "GetFooterData Error.", status);
    }
    return WriteBytes("CCreateMXFBase::Close", allocator, footer.data, builder_->GetFooterSize(), kFooterPiece);
}

// Writes whole units of the medium, so the first unit of the file is read and its beginning replaced.
int32_t CCreateMXFBase::RewriteHeader(PieceAllocator& allocator) {
    if (stream_->Seek(0, kSeekBegin) < 0) return GiveUp("CCreateMXFBase::Close", "Seek Error.", kStatusIoError);
    PassIdentification();
    BuiltBytes header;
    if (const int32_t status = builder_->GetHeaderData(&header.data); status != kStatusOk) {
        return GiveUp("CCreateMXFBase::Close", "GetHeaderData Error.", status);
    }
    const uint32_t headerSize = builder_->GetHeaderSize();
    const int64_t cluster = std::max(stream_->GetClusterSize(), headerSize);
    const auto unit = static_cast<uint32_t>(std::min(cluster, headerSize + settings_.dataSize));
    OwnedPiece piece(allocator, unit);
    if (!piece) return GiveUp("CCreateMXFBase::Close", "Allocate Error.", kStatusNoMemory);
    if (unit > headerSize) {
        if (const int32_t status = ReadFirstUnit(piece.get(), unit); status != kStatusOk) return status;
    }
    piece->CopyIn(0, header.data, headerSize);
    if (stream_->Seek(0, kSeekBegin) < 0) return GiveUp("CCreateMXFBase::Close", "Seek Error.", kStatusIoError);
    return WriteOwnPiece(piece.release(), kHeaderPiece) < 0 ? kStatusIoError : kStatusOk;
}

// A stream may give less than the unit while it is still being written; after a sync there is no excuse.
int32_t CCreateMXFBase::ReadFirstUnit(StreamPiece* piece, uint32_t size) {
    const auto readWhole = [&] { return stream_->Read(piece, 0) == int64_t{size}; };
    if (readWhole()) return kStatusOk;
    if (!stream_->DataSync()) return GiveUp("CCreateMXFBase::Close", "DataSync Error.", kStatusIoError);
    if (stream_->Seek(0, kSeekBegin) < 0) return GiveUp("CCreateMXFBase::Close", "Seek Error.", kStatusIoError);
    if (readWhole()) return kStatusOk;
    return GiveUp("CCreateMXFBase::Close", "First Cluster Read Error.", kStatusIoError);
}

int32_t CCreateMXFBase::WriteBytes(const LogPlace& place, PieceAllocator& allocator, const void* bytes, uint32_t size,
                                   int32_t tag) {
    OwnedPiece piece(allocator, size);
    if (!piece) return GiveUp(place, "Allocate Error.", kStatusNoMemory);
    piece->CopyIn(0, bytes, size);
    return WriteOwnPiece(piece.release(), tag) < 0 ? kStatusIoError : kStatusOk;
}

int32_t CCreateMXFBase::WriteOwnPiece(StreamPiece* piece, int32_t tag) {
    if (piece == nullptr) return kCountFailed;
    try {
        ownPieces_->Add(piece);
    } catch (const std::bad_alloc&) {
        PieceAllocator(stream_).Free(piece);
        throw;
    }
    return WriteStreamPiece(piece, tag);
}

int32_t CCreateMXFBase::WriteStreamPiece(StreamPiece* piece, int32_t tag) {
    if (piece == nullptr || stream_ == nullptr) return kCountFailed;
    const int64_t size = piece->GetSize();  // the piece may be gone after Write
    const int32_t written = stream_->Write(piece, tag, 0);
    if (written == size) return written;
    return GiveUp("CCreateMXFBase::WriteStreamPiece", "Write Error.", kCountFailed);
}

int32_t CCreateMXFBase::FileClose() {
    if (opened_ && !stream_->Close()) Report("CCreateMXFBase::FileClose", kSourceFile, "FileClose Error.");
    opened_ = false;
    ownPieces_->FreeAll(stream_);
    builder_.reset();
    return kStatusOk;
}

int32_t CCreateMXFBase::ResetAndClose(int32_t status) {
    ResetParam();
    FileClose();
    return status;
}

// The operations that are not Open, Write or Close do it the other way round: a failure to close comes first in the
// log.
int32_t CCreateMXFBase::GiveUp(const LogPlace& place, const char* message, int32_t status) {
    return ResetAndClose(Failed(place, kSourceFile, message, status));
}

int32_t CCreateMXFBase::GiveUpWithoutMemory(const LogPlace& place, int32_t status) {
    const ScopedLock lock(mutex_);
    return GiveUp(place, "Allocate Error.", status);
}

// What every stream operation asks first: is the file open, is the argument there?
int32_t CCreateMXFBase::Admit(const LogPlace& place, const void* argument) {
    if (!opened_) {
        ResetParam();
        return Failed(place, kSourceFile, "Not Open.", kStatusWrongState);
    }
    if (argument == nullptr) {
        return Failed(place, kSourceFile, "Invalid argument.", ResetAndClose(kStatusInvalidArgument));
    }
    return kStatusOk;
}

// A sound file has none, although its compression type stays at the default, which has both bits.
bool CCreateMXFBase::HasAVCIHeader() const { return hasPicture_ && IsAVCFamily(settings_.compType); }

int32_t CCreateMXFBase::PassIdentification() {
    return builder_->SetIdentification(settings_.company, settings_.product, settings_.version,
                                       settings_.productUID.bytes);
}

// One setting's way into the builder.
struct CCreateMXFBase::BuilderStep {
    const char* failure;  // null: nobody looks at the result
    bool always;          // even without `strict`
    int32_t (*pass)(COpAtomBase& builder, const Settings& settings);

    static int32_t PassAll(std::span<const BuilderStep> steps, const CCreateMXFBase& writer, const LogPlace& place,
                           const char* sourceFile, bool strict) {
        for (const BuilderStep& step : steps) {
            const int32_t status = step.pass(*writer.builder_, writer.settings_);
            const bool looked = step.always || (strict && step.failure != nullptr);
            if (looked && status != kStatusOk) return Failed(place, sourceFile, step.failure, status);
        }
        return kStatusOk;
    }
};

int32_t CCreateMXFBase::PassRecording(const LogPlace& place, const char* sourceFile, bool strict) {
    static constexpr BuilderStep kSteps[] = {
        {"SetStartTimecode Error.", false,
         [](COpAtomBase& builder, const Settings& s) {
             return builder.SetStartTimecode(s.startTimecode, s.startDrop);
         }},
        {nullptr, false,
         [](COpAtomBase& builder, const Settings& s) { return builder.SetCreationDate(s.creationDate); }},
        {nullptr, false,
         [](COpAtomBase& builder, const Settings& s) { return builder.SetModifiedDate(s.creationDate); }},
        {"SetUMID Error.", false, [](COpAtomBase& builder, const Settings& s) { return builder.SetUMID(s.umid); }},
        {"ChangeMaterialUMID Error.", false,
         [](COpAtomBase& builder, const Settings& s) {
             const bool passed = s.prevDuration != 0 || s.shotUMID != MXFUMIDTag();
             return passed ? builder.ChangeMaterialUMID(s.shotUMID) : kStatusOk;
         }},
        {"SetFillerDuration Error.", false,
         [](COpAtomBase& builder, const Settings& s) {
             return s.prevDuration != 0 ? builder.SetFillerDuration(s.prevDuration) : kStatusOk;
         }},
        {"SetDuration Error.", true,
         [](COpAtomBase& builder, const Settings& s) { return builder.SetDuration(s.duration); }},
        {"SetDataSize Error.", false,
         [](COpAtomBase& builder, const Settings& s) { return builder.SetDataSize(s.dataSize); }},
    };
    return BuilderStep::PassAll(kSteps, *this, place, sourceFile, strict);
}

int32_t CCreateMXFBase::PassTexts(const LogPlace& place, const char* sourceFile, bool strict) {
    static constexpr BuilderStep kSteps[] = {
        {"SetPackageName Error.", false,
         [](COpAtomBase& builder, const Settings& s) { return builder.SetPackageName(s.packageName); }},
        {"SetDMS Error.", true, [](COpAtomBase& builder, const Settings& s) { return builder.SetDMS(s.metadata); }},
    };
    return BuilderStep::PassAll(kSteps, *this, place, sourceFile, strict);
}

}  // namespace kmxf
