#include "tools/FileCopy.h"

#include <algorithm>
#include <utility>

namespace kmxf {

bool FileCopy::Open(const std::string& path) {
    while (pieces_.size() < kPieces)
        if (!pieces_.emplace_back(stream_.Allocator(), kPieceSize)) return false;
    return stream_.Open(path.c_str(), kOpenCreate) && stream_->RegisterCallback(this);
}

bool FileCopy::Append(SalvageInput& source, uint64_t from, uint64_t size) {
    for (uint64_t done = 0; done < size;) {
        const auto room = Room();
        const auto part = room.first(static_cast<size_t>(std::min<uint64_t>(room.size(), size - done)));
        if (source.Read(from + done, part) < part.size() || !Filled(part.size())) return false;
        done += part.size();
    }
    return true;
}

bool FileCopy::Append(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto room = Room();
        const size_t count = std::min(room.size(), bytes.size());
        std::copy_n(bytes.begin(), count, room.begin());
        if (!Filled(count)) return false;
        bytes = bytes.subspan(count);
    }
    return true;
}

bool FileCopy::Close() {
    OwnedPiece last(stream_.Allocator(), static_cast<uint32_t>(std::max<size_t>(filled_, 1)));
    if (!last) return false;
    const auto rest = Room();
    std::copy_n(rest.data() - filled_, filled_, last->GetBuffer());
    const bool good = filled_ == 0 || Write(last.get());
    return stream_.Close() && good;
}

// Of the next piece, once the stream has given it back.
std::span<uint8_t> FileCopy::Room() {
    if (filled_ == 0) {
        std::unique_lock lock(mutex_);
        completed_.wait(lock, [this] { return given_ - done_ < kPieces; });
    }
    return pieces_[given_ % kPieces].Bytes().subspan(filled_);
}

bool FileCopy::Filled(size_t count) {
    filled_ += count;
    if (filled_ < kPieceSize) return true;
    StreamPiece* const piece = pieces_[given_ % kPieces].get();
    filled_ = 0;
    ++given_;
    return Write(piece);
}

bool FileCopy::Write(StreamPiece* piece) { return std::cmp_equal(stream_->Write(piece, 0, 0), piece->GetSize()); }

// Once for each write, in their order.
void FileCopy::CallbackForWriteComplete(uint64_t, int32_t, int32_t) {
    const std::lock_guard lock(mutex_);
    ++done_;
    completed_.notify_one();
}

}  // namespace kmxf
