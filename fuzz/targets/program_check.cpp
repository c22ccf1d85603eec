// The program's `check`, as text or as JSON.
#include "support/Command.h"
#include "support/MemoryFile.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const std::string path = MemoryFile(input);
    std::vector<std::string> arguments{"check", path};
    if (Choices(input).Flip()) arguments.push_back("--json");
    RunCommand(program::AddCheck, arguments);
}

}  // namespace kmxf::fuzz
