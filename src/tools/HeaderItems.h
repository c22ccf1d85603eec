#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "core/Bytes.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/structures/Partition.h"

namespace kmxf {

// What is read of a packet to find its key and length, of the latter no more than 8 bytes.
inline constexpr uint32_t kPacketHeadSize = 25;
// The length of an item has 16 bits.
inline constexpr uint32_t kLongestItem = 0xFFFF;

// An open file by offsets. Nothing is read, and no memory taken, for what does not lie within it.
class FileBytes {
public:
    explicit FileBytes(IFileIO& file);

    uint64_t Size() const { return size_; }

    // Moves an offset by each of the steps; false when that leads out of the file.
    bool StepOver(uint64_t& offset, std::initializer_list<uint64_t> steps) const;
    // All of the bytes. kStatusIoError, kStatusNoMemory.
    int32_t Read(uint64_t offset, uint64_t size, std::vector<uint8_t>& bytes) const;
    // Parses the partition pack and moves the offset behind it, by the pack's own length. As above, and
    // kStatusInvalidArgument for anything but a partition pack.
    int32_t ReadPack(uint64_t& offset, CPartition& pack) const;

private:
    IFileIO& file_;
    uint64_t size_;
};

// Items of a file's header metadata, by the key of their set and their local tag. The metadata is read once, when the
// first item is asked for.
class HeaderItems {
public:
    explicit HeaderItems(IFileIO& file) : file_(file) {}

    // Offset of the value in the file and its length as stated; it may lead outside. kStatusFailure when there is no
    // such item; the failures of FileBytes.
    int32_t Find(const MXFKEYTag& key, uint16_t localTag, int64_t& offset, uint32_t& length);
    // The value, or its first `limit` bytes.
    int32_t Read(const MXFKEYTag& key, uint16_t localTag, uint32_t limit, std::vector<uint8_t>& value);
    // The whole value to the start of the buffer; kStatusInvalidArgument when the buffer is too small.
    int32_t Copy(const MXFKEYTag& key, uint16_t localTag, std::span<uint8_t> buffer);

    // Values for which no status is asked at once: the first that cannot be read leaves its status, and it and all that
    // follow are zeros.
    int32_t Status() const { return status_; }
    // A field of `size` bytes, good until the next one is asked for; a shorter value has zeros behind it, a longer one
    // is kStatusInvalidArgument.
    ByteReader Field(const MXFKEYTag& key, uint16_t localTag, uint32_t size);
    // UTF-16 text of at most `limit` bytes, the rest is cut.
    std::string Text(const MXFKEYTag& key, uint16_t localTag, uint32_t limit);

private:
    int32_t Load();

    FileBytes file_;
    std::vector<uint8_t> header_;  // from the start of the file to the end of the header metadata
    std::vector<uint8_t> field_;
    int32_t status_ = 0;
};

}  // namespace kmxf
