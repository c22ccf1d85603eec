#include "kmxf/structures/Inspect.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "core/KLVPacket.h"
#include "core/LocalTags.h"
#include "kmxf/core/Status.h"
#include "structures/InspectItems.h"
#include "structures/InspectKeys.h"
#include "structures/InspectWindow.h"

namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kMiB = size_t{1} << 20;

// What every KLV key begins with, and the classes of keys that follow (SMPTE ST 336); 4 and up are no keys of packets.
constexpr uint8_t kULStart[] = {0x06, 0x0E, 0x2B, 0x34};
constexpr size_t kClassByte = sizeof kULStart;
constexpr uint8_t kItemClass = 1, kLastKeyClass = 3;

constexpr size_t kLengthByte = sizeof(MXFKEYTag);
constexpr uint8_t kIndefiniteLength = 0x80;
// A head whose length has up to 8 bytes behind the first; one with all that the first byte can announce
constexpr size_t kUsualHead = kMostKLVHead, kMostHead = 144;

// Longer than any value there is: 16 TiB.
constexpr uint64_t kMostLength = uint64_t{1} << 44;
constexpr uint64_t kMostRunIn = 65536;
// How far a value is searched for the end that its length does not tell.
constexpr uint64_t kDoubt = kMiB;
// The bytes that are read for it at once, more from step to step: where every length is wrong the next key is close,
// and is found many times.
constexpr size_t kFirstSearchStep = 1024, kMostSearchStep = kMiB / 4;
// What a footer and its index take at the end of a file.
constexpr uint64_t kTail = kMiB / 16;

// By kind: its word, and how much of a value is decoded.
struct KindRow {
    PacketKind kind;
    std::string_view name;
    size_t decoded;
};
constexpr KindRow kKinds[] = {
    {PacketKind::kPartition, "partition", kMiB},
    {PacketKind::kPrimer, "primer", kMiB},
    {PacketKind::kSet, "set", kMiB},
    {PacketKind::kIndexSegment, "index segment", kMiB},
    {PacketKind::kRandomIndex, "random index", 4 * kMiB},
    {PacketKind::kFill, "fill", 0},
    {PacketKind::kEssence, "essence", 0},
    {PacketKind::kDark, "dark", kMiB / 16},
    {PacketKind::kRunIn, "run-in", 0},
    {PacketKind::kDamage, "damage", 0},
};
const KindRow& RowOf(PacketKind kind) { return *std::ranges::find(kKinds, kind, &KindRow::kind); }

// The head at the start of `data`, if it can be one.
std::optional<KLVHead> SaneHead(Bytes data) {
    const auto head = ReadKLVHead(data);
    if (!head || !std::equal(std::begin(kULStart), std::end(kULStart), data.begin())) return std::nullopt;
    const uint8_t keyClass = data[kClassByte];
    if (keyClass < kItemClass || keyClass > kLastKeyClass || data[kLengthByte] == kIndefiniteLength)
        return std::nullopt;
    // More than 8 bytes of length begin with zeros.
    const Bytes length = data.subspan(kLengthByte + 1, head->size - kLengthByte - 1);
    const size_t beyond = length.size() > sizeof head->length ? length.size() - sizeof head->length : 0;
    if (std::ranges::any_of(length.first(beyond), [](uint8_t byte) { return byte != 0; })) return std::nullopt;
    return head->length <= kMostLength ? head : std::nullopt;
}

}  // namespace

std::string_view KindName(PacketKind kind) { return RowOf(kind).name; }

std::string_view KeyName(const MXFKEYTag& key) {
    if (const PacketKeyRow* row = FindPacketKey(key); row != nullptr) return row->name;
    const auto* label = std::ranges::find_if(kLabelRows, [&](const LabelRow& r) { return SameKey(r.label, key); });
    return label == std::end(kLabelRows) ? "" : label->name;
}

struct CInspector::State {
    explicit State(IByteSource& source) : window(source) {}

    std::optional<KLVHead> HeadAt(uint64_t offset);
    bool KeyOrEndAt(uint64_t offset) { return offset == window.Size() || HeadAt(offset).has_value(); }
    bool IsFound(Bytes data, uint64_t offset);
    std::optional<uint64_t> Search(uint64_t from, uint64_t to);
    InspectedPacket PacketAt(uint64_t offset, const KLVHead& head);
    uint64_t EndOfUnfinished(uint64_t valueOffset);
    std::vector<uint8_t> Value(const InspectedPacket& packet, size_t most);
    std::optional<CPartition> Pack(const InspectedPacket& packet);
    InspectedPacket StretchAt(uint64_t offset);
    InspectedPacket Step();
    const PrimerLabels* Primer(const std::optional<uint64_t>& offset);

    InspectWindow window;
    uint64_t position = 0;
    std::optional<InspectedPacket> pending;  // the pack at which NextPartition stopped
    uint32_t partition = 0;
    std::optional<InspectedPacket> firstPack;
    uint64_t runIn = 0;  // what offsets in packs do not count
    std::optional<uint64_t> primer;
    std::optional<std::pair<uint64_t, PrimerLabels>> loadedPrimer;
};

std::optional<KLVHead> CInspector::State::HeadAt(uint64_t offset) {
    Bytes data = window.Peek(offset, kUsualHead);
    if (data.size() == kUsualHead && data[kLengthByte] > kIndefiniteLength + sizeof(KLVHead::length))
        data = window.Peek(offset, kMostHead);
    return SaneHead(data);
}

// Is this a packet to go on with behind damage? A key with a name is; one of the class of sets, packs or essence, when
// its packet leads to a further key or to the end. Others look too much like the labels within sets.
bool CInspector::State::IsFound(Bytes data, uint64_t offset) {
    const auto head = SaneHead(data);
    if (!head) return false;
    const PacketKeyRow* row = FindPacketKey(head->key);
    if (row != nullptr && *row->name != '\0') return true;
    if (row == nullptr && head->key.bytes[kClassByte] == kItemClass) return false;
    return KeyOrEndAt(offset + head->size + head->length);
}

// The first packet to begin within the range.
std::optional<uint64_t> CInspector::State::Search(uint64_t from, uint64_t to) {
    const std::boyer_moore_horspool_searcher searcher(std::begin(kULStart), std::end(kULStart));
    for (size_t step = kFirstSearchStep; from < to; step = std::min(2 * step, kMostSearchStep)) {
        const uint64_t most = std::min<uint64_t>(step, to - from + kMostHead);
        const std::vector<uint8_t> data = window.Copy(from, static_cast<size_t>(most));
        // Only behind the last stretch is nothing that a head could reach into.
        const bool last = data.size() < step;
        uint64_t next = from + data.size() - std::min(data.size(), sizeof kULStart - 1);
        for (auto at = data.begin();; ++at) {
            at = std::search(at, data.end(), searcher);
            if (at == data.end()) break;
            const uint64_t offset = from + static_cast<uint64_t>(at - data.begin());
            if (offset >= to) return std::nullopt;
            const Bytes rest(at, data.end());
            if (!last && rest.size() < kMostHead) {
                next = offset;
                break;
            }
            if (IsFound(rest, offset)) return offset;
        }
        if (last) break;
        from = next;
    }
    return std::nullopt;
}

InspectedPacket CInspector::State::PacketAt(uint64_t offset, const KLVHead& head) {
    const PacketKeyRow* row = FindPacketKey(head.key);
    InspectedPacket packet{.offset = offset,
                           .key = head.key,
                           .headSize = head.size,
                           .length = head.length,
                           .kind = row == nullptr ? PacketKind::kDark : row->kind,
                           .name = row == nullptr ? "" : row->name};
    const uint64_t value = packet.ValueOffset();
    uint64_t end = value + packet.length;
    if (!KeyOrEndAt(end)) {
        const bool unfinished = packet.kind == PacketKind::kEssence && packet.length == 0;
        const auto next =
            Search(value, std::min(window.Size(), value + (unfinished ? kDoubt : std::min(packet.length, kDoubt))));
        end = next ? *next : unfinished ? EndOfUnfinished(value) : end;
    }
    end = std::max(value, std::min(end, window.Size()));
    packet.available = end - value;
    packet.whole = packet.available == packet.length;
    return packet;
}

// Where the value of an essence element ends whose length was never written: at the footer, which no pack may name yet.
uint64_t CInspector::State::EndOfUnfinished(uint64_t valueOffset) {
    const auto pack = firstPack ? Pack(*firstPack) : std::nullopt;
    const uint64_t footer = pack ? runIn + static_cast<uint64_t>(pack->GetFooterPartition()) : 0;
    const auto head = footer > valueOffset ? HeadAt(footer) : std::nullopt;
    const PacketKeyRow* row = head ? FindPacketKey(head->key) : nullptr;
    if (row != nullptr && row->kind == PacketKind::kPartition) return footer;
    const uint64_t size = window.Size();
    return Search(std::max(valueOffset, size - std::min(size, kTail)), size).value_or(size);
}

InspectedPacket CInspector::State::StretchAt(uint64_t offset) {
    const auto next = Search(offset + 1, window.Size());
    const auto head = offset == 0 && next && *next <= kMostRunIn ? HeadAt(*next) : std::nullopt;
    const bool isRunIn = head && SameKey(head->key, kHeaderPartitionKey, kPartitionKeySize);
    const uint64_t length = next.value_or(std::max(offset, window.Size())) - offset;
    return {.offset = offset,
            .length = length,
            .available = length,
            .kind = isRunIn ? PacketKind::kRunIn : PacketKind::kDamage};
}

InspectedPacket CInspector::State::Step() {
    const auto head = HeadAt(position);
    InspectedPacket packet = head ? PacketAt(position, *head) : StretchAt(position);
    position = packet.End();
    if (packet.kind == PacketKind::kPartition) {
        ++partition;
        primer.reset();
        if (!firstPack) firstPack = packet;
    }
    if (packet.kind == PacketKind::kPrimer) primer = packet.offset;
    if (packet.kind == PacketKind::kRunIn) runIn = packet.length;
    if (packet.kind == PacketKind::kEssence) window.StartSmall();
    packet.partition = partition;
    packet.primer = primer;
    return packet;
}

std::vector<uint8_t> CInspector::State::Value(const InspectedPacket& packet, size_t most) {
    return window.Copy(packet.ValueOffset(), static_cast<size_t>(std::min<uint64_t>(packet.available, most)));
}

std::optional<CPartition> CInspector::State::Pack(const InspectedPacket& packet) {
    const auto size = packet.headSize + std::min<uint64_t>(packet.available, RowOf(packet.kind).decoded);
    const std::vector<uint8_t> bytes = window.Copy(packet.offset, static_cast<size_t>(size));
    CPartition pack;
    const bool parsed = pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) == kStatusOk;
    return parsed ? std::optional(pack) : std::nullopt;
}

const PrimerLabels* CInspector::State::Primer(const std::optional<uint64_t>& offset) {
    if (!offset) return nullptr;
    if (!loadedPrimer || loadedPrimer->first != *offset) {
        const auto head = HeadAt(*offset);
        if (!head) return nullptr;
        const InspectedPacket packet = PacketAt(*offset, *head);
        loadedPrimer.emplace(*offset, PrimerLabels());
        for (const InspectedItem& item : DecodeItems(packet, Value(packet, RowOf(packet.kind).decoded), nullptr))
            if (item.kind == ValueKind::kKey) loadedPrimer->second.emplace(item.tag, item.label);
    }
    return &loadedPrimer->second;
}

CInspector::CInspector(IByteSource& source) : state_(std::make_unique<State>(source)) {}
CInspector::~CInspector() = default;

std::optional<InspectedPacket> CInspector::Next() {
    if (state_->pending) return std::exchange(state_->pending, std::nullopt);
    if (state_->position >= state_->window.Size()) return std::nullopt;
    const InspectedPacket packet = state_->Step();
    // Empty when the very next bytes cannot be read.
    return packet.End() > packet.offset ? std::optional(packet) : std::nullopt;
}

std::optional<InspectedPartition> CInspector::NextPartition() {
    auto packet = Next();
    if (!packet) return std::nullopt;
    InspectedPartition partition;
    if (packet->kind == PacketKind::kPartition) partition.pack = state_->Pack(*packet);
    do {
        partition.packets.push_back(*packet);
        packet = Next();
    } while (packet && packet->kind != PacketKind::kPartition);
    state_->pending = packet;
    return partition;
}

std::vector<InspectedItem> CInspector::Items(const InspectedPacket& packet) {
    const size_t decoded = RowOf(packet.kind).decoded;
    if (decoded == 0) return {};
    const bool coded = packet.kind == PacketKind::kSet || packet.kind == PacketKind::kIndexSegment;
    const PrimerLabels* primer = coded ? state_->Primer(packet.primer) : nullptr;
    return DecodeItems(packet, Value(packet, decoded), primer);
}

std::vector<uint8_t> CInspector::Value(const InspectedPacket& packet, size_t most) {
    return state_->Value(packet, most);
}

uint64_t CInspector::GetReadCount() const { return state_->window.ReadCount(); }
uint64_t CInspector::GetReadBytes() const { return state_->window.ReadBytes(); }
std::optional<uint64_t> CInspector::GetFailure() const { return state_->window.Failure(); }

}  // namespace kmxf
