#include "kmxf/reader/ReadMXFBase.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/Bytes.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Partition.h"
#include "reader/EssenceFormats.h"
#include "reader/StreamRead.h"

namespace kmxf {

namespace {

int32_t Fail(LogPlace place, const char* message, int32_t status) {
    return Failed(place, "ReadMXFBase", message, status);
}

// What became of a header: no message when it was taken.
struct Outcome {
    int32_t status = kStatusOk;
    const char* message = nullptr;
};

struct Essence {
    MXFKEYTag container;
    size_t offset = 0;
    uint64_t size = 0;
};

// Steps over a partition pack of this length and over the header metadata and index that it counts; false when that
// leads out of the header area. A negative count is out of it too.
bool StepOver(uint32_t packLength, const CPartition& pack, std::span<const uint8_t>& rest) {
    int64_t headerBytes = 0;
    pack.GetHeaderByteCount(headerBytes);
    for (const uint64_t step :
         {uint64_t{packLength}, static_cast<uint64_t>(headerBytes), static_cast<uint64_t>(pack.GetIndexByteCount())}) {
        if (step > rest.size()) return false;
        rest = rest.subspan(static_cast<size_t>(step));
    }
    return true;
}

Outcome FindEssence(std::span<const uint8_t> area, Essence& essence) {
    constexpr Outcome outside{kStatusInvalidArgument, "SetData Error."};
    auto rest = area;
    const auto parse = [&](CPartition& pack) { return pack.SetData(rest.data(), static_cast<uint32_t>(rest.size())); };

    CPartition header;
    int32_t status = parse(header);
    // A sound pack of another operational pattern is no failure: the status stays 0.
    if (status != kStatusOk || !header.IsOpAtom()) return {status, "No OpAtom."};
    header.GetEssenceContainer(&essence.container, 0);
    if (!StepOver(header.GetLength(), header, rest)) return outside;

    CPartition body;
    status = parse(body);
    if (status != kStatusOk) return {status, "SetData Error."};
    // The body pack is taken to be as long as the header pack; its own length is not looked at.
    if (!StepOver(header.GetLength(), body, rest)) return outside;

    // The element may have any key.
    const auto element = ReadKLVHead(rest, BERForm::kLongOnly);
    if (!element || element->length > uint64_t{std::numeric_limits<int64_t>::max()}) return outside;
    essence.offset = area.size() - rest.size() + element->size;
    essence.size = element->length;
    return {};
}

struct Item {
    size_t offset;
    std::span<const uint8_t> value;
};

// The item in the first set with this key. Lengths of packets are taken for the long form throughout, and the walk over
// the items runs to the end of the data, not of the set: a tag that the set lacks is sought in the bytes behind it.
std::optional<Item> FindItem(std::span<const uint8_t> data, const MXFKEYTag& key, uint16_t localTag) {
    ByteReader packets(data);
    for (;;) {
        const auto head = ReadKLVHead(data.subspan(packets.Position()), BERForm::kLongOnly);
        if (!head) return std::nullopt;
        packets.Skip(head->size);
        if (head->key == key) break;
        packets.Skip(head->length);
        if (!packets.Ok()) return std::nullopt;
    }
    for (ByteReader& items = packets;;) {
        const uint16_t tag = items.U16();
        const uint16_t length = items.U16();
        const size_t offset = items.Position();
        const auto value = items.Take(length);
        if (!items.Ok()) return std::nullopt;
        if (tag == localTag) return Item{offset, value};
    }
}

template <class Value>
int32_t Answer(Value* out, bool known, Value value) {
    if (out == nullptr) return kStatusInvalidArgument;
    if (!known) return kStatusWrongState;
    *out = value;
    return kStatusOk;
}

int32_t AnswerPosition(int64_t* out, int64_t position) {
    if (position < 0) return kStatusIoError;
    *out = position;
    return kStatusOk;
}

}  // namespace

CReadMXFBase::CReadMXFBase() = default;
CReadMXFBase::~CReadMXFBase() { CReadMXFBase::Close(); }

int32_t CReadMXFBase::SetFilename(const char* fileName) {
    const size_t length = fileName == nullptr ? sizeof fileName_ : strnlen(fileName, sizeof fileName_);
    if (length == sizeof fileName_) return kStatusInvalidArgument;
    std::memcpy(fileName_, fileName, length + 1);
    return kStatusOk;
}

int32_t CReadMXFBase::Open(IStreamFileIO* stream, bool readHeader) {
    const ScopedLock lock(lock_);
    if (stream == nullptr) return Fail("CReadMXFBase::Open", "Invalid argument.", kStatusInvalidArgument);
    // A file that was open before is forgotten, but not closed.
    headerRead_ = false;
    dataOffset_ = 0;
    dataSize_ = 0;
    stream_ = stream;
    opened_ = stream_->Open(fileName_, GetOpenFlag());
    if (!opened_) return Fail("CReadMXFBase::Open", "Open Error.", kStatusIoError);
    if (!readHeader) return kStatusOk;

    const int32_t status = ReadHeader();
    if (status == kStatusOk || status == kStatusNotFound) return status;
    FileClose();
    return Fail("CReadMXFBase::Open", "ReadHeader Error.", status);
}

int32_t CReadMXFBase::Close() {
    const ScopedLock lock(lock_);
    return opened_ ? FileClose() : kStatusOk;
}

int32_t CReadMXFBase::FileClose() {
    if (stream_ != nullptr && opened_ && !stream_->Close())
        Report("CReadMXFBase::FileClose", "ReadMXFBase", "FileClose Error.");
    headerRead_ = false;
    opened_ = false;
    dataOffset_ = 0;
    dataSize_ = 0;
    stream_ = nullptr;
    return kStatusOk;
}

int32_t CReadMXFBase::Read(StreamPiece* piece) {
    const ScopedLock lock(lock_);
    if (!opened_) return Fail("CReadMXFBase::Read", "Not Open.", kCountFailed);
    const int32_t count = piece == nullptr ? kCountFailed : stream_->Read(piece, 0);
    if (count > 0) return count;
    FileClose();
    return Fail("CReadMXFBase::Read",
                piece == nullptr ? "Invalid argument."
                : count == 0     ? "End of file."
                                 : "Read Error.",
                kCountFailed);
}

int32_t CReadMXFBase::ReadHeader() {
    if (!opened_ || headerRead_) return kStatusOk;
    Essence essence;
    PieceAllocator allocator(stream_);
    const Outcome outcome = [&]() -> Outcome {
        const OwnedPiece piece(allocator, kOpAtomHeaderSize);  // back with its allocator before the file is closed
        if (!piece) return {kStatusIoError, "Allocate Error."};
        if (!ReadWholeAt(*stream_, 0, piece)) return {kStatusIoError, "Read Error."};
        try {
            const Outcome found = FindEssence(piece.Bytes(), essence);
            if (found.message != nullptr) return found;
        } catch (const std::bad_alloc&) {
            return {kStatusNoMemory, "Error."};
        }
        if (stream_->Seek(static_cast<int64_t>(essence.offset), kSeekBegin) < 0) return {kStatusIoError, "Read Error."};
        return {};
    }();
    if (outcome.message != nullptr) {
        const int32_t status = Fail("CReadMXFBase::ReadHeader", outcome.message, outcome.status);
        FileClose();
        return status;
    }
    essenceContainer_ = essence.container;
    dataOffset_ = static_cast<uint32_t>(essence.offset);
    dataSize_ = static_cast<int64_t>(essence.size);
    headerRead_ = true;
    return dataSize_ != 0 ? kStatusOk : kStatusNotFound;
}

uint32_t CReadMXFBase::GetOpenFlag() { return kOpenRead; }

bool CReadMXFBase::IsOpened() const { return opened_; }
bool CReadMXFBase::IsReadHeader() const { return headerRead_; }
int32_t CReadMXFBase::GetDataOffset(uint32_t* offset) const { return Answer(offset, headerRead_, dataOffset_); }
int32_t CReadMXFBase::GetDataSize(int64_t* size) const { return Answer(size, headerRead_, dataSize_); }

int32_t CReadMXFBase::GetFileType(uint32_t* fileType) const {
    return Answer(fileType, headerRead_,
                  FindRow(kContainerFormats, &LabelledFormat::label, essenceContainer_) != nullptr ? kFileTypeVideo
                  : essenceContainer_ == kAES3ClipContainerLabel                                   ? kFileTypeAudio
                                                                                                   : kFileTypeUnknown);
}

int32_t CReadMXFBase::GetFileSize(int64_t* size) {
    if (size == nullptr) return kStatusInvalidArgument;
    if (!opened_) return kStatusWrongState;
    stream_->Seek(0, kSeekBegin);
    return AnswerPosition(size, stream_->Seek(0, kSeekEnd));
}

int32_t CReadMXFBase::GetFileOffset(int64_t* offset) {
    if (offset == nullptr) return kStatusInvalidArgument;
    if (!opened_) return kStatusWrongState;
    return AnswerPosition(offset, stream_->Seek(0, kSeekCurrent));
}

template <class Take>
int32_t CReadMXFBase::FindMetadata(const MXFKEYTag& key, uint16_t localTag, Take take) {
    if (!headerRead_) return Fail("CReadMXFBase::ReadMetadata", "Header is not read.", kStatusWrongState);
    PieceAllocator allocator(stream_);
    const OwnedPiece piece(allocator, dataOffset_);
    if (!piece) return Fail("CReadMXFBase::ReadMetadata", "Allocate Error.", kStatusIoError);
    if (!ReadWholeAt(*stream_, 0, piece)) return Fail("CReadMXFBase::ReadMetadata", "Read Error.", kStatusIoError);
    const auto item = FindItem(piece.Bytes(), key, localTag);
    if (!item) return kStatusNotFound;
    take(*item);
    return kStatusOk;
}

int32_t CReadMXFBase::ReadMetadata(MXFKEYTag key, uint16_t localTag, void* buffer, uint32_t* size, int64_t* offset) {
    return FindMetadata(key, localTag, [&](const Item& item) {
        if (buffer != nullptr) {
            std::memcpy(buffer, item.value.data(), item.value.size());
            return;
        }
        if (size != nullptr) *size = static_cast<uint32_t>(item.value.size());
        if (offset != nullptr) *offset = static_cast<int64_t>(item.offset);
    });
}

int32_t CReadMXFBase::ReadMetadata(const MXFKEYTag& key, uint16_t localTag, std::span<uint8_t> buffer) {
    return FindMetadata(key, localTag, [&](const Item& item) {
        std::ranges::copy(item.value.first(std::min(item.value.size(), buffer.size())), buffer.begin());
    });
}

bool CReadMXFBase::IsValidDMS() {
    return std::ranges::any_of(
        std::initializer_list<MXFKEYTag>{kClipFrameworkKey, kSceneFrameworkKey}, [this](const MXFKEYTag& key) {
            return ReadMetadata(key, kTagFrameworkLanguageCode, nullptr, nullptr, nullptr) == kStatusOk;
        });
}

}  // namespace kmxf
