#include "collaborators/SEI.h"

#include <algorithm>
#include <iterator>

namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t kStartCode[] = {0x00, 0x00, 0x01};
constexpr uint8_t kFirstSlice = 1, kLastSlice = 5, kNALSEI = 6, kNALParameterSet = 7;

// The user data begin with this UUID and these letters; packs follow.
constexpr uint8_t kUserData[] = {0xF7, 0x49, 0x3E, 0xB3, 0xD4, 0x00, 0x47, 0x96, 0x86, 0x86,
                                 0xC9, 0x70, 0x7B, 0x64, 0x37, 0x2A, 'U',  'M',  'I',  'D'};

size_t FindStartCode(Bytes bytes) {
    return static_cast<size_t>(std::search(bytes.begin(), bytes.end(), std::begin(kStartCode), std::end(kStartCode)) -
                               bytes.begin());
}

// The bytes without emulation prevention (7.3.1): 00 00 03 stands for 00 00.
std::vector<uint8_t> Unescaped(Bytes bytes) {
    std::vector<uint8_t> plain;
    plain.reserve(bytes.size());
    int zeros = 0;
    for (const uint8_t byte : bytes) {
        const bool escape = zeros >= 2 && byte == 0x03;
        if (!escape) plain.push_back(byte);
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return plain;
}

// The bytes in front of a start code, or of the end of the area: zeros belong to the start code (B.1.1).
Bytes UnitBefore(Bytes area, size_t end) {
    Bytes unit = area.first(end);
    while (end < area.size() && !unit.empty() && unit.back() == 0) unit = unit.first(unit.size() - 1);
    return unit;
}

// The RBSPs of the NAL units of one type that stand before the first slice. Bytes before the first start code are SEI,
// with or without the NAL unit header.
std::vector<std::vector<uint8_t>> UnitsBeforeSlices(Bytes area, uint8_t type) {
    std::vector<std::vector<uint8_t>> units;
    size_t end = FindStartCode(area);
    const Bytes lead = UnitBefore(area, end);
    if (type == kNALSEI && !lead.empty()) units.push_back(Unescaped(lead.subspan(lead[0] == kNALSEI ? 1 : 0)));
    while (area.size() - end > std::size(kStartCode)) {
        area = area.subspan(end + std::size(kStartCode));
        end = FindStartCode(area);
        const uint8_t unitType = area[0] & 0x1F;
        if (unitType >= kFirstSlice && unitType <= kLastSlice) break;
        if (unitType == type) units.push_back(Unescaped(UnitBefore(area, end).subspan(1)));
    }
    return units;
}

// A payload type or size (7.3.2.3.1): every FF counts 255, up to the first other byte.
std::optional<uint64_t> TakeExtended(Bytes& bytes) {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        value += bytes[i];
        if (bytes[i] == 0xFF) continue;
        bytes = bytes.subspan(i + 1);
        return value;
    }
    return {};
}

bool IsUserData(const SEIMessage& message) {
    return message.type == kSEIUserDataUnregistered && message.payload.size() >= std::size(kUserData) &&
           std::equal(std::begin(kUserData), std::end(kUserData), message.payload.begin());
}

// The packs of the user data, eight bytes each: FF behind the id and behind every second data byte keeps start codes
// from arising.
std::vector<FramePack> ReadPacks(Bytes area) {
    static constexpr size_t kPackSize = 8;
    std::vector<FramePack> packs;
    for (const SEIMessage& message : ReadSEIMessages(area)) {
        if (!IsUserData(message)) continue;
        for (Bytes rest = Bytes(message.payload).subspan(std::size(kUserData)); rest.size() >= kPackSize;
             rest = rest.subspan(kPackSize))
            if ((rest[1] & rest[4] & rest[7]) == 0xFF) packs.push_back({rest[0], {rest[2], rest[3], rest[5], rest[6]}});
    }
    return packs;
}

std::optional<PackData> FindPack(Bytes area, uint8_t id, int32_t number) {
    int32_t seen = 0;
    for (const FramePack& pack : ReadPacks(area))
        if (pack.id == id && ++seen == number) return pack.data;
    return {};
}

}  // namespace

std::vector<SEIMessage> ReadSEIMessages(Bytes area) {
    std::vector<SEIMessage> messages;
    for (const auto& unit : UnitsBeforeSlices(area, kNALSEI)) {
        Bytes rest = unit;
        // The trailing bits of the unit, 0x80, read as a type without a size and end the walk too.
        while (!rest.empty()) {
            const auto type = TakeExtended(rest);
            const auto size = type ? TakeExtended(rest) : std::nullopt;
            if (!size) break;
            const Bytes payload = rest.first(static_cast<size_t>(std::min<uint64_t>(*size, rest.size())));
            messages.push_back({*type, {payload.begin(), payload.end()}, payload.size() == *size});
            rest = rest.subspan(payload.size());
        }
    }
    return messages;
}

std::optional<PicTimingLayout> FindPicTimingLayout(Bytes area) {
    std::optional<PicTimingLayout> found;
    for (const auto& unit : UnitsBeforeSlices(area, kNALParameterSet))
        if (const auto layout = ReadPicTimingLayout(unit)) found = layout;
    return found;
}

std::optional<PackData> FindSEITimecode(Bytes area, int32_t number) {
    const auto data = FindPack(area, kPackTimecode, number);
    return data ? CheckedTimecode(*data) : std::nullopt;
}

std::optional<PackData> FindSEIUsersBit(Bytes area, int32_t number) { return FindPack(area, kPackUsersBit, number); }

std::optional<UMIDBytes> FindSEIUMID(Bytes area) {
    for (const SEIMessage& message : ReadSEIMessages(area))
        if (IsUserData(message))
            if (const auto umid = FindUMID(message.payload)) return umid;
    return FindUMID(ReadPacks(area));
}

}  // namespace kmxf
