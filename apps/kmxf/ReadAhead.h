#pragma once

#include <string>
#include <thread>
#include <vector>

namespace kmxf::program {

// Has the system read files from their start on as long as this lives: what looks at them here and there and then
// copies them finds them in memory. Files that take more than a quarter of the memory are left alone.
class ReadAhead {
public:
    explicit ReadAhead(const std::vector<std::string>& paths);

private:
    std::jthread thread_;
};

}  // namespace kmxf::program
