#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kmxf/tools/SalvagePlan.h"
#include "tools/Op1bGroupBuilder.h"

namespace kmxf {

// What is in the body of an OP-1b clip that was cut off or damaged, and how it is to be: all groups of frames that can
// be told apart, mended where their packs, heads or tables are damaged, and the beginning of an unfinished last one.
struct Op1bBody {
    std::string failure;  // why it cannot be told
    int64_t framesFound = 0, framesKept = 0, framesDamaged = 0;
    std::vector<Op1bPiece> pieces;  // from the end of the header on
    // Some of them come to lie elsewhere than they are, or what is lost may be there for another who looks at it.
    bool moves = false;
    std::optional<uint64_t> unreadable;  // where the file could not be read first
    uint64_t end = 0;                    // of the body, in the new file
    uint64_t keptSize = 0, rebuiltSize = 0;
    std::vector<SalvageLoss> losses;
    std::vector<std::string> rebuilt;  // what is made anew, in words
    Op1bElement lastPicture;           // the last one kept, in the old file
};

Op1bBody ReadOp1bBody(const std::string& path, const Op1bFormat& format, const SalvageIndexer& indexer);

}  // namespace kmxf
