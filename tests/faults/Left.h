#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "faults/Sweep.h"

namespace kmxf::test {

// Salvages what a recording that failed has left behind, and tells what is wrong with that: fewer frames than were
// confirmed, or a result that is not a valid clip. Bytes that may have holes have to be survived, and nothing more: no
// medium that keeps its word leaves any.
std::vector<std::string> SalvageWhatIsLeft(const Bytes& left, uint32_t framesConfirmed, bool mayHaveHoles);

}  // namespace kmxf::test
