#pragma once

#include <cstddef>

namespace kmxf::test {

// While it lives there is no memory for blocks of exactly this size, asked for from this program's own code by malloc
// or by operator new. The linker leads those calls here.
class FailingAllocation {
public:
    enum class By { kMalloc, kNew };
    FailingAllocation(By by, size_t size);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();
};

}  // namespace kmxf::test
