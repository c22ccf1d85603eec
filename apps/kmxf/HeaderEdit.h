#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Op1bGroups.h"
#include "Program.h"

// Changes in the header of an existing file, made byte for byte.
namespace kmxf::program {

// The start of a file, in which all changes lie.
struct HeaderBytes {
    std::string path;
    uint64_t fileSize = 0;
    std::vector<uint8_t> bytes;  // the first 0x20000, or the whole file
};
HeaderBytes ReadHeaderBytes(const std::string& path);

// Tells such bytes from others: 16 hexadecimal digits.
std::string Fingerprint(const std::vector<uint8_t>& bytes);

struct HeaderEdit {
    HeaderBytes now;
    std::vector<uint8_t> after;  // as many bytes

    // What is written: every difference, with the bytes between those that are close to each other.
    std::vector<ByteRange> Ranges() const;
};

// Has a copy of the header changed in memory by what opens it by name. Throws Failure when there is no memory for it.
HeaderEdit EditCopy(const HeaderBytes& now, const std::function<void(const char* fileName)>& change);

// A failure after which files are neither what they were nor what they should have become.
class NotPutBack : public Failure {
public:
    using Failure::Failure;
};

// Changes all files or none: writes the ranges of each to the medium and has it proven; on a Failure, also of the
// proof, the files changed so far are put back. Throws that Failure, or NotPutBack.
void ApplyAll(const std::vector<HeaderEdit>& edits, const std::function<void(const HeaderEdit&)>& prove);

}  // namespace kmxf::program
