#pragma once

namespace kmxf::test {

// While one lives, what its thread asks the heap for is the test's own, and not the library's: memory that is told to
// fail does not fail here.
class TestsOwn {
public:
    TestsOwn() { ++Depth(); }
    TestsOwn(const TestsOwn&) = delete;
    TestsOwn& operator=(const TestsOwn&) = delete;
    ~TestsOwn() { --Depth(); }

    static int& Depth() {
        thread_local int depth = 0;
        return depth;
    }
};

}  // namespace kmxf::test
