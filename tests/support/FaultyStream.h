#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Status.h"
#include "support/TestsOwn.h"

namespace kmxf::test {

// The operations of a stream that can be told to fail.
enum class Op { kOpen, kClose, kWrite, kRead, kSeek, kDataSync, kRegisterCallback, kGetPieceAllocator, kAllocate };

// How an operation fails. What has no meaning for an operation is the same as kFail.
enum class Fault {
    kFail,           // false, -1 or null; a Write moves no bytes and no completion ever comes
    kFailCompleted,  // Write: as kFail, but its completion comes, with an error status
    kShort,          // Write, Read: one byte fewer than asked for; a Write's completion comes, with an error status
    kEndOfFile,      // Read: 0
    kBadCompletion,  // Write: accepted in full, nothing is written, the completion comes with an error status
    kLost            // Write: the same, and from then on the stream fails as a file's stream does that has lost a write
};

// A stream over bytes in memory that fails on demand, completes writes inside Write or later on a thread of its own,
// and remembers what was asked of it.
//
// The bytes are shared, so that several streams, one after the other, can stand for one file. Tests look at them only
// while no write is queued (after Close, DataSync or Read).
class FaultyStream final : public IStreamFileIO {
public:
    using Contents = std::shared_ptr<std::vector<uint8_t>>;
    static constexpr int32_t kBadStatus = -5;  // of completions that report a failure

    explicit FaultyStream(Contents contents = std::make_shared<std::vector<uint8_t>>())
        : contents_(std::move(contents)) {}
    explicit FaultyStream(std::vector<uint8_t> contents)
        : FaultyStream(std::make_shared<std::vector<uint8_t>>(std::move(contents))) {}
    FaultyStream(const FaultyStream&) = delete;
    FaultyStream& operator=(const FaultyStream&) = delete;
    ~FaultyStream() {
        StopWorker();
        for (StreamPiece* piece : livePieces_) delete static_cast<Piece*>(piece);
    }

    // --- what the test says ---

    // The nth call of `op`, counted from 1 over the stream's life, fails.
    void FailNth(Op op, int n, Fault fault = Fault::kFail) { faults_[{op, n}] = fault; }
    // Every call of `op` fails.
    void FailAll(Op op, Fault fault = Fault::kFail) { faults_[{op, 0}] = fault; }
    // The nth call of any operation, counted from 1, fails.
    void FailNthOfAll(int n, Fault fault = Fault::kFail) { anyFaults_[n] = fault; }
    // From the nth call of any operation on every call fails, or every call of `op`.
    void FailFromNthOfAll(int n, Fault fault = Fault::kFail, std::optional<Op> op = std::nullopt) {
        from_ = From{n, fault, op};
    }
    // Writes from now on happen and complete on a thread of the stream's own, each after `delay`.
    void CompleteAsynchronously(std::chrono::milliseconds delay = {}) { delay_ = delay; }
    void SetClusterSize(uint32_t size) { clusterSize_ = size; }

    // --- what the test asks ---

    std::vector<uint8_t>& Bytes() const { return *contents_; }
    const Contents& Shared() const { return contents_; }
    int Count(Op op) const {
        return Locked([&] { return counts_.contains(op) ? counts_.at(op) : 0; });
    }
    // Whether the nth call of any operation is told to fail.
    bool FailsNthOfAll(int n) const { return anyFaults_.contains(n) || (from_ && n >= from_->n && !from_->op); }
    int CountOfAll() const {
        return Locked([&] { return static_cast<int>(calls_.size()); });
    }
    // One text a call, with its arguments: "Open a.mxf 0x102", "Write 32768 tag 1", "Seek -16 2", "Close".
    std::vector<std::string> Calls() const {
        return Locked([&] { return calls_; });
    }
    bool IsOpened() const { return opened_; }
    int64_t Position() const { return position_; }
    IFileIOCallback* Callback() const { return callback_; }
    // Pieces and allocators handed out and not yet given back.
    int LivePieces() const {
        return Locked([&] { return static_cast<int>(livePieces_.size()); });
    }
    int LiveAllocators() const {
        return Locked([&] { return liveAllocators_; });
    }
    bool Released() const { return released_; }
    bool HasLost() const { return lost_; }  // a write, by Fault::kLost, since Open

    // --- IStreamFileIO ---

    bool Open(const char* fileName, uint32_t flags) override {
        const TestsOwn own;
        char text[16];
        std::snprintf(text, sizeof text, "0x%X", unsigned{flags});
        if (Enter(Op::kOpen, [&] { return std::string("Open ") + (fileName ? fileName : "(null)") + " " + text; }))
            return false;
        if (flags == kOpenCreate) contents_->clear();
        lost_ = false;
        position_ = 0;
        return opened_ = true;
    }
    bool Close() override {
        Drain();
        const auto fault = Enter(Op::kClose, [] { return "Close"; });
        return std::exchange(opened_, false) && !fault && !lost_;
    }
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t) override {
        const uint32_t size = piece ? piece->GetSize() : 0;
        auto fault = Enter(Op::kWrite, [&] { return "Write " + std::to_string(size) + " tag " + std::to_string(tag); });
        if (lost_) fault = Fault::kFailCompleted;
        if (fault == Fault::kLost) {
            lost_ = true;
            fault = Fault::kBadCompletion;
        }
        if (!opened_ || piece == nullptr || fault == Fault::kFail || fault == Fault::kEndOfFile) return kCountFailed;
        Job job{piece, position_, size, ++lastId_, tag, fault ? kBadStatus : kStatusOk};
        int32_t accepted = static_cast<int32_t>(size);
        if (fault == Fault::kFailCompleted) accepted = kCountFailed;
        if (fault == Fault::kShort) accepted = static_cast<int32_t>(job.count = size - (size > 0 ? 1 : 0));
        if (fault == Fault::kFailCompleted || fault == Fault::kBadCompletion) job.count = 0;
        if (accepted > 0) position_ += accepted;
        delay_ ? Queue(job) : Perform(job);
        return accepted;
    }
    int32_t Read(StreamPiece* piece, int32_t) override {
        Drain();
        const uint32_t size = piece ? piece->GetSize() : 0;
        const auto fault = Enter(Op::kRead, [&] { return "Read " + std::to_string(size); });
        if (fault == Fault::kEndOfFile) return 0;
        if (!opened_ || lost_ || piece == nullptr || (fault && fault != Fault::kShort)) return kCountFailed;
        const auto start = std::min(static_cast<size_t>(position_), contents_->size());
        auto count = std::min<size_t>(size, contents_->size() - start);
        if (fault == Fault::kShort && count > 0) --count;
        if (count > 0) std::memcpy(piece->GetBuffer(), contents_->data() + start, count);
        position_ += static_cast<int64_t>(count);
        return static_cast<int32_t>(count);
    }
    int64_t Seek(int64_t offset, int32_t origin) override {
        Drain();
        const auto fault =
            Enter(Op::kSeek, [&] { return "Seek " + std::to_string(offset) + " " + std::to_string(origin); });
        if (!opened_ || fault || (lost_ && origin == kSeekEnd)) return -1;
        const int64_t base[] = {0, position_, static_cast<int64_t>(contents_->size())};
        if (origin < 0 || origin > 2 || base[origin] + offset < 0) return -1;
        return position_ = base[origin] + offset;
    }
    bool DataSync() override {
        Drain();
        return !Enter(Op::kDataSync, [] { return "DataSync"; }) && opened_ && !lost_;
    }
    bool RegisterCallback(IFileIOCallback* callback) override {
        if (Enter(Op::kRegisterCallback, [] { return "RegisterCallback"; })) return false;
        Locked([&] { callback_ = callback; });
        return true;
    }
    IStreamPieceAllocator* GetPieceAllocator() override {
        const TestsOwn own;
        if (Enter(Op::kGetPieceAllocator, [] { return "GetPieceAllocator"; })) return nullptr;
        Locked([&] { ++liveAllocators_; });
        return new Allocator(*this);
    }
    uint32_t GetClusterSize() override { return clusterSize_; }
    void Release() override { released_ = true; }  // belongs to the test

private:
    // A piece that is filled with 0xEE when it is made, so that bytes nobody wrote show in the file.
    class Piece final : public StreamPiece {
    public:
        explicit Piece(uint32_t size) : bytes_(size, uint8_t{0xEE}) {}
        uint32_t GetSize() override { return static_cast<uint32_t>(bytes_.size()); }
        uint8_t* GetBuffer() override { return bytes_.data(); }
        void CopyIn(uint32_t offset, const void* source, uint32_t size) override {
            if (offset < bytes_.size())
                std::memcpy(bytes_.data() + offset, source, std::min<size_t>(size, bytes_.size() - offset));
        }

    private:
        std::vector<uint8_t> bytes_;
    };

    class Allocator final : public IStreamPieceAllocator {
    public:
        explicit Allocator(FaultyStream& stream) : stream_(stream) {}
        StreamPiece* Allocate(uint32_t size) override {
            const TestsOwn own;
            if (stream_.Enter(Op::kAllocate, [&] { return "Allocate " + std::to_string(size); })) return nullptr;
            StreamPiece* const piece = new Piece(size);
            stream_.Locked([&] { stream_.livePieces_.insert(piece); });
            return piece;
        }
        void Free(StreamPiece* piece) override {
            if (piece == nullptr) return;
            stream_.Locked([&] { stream_.livePieces_.erase(piece); });
            delete static_cast<Piece*>(piece);
        }
        void Release() override {
            stream_.Locked([&] { --stream_.liveAllocators_; });
            delete this;
        }

    private:
        FaultyStream& stream_;
    };

    struct Job {
        StreamPiece* piece;
        int64_t position;
        uint32_t count;  // bytes that get into the file
        uint64_t id;
        int32_t tag;
        int32_t status;
    };

    template <class Action>
    std::invoke_result_t<Action> Locked(Action action) const {
        const std::lock_guard lock(mutex_);
        return action();
    }

    // Notes the call and says how it fails, if it does.
    template <class Call>
    std::optional<Fault> Enter(Op op, Call call) {
        const TestsOwn own;
        const std::lock_guard lock(mutex_);
        calls_.push_back(call());
        const int n = ++counts_[op], nOfAll = static_cast<int>(calls_.size());
        for (const auto& key : {std::pair{op, n}, std::pair{op, 0}}) {
            if (const auto found = faults_.find(key); found != faults_.end()) return found->second;
        }
        if (from_ && nOfAll >= from_->n && op == from_->op.value_or(op)) return from_->fault;
        const auto found = anyFaults_.find(nOfAll);
        return found == anyFaults_.end() ? std::nullopt : std::optional(found->second);
    }

    void Perform(const Job& job) {
        if (job.count > 0) {
            const TestsOwn own;
            const auto start = static_cast<size_t>(job.position);
            contents_->resize(std::max(contents_->size(), start + job.count));
            std::memcpy(contents_->data() + start, job.piece->GetBuffer(), job.count);
        }
        if (auto* const callback = Locked([&] { return callback_; })) {
            callback->CallbackForWriteComplete(job.id, job.status, job.tag);
        }
    }

    void Queue(const Job& job) {
        const TestsOwn own;
        const std::lock_guard lock(mutex_);
        jobs_.push_back(job);
        if (!worker_.joinable()) worker_ = std::thread([this] { Work(); });
        changed_.notify_all();
    }
    void Work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return stopping_ || !jobs_.empty(); });
            if (jobs_.empty()) return;
            const Job job = jobs_.front();
            lock.unlock();
            std::this_thread::sleep_for(*delay_);
            Perform(job);
            lock.lock();
            jobs_.pop_front();
            changed_.notify_all();
        }
    }
    void Drain() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return jobs_.empty(); });
    }
    void StopWorker() {
        Locked([&] {
            stopping_ = true;
            changed_.notify_all();
        });
        if (worker_.joinable()) worker_.join();
    }

    Contents contents_;
    int64_t position_ = 0;
    uint64_t lastId_ = 0;
    uint32_t clusterSize_ = 32768;
    bool opened_ = false;
    bool released_ = false;
    std::map<std::pair<Op, int>, Fault> faults_;
    std::map<int, Fault> anyFaults_;
    struct From {
        int n;
        Fault fault;
        std::optional<Op> op;
    };
    std::optional<From> from_;
    std::atomic<bool> lost_ = false;
    std::optional<std::chrono::milliseconds> delay_;

    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    IFileIOCallback* callback_ = nullptr;
    std::map<Op, int> counts_;
    std::vector<std::string> calls_;
    std::set<StreamPiece*> livePieces_;
    int liveAllocators_ = 0;
    std::deque<Job> jobs_;
    bool stopping_ = false;
    std::thread worker_;
};

}  // namespace kmxf::test
