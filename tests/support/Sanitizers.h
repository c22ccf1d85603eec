#pragma once

// Under which sanitizer the tests are built: 0 or 1, whichever compiler says so.
#if defined(__has_feature)
#define KMXF_TEST_ASAN __has_feature(address_sanitizer)
#define KMXF_TEST_TSAN __has_feature(thread_sanitizer)
#else
#ifdef __SANITIZE_ADDRESS__
#define KMXF_TEST_ASAN 1
#else
#define KMXF_TEST_ASAN 0
#endif
#ifdef __SANITIZE_THREAD__
#define KMXF_TEST_TSAN 1
#else
#define KMXF_TEST_TSAN 0
#endif
#endif
// The allocators of both keep what is freed, and end the program where there is no memory.
#define KMXF_TEST_SANITIZED_HEAP (KMXF_TEST_ASAN || KMXF_TEST_TSAN)
