#include "kmxf/reader/ReadMXFOp1b.h"

#include <algorithm>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "collaborators/SEI.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "kmxf/collaborators/Log.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/structures/RandomIndex.h"
#include "reader/Op1bHeader.h"
#include "reader/StreamRead.h"

namespace kmxf {

namespace {

constexpr char kSource[] = "ReadMXFOp1b";

constexpr uint32_t kHeadRead = 80;           // of the file, for the size of its header
constexpr uint32_t kHeaderByteCountAt = 32;  // in the value of a partition pack
constexpr uint32_t kBERSize = 4;             // of the length of a video or ANC element: 0x83 and 3 bytes
constexpr uint32_t kSoundHeadSize = 24;      // key and length of a sound element: 0x87 and 7 bytes
constexpr uint32_t kOverallSize = 4;         // the random index pack's own size, the last bytes of the file
constexpr uint32_t kEmptyRandomIndexSize = 24;
constexpr uint32_t kMostIndexBytes = 1 << 20;  // more than items of up to 64 KiB each come to
constexpr uint32_t kMostEmptyANC = 8;          // bytes of an ANC value that count as no data

// The streams of a group in the order of the file; sound channel c is kSound + c. BodySIDs count them from 1.
constexpr uint32_t kVideo = 0, kANC = 1, kSound = 2;

int32_t Fail(LogPlace place, const char* message, int32_t status) { return Failed(place, kSource, message, status); }

// Bytes of pack and metadata, rounded up to a multiple of 4; 0 when the start of the file does not tell.
uint64_t HeaderSize(HeaderBytes start) {
    const auto head = ReadKLVHead(start, BERForm::kLongOnly);
    if (!head) return 0;
    ByteReader pack(start.subspan(head->size));
    pack.Skip(kHeaderByteCountAt);
    const uint64_t metadata = pack.U64();
    if (!pack.Ok()) return 0;
    constexpr uint64_t kMost = uint64_t{1} << 62;  // over the size of any file: the sum stays so
    return (head->size + std::min(head->length, kMost) + std::min(metadata, kMost) + 3) / 4 * 4;
}

// Ends a search through the messages of a picture, and logs its failure.
template <class Parse>
int32_t Parsed(LogPlace place, const char* failed, Parse parse) {
    int32_t status = kStatusNoMemory;
    try {
        status = parse();
    } catch (const std::bad_alloc&) {
    }
    if (status == kStatusFrameNoInfo) status = kStatusNotFound;
    return status == kStatusOk ? status : Fail(place, failed, status);
}

// What lies between a stream's body partition pack and its index partition pack.
struct Essence {
    uint64_t offset = 0;  // in the file
    uint64_t size = 0;
    uint64_t End() const { return offset + size; }
};

}  // namespace

// An open file. It is closed with this object.
struct CReadMXFOp1b::File {
    IStreamFileIO* stream = nullptr;
    uint64_t size = 0;
    std::vector<uint8_t> header;
    uint32_t packSize = 0;  // of the header partition pack; the others are taken to be as long
    Op1bHeader clip;
    uint32_t groupFrames = 0;
    CRandomIndex partitions;
    uint64_t ancElementSize = 0;  // 0: not to be had
    uint32_t lastBlockSize = 0;   // bytes of a channel in the clip's last group

    // The index of one group, with the essence it describes.
    std::optional<uint32_t> group;
    CIndexCommon index{1, 0, 0, 1};
    Essence pictures;
    uint64_t firstStreamOffset = 0;

    File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (stream != nullptr && !stream->Close()) Report("CReadMXFOp1b::Close", kSource, "FileClose Error.");
    }

    // Null when the bytes came, otherwise what went wrong.
    const char* Read(uint64_t offset, uint64_t count, std::vector<uint8_t>& bytes) const try {
        if (offset > size || count > size - offset) return "Read Error.";
        PieceAllocator allocator(stream);
        const OwnedPiece piece(allocator, static_cast<uint32_t>(count));
        if (!piece || piece->GetSize() != count) return "Allocate Error.";
        if (!ReadWholeAt(*stream, offset, piece)) return "Read Error.";
        bytes.assign(piece.Bytes().begin(), piece.Bytes().end());
        return nullptr;
    } catch (const std::bad_alloc&) {
        return "Allocate Error.";
    }
    // The length of the video or ANC element whose length field stands there.
    std::optional<uint32_t> ReadBER(uint64_t offset) const {
        std::vector<uint8_t> bytes;
        if (Read(offset, kBERSize, bytes) != nullptr) return std::nullopt;
        const uint32_t field = ByteReader(bytes).U32();
        return field >> 24 == 0x83 ? std::optional(field & 0xFFFFFF) : std::nullopt;
    }

    // Where the partition of an entry begins, if that is a partition of this BodySID and can lie in the file.
    std::optional<uint64_t> Partition(uint64_t entry, uint32_t bodySID) const {
        if (entry >= partitions.GetPartitionNum()) return std::nullopt;
        const auto number = static_cast<uint32_t>(entry);
        const auto offset = static_cast<uint64_t>(partitions.GetPartitionOffset(number));
        if (partitions.GetBodySID(number) != bodySID || offset > size - packSize) return std::nullopt;
        return offset;
    }
    // The essence of a stream in a group: entry 0 is the header, then every stream has a body and an index partition.
    std::optional<Essence> EssenceOf(uint64_t groupNumber, uint32_t streamNumber) const {
        if (groupNumber >= partitions.GetPartitionNum()) return std::nullopt;
        const uint64_t entry = 2 * ((uint64_t{clip.channels} + kSound) * groupNumber + streamNumber) + 1;
        const auto body = Partition(entry, streamNumber + 1), next = Partition(entry + 1, 0);
        if (!body || !next || *next < *body + packSize) return std::nullopt;
        return Essence{*body + packSize, *next - *body - packSize};
    }
    // The samples of a channel in a group.
    std::optional<Essence> SoundBlock(uint64_t groupNumber, uint32_t channel) const {
        const auto sound = EssenceOf(groupNumber, kSound + channel);
        if (!sound || sound->size < kSoundHeadSize) return std::nullopt;
        const Essence block{sound->offset + kSoundHeadSize, sound->size - kSoundHeadSize};
        return block.size <= std::numeric_limits<uint32_t>::max() ? std::optional(block) : std::nullopt;
    }

    bool GetRandomIndex() {
        std::vector<uint8_t> bytes;
        if (Read(size - kOverallSize, kOverallSize, bytes) != nullptr) return false;
        const uint32_t length = ByteReader(bytes).U32();
        if (length < kEmptyRandomIndexSize || length > size) return false;
        // The end of a file that was cut off says anything: it is a pack before it is read whole.
        if (Read(size - length, kEmptyRandomIndexSize, bytes) != nullptr) return false;
        const auto head = ReadKLVHead(bytes);
        if (!head || head->key != kRandomIndexPackKey || head->size + head->length != length) return false;
        if (Read(size - length, length, bytes) != nullptr) return false;
        return partitions.SetData(bytes.data(), length) == kStatusOk;
    }
    // Holds the index of this group; on failure, none.
    bool GetVideoIndex(uint32_t groupNumber) try {
        if (group == groupNumber) return true;
        group.reset();
        const auto essence = EssenceOf(groupNumber, kVideo);
        std::vector<uint8_t> bytes;
        if (!essence || Read(essence->End(), packSize, bytes) != nullptr) return false;
        CPartition pack;
        if (pack.SetData(bytes.data(), packSize) != kStatusOk) return false;
        // A negative count leads out of the file too. Behind the segment there may be a fill item.
        const auto count = static_cast<uint64_t>(pack.GetIndexByteCount());
        if (count > kMostIndexBytes || Read(essence->End() + packSize, count, bytes) != nullptr) return false;
        MXFINDEXENTRYTag first;
        if (index.SetData(bytes.data(), static_cast<uint32_t>(count)) != kStatusOk ||
            index.GetIndexEntry(0, &first) != kStatusOk)
            return false;
        pictures = *essence;
        firstStreamOffset = first.streamOffset;
        group = groupNumber;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
    bool GetStartVideoIndex() {
        if (!GetVideoIndex(0)) return false;
        // All ANC elements have one size.
        if (const auto anc = EssenceOf(0, kANC)) ancElementSize = anc->size / index.GetIndexEntryNum();
        return true;
    }
    void GetLastBlockSize() {
        if (clip.channels == 0) return;
        const auto block = SoundBlock(static_cast<uint64_t>(clip.duration - 1) / groupFrames, 0);
        lastBlockSize = block ? static_cast<uint32_t>(block->size) : 0;
    }

    bool HasFrame(uint32_t frame) const { return std::cmp_less(frame, clip.frames); }

    int32_t Entry(LogPlace place, uint32_t frame, MXFINDEXENTRYTag& entry) {
        if (!HasFrame(frame)) return kStatusNotFound;
        if (!GetVideoIndex(frame / groupFrames)) return Fail(place, "GetVideoIndex Error.", kStatusFailure);
        return index.GetIndexEntry(frame % groupFrames, &entry) == kStatusOk ? kStatusOk : kStatusFailure;
    }
    int32_t Locate(LogPlace place, uint32_t frame, VIDEOFRAMEINFOTag& info) {
        MXFINDEXENTRYTag entry, next;
        if (const int32_t status = Entry(place, frame, entry); status != kStatusOk) return status;
        const bool last = index.GetIndexEntry(frame % groupFrames + 1, &next) != kStatusOk;
        const uint64_t begin = entry.streamOffset - firstStreamOffset;
        const uint64_t end = last ? pictures.size : next.streamOffset - firstStreamOffset;
        if (end > pictures.size || begin > end || end - begin < kKLVHeadSize ||
            end - begin > std::numeric_limits<uint32_t>::max())
            return kStatusFailure;
        info = {pictures.offset + begin + kKLVHeadSize, static_cast<uint32_t>(end - begin - kKLVHeadSize),
                entry.temporalOffset, entry.keyFrameOffset, entry.flags};
        return kStatusOk;
    }
};

CReadMXFOp1b::CReadMXFOp1b() = default;
CReadMXFOp1b::~CReadMXFOp1b() = default;

int32_t CReadMXFOp1b::Open(const char* fileName, IStreamFileIO* stream) {
    const LogPlace place("CReadMXFOp1b::Open");
    const ScopedLock lock(lock_);
    file_.reset();
    if (fileName == nullptr || stream == nullptr) return Fail(place, "Invalid argument.", kStatusInvalidArgument);
    try {
        auto file = std::make_unique<File>();
        if (!stream->Open(fileName, kOpenRead)) return Fail(place, "Open Error.", kStatusIoError);
        file->stream = stream;
        const int32_t status = Load(*file);
        if (status == kStatusOk) file_ = std::move(file);
        return status;
    } catch (const std::bad_alloc&) {
        return Fail(place, "Error.", kStatusNoMemory);
    }
}

int32_t CReadMXFOp1b::Load(File& file) {
    const LogPlace place("CReadMXFOp1b::Open");
    file.size = static_cast<uint64_t>(std::max<int64_t>(file.stream->Seek(0, kSeekEnd), 0));
    const uint64_t headerSize = file.Read(0, kHeadRead, file.header) == nullptr ? HeaderSize(file.header) : 0;
    if (headerSize == 0) return Fail(place, "GetHeaderSize Error.", kStatusFailure);
    if (const char* failure = file.Read(0, headerSize, file.header)) return Fail(place, failure, kStatusIoError);

    const auto refuse = [&](const char* format, int32_t status) {
        Report(place, kSource, format, static_cast<int>(headerSize));
        DebugDump(file.header.data());
        return status;
    };
    CPartition pack;
    if (const int32_t status = pack.SetData(file.header.data(), static_cast<uint32_t>(headerSize)); status != kStatusOk)
        return refuse("HeaderData Error. HeaderSize: %d.", status);
    if (!pack.IsOp1b()) return refuse("No Op1b. HeaderSize: %d.", kStatusFailure);
    file.packSize = pack.GetLength();

    Op1bHeader& clip = file.clip;
    if (!GetHeaderParam(file.header, clip)) return Fail(place, "GetHeaderParam Error.", kStatusFailure);
    if (!GetMetadata(file.header, clip)) return Fail(place, "GetMetadata Error.", kStatusFailure);
    if (clip.duration == 0) return Fail(place, "Duration is 0.", kStatusNotFound);
    file.groupFrames = VideoStandardToPartitionFrame(clip.videoStd);
    if (!file.GetRandomIndex()) return Fail(place, "GetRandomIndex Error.", kStatusFailure);
    if (!file.GetStartVideoIndex()) return Fail(place, "GetStartVideoIndex Error.", kStatusFailure);
    file.GetLastBlockSize();
    return kStatusOk;
}

int32_t CReadMXFOp1b::Close() {
    const ScopedLock lock(lock_);
    file_.reset();
    return kStatusOk;
}

int32_t CReadMXFOp1b::GetVideoInfo(uint32_t frame, VIDEOFRAMEINFOTag& info) {
    return file_ ? file_->Locate("CReadMXFOp1b::GetVideoInfo", frame, info) : kStatusWrongState;
}

int32_t CReadMXFOp1b::GetVideoInfoFiller(uint32_t frame, VIDEOFRAMEINFOTag& info) {
    const LogPlace place("CReadMXFOp1b::GetVideoInfoFiller");
    if (!file_) return kStatusWrongState;
    VIDEOFRAMEINFOTag found;
    if (const int32_t status = file_->Locate(place, frame, found); status != kStatusOk) return status;
    const auto length = file_->ReadBER(found.offset - kBERSize);
    if (!length || *length > file_->size - found.offset) return Fail(place, "BERLength Read Error.", kStatusIoError);
    info = found;
    info.size = *length;
    return kStatusOk;
}

int32_t CReadMXFOp1b::GetVideoIndexEntry(uint32_t frame, MXFINDEXENTRYTag& entry) {
    return file_ ? file_->Entry("CReadMXFOp1b::GetVideoIndexEntry", frame, entry) : kStatusWrongState;
}

int32_t CReadMXFOp1b::GetAudioInfo(uint32_t frame, uint32_t channel, AUDIODATAINFOTag& info) {
    if (!file_) return kStatusWrongState;
    const Op1bHeader& clip = file_->clip;
    if (clip.channels == 0) return kStatusFailure;
    if (channel >= clip.channels || std::cmp_greater_equal(frame, clip.duration)) return kStatusInvalidArgument;
    const auto block = file_->SoundBlock(frame / file_->groupFrames, channel);
    if (!block) return kStatusFailure;
    // The clip's last group may be a short one.
    const bool last = clip.duration - frame <= clip.duration % file_->groupFrames;
    const int64_t sample = DurationToAudioSample(clip.videoStd, frame % file_->groupFrames, 48000);
    info = {block->offset, last ? file_->lastBlockSize : static_cast<uint32_t>(block->size),
            static_cast<uint32_t>(sample) * clip.bytesPerSample};
    return kStatusOk;
}

int32_t CReadMXFOp1b::GetANCInfo(uint32_t frame, ANCDATAINFOTag& info) {
    if (!file_) return kStatusWrongState;
    if (!file_->HasFrame(frame)) return kStatusInvalidArgument;
    const auto anc = file_->EssenceOf(frame / file_->groupFrames, kANC);
    const uint64_t elementSize = file_->ancElementSize;
    const uint64_t element = frame % file_->groupFrames * elementSize;
    if (!anc || elementSize < kKLVHeadSize || element + elementSize > anc->size) return kStatusFailure;
    const uint64_t value = anc->offset + element + kKLVHeadSize;
    const auto length = file_->ReadBER(value - kBERSize);
    if (!length) return Fail("CReadMXFOp1b::GetANCInfo", "BERLength Read Error.", kStatusIoError);
    if (*length > elementSize - kKLVHeadSize) return kStatusFailure;
    info = {value, *length, static_cast<uint8_t>(*length > kMostEmptyANC ? 1 : 0)};
    return kStatusOk;
}

int64_t CReadMXFOp1b::GetCodingPosition(uint32_t frame) {
    MXFINDEXENTRYTag entry;
    if (GetVideoIndexEntry(frame, entry) != kStatusOk) return -1;
    return std::max<int64_t>(int64_t{frame} + entry.temporalOffset, -1);
}

int32_t CReadMXFOp1b::GetSEIType1(uint32_t frame, uint8_t* buffer) {
    const LogPlace place("CReadMXFOp1b::GetSEIType1");
    if (!file_) return kStatusWrongState;
    if (buffer == nullptr) return kStatusInvalidArgument;
    VIDEOFRAMEINFOTag info;
    if (const int32_t status = file_->Locate(place, frame, info); status != kStatusOk) return status;
    std::vector<uint8_t> area;
    if (const char* failure = file_->Read(info.offset, std::min<uint32_t>(info.size, kSEIAreaSize), area))
        return Fail(place, failure, kStatusIoError);
    std::fill_n(buffer, kSEIAreaSize, uint8_t{0});
    std::ranges::copy(area, buffer);
    return kStatusOk;
}

// Picture timing reads right only with the parameter sets, which may stand in front of the key picture alone.
int32_t CReadMXFOp1b::FeedKeyPicture(uint32_t frame, CAVCSEIData& parser) {
    MXFINDEXENTRYTag entry;
    if (const int32_t status = GetVideoIndexEntry(frame, entry); status != kStatusOk) return status;
    const int64_t key = int64_t{frame} + entry.keyFrameOffset;
    if (key < 0 || key == frame) return kStatusOk;
    uint8_t area[kSEIAreaSize];
    const int32_t status = GetSEIType1(static_cast<uint32_t>(key), area);
    if (status == kStatusOk) parser.SetSEIData(area, kSEIAreaSize, false);
    return status;
}

int32_t CReadMXFOp1b::GetTimecode(uint32_t frame, CTimecode& timecode, eSEIDataType type) {
    return Parsed("CReadMXFOp1b::GetTimecode", "GetTimecode Error.", [&]() -> int32_t {
        uint8_t area[kSEIAreaSize], packed[4];
        if (const int32_t read = GetSEIType1(frame, area); read != kStatusOk) return read;
        CAVCSEIData parser;
        if (const int32_t fed = FeedKeyPicture(frame, parser); fed != kStatusOk) return fed;
        parser.SetSEIData(area, kSEIAreaSize, false);
        int32_t got = parser.GetTimecode(packed, type);
        if (got != kStatusOk) return got;
        CTimecode found;
        found.SetVideoStd(ConvertTCVideoStd(file_->clip.videoStd));
        got = found.SetData(packed);
        if (got == kStatusOk) timecode = found;
        return got;
    });
}

int32_t CReadMXFOp1b::GetUsersBit(uint32_t frame, CUsersBit& usersBit, eSEIDataType type) {
    return Parsed("CReadMXFOp1b::GetUsersBit", "GetUsersBit Error.", [&]() -> int32_t {
        uint8_t area[kSEIAreaSize], packed[4];
        if (const int32_t read = GetSEIType1(frame, area); read != kStatusOk) return read;
        CAVCSEIData parser;
        parser.SetSEIData(area, kSEIAreaSize, false);
        const int32_t got = parser.GetUsersBit(packed, type);
        return got == kStatusOk ? usersBit.SetData(packed) : got;
    });
}

// A reader without a file answers as for a clip of nothing.
const Op1bHeader& CReadMXFOp1b::Clip() const {
    static const Op1bHeader none;
    return file_ ? file_->clip : none;
}

int64_t CReadMXFOp1b::GetDuration() const { return Clip().duration; }
int64_t CReadMXFOp1b::GetOrigin() const { return Clip().origin; }
uint32_t CReadMXFOp1b::GetPartitionFrame() const { return VideoStandardToPartitionFrame(Clip().videoStd); }
uint32_t CReadMXFOp1b::GetVideoStandard() const { return Clip().videoStd; }
uint32_t CReadMXFOp1b::GetCompressionType() const { return Clip().compType; }
uint32_t CReadMXFOp1b::GetAudioCh() const { return Clip().channels; }
int64_t CReadMXFOp1b::GetAudioDataSize() const { return Clip().samples * Clip().bytesPerSample; }
uint32_t CReadMXFOp1b::GetSamplingRate() const { return Clip().samplingRate; }
uint8_t CReadMXFOp1b::GetBytesPerSample() const { return Clip().bytesPerSample; }
bool CReadMXFOp1b::IsValidDMS() const { return Clip().validDMS; }

int32_t CReadMXFOp1b::GetStartTimecode(CTimecode& timecode) const {
    if (!file_) return kStatusWrongState;
    if (!std::in_range<uint32_t>(Clip().startTimecode)) return kStatusNotFound;
    timecode = CTimecode(static_cast<uint32_t>(Clip().startTimecode), Clip().drop);
    return timecode.SetVideoStd(ConvertTCVideoStd(Clip().videoStd));
}

int32_t CReadMXFOp1b::GetMaterialUID(MXFUMIDTag& umid) const {
    if (!file_) return kStatusWrongState;
    umid = Clip().materialUID;
    return kStatusOk;
}

int32_t CReadMXFOp1b::CopyOut(bool there, const SideData& data, uint8_t* buffer) const {
    if (buffer == nullptr) return kStatusInvalidArgument;
    if (!there) return kStatusNotFound;
    std::ranges::copy(HeaderBytes(file_->header).subspan(data.offset, data.size), buffer);
    return kStatusOk;
}

uint32_t CReadMXFOp1b::GetXMLDataSize() const { return Clip().xml.value_or(SideData{}).size; }
int64_t CReadMXFOp1b::GetXMLOffset() const { return static_cast<int64_t>(Clip().xml.value_or(SideData{}).offset); }
int32_t CReadMXFOp1b::GetXMLData(uint8_t* buffer) {
    return CopyOut(Clip().xml.has_value(), Clip().xml.value_or(SideData{}), buffer);
}

int32_t CReadMXFOp1b::GetThumbnailType() const { return Clip().thumbnail ? Clip().thumbnail->format : -1; }
uint16_t CReadMXFOp1b::GetThumbnailWidth() const { return Clip().thumbnail ? Clip().thumbnail->width : uint16_t{0}; }
uint16_t CReadMXFOp1b::GetThumbnailHeight() const { return Clip().thumbnail ? Clip().thumbnail->height : uint16_t{0}; }
uint32_t CReadMXFOp1b::GetThumbnailDataSize() const { return Clip().thumbnail ? Clip().thumbnail->picture.size : 0; }
int32_t CReadMXFOp1b::GetThumbnailData(uint8_t* buffer) {
    return CopyOut(Clip().thumbnail.has_value(), Clip().thumbnail.value_or(Thumbnail{}).picture, buffer);
}

uint32_t CReadMXFOp1b::GetHeaderSize() const { return file_ ? static_cast<uint32_t>(file_->header.size()) : 0; }
bool CReadMXFOp1b::GetHeaderData(uint8_t* buffer) const {
    if (!file_ || buffer == nullptr) return false;
    std::ranges::copy(file_->header, buffer);
    return true;
}

int64_t CReadMXFOp1b::GetFrameworkOffset(const uint8_t* header, MXFKEYTag frameworkKey) {
    const auto at = FindPacket({header, header == nullptr ? 0 : GetHeaderSize()}, frameworkKey);
    return at ? static_cast<int64_t>(*at) : -1;
}

void CReadMXFOp1b::DebugDump(const uint8_t* bytes) {
    if (bytes == nullptr) return;
    using jq_middle_common::Log;
    constexpr char kOperation[] = "CReadMXFOp1b::DebugDump";
    Log("", kOperation, kSource, __LINE__, kLogInfo).SetMessage("*** CReadMXFOp1b Debug Info ***");
    for (const uint8_t* b : {bytes, bytes + 8}) {
        Log("", kOperation, kSource, __LINE__, kLogInfo)
            .SetMessage("0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x", b[0], b[1], b[2], b[3], b[4], b[5],
                        b[6], b[7]);
    }
}

}  // namespace kmxf
