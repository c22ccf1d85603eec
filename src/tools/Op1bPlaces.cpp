#include "tools/Op1bPlaces.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <utility>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"

namespace kmxf {

namespace {

constexpr uint64_t kMostPack = 1024;
constexpr uint64_t kSector = 4096;  // what is lost when a byte of it cannot be read

// Where `wanted` says yes first, of the places from `from` on at which a key of SMPTE begins; nothing in front of
// `limit`, which is in the file: `limit`.
uint64_t FindKey(SalvageInput& source, uint64_t from, uint64_t limit, const std::function<bool(uint64_t)>& wanted) {
    static constexpr uint8_t kBegin[] = {0x06, 0x0E, 0x2B, 0x34};
    while (from < limit) {
        const auto least = static_cast<size_t>(std::min<uint64_t>(std::size(kBegin), limit - from));
        const auto window = source.Window(from, least);
        const auto bytes = window.first(static_cast<size_t>(std::min<uint64_t>(window.size(), limit - from)));
        // What is found is looked at with reads of its own, which leave the window as it is.
        for (size_t at = 0; bytes.size() - at >= std::size(kBegin); ++at) {
            const auto rest = bytes.subspan(at, bytes.size() - at - (std::size(kBegin) - 1));
            const void* const found = std::memchr(rest.data(), kBegin[0], rest.size());
            if (found == nullptr) break;
            at = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes.data());
            if (std::memcmp(found, kBegin, std::size(kBegin)) == 0 && wanted(from + at)) return from + at;
        }
        // The last ones may be the first ones of a key.
        from = bytes.size() < least ? (from / kSector + 1) * kSector : from + bytes.size() - (least - 1);
    }
    return limit;
}

}  // namespace

std::optional<CPartition> BodyPackAt(SalvageInput& source, uint64_t place) {
    const auto key = source.Copy(place, kPackKindByte + 1);
    if (key.size() <= kPackKindByte || key[kPackKindByte] != kBodyPack || !BeginsLikePack(key)) return std::nullopt;
    const auto bytes = source.Copy(place, kMostPack);
    CPartition pack;
    const bool good = pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) == kStatusOk &&
                      std::cmp_equal(pack.GetThisPartition(), place);
    return good ? std::optional(std::move(pack)) : std::nullopt;
}

std::optional<Op1bElement> PictureAt(SalvageInput& source, uint64_t place, uint64_t limit) {
    const auto head = ReadKLVHead(source.Copy(place, kMostKLVHead));
    if (!head || head->key != kAVCLongGOPElementKey || head->length % 4 != 0 || head->length > kMostPicture)
        return std::nullopt;
    const uint64_t offset = place + head->size;
    if (offset > limit || head->length > limit - offset) return std::nullopt;
    return Op1bElement{place, offset, head->length};
}

std::optional<CIndexCommon> SegmentBehind(SalvageInput& source, const CPartition& pack) {
    const auto place = static_cast<uint64_t>(pack.GetThisPartition());
    const auto count = std::clamp<int64_t>(pack.GetIndexByteCount(), 0, kMostSegment);
    const auto bytes = source.Copy(place + pack.GetLength(), static_cast<uint64_t>(count));
    CIndexCommon segment(0, 0, 0, 0);
    if (segment.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) return std::nullopt;
    return segment;
}

Op1bPack FindBodyPack(SalvageInput& source, uint64_t from, uint64_t limit,
                      const std::function<bool(const CPartition&)>& wanted) {
    limit = std::min(limit, source.GetSize());
    std::optional<CPartition> pack;
    const uint64_t place = FindKey(source, from, limit, [&](uint64_t at) {
        pack = BodyPackAt(source, at);
        return pack && wanted(*pack);
    });
    return {place, place < limit ? std::move(pack) : std::nullopt};
}

uint64_t FindGroup(SalvageInput& source, uint64_t from) {
    const auto begins = [&](const CPartition& pack) {
        if (pack.GetBodySID() != kPictureSID) return false;
        const uint64_t place = static_cast<uint64_t>(pack.GetThisPartition()) + pack.GetLength();
        const auto head = ReadKLVHead(source.Copy(place, kMostKLVHead));
        return head && head->key == kAVCLongGOPElementKey &&
               (head->length == 0 || place + head->size < source.GetSize());
    };
    return FindBodyPack(source, from, source.GetSize(), begins).place;
}

Op1bPictures FindPictures(SalvageInput& source, uint64_t from, uint64_t limit, bool upToLimit, size_t most) {
    Op1bPictures found;
    uint64_t at = from;
    while (at < limit && found.pictures.size() <= most) {
        if (const auto picture = PictureAt(source, at, limit)) {
            found.pictures.push_back(*picture);
            at = picture->offset + picture->size;
            continue;
        }
        if (!upToLimit && BodyPackAt(source, at)) break;
        uint64_t next = FindKey(source, at + kKLVHeadSize, limit, [&](uint64_t place) {
            return PictureAt(source, place, limit) || BodyPackAt(source, place);
        });
        if (next == limit && !upToLimit) break;
        if (next - at < kKLVHeadSize || next - at > kMostPicture) break;
        found.guessed.push_back(found.pictures.size());
        found.pictures.push_back({at, at + kKLVHeadSize, next - at - kKLVHeadSize, false});
        at = next;
    }
    found.end = at;
    return found;
}

bool Op1bPictures::Divide(size_t count) {
    if (pictures.size() == count) return true;
    if (pictures.size() > count || guessed.empty()) return false;
    const size_t parts = count - pictures.size() + 1;
    const auto sizeOf = [&](size_t number) { return pictures[number].size + kKLVHeadSize; };
    const size_t largest = *std::ranges::max_element(guessed, {}, sizeOf);
    const uint64_t whole = sizeOf(largest), part = whole / parts / 4 * 4;
    if (part < kKLVHeadSize) return false;
    std::vector<Op1bElement> divided;
    for (size_t i = 0; i < parts; ++i) {
        const uint64_t start = pictures[largest].start + i * part;
        const uint64_t size = i + 1 == parts ? whole - i * part : part;
        divided.push_back({start, start + kKLVHeadSize, size - kKLVHeadSize, false});
    }
    const auto place = pictures.erase(pictures.begin() + static_cast<std::ptrdiff_t>(largest));
    pictures.insert(place, divided.begin(), divided.end());
    return true;
}

std::optional<Op1bSoundFormat> FindOp1bSound(SalvageInput& source) {
    Op1bSoundFormat sound;
    uint32_t groups = 0, packs = 0;
    const auto look = [&](const CPartition& pack) {
        ++packs;
        if (pack.GetBodySID() == kPictureSID && ++groups > 1) return true;
        if (pack.GetBodySID() >= kFirstSoundSID)
            sound.channels = std::max(sound.channels, std::min(pack.GetBodySID() - kFirstSoundSID + 1, 255u));
        if (pack.GetIndexSID() >= kFirstSoundIndexSID) {
            if (const auto segment = SegmentBehind(source, pack))
                sound.bytesPerSample = static_cast<uint8_t>(segment->GetEditUnitByteCount());
        }
        return false;
    };
    FindBodyPack(source, kOp1bHeaderSize, kOp1bHeaderSize + kFirstGroup, look);
    return packs == 0 ? std::nullopt : std::optional(sound);
}

std::vector<uint8_t> FirstOp1bPictures(SalvageInput& source, uint64_t most) {
    const uint64_t limit = source.GetSize();
    uint64_t at = FindKey(source, kOp1bHeaderSize, std::min(limit, kOp1bHeaderSize + most),
                          [&](uint64_t place) { return PictureAt(source, place, limit).has_value(); });
    std::vector<uint8_t> pictures;
    while (pictures.size() < most) {
        const auto picture = PictureAt(source, at, limit);
        if (!picture) break;
        const auto bytes = source.Copy(picture->offset, std::min<uint64_t>(picture->size, most - pictures.size()));
        pictures.insert(pictures.end(), bytes.begin(), bytes.end());
        at = picture->offset + picture->size;
    }
    return pictures;
}

}  // namespace kmxf
