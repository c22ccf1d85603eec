#include <algorithm>
#include <map>
#include <set>

#include "core/Labels.h"
#include "tools/CheckPrototypes.h"
#include "tools/CheckRule.h"

// HM, last part: the essence descriptors.
namespace kmxf {

namespace {

using File = CheckedFile;
using Metadata = CheckedMetadata;
using Set = CheckedSet;

// Descriptors by the kind of track that they belong to.
struct DescriptorKind {
    std::string_view name, track;
};
constexpr DescriptorKind kDescriptorKinds[] = {
    {"CDCIDescriptor", "PictureTrack"},
    {"MPEGDescriptor", "PictureTrack"},
    {"AES3Descriptor", "SoundTrack"},
    {"ANCDataDescriptor", "DataTrack"},
};

bool IsDVDescriptor(const File& file) {
    return file.layout == kOpAtom && file.metadata.pictureDescriptor->name == "CDCIDescriptor";
}

// The package that has each descriptor, by itself or in its list: the first of them. In the bare layout of OP-1b most
// descriptors have none.
std::map<const Set*, const CheckedPackage*> OwnersOfDescriptors(const Metadata& metadata) {
    std::map<const Set*, const CheckedPackage*> owners;
    for (const CheckedPackage& package : metadata.sources) {
        const auto uid = package.set->Key("Descriptor");
        const Set* descriptor = uid ? metadata.Find(*uid) : nullptr;
        if (descriptor == nullptr || !owners.emplace(descriptor, &package).second) continue;
        const InspectedItem* list = descriptor->Item("FileDescriptors");
        for (const MXFKEYTag& each : list == nullptr ? std::vector<MXFKEYTag>() : list->Keys())
            owners.emplace(metadata.Find(each), &package);
    }
    return owners;
}

constexpr Rule kRules[] = {
    {"HM-035", "A descriptor names a track of its kind in its Source Package, and no other names that track.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const auto owners = OwnersOfDescriptors(metadata);
         std::set<int64_t> named;
         for (const DescriptorKind& kind : kDescriptorKinds) {
             for (const Set* set : metadata.Named(kind.name)) {
                 const InspectedItem* item = set->Item("LinkedTrackID");
                 const auto id = set->Number("LinkedTrackID");
                 if (!id) continue;
                 const auto isIt = [&](const CheckedTrack* track) { return track->set->Number("TrackID") == id; };
                 const bool found = std::ranges::any_of(metadata.sources, [&](const CheckedPackage& package) {
                     const auto owner = owners.find(set);
                     return (owner == owners.end() || owner->second == &package) &&
                            std::ranges::any_of(package.TracksOf(kind.track), isIt);
                 });
                 if (!found || !named.insert(*id).second)
                     report(item->offset, "LinkedTrackID of a " + std::string(kind.track) + " of its own",
                            Described(*item));
             }
         }
     }},
    {"HM-036", "The coding and the rate of the picture are those of a known format.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const Set* set = metadata.pictureDescriptor;
         if (set == nullptr || metadata.picture) return;
         report(set->offset, "a known format",
                "PictureEssenceCoding " + set->Text("PictureEssenceCoding") + " at " + set->Text("SampleRate"));
     }},
    {"HM-037", "The picture descriptor says what belongs to its format; the aspect ratio is 4/3 or 16/9.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         if (!metadata.picture) return;
         const InspectedItems& items = metadata.pictureDescriptor->items;
         report.ExpectItems(items, metadata.picture->descriptor,
                            {"InstanceUID", "LinkedTrackID", "ContainerDuration", "AspectRatio", "SubDescriptors"});
         const InspectedItem* ratio = FindItem(items, "AspectRatio");
         if (ratio != nullptr && ratio->Text() != "4/3" && ratio->Text() != "16/9")
             report(ratio->offset, "AspectRatio 4/3 or 16/9", Described(*ratio));
     }},
    {"HM-038", "An AVC picture has a sub-descriptor, DV none.", kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.pictureDescriptor == nullptr) return;
         const InspectedItem* item = metadata.pictureDescriptor->Item("SubDescriptors");
         if (item == nullptr) return;
         const size_t expected = IsDVDescriptor(file) ? 0 : 1;
         if (item->Keys().size() != expected)
             report(item->offset, Counted(expected, "sub-descriptor"), std::to_string(item->Keys().size()));
     }},
    {"HM-039", "The AVC sub-descriptor says what belongs to its format.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         if (metadata.picture && metadata.subDescriptor != nullptr)
             report.ExpectItems(metadata.subDescriptor->items, metadata.picture->subDescriptor, {"InstanceUID"});
     }},
    {"HM-040",
     "A sound descriptor is that of one channel of uncompressed sound, of 16 or 24 bits, at 48000 or, in OP-Atom "
     "files, "
     "96000 Hz.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         const InspectedItems expected = SoundDescriptorItems(metadata, file.layout == kOpAtom);
         for (const Set* set : metadata.soundDescriptors)
             report.ExpectItems(set->items, expected, {"InstanceUID", "LinkedTrackID", "ContainerDuration"});
     }},
    {"HM-041", "The descriptors of ANC and of all streams together run at the picture rate.", kOp1b | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set* set : metadata.Named("ANCDataDescriptor"))
             report.ExpectItems(set->items, ANCDescriptorItems(metadata.pictureRate),
                                {"InstanceUID", "LinkedTrackID", "ContainerDuration"});
         for (const Set* set : metadata.Named("MultipleDescriptor"))
             report.ExpectItems(set->items, MultipleDescriptorItems(metadata.pictureRate),
                                {"InstanceUID", "ContainerDuration", "FileDescriptors"});
     }},
    {"HM-042", "The essence containers of the partition packs are those of the descriptors, each once.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         std::vector<std::string> labels;
         for (const Set& set : metadata.sets) {
             const std::string label = set.Text("EssenceContainer");
             if (set.name != "MultipleDescriptor" && !label.empty() && std::ranges::find(labels, label) == labels.end())
                 labels.push_back(label);
         }
         std::string expected;
         for (const std::string& label : labels) expected += (expected.empty() ? "" : ", ") + label;
         report.ExpectText(file.header.fields, "EssenceContainers", "[" + expected + "]");
     }},
};

}  // namespace

std::span<const Rule> DescriptorRules() { return kRules; }

}  // namespace kmxf
