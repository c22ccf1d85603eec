#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Status.h"
#include "support/TestsOwn.h"

namespace kmxf::test {

// While it lives the files that the library opens by name are real ones, of which every operation counts, those of all
// files together, and the nth, or all from the nth on, fail.
class FaultyFiles final {
public:
    enum class Way { kFails, kIsShort, kAllBehind };  // short: one byte fewer is read or written

    FaultyFiles() : local_(CFileIOMain::GetFactory(0, nullptr, 32768)) {
        CFileIOMain::SetFactoryProvider([this](uint32_t, const CNetworkInfo*, uint32_t) -> IFileIOFactory* {
            if (Fails("GetFactory")) return nullptr;
            ++live_;
            const TestsOwn own;
            return new Factory(*this);
        });
    }
    FaultyFiles(const FaultyFiles&) = delete;
    FaultyFiles& operator=(const FaultyFiles&) = delete;
    ~FaultyFiles() {
        CFileIOMain::SetFactoryProvider({});
        local_->Release();
    }

    void Fail(int n, Way way) {
        const std::lock_guard lock(mutex_);
        failing_ = n;
        way_ = way;
    }
    std::vector<std::string> Calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    int Live() const { return live_; }  // factories, files and streams that are not yet released

private:
    bool Fails(const char* call) {
        const TestsOwn own;
        const std::lock_guard lock(mutex_);  // completions come on the streams' threads
        calls_.emplace_back(call);
        const int n = static_cast<int>(calls_.size());
        return failing_ > 0 && (way_ == Way::kAllBehind ? n >= failing_ : n == failing_);
    }
    bool Is(Way way) const {
        const std::lock_guard lock(mutex_);
        return way_ == way;
    }
    bool IsShort() const { return Is(Way::kIsShort); }
    bool IsAlone() const { return !Is(Way::kAllBehind); }

    class File final : public IFileIO {
    public:
        File(FaultyFiles& files, IFileIO* file) : files_(files), file_(file) {}
        bool Open(const char* name, uint32_t flags) override {
            return !files_.Fails("Open") && file_->Open(name, flags);
        }
        bool Close() override {
            const bool fails = files_.Fails("Close");
            return file_->Close() && !fails;
        }
        int32_t Write(const void* buffer, uint32_t size) override {
            if (!files_.Fails("Write")) return file_->Write(buffer, size);
            return files_.IsShort() && size > 0 ? file_->Write(buffer, size - 1) : kCountFailed;
        }
        int32_t Read(void* buffer, uint32_t size) override {
            if (!files_.Fails("Read")) return file_->Read(buffer, size);
            return files_.IsShort() && size > 0 ? file_->Read(buffer, size - 1) : kCountFailed;
        }
        int64_t Seek(int64_t offset, int32_t origin) override {
            return files_.Fails("Seek") ? -1 : file_->Seek(offset, origin);
        }
        void Release() override {
            file_->Release();
            --files_.live_;
            delete this;
        }

    private:
        FaultyFiles& files_;
        IFileIO* file_;
    };

    class Stream final : public IStreamFileIO {
    public:
        Stream(FaultyFiles& files, IStreamFileIO* stream) : files_(files), stream_(stream) {}
        bool Open(const char* name, uint32_t flags) override {
            return !files_.Fails("Open") && stream_->Open(name, flags);
        }
        bool Close() override {
            const bool fails = files_.Fails("Close");
            return stream_->Close() && !fails;
        }
        int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override {
            return files_.Fails("Write") ? kCountFailed : stream_->Write(piece, tag, reserved);
        }
        int32_t Read(StreamPiece* piece, int32_t reserved) override {
            if (!files_.Fails("Read")) return stream_->Read(piece, reserved);
            return files_.IsShort() ? std::max(stream_->Read(piece, reserved) - 1, 0) : kCountFailed;
        }
        int64_t Seek(int64_t offset, int32_t origin) override {
            return files_.Fails("Seek") ? -1 : stream_->Seek(offset, origin);
        }
        bool DataSync() override {
            const bool fails = files_.Fails("DataSync");
            return stream_->DataSync() && !fails;  // it has waited in any case
        }
        bool RegisterCallback(IFileIOCallback* callback) override {
            return !files_.Fails("RegisterCallback") && stream_->RegisterCallback(callback);
        }
        IStreamPieceAllocator* GetPieceAllocator() override {
            // Only alone: a stream that gives no allocator any more has nobody to take pieces back.
            const bool fails = files_.Fails("GetPieceAllocator") && files_.IsAlone();
            return fails ? nullptr : stream_->GetPieceAllocator();
        }
        uint32_t GetClusterSize() override { return stream_->GetClusterSize(); }
        void Release() override {
            stream_->Release();
            --files_.live_;
            delete this;
        }

    private:
        FaultyFiles& files_;
        IStreamFileIO* stream_;
    };

    class Factory final : public IFileIOFactory {
    public:
        explicit Factory(FaultyFiles& files) : files_(files) {}
        IFileIO* CreateFileIO(uint32_t mode) override {
            if (files_.Fails("CreateFileIO")) return nullptr;
            const TestsOwn own;
            ++files_.live_;
            return new File(files_, files_.local_->CreateFileIO(mode));
        }
        IStreamFileIO* CreateStreamFileIO(uint32_t mode) override {
            if (files_.Fails("CreateStreamFileIO")) return nullptr;
            const TestsOwn own;
            ++files_.live_;
            return new Stream(files_, files_.local_->CreateStreamFileIO(mode));
        }
        void Release() override {
            --files_.live_;
            delete this;
        }

    private:
        FaultyFiles& files_;
    };

    IFileIOFactory* local_;
    std::atomic<int> live_ = 0;

    mutable std::mutex mutex_;  // guards what follows
    int failing_ = 0;
    Way way_ = Way::kFails;
    std::vector<std::string> calls_;
};

}  // namespace kmxf::test
