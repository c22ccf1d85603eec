#pragma once

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KMXF_TEST_SANITIZED_HEAP
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KMXF_TEST_SANITIZED_HEAP
#endif

#ifdef KMXF_TEST_SANITIZED_HEAP
// Declared here: not every compiler brings the header of its sanitizers' allocator.
extern "C" size_t __sanitizer_get_current_allocated_bytes();  // NOLINT(bugprone-reserved-identifier)
#else
#include <malloc.h>
#endif

namespace kmxf::test {

// Bytes that the program holds on the heap at this moment.
inline size_t HeapBytes() {
#ifdef KMXF_TEST_SANITIZED_HEAP
    return __sanitizer_get_current_allocated_bytes();
#else
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

}  // namespace kmxf::test
