#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "kmxf/structures/Inspect.h"

namespace kmxf {

// Reads a source through the last two stretches that were read. As long as places asked for lie close to each other the
// stretches grow, so that small packets take few reads; behind a large value they start small again, so that no essence
// is read along with the head in front of it.
class InspectWindow {
public:
    explicit InspectWindow(IByteSource& source) : source_(source), size_(source.GetSize()) {}

    // Less than the source said once a read has failed.
    uint64_t Size() const { return size_; }
    uint64_t ReadCount() const { return readCount_; }
    uint64_t ReadBytes() const { return readBytes_; }
    std::optional<uint64_t> Failure() const { return failure_; }

    // `count` bytes from `offset`, fewer only at the end; good until the next call.
    std::span<const uint8_t> Peek(uint64_t offset, size_t count) {
        count = Clamp(offset, count);
        if (count == 0) return {};
        for (const Stretch& stretch : stretches_) {
            if (stretch.Holds(offset, count)) return stretch.From(offset, count);
        }
        const Stretch& last = stretches_[0];
        const bool close = offset >= last.offset && offset <= last.End() + kMostAhead;
        ahead_ = small_ ? kHeadAhead : close ? std::min(2 * ahead_, kMostAhead) : kLeastAhead;
        small_ = false;
        std::swap(stretches_[0], stretches_[1]);
        stretches_[0] = {offset, Read(offset, std::max(count, ahead_))};
        return stretches_[0].From(offset, count);
    }

    // The next stretch starts small wherever it lies: behind essence, small elements of which are close to each other
    // too.
    void StartSmall() { small_ = true; }

    // `count` bytes from `offset` to keep, in one read of just these bytes when there are many.
    std::vector<uint8_t> Copy(uint64_t offset, size_t count) {
        if (count > kMostAhead) return Read(offset, count);
        const auto bytes = Peek(offset, count);
        return {bytes.begin(), bytes.end()};
    }

private:
    // Key and length, of an element without data and the fill item behind it; with a pack of the file structure behind;
    // a good part of a header's sets.
    static constexpr size_t kHeadAhead = 64, kLeastAhead = 160, kMostAhead = 2048;

    struct Stretch {
        uint64_t offset = 0;
        std::vector<uint8_t> bytes;

        uint64_t End() const { return offset + bytes.size(); }
        bool Holds(uint64_t from, size_t count) const { return from >= offset && from + count <= End(); }
        std::span<const uint8_t> From(uint64_t from, size_t count) const {
            const auto rest = std::span(bytes).subspan(static_cast<size_t>(from - offset));
            return rest.first(std::min(count, rest.size()));
        }
    };

    size_t Clamp(uint64_t offset, size_t count) const {
        return offset >= size_ ? 0 : static_cast<size_t>(std::min<uint64_t>(count, size_ - offset));
    }

    std::vector<uint8_t> Read(uint64_t offset, size_t count) {
        std::vector<uint8_t> bytes(Clamp(offset, count));
        if (bytes.empty()) return bytes;
        const size_t read = std::min(source_.Read(offset, bytes), bytes.size());
        ++readCount_;
        readBytes_ += read;
        if (read < bytes.size()) {
            failure_ = size_ = offset + read;
            bytes.resize(read);
        }
        return bytes;
    }

    IByteSource& source_;
    uint64_t size_;
    std::array<Stretch, 2> stretches_;  // the last read first
    size_t ahead_ = kLeastAhead;
    bool small_ = false;
    uint64_t readCount_ = 0, readBytes_ = 0;
    std::optional<uint64_t> failure_;
};

}  // namespace kmxf
