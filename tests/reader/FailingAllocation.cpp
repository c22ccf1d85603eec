#include "reader/FailingAllocation.h"

#include <cstdint>
#include <new>

namespace kmxf::test {

namespace {

constexpr size_t kNone = static_cast<size_t>(-1);
size_t failing[2] = {kNone, kNone};

size_t& Failing(FailingAllocation::By by) { return failing[static_cast<size_t>(by)]; }

}  // namespace

FailingAllocation::FailingAllocation(By by, size_t size) { Failing(by) = size; }
FailingAllocation::~FailingAllocation() { failing[0] = failing[1] = kNone; }

// The linker's name of operator new, which takes what size_t is.
#if SIZE_MAX > UINT32_MAX
#define NEW(prefix) prefix##_Znwm
#else
#define NEW(prefix) prefix##_Znwj
#endif

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void* __real_malloc(size_t size);
void* NEW(__real_)(size_t size);
void* __wrap_malloc(size_t size);
void* NEW(__wrap_)(size_t size);

void* __wrap_malloc(size_t size) {
    return size == Failing(FailingAllocation::By::kMalloc) ? nullptr : __real_malloc(size);
}
void* NEW(__wrap_)(size_t size) {
    if (size == Failing(FailingAllocation::By::kNew)) throw std::bad_alloc();
    return NEW(__real_)(size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace kmxf::test
