#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "core/Bytes.h"
#include "kmxf/core/Status.h"

namespace kmxf {

// Lets `write` fill a new buffer of `size` bytes and gives it to a caller who will free() it. `write` takes a
// ByteWriter and must fill the buffer exactly: a size that was promised and not met is a failure, not a short
// structure. Returns 0, kStatusInvalidArgument (null pointer) or kStatusNoMemory; `*data` is written on success only.
template <class Write>
int32_t HandOut(uint32_t size, uint8_t** data, Write write) {
    if (data == nullptr) return kStatusInvalidArgument;
    std::unique_ptr<uint8_t, decltype(&std::free)> buffer(static_cast<uint8_t*>(std::malloc(size == 0 ? 1 : size)),
                                                          &std::free);
    if (!buffer) return kStatusNoMemory;
    ByteWriter writer({buffer.get(), size});
    try {
        write(writer);
    } catch (const std::bad_alloc&) {
        return kStatusNoMemory;
    }
    if (!writer.Ok() || writer.Remaining() != 0) return kStatusNoMemory;
    *data = buffer.release();
    return kStatusOk;
}

}  // namespace kmxf
