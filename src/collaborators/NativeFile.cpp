#include "collaborators/NativeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "collaborators/StreamRules.h"

namespace kmxf {

namespace {

static_assert(sizeof(off_t) == 8, "files may be larger than 2 GiB");

// Calls the system again when a signal broke off the call.
template <class Call>
auto Uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

bool Fail(int error) {
    errno = error;
    return false;
}

}  // namespace

bool NativeFile::Open(const char* fileName, uint32_t flags) {
    Close();
    const auto access = AccessFor(flags);
    if (fileName == nullptr || !access) return Fail(EINVAL);
    const int mode = (access->writes ? O_RDWR : O_RDONLY) | (access->creates ? O_CREAT | O_TRUNC : 0) | O_CLOEXEC;
    descriptor_ = Uninterrupted([&] { return ::open(fileName, mode, 0666); });
    if (descriptor_ < 0) return false;
    writable_ = access->writes;
    struct stat status {};
    if (::fstat(descriptor_, &status) == 0 && !S_ISDIR(status.st_mode)) return true;
    const int error = S_ISDIR(status.st_mode) ? EISDIR : errno;
    Close();
    return Fail(error);
}

bool NativeFile::Close() {
    if (!IsOpened()) return Fail(EBADF);
    // After a signal the descriptor is closed all the same.
    return ::close(std::exchange(descriptor_, -1)) == 0 || errno == EINTR;
}

int64_t NativeFile::ReadAt(void* buffer, size_t size, int64_t offset) const {
    auto* const bytes = static_cast<uint8_t*>(buffer);
    size_t done = 0;
    while (done < size) {
        const ssize_t count = Uninterrupted(
            [&] { return ::pread(descriptor_, bytes + done, size - done, offset + static_cast<int64_t>(done)); });
        if (count < 0) return -1;
        if (count == 0) break;
        done += static_cast<size_t>(count);
    }
    return static_cast<int64_t>(done);
}

bool NativeFile::WriteAt(const void* buffer, size_t size, int64_t offset) const {
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    while (size > 0) {
        const ssize_t count = Uninterrupted([&] { return ::pwrite(descriptor_, bytes, size, offset); });
        if (count < 0) return false;
        if (count == 0) return Fail(EIO);  // no progress and no reason
        bytes += count;
        size -= static_cast<size_t>(count);
        offset += count;
    }
    return true;
}

// No more than a hint: what fails here fails again in Sync, and is told there.
void NativeFile::BeginSync(int64_t offset, int64_t size) const {
#ifdef SYNC_FILE_RANGE_WRITE
    const int error = errno;
    ::sync_file_range(descriptor_, offset, size, SYNC_FILE_RANGE_WRITE);
    errno = error;
#else
    static_cast<void>(offset);
    static_cast<void>(size);
#endif
}

int64_t NativeFile::Size() const { return ::lseek(descriptor_, 0, SEEK_END); }

bool NativeFile::Sync() const {
    // EINVAL: a device that has no medium to wait for.
    return Uninterrupted([&] { return ::fdatasync(descriptor_); }) == 0 || errno == EINVAL;
}

}  // namespace kmxf
