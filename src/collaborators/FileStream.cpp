#include "collaborators/FileStream.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>

#include "collaborators/HeapPieces.h"
#include "collaborators/StreamRules.h"
#include "kmxf/core/Status.h"

namespace kmxf {

namespace {

// What may wait to be written: enough to keep the thread busy, and no more than caches hold, as the thread reads again
// what the client has just put into the pieces. (Evening out a slow disk is the work of the system's page cache.)
constexpr size_t kQueueLimit = size_t{4} << 20;
// What a piece costs beside its bytes, so that the queue of very small pieces is bounded too.
constexpr size_t kPieceOverhead = 256;

// So much at a time goes on to the medium while the rest is still to come, or all of it would wait for the end.
constexpr int64_t kSyncStep = int64_t{8} << 20;

constexpr uint32_t kMaxCount = std::numeric_limits<int32_t>::max();

}  // namespace

size_t FileStream::Queued::Cost() const { return size + kPieceOverhead; }

bool FileStream::Open(const char* fileName, uint32_t flags) {
    if (file_.IsOpened() && !Close()) return false;
    position_ = 0;
    lastId_ = 0;
    error_ = 0;
    return file_.Open(fileName, flags);
}

bool FileStream::Close() {
    const bool drained = Drain();
    const int lost = errno;
    StopThread();
    callback_ = nullptr;
    const bool closed = file_.Close();
    if (!drained) errno = lost;
    return drained && closed;
}

void FileStream::StopThread() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    work_.notify_one();
    thread_.join();
    stopping_ = false;
}

int32_t FileStream::Write(StreamPiece* piece, int32_t tag, int32_t) {
    if (!file_.IsOpened() || piece == nullptr) {
        errno = EINVAL;
        return kCountFailed;
    }
    const Queued item{piece->GetBuffer(), piece->GetSize(), position_, ++lastId_, tag};
    if (!Enqueue(item)) {
        // The completion comes here, behind those of the pieces before.
        const int error = errno;
        Drain();
        Complete(item, error);
        errno = error;
        return kCountFailed;
    }
    position_ += item.size;
    return static_cast<int32_t>(item.size);
}

bool FileStream::Enqueue(const Queued& item) try {
    const bool fits = item.size <= kMaxCount && item.position <= std::numeric_limits<int64_t>::max() - item.size;
    if (!fits || !file_.IsWritable()) {
        errno = fits ? EBADF : EFBIG;
        return false;
    }
    std::unique_lock lock(mutex_);
    const size_t room = kQueueLimit - std::min(item.Cost(), kQueueLimit);
    if (queuedCost_ > room) {
        // Once full it has to get half empty, so that client and thread do not wake each other piece by piece.
        progress_.wait(lock, [&] { return queuedCost_ <= std::min(room, kQueueLimit / 2); });
    }
    if (error_ != 0) {
        errno = error_;
        return false;
    }
    if (!thread_.joinable()) thread_ = std::thread([this] { Run(); });
    queue_.push_back(item);
    queuedCost_ += item.Cost();
    lock.unlock();
    work_.notify_one();
    return true;
} catch (const std::exception&) {
    errno = ENOMEM;  // neither a thread nor a place in the queue without it
    return false;
}

void FileStream::Complete(const Queued& item, int error) {
    if (auto* const callback = callback_.load()) {
        callback->CallbackForWriteComplete(item.id, error == 0 ? kStatusOk : kStatusIoError, item.tag);
    }
}

void FileStream::Run() {
    int64_t from = 0, to = 0;  // written one behind the other, and not yet on its way to the medium
    std::unique_lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) return;
        const Queued item = queue_.front();
        if (error_ == 0) {
            lock.unlock();
            const int error = file_.WriteAt(item.bytes, item.size, item.position) ? 0 : errno;
            if (item.position != to) from = item.position;
            to = item.position + item.size;
            if (to - from >= kSyncStep) {
                file_.BeginSync(from, to - from);
                from = to;
            }
            lock.lock();
            error_ = error;
        }
        // Behind a failed write nothing more is written: the file would have a hole.
        const int error = error_;
        lock.unlock();
        Complete(item, error);
        lock.lock();
        queue_.pop_front();
        queuedCost_ -= item.Cost();
        if (queuedCost_ <= kQueueLimit / 2) progress_.notify_all();
    }
}

bool FileStream::Drain() {
    std::unique_lock lock(mutex_);
    progress_.wait(lock, [&] { return queue_.empty(); });
    if (error_ == 0) return true;
    errno = error_;
    return false;
}

int32_t FileStream::Read(StreamPiece* piece, int32_t) {
    if (!file_.IsOpened() || piece == nullptr) {
        errno = EINVAL;
        return kCountFailed;
    }
    if (!Drain()) return kCountFailed;
    const int32_t count = FillPiece(*piece, [&](uint8_t* buffer) {
        return static_cast<int32_t>(file_.ReadAt(buffer, std::min(piece->GetSize(), kMaxCount), position_));
    });
    if (count > 0) position_ += count;
    return count;
}

int64_t FileStream::Seek(int64_t offset, int32_t origin) {
    if (!file_.IsOpened()) return -1;
    const int64_t target = SeekTarget(offset, origin, position_, [&] { return Drain() ? file_.Size() : -1; });
    if (target >= 0) position_ = target;
    return target;
}

bool FileStream::DataSync() {
    if (!file_.IsOpened() || !Drain()) return false;
    if (file_.Sync()) return true;
    // The system reports such an error once only: keep it for Close.
    const std::lock_guard lock(mutex_);
    error_ = errno;
    return false;
}

bool FileStream::RegisterCallback(IFileIOCallback* callback) {
    callback_ = callback;
    return true;
}

IStreamPieceAllocator* FileStream::GetPieceAllocator() { return &HeapPieceAllocator(); }

uint32_t FileStream::GetClusterSize() { return 32768; }

void FileStream::Release() { delete this; }

}  // namespace kmxf
