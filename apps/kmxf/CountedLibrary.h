#pragma once

#include <cstdint>
#include <functional>

#include "CountingStream.h"

namespace kmxf::program {

// Counts (--stats) what the library reads and writes in the files that it opens by name, as long as it lives. `wrote`
// is told the bytes of each write; reads and writes fail from the moment on in which `stopped` gives true.
class CountedLibrary {
public:
    struct Watcher {
        std::function<void(uint64_t bytes)> wrote;
        std::function<bool()> stopped;
    };
    explicit CountedLibrary(Watcher watcher);
    CountedLibrary(const CountedLibrary&) = delete;
    CountedLibrary& operator=(const CountedLibrary&) = delete;
    ~CountedLibrary();

private:
    FactoryPointer files_;
    Watcher watcher_;
};

}  // namespace kmxf::program
