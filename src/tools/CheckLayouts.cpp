#include <algorithm>
#include <string>

#include "core/Layout.h"
#include "tools/CheckRule.h"

// OA and OB: what stands where in OP-Atom and OP-1b files (docs/format.md, docs/format-op1b.md). RI: the random index.
namespace kmxf {

namespace {

constexpr uint64_t kHeaderAreaSize = kOpAtomHeaderSize;
constexpr uint64_t kOp1bAreaEnds[] = {kOp1bMetadataEnd, kOp1bXMLEnd, kOp1bHeaderSize};

using File = CheckedFile;
using Metadata = CheckedMetadata;
using Partition = CheckedPartition;

bool IsBody(const Partition& partition) { return !partition.IsHeader() && !partition.IsFooter(); }

// The name of the one element of an OP-Atom file.
std::string ElementName(const File& file) {
    if (file.IsSound()) return "AES3Element";
    return file.metadata.pictureDescriptor->name == "MPEGDescriptor" ? "AVCIntraElement" : "DVElement";
}

// The names of the first packets.
std::string NamesOf(std::span<const InspectedPacket> packets) {
    constexpr size_t kMostNames = 4;
    std::string text;
    for (const InspectedPacket& packet : packets.first(std::min(packets.size(), kMostNames))) {
        if (!text.empty()) text += ", ";
        text += packet.name.empty() ? KindName(packet.kind) : packet.name;
    }
    if (packets.size() > kMostNames) text += ", ...";
    return text.empty() ? "nothing" : text;
}

constexpr Rule kOpAtomRules[] = {
    {"OA-001", "Behind the sets the header partition has one index segment and, up to its end, one fill item.",
     kOpAtom | kWhileOpen,
     [](const File& file, const Metadata&, const CheckReport& report) {
         const auto& packets = file.header.packets;
         const auto end = std::ranges::find_if(packets, [](const InspectedPacket& packet) {
             return packet.kind != PacketKind::kPrimer && packet.kind != PacketKind::kSet;
         });
         const std::string found = NamesOf(std::span(packets).subspan(static_cast<size_t>(end - packets.begin())));
         if (found != "IndexTableSegment, Fill" && found != "IndexTableSegment")
             report(end == packets.end() ? file.header.end : end->offset, "IndexTableSegment, Fill", found);
     }},
    {"OA-002",
     "The body partition pack ends 24 bytes in front of 32768: there the value of the essence element begins.",
     kOpAtom | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (!IsBody(partition)) return;
         const uint64_t expected = file.runIn + kHeaderAreaSize - kElementHeadSize, found = partition.pack.End();
         if (found != expected) report(partition.pack.offset, "an end at " + TextOf(expected), "at " + TextOf(found));
     }},
    {"OA-003", "The file has one header, one body and one footer partition.", kOpAtom,
     [](const File& file, const CheckReport& report) {
         if (!file.damaged && file.partitions.size() != 3)
             report(file.current.pack.offset, "3 partitions", std::to_string(file.partitions.size()));
     }},
    {"OA-004", "The body partition holds the essence element and nothing else.", kOpAtom,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (!file.headerWhole || !IsBody(partition) || partition.damaged) return;
         const std::string expected = "1 " + ElementName(file);
         if (partition.Contents() != expected) report(partition.pack.End(), expected, partition.Contents());
     }},
    {"OA-005", "The essence has BodySID 2 and begins at BodyOffset 0.", kOpAtom | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (partition.elements == 0) return;
         report.ExpectText(partition.fields, "BodySID", "2");
         report.ExpectText(partition.fields, "BodyOffset", "0");
     }},
    {"OA-006", "The footer holds an index segment, of AVC-Intra two, and nothing else: no random index.", kOpAtom,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (!file.headerWhole || !partition.IsFooter() || partition.damaged) return;
         const bool two = !file.IsSound() && ElementName(file) == "AVCIntraElement";
         const std::string expected = two ? "2 IndexTableSegment" : "1 IndexTableSegment";
         if (partition.Contents() != expected) report(partition.pack.End(), expected, partition.Contents());
     }},
    {"OA-007",
     "The essence is a whole number of frames, those of AVC-Intra behind a block of 512 bytes, or of samples.", kOpAtom,
     [](const File& file, const CheckReport& report) {
         if (!file.headerWhole || !file.element) return;
         const Metadata& metadata = file.metadata;
         uint64_t unit = metadata.bytesPerSample, inFront = 0;
         if (!file.IsSound()) {
             if (!metadata.picture) return;
             unit = GetFrameDataSize(metadata.picture->videoStd, metadata.picture->compType);
             inFront = IsAVCI(metadata.picture->compType) ? 512 : 0;
         }
         const uint64_t size = file.ElementSize();
         if (unit == 0 || (size >= inFront && (size - inFront) % unit == 0)) return;
         report(file.element->offset,
                (inFront == 0 ? "" : "512 bytes and ") + ("a multiple of " + Counted(unit, "byte")),
                Counted(size, "byte"));
     }},
    {"OA-008", "There is one Source Package with one track, and one Essence Container Data.", kOpAtom | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         size_t tracks = 0;
         for (const CheckedPackage& package : metadata.sources) tracks += package.tracks.size();
         const auto text = [](size_t packages, size_t ofTracks, size_t containers) {
             return Counted(packages, "Source Package") + ", " + Counted(ofTracks, "track") + ", " +
                    std::to_string(containers) + " Essence Container Data";
         };
         const std::string found = text(metadata.sources.size(), tracks, metadata.Named("EssenceContainerData").size());
         if (found != text(1, 1, 1)) report(file.header.pack.offset, text(1, 1, 1), found);
     }},
};

// --- OP-1b ---

// The partitions of a group in their order: of each stream one with essence and one with its index.
std::optional<uint64_t> PlaceInGroup(const Partition& partition) {
    const auto bodySID = partition.Field("BodySID"), indexSID = partition.Field("IndexSID");
    if (bodySID.value_or(0) != 0) return 2 * (*bodySID - kPictureSID);
    if (indexSID.value_or(0) >= kPictureIndexSID) return 2 * (*indexSID - kPictureIndexSID) + 1;
    return std::nullopt;
}
std::string NameOfPlace(std::optional<uint64_t> place) {
    if (!place) return "neither essence nor index";
    return (*place % 2 == 0 ? "essence with BodySID " : "the index of BodySID ") +
           std::to_string(*place / 2 + kPictureSID);
}

// The place of ANC's index, behind which a group may end.
constexpr uint64_t kEndOfANC = 2 * (kANCSID - kPictureSID) + 1;

// What the partition should hold; nothing when it is of no stream, or when that cannot be told.
std::string ExpectedContents(const File& file, const Partition& partition) {
    const auto place = PlaceInGroup(partition);
    if (!place || !file.group.frames) return "";
    const std::string frames = std::to_string(*file.group.frames);
    if (*place % 2 != 0) {
        if (*place / 2 + kPictureSID != kPictureSID || partition.segments.empty()) return "1 IndexTableSegment";
        const uint64_t size = partition.segments.front().End() - partition.pack.offset;
        return size % 4 == 0 ? "1 IndexTableSegment" : "1 IndexTableSegment, 1 Fill";
    }
    const uint64_t bodySID = *place / 2 + kPictureSID;
    if (bodySID == kPictureSID) return frames + " AVCLongGOPElement";
    if (bodySID == kANCSID) return frames + " ANCElement, " + frames + " Fill";
    return "1 PCMBlockElement";
}

int64_t SamplesOf(const File& file, uint64_t frames) {
    return DurationToAudioSample(file.metadata.videoStd, static_cast<int64_t>(frames), kOp1bSamplesPerSec);
}

constexpr Rule kOp1bRules[] = {
    {"OB-001", "The header has 131072 bytes.", kOp1b | kWhileOpen,
     [](const File& file, const Metadata&, const CheckReport& report) {
         const uint64_t size = file.header.end - file.header.pack.offset;
         if (size != kOp1bAreaEnds[2])
             report(file.header.end, Counted(kOp1bAreaEnds[2], "byte"), Counted(size, "byte"));
     }},
    {"OB-002",
     "The header has three areas: metadata up to 32768, XML up to 114688, thumbnail up to 131072. What is left of an "
     "area "
     "is one fill item at its end.",
     kOp1b | kWhileOpen,
     [](const File& file, const Metadata&, const CheckReport& report) {
         if (file.header.end - file.header.pack.offset != kOp1bAreaEnds[2]) return;  // a rule of its own
         const uint64_t* area = kOp1bAreaEnds;
         for (const InspectedPacket& packet : file.header.packets) {
             const uint64_t end = file.header.pack.offset + *area;
             if (packet.End() > end || (packet.kind == PacketKind::kFill && packet.End() != end)) {
                 report(packet.offset, "an area that ends at " + TextOf(end),
                        std::string(packet.name) + " up to " + TextOf(packet.End()));
                 return;  // behind it, nothing is in its place
             }
             if (packet.End() == end) ++area;
         }
     }},
    {"OB-003",
     "The partitions of a group stand in their order: picture, ANC and the channels of sound, each with its index "
     "behind "
     "it.",
     kOp1b | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (partition.IsHeader() || !file.previous || file.previous->damaged) return;
         const auto before = file.previous->IsHeader() ? std::nullopt : PlaceInGroup(*file.previous);
         const auto place = partition.IsFooter() ? 0 : PlaceInGroup(partition);
         const bool ended = before && *before % 2 != 0 && *before >= kEndOfANC;
         const bool fits = !before ? place == 0
                           : ended ? place && *place % 2 == 0 && (*place == 0 || *place > *before)
                                   : place == *before + 1 && !partition.IsFooter();
         if (fits) return;
         const uint64_t expected = !before ? 0 : *before + 1;
         report(partition.pack.offset, NameOfPlace(expected), partition.IsFooter() ? "the footer" : NameOfPlace(place));
     }},
    {"OB-004",
     "A partition holds the elements of its stream, as many as the group has frames, of sound one; or one index "
     "segment, "
     "of pictures with a fill item where pack and segment are no multiple of 4 bytes.",
     kOp1b | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (!IsBody(partition) || partition.damaged) return;
         const std::string expected = ExpectedContents(file, partition);
         if (!expected.empty() && partition.Contents() != expected)
             report(partition.pack.End(), expected, partition.Contents());
     }},
    {"OB-005", "A group has the frames that belong to the standard; the last may have fewer.", kOp1b | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         const uint32_t most = VideoStandardToPartitionFrame(file.metadata.videoStd);
         if (most == 0 || partition.IsHeader()) return;
         const bool begins = PlaceInGroup(partition) == 0 && !partition.IsFooter();
         const auto& frames = begins ? file.groupBefore.frames : file.group.frames;
         const bool tooMany = !begins && partition.IsFooter() && frames && *frames > most;
         const bool notFull = begins && frames && *frames != most && file.groupBefore.number > 0;
         if (tooMany || notFull)
             report(partition.pack.offset, Counted(most, "frame") + " in front", Counted(*frames, "frame"));
     }},
    {"OB-006", "Picture elements are padded to a multiple of 4 bytes.", kOp1b | kWhileOpen,
     [](const File&, const InspectedPacket& packet, const CheckReport& report) {
         if (packet.name == "AVCLongGOPElement" && packet.length % 4 != 0)
             report(packet.offset, "a multiple of 4 bytes", Counted(packet.length, "byte"));
     }},
    {"OB-007", "An ANC element has 512 bytes with the fill item behind it.", kOp1b | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (partition.damaged) return;
         const auto& packets = partition.packets;
         for (size_t i = 0; i + 1 < packets.size(); ++i) {
             if (packets[i].name != "ANCElement" || packets[i + 1].name != "Fill") continue;
             const uint64_t size = packets[i + 1].End() - packets[i].offset;
             if (size != kANCElementSize) report(packets[i].offset, "512 bytes", Counted(size, "byte"));
         }
     }},
    {"OB-008", "The sound of a group is as long as its frames.", kOp1b | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         const Metadata& metadata = file.metadata;
         if (!file.headerWhole || partition.damaged || metadata.videoStd == 0 || !file.group.first ||
             !file.group.frames)
             return;
         for (const InspectedPacket& packet : partition.packets) {
             if (packet.name != "PCMBlockElement") continue;
             const int64_t samples = WrappedDifference(SamplesOf(file, *file.group.first + *file.group.frames),
                                                       SamplesOf(file, *file.group.first));
             const uint64_t expected = static_cast<uint64_t>(samples) * metadata.bytesPerSample;
             if (packet.length != expected)
                 report(packet.offset, Counted(expected, "byte"), Counted(packet.length, "byte"));
         }
     }},
    {"OB-009",
     "BodyOffset is the place of the group in its stream, which for pictures and ANC counts all bytes, for sound those "
     "of "
     "the samples.",
     kOp1b | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         const auto bodySID = partition.Field("BodySID").value_or(0);
         const auto& first = file.group.first;
         if (bodySID == kPictureSID && file.pictureBytes)
             report.Expect(partition.fields, "BodyOffset", *file.pictureBytes);
         if (bodySID == kANCSID && first) report.Expect(partition.fields, "BodyOffset", kANCElementSize * *first);
         if (bodySID >= kFirstSoundSID && first && file.metadata.videoStd != 0)
             report.Expect(partition.fields, "BodyOffset",
                           static_cast<uint64_t>(SamplesOf(file, *first)) * file.metadata.bytesPerSample);
     }},
    {"OB-010", "An index partition is a multiple of 4 bytes long.", kOp1b | kWhileOpen,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (!IsBody(partition) || partition.damaged || partition.segments.empty()) return;
         const uint64_t size = partition.end - partition.pack.offset;
         if (size % 4 != 0) report(partition.pack.offset, "a multiple of 4 bytes", Counted(size, "byte"));
     }},
    {"OB-011", "The footer holds index segments, and the random index pack.", kOp1b,
     [](const File&, const Partition& partition, const CheckReport& report) {
         if (!partition.IsFooter() || partition.damaged) return;
         const bool fits = std::ranges::all_of(partition.counts, [](const auto& count) {
             return count.first == "IndexTableSegment" || count.first == "RandomIndexPack";
         });
         if (!fits) report(partition.pack.End(), "IndexTableSegment, RandomIndexPack", partition.Contents());
     }},
    {"OB-012",
     "There are an Essence Container Data, a track of the Material Package and one of a Source Package for the "
     "picture, "
     "ANC and each channel of sound, and a timecode track in the Material Package and the first Source Package.",
     kOp1b | kWhileOpen,
     [](const File& file, const Metadata& metadata, const CheckReport& report) {
         if (metadata.material.set == nullptr || metadata.sources.empty()) return;
         const size_t channels = metadata.soundDescriptors.size(),
                      containers = metadata.Named("EssenceContainerData").size();
         const auto text = [](size_t timecodes, size_t pictures, size_t anc, size_t sounds) {
             return Counted(timecodes, "timecode track") + ", " + Counted(pictures, "picture track") + ", " +
                    Counted(anc, "data track") + ", " + Counted(sounds, "sound track");
         };
         const auto found = [&](std::span<const CheckedPackage> packages) {
             const auto count = [&](std::string_view kind) {
                 size_t tracks = 0;
                 for (const CheckedPackage& package : packages) tracks += package.TracksOf(kind).size();
                 return tracks;
             };
             return text(count("TimecodeTrack"), count("PictureTrack"), count("DataTrack"), count("SoundTrack"));
         };
         const std::string expected = text(1, 1, 1, channels);
         const std::string material = found({&metadata.material, 1}), sources = found(metadata.sources);
         if (material != expected) report(metadata.material.set->offset, expected, material);
         if (sources != expected) report(metadata.sources.front().set->offset, expected, sources);
         if (containers != channels + 2)
             report(file.header.pack.offset, std::to_string(channels + 2) + " Essence Container Data",
                    std::to_string(containers));
     }},
    {"OB-013",
     "Either there is one Source Package, with the descriptor of the picture, or the sound of each channel has one of "
     "its "
     "own with its descriptor, and the first has one that lists those of picture and ANC.",
     kOp1b | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         const size_t sources = metadata.sources.size(), channels = metadata.soundDescriptors.size();
         const bool players = !metadata.Named("MultipleDescriptor").empty();
         const size_t expected = players ? 1 + channels : 1;
         if (sources == 0) return;
         if (sources != expected)
             report(metadata.sources.back().set->offset, Counted(expected, "Source Package"), std::to_string(sources));
         for (size_t i = 0; i < sources; ++i) {
             const InspectedItem* item = metadata.sources[i].set->Item("Descriptor");
             const auto key = metadata.sources[i].set->Key("Descriptor");
             const CheckedSet* descriptor = key ? metadata.Find(*key) : nullptr;
             if (descriptor == nullptr) continue;
             const std::string_view kind = i > 0 ? "AES3Descriptor" : players ? "MultipleDescriptor" : "CDCIDescriptor";
             if (descriptor->name != kind) report(item->offset, std::string(kind), std::string(descriptor->name));
         }
         for (const CheckedSet* set : metadata.Named("MultipleDescriptor")) {
             const InspectedItem* item = set->Item("FileDescriptors");
             std::string found;
             for (const MXFKEYTag& uid : item == nullptr ? std::vector<MXFKEYTag>() : item->Keys()) {
                 const CheckedSet* descriptor = metadata.Find(uid);
                 found +=
                     (found.empty() ? "" : ", ") + std::string(descriptor == nullptr ? "nothing" : descriptor->name);
             }
             if (item != nullptr && found != "CDCIDescriptor, ANCDataDescriptor")
                 report(item->offset, "CDCIDescriptor, ANCDataDescriptor", found.empty() ? "none" : found);
         }
     }},
    {"OB-014", "The UMIDs of Source Packages of sound count up from that of the first, in their last instance byte.",
     kOp1b | kWhileOpen,
     [](const File&, const Metadata& metadata, const CheckReport& report) {
         for (size_t i = 1; i < metadata.sources.size(); ++i) {
             const InspectedItem* first = metadata.sources[0].set->Item("PackageUID");
             auto umid = first == nullptr ? std::nullopt : first->Umid();
             if (!umid) return;
             umid->bytes[15] = static_cast<uint8_t>(umid->bytes[15] + i);
             report.Expect(metadata.sources[i].set->items, "PackageUID", *umid);
         }
     }},
};

constexpr Rule kRandomIndexRules[] = {
    {"RI-001", "A file with a random index pack ends with it; an OP-1b file has one.", kOp1b | kOther,
     [](const File& file, const CheckReport& report) {
         const bool there = file.randomIndex.has_value();
         if (there ? file.lastPacket->offset == file.randomIndex->offset : file.layout == kOther) return;
         report(there ? file.randomIndex->offset : file.lastPacket->End(), "a random index pack at the end of the file",
                there ? "other packets behind it" : "none");
     }},
    {"RI-002", "The random index pack ends with its own size.", kOp1b | kOther,
     [](const File& file, const CheckReport& report) {
         if (!file.randomIndex || !file.randomIndex->whole) return;
         const uint64_t size = file.randomIndex->End() - file.randomIndex->offset;
         if (file.overallLength != size)
             report(file.randomIndex->End() - 4, "OverallLength " + TextOf(size),
                    "OverallLength " + TextOf(file.overallLength));
     }},
    {"RI-003", "The random index has the place and the BodySID of every partition, in their order.", kOp1b | kOther,
     [](const File& file, const CheckReport& report) {
         if (!file.randomIndex || !file.randomIndex->whole) return;
         const auto text = [](const std::vector<MXF_PARTITION_INFOTag>& entries, size_t i) {
             if (i >= entries.size()) return std::string("no entry");
             return "BodySID " + TextOf(uint64_t{entries[i].bodySID}) + " at " + TextOf(uint64_t{entries[i].offset});
         };
         const auto& expected = file.partitions;
         const auto& found = file.randomIndexEntries;
         const auto [e, f] = std::ranges::mismatch(expected, found);
         if (e == expected.end() && f == found.end()) return;
         // Behind one entry that is missing or too many, all others differ.
         const auto i = static_cast<size_t>(e - expected.begin());
         report(file.randomIndex->ValueOffset() + 12 * i, text(expected, i), text(found, i));
     }},
};

}  // namespace

std::span<const Rule> OpAtomRules() { return kOpAtomRules; }
std::span<const Rule> Op1bRules() { return kOp1bRules; }
std::span<const Rule> RandomIndexRules() { return kRandomIndexRules; }

}  // namespace kmxf
