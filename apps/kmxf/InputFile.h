#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kmxf::program {

// A file that is read at given places. All functions throw Failure, with the offset, when it cannot be read.
class InputFile {
public:
    // Without waiting: a pipe has no writer yet, and is refused.
    explicit InputFile(std::string path);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    const std::string& Path() const { return path_; }
    int Descriptor() const { return descriptor_; }
    uint64_t Size() const;  // at this moment

    // Fills `bytes` from `offset`, as far as the file goes. Returns how many it got.
    size_t ReadSome(uint64_t offset, std::span<uint8_t> bytes) const;
    // The same, where it is a failure that the file ends before.
    void Read(uint64_t offset, std::span<uint8_t> bytes) const;
    // Zero bytes stand for what lies behind the end of the file.
    std::vector<uint8_t> Look(uint64_t offset, size_t size) const;

private:
    std::string path_;
    int descriptor_;
};

// Reads a file forwards, `step` bytes at a time or what is asked for at once, and hands out what lies where.
class ReadingWindow {
public:
    ReadingWindow(const InputFile& file, size_t step) : file_(file), step_(step) {}

    // The bytes at a place, up to `size` of them where the file goes so far, valid until the next call. They are in
    // memory all at once: the caller sees to it that `size` is justified.
    std::span<const uint8_t> At(uint64_t offset, size_t size);

private:
    const InputFile& file_;
    size_t step_;
    uint64_t offset_ = 0;
    std::vector<uint8_t> bytes_;
    size_t filled_ = 0;
};

}  // namespace kmxf::program
