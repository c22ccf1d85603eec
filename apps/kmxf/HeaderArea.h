#pragma once

#include <cstdint>
#include <optional>

#include "FileInfo.h"
#include "HeaderSets.h"
#include "InputFile.h"
#include "kmxf/structures/Partition.h"

// The steps by which ReadFileInfo comes to know a file, of either operational pattern.
namespace kmxf::program {

inline constexpr size_t kHeaderAreaSize = 32768;  // in which an OP-Atom file has all that comes before its essence

// The start of a file taken apart: partition pack and sets.
struct HeaderArea {
    CPartition pack;
    HeaderSets sets;
    std::optional<uint64_t> damage;  // offset where the layout breaks
};

// `bytes` begin with a partition pack.
HeaderArea TakeApart(Bytes bytes);

// Packages and identification, and descriptive metadata.
void ReadIdentity(FileInfo& info, const HeaderSets& sets);

// The footer partition pack at that place; nothing when there is none.
std::optional<CPartition> FooterAt(const InputFile& file, uint64_t offset, uint64_t fileSize);
// Waits a moment for the file to grow.
bool IsGrowing(const InputFile& file, uint64_t size);

// What the patterns do not have in common: formats, essence, verdict. `start` is the file's first kHeaderAreaSize
// bytes.
void ReadOpAtom(const InputFile& file, Bytes start, FileInfo& info);
void ReadOp1b(const InputFile& file, Bytes start, FileInfo& info);

}  // namespace kmxf::program
