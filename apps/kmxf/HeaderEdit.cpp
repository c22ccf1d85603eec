#include "HeaderEdit.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <utility>

#include "CountingStream.h"
#include "InputFile.h"
#include "OwnedPiece.h"
#include "Program.h"
#include "Text.h"
#include "core/Layout.h"

namespace kmxf::program {

namespace {

constexpr size_t kClose = 32;  // differences with fewer bytes between them are one range

// A file in memory that has a name.
class MemoryFile {
public:
    explicit MemoryFile(const HeaderBytes& header) : header_(header), descriptor_(::memfd_create("kmxf", MFD_CLOEXEC)) {
        const auto& bytes = header.bytes;
        if (std::cmp_equal(::pwrite(descriptor_, bytes.data(), bytes.size(), 0), bytes.size())) return;
        if (descriptor_ >= 0) ::close(descriptor_);
        FailCopy();
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(descriptor_); }

    std::string Name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    std::vector<uint8_t> Content() const {
        std::vector<uint8_t> bytes(header_.bytes.size());
        if (!std::cmp_equal(::pread(descriptor_, bytes.data(), bytes.size(), 0), bytes.size())) FailCopy();
        return bytes;
    }

private:
    [[noreturn]] void FailCopy() const {
        Fail(ExitStatus::kInternal, header_.path, "no memory for a copy of its header");
    }

    const HeaderBytes& header_;
    int descriptor_;
};

void WriteRanges(const HeaderEdit& edit, const std::vector<uint8_t>& bytes) {
    std::deque<HeapPiece> pieces;  // until their writes are complete
    CountingStream stream(edit.now.path);
    bool written = stream.Open(edit.now.path.c_str(), kOpenReadWrite);
    for (const ByteRange& range : edit.Ranges()) {
        const auto size = static_cast<uint32_t>(range.Size());
        HeapPiece& piece = pieces.emplace_back(size);
        piece.CopyIn(0, bytes.data() + range.begin, size);
        written = written && stream.Seek(static_cast<int64_t>(range.begin), kSeekBegin) >= 0 &&
                  std::cmp_equal(stream.Write(&piece, 0, 0), size);
    }
    const bool synced = stream.DataSync();
    const bool closed = stream.Close();
    if (written && synced && closed) return;
    const std::string reason = stream.Error() == 0 ? "" : ": " + ErrorText(stream.Error());
    Fail(ExitStatus::kOutput, edit.now.path, "cannot be written" + reason);
}

void RequireUnchanged(const HeaderBytes& header) {
    const HeaderBytes now = ReadHeaderBytes(header.path);
    if (now.fileSize != header.fileSize || now.bytes != header.bytes) {
        Fail(ExitStatus::kInput, header.path, "was changed meanwhile");
    }
}

void Apply(const HeaderEdit& edit) {
    WriteRanges(edit, edit.after);
    const HeaderBytes read = ReadHeaderBytes(edit.now.path);
    if (read.fileSize != edit.now.fileSize || read.bytes != edit.after) {
        Fail(ExitStatus::kFindings, edit.now.path, "reads back differently from what was written");
    }
}

}  // namespace

HeaderBytes ReadHeaderBytes(const std::string& path) {
    const InputFile file(path);
    HeaderBytes header{path, file.Size(), {}};
    header.bytes.resize(static_cast<size_t>(std::min<uint64_t>(header.fileSize, kOp1bHeaderSize)));
    file.Read(0, header.bytes);
    return header;
}

// FNV-1a of 64 bits.
std::string Fingerprint(const std::vector<uint8_t>& bytes) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3;
    char text[17];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(hash));
    return text;
}

std::vector<ByteRange> HeaderEdit::Ranges() const {
    std::vector<ByteRange> ranges;
    for (uint64_t at = 0; at < after.size(); ++at) {
        if (now.bytes[at] == after[at]) continue;
        if (ranges.empty() || at - ranges.back().end >= kClose) ranges.push_back({at, at});
        ranges.back().end = at + 1;
    }
    return ranges;
}

HeaderEdit EditCopy(const HeaderBytes& now, const std::function<void(const char* fileName)>& change) {
    const MemoryFile copy(now);
    change(copy.Name().c_str());
    return {now, copy.Content()};
}

void ApplyAll(const std::vector<HeaderEdit>& edits, const std::function<void(const HeaderEdit&)>& prove) {
    for (const HeaderEdit& edit : edits) {
        RequireUnchanged(edit.now);
        // All of them or none: what can be known to fail fails before the first.
        if (::access(edit.now.path.c_str(), W_OK) != 0)
            Fail(ExitStatus::kOutput, edit.now.path, "cannot be written: " + ErrorText(errno));
    }
    auto edit = edits.begin();
    try {
        for (; edit != edits.end(); ++edit) {
            Apply(*edit);
            prove(*edit);
        }
    } catch (const Failure& failure) {
        std::string stuck;
        for (auto changed = edits.begin(); changed <= edit; ++changed) {
            try {
                WriteRanges(*changed, changed->now.bytes);
            } catch (const Failure&) {
                stuck += (stuck.empty() ? "" : ", ") + changed->now.path;
            }
        }
        if (stuck.empty()) throw;
        throw NotPutBack(failure.Status(), std::string(failure.what()) + "; not put back: " + stuck);
    }
}

}  // namespace kmxf::program
