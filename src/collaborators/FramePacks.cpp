#include "collaborators/FramePacks.h"

#include "core/Labels.h"
#include "kmxf/collaborators/Timecode.h"

namespace kmxf {

namespace {

constexpr uint8_t kDropFrame = 0x40;  // in the frames byte

// A UMID begins with these bytes; its length byte tells an extended UMID from a basic one (SMPTE ST 330).
constexpr size_t kUMIDLengthByte = 12, kBasicSize = 32, kExtendedSize = 64;
constexpr uint8_t kExtendedLength = 0x33;

// Source, source control, recording date and time, user bits, captions (AAUX 0x5n, VAUX 0x6n), and no pack: these stand
// at fixed places, with other packs before and behind them.
bool HasKnownUse(uint8_t id) { return (id >= 0x50 && id < 0x70) || id == 0xFF; }

}  // namespace

std::optional<PackData> CheckedTimecode(const PackData& data) {
    return CTimecode().SetData(data.data()) == kStatusOk ? std::optional(data) : std::nullopt;
}

std::optional<PackData> PackTimecode(const std::array<uint32_t, 4>& parts, bool dropFrame) {
    static constexpr std::array<uint32_t, 4> kLimits = {30, 60, 60, 24};
    PackData data{};
    for (size_t i = 0; i < data.size(); ++i) {
        if (parts[i] >= kLimits[i]) return {};
        data[i] = static_cast<uint8_t>(parts[i] / 10 << 4 | parts[i] % 10);
    }
    if (dropFrame) data[0] |= kDropFrame;
    return data;
}

std::optional<UMIDBytes> FindUMID(std::span<const uint8_t> bytes) {
    for (auto at = bytes.begin();; ++at) {
        at = std::search(at, bytes.end(), std::begin(kUMIDLabel), std::end(kUMIDLabel));
        const std::span<const uint8_t> umid(at, bytes.end());
        if (umid.size() < kBasicSize) return {};
        const size_t size = umid[kUMIDLengthByte] == kExtendedLength ? kExtendedSize : kBasicSize;
        if (umid.size() < size) continue;
        UMIDBytes found{};
        std::copy_n(umid.begin(), size, found.begin());
        return found;
    }
}

std::optional<UMIDBytes> FindUMID(const std::vector<FramePack>& packs) {
    std::vector<uint8_t> whole, data;
    for (const FramePack& pack : packs) {
        whole.push_back(pack.id);
        whole.insert(whole.end(), pack.data.begin(), pack.data.end());
        if (!HasKnownUse(pack.id)) data.insert(data.end(), pack.data.begin(), pack.data.end());
    }
    const auto found = FindUMID(whole);
    return found ? found : FindUMID(data);
}

}  // namespace kmxf
