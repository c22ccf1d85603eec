#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Inspect.h"
#include "kmxf/tools/Check.h"

// What the rules look at: a file as one walk over it finds it. Of the essence it has counts, of the partitions their
// places, of the header metadata everything.
namespace kmxf {

using InspectedItems = std::vector<InspectedItem>;

// As no file of these layouts has them: what lies beyond is counted and not kept, or not followed.
inline constexpr size_t kMostPackets = 4096, kMostReferences = 4096;

// Numbers of a file may be any. A sum or difference that does not fit wraps: it is none that is expected.
inline int64_t WrappedSum(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t WrappedDifference(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// The files whose rules a rule belongs to; a recording that was cut off is held only against those that say so.
enum CheckScope : uint8_t { kOther = 1, kOpAtom = 2, kOp1b = 4, kOurs = 6, kAny = 7, kWhileOpen = 8 };

struct CheckedSet : InspectedPacket {
    InspectedItems items;

    const InspectedItem* Item(std::string_view itemName) const { return FindItem(items, itemName); }
    std::optional<int64_t> Number(std::string_view itemName) const;
    std::optional<MXFKEYTag> Key(std::string_view itemName) const;
    std::optional<MXFRATIONALTag> Rational(std::string_view itemName) const;
    std::string Text(std::string_view itemName) const;  // empty when there is none
    bool IsDescriptive() const;                         // by its DataDefinition
};

struct CheckedTrack {
    const CheckedSet* set;
    const CheckedSet* sequence = nullptr;
    std::vector<const CheckedSet*> components;
    std::string_view kind;  // the name of the sequence's DataDefinition, as "PictureTrack"

    const CheckedSet* Component(std::string_view componentName) const;
};

struct CheckedPackage {
    const CheckedSet* set = nullptr;
    std::vector<CheckedTrack> tracks;

    std::vector<const CheckedTrack*> TracksOf(std::string_view kind) const;
    const CheckedTrack* Track(std::string_view kind) const;  // the first
};

// The picture of a file as its descriptors tell it.
struct CheckedPicture {
    uint32_t videoStd = 0, compType = 0;
    InspectedItems descriptor, subDescriptor;  // as they are in a good file
};

// The header metadata, followed from the Preface.
struct CheckedMetadata {
    std::vector<CheckedSet> sets;
    std::map<std::array<uint8_t, 16>, const CheckedSet*> byUID;

    const CheckedSet* preface = nullptr;
    CheckedPackage material;
    std::vector<CheckedPackage> sources;
    const CheckedSet* pictureDescriptor = nullptr;  // CDCI or MPEG
    const CheckedSet* subDescriptor = nullptr;
    std::vector<const CheckedSet*> soundDescriptors;

    std::optional<CheckedPicture> picture;
    MXFRATIONALTag pictureRate;  // 0/0: nobody tells
    uint32_t videoStd = 0;       // of this rate; for a file of sound one of those with its cadence. 0: none
    uint32_t samplesPerSec = 48000, bytesPerSample = 0;

    void Follow();  // everything from `sets`
    const CheckedSet* Find(const MXFKEYTag& uid) const;
    std::vector<const CheckedSet*> Named(std::string_view name) const;
    // In the edit units of tracks of this kind.
    int64_t EditUnits(std::string_view kind, int64_t frames) const;

private:
    // The sets that an item refers to, as long as there are not too many in all.
    std::vector<const CheckedSet*> Referred(const InspectedItem* item);
    CheckedTrack Track(const CheckedSet& set);
    CheckedPackage Package(const CheckedSet& set);

    size_t references_ = 0;
};

struct CheckedPartition {
    InspectedPacket pack;
    InspectedItems fields;
    size_t number = 0;                                          // from 0
    std::vector<InspectedPacket> packets;                       // behind the pack, up to kMostPackets
    std::vector<std::pair<std::string_view, uint64_t>> counts;  // of all of them, by name
    std::vector<CheckedSet> segments;                           // the first two index segments
    uint64_t indexFrom = 0, indexEnd = 0;                       // index segments and the fill behind them
    uint64_t elements = 0;                                      // of essence
    uint64_t end = 0;
    bool damaged = false;

    std::optional<uint64_t> Field(std::string_view name) const;
    std::optional<MXFKEYTag> Label(std::string_view name) const;
    bool IsHeader() const { return pack.name == "HeaderPartitionPack"; }
    bool IsFooter() const { return pack.name == "FooterPartitionPack"; }
    std::string Contents() const;  // "60 ANCElement, 60 Fill"
    uint64_t ContentSize() const { return end - pack.End(); }
};

// Frames of an OP-1b clip that have their partitions together; unknown behind damage.
struct CheckedGroup {
    size_t number = 0;  // from 1
    std::optional<uint64_t> first = 0, frames = 0;
};

struct CheckedFile {
    uint64_t size = 0, runIn = 0;
    CheckScope layout = kOther;
    bool damaged = false;
    std::optional<InspectedPacket> firstPacket, lastPacket;

    // The footer as the header partition names it; none: the recording was cut off, for this reason.
    uint64_t namedFooter = 0;
    bool open = false;
    std::string missingFooter;

    CheckedPartition header;
    bool hasHeader = false;
    bool headerWhole = false;  // undamaged up to the next partition, and kept: its metadata can be followed
    CheckedMetadata metadata;
    bool tooManySets = false;  // to keep

    std::vector<MXF_PARTITION_INFOTag> partitions;  // places without the run-in
    CheckedPartition current;
    std::optional<CheckedPartition> previous;  // without packets

    std::vector<uint64_t> segmentMarks;    // of each index segment in front of the footer, in their order
    size_t repeatedSegments = 0;           // in the footer
    std::optional<uint64_t> otherSegment;  // offset of the first one that does not repeat its own

    // OP-Atom: the essence element.
    std::optional<InspectedPacket> element;
    // OP-1b
    CheckedGroup group, groupBefore;
    std::optional<uint64_t> pictureBytes = 0;            // in front of the current partition
    std::optional<std::vector<uint64_t>> pictureStarts;  // of the group, in the picture's stream

    std::optional<InspectedPacket> randomIndex;
    std::vector<MXF_PARTITION_INFOTag> randomIndexEntries;
    uint64_t overallLength = 0;

    // Frames that are stored, and what the header says of them; nothing when it cannot be told.
    std::optional<int64_t> StoredFrames() const;
    std::optional<int64_t> StoredSamples() const;  // OP-Atom sound
    std::optional<int64_t> HeaderFrames() const;
    uint64_t ElementSize() const { return element ? element->available : 0; }
    bool IsSound() const { return layout == kOpAtom && !metadata.pictureDescriptor; }
};

}  // namespace kmxf
