#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "support/Target.h"

namespace kmxf::fuzz {

// A command as the user gives it. Whatever it finds it ends, and with none of the statuses that mean a fault of ours.
inline void RunCommand(program::Run (*add)(CLI::App&), std::vector<std::string> arguments) {
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
