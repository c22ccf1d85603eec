#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/structures/Inspect.h"

namespace kmxf {

// A packet of header metadata, decoded.
struct ClipSet : InspectedPacket {
    std::vector<InspectedItem> items;

    // Null when there is none.
    const InspectedItem* Item(std::string_view itemName) const { return FindItem(items, itemName); }
    uint64_t Number(std::string_view itemName) const;  // 0 when there is none, as in the others
    MXFRATIONALTag Rational(std::string_view itemName) const;
    MXFUMIDTag Umid(std::string_view itemName) const;
    MXFTIMESTAMPTag Timestamp(std::string_view itemName) const;
    std::string Text(std::string_view itemName) const;  // UTF-8, or single bytes as they are
    std::vector<MXFKEYTag> Keys(std::string_view itemName) const;
};

// Packets one behind the other.
class ClipSets {
public:
    ClipSets() = default;
    // `header` is the start of a file up to the end of its header metadata.
    explicit ClipSets(std::span<const uint8_t> header);

    // File offset where no packet follows that fits; what comes behind is not here.
    std::optional<uint64_t> Broken() const { return broken_; }

    std::vector<const ClipSet*> All(std::string_view name) const;
    // The first of that name, an empty one when there is none.
    const ClipSet& First(std::string_view name) const;
    // The first behind the first of another.
    const ClipSet& FirstBehind(std::string_view front, std::string_view name) const;
    std::vector<const ClipSet*> AllBehind(std::string_view front, std::string_view name) const;
    // By its InstanceUID, an empty one when there is none.
    const ClipSet& Find(const MXFKEYTag& uid) const;

private:
    std::vector<ClipSet> sets_;
    std::map<std::array<uint8_t, 16>, size_t> byUID_;  // the first of each InstanceUID
    std::optional<uint64_t> broken_;
};

}  // namespace kmxf
