#pragma once

#include <string>
#include <vector>

#include "Commands.h"
#include "support/Target.h"

namespace kmxf::fuzz {

// A command as the user gives it. Whatever it finds it ends, and with none of the statuses that mean a fault of ours.
void RunCommand(program::Run (*add)(CLI::App&), std::vector<std::string> arguments);

}  // namespace kmxf::fuzz
