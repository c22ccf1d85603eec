#include "support/Command.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace kmxf::fuzz {

void RunCommand(program::Run (*add)(CLI::App&), std::vector<std::string> arguments) {
    CLI::App app;
    const program::Run run = add(app);
    std::ranges::reverse(arguments);
    app.parse(arguments);
    try {
        Require(run() != program::ExitStatus::kInternal, "the program has no fault");
    } catch (const program::Failure& failure) {
        Require(failure.Status() != program::ExitStatus::kInternal, "the program has no fault");
    }
}

}  // namespace kmxf::fuzz
