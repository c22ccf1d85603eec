#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

// One line on standard error that says how far a copy is: bytes, frames, rate, time left.
namespace kmxf::program {

class Progress {
public:
    // totalBytes 0: not known. Frames are shown when they all have bytesPerFrame, or are told one by one.
    Progress(std::string what, uint64_t totalBytes, uint32_t bytesPerFrame = 0);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    // On any thread.
    void Advance(uint64_t bytes);
    void AdvanceFrame(uint64_t bytes);

private:
    using Clock = std::chrono::steady_clock;
    void Show(Clock::time_point now);

    std::string what_;
    uint64_t total_;
    uint32_t bytesPerFrame_;
    bool shown_;
    bool drawn_ = false;
    uint64_t done_ = 0, frames_ = 0;
    Clock::time_point start_;
    Clock::time_point next_;
    std::mutex mutex_;
};

}  // namespace kmxf::program
