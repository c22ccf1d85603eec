#include <algorithm>

#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "tools/CheckPrototypes.h"
#include "tools/CheckRule.h"

// HM, second part: what the header metadata says, and whether it says the same in all places and as the essence.
namespace kmxf {

namespace {

using File = CheckedFile;
using Metadata = CheckedMetadata;
using Package = CheckedPackage;
using Set = CheckedSet;
using Track = CheckedTrack;

// Frames of an OP-1b clip behind the last one that is shown.
constexpr int64_t kMostRollOut = 3;

// Items that say in every file what a new set says.
struct ConstantItem {
    std::string_view set, item;
};
constexpr ConstantItem kConstantItems[] = {
    {"Preface", "Version"},
    {"StaticTrack", "TrackNumber"},
    {"EventTrack", "TrackNumber"},
    {"SourceClip", "StartPosition"},
    {"TimecodeComponent", "DataDefinition"},
    {"DMSegment", "DataDefinition"},
    {"DMSegment", "Duration"},
    {"ClipFramework", "FrameworkLanguageCode"},
    {"ClipFramework", "ClipKind"},
    {"SceneFramework", "FrameworkLanguageCode"},
    {"XMLFramework", "XMLType"},
};

// Groups of descriptive metadata.
struct DescriptiveGroup {
    std::string_view framework, track;
    int64_t trackID;
    bool hasDuration;
    MXFKEYTag opAtomScheme, op1bScheme;
};
constexpr DescriptiveGroup kDescriptiveGroups[] = {
    {"ClipFramework", "StaticTrack", 101, false, kDMSchemeClip, kDMSchemeClip},
    {"SceneFramework", "EventTrack", 102, false, kDMSchemeSceneOpAtom, kDMSchemeSceneOp1b},
    {"XMLFramework", "StaticTrack", 1001, false, kDMSchemeXML, kDMSchemeXML},
    {"ThumbnailFramework", "EventTrack", 1002, true, kDMSchemeThumbnail, kDMSchemeThumbnail},
};

// The group that a track of descriptive metadata leads to; null when it leads nowhere.
const DescriptiveGroup* GroupOf(const Metadata& metadata, const Track& track) {
    const Set* segment = track.Component("DMSegment");
    const auto uid = segment == nullptr ? std::nullopt : segment->Key("DMFramework");
    const Set* framework = uid ? metadata.Find(*uid) : nullptr;
    if (framework == nullptr) return nullptr;
    const auto* row = std::ranges::find(kDescriptiveGroups, framework->name, &DescriptiveGroup::framework);
    return row == std::end(kDescriptiveGroups) ? nullptr : row;
}

void ExpectPresence(const CheckReport& report, const Set& set, std::string_view name, bool expected) {
    const InspectedItem* item = set.Item(name);
    const std::string wanted = "no " + std::string(name);
    if (expected && item == nullptr) report(set.offset, std::string(name), wanted);
    if (!expected && item != nullptr) report(item->offset, wanted, Described(*item));
}

// The kinds of tracks in the order in which a package has them.
constexpr std::string_view kTrackOrder[] = {"TimecodeTrack", "PictureTrack", "DataTrack", "SoundTrack"};

// Lists that have one entry.
constexpr std::string_view kListsOfOne[] = {"Identifications", "Participants", "ContactsListPersons",
                                            "ParticipantPersons"};
// Lists whose entries stand in the order of the file. Tracks of descriptive metadata do not.
constexpr std::string_view kListsInOrder[] = {"Packages", "EssenceContainerData", "StructuralComponents",
                                              "PackageTracks"};

// The tracks of essence and timecode, package by package.
template <class Visit>
void VisitTracks(const Metadata& metadata, Visit visit) {
    const auto visitPackage = [&](const Package& package) {
        for (const Track& track : package.tracks)
            if (track.set->name == "Track" && track.sequence != nullptr) visit(package, track);
    };
    if (metadata.material.set != nullptr) visitPackage(metadata.material);
    for (const Package& source : metadata.sources) visitPackage(source);
}

bool IsMaterial(const Metadata& metadata, const Package& package) { return &package == &metadata.material; }

// Frames in front of the clip that a source package counts; 0 when it does not say.
int64_t OriginFrames(const Metadata& metadata) {
    const Track* track = metadata.sources.empty() ? nullptr : metadata.sources.front().Track("PictureTrack");
    return track == nullptr ? 0 : track->set->Number("Origin").value_or(0);
}

// The track of a source package that a source clip names.
const Track* Source(const Metadata& metadata, const Set& clip) {
    for (const Package& package : metadata.sources) {
        if (package.set->Text("PackageUID") != clip.Text("SourcePackageID")) continue;
        for (const Track& track : package.tracks)
            if (track.set->Number("TrackID") == clip.Number("SourceTrackID")) return &track;
    }
    return nullptr;
}

bool IsDate(const MXFTIMESTAMPTag& date) {
    if (date == MXFTIMESTAMPTag()) return true;
    const bool leap = date.year % 4 == 0 && (date.year % 100 != 0 || date.year % 400 == 0);
    const int days[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return date.month >= 1 && date.month <= 12 && date.day >= 1 && date.day <= days[date.month - 1] && date.hour < 24 &&
           date.minute < 60 && date.second < 60 && date.quarterMillisecond < 250;
}

// The last four bytes of the key of the elements of a track.
std::optional<int64_t> ElementNumber(const File& file, std::string_view kind) {
    if (kind == "TimecodeTrack") return 0;
    const auto last4 = [](const MXFKEYTag& key) {
        return int64_t{key.bytes[12]} << 24 | key.bytes[13] << 16 | key.bytes[14] << 8 | key.bytes[15];
    };
    if (file.layout == kOp1b) {
        if (kind == "PictureTrack") return last4(kAVCLongGOPElementKey);
        if (kind == "SoundTrack") return last4(kPCMBlockElementKey);
        if (kind == "DataTrack") return last4(kANCElementKey);
        return std::nullopt;
    }
    if (file.IsSound()) return last4(kAES3ElementKey);
    const bool avcIntra = file.metadata.pictureDescriptor->name == "MPEGDescriptor";
    return last4(avcIntra ? kAVCIntraElementKey : kDVElementKey);
}

// The number of the lowest frequency of a timecode at this rate.
std::optional<int64_t> TimecodeBase(const Metadata& metadata) {
    const MXFRATIONALTag rate = GetTimecodeEditRate(metadata.videoStd);
    if (rate.denominator == 0) return std::nullopt;
    return (rate.numerator + rate.denominator - 1) / rate.denominator;
}

constexpr Rule kRules[] = {
    {"HM-013",
     "Some items say the same in every file: version 1.3, start positions of 0, the language \"en\", the kind of clip "
     "and others.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const ConstantItem& constant : kConstantItems) {
             const auto* prototype = PrototypeOf(constant.set);
             const auto item = std::ranges::find_if(
                 *prototype, [&](const PrototypeItem& each) { return each.item.name == constant.item; });
             for (const Set* set : metadata.Named(constant.set))
                 report.ExpectText(set->items, constant.item, item->item.Text());
         }
         for (const Track& track : metadata.material.tracks)
             if (GroupOf(metadata, track) != nullptr)
                 report.Expect(track.sequence->items, "DataDefinition", kDescriptiveDataDefinition);
     }},
    {"HM-014", "A text ends with zeros up to the end of its field.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set& set : metadata.sets) {
             for (const InspectedItem& item : set.items) {
                 const size_t unit = item.kind == ValueKind::kUTF16 ? 2 : item.kind == ValueKind::kText ? 1 : 0;
                 if (unit == 0 || item.name == "XMLData") continue;
                 const auto isZero = [&](size_t at) { return item.value[at] == 0 && item.value[at + unit - 1] == 0; };
                 size_t end = 0;
                 while (end + unit <= item.value.size() && !isZero(end)) end += unit;
                 while (end + unit <= item.value.size() && isZero(end)) end += unit;
                 if (end + unit <= item.value.size())
                     report(item.offset + end, "zeros behind " + Described(item), "other bytes");
             }
         }
     }},
    {"HM-015", "A date is a day of the calendar and a time of the day, or all zero.", kAny | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set& set : metadata.sets)
             for (const InspectedItem& item : set.items)
                 if (const auto date = item.Timestamp(); date && !IsDate(*date))
                     report(item.offset, std::string(item.name) + " of the calendar", item.Text());
     }},
    {"HM-016", "The Preface has the operational pattern and the essence containers of the partition packs.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.preface == nullptr) return;
         for (const std::string_view name : {"OperationalPattern", "EssenceContainers"})
             if (const InspectedItem* item = FindItem(file.header.fields, name))
                 report.ExpectText(metadata.preface->items, name, item->Text());
     }},
    {"HM-017", "PrimaryPackage is the Source Package in OP-Atom files; OP-1b files name none.", kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.preface == nullptr || metadata.sources.empty()) return;
         const InspectedItem* item = metadata.preface->Item("PrimaryPackage");
         const std::string expected = "PrimaryPackage " + metadata.sources.front().set->Text("InstanceUID");
         if (file.layout == kOp1b) {
             if (item != nullptr) report(item->offset, "no PrimaryPackage", Described(*item));
         } else if (item == nullptr || Described(*item) != expected) {
             report(item == nullptr ? metadata.preface->offset : item->offset, expected,
                    item == nullptr ? "none" : Described(*item));
         }
     }},
    {"HM-018", "The Preface lists the schemes of the groups of descriptive metadata, in the order of their tracks.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.preface == nullptr) return;
         std::string expected;
         for (const Track& track : metadata.material.tracks) {
             const DescriptiveGroup* group = GroupOf(metadata, track);
             if (group == nullptr) continue;
             expected += (expected.empty() ? "" : ", ") +
                         TextOf(file.layout == kOp1b ? group->op1bScheme : group->opAtomScheme);
         }
         report.ExpectText(metadata.preface->items, "DMSchemes", "[" + expected + "]");
     }},
    {"HM-019",
     "Groups of descriptive metadata have their tracks: clip 101 and XML 1001, static; scene 102 and thumbnail 1002, "
     "of events.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Track& track : metadata.material.tracks) {
             const DescriptiveGroup* group = GroupOf(metadata, track);
             if (group == nullptr) continue;
             if (track.set->name != group->track)
                 report(track.set->offset, std::string(group->track) + " of " + std::string(group->framework),
                        std::string(track.set->name));
             report.Expect(track.set->items, "TrackID", group->trackID);
         }
     }},
    {"HM-046",
     "Segments of events have a duration and a start, that of a scene 0, that of a thumbnail 0 or more; of the "
     "sequences only that of the thumbnail has a duration, 1.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Track& track : metadata.material.tracks) {
             const DescriptiveGroup* group = GroupOf(metadata, track);
             if (group == nullptr) continue;
             const Set& segment = *track.Component("DMSegment");
             const bool events = group->track == "EventTrack";
             ExpectPresence(report, *track.sequence, "Duration", group->hasDuration);
             ExpectPresence(report, segment, "Duration", events);
             ExpectPresence(report, segment, "EventStartPosition", events);
             if (group->hasDuration) report.ExpectText(track.sequence->items, "Duration", "1");
             if (group->framework == "SceneFramework") report.ExpectText(segment.items, "EventStartPosition", "0");
             if (group->framework == "ThumbnailFramework" && segment.Number("EventStartPosition").value_or(0) < 0) {
                 const InspectedItem& start = *segment.Item("EventStartPosition");
                 report(start.offset, "EventStartPosition of a frame", Described(start));
             }
         }
     }},
    {"HM-020", "A thumbnail is of format 0 or 1.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set* set : metadata.Named("ThumbnailFramework")) {
             const InspectedItem* format = set->Item("ThumbnailFormat");
             if (format != nullptr && format->Unsigned().value_or(0) > 1)
                 report(format->offset, "ThumbnailFormat 0 or 1", Described(*format));
         }
     }},
    {"HM-021", "Tracks are numbered from 1, those of the Material Package and those of the Source Packages.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         int64_t material = 0, source = 0;
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             report.Expect(track.set->items, "TrackID", IsMaterial(metadata, package) ? ++material : ++source);
         });
     }},
    {"HM-022", "TrackNumber is 0 in the Material Package, and the end of the element key in Source Packages.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             const auto number = IsMaterial(metadata, package) ? 0 : ElementNumber(file, track.kind);
             if (number) report.Expect(track.set->items, "TrackNumber", *number);
         });
     }},
    {"HM-023",
     "Picture and ANC tracks run at the picture rate, which is that of a video standard, sound tracks at 48000/1 or "
     "96000/1, timecode tracks at the timecode rate.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const bool known = metadata.videoStd != 0;
         VisitTracks(metadata, [&](const Package&, const Track& track) {
             MXFRATIONALTag rate = known ? GetVideoEditRate(metadata.videoStd) : MXFRATIONALTag();
             if (track.kind == "TimecodeTrack") rate = GetTimecodeEditRate(metadata.videoStd);
             if (track.kind == "SoundTrack") rate = GetAudioEditRate(metadata.samplesPerSec);
             const InspectedItem* found = track.set->Item("EditRate");
             if (known || track.kind == "SoundTrack") {
                 report.Expect(track.set->items, "EditRate", rate);
             } else if (track.kind == "PictureTrack" && found != nullptr) {
                 report(found->offset, "EditRate of a video standard", Described(*found));
             }
         });
         for (const Set* set : metadata.Named("EventTrack"))
             if (known) report.Expect(set->items, "EditRate", GetVideoEditRate(metadata.videoStd));
     }},
    {"HM-024", "A sequence and its components are of one kind: timecode, picture, sound or data.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         VisitTracks(metadata, [&](const Package&, const Track& track) {
             const InspectedItem* definition = track.sequence->Item("DataDefinition");
             if (definition == nullptr) return;
             if (track.kind.empty() || track.kind == "DescriptiveMetadataTrack") {
                 report(definition->offset, "DataDefinition of timecode, picture, sound or data",
                        Described(*definition));
                 return;
             }
             for (const Set* component : track.components)
                 report.ExpectText(component->items, "DataDefinition", definition->Text());
         });
     }},
    {"HM-025", "A sequence lasts as long as its components together.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         VisitTracks(metadata, [&](const Package&, const Track& track) {
             uint64_t sum = 0;
             for (const Set* component : track.components)
                 sum += static_cast<uint64_t>(component->Number("Duration").value_or(0));
             report.Expect(track.sequence->items, "Duration", static_cast<int64_t>(sum));
         });
     }},
    {"HM-026",
     "All tracks last equally long, each in its own edit units; those of Source Packages less by the origin. Timecode "
     "runs through what earlier files hold too.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         const auto frames = file.HeaderFrames();
         if (!frames || metadata.videoStd == 0) return;
         const Set* filler = metadata.material.Track("PictureTrack")->Component("Filler");
         const int64_t before = filler == nullptr ? 0 : filler->Number("Duration").value_or(0);
         const int64_t origin = file.layout == kOp1b ? OriginFrames(metadata) : 0;
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             const int64_t clip = IsMaterial(metadata, package) ? *frames : WrappedDifference(*frames, origin);
             for (const Set* component : track.components) {
                 const int64_t duration = component->name == "TimecodeComponent" ? WrappedSum(before, clip)
                                          : component->name == "Filler"          ? before
                                                                                 : clip;
                 report.Expect(component->items, "Duration",
                               metadata.EditUnits(track.kind, std::max<int64_t>(duration, 0)));
             }
         });
     }},
    {"HM-027", "Origin is 0, but for frames in front of an OP-1b clip: all tracks of its Source Packages count them.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         const int64_t origin = file.layout == kOp1b ? std::max<int64_t>(OriginFrames(metadata), 0) : 0;
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             report.Expect(track.set->items, "Origin",
                           IsMaterial(metadata, package) ? 0 : metadata.EditUnits(track.kind, origin));
         });
     }},
    {"HM-028", "Timecode counts 24, 25 or 30 frames a second, and where it counts 25 it drops none.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const auto base = TimecodeBase(metadata);
         for (const Set* set : metadata.Named("TimecodeComponent")) {
             if (base) report.Expect(set->items, "RoundedTimecodeBase", *base);
             if (base == 25) report.ExpectText(set->items, "DropFrame", "false");
         }
     }},
    {"HM-029", "The timecode of a Source Package is that of the Material Package, later by the origin.",
     kOp1b | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const auto component = [](const Package& package) {
             const Track* track = package.Track("TimecodeTrack");
             return track == nullptr ? nullptr : track->Component("TimecodeComponent");
         };
         const Set* material = component(metadata.material);
         if (material == nullptr) return;
         for (const Package& source : metadata.sources) {
             const Set* set = component(source);
             if (set == nullptr) continue;
             const auto start = static_cast<uint64_t>(material->Number("StartTimecode").value_or(0));
             report.Expect(set->items, "StartTimecode",
                           static_cast<int64_t>(start + static_cast<uint64_t>(OriginFrames(metadata))));
             report.ExpectText(set->items, "DropFrame", material->Text("DropFrame"));
         }
     }},
    {"HM-030", "The source clips of a Source Package end the chain: package and track are 0.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             const Set* clip = track.Component("SourceClip");
             if (clip == nullptr || IsMaterial(metadata, package)) return;
             report.Expect(clip->items, "SourcePackageID", MXFUMIDTag());
             report.ExpectText(clip->items, "SourceTrackID", "0");
         });
     }},
    {"HM-031",
     "Source clips of the Material Package show a track of their kind in a Source Package. In OP-Atom files this is "
     "one "
     "of them; the others end the chain.",
     kOurs,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         size_t shown = 0, astray = 0;
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             const Set* clip = track.Component("SourceClip");
             if (clip == nullptr || !IsMaterial(metadata, package)) return;
             const InspectedItem* id = clip->Item("SourcePackageID");
             if (id == nullptr) return;
             const Track* source = Source(metadata, *clip);
             if (source != nullptr && source->kind == track.kind) {
                 ++shown;
             } else if (file.layout == kOp1b || id->Umid() != MXFUMIDTag() || clip->Number("SourceTrackID") != 0) {
                 ++astray;
                 report(id->offset, "a track of a Source Package of this file",
                        Described(*id) + ", track " + clip->Text("SourceTrackID"));
             }
         });
         if (file.layout == kOpAtom && shown != 1 && astray == 0 && metadata.material.set != nullptr)
             report(metadata.material.set->offset, "one source clip of this file", std::to_string(shown));
     }},
    {"HM-032",
     "Each Essence Container Data links the Source Package of its essence. IndexSID and BodySID are 1 and 2 in OP-Atom "
     "files; in OP-1b files they count from 101 and from 1.",
     kOurs | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.sources.empty()) return;
         const auto containers = metadata.Named("EssenceContainerData");
         const size_t apart = metadata.sources.size() - 1;  // packages of sound, which comes last
         for (size_t i = 0; i < containers.size(); ++i) {
             const size_t source = i + apart < containers.size() ? 0 : i + apart - containers.size() + 1;
             report.ExpectText(containers[i]->items, "LinkedPackageUID",
                               metadata.sources[source].set->Text("PackageUID"));
             const bool op1b = file.layout == kOp1b;
             report.Expect(containers[i]->items, "IndexSID", op1b ? kPictureIndexSID + i : uint64_t{1});
             report.Expect(containers[i]->items, "BodySID", op1b ? kPictureSID + i : uint64_t{2});
         }
     }},
    {"HM-043", "There is one Identification, and in the clip's descriptive metadata one participant and one person.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set& set : metadata.sets) {
             for (const std::string_view name : kListsOfOne) {
                 const InspectedItem* item = set.Item(name);
                 if (item != nullptr && item->Keys().size() != 1)
                     report(item->offset, std::string(name) + " of 1", std::to_string(item->Keys().size()));
             }
         }
     }},
    {"HM-044", "Packages, essence containers, tracks and components stand in the order in which they are listed.",
     kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (const Set& set : metadata.sets) {
             for (const std::string_view name : kListsInOrder) {
                 const InspectedItem* item = set.Item(name);
                 uint64_t before = 0;
                 for (const MXFKEYTag& uid : item == nullptr ? std::vector<MXFKEYTag>() : item->Keys()) {
                     const Set* target = metadata.Find(uid);
                     if (target == nullptr || target->name == "StaticTrack" || target->name == "EventTrack") continue;
                     if (target->offset < before)
                         report(item->offset, std::string(name) + " in the order of the file",
                                std::string(target->name) + " at " + TextOf(target->offset) + " behind that at " +
                                    TextOf(before));
                     before = target->offset;
                 }
             }
         }
     }},
    {"HM-045", "The tracks of a package come in the order timecode, picture, data, sound.", kOurs | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const Track* before = nullptr;
         VisitTracks(metadata, [&](const Package& package, const Track& track) {
             const auto* kind = std::ranges::find(kTrackOrder, track.kind);
             const bool first = before == nullptr || &package.tracks.front() == &track;
             if (!first && kind < std::ranges::find(kTrackOrder, before->kind))
                 report(track.set->offset, "a " + std::string(track.kind) + " in front",
                        "behind a " + std::string(before->kind));
             before = &track;
         });
     }},
    {"HM-033",
     "The clip lasts as long as its frames that are stored: in OP-Atom files of DV an even number of them, in OP-1b "
     "files less those behind the last that is shown.",
     kOurs,
     [](const File& file, const CheckReport& report) {
         auto stored = file.StoredFrames();
         const auto frames = file.HeaderFrames();
         if (!file.headerWhole || !stored || !frames) return;
         const bool dv = file.layout == kOpAtom && file.metadata.picture && IsDV(file.metadata.picture->compType);
         if (dv) *stored &= ~int64_t{1};
         const int64_t least =
             file.layout == kOp1b ? std::max<int64_t>(WrappedDifference(*stored, kMostRollOut), 0) : *stored;
         if (*frames >= least && *frames <= *stored) return;
         const Set* clip = file.metadata.material.Track("PictureTrack")->Component("SourceClip");
         const InspectedItem* item = clip->Item("Duration");
         report(item->offset, "Duration " + TextOf(*stored), Described(*item));
     }},
    {"HM-034", "ContainerDuration counts what is stored, in frames or samples.", kOurs,
     [](const File& file, const CheckReport& report) {
         auto stored = file.StoredFrames();
         const Metadata& metadata = file.metadata;
         if (!file.headerWhole || !stored || metadata.videoStd == 0) return;
         if (file.layout == kOpAtom && metadata.picture && IsDV(metadata.picture->compType)) *stored &= ~int64_t{1};
         for (const Set& set : metadata.sets) {
             const bool sound = set.name == "AES3Descriptor";
             report.Expect(set.items, "ContainerDuration", sound ? metadata.EditUnits("SoundTrack", *stored) : *stored);
         }
     }},
};

}  // namespace

std::span<const Rule> MetadataRules() { return kRules; }

}  // namespace kmxf
