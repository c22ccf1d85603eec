#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"

namespace kmxf::test {

// A local file as a stream that writes and completes inside Write, on the client's thread: the other way to keep the
// contract of a stream. It is made of the public interface alone.
class SynchronousStream final : public IStreamFileIO {
public:
    SynchronousStream() : factory_(CFileIOMain::GetFactory(0, nullptr, 32768)) {
        file_.reset(factory_ ? factory_->CreateFileIO(1) : nullptr);
        if (!file_) throw std::runtime_error("no local files");
    }

    bool Open(const char* fileName, uint32_t flags) override {
        lastId_ = 0;
        return opened_ = file_->Open(fileName, flags);
    }
    bool Close() override {
        callback_ = nullptr;
        return std::exchange(opened_, false) && file_->Close();
    }
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t) override {
        if (!opened_ || piece == nullptr) return kCountFailed;
        const int64_t size = piece->GetSize();
        const bool written = file_->Write(piece->GetBuffer(), piece->GetSize()) == size;
        if (callback_) callback_->CallbackForWriteComplete(++lastId_, written ? kStatusOk : kStatusIoError, tag);
        return written ? static_cast<int32_t>(size) : kCountFailed;
    }
    int32_t Read(StreamPiece* piece, int32_t) override {
        return opened_ && piece != nullptr ? file_->Read(piece->GetBuffer(), piece->GetSize()) : kCountFailed;
    }
    int64_t Seek(int64_t offset, int32_t origin) override { return opened_ ? file_->Seek(offset, origin) : -1; }
    bool DataSync() override { return opened_; }  // plain files have no such operation
    bool RegisterCallback(IFileIOCallback* callback) override {
        callback_ = callback;
        return true;
    }
    IStreamPieceAllocator* GetPieceAllocator() override { return &allocator_; }
    uint32_t GetClusterSize() override { return 32768; }
    void Release() override {}  // belongs to whoever made it

private:
    class Allocator final : public IStreamPieceAllocator {
        StreamPiece* Allocate(uint32_t size) override { return new CMemoryPiece(size); }
        void Free(StreamPiece* piece) override { delete static_cast<CMemoryPiece*>(piece); }
        void Release() override {}
    };
    struct Releaser {
        void operator()(auto* object) const { object->Release(); }
    };

    std::unique_ptr<IFileIOFactory, Releaser> factory_;
    std::unique_ptr<IFileIO, Releaser> file_;
    Allocator allocator_;
    IFileIOCallback* callback_ = nullptr;
    uint64_t lastId_ = 0;
    bool opened_ = false;
};

}  // namespace kmxf::test
