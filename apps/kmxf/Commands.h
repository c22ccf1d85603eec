#pragma once

#include <functional>

#include "Program.h"

namespace CLI {
class App;
}

// Each command adds itself to the program; what it returns runs it when the user named it.
namespace kmxf::program {

using Run = std::function<ExitStatus()>;

Run AddWrap(CLI::App& app);
Run AddUnwrap(CLI::App& app);
Run AddInfo(CLI::App& app);
Run AddFrames(CLI::App& app);
Run AddDump(CLI::App& app);
Run AddCheck(CLI::App& app);
Run AddEdit(CLI::App& app);
Run AddSalvage(CLI::App& app);

}  // namespace kmxf::program
