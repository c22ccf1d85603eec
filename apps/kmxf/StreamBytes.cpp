#include "StreamBytes.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>
#include <vector>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

namespace {

constexpr size_t kWindowSize = size_t{4} << 20;  // with what waits to be written, a few of them exist at a time
constexpr size_t kReadSize = size_t{64} << 10;   // live streams come to the file at least that often

uintptr_t PageSize() {
    static const auto size = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
    return size;
}

// The window that is being looked at, for the signal handler.
std::atomic<uintptr_t> windowBegin{0}, windowEnd{0};
std::atomic<bool> windowBroken{false};

// Puts zeros in place of what cannot be read of the window. Everybody else's fault takes its course.
void OnBusError(int, siginfo_t* info, void*) {
    const auto behind = reinterpret_cast<uintptr_t>(info->si_addr) % PageSize();
    auto* const page = static_cast<uint8_t*>(info->si_addr) - behind;
    const auto at = reinterpret_cast<uintptr_t>(page);
    if (at < windowBegin || at >= windowEnd ||
        ::mmap(page, windowEnd - at, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
        std::signal(SIGBUS, SIG_DFL);
        return;
    }
    windowBroken = true;
}

class Window {
public:
    Window(void* mapping, size_t size) : mapping_(mapping), size_(size) {}
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;
    ~Window() { ::munmap(mapping_, size_); }

    uint8_t* Bytes() const { return static_cast<uint8_t*>(mapping_); }
    size_t Size() const { return size_; }

private:
    void* mapping_;
    size_t size_;
};

class WindowPiece final : public OwnedPiece {
public:
    WindowPiece(std::shared_ptr<const Window> window, uint8_t* bytes, uint32_t size)
        : window_(std::move(window)), bytes_(bytes), size_(size) {}

    uint32_t GetSize() override { return size_; }
    uint8_t* GetBuffer() override { return bytes_; }
    void CopyIn(uint32_t, const void*, uint32_t) override {}  // it is for reading only

private:
    std::shared_ptr<const Window> window_;
    uint8_t* bytes_;
    uint32_t size_;
};

class Mapped final : public StreamBytes {
public:
    Mapped(int descriptor, uint64_t size, std::string file)
        : descriptor_(descriptor), size_(size), file_(std::move(file)) {
        struct sigaction action {};
        action.sa_sigaction = OnBusError;
        action.sa_flags = SA_SIGINFO;
        ::sigaction(SIGBUS, &action, nullptr);
        windowBroken = false;
    }
    ~Mapped() override { windowBegin = windowEnd = 0; }

    std::span<const uint8_t> AtHand() const override {
        if (!window_) return {};
        const auto within = static_cast<size_t>(position_ - windowOffset_);
        return {window_->Bytes() + within, window_->Size() - within};
    }

    bool More() override {
        const size_t had = AtHand().size();
        if (position_ + had >= size_) return false;
        if (!Move(std::max(kWindowSize, 2 * had))) {
            Fail(ExitStatus::kInput, file_,
                 "cannot be read: " + ErrorText(errno) + " (offset " + std::to_string(position_) + ")");
        }
        ++statistics.reads;
        statistics.bytesRead += AtHand().size() - had;
        return true;
    }

    std::unique_ptr<OwnedPiece> Take(uint32_t count) override {
        if (windowBroken) {
            Fail(ExitStatus::kInput, file_, "cannot be read: its medium fails, or it became shorter meanwhile");
        }
        auto* const bytes = window_->Bytes() + (position_ - windowOffset_);
        Skip(count);
        return std::make_unique<WindowPiece>(window_, bytes, count);
    }

    void Skip(size_t count) override { position_ += count; }

    // Maps from the position on.
    bool Move(size_t wanted) {
        const uint64_t offset = position_ / PageSize() * PageSize();
        const auto size = static_cast<size_t>(std::min<uint64_t>(wanted, size_ - offset));
        // Populated at once: page by page it would cost a fault each.
        void* const mapping =
            ::mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_POPULATE, descriptor_, static_cast<off_t>(offset));
        if (mapping == MAP_FAILED) return false;
        window_ = std::make_shared<const Window>(mapping, size);
        windowOffset_ = offset;
        windowBegin = reinterpret_cast<uintptr_t>(mapping);
        windowEnd = windowBegin + (size + PageSize() - 1) / PageSize() * PageSize();
        return true;
    }

private:
    int descriptor_;
    uint64_t size_;
    std::string file_;
    std::shared_ptr<const Window> window_;
    uint64_t windowOffset_ = 0;
    uint64_t position_ = 0;
};

class Piped final : public StreamBytes {
public:
    explicit Piped(std::function<size_t(std::span<uint8_t>)> read) : read_(std::move(read)) {}

    std::span<const uint8_t> AtHand() const override { return std::span(bytes_).subspan(taken_); }

    bool More() override {
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(taken_));
        taken_ = 0;
        const size_t had = bytes_.size();
        bytes_.resize(had + kReadSize);
        bytes_.resize(had + read_(std::span(bytes_).subspan(had)));
        return bytes_.size() > had;
    }

    std::unique_ptr<OwnedPiece> Take(uint32_t count) override {
        auto piece = std::make_unique<HeapPiece>(count);
        std::copy_n(AtHand().begin(), count, piece->GetBuffer());
        Skip(count);
        return piece;
    }

    void Skip(size_t count) override { taken_ += count; }

private:
    std::function<size_t(std::span<uint8_t>)> read_;
    std::vector<uint8_t> bytes_;
    size_t taken_ = 0;
};

}  // namespace

std::unique_ptr<StreamBytes> MappedStream(int descriptor, uint64_t size, const std::string& file) {
    auto stream = std::make_unique<Mapped>(descriptor, size, file);
    if (size != 0 && !stream->Move(1)) return nullptr;
    return stream;
}

std::unique_ptr<StreamBytes> PipedStream(std::function<size_t(std::span<uint8_t> room)> read) {
    return std::make_unique<Piped>(std::move(read));
}

}  // namespace kmxf::program
