#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kmxf/tools/SalvagePlan.h"
#include "tools/Op1bScan.h"

namespace kmxf {

// The format of an OP-1b clip, as its header tells it.
struct Op1bFormat {
    uint32_t videoStd = 0, compType = 0;
    uint8_t bytesPerSample = 2;
    uint32_t channels = 0;
    bool playerLayout = false;
};

// What is in the body of an OP-1b clip that was cut off: whole groups, and behind them the beginning of one, of which
// some frames can be kept when their index, ANC elements and sound are made anew.
struct Op1bBody {
    std::string failure;        // why it cannot be told
    int64_t wholeFrames = 0;    // of the groups that are whole
    uint64_t wholeEnd = 0;      // file offset behind them
    Op1bGroup last;             // the unfinished group; its pictures are those that are there
    uint32_t tailFrames = 0;    // frames of it that can be kept
    uint64_t tailKept = 0;      // bytes of its elements that are kept
    uint64_t tailEnd = 0;       // file offset behind the last picture kept
    std::vector<uint8_t> tail;  // what belongs behind it
    Op1bElement lastPicture;    // the last one kept
};

Op1bBody ReadOp1bBody(const std::string& path, const Op1bFormat& format, const SalvageIndexer& indexer);

}  // namespace kmxf
