// The program's `dump`, as text or as JSON, and the map that it draws.
#include "Map.h"
#include "support/Command.h"
#include "support/MemoryFile.h"
#include "support/Walk.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    std::vector<std::string> arguments{"dump", MemoryFile(input)};
    if (Choices(input).Flip()) arguments.push_back("--json");
    RunCommand(program::AddDump, arguments);

    test::MemorySource source(input);
    CInspector inspector(source);
    program::FileMap map("clip.mxf", input.size());
    for (uint64_t number = 0; const auto packet = inspector.Next(); ++number) map.Add(*packet, number % 3);
    map.Html();
}

}  // namespace kmxf::fuzz
