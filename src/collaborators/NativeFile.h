#pragma once

#include <cstddef>
#include <cstdint>

namespace kmxf {

// A file of the operating system, read and written at absolute offsets; what interrupts and short counts leave over is
// done by the next call to the system. Failures leave their reason in errno. Reads and writes may come from several
// threads, Open and Close from one while no other uses the file.
class NativeFile {
public:
    NativeFile() = default;
    NativeFile(const NativeFile&) = delete;
    NativeFile& operator=(const NativeFile&) = delete;
    ~NativeFile() { Close(); }

    bool Open(const char* fileName, uint32_t flags);  // as IStreamFileIO::Open; no directories
    bool Close();                                     // false if not open
    bool IsOpened() const { return descriptor_ >= 0; }
    bool IsWritable() const { return writable_; }

    int64_t ReadAt(void* buffer, size_t size, int64_t offset) const;  // fewer than size at the end only; -1 on failure
    bool WriteAt(const void* buffer, size_t size, int64_t offset) const;
    // Has the system begin to write to the medium what was written there, so that Sync has little left to wait for.
    void BeginSync(int64_t offset, int64_t size) const;
    int64_t Size() const;  // -1 on failure
    bool Sync() const;     // the data, and what it takes to find it, are on the medium

private:
    int descriptor_ = -1;
    bool writable_ = false;
};

}  // namespace kmxf
