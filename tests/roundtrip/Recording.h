#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFVideo.h"

namespace kmxf::test {

// Bytes that repeat nowhere near a frame, so that one frame cannot pass for another.
inline std::vector<uint8_t> Noise(size_t size, uint32_t seed) {
    std::vector<uint8_t> bytes(size);
    uint32_t state = seed * 2654435761u + 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

// Hands essence to a writer in pieces of the given sizes, one after the other and again from the start, and keeps each
// piece until its completion.
class Feeder final : public IFileIOCallback {
public:
    void Write(CCreateMXFBase& writer, std::span<const uint8_t> essence, const std::vector<uint32_t>& sizes) {
        ASSERT_EQ(writer.RegisterCallback(this), 0);
        for (size_t turn = 0; !essence.empty(); ++turn) {
            const auto size = static_cast<uint32_t>(std::min<size_t>(sizes[turn % sizes.size()], essence.size()));
            StreamPiece* piece = Keep(std::make_unique<CMemoryPiece>(essence.data(), size));
            ASSERT_EQ(writer.Write(piece, 0), static_cast<int32_t>(size));
            essence = essence.subspan(size);
        }
    }
    size_t UnderWay() {
        const std::lock_guard lock(mutex_);
        return pieces_.size();
    }

private:
    StreamPiece* Keep(std::unique_ptr<CMemoryPiece> piece) {
        const std::lock_guard lock(mutex_);
        return pieces_.emplace_back(std::move(piece)).get();
    }
    void CallbackForWriteComplete(uint64_t, int32_t status, int32_t tag) override {
        EXPECT_EQ(status, 0);
        EXPECT_EQ(tag, 0);
        const std::lock_guard lock(mutex_);
        pieces_.erase(pieces_.begin());  // completions come in the order of the writes
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<CMemoryPiece>> pieces_;
};

}  // namespace kmxf::test
