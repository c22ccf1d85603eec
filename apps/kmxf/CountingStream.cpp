#include "CountingStream.h"

#include <cerrno>
#include <utility>

#include "Program.h"

namespace kmxf::program {

CountingStream::CountingStream(std::string path)
    : path_(std::move(path)),
      factory_(CFileIOMain::GetFactory(0, nullptr, 32768)),
      stream_(factory_->CreateStreamFileIO(0)) {}

CountingStream::~CountingStream() { stream_->Release(); }

bool CountingStream::Noted(bool good) {
    if (!good && error_ == 0) error_ = errno;
    return good;
}

bool CountingStream::Open(const char*, uint32_t flags) {
    errno = 0;
    return Noted(stream_->Open(path_.c_str(), flags));
}

bool CountingStream::Close() {
    errno = 0;
    return Noted(stream_->Close());
}

int32_t CountingStream::Write(StreamPiece* piece, int32_t tag, int32_t reserved) {
    const uint32_t size = piece->GetSize();
    errno = 0;
    const int32_t count = stream_->Write(piece, tag, reserved);
    Noted(count == static_cast<int32_t>(size));
    ++statistics.writes;
    if (count > 0) statistics.bytesWritten += static_cast<uint32_t>(count);
    return count;
}

int32_t CountingStream::Read(StreamPiece* piece, int32_t reserved) {
    errno = 0;
    const int32_t count = stream_->Read(piece, reserved);
    Noted(count >= 0);
    ++statistics.reads;
    if (count > 0) statistics.bytesRead += static_cast<uint32_t>(count);
    return count;
}

int64_t CountingStream::Seek(int64_t offset, int32_t origin) {
    errno = 0;
    const int64_t position = stream_->Seek(offset, origin);
    Noted(position >= 0);
    return position;
}

bool CountingStream::DataSync() {
    errno = 0;
    return Noted(stream_->DataSync());
}

bool CountingStream::RegisterCallback(IFileIOCallback* callback) { return stream_->RegisterCallback(callback); }
IStreamPieceAllocator* CountingStream::GetPieceAllocator() { return stream_->GetPieceAllocator(); }
uint32_t CountingStream::GetClusterSize() { return stream_->GetClusterSize(); }

}  // namespace kmxf::program
