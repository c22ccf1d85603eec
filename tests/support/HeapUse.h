#pragma once

#include <cstddef>

#include "support/Sanitizers.h"

#if KMXF_TEST_SANITIZED_HEAP
// Declared here: not every compiler brings the header of its sanitizers' allocator.
extern "C" size_t __sanitizer_get_current_allocated_bytes();  // NOLINT(bugprone-reserved-identifier)
#else
#include <malloc.h>
#endif

namespace kmxf::test {

// Bytes that the program holds on the heap at this moment.
inline size_t HeapBytes() {
#if KMXF_TEST_SANITIZED_HEAP
    return __sanitizer_get_current_allocated_bytes();
#else
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

}  // namespace kmxf::test
