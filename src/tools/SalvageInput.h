#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "collaborators/Guards.h"
#include "kmxf/structures/Inspect.h"

namespace kmxf {

// A file by its name, opened for reading only.
class SalvageInput final : public IByteSource {
public:
    explicit SalvageInput(const std::string& path) {
        opened_ = file_.Open(path.c_str(), kOpenRead);
        const int64_t size = opened_ ? file_->Seek(0, kSeekEnd) : -1;
        opened_ = size >= 0;
        size_ = opened_ ? static_cast<uint64_t>(size) : 0;
    }

    bool IsOpened() const { return opened_; }
    uint64_t GetSize() override { return size_; }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        if (!opened_ || file_->Seek(static_cast<int64_t>(offset), kSeekBegin) < 0) return 0;
        return static_cast<size_t>(std::max(file_->Read(bytes.data(), static_cast<uint32_t>(bytes.size())), 0));
    }
    // As many as there are.
    std::vector<uint8_t> Copy(uint64_t offset, uint64_t most) {
        std::vector<uint8_t> bytes(static_cast<size_t>(offset >= size_ ? 0 : std::min(most, size_ - offset)));
        if (!bytes.empty()) bytes.resize(Read(offset, bytes));
        return bytes;
    }

private:
    FactoryFile file_;
    bool opened_ = false;
    uint64_t size_ = 0;
};

// Tells frames apart (FNV-1a).
inline uint64_t HashOf(std::span<const uint8_t> bytes) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3;
    return hash;
}

}  // namespace kmxf
