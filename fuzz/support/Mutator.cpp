#include "support/Mutator.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "core/Labels.h"
#include "core/LocalTags.h"

// The engine's own change of bytes.
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size,
                                   size_t capacity);  // NOLINT(bugprone-reserved-identifier)

namespace kmxf::fuzz {

namespace {

constexpr size_t kKeySize = 16;
constexpr uint8_t kKeyStart[] = {0x06, 0x0E, 0x2B, 0x34};
constexpr uint8_t kStartCode[] = {0, 0, 1};
constexpr size_t kMostWindow = 512;  // bytes that the engine gets to see at a time

constexpr MXFKEYTag kKeys[] = {
    kPartitionPackKey,
    kPrimerPackKey,
    kRandomIndexPackKey,
    kFillKey,
    kIndexSegmentKey,
    kPrefaceKey,
    kIdentificationKey,
    kContentStorageKey,
    kEssenceContainerDataKey,
    kMaterialPackageKey,
    kFilePackageKey,
    kTrackKey,
    kSequenceKey,
    kSourceClipKey,
    kTimecodeComponentKey,
    kFillerComponentKey,
    kCDCIDescriptorKey,
    kMPEGDescriptorKey,
    kAES3DescriptorKey,
    kANCDataDescriptorKey,
    kMultipleDescriptorKey,
    kAVCSubDescriptorKey,
    kStaticTrackKey,
    kEventTrackKey,
    kDMSegmentKey,
    kClipFrameworkKey,
    kSceneFrameworkKey,
    kParticipantKey,
    kContactsListKey,
    kPersonKey,
    kProjectKey,
    kXMLFrameworkKey,
    kThumbnailFrameworkKey,
    kOpAtomLabel,
    kOpAtomLabel3,
    kOp1bLabel,
    kPictureDataDefinition,
    kSoundDataDefinition,
    kTimecodeDataDefinition,
    kDVContainerLabel,
    kAVCIntraContainerLabel,
    kAVCLongGOPContainerLabel,
    kAES3ClipContainerLabel,
    kDVElementKey,
    kAVCIntraElementKey,
    kAES3ElementKey,
    kAVCLongGOPElementKey,
    kANCElementKey,
    kPCMBlockElementKey,
    kDVPictureCoding,
    kAVCIntraPictureCoding,
};

// The fields of a partition pack from its value on: offset and width (SMPTE ST 377-1, 7.1).
struct Field {
    size_t offset, width;
};
constexpr Field kPackFields[] = {{0, 2},  {2, 2},  {4, 4},  {8, 8},  {16, 8},  {24, 8}, {32, 8},
                                 {40, 8}, {48, 4}, {52, 8}, {60, 4}, {64, 16}, {80, 4}, {84, 4}};

// The bytes that are changed, with room behind them.
class Mutation {
public:
    Mutation(std::span<uint8_t> room, size_t size, uint32_t seed) : room_(room), size_(size), random_(seed) {}

    size_t Run() {
        using Change = bool (Mutation::*)();
        static constexpr Change kChanges[] = {
            &Mutation::ChangeLength, &Mutation::ChangeLength, &Mutation::ChangeKey,   &Mutation::ChangePackField,
            &Mutation::ChangeItem,   &Mutation::ChangeItem,   &Mutation::ChangeItem,  &Mutation::ChangeNumber,
            &Mutation::MovePacket,   &Mutation::MovePacket,   &Mutation::MoveNalUnit, &Mutation::Cut,
        };
        const bool changed = size_ > 0 && Below(3) != 0 && (this->*kChanges[Below(std::size(kChanges))])();
        return changed ? size_ : ChangeBytes();
    }

private:
    struct Packet {
        size_t offset = 0, value = 0, end = 0;  // the end lies in the file
        size_t Length() const { return end - value; }
    };

    size_t Below(size_t count) { return count == 0 ? 0 : static_cast<size_t>(random_()) % count; }
    uint8_t* At(size_t offset) { return room_.data() + offset; }

    uint64_t Number(size_t at, size_t width) const {
        uint64_t number = 0;
        for (size_t i = 0; i < width && at + i < size_; ++i) number = number << 8 | room_[at + i];
        return number;
    }
    void Put(size_t at, size_t width, uint64_t number) {
        for (size_t i = width; i-- > 0; number >>= 8) {
            if (at + i < size_) room_[at + i] = static_cast<uint8_t>(number);
        }
    }
    // A number that may be on an edge, or mean a place in this file.
    uint64_t Interesting(uint64_t old) {
        switch (Below(12)) {
            case 0:
                return 0;
            case 1:
                return 1;
            case 2:
                return ~uint64_t{0};
            case 3:
                return ~uint64_t{0} >> 1;
            case 4:
                return uint64_t{1} << Below(64);
            case 5:
                return (uint64_t{1} << Below(64)) - 1;
            case 6:
                return size_ - Below(32);
            case 7:
                return Below(size_);
            case 8:
                return FindPacket().offset;
            case 9:
                return old * 2;
            case 10:
                return old - 1 - Below(20);
            default:
                return old + 1 + Below(20);
        }
    }

    // Replaces bytes by as many as `count`, of which nothing is said. False when there is no room.
    bool Replace(size_t at, size_t old, size_t count) {
        if (at > size_ || old > size_ - at || size_ - old + count > room_.size()) return false;
        std::memmove(At(at + count), At(at + old), size_ - at - old);
        size_ = size_ - old + count;
        return true;
    }

    // Where these bytes are next from a place on; the size when they are nowhere.
    size_t FindFrom(std::span<const uint8_t> what, size_t from) const {
        const void* found = memmem(room_.data() + from, size_ - from, what.data(), what.size());
        return found == nullptr ? size_ : static_cast<size_t>(static_cast<const uint8_t*>(found) - room_.data());
    }
    size_t FindAnywhere(std::span<const uint8_t> what) {
        const size_t found = FindFrom(what, Below(size_));
        return found < size_ ? found : FindFrom(what, 0);
    }

    // A packet at a place; one without length at the end when there is none.
    Packet PacketAt(size_t at) const {
        if (size_ < kKeySize + 1 || at > size_ - kKeySize - 1) return {size_, size_, size_};
        Packet packet{at, at + kKeySize + 1, size_};
        uint64_t length = room_[at + kKeySize];
        if (length >= 0x80) {
            const size_t count = length & 0x7F;
            length = Number(packet.value, count);
            packet.value = std::min(packet.value + count, size_);
        }
        packet.end = packet.value + static_cast<size_t>(std::min<uint64_t>(length, size_ - packet.value));
        return packet;
    }
    Packet FindPacket() { return PacketAt(FindAnywhere(kKeyStart)); }
    // The last bytes of the key of a partition pack tell its kind and status.
    Packet FindPacket(const MXFKEYTag& key) {
        return PacketAt(FindAnywhere({key.bytes, key == kPartitionPackKey ? size_t{13} : size_t{14}}));
    }
    bool IsOfKind(const Packet& packet, const MXFKEYTag& key) const {
        return packet.value < size_ && std::memcmp(room_.data() + packet.offset, key.bytes, 14) == 0;
    }
    // Most of the bytes of a file are essence and fill: there are few packets in comparison, and all are as likely.
    Packet FindSet() {
        std::array<size_t, 256> starts{};
        size_t count = 0;
        for (size_t at = FindFrom(kKeyStart, 0); at + kKeySize < size_ && count < starts.size();
             at = FindFrom(kKeyStart, at + 4)) {
            if (room_[at + 4] == 2 && room_[at + 5] == 0x53) starts[count++] = at;
        }
        return count == 0 ? Packet{size_, size_, size_} : PacketAt(starts[Below(count)]);
    }

    // Lets the length of the packet be what its bytes are, or takes from the next fill what was added to the packet, so
    // that what stands behind stays where it is.
    void Mend(const Packet& packet, size_t before) {
        const auto added = static_cast<uint64_t>(size_) - before;
        if (Below(2) == 0) {
            const size_t count = packet.value - packet.offset - kKeySize - 1;
            Put(packet.value - count, count, packet.Length() + added);
        }
        if (Below(2) == 0) {
            const Packet fill = PacketAt(FindFrom({kFillKey.bytes, kKeySize}, packet.value));
            const size_t count = fill.value - std::min(fill.value, fill.offset + kKeySize + 1);
            const uint64_t length = fill.Length() - added;
            if (fill.value >= size_ || count == 0 || length > room_.size()) return;
            if (Replace(fill.value, fill.Length(), static_cast<size_t>(length))) {
                std::fill_n(At(fill.value), static_cast<size_t>(length), uint8_t{0});
                Put(fill.value - count, count, length);
            }
        }
    }

    bool ChangeLength() {
        const Packet packet = FindPacket();
        if (packet.value >= size_) return false;
        const size_t at = packet.offset + kKeySize;
        const size_t old = packet.value - at;
        uint64_t length = Interesting(packet.Length());
        if (Below(3) == 0) length = packet.Length();  // said otherwise
        if (Below(2) == 0) {
            Put(at + 1, old - 1, length);
            if (old == 1) room_[at] = static_cast<uint8_t>(length & 0x7F);
            return true;
        }
        static constexpr uint8_t kForms[] = {0, 1, 2, 3, 4, 7, 8, 9, 16, 0x7F};
        const uint8_t width = kForms[Below(std::size(kForms))];
        if (!Replace(at, old, size_t{width} + 1)) return false;
        room_[at] = width == 0 && Below(2) == 0 ? static_cast<uint8_t>(length & 0x7F) : 0x80 | width;
        Put(at + 1, width, length);
        return true;
    }

    bool ChangeKey() {
        const Packet packet = Below(2) == 0 ? FindPacket() : FindSet();
        if (packet.value >= size_) return false;
        if (Below(2) == 0) {
            std::memcpy(At(packet.offset), kKeys[Below(std::size(kKeys))].bytes, kKeySize);
        } else {
            const size_t at = packet.offset + 4 + Below(kKeySize - 4);
            room_[at] = static_cast<uint8_t>(Below(3) == 0 ? random_() : room_[at] + 1 - 2 * Below(2));
        }
        return true;
    }

    bool ChangePackField() {
        const Packet pack = FindPacket(Below(4) == 0 ? kRandomIndexPackKey : kPartitionPackKey);
        if (pack.Length() < 16) return false;
        if (IsOfKind(pack, kPrimerPackKey)) return ChangePrimer(pack);
        if (IsOfKind(pack, kRandomIndexPackKey)) {
            const size_t entry = pack.value + 12 * Below(pack.Length() / 12);
            const Field field = Below(2) == 0 ? Field{0, 4} : Field{4, 8};
            if (Below(4) == 0) {
                Put(pack.end - 4, 4, Interesting(Number(pack.end - 4, 4)));  // the overall length
            } else {
                Put(entry + field.offset, field.width, Interesting(Number(entry + field.offset, field.width)));
            }
            return true;
        }
        const Field field = kPackFields[Below(std::size(kPackFields))];
        if (field.width == kKeySize) {
            if (pack.value + field.offset + kKeySize > size_) return false;
            std::memcpy(At(pack.value + field.offset), kKeys[Below(std::size(kKeys))].bytes, kKeySize);
            return true;
        }
        Put(pack.value + field.offset, field.width, Interesting(Number(pack.value + field.offset, field.width)));
        return true;
    }

    // An entry of a primer, or an item of a set: its tag, its length, its value, the whole of it.
    bool ChangeItem() {
        const Packet packet = Below(5) == 0   ? FindPacket(kPrimerPackKey)
                              : Below(4) == 0 ? FindPacket(kIndexSegmentKey)
                                              : FindSet();
        if (packet.Length() < 8) return false;
        if (IsOfKind(packet, kPrimerPackKey)) return ChangePrimer(packet);
        std::vector<size_t> items;
        for (size_t at = packet.value; at + 4 <= packet.end; at += 4 + static_cast<size_t>(Number(at + 2, 2)))
            items.push_back(at);
        const size_t item = items[Below(items.size())];
        const size_t length = std::min(static_cast<size_t>(Number(item + 2, 2)), packet.end - item - 4);
        const size_t value = item + 4, before = size_;
        switch (Below(7)) {
            case 0:
                Put(item, 2,
                    Below(2) == 0 ? kPrimerRows[Below(std::size(kPrimerRows))].tag : Interesting(Number(item, 2)));
                break;
            case 1:
                Put(item + 2, 2, Interesting(length));
                break;
            case 2:  // longer or shorter
                if (Below(2) == 0 && length > 0) {
                    const size_t less = 1 + Below(length);
                    Put(item + 2, 2, length - less);
                    if (!Replace(value, less, 0)) return false;
                } else {
                    const size_t more = 1 + Below(32);
                    Put(item + 2, 2, length + more);
                    if (!Replace(value, 0, more)) return false;
                    std::fill_n(At(value), more, static_cast<uint8_t>(random_()));
                }
                Mend(packet, before);
                break;
            case 3:  // away
                if (!Replace(item, 4 + length, 0)) return false;
                Mend(packet, before);
                break;
            case 4: {  // twice, or another one's in its place
                const std::vector<uint8_t> copy(At(item), At(value + length));
                const size_t to = items[Below(items.size())];
                if (!Replace(to, 0, copy.size())) return false;
                std::ranges::copy(copy, At(to));
                Mend(packet, before);
                break;
            }
            case 5: {  // a batch or array: its count and the size of its elements
                const size_t at = value + 4 * Below(2);
                Put(at, 4, Interesting(Number(at, 4)));
                break;
            }
            default: {
                const size_t width = std::min<size_t>(length, size_t{1} << Below(4));
                const size_t at = value + Below(length - width + 1);
                Put(at, width, Interesting(Number(at, width)));
            }
        }
        return true;
    }

    bool ChangePrimer(const Packet& primer) {
        const size_t count = (primer.Length() - 8) / 18;
        const auto entry = [&] { return primer.value + 8 + 18 * Below(count); };
        switch (Below(4)) {
            case 0:
                Put(primer.value + 4 * Below(2), 4, Interesting(Number(primer.value, 4)));
                break;
            case 1:
                Put(entry(), 2,
                    Below(2) == 0 ? kPrimerRows[Below(std::size(kPrimerRows))].tag : Interesting(Number(entry(), 2)));
                break;
            case 2:
                Put(entry() + 2 + Below(16), 1, random_());
                break;
            default: {
                const size_t a = entry(), b = entry();
                if (std::max(a, b) + 18 > size_) return false;
                std::swap_ranges(At(a), At(a + 2), At(b));
            }
        }
        return true;
    }

    // A number of whatever meaning, in a packet.
    bool ChangeNumber() {
        const Packet packet = FindPacket();
        if (packet.Length() == 0 || IsOfKind(packet, kFillKey)) return false;
        const size_t width = size_t{1} << Below(4);
        const size_t at = packet.value + Below(std::min<size_t>(packet.Length(), 4096));
        Put(at, width, Interesting(Number(at, width)));
        return true;
    }

    // Away, twice, or in front of another.
    bool MoveBytes(size_t from, size_t end, size_t to) {
        if (from >= end || end > size_) return false;
        const std::vector<uint8_t> bytes(At(from), At(end));
        const size_t kind = Below(3);
        if (kind != 1) Replace(from, bytes.size(), 0);
        if (kind == 0) return true;
        to = std::min(kind != 1 && to > from ? to - std::min(to - from, bytes.size()) : to, size_);
        if (!Replace(to, 0, bytes.size())) return false;
        std::ranges::copy(bytes, At(to));
        return true;
    }
    bool MovePacket() {
        const Packet packet = Below(2) == 0 ? FindPacket() : FindSet();
        return MoveBytes(packet.offset, packet.end, FindPacket().offset);
    }
    bool MoveNalUnit() {
        const size_t from = FindAnywhere(kStartCode);
        if (from >= size_ || FindFrom(kKeyStart, 0) < size_) return false;
        return MoveBytes(from, FindFrom(kStartCode, from + 1), FindAnywhere(kStartCode));
    }

    // The end of the file is lost, mostly near the bound of a packet.
    bool Cut() {
        const Packet packet = FindPacket();
        const size_t at = Below(3) == 0 ? Below(size_) : Below(2) == 0 ? packet.offset : packet.value;
        size_ = std::min(size_, at + Below(40));
        return true;
    }

    // The engine sees a part of the file that is not fill.
    size_t ChangeBytes() {
        size_t from = Below(4) == 0 ? size_ - std::min<size_t>(size_, Below(64)) : Below(size_);
        if (Below(2) == 0 && size_ > 0) {
            const Packet packet = FindPacket();
            if (packet.offset < size_) from = packet.offset + Below(std::min<size_t>(packet.end - packet.offset, 1024));
        }
        const size_t count = std::min(size_ - from, kMostWindow);
        std::vector<uint8_t> window(kMostWindow + 64);
        std::copy_n(At(from), count, window.begin());
        const size_t most = std::min(window.size(), count + room_.size() - size_);
        const size_t now = most == 0 ? count : LLVMFuzzerMutate(window.data(), count, most);
        if (Replace(from, count, now)) std::copy_n(window.begin(), now, At(from));
        return size_;
    }

    std::span<uint8_t> room_;
    size_t size_;
    std::minstd_rand random_;
};

}  // namespace

size_t Mutate(std::span<uint8_t> room, size_t size, uint32_t seed) { return Mutation(room, size, seed).Run(); }

}  // namespace kmxf::fuzz
