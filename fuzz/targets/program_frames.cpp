// The program's `frames`, the first of them and some others.
#include "support/Command.h"
#include "support/MemoryFile.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const std::string path = MemoryFile(input);
    RunCommand(program::AddFrames, {"frames", "--count", "9", path});
    RunCommand(program::AddFrames, {"frames", "--json", "--from", "7", "--count", "3", path});
}

}  // namespace kmxf::fuzz
