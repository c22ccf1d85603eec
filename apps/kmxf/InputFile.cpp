#include "InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

InputFile::InputFile(std::string path)
    : path_(std::move(path)), descriptor_(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (descriptor_ < 0) Fail(ExitStatus::kInput, path_, "cannot be opened: " + ErrorText(errno));
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor_);
        Fail(ExitStatus::kInput, path_, "is not a file");
    }
}

InputFile::~InputFile() { ::close(descriptor_); }

uint64_t InputFile::Size() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) Fail(ExitStatus::kInput, path_, "cannot be read: " + ErrorText(errno));
    return static_cast<uint64_t>(status.st_size);
}

size_t InputFile::ReadSome(uint64_t offset, std::span<uint8_t> bytes) const {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count =
            ::pread(descriptor_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            Fail(ExitStatus::kInput, path_,
                 "cannot be read: " + ErrorText(errno) + " (offset " + std::to_string(offset + done) + ")");
        }
        if (count == 0) break;
        ++statistics.reads;
        statistics.bytesRead += static_cast<uint64_t>(count);
        done += static_cast<size_t>(count);
    }
    return done;
}

void InputFile::Read(uint64_t offset, std::span<uint8_t> bytes) const {
    const size_t count = ReadSome(offset, bytes);
    if (count != bytes.size()) {
        Fail(ExitStatus::kInput, path_, "ends within its essence (offset " + std::to_string(offset + count) + ")");
    }
}

std::vector<uint8_t> InputFile::Look(uint64_t offset, size_t size) const {
    std::vector<uint8_t> bytes(size);
    ReadSome(offset, bytes);
    return bytes;
}

std::span<const uint8_t> ReadingWindow::At(uint64_t offset, size_t size) {
    const bool behind = offset >= offset_ && offset - offset_ <= filled_;
    size_t skipped = behind ? static_cast<size_t>(offset - offset_) : filled_;
    if (!behind || filled_ - skipped < size) {
        bytes_.resize(std::max({bytes_.size(), step_, size}));
        std::copy(bytes_.begin() + static_cast<ptrdiff_t>(skipped), bytes_.begin() + static_cast<ptrdiff_t>(filled_),
                  bytes_.begin());
        filled_ -= skipped;
        offset_ = offset;
        filled_ += file_.ReadSome(offset_ + filled_, std::span(bytes_).subspan(filled_));
        skipped = 0;
    }
    return std::span<const uint8_t>(bytes_).subspan(skipped, std::min(size, filled_ - skipped));
}

}  // namespace kmxf::program
