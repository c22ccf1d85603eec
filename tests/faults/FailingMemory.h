#pragma once

namespace kmxf::test {

// While it lives every request for memory that the library makes, on any thread, counts: by operator new, and by malloc
// and its kin from the library's own code. The nth, from 1, or all from the nth on, are refused.
class FailingMemory {
public:
    enum class Way { kOnce, kFromThereOn };
    explicit FailingMemory(int n = 0, Way way = Way::kOnce);
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;
    ~FailingMemory();

    static int Requests();
    // From the nth on: then there is none for a record in the log either.
    static bool RefusesAll();

    // The library is at work while one lives; outside, nothing counts.
    class InLibrary {
    public:
        InLibrary();
        InLibrary(const InLibrary&) = delete;
        InLibrary& operator=(const InLibrary&) = delete;
        ~InLibrary();
    };
};

}  // namespace kmxf::test
