#include "faults/FailingMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "support/TestsOwn.h"

namespace kmxf::test {

namespace {

std::atomic<bool> counting = false, inLibrary = false, onwards = false;
std::atomic<int> requests = 0, failing = 0;

bool Refuse() {
    if (!counting || !inLibrary || TestsOwn::Depth() > 0) return false;
    const int n = ++requests;
    return failing > 0 && (onwards ? n >= failing : n == failing);
}

}  // namespace

FailingMemory::FailingMemory(int n, Way way) {
    requests = 0;
    failing = n;
    onwards = way == Way::kFromThereOn;
    counting = true;
}
FailingMemory::~FailingMemory() { counting = false; }

int FailingMemory::Requests() { return requests; }
bool FailingMemory::RefusesAll() { return counting && onwards; }

FailingMemory::InLibrary::InLibrary() { inLibrary = true; }
FailingMemory::InLibrary::~InLibrary() { inLibrary = false; }

}  // namespace kmxf::test

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);

void* __wrap_malloc(size_t size) { return kmxf::test::Refuse() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) { return kmxf::test::Refuse() ? nullptr : __real_calloc(count, size); }
void* __wrap_realloc(void* block, size_t size) { return kmxf::test::Refuse() ? nullptr : __real_realloc(block, size); }
}
// NOLINTEND(bugprone-reserved-identifier)

// Also for the language's library, in which the strings are. All forms, so that none is another allocator's.
namespace {

void* Get(size_t size) { return kmxf::test::Refuse() ? nullptr : __real_malloc(size == 0 ? 1 : size); }
void* Get(size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<size_t>(alignment);
    return kmxf::test::Refuse() ? nullptr : std::aligned_alloc(unit, (size + unit - 1) / unit * unit);
}
template <class... Arguments>
void* GetOrThrow(Arguments... arguments) {
    void* const block = Get(arguments...);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

void* operator new(size_t size) { return GetOrThrow(size); }
void* operator new[](size_t size) { return GetOrThrow(size); }
void* operator new(size_t size, std::align_val_t alignment) { return GetOrThrow(size, alignment); }
void* operator new[](size_t size, std::align_val_t alignment) { return GetOrThrow(size, alignment); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Get(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Get(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
