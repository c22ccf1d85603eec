#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"

// What all writers have in common.
namespace kmxf::test {

template <class Writer>
void ExpectIdentificationOutOfRangeIsRefused(Writer& writer) {
    const uint8_t uid[16] = {9};
    const std::string s17(17, 's');
    EXPECT_EQ(writer.SetIdentification("", "p", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification(s17, "p", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", s17, "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "12345", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "v", nullptr), kStatusInvalidArgument);
}

// A client that frees its piece as soon as it is told that it is written.
struct FreeingClient final : IFileIOCallback {
    void CallbackForWriteComplete(uint64_t, int32_t, int32_t) override { piece.reset(); }
    std::unique_ptr<CMemoryPiece> piece;
};

// Called back inside a write, it sets a name, which must go through, and has another thread begin an operation on the
// stream, which must wait.
template <class Writer>
class LockWatcher final : public IFileIOCallback {
public:
    LockWatcher(Writer& writer, std::function<int32_t()> operation)
        : writer_(writer), operation_(std::move(operation)) {}

    void CallbackForWriteComplete(uint64_t, int32_t, int32_t) override {
        if (other_.joinable()) return;
        EXPECT_EQ(writer_.SetPackageName("set while writing"), kStatusOk);
        EXPECT_TRUE(writer_.IsOpened());
        other_ = std::thread([this] {
            EXPECT_EQ(operation_(), kStatusOk);
            done_ = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_FALSE(done_);
    }
    // The write is over, and the operation may be.
    void ExpectDone() {
        ASSERT_TRUE(other_.joinable()) << "not called back";
        other_.join();
        EXPECT_TRUE(done_);
    }

private:
    Writer& writer_;
    const std::function<int32_t()> operation_;
    std::thread other_;
    std::atomic<bool> done_{false};
};

}  // namespace kmxf::test
