#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "kmxf/tools/SalvagePlan.h"

// Entries of the balance sheet.
namespace kmxf {

// The block in front of AVC-Intra frames, when it is damaged and made anew.
inline constexpr const char* kParameterSets = "the parameter sets";

// Why bytes are lost.
inline constexpr const char* kWritten = "a frame that was being written";

// How a reason begins that is none of the file's content, but of its medium.
inline constexpr const char* kUnreadable = "cannot be read";
inline std::string CannotRead(uint64_t offset) {
    return std::string(kUnreadable) + " (offset " + std::to_string(offset) + ")";
}

inline void GiveUp(SalvagedFile& file, std::string reason) {
    file.action = SalvageAction::kGiveUp;
    file.reason = std::move(reason);
}

// For want of a format that the caller may know; an empty file has none.
inline void GiveUpUntold(SalvagedFile& file, std::string reason) {
    GiveUp(file, std::move(reason));
    file.wantsFormat = file.fileSize > 0;
}

inline void Lose(SalvagedFile& file, uint64_t offset, uint64_t size, const std::string& why) {
    if (size == 0) return;
    file.losses.push_back({offset, size, why});
    file.lostSize += size;
}

}  // namespace kmxf
