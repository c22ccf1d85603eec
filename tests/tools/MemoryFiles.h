#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf::test {

// While it lives the library opens these files by name, and none besides, for reading only. Calls are noted, and any of
// them can be made to fail.
class MemoryFiles final {
public:
    MemoryFiles() {
        CFileIOMain::SetFactoryProvider(
            [this](uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit) -> IFileIOFactory* {
                EXPECT_EQ(kind, 0u);
                EXPECT_EQ(network, nullptr);
                EXPECT_EQ(bufferUnit, 32768u);
                if (Fails("GetFactory")) return nullptr;
                ++live_;
                return new Factory(*this);
            });
    }
    MemoryFiles(const MemoryFiles&) = delete;
    MemoryFiles& operator=(const MemoryFiles&) = delete;
    ~MemoryFiles() { CFileIOMain::SetFactoryProvider({}); }

    std::vector<uint8_t>& operator[](const std::string& name) { return files_[name]; }

    // The nth call from now on fails, counted from 1; 0: none. A Read then gives one byte less than it should.
    void FailNth(int n) {
        failing_ = n;
        calls_.clear();
    }
    const std::vector<std::string>& Calls() const { return calls_; }
    int Live() const { return live_; }  // factories and files that are not yet released
    int Opened() const { return opened_; }
    uint64_t BytesRead() const { return bytesRead_; }

private:
    class File final : public IFileIO {
    public:
        explicit File(MemoryFiles& files) : files_(files) {}
        bool Open(const char* fileName, uint32_t flags) override {
            EXPECT_EQ(flags, 0u);
            EXPECT_EQ(bytes_, nullptr);
            const auto found = files_.files_.find(fileName);
            if (files_.Fails("Open " + std::string(fileName)) || found == files_.files_.end()) return false;
            bytes_ = &found->second;
            position_ = 0;
            ++files_.opened_;
            return true;
        }
        bool Close() override {
            const bool fails = files_.Fails("Close");
            if (bytes_ == nullptr) return false;
            bytes_ = nullptr;
            --files_.opened_;
            return !fails;
        }
        int32_t Write(const void*, uint32_t) override {
            ADD_FAILURE() << "nothing is to be written";
            return -1;
        }
        int32_t Read(void* buffer, uint32_t size) override {
            const bool fails = files_.Fails("Read " + std::to_string(size));
            if (bytes_ == nullptr) return -1;
            const auto start = std::min(static_cast<size_t>(position_), bytes_->size());
            auto count = std::min<size_t>(size, bytes_->size() - start);
            if (fails && count > 0) --count;
            if (count > 0) std::memcpy(buffer, bytes_->data() + start, count);
            position_ += static_cast<int64_t>(count);
            files_.bytesRead_ += count;
            return static_cast<int32_t>(count);
        }
        int64_t Seek(int64_t offset, int32_t origin) override {
            if (files_.Fails("Seek " + std::to_string(offset) + " " + std::to_string(origin)) || bytes_ == nullptr)
                return -1;
            const int64_t base[] = {0, position_, static_cast<int64_t>(bytes_->size())};
            if (origin < 0 || origin > 2 || base[origin] + offset < 0) return -1;
            return position_ = base[origin] + offset;
        }
        void Release() override {
            if (bytes_ != nullptr) --files_.opened_;
            --files_.live_;
            delete this;
        }

    private:
        MemoryFiles& files_;
        const std::vector<uint8_t>* bytes_ = nullptr;
        int64_t position_ = 0;
    };

    class Factory final : public IFileIOFactory {
    public:
        explicit Factory(MemoryFiles& files) : files_(files) {}
        IFileIO* CreateFileIO(uint32_t mode) override {
            EXPECT_EQ(mode, 1u);
            if (files_.Fails("CreateFileIO")) return nullptr;
            ++files_.live_;
            return new File(files_);
        }
        IStreamFileIO* CreateStreamFileIO(uint32_t) override {
            ADD_FAILURE() << "no stream is to be made";
            return nullptr;
        }
        void Release() override {
            --files_.live_;
            delete this;
        }

    private:
        MemoryFiles& files_;
    };

    bool Fails(std::string call) {
        calls_.push_back(std::move(call));
        return static_cast<int>(calls_.size()) == failing_;
    }

    std::map<std::string, std::vector<uint8_t>> files_;
    std::vector<std::string> calls_;
    int failing_ = 0, live_ = 0, opened_ = 0;
    uint64_t bytesRead_ = 0;
};

}  // namespace kmxf::test
