#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
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
    // What can be read in front of the first place that cannot.
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        size_t done = 0;
        uint64_t step = kMostAtOnce;
        while (opened_ && done < bytes.size()) {
            const uint64_t at = offset + done;
            const uint64_t here = std::min<uint64_t>(step - at % step, bytes.size() - done);
            const bool there = file_->Seek(static_cast<int64_t>(at), kSeekBegin) >= 0;
            const int32_t count = there ? file_->Read(bytes.data() + done, static_cast<uint32_t>(here)) : -1;
            if (count < 0 && step == kMostAtOnce && at % kSector + here > kSector) {
                step = kSector;  // up to the sector that fails
                continue;
            }
            if (count < 0 && !unreadable_) unreadable_ = at;
            if (count <= 0) break;
            done += static_cast<size_t>(count);
        }
        return done;
    }
    // Where the first read failed since the file was opened, for another reason than its end: what is there is not
    // missing, and may be read another time.
    std::optional<uint64_t> Unreadable() const { return unreadable_; }
    // As many as there are.
    std::vector<uint8_t> Copy(uint64_t offset, uint64_t most) {
        const size_t count = static_cast<size_t>(offset >= size_ ? 0 : std::min(most, size_ - offset));
        if (const auto held = Held(offset); held.size() >= count)
            return {held.begin(), held.begin() + static_cast<std::ptrdiff_t>(count)};
        std::vector<uint8_t> bytes(count);
        bytes.resize(Read(offset, bytes));
        return bytes;
    }

    // What stands from there on, up to a window's end: at least `least` bytes where the file has them. Small steps
    // forwards read each byte once, and the window grows with them: what stands in it is not read again. It is good
    // until the next call.
    std::span<const uint8_t> Window(uint64_t offset, size_t least) {
        const uint64_t end = windowAt_ + window_.size();
        if (const auto held = Held(offset); held.size() >= least) return held;
        if (offset < windowAt_ || offset > end || window_.size() >= kMostHeld) {
            window_.clear();
            windowAt_ = offset;
        }
        const auto more = Copy(windowAt_ + window_.size(), kWindow);
        window_.insert(window_.end(), more.begin(), more.end());
        return Held(offset);
    }

private:
    static constexpr uint64_t kWindow = 1 << 20, kMostHeld = 32 << 20;
    static constexpr uint64_t kMostAtOnce = 64 << 20, kSector = 4096;

    // Of the window, from there on.
    std::span<const uint8_t> Held(uint64_t offset) const {
        if (offset < windowAt_ || offset - windowAt_ > window_.size()) return {};
        return std::span(window_).subspan(static_cast<size_t>(offset - windowAt_));
    }

    FactoryFile file_;
    bool opened_ = false;
    uint64_t size_ = 0;
    std::optional<uint64_t> unreadable_;
    uint64_t windowAt_ = 0;
    std::vector<uint8_t> window_;
};

// Tells frames apart (FNV-1a).
inline constexpr uint64_t kNoHash = 0xCBF29CE484222325;
inline uint64_t HashOf(std::span<const uint8_t> bytes, uint64_t hash = kNoHash) {
    for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3;
    return hash;
}
// The same of a stretch of a file, of whatever size.
inline uint64_t HashOf(SalvageInput& source, uint64_t offset, uint64_t size) {
    constexpr uint64_t kStep = 1 << 20;
    uint64_t hash = kNoHash;
    for (uint64_t done = 0; done < size;) {
        const auto bytes = source.Copy(offset + done, std::min(kStep, size - done));
        if (bytes.empty()) break;
        hash = HashOf(bytes, hash);
        done += bytes.size();
    }
    return hash;
}

}  // namespace kmxf
