#pragma once

#include <cstdint>
#include <functional>

#include "kmxf/core/Export.h"

namespace kmxf {

// Files as the library sees them. The order of the virtual functions is part of the binary interface, and so is the
// absence of a virtual destructor wherever slot 0 is an operation: such objects are destroyed through Release (pieces
// through their allocator). Reserved slots are never called.

// Flags of Open: read only, an existing file; read and write, an existing file, which is not emptied; create for
// writing, readable too, an existing file is emptied. Other flags make Open fail.
inline constexpr uint32_t kOpenRead = 0, kOpenReadWrite = 2, kOpenCreate = 0x102;
// Origins of Seek.
inline constexpr int32_t kSeekBegin = 0, kSeekCurrent = 1, kSeekEnd = 2;

// A buffer that belongs to whoever allocated it.
class KMXF_API StreamPiece {
public:
    // Slot 0: its size in bytes; a Write of the piece must accept them all.
    virtual uint32_t GetSize() = 0;
    // Slot 1: its first byte.
    virtual uint8_t* GetBuffer() = 0;
    virtual void Reserved2() {}
    // Slot 3: copies `size` bytes from `source` to `offset` within the piece; never past the piece's end.
    virtual void CopyIn(uint32_t offset, const void* source, uint32_t size) = 0;

protected:
    ~StreamPiece() = default;
};

// Makes and frees the pieces of a stream, on any thread. What one call of GetPieceAllocator gave frees the pieces of
// another, also after the stream is gone.
class KMXF_API IStreamPieceAllocator {
public:
    // Slot 0: a piece of exactly `size` bytes, which are 0 until they are written; null when there is no memory or
    // `size` is more than a count can say (2^31 - 1).
    virtual StreamPiece* Allocate(uint32_t size) = 0;
    // Slot 1: gives a piece back; null is allowed.
    virtual void Free(StreamPiece* piece) = 0;
    // Slot 2: gives the allocator back; its pieces stay good.
    virtual void Release() = 0;

protected:
    ~IStreamPieceAllocator() = default;
};

// Receives the completions of a stream's writes.
class KMXF_API IFileIOCallback {
public:
    IFileIOCallback() = default;
    IFileIOCallback(const IFileIOCallback&) = default;
    IFileIOCallback& operator=(const IFileIOCallback&) = default;
    virtual ~IFileIOCallback() = default;  // slot 0

    // Slot 1: exactly once for every Write of a piece to an open stream, in the order of the calls, also for a Write
    // that failed. `id` numbers the writes since Open, from 1; `status` is 0 when all bytes were written, otherwise
    // negative; `tag` is the one given to Write. From here on the stream does not touch the piece.
    // It may come inside Write or on the stream's own thread, and must not call the stream, save for GetPieceAllocator.
    virtual void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) = 0;
};

// A file that is read and written from a position, with writes that may complete later. One client thread at a time.
//
// A write that failed after it was accepted is never lost: from then on Write, Read and Seek to the end return -1, and
// DataSync and Close return false. The stream is good again after Close and Open. The library's file streams leave the
// reason of a failure in errno.
class KMXF_API IStreamFileIO {
public:
    // Slot 0: opens the named file (a local path, NUL-terminated) at position 0. A file that is still open is closed
    // first, and Open fails with Close. False if the name is null, the flags are unknown or the file cannot be opened.
    virtual bool Open(const char* fileName, uint32_t flags) = 0;
    // Slot 1: waits for the queued writes and closes; forgets the callback. False if a write was lost, the system
    // reports an error, or the stream is not open. The stream is closed in any case.
    virtual bool Close() = 0;
    // Slot 2: queues the piece for writing at the position, which advances. Returns the bytes accepted: the piece's
    // size, or less, -1 included, on failure. The piece must live, unchanged, until its completion has come. Waits
    // while more is queued than the stream wants to hold. `reserved` is 0.
    virtual int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) = 0;
    // Slot 3: fills the piece from the position, which advances, and sees queued writes. Returns the bytes read, fewer
    // than the piece's size only at the end of the file, 0 there; -1 on failure. `reserved` is 0.
    virtual int32_t Read(StreamPiece* piece, int32_t reserved) = 0;
    // Slot 4: moves the position by `offset` bytes from `origin`, also past the end; the end sees queued writes.
    // Returns the new position from the start; -1, with the position unchanged, on failure or for a position before the
    // start.
    virtual int64_t Seek(int64_t offset, int32_t origin) = 0;
    // Slot 5: waits until all queued writes are on the medium. False if one was lost, the medium reports an error, or
    // the stream is not open.
    virtual bool DataSync() = 0;
    // Slot 6: installs the receiver of completions, null for none; only later completions go to it.
    virtual bool RegisterCallback(IFileIOCallback* callback) = 0;
    virtual void Reserved7() {}
    virtual void Reserved8() {}
    // Slot 9: an allocator for this stream's pieces; the caller calls its Release. Allowed on any thread.
    virtual IStreamPieceAllocator* GetPieceAllocator() = 0;
    // Slot 10: the medium's write unit in bytes.
    virtual uint32_t GetClusterSize() = 0;
    // Slot 11: destroys a factory's stream, closing it first.
    virtual void Release() = 0;

protected:
    ~IStreamFileIO() = default;
};

// A file that is read and written from a position, at once, with plain buffers. The counterpart of IStreamFileIO.
class KMXF_API IFileIO {
public:
    // Slot 0: as the stream's Open.
    virtual bool Open(const char* fileName, uint32_t flags) = 0;
    // Slot 1: false if the system reports an error or the file is not open.
    virtual bool Close() = 0;
    // Slot 2: writes at the position, which advances. The bytes written, -1 on failure.
    virtual int32_t Write(const void* buffer, uint32_t size) = 0;
    // Slot 3: reads from the position, which advances. The bytes read, fewer than `size` only at the end of the file, 0
    // there; -1 on failure.
    virtual int32_t Read(void* buffer, uint32_t size) = 0;
    // Slot 4: as the stream's Seek.
    virtual int64_t Seek(int64_t offset, int32_t origin) = 0;
    virtual void Reserved5() {}
    virtual void Reserved6() {}
    virtual void Reserved7() {}
    virtual void Reserved8() {}
    virtual void Reserved9() {}
    // Slot 10: destroys the file object, closing it first.
    virtual void Release() = 0;

protected:
    ~IFileIO() = default;
};

// Makes file objects; each is released before the factory.
class KMXF_API IFileIOFactory {
public:
    // Slot 0: the library passes mode 1, which the local file system ignores; null on failure.
    virtual IFileIO* CreateFileIO(uint32_t mode) = 0;
    // Slot 1: the library passes mode 0, which the local file system ignores; null on failure.
    virtual IStreamFileIO* CreateStreamFileIO(uint32_t mode) = 0;
    virtual void Reserved2() {}
    virtual void Reserved3() {}
    virtual void Reserved4() {}
    virtual void Reserved5() {}
    virtual void Reserved6() {}
    virtual void Reserved7() {}
    // Slot 8: destroys the factory, last of all.
    virtual void Release() = 0;

protected:
    ~IFileIOFactory() = default;
};

// Describes a network to a factory; it has nothing to say for local files.
class KMXF_API CNetworkInfo {};

// Answers CFileIOMain::GetFactory in its stead; the result may be null.
using FactoryProvider = std::function<IFileIOFactory*(uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit)>;

// Where the library gets the files from that it opens by name.
class KMXF_API CFileIOMain {
public:
    // A factory, which the caller releases. The library passes (0, nullptr, 32768). Without a provider: the local file
    // system for kind 0, whatever the other arguments are, and null for any other kind or when there is no memory.
    static IFileIOFactory* GetFactory(uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit);
    // Puts a program's own files in place of the local file system; an empty provider restores that. From any thread.
    static void SetFactoryProvider(FactoryProvider provider);
    CFileIOMain() = delete;
};

}  // namespace kmxf
