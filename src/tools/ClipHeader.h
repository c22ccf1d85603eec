#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/Layout.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/tools/Clip.h"
#include "tools/ClipSets.h"

// The steps by which ReadClipFile comes to know a file, of either operational pattern.
namespace kmxf {

// In which an OP-Atom file has all that comes before its essence.
inline constexpr size_t kHeaderAreaSize = kOpAtomHeaderSize;

// A file that is looked at in places.
class ClipSource {
public:
    ClipSource(IByteSource& bytes, std::string path) : bytes_(bytes), path_(std::move(path)) {}

    IByteSource& Bytes() const { return bytes_; }
    const std::string& Path() const { return path_; }
    uint64_t Size() const { return bytes_.GetSize(); }  // at this moment
    // Zero bytes stand for what lies behind the end.
    std::vector<uint8_t> Look(uint64_t offset, size_t size) const;
    [[noreturn]] void Fail(const std::string& what) const;

private:
    IByteSource& bytes_;
    std::string path_;
};

// The start of a file taken apart: partition pack and sets.
struct HeaderArea {
    CPartition pack;
    ClipSets sets;
    std::optional<uint64_t> damage;  // offset where the layout breaks
};

// `bytes` begin with a partition pack.
HeaderArea TakeApart(std::span<const uint8_t> bytes);

// Packages and identification, and descriptive metadata.
void ReadIdentity(ClipFile& file, const ClipSets& sets);

// The footer partition pack at that place; nothing when there is none.
std::optional<CPartition> FooterAt(const ClipSource& source, uint64_t offset, uint64_t fileSize);

// Without watching whether the file grows.
ClipFile ReadClipFileAtOnce(IByteSource& bytes, const std::string& path);

// Watches all files together that are cut off by what they say, each through its source, and tells which ones grow.
struct WatchedFile {
    ClipFile* file;
    IByteSource* source;
};
void WatchGrowth(std::span<const WatchedFile> files);

// What the patterns do not have in common: formats, essence, verdict. `start` is the file's first kHeaderAreaSize
// bytes.
void ReadOpAtom(const ClipSource& source, std::span<const uint8_t> start, ClipFile& file);
void ReadOp1b(const ClipSource& source, std::span<const uint8_t> start, ClipFile& file);

// ClipFile::recording of a file that can be read as far as its material UMID; nothing for any other.
std::optional<std::string> ReadRecording(IByteSource& source, const std::string& path);

// The path without links and detours.
std::string CanonicalPath(const std::string& path);

}  // namespace kmxf
