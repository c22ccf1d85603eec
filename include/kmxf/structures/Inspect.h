#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/Partition.h"

// A walk over any KLV file (SMPTE ST 336, ST 377-1) as it lies on disk: packets with their places, grouped by
// partition, and what is in packs and sets, item by item. It reads heads and tables, never the values of essence and
// fill, and goes on behind damage. Files of other writers, cut ones and growing ones are as welcome as whole ones.
namespace kmxf {

// Where the bytes of an inspected file come from.
class KMXF_API IByteSource {
public:
    IByteSource() = default;
    IByteSource(const IByteSource&) = default;
    IByteSource& operator=(const IByteSource&) = default;
    virtual ~IByteSource() = default;

    // Size in bytes; asked once. What a file grows by later is not looked at.
    virtual uint64_t GetSize() = 0;
    // Fills `bytes` from `offset`, a range within the size. Returns the bytes read; fewer than asked for mean that the
    // rest cannot be read.
    virtual size_t Read(uint64_t offset, std::span<uint8_t> bytes) = 0;
};

enum class PacketKind {
    kPartition,
    kPrimer,
    kSet,  // a local set of header metadata, known or not
    kIndexSegment,
    kRandomIndex,
    kFill,
    kEssence,
    kDark,    // a packet of no known coding
    kRunIn,   // no packet: the bytes in front of the header partition, at most 64 KiB
    kDamage,  // no packet: bytes that lead to no key
};

// The kind as a word: "partition", "primer", "set", "index segment", "random index", "fill", "essence", "dark",
// "run-in", "damage".
KMXF_API std::string_view KindName(PacketKind kind);

// The name of a packet's key or of a label, as "Preface" or "OperationalPattern1b"; empty when there is none. The
// version (byte 7) and, of partition packs, the status do not count.
KMXF_API std::string_view KeyName(const MXFKEYTag& key);

// A packet, or a stretch that is none (kRunIn, kDamage: no key, no head).
struct InspectedPacket {
    uint64_t offset = 0;  // of the key, in bytes from the start of the file
    MXFKEYTag key{};
    uint32_t headSize = 0;   // bytes of key and length
    uint64_t length = 0;     // bytes of the value as stated
    uint64_t available = 0;  // bytes of the value in the file
    PacketKind kind = PacketKind::kDamage;
    std::string_view name{};  // of the key, see KeyName
    // False: the file or the next packet begins before the stated end. An essence element of stated length 0 that bytes
    // of no packet follow is one whose length was still to be written, and has them all: up to a key within a MiB, to
    // the footer partition that the first pack names, to a key in the last 64 KiB of the file, or to its end.
    bool whole = true;
    uint32_t partition = 0;            // number of its partition, from 1; 0 in front of the first
    std::optional<uint64_t> primer{};  // offset of the primer pack in force

    uint64_t ValueOffset() const { return offset + headSize; }
    uint64_t End() const { return ValueOffset() + available; }
};

// A partition: its pack and what lies behind it, up to the next pack.
struct InspectedPartition {
    std::optional<CPartition> pack;        // none in front of the first pack, nor when its fields are cut short
    std::vector<InspectedPacket> packets;  // the pack's own first
};

enum class ValueKind : uint8_t;

// An item of a set, or a field of a pack.
struct KMXF_API InspectedItem {
    uint64_t offset = 0;      // of the value, in bytes from the start of the file
    uint16_t tag = 0;         // local tag as in the file; 0 in packs
    MXFKEYTag label{};        // what the tag stands for; zero when nobody says
    std::string_view name{};  // of the label, empty when unknown
    ValueKind kind{};
    uint64_t length = 0;           // bytes of the value as stated
    std::vector<uint8_t> value{};  // as in the file, shorter than `length` when its packet ends before

    // The value in print: numbers in decimal, rationals as 30000/1001, times in ISO 8601, text as UTF-8, arrays as
    // [a, b], everything else, and a value whose size does not fit its kind, as upper-case hex.
    std::string Text() const;

    // The value of a number of up to 8 bytes; nothing for other kinds.
    std::optional<uint64_t> Unsigned() const;
    std::optional<int64_t> Signed() const;
    std::optional<MXFRATIONALTag> Rational() const;
    std::optional<MXFTIMESTAMPTag> Timestamp() const;
    std::optional<MXFUMIDTag> Umid() const;
    // The labels, UUIDs or references of an array, or the only one; none for other kinds.
    std::vector<MXFKEYTag> Keys() const;
    // The elements of an array, as many as it states and as there are; views into `value`.
    std::vector<std::span<const uint8_t>> Elements() const;
};

// The first item of that name; null when there is none.
KMXF_API const InspectedItem* FindItem(const std::vector<InspectedItem>& items, std::string_view name);

// Walks a file once, from its start to its end. Packets and stretches fill the file without gap and overlap. After a
// read failure the file ends where it failed.
class KMXF_API CInspector {
public:
    // `source` stays the caller's and must outlive this.
    explicit CInspector(IByteSource& source);
    CInspector(const CInspector&) = delete;
    CInspector& operator=(const CInspector&) = delete;
    ~CInspector();

    // The next packet or stretch; nothing at the end. Behind a packet stands a key, or the end; where neither does, the
    // packet's length is in doubt, and the first MiB of its value is searched for a key that ends it. Bytes of no
    // packet are read through up to the next key.
    std::optional<InspectedPacket> Next();
    // All of them up to the next partition pack; nothing at the end.
    std::optional<InspectedPartition> NextPartition();

    // The contents of a packet in file order; of a long value what is in its first MiB (random index packs: 4 MiB).
    // Sets: their items, under the names that the primer pack in force gives to the tags (without one: this library's
    // tags). Primer packs: count and size of the entries, then each with its tag and label. Partition packs: status and
    // fields. Random index packs: BodySID and ByteOffset of each partition, then OverallLength. Dark packets: one
    // nameless item with the first 64 KiB. Bytes that make no item come last, nameless. Nothing for fill, essence and
    // stretches.
    std::vector<InspectedItem> Items(const InspectedPacket& packet);

    // The first `most` bytes of a packet's value or of a stretch, as many as there are.
    std::vector<uint8_t> Value(const InspectedPacket& packet, size_t most);

    // What has been read from the source so far.
    uint64_t GetReadCount() const;
    uint64_t GetReadBytes() const;
    // Where reading failed; nothing if it did not.
    std::optional<uint64_t> GetFailure() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace kmxf
