#pragma once

#include <algorithm>
#include <cstddef>

#include "core/Labels.h"
#include "kmxf/structures/Inspect.h"

namespace kmxf {

// What is known of packets by their keys.
struct PacketKeyRow {
    MXFKEYTag key;
    size_t compared;  // bytes of it that count, but never the version (byte 7)
    PacketKind kind;
    const char* name;
};

constexpr size_t kVersionByte = 7;
constexpr size_t kWholeKey = sizeof(MXFKEYTag);
// Up to the byte that tells the kind of a partition pack, and up to the one that tells the kind of an essence element
constexpr size_t kPartitionKeySize = kPackKindByte + 1, kElementKeySize = 13;
// Up to the byte that tells sets of the local coding with 2-byte tags and lengths, and essence
constexpr size_t kClassSize = 6;

constexpr MXFKEYTag WithByte(MXFKEYTag key, size_t index, uint8_t value) {
    key.bytes[index] = value;
    return key;
}

inline constexpr MXFKEYTag kHeaderPartitionKey = WithByte(kPartitionPackKey, kPackKindByte, kHeaderPack);

// The first row that fits counts. Rows without a name tell the coding of keys that nobody knows.
inline constexpr PacketKeyRow kPacketKeyRows[] = {
    {kHeaderPartitionKey, kPartitionKeySize, PacketKind::kPartition, "HeaderPartitionPack"},
    {WithByte(kPartitionPackKey, kPackKindByte, kBodyPack), kPartitionKeySize, PacketKind::kPartition,
     "BodyPartitionPack"},
    {WithByte(kPartitionPackKey, kPackKindByte, kFooterPack), kPartitionKeySize, PacketKind::kPartition,
     "FooterPartitionPack"},
    {kPrimerPackKey, kWholeKey, PacketKind::kPrimer, "PrimerPack"},
    {kRandomIndexPackKey, kWholeKey, PacketKind::kRandomIndex, "RandomIndexPack"},
    {kFillKey, kWholeKey, PacketKind::kFill, "Fill"},
    {kIndexSegmentKey, kWholeKey, PacketKind::kIndexSegment, "IndexTableSegment"},
    {kPrefaceKey, kWholeKey, PacketKind::kSet, "Preface"},
    {kIdentificationKey, kWholeKey, PacketKind::kSet, "Identification"},
    {kContentStorageKey, kWholeKey, PacketKind::kSet, "ContentStorage"},
    {kEssenceContainerDataKey, kWholeKey, PacketKind::kSet, "EssenceContainerData"},
    {kMaterialPackageKey, kWholeKey, PacketKind::kSet, "MaterialPackage"},
    {kFilePackageKey, kWholeKey, PacketKind::kSet, "SourcePackage"},
    {kTrackKey, kWholeKey, PacketKind::kSet, "Track"},
    {kSequenceKey, kWholeKey, PacketKind::kSet, "Sequence"},
    {kSourceClipKey, kWholeKey, PacketKind::kSet, "SourceClip"},
    {kTimecodeComponentKey, kWholeKey, PacketKind::kSet, "TimecodeComponent"},
    {kFillerComponentKey, kWholeKey, PacketKind::kSet, "Filler"},
    {kCDCIDescriptorKey, kWholeKey, PacketKind::kSet, "CDCIDescriptor"},
    {kMPEGDescriptorKey, kWholeKey, PacketKind::kSet, "MPEGDescriptor"},
    {kAES3DescriptorKey, kWholeKey, PacketKind::kSet, "AES3Descriptor"},
    {kANCDataDescriptorKey, kWholeKey, PacketKind::kSet, "ANCDataDescriptor"},
    {kMultipleDescriptorKey, kWholeKey, PacketKind::kSet, "MultipleDescriptor"},
    {kAVCSubDescriptorKey, kWholeKey, PacketKind::kSet, "AVCSubDescriptor"},
    {kStaticTrackKey, kWholeKey, PacketKind::kSet, "StaticTrack"},
    {kEventTrackKey, kWholeKey, PacketKind::kSet, "EventTrack"},
    {kDMSegmentKey, kWholeKey, PacketKind::kSet, "DMSegment"},
    {kClipFrameworkKey, kWholeKey, PacketKind::kSet, "ClipFramework"},
    {kSceneFrameworkKey, kWholeKey, PacketKind::kSet, "SceneFramework"},
    {kParticipantKey, kWholeKey, PacketKind::kSet, "Participant"},
    {kContactsListKey, kWholeKey, PacketKind::kSet, "ContactsList"},
    {kPersonKey, kWholeKey, PacketKind::kSet, "Person"},
    {kProjectKey, kWholeKey, PacketKind::kSet, "Project"},
    {kXMLFrameworkKey, kWholeKey, PacketKind::kSet, "XMLFramework"},
    {kThumbnailFrameworkKey, kWholeKey, PacketKind::kSet, "ThumbnailFramework"},
    {kDVElementKey, kWholeKey, PacketKind::kEssence, "DVElement"},
    {kAVCIntraElementKey, kWholeKey, PacketKind::kEssence, "AVCIntraElement"},
    {kAES3ElementKey, kWholeKey, PacketKind::kEssence, "AES3Element"},
    {kAVCLongGOPElementKey, kWholeKey, PacketKind::kEssence, "AVCLongGOPElement"},
    {kANCElementKey, kWholeKey, PacketKind::kEssence, "ANCElement"},
    {kPCMBlockElementKey, kWholeKey, PacketKind::kEssence, "PCMBlockElement"},
    {kAVCIntraElementKey, kElementKeySize, PacketKind::kEssence, "PictureElement"},
    {kAES3ElementKey, kElementKeySize, PacketKind::kEssence, "SoundElement"},
    {kANCElementKey, kElementKeySize, PacketKind::kEssence, "DataElement"},
    {kDVElementKey, kElementKeySize, PacketKind::kEssence, "CompoundElement"},
    {kPrefaceKey, kClassSize, PacketKind::kSet, ""},
    {kDVElementKey, kClassSize, PacketKind::kEssence, ""},
};

// The names of labels that stand as values.
struct LabelRow {
    MXFKEYTag label;
    const char* name;
};
inline constexpr LabelRow kLabelRows[] = {
    {kOpAtomLabel, "OperationalPatternAtom"},
    {kOpAtomLabel3, "OperationalPatternAtom"},
    {kOp1bLabel, "OperationalPattern1b"},
    {kPictureDataDefinition, "PictureTrack"},
    {kSoundDataDefinition, "SoundTrack"},
    {kDataDataDefinition, "DataTrack"},
    {kTimecodeDataDefinition, "TimecodeTrack"},
    {kDescriptiveDataDefinition, "DescriptiveMetadataTrack"},
    {kDMSchemeClip, "ClipScheme"},
    {kDMSchemeSceneOpAtom, "SceneScheme"},
    {kDMSchemeSceneOp1b, "SceneScheme"},
    {kDMSchemeXML, "XMLScheme"},
    {kDMSchemeThumbnail, "ThumbnailScheme"},
    {kAES3ClipContainerLabel, "AES3ClipWrapped"},
    {kPCMCustomContainerLabel, "PCMCustomWrapped"},
    {kAVCLongGOPContainerLabel, "AVCFrameWrapped"},
    {kANCContainerLabel, "ANCWrapped"},
    {kMultipleWrappingsLabel, "MultipleWrappings"},
    {kUncompressedSoundCoding, "UncompressedSound"},
};

// From the end on: most keys begin alike.
constexpr bool SameKey(const MXFKEYTag& a, const MXFKEYTag& b, size_t compared = kWholeKey) {
    for (size_t i = compared; i-- > 0;)
        if (i != kVersionByte && a.bytes[i] != b.bytes[i]) return false;
    return true;
}

// Null when not even the coding is known.
constexpr const PacketKeyRow* FindPacketKey(const MXFKEYTag& key) {
    const auto* row =
        std::ranges::find_if(kPacketKeyRows, [&](const PacketKeyRow& r) { return SameKey(r.key, key, r.compared); });
    return row == std::end(kPacketKeyRows) ? nullptr : row;
}

}  // namespace kmxf
