#pragma once

#include <cstdint>

namespace kmxf::bench {

// The same frames in the same order for both sides: one after the other, or jumping about the file.
class FrameOrder {
public:
    FrameOrder(uint32_t frames, bool random) : frames_(frames), random_(random) {}
    uint32_t Next() {
        if (!random_) return next_++ % frames_;
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>((state_ >> 33) % frames_);
    }

private:
    uint32_t frames_;
    bool random_;
    uint32_t next_ = 0;
    uint64_t state_ = 1;
};

}  // namespace kmxf::bench
