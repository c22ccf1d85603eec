#include "reader/FailingAllocation.h"

#include <new>

namespace kmxf::test {

namespace {

constexpr size_t kNone = static_cast<size_t>(-1);
size_t failing[2] = {kNone, kNone};

size_t& Failing(FailingAllocation::By by) { return failing[static_cast<size_t>(by)]; }

}  // namespace

FailingAllocation::FailingAllocation(By by, size_t size) { Failing(by) = size; }
FailingAllocation::~FailingAllocation() { failing[0] = failing[1] = kNone; }

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void* __real_malloc(size_t size);
void* __real__Znwm(size_t size);
void* __wrap_malloc(size_t size);
void* __wrap__Znwm(size_t size);

void* __wrap_malloc(size_t size) {
    return size == Failing(FailingAllocation::By::kMalloc) ? nullptr : __real_malloc(size);
}
void* __wrap__Znwm(size_t size) {
    if (size == Failing(FailingAllocation::By::kNew)) throw std::bad_alloc();
    return __real__Znwm(size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace kmxf::test
