#pragma once

#include "CountingStream.h"

namespace kmxf::program {

// Counts (--stats) what the library reads and writes in the files that it opens by name, as long as it lives.
class CountedLibrary {
public:
    CountedLibrary();
    CountedLibrary(const CountedLibrary&) = delete;
    CountedLibrary& operator=(const CountedLibrary&) = delete;
    ~CountedLibrary();

private:
    FactoryPointer files_;
};

}  // namespace kmxf::program
