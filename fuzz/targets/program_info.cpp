// The program's `info`, as text and as JSON.
#include "support/Command.h"
#include "support/MemoryFile.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const std::string path = MemoryFile(input);
    RunCommand(program::AddInfo, {"info", path});
    RunCommand(program::AddInfo, {"info", "--json", "--only", path});
}

}  // namespace kmxf::fuzz
