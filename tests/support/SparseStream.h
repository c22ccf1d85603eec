#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"

namespace kmxf::test {

// A file of any size of which only some stretches are held; the rest reads as zeros. Of what is written it holds the
// first bytes. Writes complete inside Write.
class SparseStream final : public IStreamFileIO {
public:
    // Holds what is written to the first `kept` bytes.
    explicit SparseStream(size_t kept = 0) { stretches_[0].resize(kept); }

    void Put(uint64_t offset, std::span<const uint8_t> bytes) {
        stretches_[offset].assign(bytes.begin(), bytes.end());
        size_ = std::max(size_, offset + bytes.size());
    }
    // To be called at each write.
    void OnWrite(std::function<void()> observer) { observer_ = std::move(observer); }
    uint64_t Size() const { return size_; }
    int Reads() const { return reads_; }

    bool Open(const char*, uint32_t) override {
        position_ = 0;
        return true;
    }
    bool Close() override { return true; }
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t) override {
        if (observer_) observer_();
        const uint32_t count = piece->GetSize();
        std::vector<uint8_t>& kept = stretches_[0];
        for (uint64_t i = position_; i < std::min<uint64_t>(position_ + count, kept.size()); ++i) {
            kept[i] = piece->GetBuffer()[i - position_];
        }
        position_ += count;
        size_ = std::max(size_, position_);
        if (callback_ != nullptr) callback_->CallbackForWriteComplete(++lastId_, 0, tag);
        return static_cast<int32_t>(count);
    }
    int32_t Read(StreamPiece* piece, int32_t) override {
        ++reads_;
        const uint64_t begin = std::min(position_, size_), end = std::min(begin + piece->GetSize(), size_);
        const auto buffer = piece->GetBuffer();
        std::fill_n(buffer, end - begin, uint8_t{0});
        for (const auto& [offset, bytes] : stretches_) {
            const uint64_t from = std::max(offset, begin), to = std::min(offset + bytes.size(), end);
            for (uint64_t i = from; i < to; ++i) buffer[i - begin] = bytes[i - offset];
        }
        position_ = end;
        return static_cast<int32_t>(end - begin);
    }
    int64_t Seek(int64_t offset, int32_t origin) override {
        const uint64_t base[] = {0, position_, size_};
        position_ = base[origin] + static_cast<uint64_t>(offset);
        return static_cast<int64_t>(position_);
    }
    bool DataSync() override { return true; }
    bool RegisterCallback(IFileIOCallback* callback) override {
        callback_ = callback;
        return true;
    }
    IStreamPieceAllocator* GetPieceAllocator() override { return pieces_.GetPieceAllocator(); }
    uint32_t GetClusterSize() override { return 32768; }
    void Release() override {}  // belongs to the test

private:
    CMemoryFileIO pieces_;  // makes them
    std::map<uint64_t, std::vector<uint8_t>> stretches_;
    std::function<void()> observer_;
    IFileIOCallback* callback_ = nullptr;
    uint64_t size_ = 0, position_ = 0, lastId_ = 0;
    int reads_ = 0;
};

}  // namespace kmxf::test
