#include "kmxf/collaborators/MemoryFileIO.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

#include "collaborators/HeapPieces.h"
#include "collaborators/StreamRules.h"
#include "kmxf/core/Status.h"

namespace kmxf {

CMemoryPiece::CMemoryPiece(uint32_t size) : bytes_(size) {}
CMemoryPiece::CMemoryPiece(const void* source, uint32_t size) : CMemoryPiece(size) { CopyIn(0, source, size); }
CMemoryPiece::~CMemoryPiece() = default;

uint32_t CMemoryPiece::GetSize() { return static_cast<uint32_t>(bytes_.size()); }
uint8_t* CMemoryPiece::GetBuffer() { return bytes_.data(); }
void CMemoryPiece::CopyIn(uint32_t offset, const void* source, uint32_t size) {
    CopyIntoPiece(bytes_.data(), GetSize(), offset, source, size);
}

CMemoryFileIO::CMemoryFileIO() = default;
CMemoryFileIO::CMemoryFileIO(std::vector<uint8_t> contents) : contents_(std::move(contents)) {}
CMemoryFileIO::~CMemoryFileIO() = default;

bool CMemoryFileIO::Open(const char* fileName, uint32_t flags) {
    if (opened_) Close();
    const auto access = AccessFor(flags);
    if (fileName == nullptr || !access) return false;
    fileName_ = fileName;
    if (access->creates) contents_.clear();
    position_ = 0;
    lastId_ = 0;
    writable_ = access->writes;
    return opened_ = true;
}

bool CMemoryFileIO::Close() {
    callback_ = nullptr;
    return std::exchange(opened_, false);
}

int32_t CMemoryFileIO::Write(StreamPiece* piece, int32_t tag, int32_t) {
    if (!opened_ || piece == nullptr) return kCountFailed;
    const uint32_t size = piece->GetSize();  // the completion may free the piece
    const bool written = Put(*piece);
    ++lastId_;
    if (callback_) callback_->CallbackForWriteComplete(lastId_, written ? kStatusOk : kStatusIoError, tag);
    return written ? static_cast<int32_t>(size) : kCountFailed;
}

bool CMemoryFileIO::Put(StreamPiece& piece) try {
    const uint32_t size = piece.GetSize();
    if (!writable_ || size > static_cast<uint32_t>(std::numeric_limits<int32_t>::max()) ||
        position_ > static_cast<int64_t>(contents_.max_size()) - size) {
        return false;
    }
    if (size == 0) return true;
    const auto start = static_cast<size_t>(position_);
    if (contents_.size() < start + size) contents_.resize(start + size);
    std::memcpy(contents_.data() + start, piece.GetBuffer(), size);
    position_ += size;
    return true;
} catch (const std::exception&) {
    return false;  // no memory
}

int32_t CMemoryFileIO::Read(StreamPiece* piece, int32_t) {
    if (!opened_ || piece == nullptr) return kCountFailed;
    const auto start = static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(position_), contents_.size()));
    const auto count = static_cast<int32_t>(std::min<size_t>(
        {piece->GetSize(), contents_.size() - start, static_cast<size_t>(std::numeric_limits<int32_t>::max())}));
    position_ += count;
    return FillPiece(*piece, [&](uint8_t* buffer) {
        if (count > 0) std::memcpy(buffer, contents_.data() + start, static_cast<size_t>(count));
        return count;
    });
}

int64_t CMemoryFileIO::Seek(int64_t offset, int32_t origin) {
    if (!opened_) return -1;
    const int64_t target =
        SeekTarget(offset, origin, position_, [&] { return static_cast<int64_t>(contents_.size()); });
    if (target >= 0) position_ = target;
    return target;
}

bool CMemoryFileIO::DataSync() { return opened_; }

bool CMemoryFileIO::RegisterCallback(IFileIOCallback* callback) {
    callback_ = callback;
    return true;
}

IStreamPieceAllocator* CMemoryFileIO::GetPieceAllocator() { return &HeapPieceAllocator(); }
uint32_t CMemoryFileIO::GetClusterSize() { return clusterSize_; }
void CMemoryFileIO::Release() { delete this; }

const std::vector<uint8_t>& CMemoryFileIO::GetContents() const { return contents_; }
void CMemoryFileIO::SetContents(std::vector<uint8_t> contents) { contents_ = std::move(contents); }
void CMemoryFileIO::SetClusterSize(uint32_t size) { clusterSize_ = size; }
const std::string& CMemoryFileIO::GetFileName() const { return fileName_; }
bool CMemoryFileIO::IsOpened() const { return opened_; }

}  // namespace kmxf
