#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "support/Target.h"

namespace kmxf::fuzz {

// While it lives the library finds one file under every name, in memory. Writes beyond what such a file can be fail.
class MemoryFiles final {
public:
    explicit MemoryFiles(Bytes contents) : bytes_(contents.begin(), contents.end()) {
        CFileIOMain::SetFactoryProvider(
            [this](uint32_t, const CNetworkInfo*, uint32_t) -> IFileIOFactory* { return new Factory(bytes_); });
    }
    MemoryFiles(const MemoryFiles&) = delete;
    MemoryFiles& operator=(const MemoryFiles&) = delete;
    ~MemoryFiles() { CFileIOMain::SetFactoryProvider({}); }

    std::vector<uint8_t>& Contents() { return bytes_; }

private:
    static constexpr size_t kLongest = 8 << 20;

    // A position in the file.
    template <class Interface>
    class Cursor : public Interface {
    public:
        explicit Cursor(std::vector<uint8_t>& bytes) : bytes_(bytes) {}
        bool Open(const char* fileName, uint32_t) override {
            position_ = 0;
            return opened_ = fileName != nullptr;
        }
        bool Close() override { return std::exchange(opened_, false); }
        int64_t Seek(int64_t offset, int32_t origin) override {
            const int64_t bases[] = {0, position_, static_cast<int64_t>(bytes_.size())};
            int64_t to = 0;
            if (!opened_ || origin < 0 || origin > 2 || __builtin_add_overflow(bases[origin], offset, &to) || to < 0)
                return -1;
            return position_ = to;
        }

    protected:
        ~Cursor() = default;
        int32_t Get(void* to, uint32_t size) {
            if (!opened_) return -1;
            const auto at = std::min(static_cast<size_t>(position_), bytes_.size());
            const size_t count = std::min<size_t>(size, bytes_.size() - at);
            if (count > 0) std::memcpy(to, bytes_.data() + at, count);
            position_ += static_cast<int64_t>(count);
            return static_cast<int32_t>(count);
        }
        int32_t Put(const void* from, uint32_t size) {
            const auto at = static_cast<size_t>(position_);
            if (!opened_ || at > kLongest || size > kLongest) return -1;
            if (at + size > bytes_.size()) bytes_.resize(at + size);
            if (size > 0) std::memcpy(bytes_.data() + at, from, size);
            position_ += size;
            return static_cast<int32_t>(size);
        }

    private:
        std::vector<uint8_t>& bytes_;
        int64_t position_ = 0;
        bool opened_ = false;
    };

    class File final : public Cursor<IFileIO> {
    public:
        using Cursor::Cursor;
        int32_t Write(const void* buffer, uint32_t size) override { return Put(buffer, size); }
        int32_t Read(void* buffer, uint32_t size) override { return Get(buffer, size); }
        void Release() override { delete this; }
    };

    class Stream final : public Cursor<IStreamFileIO> {
    public:
        using Cursor::Cursor;
        int32_t Write(StreamPiece* piece, int32_t tag, int32_t) override {
            const int32_t put = Put(piece->GetBuffer(), piece->GetSize());
            if (callback_ != nullptr) callback_->CallbackForWriteComplete(++id_, put < 0 ? -1 : 0, tag);
            return put;
        }
        int32_t Read(StreamPiece* piece, int32_t) override { return Get(piece->GetBuffer(), piece->GetSize()); }
        bool DataSync() override { return true; }
        bool RegisterCallback(IFileIOCallback* callback) override {
            callback_ = callback;
            return true;
        }
        IStreamPieceAllocator* GetPieceAllocator() override { return pieces_.GetPieceAllocator(); }
        uint32_t GetClusterSize() override { return 32768; }
        void Release() override { delete this; }

    private:
        CMemoryFileIO pieces_;
        IFileIOCallback* callback_ = nullptr;
        uint64_t id_ = 0;
    };

    class Factory final : public IFileIOFactory {
    public:
        explicit Factory(std::vector<uint8_t>& bytes) : bytes_(bytes) {}
        IFileIO* CreateFileIO(uint32_t) override { return new File(bytes_); }
        IStreamFileIO* CreateStreamFileIO(uint32_t) override { return new Stream(bytes_); }
        void Release() override { delete this; }

    private:
        std::vector<uint8_t>& bytes_;
    };

    std::vector<uint8_t> bytes_;
};

}  // namespace kmxf::fuzz
