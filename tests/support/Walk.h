#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/structures/Inspect.h"

namespace kmxf::test {

// A file in memory for an inspector; the bytes must outlive it.
class MemorySource final : public IByteSource {
public:
    explicit MemorySource(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    uint64_t GetSize() override { return bytes_.size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        const auto from = bytes_.subspan(static_cast<size_t>(offset), bytes.size());
        std::copy(from.begin(), from.end(), bytes.begin());
        return bytes.size();
    }

private:
    std::span<const uint8_t> bytes_;
};

// A packet of a file with its contents: `pack` is set for partition packs, `items` for packs and sets.
struct WalkedPacket : InspectedPacket {
    std::optional<CPartition> pack{};
    std::vector<InspectedItem> items{};

    const InspectedItem* Item(std::string_view itemName) const { return FindItem(items, itemName); }
};

// All packets of a file in memory, stretches of damage included.
inline std::vector<WalkedPacket> Walk(std::span<const uint8_t> file) {
    MemorySource source(file);
    CInspector inspector(source);
    std::vector<WalkedPacket> walked;
    while (const auto partition = inspector.NextPartition()) {
        auto pack = partition->pack;
        for (const InspectedPacket& packet : partition->packets)
            walked.push_back({packet, std::exchange(pack, std::nullopt), inspector.Items(packet)});
    }
    return walked;
}

// Those of one name ("BodyPartitionPack", "Track").
inline std::vector<WalkedPacket> Named(const std::vector<WalkedPacket>& packets, std::string_view name) {
    std::vector<WalkedPacket> named;
    std::ranges::copy_if(packets, std::back_inserter(named), [&](const WalkedPacket& p) { return p.name == name; });
    return named;
}

}  // namespace kmxf::test
