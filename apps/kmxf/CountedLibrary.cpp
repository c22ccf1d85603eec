#include "CountedLibrary.h"

#include <utility>

#include "Program.h"

namespace kmxf::program {

namespace {

using Watcher = CountedLibrary::Watcher;

int32_t Read(int32_t count) {
    ++statistics.reads;
    if (count > 0) statistics.bytesRead += static_cast<uint32_t>(count);
    return count;
}
int32_t Written(const Watcher& watcher, int32_t count) {
    ++statistics.writes;
    if (count <= 0) return count;
    statistics.bytesWritten += static_cast<uint32_t>(count);
    watcher.wrote(static_cast<uint32_t>(count));
    return count;
}

class CountedFile final : public IFileIO {
public:
    CountedFile(IFileIO* file, const Watcher& watcher) : file_(file), watcher_(watcher) {}

    bool Open(const char* fileName, uint32_t flags) override { return file_->Open(fileName, flags); }
    bool Close() override { return file_->Close(); }
    int32_t Write(const void* buffer, uint32_t size) override {
        return watcher_.stopped() ? -1 : Written(watcher_, file_->Write(buffer, size));
    }
    int32_t Read(void* buffer, uint32_t size) override {
        return watcher_.stopped() ? -1 : program::Read(file_->Read(buffer, size));
    }
    int64_t Seek(int64_t offset, int32_t origin) override { return file_->Seek(offset, origin); }
    void Release() override {
        file_->Release();
        delete this;
    }

private:
    ~CountedFile() = default;
    IFileIO* file_;
    const Watcher& watcher_;
};

class CountedStream final : public IStreamFileIO {
public:
    CountedStream(IStreamFileIO* stream, const Watcher& watcher) : stream_(stream), watcher_(watcher) {}

    bool Open(const char* fileName, uint32_t flags) override { return stream_->Open(fileName, flags); }
    bool Close() override { return stream_->Close(); }
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override {
        return watcher_.stopped() ? -1 : Written(watcher_, stream_->Write(piece, tag, reserved));
    }
    int32_t Read(StreamPiece* piece, int32_t reserved) override {
        return watcher_.stopped() ? -1 : program::Read(stream_->Read(piece, reserved));
    }
    int64_t Seek(int64_t offset, int32_t origin) override { return stream_->Seek(offset, origin); }
    bool DataSync() override { return stream_->DataSync(); }
    bool RegisterCallback(IFileIOCallback* callback) override { return stream_->RegisterCallback(callback); }
    IStreamPieceAllocator* GetPieceAllocator() override { return stream_->GetPieceAllocator(); }
    uint32_t GetClusterSize() override { return stream_->GetClusterSize(); }
    void Release() override {
        stream_->Release();
        delete this;
    }

private:
    ~CountedStream() = default;
    IStreamFileIO* stream_;
    const Watcher& watcher_;
};

class CountedFactory final : public IFileIOFactory {
public:
    CountedFactory(IFileIOFactory& files, const Watcher& watcher) : files_(files), watcher_(watcher) {}

    IFileIO* CreateFileIO(uint32_t mode) override {
        IFileIO* const file = files_.CreateFileIO(mode);
        return file == nullptr ? nullptr : new CountedFile(file, watcher_);
    }
    IStreamFileIO* CreateStreamFileIO(uint32_t mode) override {
        IStreamFileIO* const stream = files_.CreateStreamFileIO(mode);
        return stream == nullptr ? nullptr : new CountedStream(stream, watcher_);
    }
    void Release() override { delete this; }

private:
    ~CountedFactory() = default;
    IFileIOFactory& files_;
    const Watcher& watcher_;
};

}  // namespace

CountedLibrary::CountedLibrary(Watcher watcher)
    : files_(CFileIOMain::GetFactory(0, nullptr, 32768)), watcher_(std::move(watcher)) {
    CFileIOMain::SetFactoryProvider(
        [this](uint32_t, const CNetworkInfo*, uint32_t) { return new CountedFactory(*files_, watcher_); });
}
CountedLibrary::~CountedLibrary() { CFileIOMain::SetFactoryProvider({}); }

}  // namespace kmxf::program
