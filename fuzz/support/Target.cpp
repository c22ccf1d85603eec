#include "support/Target.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "kmxf/collaborators/Log.h"
#include "support/Mutator.h"
#include "support/Sanitizers.h"

// NOLINTBEGIN(bugprone-reserved-identifier)
#if KMXF_TEST_ASAN
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, size_t),
                                                         void (*onFree)(const volatile void*));
extern "C" size_t __sanitizer_get_allocated_size(const volatile void*);
#endif
extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t capacity, unsigned seed);
// NOLINTEND(bugprone-reserved-identifier)

namespace kmxf::fuzz {

namespace {

constexpr size_t kMostMemory = 64 << 20;
constexpr size_t kLongestInput = 1 << 20;  // inputs beyond this may take more

// Seconds of the processor, as the machine may be busy with other things. The sanitizers take several times as long,
// and what is not optimised again.
#ifndef __OPTIMIZE__
constexpr double kMostSeconds = 20;
#elif KMXF_TEST_ASAN
constexpr double kMostSeconds = 3;
#else
constexpr double kMostSeconds = 1;
#endif

// Bytes on the heap since the input's run began. Blocks of before that are freed meanwhile count too: there are none.
std::atomic<int64_t> held{0}, most{0};

#if KMXF_TEST_ASAN
void OnMalloc(const volatile void*, size_t size) {
    const int64_t now = held += static_cast<int64_t>(size);
    if (now > most) most = now;
}
void OnFree(const volatile void* block) {
    if (block != nullptr) held -= static_cast<int64_t>(__sanitizer_get_allocated_size(block));
}
void WatchHeap() { __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree); }
#else
void WatchHeap() {}
#endif

double ProcessorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

uint64_t executions = 0;
double slowest = 0;
int64_t largest = 0;

// Standard error as it was at the start: the engine closes it to what the program says.
std::FILE* report = stderr;

void PrintCost() {
    std::fprintf(report, "cost: %llu executions, slowest %.0f ms, most memory %.1f MiB\n",
                 static_cast<unsigned long long>(executions), slowest * 1000, static_cast<double>(largest) / (1 << 20));
}

}  // namespace

void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(report, "does not hold: %s\n", what);
    std::fflush(report);
    std::abort();
}

}  // namespace kmxf::fuzz

int LLVMFuzzerInitialize(int*, char***) {
    kmxf::SetLogSink([](const kmxf::LogRecord&) {});
    if (std::FILE* const kept = fdopen(dup(STDERR_FILENO), "w")) kmxf::fuzz::report = kept;
    kmxf::fuzz::WatchHeap();
    std::atexit(kmxf::fuzz::PrintCost);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kmxf::fuzz;
    held = most = 0;
    const double start = ProcessorSeconds();
    Run({data, size});
    const double seconds = ProcessorSeconds() - start;
    const int64_t peak = most;
    ++executions;
    slowest = std::max(slowest, seconds);
    largest = std::max(largest, peak);
    Require(seconds <= kMostSeconds, "no input takes long");
    Require(size > kLongestInput || peak <= static_cast<int64_t>(kMostMemory), "no input takes more than 64 MiB");
    return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t capacity, unsigned seed) {
    return kmxf::fuzz::Mutate({data, capacity}, size, seed);
}
