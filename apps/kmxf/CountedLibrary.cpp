#include "CountedLibrary.h"

#include "Program.h"

namespace kmxf::program {

namespace {

int32_t Read(int32_t count) {
    ++statistics.reads;
    if (count > 0) statistics.bytesRead += static_cast<uint32_t>(count);
    return count;
}
int32_t Written(int32_t count) {
    ++statistics.writes;
    if (count > 0) statistics.bytesWritten += static_cast<uint32_t>(count);
    return count;
}

class CountedFile final : public IFileIO {
public:
    explicit CountedFile(IFileIO* file) : file_(file) {}

    bool Open(const char* fileName, uint32_t flags) override { return file_->Open(fileName, flags); }
    bool Close() override { return file_->Close(); }
    int32_t Write(const void* buffer, uint32_t size) override { return Written(file_->Write(buffer, size)); }
    int32_t Read(void* buffer, uint32_t size) override { return program::Read(file_->Read(buffer, size)); }
    int64_t Seek(int64_t offset, int32_t origin) override { return file_->Seek(offset, origin); }
    void Release() override {
        file_->Release();
        delete this;
    }

private:
    ~CountedFile() = default;
    IFileIO* file_;
};

class CountedStream final : public IStreamFileIO {
public:
    explicit CountedStream(IStreamFileIO* stream) : stream_(stream) {}

    bool Open(const char* fileName, uint32_t flags) override { return stream_->Open(fileName, flags); }
    bool Close() override { return stream_->Close(); }
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override {
        return Written(stream_->Write(piece, tag, reserved));
    }
    int32_t Read(StreamPiece* piece, int32_t reserved) override {
        return program::Read(stream_->Read(piece, reserved));
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
};

class CountedFactory final : public IFileIOFactory {
public:
    explicit CountedFactory(IFileIOFactory& files) : files_(files) {}

    IFileIO* CreateFileIO(uint32_t mode) override {
        IFileIO* const file = files_.CreateFileIO(mode);
        return file == nullptr ? nullptr : new CountedFile(file);
    }
    IStreamFileIO* CreateStreamFileIO(uint32_t mode) override {
        IStreamFileIO* const stream = files_.CreateStreamFileIO(mode);
        return stream == nullptr ? nullptr : new CountedStream(stream);
    }
    void Release() override { delete this; }

private:
    ~CountedFactory() = default;
    IFileIOFactory& files_;
};

}  // namespace

CountedLibrary::CountedLibrary() : files_(CFileIOMain::GetFactory(0, nullptr, 32768)) {
    CFileIOMain::SetFactoryProvider(
        [files = files_.get()](uint32_t, const CNetworkInfo*, uint32_t) { return new CountedFactory(*files); });
}
CountedLibrary::~CountedLibrary() { CFileIOMain::SetFactoryProvider({}); }

}  // namespace kmxf::program
