#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "collaborators/NativeFile.h"
#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

// A local file as a stream. The client goes on while a thread, started by the first Write, writes the pieces in the
// order in which they came and completes them.
class FileStream final : public IStreamFileIO {
public:
    FileStream() = default;
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;
    ~FileStream() { Close(); }

    bool Open(const char* fileName, uint32_t flags) override;
    bool Close() override;
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override;
    int32_t Read(StreamPiece* piece, int32_t reserved) override;
    int64_t Seek(int64_t offset, int32_t origin) override;
    bool DataSync() override;
    bool RegisterCallback(IFileIOCallback* callback) override;
    IStreamPieceAllocator* GetPieceAllocator() override;
    uint32_t GetClusterSize() override;
    void Release() override;

private:
    // A piece on its way. The piece itself belongs to the client; its bytes are all that the thread touches.
    struct Queued {
        const uint8_t* bytes;
        uint32_t size;
        int64_t position;
        uint64_t id;
        int32_t tag;
        size_t Cost() const;
    };

    bool Enqueue(const Queued& item);  // false, with errno, after a failure
    void Complete(const Queued& item, int error);
    void Run();    // the thread
    bool Drain();  // waits for the queue to be empty; false, with errno, after a failure
    void StopThread();

    // Used by the client's thread only, but for the file, which the other one writes.
    NativeFile file_;
    int64_t position_ = 0;
    uint64_t lastId_ = 0;
    std::thread thread_;

    std::atomic<IFileIOCallback*> callback_ = nullptr;

    std::mutex mutex_;  // guards what follows
    std::condition_variable work_;
    std::condition_variable progress_;
    std::deque<Queued> queue_;  // the first is being written and completed
    size_t queuedCost_ = 0;
    int error_ = 0;  // errno of the first failure since Open
    bool stopping_ = false;
};

}  // namespace kmxf
