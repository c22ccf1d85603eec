#include "structures/InspectItems.h"

#include <algorithm>
#include <utility>

#include "core/Bytes.h"
#include "core/LocalTags.h"
#include "structures/InspectKeys.h"

namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kItemHeadSize = 4;  // tag and length, 2 bytes each
constexpr uint32_t kPrimerEntrySize = 18;
constexpr size_t kRandomIndexEntrySize = 12;
constexpr uint16_t kFirstDynamicTag = 0x8000;
constexpr size_t kStatusByte = 14;  // of a partition pack's key

// A field of fixed width.
struct FieldRow {
    const char* name;
    ValueKind kind;
    uint32_t width;
};
// In front of the essence containers, the array that takes the rest of a partition pack
constexpr FieldRow kPartitionFields[] = {
    {"MajorVersion", ValueKind::kUnsigned, 2},      {"MinorVersion", ValueKind::kUnsigned, 2},
    {"KAGSize", ValueKind::kUnsigned, 4},           {"ThisPartition", ValueKind::kUnsigned, 8},
    {"PreviousPartition", ValueKind::kUnsigned, 8}, {"FooterPartition", ValueKind::kUnsigned, 8},
    {"HeaderByteCount", ValueKind::kUnsigned, 8},   {"IndexByteCount", ValueKind::kUnsigned, 8},
    {"IndexSID", ValueKind::kUnsigned, 4},          {"BodyOffset", ValueKind::kUnsigned, 8},
    {"BodySID", ValueKind::kUnsigned, 4},           {"OperationalPattern", ValueKind::kKey, 16},
};
constexpr FieldRow kPrimerHead[] = {
    {"EntryCount", ValueKind::kUnsigned, 4},
    {"EntrySize", ValueKind::kUnsigned, 4},
};
constexpr FieldRow kRandomIndexEntry[] = {
    {"BodySID", ValueKind::kUnsigned, 4},
    {"ByteOffset", ValueKind::kUnsigned, 8},
};
constexpr FieldRow kOverallLength = {"OverallLength", ValueKind::kUnsigned, 4};

const PrimerRow* RowOfLabel(const MXFKEYTag& label) {
    const auto* row = std::ranges::find_if(kPrimerRows, [&](const PrimerRow& r) { return SameKey(r.ul, label); });
    return row == std::end(kPrimerRows) ? nullptr : row;
}

const PrimerRow* RowOfTag(uint16_t tag) {
    const auto* row = std::ranges::find(kPrimerRows, tag, &PrimerRow::tag);
    return row == std::end(kPrimerRows) ? nullptr : row;
}

class ItemDecoder {
public:
    ItemDecoder(const InspectedPacket& packet, Bytes value) : packet_(packet), reader_(value) {}

    void Partition() {
        items_.push_back({.offset = packet_.offset + kStatusByte,
                          .name = "Status",
                          .kind = ValueKind::kPartitionStatus,
                          .length = 1,
                          .value = {packet_.key.bytes[kStatusByte]}});
        Fields(kPartitionFields);
        if (reader_.Remaining() > 0) Add({.name = "EssenceContainers", .kind = ValueKind::kKeys}, reader_.Remaining());
    }

    void Primer() {
        Fields(kPrimerHead);
        if (items_.size() < std::size(kPrimerHead)) return;
        const uint64_t entrySize = items_[1].Unsigned().value_or(0);
        if (entrySize < kPrimerEntrySize) return;
        for (uint64_t count = items_[0].Unsigned().value_or(0); count > 0 && reader_.Remaining() >= entrySize;
             --count) {
            InspectedItem entry{.tag = reader_.U16(), .kind = ValueKind::kKey};
            entry.label = ByteReader(reader_).Key();
            Name(entry, RowOfLabel(entry.label));
            entry.kind = ValueKind::kKey;  // what stands here is the label
            Add(std::move(entry), sizeof(MXFKEYTag));
            reader_.Skip(entrySize - kPrimerEntrySize);
        }
    }

    void RandomIndex() {
        if (packet_.length < kOverallLength.width) return;
        const uint64_t entries = (packet_.length - kOverallLength.width) / kRandomIndexEntrySize;
        for (uint64_t i = 0; i < entries && reader_.Remaining() > 0; ++i) Fields(kRandomIndexEntry);
        Fields({&kOverallLength, 1});
    }

    void Set(const PrimerLabels* primer) {
        while (reader_.Remaining() >= kItemHeadSize) {
            InspectedItem item{.tag = reader_.U16()};
            if (primer != nullptr && primer->contains(item.tag)) {
                item.label = primer->at(item.tag);
                Name(item, RowOfLabel(item.label));
            } else if (primer == nullptr || item.tag < kFirstDynamicTag) {
                const PrimerRow* row = RowOfTag(item.tag);
                if (row != nullptr) item.label = row->ul;
                Name(item, row);
            }
            const uint16_t length = reader_.U16();
            Add(std::move(item), length);
        }
    }

    // All items; what is left of the value comes last.
    std::vector<InspectedItem> Done() {
        if (reader_.Remaining() > 0) Add({}, reader_.Remaining());
        return std::move(items_);
    }

private:
    static void Name(InspectedItem& item, const PrimerRow* row) {
        if (row == nullptr) return;
        item.name = row->name;
        item.kind = row->kind;
    }

    // As many as there are bytes for.
    void Fields(std::span<const FieldRow> rows) {
        for (const FieldRow& row : rows) {
            if (reader_.Remaining() == 0) return;
            Add({.name = row.name, .kind = row.kind}, row.width);
        }
    }

    void Add(InspectedItem item, size_t length) {
        item.offset = packet_.ValueOffset() + reader_.Position();
        item.length = length;
        const Bytes value = reader_.Take(std::min(length, reader_.Remaining()));
        item.value.assign(value.begin(), value.end());
        items_.push_back(std::move(item));
    }

    const InspectedPacket& packet_;
    ByteReader reader_;
    std::vector<InspectedItem> items_;
};

}  // namespace

std::vector<InspectedItem> DecodeItems(const InspectedPacket& packet, Bytes value, const PrimerLabels* primer) {
    ItemDecoder decoder(packet, value);
    switch (packet.kind) {
        case PacketKind::kPartition:
            decoder.Partition();
            break;
        case PacketKind::kPrimer:
            decoder.Primer();
            break;
        case PacketKind::kRandomIndex:
            decoder.RandomIndex();
            break;
        case PacketKind::kSet:
        case PacketKind::kIndexSegment:
            decoder.Set(primer);
            break;
        default:
            break;
    }
    return decoder.Done();
}

const InspectedItem* FindItem(const std::vector<InspectedItem>& items, std::string_view name) {
    const auto found = std::ranges::find(items, name, &InspectedItem::name);
    return found == items.end() ? nullptr : &*found;
}

}  // namespace kmxf
