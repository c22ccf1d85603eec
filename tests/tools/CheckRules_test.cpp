#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "support/TestData.h"
#include "tools/CheckFiles.h"

// For each rule a file that breaks it, made from a good one by the least change, and all that is found in it.
namespace kmxf::test {
namespace {

using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

// --- good files, each recorded once ---

constexpr auto kDescribed = [](CCreateMXFBase& writer) { writer.SetDescriptiveMetadata(TestMetadata()); };

const Bytes& DV() {
    static const Bytes kFile = Record(AtomFile{.with = kDescribed});
    return kFile;
}
Bytes DVSound() { return Record(AtomFile{.compType = 0, .with = kDescribed}); }
Bytes DVWithoutSound() { return Record(AtomFile{.clipType = 0x100}); }
const Bytes& AVCIntra() {
    static const Bytes kFile = Record(AtomFile{.videoStd = VIDEO_STD_50P, .compType = COMP_TYPE_AVCI50_720});
    return kFile;
}
Bytes Sound(uint32_t channel = 0) {
    return Record(AtomFile{.compType = 0, .clipType = 0x102, .channel = channel, .bytesPerSample = 3});
}
Bytes Picture() { return Record(AtomFile{.clipType = 0x102}); }

// Two groups, of 60 frames and of one.
Bytes RecordOp1b(bool players, uint8_t channels) {
    return Record(Op1bClip{.videoStd = VIDEO_STD_29_97P,
                           .compType = COMP_TYPE_LONGG25_1080,
                           .channels = channels,
                           .frames = 61,
                           .players = players});
}
const Bytes& Op1b() {
    static const Bytes kFile = RecordOp1b(true, 2);
    return kFile;
}
const Bytes& Strict() {
    static const Bytes kFile = RecordOp1b(false, 2);
    return kFile;
}

WalkedPacket Last(const Bytes& file, std::string_view name) { return Named(Walk(file), name).back(); }

// Two packets that follow each other change places.
Bytes Swapped(Bytes file, const WalkedPacket& first, const WalkedPacket& second) {
    const auto at = [&](uint64_t offset) { return file.begin() + static_cast<std::ptrdiff_t>(offset); };
    std::rotate(at(first.offset), at(second.offset), at(second.End()));
    return file;
}

constexpr const char* kFill = "060E2B34010101020301021001000000";
// A packet in front of a fill item, which makes room for it.
Bytes InFrontOf(const Bytes& file, const WalkedPacket& fill, const std::string& packet) {
    const uint64_t size = Hex(packet).size();
    return At(At(file, fill.offset, packet), fill.offset + size, kFill + ("83" + Number(fill.length - size, 3)));
}

std::string TextOf(const WalkedPacket& packet, std::string_view item) { return packet.Item(item)->Text(); }

Bytes Joined(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct BadFile {
    const char* rule;
    std::function<std::vector<Bytes>()> make;
    std::vector<std::string> findings;
};
std::vector<Bytes> One(Bytes file) { return {std::move(file)}; }

// clang-format off
const std::vector<BadFile>& BadFiles() {
static const std::vector<BadFile> kFiles = {
{"KLV-001", [] { return One(Bytes(100)); },
 {"KLV-001 0: expected a partition pack, found none in 100 bytes"}},
{"KLV-002", [] { return One(Joined(Bytes(11, 0x20), DV())); },
 {"KLV-002 0: expected HeaderPartitionPack, found run-in of 11 bytes"}},
{"KLV-002", [] { return One(Joined(Hex(std::string(kFill) + "83000000"), DV())); },
 {"KLV-002 0: expected HeaderPartitionPack, found Fill of 20 bytes",
  "PP-007 48: expected ThisPartition 20, found ThisPartition 0",
  "PP-001 64: expected the place of a footer partition, found FooterPartition 272768: no footer partition stands there",
  "OA-002 32640: expected an end at 32744, found at 32764",
  "PP-007 32668: expected ThisPartition 32640, found ThisPartition 32620",
  "PP-008 32676: expected PreviousPartition 20, found PreviousPartition 0"}},
{"KLV-003", [] { return One(At(DV(), Nth(DV(), "Fill").offset, std::string(16, '0'))); },
 {"KLV-003 7058: expected a packet, found 25562 bytes of none"}},
{"KLV-004", [] { return One(At(DV(), Nth(DV(), "Fill").offset + 17, Number(Nth(DV(), "Fill").length + 8, 3))); },
 {"KLV-004 7058: expected 25550 bytes, found 25542 bytes"}},
{"KLV-005", [] { return One(At(DV(), Nth(DV(), "Fill").offset + 16, "84" + Number(Nth(DV(), "Fill").length - 1, 4))); },
 {"KLV-005 7074: expected 4 bytes, found 5 bytes"}},
{"KLV-006", [] { return One(At(Sound(), 32760, "84" + Number(Nth(Sound(), "AES3Element").length + 3, 4))); },
 {"KLV-006 32760: expected 8 bytes, found 5 bytes"}},
{"KLV-007", [] { return One(InFrontOf(Op1b(), Nth(Op1b(), "Fill", 1), "060E2B34030101010101010101010101 83000002 1122")); },
 {"KLV-007 33067: expected a known key, found 060E2B34030101010101010101010101"}},
{"KLV-008", [] { return One(At(Op1b(), Nth(Op1b(), "Fill").offset + 7, "01")); },
 {"KLV-008 8470: expected 060E2B34010101020301021001000000, found 060E2B34010101010301021001000000"}},
{"PP-001", [] { return One(With(DV(), "HeaderPartitionPack", 0, "FooterPartition", "0000000000000000")); },
 {"PP-001 44: expected the place of a footer partition, found FooterPartition 0: the recording was cut off"}},
{"PP-001", [] { Bytes file = DV(); file.resize(100000); return One(file); },
 {"PP-001 44: expected the place of a footer partition, found FooterPartition 272768: the file ends at 100000"}},
{"PP-001", [] { return One(At(DV(), Nth(DV(), "FooterPartitionPack").offset + 13, "03")); },
 {"PP-001 44: expected the place of a footer partition, found FooterPartition 272768: no footer partition stands there"}},
{"PP-001", [] { Bytes file = DV(); file.resize(file.size() - 120); return One(file); },
 {"PP-001 44: expected the place of a footer partition, found FooterPartition 272768: it is cut off"}},
{"PP-002", [] { return One(With(DV(), "BodyPartitionPack", 0, "Status", "02")); },
 {"PP-002 32634: expected Status closed, complete, found Status closed, incomplete"}},
{"PP-003", [] { return One(With(DV(), "BodyPartitionPack", 0, "MinorVersion", "0002")); },
 {"PP-003 32642: expected MinorVersion 3, found MinorVersion 2"}},
{"PP-004", [] { return One(With(DV(), "FooterPartitionPack", 0, "KAGSize", "00000200")); },
 {"PP-004 272792: expected KAGSize 1, found KAGSize 512"}},
{"PP-005", [] { return One(With(DV(), "BodyPartitionPack", 0, "EssenceContainers", "00000002")); },
 {"PP-005 32720: expected 120 bytes for 2 labels of 16 bytes, found 104 bytes, labels of 16"}},
{"PP-006", [] { return One(Joined(DV(), Hex("060E2B34020501010D01020101030400 83000068"
    "00010003 00000001 0000000000042A60 0000000000042980 0000000000042980 0000000000000000 0000000000000000 00000000"
    "0000000000000000 00000000 060E2B34040101020D01020110020000 00000001 00000010 060E2B34040101010D01030102024002"))); },
 {"PP-006 272768: expected BodyPartitionPack, found FooterPartitionPack",
  "PP-006 272992: expected FooterPartitionPack, found BodyPartitionPack",
  "OA-002 272992: expected an end at 32744, found at 273116",
  "OA-003 272992: expected 3 partitions, found 4",
  "OA-004 273116: expected 1 DVElement, found nothing"}},
{"PP-007", [] { return One(With(DV(), "BodyPartitionPack", 0, "ThisPartition", "0000000000007F00")); },
 {"PP-007 32648: expected ThisPartition 32620, found ThisPartition 32512"}},
{"PP-008", [] { return One(With(DV(), "BodyPartitionPack", 0, "PreviousPartition", "0000000000000001")); },
 {"PP-008 32656: expected PreviousPartition 0, found PreviousPartition 1"}},
{"PP-009", [] { return One(With(DV(), "BodyPartitionPack", 0, "FooterPartition", "0000000000000000")); },
 {"PP-009 32664: expected FooterPartition 272768, found FooterPartition 0"}},
{"PP-010", [] { return One(With(DV(), "BodyPartitionPack", 0, "OperationalPattern", "060E2B34040101020D01020110030000")); },
 {"PP-010 32704: expected OperationalPattern 060E2B34040101020D01020110020000, found OperationalPattern 060E2B34040101020D01020110030000"}},
{"PP-011", [] { return One(At(DV(), Nth(DV(), "FooterPartitionPack").End() - 1, "01")); },
 {"PP-011 272868: expected EssenceContainers [060E2B34040101010D01030102024002], found EssenceContainers [060E2B34040101010D01030102024001]"}},
{"PP-012", [] { return One(With(DV(), "HeaderPartitionPack", 0, "HeaderByteCount", "0000000000000001")); },
 {"PP-012 52: expected HeaderByteCount 6834, found HeaderByteCount 1"}},
{"PP-013", [] { return One(With(DV(), "FooterPartitionPack", 0, "IndexByteCount", "0000000000000065")); },
 {"PP-013 272828: expected IndexByteCount 100, found IndexByteCount 101"}},
{"PP-014", [] { return One(With(DV(), "FooterPartitionPack", 0, "IndexSID", "00000002")); },
 {"PP-014 272836: expected IndexSID 1, found IndexSID 2"}},
{"PP-015", [] { return One(With(DV(), "FooterPartitionPack", 0, "BodySID", "00000002")); },
 {"PP-015 272848: expected BodySID 0, found BodySID 2"}},
{"PP-016", [] { return One(With(DV(), "FooterPartitionPack", 0, "BodyOffset", "0000000000000001")); },
 {"PP-016 272840: expected BodyOffset 0, found BodyOffset 1"}},
{"HM-001", [] { return One(At(Op1b(), Nth(Op1b(), "PrimerPack").offset + 13, "7F")); },
 {"KLV-007 156: expected a known key, found 060E2B34020501010D010201017F0100",
  "HM-001 156: expected PrimerPack, found dark"}},
{"HM-002", [] { return One(At(DV(), Nth(DV(), "PrimerPack").offset + 28 + 71 * 18 + 17, "55")); },
 {"HM-002 1430: expected 3205 060E2B34010101010401050108000000, found 3205 060E2B34010101010401050108000055"}},
{"HM-002", [] { return One(With(DV(), "PrimerPack", 0, "EntryCount", "00000075")); },
 {"HM-002 124: expected 118 entries, found 117"}},
{"HM-002", [] { return One(With(DV(), "PrimerPack", 0, "EntryCount", "7F000076")); },
 {"HM-002 124: expected 118 entries, found 2130706550"}},
{"HM-003", [] { return One(At(DV(), Nth(DV(), "ClipFramework").Item("TakeNumber")->offset - 4, "9999")); },
 {"HM-005 4665: expected InstanceUID, FrameworkLanguageCode, ClipKind, ContactsListReference, ProjectReference, Participants, TakeNumber, found InstanceUID, FrameworkLanguageCode, ClipKind, ContactsListReference, ProjectReference, Participants",
  "HM-003 4844: expected a tag of the primer pack, found 9999"}},
{"HM-004", [] { return One(At(DV(), Nth(DV(), "ClipFramework").Item("TakeNumber")->offset - 4, "3D0A")); },
 {"HM-005 4665: expected InstanceUID, FrameworkLanguageCode, ClipKind, ContactsListReference, ProjectReference, Participants, TakeNumber, found InstanceUID, FrameworkLanguageCode, ClipKind, ContactsListReference, ProjectReference, Participants",
  "HM-004 4844: expected an item of ClipFramework, found 3D0A BlockAlign"}},
{"HM-005", [] { return One(At(At(DV(), Nth(DV(), "MaterialPackage").Item("PackageCreationDate")->offset - 4, "4404"),
                              Nth(DV(), "MaterialPackage").Item("PackageModifiedDate")->offset - 4, "4405")); },
 {"HM-005 2874: expected InstanceUID, PackageUID, PackageName, PackageCreationDate, PackageModifiedDate, PackageTracks, found InstanceUID, PackageUID, PackageName, PackageModifiedDate, PackageCreationDate, PackageTracks"}},
{"HM-006", [] { return One(At(Op1b(), Nth(Op1b(), "XMLFramework").Item("XMLType")->offset - 4, "A00100020000A0020005")); },
 {"HM-006 33056: expected 1 byte of XMLType, found 2 bytes"}},
{"HM-007", [] { return One(With(DV(), "CDCIDescriptor", 0, "SubDescriptors", "0000000000000011")); },
 {"HM-007 6950: expected SubDescriptors of 0 x 16 bytes, found 0 x 17 bytes"}},
{"HM-008", [] { return One(At(Op1b(), Nth(Op1b(), "XMLFramework").Item("XMLData")->offset - 2, "0007")); },
 {"HM-008 33061: expected 7 bytes, found 6 bytes"}},
{"HM-008", [] { return One(At(Op1b(), Nth(Op1b(), "XMLFramework").Item("XMLData")->offset - 2, "0005")); },
 {"HM-008 33066: expected an item, found 1 byte"}},
{"HM-009", [] { return One(With(Strict(), "AES3Descriptor", 1, "InstanceUID",
    TextOf(Nth(Strict(), "AES3Descriptor"), "InstanceUID"))); },
 {"HM-009 7911: expected an InstanceUID of its own, found that of AES3Descriptor at 7728"}},
{"HM-010", [] { return One(With(DV(), "Participant", 0, "ParticipantPersons",
    "0000000100000010" + TextOf(Nth(DV(), "Project"), "InstanceUID"))); },
 {"HM-010 5586: expected ParticipantPersons of Person, found Project"}},
{"HM-010", [] { return One(At(DV(), Nth(DV(), "Person").offset + 14, "7E")); },
 {"HM-010 4894: expected ContactsListPersons of Person, found an unknown set 060E2B34025301010D010401011A7E00",
  "HM-010 5586: expected ParticipantPersons of Person, found an unknown set 060E2B34025301010D010401011A7E00",
  "KLV-007 5610: expected a known key, found 060E2B34025301010D010401011A7E00",
  "HM-012 5918: expected Person, found EventTrack"}},
{"HM-010", [] { const Bytes file = Op1b();
                return One(With(file, "SourcePackage", 2, "Descriptor", TextOf(Nth(file, "AES3Descriptor"), "InstanceUID"))); },
 {"HM-011 7359: expected a reference to AES3Descriptor, found none",
  "HM-010 8126: expected Descriptor of its own, found that of SourcePackage at 7518"}},
{"HM-011", [] { return One(InFrontOf(Op1b(), Nth(Op1b(), "Fill", 1),
    "060E2B34025301010D01010101010900 83000034 3C0A0010 0102030405060708090A0B0C0D0E0F10"
    "02010010 060E2B34040101010103020201000000 02020008 0000000000000001")); },
 {"HM-011 33067: expected a reference to Filler, found none",
  "HM-012 33067: expected EventTrack, the end of the metadata, found Filler",
  "HM-012 33139: expected SourceClip, found Fill"}},
{"HM-012", [] { return One(Swapped(DV(), Nth(DV(), "Project"), Nth(DV(), "Participant"))); },
 {"HM-012 4918: expected Project, found Participant",
  "HM-012 5130: expected Person, found Project",
  "HM-012 5610: expected Participant, found Person"}},
{"HM-013", [] { return One(With(DV(), "Preface", 0, "Version", "0102")); },
 {"HM-013 2332: expected Version 1.3, found Version 1.2"}},
{"HM-013", [] { const Bytes file = Op1b(); const WalkedPacket thumbnail = Nth(file, "EventTrack");
                const auto sequences = Named(Walk(file), "Sequence");
                const auto its = std::ranges::find_if(sequences, [&](const auto& each) { return each.offset > thumbnail.offset; });
                return One(At(file, its->Item("DataDefinition")->offset, "060E2B34040101010103020210000001")); },
 {"HM-013 114820: expected DataDefinition 060E2B34040101010103020110000000, found DataDefinition 060E2B34040101010103020210000001"}},
{"HM-014", [] { return One(At(DV(), Nth(DV(), "MaterialPackage").Item("PackageName")->offset + 399, "41")); },
 {"HM-014 3352: expected zeros behind PackageName A001C007, found other bytes"}},
{"HM-015", [] { return One(With(DV(), "Identification", 0, "ModificationDate", "07E6021D")); },
 {"HM-015 2662: expected ModificationDate of the calendar, found 2022-02-29T03:04:05"}},
{"HM-016", [] { return One(With(DV(), "Preface", 0, "OperationalPattern", "060E2B34040101020D01020110030000")); },
 {"HM-016 2406: expected OperationalPattern 060E2B34040101020D01020110020000, found OperationalPattern 060E2B34040101020D01020110030000"}},
{"HM-017", [] { return One(With(DV(), "Preface", 0, "PrimaryPackage", TextOf(Nth(DV(), "MaterialPackage"), "InstanceUID"))); },
 {"HM-017 2338: expected PrimaryPackage 00000000000040008000000000000007, found PrimaryPackage 00000000000040008000000000000006"}},
{"HM-018", [] { return One(With(DV(), "Preface", 0, "DMSchemes", "0000000200000010060E2B34040101040D01040101020301"
                                                                "060E2B34040101040D01040101020201")); },
 {"HM-018 2454: expected DMSchemes [060E2B34040101040D01040101020201, 060E2B34040101040D01040101020301], found DMSchemes [060E2B34040101040D01040101020301, 060E2B34040101040D01040101020201]"}},
{"HM-019", [] { return One(With(DV(), "StaticTrack", 0, "TrackID", "00000067")); },
 {"HM-019 4465: expected TrackID 101, found TrackID 103"}},
{"HM-019", [] { return One(At(DV(), Nth(DV(), "StaticTrack").offset + 14, "39")); },
 {"HM-005 4421: expected InstanceUID, TrackID, TrackNumber, EditRate, Sequence, found InstanceUID, TrackID, TrackNumber, Sequence",
  "HM-019 4421: expected StaticTrack of ClipFramework, found EventTrack"}},
{"HM-019", [] { return One(At(Op1b(), Nth(Op1b(), "EventTrack").offset + 14, "3A")); },
 {"HM-019 114688: expected EventTrack of ThumbnailFramework, found StaticTrack",
  "HM-004 114744: expected an item of StaticTrack, found 4B01 EditRate"}},
{"HM-020", [] { return One(With(Op1b(), "ThumbnailFramework", 0, "ThumbnailFormat", "02")); },
 {"HM-020 115024: expected ThumbnailFormat 0 or 1, found ThumbnailFormat 2"}},
{"HM-021", [] { return One(With(DV(), "Track", 1, "TrackID", "00000009")); },
 {"HM-021 3809: expected TrackID 2, found TrackID 9"}},
{"HM-022", [] { return One(With(DV(), "Track", 3, "TrackNumber", "18010200")); },
 {"HM-022 6481: expected TrackNumber 402719233, found TrackNumber 402719232"}},
{"HM-023", [] { return One(With(DV(), "Track", 0, "EditRate", "0000EA60")); },
 {"HM-023 3530: expected EditRate 30000/1001, found EditRate 60000/1001"}},
{"HM-023", [] { return One(With(Sound(), "Track", 1, "EditRate", "00007531")); },
 {"HM-023 3777: expected EditRate of a video standard, found EditRate 30001/1001"}},
{"HM-024", [] { return One(With(DV(), "SourceClip", 0, "DataDefinition", "060E2B34040101010103020203000000")); },
 {"HM-024 4009: expected DataDefinition 060E2B34040101010103020201000000, found DataDefinition 060E2B34040101010103020203000000"}},
{"HM-025", [] { return One(With(DV(), "Sequence", 1, "Duration", "0000000000000003")); },
 {"HM-025 3929: expected Duration 2, found Duration 3"}},
{"HM-026", [] { return One(With(With(DV(), "Sequence", 2, "Duration", "0000000000000C80"),
                                "SourceClip", 1, "Duration", "0000000000000C80")); },
 {"HM-026 4369: expected Duration 3204, found Duration 3200"}},
{"HM-027", [] { return One(With(DV(), "Track", 3, "Origin", "0000000000000001")); },
 {"HM-027 6501: expected Origin 0, found Origin 1"}},
{"HM-028", [] { return One(With(AVCIntra(), "TimecodeComponent", 0, "DropFrame", "01")); },
 {"HM-028 3700: expected DropFrame false, found DropFrame true"}},
{"HM-029", [] { return One(With(Op1b(), "TimecodeComponent", 1, "StartTimecode", "0000000000000000")); },
 {"HM-029 5971: expected StartTimecode 107892, found StartTimecode 0"}},
{"HM-030", [] { return One(With(DV(), "SourceClip", 2, "SourceTrackID", "00000001")); },
 {"HM-030 6753: expected SourceTrackID 0, found SourceTrackID 1"}},
{"HM-031", [] { return One(With(DV(), "SourceClip", 0, "SourceTrackID", "00000002")); },
 {"HM-031 4053: expected a track of a Source Package of this file, found SourcePackageID 060A2B340101010501010F201300000000000000000000000000000000000001, track 2"}},
{"HM-032", [] { return One(With(DV(), "EssenceContainerData", 0, "BodySID", "00000001")); },
 {"HM-032 2870: expected BodySID 2, found BodySID 1"}},
{"HM-033", [] { Bytes file = DVWithoutSound();
                for (const char* set : {"Sequence", "SourceClip", "TimecodeComponent"})
                    file = WithAll(file, set, "Duration", "0000000000000004");
                return One(file); },
 {"HM-033 3961: expected Duration 2, found Duration 4"}},
{"HM-034", [] { return One(With(DV(), "CDCIDescriptor", 0, "ContainerDuration", "0000000000000003")); },
 {"HM-034 6821: expected ContainerDuration 2, found ContainerDuration 3"}},
{"HM-035", [] { return One(With(DV(), "CDCIDescriptor", 0, "LinkedTrackID", "00000002")); },
 {"HM-035 6801: expected LinkedTrackID of a PictureTrack of its own, found LinkedTrackID 2"}},
{"HM-035", [] { const Bytes file = Op1b();
                return One(With(file, "AES3Descriptor", 1, "LinkedTrackID", "00000004")); },
 {"HM-035 7403: expected LinkedTrackID of a SoundTrack of its own, found LinkedTrackID 4"}},
{"HM-035", [] { const Bytes file = Strict();
                return One(With(file, "AES3Descriptor", 1, "LinkedTrackID", "00000004")); },
 {"HM-035 7931: expected LinkedTrackID of a SoundTrack of its own, found LinkedTrackID 4"}},
{"HM-036", [] { return One(With(DV(), "CDCIDescriptor", 0, "PictureEssenceCoding", "060E2B34040101010401020202020900")); },
 {"HM-036 6757: expected a known format, found PictureEssenceCoding 060E2B34040101010401020202020900 at 30000/1001"}},
{"HM-037", [] { return One(With(DV(), "CDCIDescriptor", 0, "StoredWidth", "000002C0")); },
 {"HM-037 6878: expected StoredWidth 720, found StoredWidth 704"}},
{"HM-037", [] { return One(With(DV(), "CDCIDescriptor", 0, "AspectRatio", "00000003")); },
 {"HM-037 6894: expected AspectRatio 4/3 or 16/9, found AspectRatio 3/3"}},
{"HM-038", [] { return One(With(AVCIntra(), "MPEGDescriptor", 0, "SubDescriptors", "00000000")); },
 {"HM-007 5026: expected SubDescriptors of 1 x 16 bytes, found 0 x 16 bytes",
  "HM-038 5026: expected 1 sub-descriptor, found 0",
  "HM-011 5050: expected a reference to AVCSubDescriptor, found none"}},
{"HM-039", [] { return One(With(AVCIntra(), "AVCSubDescriptor", 0, "AVCLevel", "29")); },
 {"HM-039 5144: expected AVCLevel 32, found AVCLevel 41"}},
{"HM-040", [] { return One(With(Sound(), "AES3Descriptor", 0, "QuantizationBits", "00000014")); },
 {"HM-040 5298: expected QuantizationBits 24, found QuantizationBits 20"}},
{"HM-041", [] { return One(With(Op1b(), "ANCDataDescriptor", 0, "SampleRate", "0000EA60")); },
 {"HM-041 7160: expected SampleRate 30000/1001, found SampleRate 60000/1001"}},
{"HM-042", [] { return One(With(Op1b(), "AES3Descriptor", 1, "EssenceContainer", "060E2B34040101010D01030102060400")); },
 {"HM-042 100: expected EssenceContainers [060E2B340401010A0D01030102106001, 060E2B34040101090D010301020E0000, 060E2B340401010D0D01030102060B00, 060E2B34040101010D01030102060400], found EssenceContainers [060E2B340401010A0D01030102106001, 060E2B34040101090D010301020E0000, 060E2B340401010D0D01030102060B00]",
  "HM-040 7435: expected EssenceContainer 060E2B340401010D0D01030102060B00, found EssenceContainer 060E2B34040101010D01030102060400"}},
{"HM-043", [] { return One(With(DV(), "ContactsList", 0, "ContactsListPersons", "00000000")); },
 {"HM-007 4894: expected ContactsListPersons of 1 x 16 bytes, found 0 x 16 bytes",
  "HM-043 4894: expected ContactsListPersons of 1, found 0"}},
{"HM-044", [] { return One(With(DV(), "ContentStorage", 0, "Packages", "0000000200000010" +
    TextOf(Nth(DV(), "SourcePackage"), "InstanceUID") + TextOf(Nth(DV(), "MaterialPackage"), "InstanceUID"))); },
 {"HM-044 2714: expected Packages in the order of the file, found MaterialPackage at 2874 behind that at 6281"}},
{"HM-045", [] { Bytes file = DV();
                const WalkedPacket picture = Nth(file, "Track", 1), sound = Nth(file, "Track", 2);
                const auto at = [&](uint64_t offset) { return file.begin() + static_cast<std::ptrdiff_t>(offset); };
                std::rotate(at(picture.offset), at(sound.offset), at(Nth(file, "SourceClip", 1).End()));
                file = At(file, Nth(file, "MaterialPackage").Item("PackageTracks")->offset + 8 + 16,
                          TextOf(sound, "InstanceUID") + TextOf(picture, "InstanceUID"));
                file = With(file, "Track", 1, "TrackID", "00000002");
                return One(With(file, "Track", 2, "TrackID", "00000003")); },
 {"HM-045 4093: expected a PictureTrack in front, found behind a SoundTrack"}},
{"HM-046", [] { return One(With(DV(), "DMSegment", 1, "EventStartPosition", "0000000000000001")); },
 {"HM-046 6170: expected EventStartPosition 0, found EventStartPosition 1"}},
{"HM-046", [] { return One(With(Op1b(), "DMSegment", 1, "EventStartPosition", "FFFFFFFFFFFFFFFF")); },
 {"HM-046 114952: expected EventStartPosition of a frame, found EventStartPosition -1"}},
{"IX-001", [] { return One(WithAll(DV(), "IndexTableSegment", "IndexEditRate", "0000EA60")); },
 {"IX-001 272936: expected IndexEditRate 30000/1001, found IndexEditRate 60000/1001"}},
{"IX-002", [] { return One(WithAll(DV(), "IndexTableSegment", "IndexStartPosition", "0000000000000001")); },
 {"IX-002 272948: expected IndexStartPosition 0, found IndexStartPosition 1"}},
{"IX-003", [] { return One(WithAll(DV(), "IndexTableSegment", "IndexDuration", "0000000000000003")); },
 {"IX-003 272960: expected IndexDuration 2, found IndexDuration 3"}},
{"IX-004", [] { return One(WithAll(DV(), "IndexTableSegment", "EditUnitByteCount", "0001D4C1")); },
 {"IX-004 272972: expected EditUnitByteCount 120000, found EditUnitByteCount 120001"}},
{"IX-005", [] { return One(WithAll(DV(), "IndexTableSegment", "BodySID", "00000001")); },
 {"IX-005 272988: expected BodySID 2, found BodySID 1"}},
{"IX-006", [] { return One(WithAll(Op1b(), "IndexTableSegment", "DeltaEntryArray", "000000010000000600")); },
 {"IX-006 133080: expected DeltaEntryArray [(-1, 0, 0)], found DeltaEntryArray [(0, 0, 0)]",
  "IX-006 550620: expected DeltaEntryArray [(-1, 0, 0)], found DeltaEntryArray [(0, 0, 0)]"}},
{"IX-007", [] { return One(Replaced(Op1b(), "0000003C 0000000B 0200C0 0000000000000000", "0000003C 0000000B 0200C0 0000000000000004")); },
 {"IX-007 133106: expected StreamOffset 0, found StreamOffset 4"}},
{"IX-008", [] { return One(With(DV(), "IndexTableSegment", 0, "IndexDuration", "0000000000000000")); },
 {"IX-008 272892: expected the segment of the body, found another one"}},
{"OA-001", [] { return One(InFrontOf(DV(), Nth(DV(), "Fill"), std::string(kFill) + "83000004 00000000")); },
 {"OA-001 6958: expected IndexTableSegment, Fill, found IndexTableSegment, Fill, Fill"}},
{"OA-002", [] { const Bytes file = Resized(DV(), Nth(DV(), "Fill"), -16);
                return One(With(file, "HeaderPartitionPack", 0, "IndexByteCount",
                                Number(Nth(DV(), "HeaderPartitionPack").Item("IndexByteCount")->Unsigned().value() - 16, 8))); },
 {"OA-002 32604: expected an end at 32744, found at 32728"}},
{"OA-003", [] { const Bytes good = DV();
                const WalkedPacket body = Nth(good, "BodyPartitionPack"), footer = Nth(good, "FooterPartitionPack");
                Bytes file = Resized(good, footer.offset, 124);
                std::copy_n(good.begin() + static_cast<std::ptrdiff_t>(body.offset), 124,
                            file.begin() + static_cast<std::ptrdiff_t>(footer.offset));
                file = With(file, "BodyPartitionPack", 1, "ThisPartition", Number(footer.offset, 8));
                file = With(file, "BodyPartitionPack", 1, "PreviousPartition", Number(body.offset, 8));
                file = With(file, "BodyPartitionPack", 1, "FooterPartition", Number(footer.offset + 124, 8));
                file = With(file, "BodyPartitionPack", 1, "BodySID", "00000000");
                return One(With(file, "FooterPartitionPack", 0, "PreviousPartition", Number(footer.offset, 8))); },
 {"OA-002 272768: expected an end at 32744, found at 272892",
  "OA-004 272892: expected 1 DVElement, found nothing",
  "OA-003 272892: expected 3 partitions, found 4"}},
{"OA-004", [] { return One(At(DV(), 32744, "060E2B34010201010D01030116010401")); },
 {"OA-004 32744: expected 1 DVElement, found 1 AES3Element"}},
{"OA-005", [] { return One(With(DV(), "BodyPartitionPack", 0, "BodyOffset", "0000000000000001")); },
 {"OA-005 32692: expected BodyOffset 0, found BodyOffset 1"}},
{"OA-006", [] { return One(Joined(DV(), Hex("060E2B34020501010D01020101110100 83000004 00000018"))); },
 {"OA-006 272892: expected 1 IndexTableSegment, found 1 IndexTableSegment, 1 RandomIndexPack"}},
{"OA-007", [] { return One(Record(AtomFile{.rest = 5})); },
 {"OA-007 32744: expected a multiple of 120000 bytes, found 240005 bytes"}},
{"OA-007", [] { return One(Record(AtomFile{.compType = 0, .rest = 1})); },
 {"OA-007 32744: expected a multiple of 2 bytes, found 6409 bytes"}},
{"OA-008", [] { return One(With(DV(), "SourcePackage", 0, "PackageTracks", "00000000")); },
 {"OA-008 0: expected 1 Source Package, 1 track, 1 Essence Container Data, found 1 Source Package, 0 tracks, 1 Essence Container Data",
  "HM-031 4053: expected a track of a Source Package of this file, found SourcePackageID 060A2B340101010501010F201300000000000000000000000000000000000001, track 1",
  "HM-007 6385: expected PackageTracks of 1 x 16 bytes, found 0 x 16 bytes",
  "HM-011 6429: expected a reference to Track, found none",
  "HM-011 6529: expected a reference to Sequence, found none",
  "HM-011 6629: expected a reference to SourceClip, found none",
  "HM-035 6801: expected LinkedTrackID of a PictureTrack of its own, found LinkedTrackID 1"}},
{"OB-001", [] { return One(With(Resized(Op1b(), Nth(Op1b(), "Fill", 2), -16), "HeaderPartitionPack", 0, "HeaderByteCount", "000000000001FF64")); },
 {"OB-001 131056: expected 131072 bytes, found 131056 bytes"}},
{"OB-002", [] { return One(InFrontOf(Op1b(), Nth(Op1b(), "Fill", 1), std::string(kFill) + "83000004 00000000")); },
 {"OB-002 33067: expected an area that ends at 114688, found Fill up to 33091"}},
{"OB-003", [] { return One(With(Op1b(), "BodyPartitionPack", 2, "BodySID", "00000003")); },
 {"OB-003 133788: expected essence with BodySID 2, found essence with BodySID 3",
  "OB-004 133944: expected 1 PCMBlockElement, found 60 ANCElement, 60 Fill",
  "OB-003 164664: expected the index of BodySID 3, found the index of BodySID 2",
  "RI-003 560619: expected BodySID 3 at 133788, found BodySID 2 at 133788"}},
{"OB-004", [] { return One(At(Op1b(), Nth(Op1b(), "AVCLongGOPElement", 5).offset, "060E2B34010201010D01030117010201")); },
 {"OB-004 131228: expected 60 AVCLongGOPElement, found 59 AVCLongGOPElement, 1 ANCElement"}},
{"OB-005", [] { Bytes file = RecordOp1b(true, 0);
                for (const auto& [set, item] : std::initializer_list<std::pair<const char*, const char*>>{
                         {"Track", "EditRate"}, {"EventTrack", "EditRate"}, {"CDCIDescriptor", "SampleRate"},
                         {"ANCDataDescriptor", "SampleRate"}, {"MultipleDescriptor", "SampleRate"},
                         {"IndexTableSegment", "IndexEditRate"}})
                    file = WithAll(file, set, item, "00005DC0");
                return One(WithAll(file, "TimecodeComponent", "RoundedTimecodeBase", "0018")); },
 {"OB-005 164856: expected 48 frames in front, found 60 frames"}},
{"OB-006", [] { return One(Resized(Op1b(), Last(Op1b(), "AVCLongGOPElement"), -1)); },
 {"OB-006 550332: expected a multiple of 4 bytes, found 7 bytes"}},
{"OB-006", [] { return One(Resized(Op1b(), Last(Op1b(), "AVCLongGOPElement"), -2)); },
 {"OB-006 550332: expected a multiple of 4 bytes, found 6 bytes"}},
{"OB-007", [] { const Bytes file = Op1b(); const auto packets = Walk(file);
                size_t last = packets.size();
                while (packets[--last].name != "ANCElement") {}
                return One(Resized(file, packets[last + 1], -1)); },
 {"OB-007 550836: expected 512 bytes, found 511 bytes"}},
{"OB-008", [] { return One(Resized(Op1b(), Last(Op1b(), "PCMBlockElement"), -2)); },
 {"OB-008 555396: expected 3200 bytes, found 3198 bytes"}},
{"OB-009", [] { const Bytes file = Op1b(); const auto packs = Named(Walk(file), "BodyPartitionPack");
                return One(With(file, "BodyPartitionPack", packs.size() - 2, "BodyOffset", "0000000000000001")); },
 {"OB-009 555312: expected BodyOffset 192192, found BodyOffset 1"}},
{"OB-010", [] { Bytes file = Op1b(); const auto packets = Walk(file);
                size_t last = packets.size();
                while (packets[--last].name != "AVCLongGOPElement") {}
                const uint64_t count = packets[last + 1].Item("IndexByteCount")->Unsigned().value();
                file = At(file, packets[last + 1].Item("IndexByteCount")->offset, Number(count - 1, 8));
                return One(Resized(file, packets[last + 3], -1)); },
 {"OB-010 550360: expected a multiple of 4 bytes, found 319 bytes"}},
{"OB-011", [] { Bytes file = Op1b(); const WalkedPacket random = Nth(file, "RandomIndexPack");
                const uint64_t count = Nth(file, "FooterPartitionPack").Item("IndexByteCount")->Unsigned().value();
                file = With(file, "FooterPartitionPack", 0, "IndexByteCount", Number(count + 20, 8));
                return One(At(Resized(file, random.offset, 20), random.offset, std::string(kFill) + "83000000")); },
 {"OB-011 559032: expected IndexTableSegment, RandomIndexPack, found 8 IndexTableSegment, 1 Fill, 1 RandomIndexPack"}},
{"OB-012", [] { Bytes file = Op1b();
                for (const char* set : {"Sequence", "SourceClip"})
                    file = With(file, set, set[1] == 'e' ? 2 : 1, "DataDefinition", "060E2B34040101010103020201000000");
                return One(file); },
 {"OB-012 3274: expected 1 timecode track, 1 picture track, 1 data track, 2 sound tracks, found 1 timecode track, 2 picture tracks, 0 data tracks, 2 sound tracks",
  "HM-031 4813: expected a track of a Source Package of this file, found SourcePackageID 060A2B340101010501010F2013000001000000000000000000000000000000C1, track 3"}},
{"OB-013", [] { return One(With(Strict(), "SourcePackage", 0, "Descriptor",
                                TextOf(Nth(Strict(), "ANCDataDescriptor"), "InstanceUID"))); },
 {"OB-013 5673: expected CDCIDescriptor, found ANCDataDescriptor",
  "HM-011 7296: expected a reference to CDCIDescriptor, found none",
  "HM-011 7513: expected a reference to AVCSubDescriptor, found none"}},
{"OB-013", [] { const Bytes file = Op1b(); return One(With(file, "SourcePackage", 0, "Descriptor",
                                                       TextOf(Nth(file, "CDCIDescriptor"), "InstanceUID"))); },
 {"OB-013 5673: expected MultipleDescriptor, found CDCIDescriptor",
  "HM-011 6640: expected a reference to MultipleDescriptor, found none",
  "HM-010 6728: expected FileDescriptors of its own, found that of SourcePackage at 5509",
  "HM-011 7108: expected a reference to ANCDataDescriptor, found none"}},
{"OB-013", [] { const Bytes file = Op1b(); return One(With(file, "MultipleDescriptor", 0, "FileDescriptors",
    "0000000200000010" + TextOf(Nth(file, "ANCDataDescriptor"), "InstanceUID") + TextOf(Nth(file, "CDCIDescriptor"), "InstanceUID"))); },
 {"OB-013 6728: expected CDCIDescriptor, ANCDataDescriptor, found ANCDataDescriptor, CDCIDescriptor"}},
{"OB-014", [] { const Bytes file = Op1b();
                const std::string umid = TextOf(Nth(file, "SourcePackage", 2), "PackageUID");
                return One(Replaced(file, umid, umid.substr(0, 30) + "77" + umid.substr(32))); },
 {"OB-014 8038: expected PackageUID 060A2B340101010501010F2013000003000000000000000000000000000000C1, found PackageUID 060A2B340101010501010F2013000077000000000000000000000000000000C1"}},
{"RI-001", [] { Bytes file = Op1b(); file.resize(Nth(file, "RandomIndexPack").offset); return One(file); },
 {"RI-001 560563: expected a random index pack at the end of the file, found none"}},
{"RI-001", [] { return One(Joined(Op1b(), Hex(std::string(kFill) + "83000000"))); },
 {"OB-011 559032: expected IndexTableSegment, RandomIndexPack, found 8 IndexTableSegment, 1 RandomIndexPack, 1 Fill",
  "RI-001 560563: expected a random index pack at the end of the file, found other packets behind it"}},
{"RI-002", [] { const Bytes file = Op1b(); return One(At(file, file.size() - 4, "00000018")); },
 {"RI-002 560799: expected OverallLength 240, found OverallLength 24"}},
{"RI-003", [] { const Bytes file = Op1b(); return One(At(file, file.size() - 15, "77")); },
 {"RI-003 560787: expected BodySID 0 at 558876, found BodySID 7798784 at 558876"}},
{"RI-003", [] { const Bytes file = Op1b(); const Bytes less = Resized(file, Nth(file, "RandomIndexPack"), -12); return One(At(less, less.size() - 4, Number(Nth(file, "RandomIndexPack").length + 8, 4))); },
 {"RI-003 560787: expected BodySID 0 at 558876, found no entry"}},
{"CL-001", [] { return std::vector{Picture(), Sound(), Bytes()}; },
 {"file 2 CL-001 0: expected a file that can be opened, found none"}},
{"CL-002", [] { return std::vector{Picture(), With(Sound(), "MaterialPackage", 0, "PackageUID", "070A"), Sound(1)}; },
 {"file 1 CL-002 2886: expected PackageUID 060A2B340101010501010F2013000000000000000000000000000000000000C1, found PackageUID 070A2B340101010501010F2013000000000000000000000000000000000000C1"}},
{"CL-003", [] { return std::vector{Picture(), With(Sound(), "MaterialPackage", 0, "PackageName", "0042"), Sound(1)}; },
 {"file 1 CL-003 2922: expected PackageName A001C007, found PackageName B001C007"}},
{"CL-004", [] { return std::vector{Picture(), Sound(), With(Sound(1), "TimecodeComponent", 0, "StartTimecode", "0000000000000007")}; },
 {"file 2 CL-004 3704: expected StartTimecode 107892, found StartTimecode 7"}},
{"CL-005", [] { return std::vector{DV(), With(DVSound(), "Participant", 0, "JobFunction", "0044")}; },
 {"file 1 CL-005 5462: expected JobFunction Camera, found JobFunction Damera"}},
{"CL-006", [] { return std::vector{Picture(), Sound(),
    Record(AtomFile{.compType = 0, .clipType = 0x102, .channel = 1, .frames = 3, .bytesPerSample = 3})}; },
 {"file 2 CL-006 32744: expected 2 frames, found 3 frames"}},
{"CL-007", [] { return std::vector{Picture(), Sound()}; },
 {"CL-007 4373: expected a file for SoundTrack 4, found none"}},
{"CL-008", [] { return std::vector{Picture(), Sound(), Sound(1), Sound(1)}; },
 {"file 3 CL-008 4373: expected a track that no other file holds, found SoundTrack 4, as file 3"}},
{"CL-008", [] { return std::vector{Op1b(), Op1b()}; },
 {"CL-008 0: expected no other file in the clip, found 1 other",
  "file 1 CL-008 0: expected no other file in the clip, found 1 other"}},
{"CL-009", [] { return std::vector{Picture(), Sound(), Record(AtomFile{.videoStd = VIDEO_STD_59_94P, .compType = 0,
    .clipType = 0x102, .channel = 1, .frames = 2, .bytesPerSample = 3})}; },
 {"file 2 CL-009 2842: expected pictures at 30000/1001, found at 60000/1001"}},
};
return kFiles;
}
// clang-format on

std::vector<std::string> CheckedFiles(const std::vector<Bytes>& files) {
    if (files.size() == 1) return Checked(files[0]);
    return CheckedClip(files);
}

TEST(CheckRules, EachHasAFileThatBreaksIt) {
    for (const BadFile& bad : BadFiles()) {
        const auto lines = CheckedFiles(bad.make());
        EXPECT_THAT(lines, ElementsAreArray(bad.findings)) << bad.rule;
        EXPECT_THAT(bad.findings, Contains(HasSubstr(std::string(bad.rule) + " "))) << bad.rule;
    }
}

TEST(CheckRules, NoneIsWithoutSuchAFile) {
    std::set<std::string_view> broken;
    for (const BadFile& bad : BadFiles()) broken.insert(bad.rule);
    std::set<std::string_view> rules;
    for (const CheckRule& rule : GetCheckRules()) {
        EXPECT_TRUE(rules.insert(rule.id).second) << rule.id;
        EXPECT_TRUE(rule.text.ends_with('.')) << rule.id;
    }
    EXPECT_EQ(broken, rules);
}

TEST(CheckRules, DocumentationListsThemInTheirOrder) {
    const Bytes page = LoadFile(TestDataPath("../../docs/check.md"));
    const std::string text(page.begin(), page.end());
    std::string table;
    for (const CheckRule& rule : GetCheckRules())
        table += "| " + std::string(rule.id) + " | " + std::string(rule.text) + " |\n";
    // A family has a heading and a table of its own.
    std::string rows;
    for (size_t at = 0, end = 0; at < text.size(); at = end + 1) {
        end = text.find('\n', at);
        const std::string line = text.substr(at, end - at + 1);
        if (line.starts_with("| ") && !line.starts_with("| rule")) rows += line;
    }
    EXPECT_EQ(rows, table);
}

TEST(CheckRules, GoodFilesOfTheirsBreakNone) {
    for (const Bytes& file :
         {DV(), DVSound(), DVWithoutSound(), AVCIntra(), Sound(), Picture(), Op1b(), Strict(), RecordOp1b(true, 0)})
        EXPECT_THAT(Checked(file), IsEmpty());
    EXPECT_THAT(CheckedClip({Picture(), Sound(), Sound(1)}), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
