#pragma once

#include "support/FaultyStream.h"

namespace kmxf::test {

// Each way in which a reader can fail to read an area of the file, and what the reader then says.
struct AreaReadFailure {
    const char* name;
    Op op;
    Fault fault;
    const char* message;
};
inline constexpr AreaReadFailure kAreaReadFailures[] = {
    {"no allocator", Op::kGetPieceAllocator, Fault::kFail, "Allocate Error."},
    {"no piece", Op::kAllocate, Fault::kFail, "Allocate Error."},
    {"a failing seek", Op::kSeek, Fault::kFail, "Read Error."},
    {"a failing read", Op::kRead, Fault::kFail, "Read Error."},
    {"a short read", Op::kRead, Fault::kShort, "Read Error."},
    {"a read at the end", Op::kRead, Fault::kEndOfFile, "Read Error."},
};

}  // namespace kmxf::test
