#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "kmxf/collaborators/FileIO.h"

namespace kmxf::test {

struct Completion {
    uint64_t id;
    int32_t status;
    int32_t tag;
    bool operator==(const Completion&) const = default;
};

// Keeps the completions that a stream reports.
class Completions final : public IFileIOCallback {
public:
    void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) override {
        std::unique_lock lock(mutex_);
        arrived_.push_back({id, status, tag});
        open_.wait(lock, [&] { return !held_; });
    }
    std::vector<Completion> All() const {
        const std::lock_guard lock(mutex_);
        return arrived_;
    }
    // Between Hold and LetGo the stream's thread waits inside its completion.
    void Hold() {
        const std::lock_guard lock(mutex_);
        held_ = true;
    }
    void LetGo() {
        const std::lock_guard lock(mutex_);
        held_ = false;
        open_.notify_all();
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable open_;
    std::vector<Completion> arrived_;
    bool held_ = false;
};

}  // namespace kmxf::test
