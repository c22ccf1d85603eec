#include "kmxf/writer/CreateMXFOp1b.h"

#include <algorithm>
#include <new>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/Op1bBase.h"
#include "writer/OwnPieces.h"
#include "writer/StoreSetting.h"

namespace kmxf {

namespace {

constexpr char kSourceFile[] = "CreateMXFOp1b";

constexpr uint32_t kVideoKLSize = 20;
constexpr uint32_t kMostFrameBytes = 0xFFFFFC;  // what the 3 bytes of a length say, as a multiple of 4
constexpr uint32_t kMostPieceBytes = 4 << 20;
constexpr uint32_t kMostBlockBytes = 0x7FFFFFFF;  // what a count can return
constexpr uint8_t kNotShownFlags = 0x3B;

// What stands in for XML and thumbnail until they are set.
constexpr uint8_t kPlaceholderXML[] = "Dummy";
constexpr uint16_t kThumbnailWidth = 80, kThumbnailHeight = 45;
constexpr uint8_t kPlaceholderThumbnail[kOp1bThumbnailSize] = {};

}  // namespace

CCreateMXFOp1b::Settings::Settings()
    : company("Kestralin"), product("Jq"), version("3.0"), productUID(kDefaultProductUIDOp1b) {}

CCreateMXFOp1b::CCreateMXFOp1b() : ownPieces_(std::make_unique<OwnPieces>()) {}
CCreateMXFOp1b::~CCreateMXFOp1b() { FileClose(); }

void CCreateMXFOp1b::ResetParam() { settings_ = Settings(); }

int32_t CCreateMXFOp1b::SetVideoStandard(uint32_t videoStandard) {
    settings_.format.videoStd = videoStandard;
    settings_.format.groupFrames = VideoStandardToPartitionFrame(videoStandard);
    return kStatusOk;
}

int32_t CCreateMXFOp1b::SetCompType(uint32_t compressionType) {
    settings_.format.compType = compressionType;
    return kStatusOk;
}

int32_t CCreateMXFOp1b::SetBytesPerSample(uint8_t bytes) {
    if (bytes != 2 && bytes != 3) return kStatusInvalidArgument;
    settings_.format.bytesPerSample = bytes;
    return kStatusOk;
}

int32_t CCreateMXFOp1b::SetClipType(uint32_t clipType) {
    // The channels count even where the type is refused.
    settings_.format.channels = static_cast<uint8_t>(GetSoundTrackNum(clipType));
    return (clipType & 0xF00) == 0x100 ? kStatusOk : kStatusUnexpectedKind;
}

int32_t CCreateMXFOp1b::SetUMID(MXFUMIDTag umid) {
    settings_.umid = umid;
    return kStatusOk;
}

int32_t CCreateMXFOp1b::SetPackageName(const std::string& utf8) { return StoreSetting(settings_.packageName, utf8); }

int32_t CCreateMXFOp1b::SetDescriptiveMetadata(const CDescriptiveMetadata& metadata) {
    return StoreSetting(settings_.metadata, metadata);
}

int32_t CCreateMXFOp1b::SetStartTimecode(const CTimecode& timecode) {
    settings_.startTimecode = timecode.GetTotalFrame();
    settings_.startDrop = timecode.IsDrop();
    return kStatusOk;
}

int32_t CCreateMXFOp1b::SetIdentification(const std::string& company, const std::string& product,
                                          const std::string& version, const uint8_t* productUID) {
    return StoreIdentification(settings_, company, product, version, productUID);
}

int32_t CCreateMXFOp1b::SetXMLData(const uint8_t* xml, uint16_t length) try {
    return opened_ ? builder_->SetXMLData(xml, length) : kStatusWrongState;
} catch (const std::bad_alloc&) {
    return kStatusNoMemory;
}

int32_t CCreateMXFOp1b::SetThumbnailData(const uint8_t* data, uint16_t size, uint16_t width, uint16_t height,
                                         uint8_t format) try {
    if (!opened_) return kStatusWrongState;
    if (format != 0) return kStatusUnexpectedKind;
    return builder_->SetThumbnailData(data, size, width, height, format);
} catch (const std::bad_alloc&) {
    return kStatusNoMemory;
}

int32_t CCreateMXFOp1b::SetThumbnailPosition(uint32_t position) try {
    return opened_ ? builder_->SetThumbnailPosition(position) : kStatusWrongState;
} catch (const std::bad_alloc&) {
    return kStatusNoMemory;
}

int32_t CCreateMXFOp1b::SetPlayerLayout(bool on) {
    settings_.playerLayout = on;
    return kStatusOk;
}

bool CCreateMXFOp1b::IsOpened() const { return opened_; }
uint32_t CCreateMXFOp1b::GetDuration() const { return frames_; }
int64_t CCreateMXFOp1b::GetCurrentOffset() const { return offset_; }
uint32_t CCreateMXFOp1b::GetPartitionFrame() const {
    return opened_ ? format_.groupFrames : settings_.format.groupFrames;
}

bool CCreateMXFOp1b::CheckFormat(uint32_t videoStandard, uint32_t compressionType) {
    // 720 lines have fewer standards than 1080.
    if ((compressionType & 0x200) == 0) return true;
    constexpr uint32_t kProgressive[] = {VIDEO_STD_23_98P, VIDEO_STD_29_97P, VIDEO_STD_59_94P, VIDEO_STD_25P,
                                         VIDEO_STD_50P};
    return std::ranges::find(kProgressive, videoStandard) != std::end(kProgressive);
}

int32_t CCreateMXFOp1b::Open(const char* fileName, IStreamFileIO* stream) try {
    const ScopedLock lock(mutex_);
    const char* const place = "CCreateMXFOp1b::Open";
    if (fileName == nullptr || stream == nullptr) return kStatusInvalidArgument;
    if (opened_) return kStatusOk;
    frames_ = framesIndexed_ = 0;
    origin_ = offset_ = videoOffset_ = audioOffset_ = 0;
    format_ = settings_.format;
    if (!stream->Open(fileName, kOpenCreate)) return Failed(place, kSourceFile, "Open Error.", kStatusIoError);
    if (!CheckFormat(format_.videoStd, format_.compType)) {
        return Failed(place, kSourceFile, "CheckFormat Error.", kStatusFailure);  // closing the stream is the client's
    }
    stream_ = stream;
    opened_ = true;
    if (!stream->RegisterCallback(this)) return GiveUp(place, "RegisterCallback Error.", kStatusIoError);
    creationDate_ = GetCurrentTimeMXF();
    builder_ =
        std::make_unique<COp1bBase>(format_.videoStd, format_.compType, format_.bytesPerSample, format_.channels);
    builder_->SetPlayerLayout(settings_.playerLayout);
    if (const int32_t status = builder_->Initialize(); status != kStatusOk) {
        return GiveUp(place, "Initialize Error.", status);
    }
    builder_->SetXMLData(kPlaceholderXML, sizeof kPlaceholderXML);
    return builder_->SetThumbnailData(kPlaceholderThumbnail, sizeof kPlaceholderThumbnail, kThumbnailWidth,
                                      kThumbnailHeight, 0);
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFOp1b::Open", kStatusNoMemory);
}

int32_t CCreateMXFOp1b::RegisterCallback(IFileIOCallback* callback) {
    callback_ = callback;
    return kStatusOk;
}

void CCreateMXFOp1b::CallbackForWriteComplete(uint64_t offset, int32_t error, int32_t kind) {
    if (error != 0) {
        Report("CCreateMXFOp1b::CallbackForWriteComplete", kSourceFile, "CallbackForWriteComplete Error.");
    }
    if (kind == kBodyPiece || kind == kFooterPiece) {
        ownPieces_->FreeOldest(stream_);
    } else if (IFileIOCallback* callback = callback_) {
        callback->CallbackForWriteComplete(offset, error, kind);
    }
}

int32_t CCreateMXFOp1b::WriteVideo(StreamPiece* frame, int8_t temporalOffset, int8_t keyFrameOffset,
                                   uint8_t flags) try {
    const ScopedLock lock(mutex_);
    const LogPlace place = "CCreateMXFOp1b::WriteVideo";
    if (!IsReady(frame) || frame->GetSize() > kMostFrameBytes) return GiveUp(place, "Error.", kCountFailed);
    const bool groupBegins = frames_ % format_.groupFrames == 0;
    // No frame fits behind a group that is short and has ended; the file stays as it is and can be closed.
    if (!groupBegins && IsGroupEnded()) return Failed(place, kSourceFile, "Error.", kCountFailed);

    if (flags == kNotShownFlags) ++origin_;
    if (frames_ == 0 && WriteHeader() != kStatusOk) return GiveUp(place, "Write Header Error.", kCountFailed);
    if (groupBegins && WriteVideoPartition(false) != kStatusOk) {
        return GiveUp(place, "Write VideoPartition Error.", kCountFailed);
    }

    const uint32_t size = frame->GetSize();  // the piece may be gone after its write
    const uint32_t padding = (4 - size % 4) % 4;
    const uint32_t length = size + padding;
    constexpr uint8_t kZeros[3] = {};
    if (WriteKL(kTrackCodePicture, length, kVideoKLSize) != kStatusOk) {
        return GiveUp(place, "Write KLData Error.", kCountFailed);
    }
    if (WriteEssence(frame) != kStatusOk || (padding != 0 && WriteBytes({kZeros, padding}, kBodyPiece) != kStatusOk)) {
        return GiveUp(place, "Write Video Error.", kCountFailed);
    }
    builder_->AddIndexEntry(temporalOffset, keyFrameOffset, flags, videoOffset_);
    videoOffset_ += kVideoKLSize + length;
    ++frames_;
    if (frames_ % format_.groupFrames == 0 && EndGroup(place) != kStatusOk) return kCountFailed;
    return static_cast<int32_t>(length);
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFOp1b::WriteVideo", kCountFailed);
}

int32_t CCreateMXFOp1b::WriteAudio(StreamPiece* block, uint8_t channel) try {
    const ScopedLock lock(mutex_);
    const LogPlace place = "CCreateMXFOp1b::WriteAudio";
    if (!IsReady(block) || block->GetSize() > kMostBlockBytes || channel >= format_.channels || frames_ == 0) {
        return GiveUp(place, "Error.", kCountFailed);
    }
    // The last group may be shorter than the others: its sound says that it has ended, whichever channel comes first.
    if (!IsGroupEnded() && EndGroup(place) != kStatusOk) return kCountFailed;

    const uint32_t size = block->GetSize();
    if (WriteAudioPartition(channel, false) != kStatusOk) {
        return GiveUp(place, "Write AudioPartition Error.", kCountFailed);
    }
    if (WriteKL(kTrackCodeSound + channel, size, kAudioKLSize) != kStatusOk) {
        return GiveUp(place, "Write KLData Error.", kCountFailed);
    }
    if (WriteEssence(block) != kStatusOk) return GiveUp(place, "Write Audio Error.", kCountFailed);
    if (WriteAudioPartition(channel, true) != kStatusOk) {
        return GiveUp(place, "Write AudioPartition Error.", kCountFailed);
    }
    // One offset for all channels of a group; it counts the blocks without key and length.
    if (channel + 1 == format_.channels) audioOffset_ += size;
    return static_cast<int32_t>(size);
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFOp1b::WriteAudio", kCountFailed);
}

int32_t CCreateMXFOp1b::Close() try {
    const ScopedLock lock(mutex_);
    const LogPlace place = "CCreateMXFOp1b::Close";
    if (!opened_) return kStatusOk;
    int32_t status = kStatusOk;
    if (frames_ > 0) {
        if (!IsGroupEnded()) status = EndGroup(place);
        if (status == kStatusOk) status = SetMXFParam(true);
        if (status == kStatusOk) status = WriteFooter();
        if (status == kStatusOk) status = RewriteHeader();
    }
    FileClose();
    if (status == kStatusOk) ResetParam();
    return status;
} catch (const std::bad_alloc&) {
    return GiveUpWithoutMemory("CCreateMXFOp1b::Close", kStatusNoMemory);
}

bool CCreateMXFOp1b::IsReady(const StreamPiece* piece) const {
    return opened_ && piece != nullptr && builder_ && format_.groupFrames != 0;
}

// Frames in the group that was begun last.
uint32_t CCreateMXFOp1b::GroupSize() const {
    const uint32_t rest = frames_ % format_.groupFrames;
    return rest == 0 ? format_.groupFrames : rest;
}

int32_t CCreateMXFOp1b::GiveUp(const LogPlace& place, const char* message, int32_t status) {
    FileClose();
    return Failed(place, kSourceFile, message, status);
}

int32_t CCreateMXFOp1b::GiveUpWithoutMemory(const LogPlace& place, int32_t status) {
    const ScopedLock lock(mutex_);
    return GiveUp(place, "Allocate Error.", status);
}

// The header is that of a recording that is still going on. Its descriptive metadata comes at Close only, but must not
// be found too long when everything is written.
int32_t CCreateMXFOp1b::WriteHeader() {
    if (const int32_t status = SetMXFParam(false); status != kStatusOk) return status;
    if (const int32_t status = builder_->CheckRoom(settings_.metadata); status != kStatusOk) return status;
    BuiltBytes header;
    const int32_t status = builder_->GetHeaderData(&header.data);
    return WriteBuilt(status, header, builder_->GetHeaderSize(), kBodyPiece);
}

int32_t CCreateMXFOp1b::SetMXFParam(bool full) {
    builder_->SetCreationDate(creationDate_);
    builder_->SetModifiedDate(creationDate_);
    builder_->SetPackageName(settings_.packageName);  // a name that does not fit must not cost the recording
    builder_->SetUMID(settings_.umid);
    builder_->SetStartTimecode(settings_.startTimecode, settings_.startDrop);
    builder_->SetIdentification(settings_.company, settings_.product, settings_.version, settings_.productUID.bytes);
    if (!full) return kStatusOk;

    if (const int32_t status = builder_->SetDMS(settings_.metadata); status != kStatusOk) return status;
    builder_->SetOrigin(origin_);
    builder_->SetDuration(frames_);
    builder_->SetContainerDuration(frames_);
    builder_->SetFooterPartitionParam(offset_);
    if (format_.channels > 0) {
        const int64_t expected =
            DurationToAudioSample(format_.videoStd, frames_, kOp1bSamplesPerSec) * format_.bytesPerSample;
        if (expected != audioOffset_) {
            Report("CCreateMXFOp1b::SetMXFParam", kSourceFile,
                   "Audio data size differs from an expected value. Diff = %d.",
                   static_cast<int32_t>(expected - audioOffset_));
        }
    }
    return kStatusOk;
}

// Index of the picture, then the ANC elements; the sound comes behind them.
int32_t CCreateMXFOp1b::EndGroup(const LogPlace& place) {
    if (const int32_t status = WriteVideoPartition(true); status != kStatusOk) {
        return GiveUp(place, "Write VideoPartition Error.", status);
    }
    if (const int32_t status = WriteANCPartition(); status != kStatusOk) {
        return GiveUp(place, "Write ANCPartition Error.", status);
    }
    framesIndexed_ = frames_;
    return kStatusOk;
}

int32_t CCreateMXFOp1b::WriteVideoPartition(bool withIndex) {
    if (const int32_t status =
            builder_->SetBodyPartitionParamVideo(offset_, videoOffset_, GroupSize(), withIndex, !withIndex);
        status != kStatusOk) {
        return status;
    }
    const uint32_t size = builder_->GetBodyPartitionSize(withIndex, false);
    BuiltBytes partition;
    const int32_t status = builder_->GetBodyPartitionDataVideo(&partition.data, withIndex);
    return WriteBuilt(status, partition, size, kBodyPiece);
}

int32_t CCreateMXFOp1b::WriteAudioPartition(uint8_t channel, bool withIndex) {
    if (const int32_t status =
            builder_->SetBodyPartitionParamAudio(offset_, audioOffset_, GroupSize(), channel, withIndex, !withIndex);
        status != kStatusOk) {
        return status;
    }
    const uint32_t size = builder_->GetBodyPartitionSize(withIndex, true);
    BuiltBytes partition;
    const int32_t status = builder_->GetBodyPartitionDataAudio(&partition.data, withIndex, channel);
    return WriteBuilt(status, partition, size, kBodyPiece);
}

int32_t CCreateMXFOp1b::WriteANCPartition() {
    BuiltBytes block;
    const int32_t status = builder_->GetBodyPartitionDataANCData(&block.data, offset_, GroupSize());
    return WriteBuilt(status, block, builder_->GetBodyPartitionSizeANCData(GroupSize()), kBodyPiece);
}

int32_t CCreateMXFOp1b::WriteFooter() {
    const LogPlace place = "CCreateMXFOp1b::Close";
    BuiltBytes footer, randomIndex;
    if (const int32_t status = builder_->GetFooterData(&footer.data); status != kStatusOk) {
        return GiveUp(place, "GetFooterData Error.", status);
    }
    if (const int32_t status = WriteBytes({footer.data, builder_->GetFooterSize()}, kFooterPiece);
        status != kStatusOk) {
        return GiveUp(place, "Write Footer Error.", status);
    }
    if (const int32_t status = builder_->GetRandomIndexData(&randomIndex.data); status != kStatusOk) {
        return GiveUp(place, "GetRandomIndexData Error.", status);
    }
    if (const int32_t status = WriteBytes({randomIndex.data, builder_->GetRandomIndexSize()}, kFooterPiece);
        status != kStatusOk) {
        return GiveUp(place, "Write RIP Error.", status);
    }
    return kStatusOk;
}

// Writes whole units of the medium, so the first unit of the file is read and its beginning replaced.
int32_t CCreateMXFOp1b::RewriteHeader() {
    const LogPlace place = "CCreateMXFOp1b::Close";
    BuiltBytes header;
    if (const int32_t status = builder_->GetHeaderData(&header.data); status != kStatusOk) {
        return GiveUp(place, "GetHeaderData Error.", status);
    }
    const uint32_t headerSize = builder_->GetHeaderSize();
    const auto unit =
        static_cast<uint32_t>(std::min<int64_t>(std::max(stream_->GetClusterSize(), headerSize), offset_));
    PieceAllocator allocator(stream_);
    OwnedPiece piece(allocator, unit);
    if (!piece || stream_->Seek(0, kSeekBegin) < 0 || stream_->Read(piece.get(), 0) != static_cast<int64_t>(unit)) {
        piece.reset();
        return GiveUp(place, "Read First Cluster Error.", kStatusIoError);
    }
    if (stream_->Seek(0, kSeekBegin) < 0) {
        piece.reset();
        return GiveUp(place, "Write Header Error.", kStatusIoError);
    }
    piece->CopyIn(0, header.data, headerSize);
    ownPieces_->Add(piece.get());
    if (stream_->Write(piece.release(), kBodyPiece, 0) != static_cast<int32_t>(unit)) {
        return GiveUp(place, "Write Header Error.", kStatusIoError);
    }
    return kStatusOk;
}

int32_t CCreateMXFOp1b::WriteBuilt(int32_t builderStatus, const BuiltBytes& built, uint32_t size, int32_t kind) {
    return builderStatus == kStatusOk ? WriteBytes({built.data, size}, kind) : builderStatus;
}

int32_t CCreateMXFOp1b::WriteKL(uint32_t trackCode, int64_t length, uint32_t size) {
    uint8_t kl[kAudioKLSize];
    if (const int32_t status = builder_->GetKLData(trackCode, length, kl); status != kStatusOk) return status;
    return WriteBytes({kl, size}, kBodyPiece);
}

int32_t CCreateMXFOp1b::WriteBytes(std::span<const uint8_t> bytes, int32_t kind) {
    PieceAllocator allocator(stream_);
    while (!bytes.empty()) {
        // The footer of a long recording has tens of megabytes.
        const auto size = static_cast<uint32_t>(std::min<size_t>(bytes.size(), kMostPieceBytes));
        OwnedPiece piece(allocator, size);
        if (!piece) return kStatusNoMemory;
        piece->CopyIn(0, bytes.data(), size);
        ownPieces_->Add(piece.get());
        if (int64_t{stream_->Write(piece.release(), kind, 0)} != size) return kStatusIoError;
        offset_ += size;
        bytes = bytes.subspan(size);
    }
    return kStatusOk;
}

int32_t CCreateMXFOp1b::WriteEssence(StreamPiece* piece) {
    const uint32_t size = piece->GetSize();
    if (int64_t{stream_->Write(piece, kEssencePiece, 0)} != size) return kStatusIoError;
    offset_ += size;
    return kStatusOk;
}

int32_t CCreateMXFOp1b::FileClose() {
    if (opened_ && !stream_->Close()) Report("CCreateMXFOp1b::FileClose", kSourceFile, "FileClose Error.");
    opened_ = false;
    ownPieces_->FreeAll(stream_);
    builder_.reset();
    return kStatusOk;
}

}  // namespace kmxf
