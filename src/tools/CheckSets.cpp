#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

#include "core/LocalTags.h"
#include "tools/CheckPrototypes.h"
#include "tools/CheckRule.h"

// HM, first part: how sets and index segments are coded, in which order they stand, and how they refer to each other.
namespace kmxf {

namespace {

constexpr size_t kArrayHead = 8, kKeySize = sizeof(MXFKEYTag);

using File = CheckedFile;
using Metadata = CheckedMetadata;
using Set = CheckedSet;

std::string Hex4(uint16_t tag) {
    char text[8];
    std::snprintf(text, sizeof text, "%04X", unsigned{tag});
    return text;
}

// What is left of a set behind its last item.
bool IsRest(const InspectedItem& item) { return item.tag == 0 && item.label == MXFKEYTag{}; }

const PrototypeItem* PrototypeItemOf(const Set& set, const InspectedItem& item) {
    const auto* prototype = PrototypeOf(set.name);
    if (prototype == nullptr || item.name.empty()) return nullptr;
    const auto found =
        std::ranges::find_if(*prototype, [&](const PrototypeItem& p) { return p.item.name == item.name; });
    return found == prototype->end() ? nullptr : &*found;
}

struct ElementSize {
    ValueKind kind;
    uint64_t size;
};
constexpr ElementSize kElementSizes[] = {
    {ValueKind::kNumbers, 4},
    {ValueKind::kKeys, kKeySize},
    {ValueKind::kDeltaEntries, 6},
    {ValueKind::kIndexEntries, 11},
};
const ElementSize* ArrayOf(const InspectedItem& item) {
    const auto* row = std::ranges::find(kElementSizes, item.kind, &ElementSize::kind);
    return row == std::end(kElementSizes) ? nullptr : row;
}

std::string Names(const std::vector<std::string_view>& names) {
    std::string text;
    for (const std::string_view name : names) text += (text.empty() ? "" : ", ") + std::string(name);
    return text;
}

// Where a set of some kind refers to sets of which kinds. A weak reference leads to a set that has its owner elsewhere.
struct Reference {
    std::string_view item;
    std::initializer_list<std::string_view> targets;
    bool weak = false;
};
const Reference kReferences[] = {
    {"Identifications", {"Identification"}},
    {"ContentStorage", {"ContentStorage"}},
    {"PrimaryPackage", {"MaterialPackage", "SourcePackage"}, true},
    {"Packages", {"MaterialPackage", "SourcePackage"}},
    {"EssenceContainerData", {"EssenceContainerData"}},
    {"PackageTracks", {"Track", "StaticTrack", "EventTrack"}},
    {"Descriptor", {"CDCIDescriptor", "MPEGDescriptor", "AES3Descriptor", "ANCDataDescriptor", "MultipleDescriptor"}},
    {"Sequence", {"Sequence"}},
    {"StructuralComponents", {"SourceClip", "TimecodeComponent", "Filler", "DMSegment"}},
    {"SubDescriptors", {"AVCSubDescriptor"}},
    {"FileDescriptors", {"CDCIDescriptor", "MPEGDescriptor", "AES3Descriptor", "ANCDataDescriptor"}},
    {"DMFramework", {"ClipFramework", "SceneFramework", "XMLFramework", "ThumbnailFramework"}},
    {"ContactsListReference", {"ContactsList"}},
    {"ProjectReference", {"Project"}},
    {"Participants", {"Participant"}},
    {"ContactsListPersons", {"Person"}},
    {"ParticipantPersons", {"Person"}, true},
};
const Reference* ReferenceOf(const InspectedItem& item) {
    const auto* row = std::ranges::find(kReferences, item.name, &Reference::item);
    return row == std::end(kReferences) ? nullptr : row;
}

// What an item may refer to: in items that nobody knows, whatever looks like it.
std::vector<MXFKEYTag> PossibleReferences(const InspectedItem& item) {
    if (!item.name.empty()) return item.Keys();
    InspectedItem guess = item;
    guess.kind = item.length == kKeySize ? ValueKind::kKey : ValueKind::kKeys;
    return guess.Keys();
}

// Everything that the Preface leads to.
std::set<const Set*> Reached(const Metadata& metadata) {
    std::vector<const Set*> ahead = {metadata.preface};
    std::set<const Set*> reached(ahead.begin(), ahead.end());
    while (!ahead.empty()) {
        const Set* set = ahead.back();
        ahead.pop_back();
        for (const InspectedItem& item : set->items) {
            if (item.name == "InstanceUID") continue;
            for (const MXFKEYTag& uid : PossibleReferences(item))
                if (const Set* target = metadata.Find(uid); target != nullptr && reached.insert(target).second)
                    ahead.push_back(target);
        }
    }
    return reached;
}

// The bare layout of OP-1b leaves the descriptors of ANC and sound to the numbers of their tracks.
bool IsFoundByTrack(const File& file, const Set& set) {
    if (file.layout == kOpAtom || (set.name != "ANCDataDescriptor" && set.name != "AES3Descriptor") ||
        !file.metadata.Named("MultipleDescriptor").empty())
        return false;
    const auto trackID = set.Number("LinkedTrackID");
    return trackID && std::ranges::any_of(file.metadata.sources, [&](const CheckedPackage& package) {
               return std::ranges::any_of(
                   package.tracks, [&](const CheckedTrack& track) { return track.set->Number("TrackID") == trackID; });
           });
}

// What may stand behind a set; an empty name is the end of the metadata.
struct Successors {
    std::string_view name;
    std::initializer_list<std::string_view> next;
};
const Successors kSuccessors[] = {
    {"PrimerPack", {"Preface"}},
    {"Preface", {"Identification"}},
    {"Identification", {"ContentStorage"}},
    {"ContentStorage", {"EssenceContainerData"}},
    {"EssenceContainerData", {"MaterialPackage", "EssenceContainerData"}},
    {"MaterialPackage", {"Track"}},
    {"SourcePackage", {"Track"}},
    {"Track", {"Sequence"}},
    {"StaticTrack", {"Sequence"}},
    {"EventTrack", {"Sequence"}},
    {"Sequence", {"SourceClip", "TimecodeComponent", "Filler", "DMSegment"}},
    {"Filler", {"SourceClip"}},
    {"TimecodeComponent", {"Track", "StaticTrack", "EventTrack", "SourcePackage"}},
    {"SourceClip",
     {"Track", "StaticTrack", "EventTrack", "SourcePackage", "MultipleDescriptor", "CDCIDescriptor", "MPEGDescriptor",
      "AES3Descriptor", ""}},
    {"DMSegment", {"ClipFramework", "SceneFramework", "XMLFramework", "ThumbnailFramework"}},
    {"ClipFramework", {"ContactsList"}},
    {"ContactsList", {"Project"}},
    {"Project", {"Participant"}},
    {"Participant", {"Person"}},
    {"Person", {"SourcePackage", "EventTrack"}},
    {"SceneFramework", {"SourcePackage"}},
    {"XMLFramework", {"EventTrack", ""}},
    {"ThumbnailFramework", {""}},
    {"MultipleDescriptor", {"CDCIDescriptor"}},
    {"CDCIDescriptor", {"AVCSubDescriptor", ""}},
    {"MPEGDescriptor", {"AVCSubDescriptor"}},
    {"AVCSubDescriptor", {"ANCDataDescriptor", ""}},
    {"ANCDataDescriptor", {"AES3Descriptor", ""}},
    {"AES3Descriptor", {"AES3Descriptor", "SourcePackage", ""}},
};

constexpr Rule kRules[] = {
    {"HM-001", "The primer pack stands behind the header partition pack.", kAny | kWhileOpen,
     [](const File& file, const Metadata&, const CheckReport& report) {
         const auto& packets = file.header.packets;
         const auto first = std::ranges::find_if(packets, [&](const InspectedPacket& packet) {
             return file.layout != kOther || packet.kind != PacketKind::kFill;
         });
         if (first != packets.end() && first->kind != PacketKind::kPrimer)
             report(first->offset, "PrimerPack",
                    std::string(first->name.empty() ? KindName(first->kind) : first->name));
     }},
    {"HM-002", "The primer pack is one table of 118 entries, the same in every file.", kOurs | kWhileOpen,
     [](const File&, const Set& primer, const CheckReport& report) {
         if (primer.kind != PacketKind::kPrimer) return;
         const auto entry = [](uint16_t tag, const MXFKEYTag& label) { return Hex4(tag) + " " + TextOf(label); };
         size_t found = 0;
         for (const InspectedItem& item : primer.items) {
             if (item.kind != ValueKind::kKey) continue;
             if (found == std::size(kPrimerRows) || item.tag != kPrimerRows[found].tag ||
                 item.label != kPrimerRows[found].ul) {
                 // Behind the first one that differs, all may.
                 report(item.offset - sizeof item.tag,
                        found == std::size(kPrimerRows) ? "118 entries"
                                                        : entry(kPrimerRows[found].tag, kPrimerRows[found].ul),
                        entry(item.tag, item.label));
                 return;
             }
             ++found;
         }
         const auto* count = primer.Item("EntryCount");
         const uint64_t written = count == nullptr ? 0 : count->Unsigned().value_or(0);
         if (found != std::size(kPrimerRows) || written != found)
             report(primer.offset, "118 entries", TextOf(written == std::size(kPrimerRows) ? found : written));
     }},
    {"HM-003", "The primer pack names every local tag that is used.", kAny | kWhileOpen,
     [](const File&, const Set& set, const CheckReport& report) {
         if (set.kind == PacketKind::kPrimer) return;
         for (const InspectedItem& item : set.items)
             if (!IsRest(item) && item.label == MXFKEYTag{})
                 report(item.offset - 4, "a tag of the primer pack", Hex4(item.tag));
     }},
    {"HM-004", "A set has no items but those of its kind.", kOurs | kWhileOpen,
     [](const File&, const Set& set, const CheckReport& report) {
         if (PrototypeOf(set.name) == nullptr) return;
         for (const InspectedItem& item : set.items) {
             if (IsRest(item) || item.label == MXFKEYTag{} || PrototypeItemOf(set, item) != nullptr) continue;
             report(item.offset - 4, "an item of " + std::string(set.name),
                    Hex4(item.tag) + " " + (item.name.empty() ? TextOf(item.label) : std::string(item.name)));
         }
     }},
    {"HM-005", "The items of a set stand in their order, none missing, none twice.", kOurs | kWhileOpen,
     [](const File&, const Set& set, const CheckReport& report) {
         const auto* prototype = PrototypeOf(set.name);
         if (prototype == nullptr) return;
         std::vector<std::string_view> expected, found;
         for (const InspectedItem& item : set.items)
             if (PrototypeItemOf(set, item) != nullptr) found.push_back(item.name);
         for (const PrototypeItem& each : *prototype) {
             const bool optional = each.optional && (set.name != "Sequence" || set.IsDescriptive());
             if (!optional || std::ranges::find(found, each.item.name) != found.end())
                 expected.push_back(each.item.name);
         }
         if (found != expected) report(set.offset, Names(expected), Names(found));
     }},
    {"HM-006", "An item has the size of its field.", kOurs | kWhileOpen,
     [](const File&, const Set& set, const CheckReport& report) {
         for (const InspectedItem& item : set.items) {
             const PrototypeItem* prototype = PrototypeItemOf(set, item);
             if (prototype == nullptr || prototype->variable || ArrayOf(item) != nullptr) continue;
             if (item.length != prototype->item.length)
                 report(item.offset, Counted(prototype->item.length, "byte") + " of " + std::string(item.name),
                        Counted(item.length, "byte"));
         }
     }},
    {"HM-007",
     "An array says how many elements it has, and their size: 16 bytes, of line maps 4, of delta entries 6, of index "
     "entries 11; an empty list of descriptive schemes says 0.",
     kOurs | kWhileOpen,
     [](const File&, const Set& set, const CheckReport& report) {
         for (const InspectedItem& item : set.items) {
             const ElementSize* array = ArrayOf(item);
             if (array == nullptr || PrototypeItemOf(set, item) == nullptr) continue;
             const uint64_t count = (std::max<uint64_t>(item.length, kArrayHead) - kArrayHead) / array->size;
             const uint64_t size = count == 0 && item.name == "DMSchemes" ? 0 : array->size;
             const ArrayHead head = ArrayHeadOf(item);
             const auto text = [](uint64_t n, uint64_t each) {
                 return std::to_string(n) + " x " + Counted(each, "byte");
             };
             if (head.count != count || head.size != size || kArrayHead + count * array->size != item.length)
                 report(item.offset, std::string(item.name) + " of " + text(count, size), text(head.count, head.size));
         }
     }},
    {"HM-008", "The items of a set fill it.", kAny | kWhileOpen,
     [](const File&, const Set& set, const CheckReport& report) {
         if (set.kind == PacketKind::kPrimer || set.items.empty()) return;
         const InspectedItem& last = set.items.back();
         if (IsRest(last)) {
             report(last.offset, "an item", Counted(last.length, "byte"));
         } else if (last.value.size() < last.length) {
             report(last.offset, Counted(last.length, "byte"), Counted(last.value.size(), "byte"));
         }
     }},
    {"HM-009", "Every set has an InstanceUID of its own.", kAny | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set& set : metadata.sets) {
             const auto uid = set.Key("InstanceUID");
             const Set* first = uid ? metadata.Find(*uid) : nullptr;
             if (first != nullptr && first != &set)
                 report(set.Item("InstanceUID")->offset, "an InstanceUID of its own",
                        "that of " + std::string(first->name) + " at " + std::to_string(first->offset));
         }
     }},
    {"HM-010", "A reference leads to a set, of a kind that belongs there, and a set has one owner.", kAny | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         std::map<const Set*, const Set*> owners;
         for (const Set& set : metadata.sets) {
             for (const InspectedItem& item : set.items) {
                 const Reference* reference = ReferenceOf(item);
                 if (reference == nullptr) continue;
                 for (const MXFKEYTag& uid : item.Keys()) {
                     const Set* target = metadata.Find(uid);
                     // Other writers have sets of other kinds.
                     const bool fits = target != nullptr &&
                                       (file.layout == kOther || std::ranges::find(reference->targets, target->name) !=
                                                                     reference->targets.end());
                     if (!fits) {
                         report(item.offset, std::string(item.name) + " of " + Names(reference->targets),
                                target == nullptr      ? "no set " + TextOf(uid)
                                : target->name.empty() ? "an unknown set " + TextOf(target->key)
                                                       : std::string(target->name));
                     } else if (!reference->weak) {
                         const auto [owner, isFirst] = owners.emplace(target, &set);
                         if (!isFirst)
                             report(item.offset, std::string(item.name) + " of its own",
                                    "that of " + std::string(owner->second->name) + " at " +
                                        TextOf(owner->second->offset));
                     }
                 }
             }
         }
     }},
    {"HM-011", "The Preface leads to every set.", kAny | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.preface == nullptr) return;
         const auto reached = Reached(metadata);
         for (const Set& set : metadata.sets)
             if (!reached.contains(&set) && !IsFoundByTrack(file, set))
                 report(set.offset, "a reference to " + std::string(set.name.empty() ? "the set" : set.name), "none");
     }},
    {"HM-012", "The sets stand in the order of the layout.", kOurs | kWhileOpen,
     [](const File& file, const Metadata&, const CheckReport& report) {
         const InspectedPacket* before = nullptr;
         for (const InspectedPacket& packet : file.header.packets) {
             const bool isSet = packet.kind == PacketKind::kSet || packet.kind == PacketKind::kPrimer;
             if (isSet && packet.name.empty()) continue;  // dark
             const auto* row =
                 before == nullptr ? nullptr : std::ranges::find(kSuccessors, before->name, &Successors::name);
             before = isSet ? &packet : nullptr;
             if (row == nullptr || row == std::end(kSuccessors)) continue;
             const std::string_view next = isSet ? packet.name : "";
             if (std::ranges::find(row->next, next) != row->next.end()) continue;
             std::vector<std::string_view> expected(row->next);
             std::ranges::replace(expected, std::string_view(), std::string_view("the end of the metadata"));
             report(packet.offset, Names(expected), std::string(packet.name));
         }
     }},
};

}  // namespace

std::span<const Rule> SetRules() { return kRules; }

}  // namespace kmxf
