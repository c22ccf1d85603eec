#pragma once

#include <string>
#include <utility>

#include "kmxf/tools/SalvagePlan.h"

// Entries of the balance sheet.
namespace kmxf {

inline void GiveUp(SalvagedFile& file, std::string reason) {
    file.action = SalvageAction::kGiveUp;
    file.reason = std::move(reason);
}

inline void Lose(SalvagedFile& file, uint64_t offset, uint64_t size, const std::string& why) {
    if (size == 0) return;
    file.losses.push_back({offset, size, why});
    file.lostSize += size;
}

}  // namespace kmxf
