#pragma once

#include <string>

#include "kmxf/tools/SalvagePlan.h"
#include "tools/SalvageHeader.h"
#include "tools/SalvageInput.h"

// The part of a salvage plan that is about OP-1b files.
namespace kmxf {

// Whether a file is an OP-1b clip: by its header or, whatever became of that, by the body that begins where it should.
bool IsOp1bClip(const SalvageHeader& header, SalvageInput& source);

// What the file of a clip that is not closed is, and what is kept and lost of it.
void ScanOp1bFile(SalvagedFile& file, SalvageInput& source, const SalvageHeader& header, const SalvageChoice& choice,
                  const SalvageIndexer& indexer);

// Makes of `target` what the plan says: the file itself or a copy of it, or, where groups of frames move, a new file.
// Empty when it is done, otherwise what went wrong. `note` tells what the plan could not know.
std::string MendOp1bFile(const SalvagePlan& plan, const SalvagedFile& file, const std::string& target,
                         std::string& note);

}  // namespace kmxf
