// The program's `unwrap`: the essence of any file, whole or in part.
#include "support/Command.h"
#include "support/FileOnTmpfs.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const FileOnTmpfs file(input, "clip.mxf");
    Choices choices(input);
    std::vector<std::string> arguments{"unwrap", file.Path(), "-o", file.Folder() + "/essence"};
    if (choices.Flip()) arguments.push_back("--raw");
    if (choices.Flip()) arguments.insert(arguments.end(), {"--frames", "0-1"});
    RunCommand(program::AddUnwrap, arguments);
}

}  // namespace kmxf::fuzz
