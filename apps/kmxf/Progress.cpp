#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Program.h"

namespace kmxf::program {

Progress::Progress(std::string what, uint64_t totalBytes, uint32_t bytesPerFrame)
    : what_(std::move(what)),
      total_(totalBytes),
      bytesPerFrame_(bytesPerFrame),
      shown_(settings.progress || (!settings.quiet && isatty(STDERR_FILENO) != 0)),
      start_(Clock::now()),
      next_(start_) {}

Progress::~Progress() {
    if (!shown_) return;
    Show(Clock::now());
    if (drawn_) std::fputc('\n', stderr);
}

void Progress::Advance(uint64_t bytes) {
    if (!shown_) return;
    const std::lock_guard lock(mutex_);
    done_ += bytes;
    const auto now = Clock::now();
    if (now < next_) return;
    Show(now);
    next_ = now + std::chrono::milliseconds(200);
}

void Progress::AdvanceFrame(uint64_t bytes) {
    ++frames_;
    Advance(bytes);
}

void Progress::Show(Clock::time_point now) {
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0;
    std::fprintf(stderr, "\r%s: %.1f MB", what_.c_str(), static_cast<double>(done_) / 1e6);
    const uint64_t frames = bytesPerFrame_ != 0 ? done_ / bytesPerFrame_ : frames_;
    if (bytesPerFrame_ != 0 || frames != 0)
        std::fprintf(stderr, ", %llu frames", static_cast<unsigned long long>(frames));
    std::fprintf(stderr, ", %.1f MB/s", rate / 1e6);
    if (total_ != 0) {
        std::fprintf(stderr, ", %llu %%",
                     static_cast<unsigned long long>(std::min<uint64_t>(done_ * 100 / total_, 100)));
        if (rate > 0 && done_ <= total_)
            std::fprintf(stderr, ", %.0f s left ", static_cast<double>(total_ - done_) / rate);
    }
    std::fflush(stderr);
    drawn_ = true;
}

void Say(const std::string& message) { std::fprintf(stderr, "kmxf: %s\n", message.c_str()); }

}  // namespace kmxf::program
