#pragma once

#include <cstdint>
#include <limits>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf::test {

// While it lives, files of the library cannot be read from some offset on, or up to another, as on a disk
// that fails.
class FailingDisk {
public:
    explicit FailingDisk(int64_t from, int64_t to = std::numeric_limits<int64_t>::max())
        : local_(CFileIOMain::GetFactory(0, nullptr, 32768)) {
        CFileIOMain::SetFactoryProvider(
            [this, from, to](uint32_t, const CNetworkInfo*, uint32_t) { return new Factory(*local_, from, to); });
    }
    FailingDisk(const FailingDisk&) = delete;
    FailingDisk& operator=(const FailingDisk&) = delete;
    ~FailingDisk() {
        CFileIOMain::SetFactoryProvider({});
        local_->Release();
    }

private:
    class File final : public IFileIO {
    public:
        File(IFileIO* file, int64_t from, int64_t to) : file_(file), from_(from), to_(to) {}
        bool Open(const char* name, uint32_t flags) override { return file_->Open(name, flags); }
        bool Close() override { return file_->Close(); }
        int32_t Write(const void* buffer, uint32_t size) override { return file_->Write(buffer, size); }
        int32_t Read(void* buffer, uint32_t size) override {
            const int64_t at = file_->Seek(0, kSeekCurrent);
            return at < to_ && at + size > from_ ? -1 : file_->Read(buffer, size);
        }
        int64_t Seek(int64_t offset, int32_t origin) override { return file_->Seek(offset, origin); }
        void Release() override {
            file_->Release();
            delete this;
        }

    private:
        ~File() = default;
        IFileIO* file_;
        int64_t from_, to_;
    };
    class Factory final : public IFileIOFactory {
    public:
        Factory(IFileIOFactory& files, int64_t from, int64_t to) : files_(files), from_(from), to_(to) {}
        IFileIO* CreateFileIO(uint32_t mode) override { return new File(files_.CreateFileIO(mode), from_, to_); }
        IStreamFileIO* CreateStreamFileIO(uint32_t mode) override { return files_.CreateStreamFileIO(mode); }
        void Release() override { delete this; }

    private:
        ~Factory() = default;
        IFileIOFactory& files_;
        int64_t from_, to_;
    };
    IFileIOFactory* local_;
};

}  // namespace kmxf::test
