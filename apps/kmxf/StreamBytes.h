#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "OwnedPiece.h"

// A byte stream that is looked through from front to back and handed out in pieces.
namespace kmxf::program {

class StreamBytes {
public:
    StreamBytes() = default;
    StreamBytes(const StreamBytes&) = delete;
    StreamBytes& operator=(const StreamBytes&) = delete;
    virtual ~StreamBytes() = default;

    // The bytes from the position on, as many as are at hand; good until the next call of another operation.
    virtual std::span<const uint8_t> AtHand() const = 0;
    // Brings more of the stream to hand; false at its end. Throws Failure when it cannot be read.
    virtual bool More() = 0;
    // Takes the first bytes at hand as a piece; the position advances. Throws Failure when one of them was not there.
    virtual std::unique_ptr<OwnedPiece> Take(uint32_t count) = 0;
    // Leaves bytes at hand out; the position advances.
    virtual void Skip(size_t count) = 0;
};

// A file, through a window that moves along it: nobody copies its bytes, and the pieces keep their windows. Null when
// the file cannot be mapped.
//
// A part of the window that the system cannot read (the medium fails, or the file became shorter) reads as zeros, and
// Take says so: that would otherwise be the signal SIGBUS.
std::unique_ptr<StreamBytes> MappedStream(int descriptor, uint64_t size, const std::string& file);

// What `read` gives, as from a pipe; it fills the room, less only at the end.
std::unique_ptr<StreamBytes> PipedStream(std::function<size_t(std::span<uint8_t> room)> read);

}  // namespace kmxf::program
