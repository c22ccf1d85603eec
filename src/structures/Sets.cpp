#include "kmxf/structures/Sets.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "core/Bytes.h"
#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf {

namespace {

constexpr uint32_t kPrimerEntryCount = std::size(kPrimerRows);
constexpr uint32_t kPrimerEntrySize = sizeof(MXFLOCALTAGENTRYTag);

// Fields of UTF-16 text, in bytes.
constexpr size_t kCompanyNameSize = 32;
constexpr size_t kProductNameSize = 32;
constexpr size_t kVersionStringSize = 8;
constexpr size_t kPackageNameSize = 400;

int32_t TextStatus(bool stored) { return stored ? kStatusOk : kStatusInvalidArgument; }

// A track code is of the first kind whose mask covers all its bits; only a sequence may be of the first.
struct TrackKind {
    uint32_t mask;
    MXFKEYTag dataDefinition;
};
constexpr TrackKind kTrackKinds[] = {
    {0x31000, kTimecodeDataDefinition},
    {0x30F00, kPictureDataDefinition},
    {0x300FF, kSoundDataDefinition},
    {0x32000, kDataDataDefinition},
};
constexpr std::span kSequenceKinds(kTrackKinds);
constexpr std::span kComponentKinds = kSequenceKinds.subspan(1);

std::vector<uint8_t> DataDefinition(std::span<const TrackKind> kinds, uint32_t trackCode) {
    const auto kind =
        std::ranges::find_if(kinds, [&](const TrackKind& each) { return (trackCode & each.mask) == trackCode; });
    return Encoded(kind == kinds.end() ? MXFKEYTag{} : kind->dataDefinition);
}

struct TimecodeFormat {
    uint32_t videoStd;
    uint16_t base;
    bool drop;
};
// Drop frame at base 24 is no timecode of SMPTE ST 12-1 but is what the set carries until it is given its start.
constexpr TimecodeFormat kTimecodeFormats[] = {
    {VIDEO_STD_50I, 25, false},
    {VIDEO_STD_25P, 25, false},
    {VIDEO_STD_50P, 25, false},
    {VIDEO_STD_23_98P, 24, true},
};
constexpr TimecodeFormat kOtherTimecodeFormat = {0, 30, true};

TimecodeFormat TimecodeFormatOf(uint32_t videoStd) {
    const auto* format = FindRow(kTimecodeFormats, &TimecodeFormat::videoStd, videoStd);
    return format == nullptr ? kOtherTimecodeFormat : *format;
}

}  // namespace

CPrimer::CPrimer() : CMXFHeaderBase(kPrimerPackKey) {
    StoreLength(kKLVHeadSize + 8 + kPrimerEntryCount * kPrimerEntrySize);
}
int32_t CPrimer::GetData(uint8_t** data) {
    return HandOut(GetLength(), data, [this](ByteWriter& writer) {
        WriteKLVHead(writer, GetKey(), GetLength());
        writer.U32(kPrimerEntryCount);
        writer.U32(kPrimerEntrySize);
        for (const PrimerRow& row : kPrimerRows) {
            writer.U16(row.tag);
            writer.Key(row.ul);
        }
    });
}

CPreface::CPreface() : CMXFHeaderBase(kPrefaceKey) {
    Declare({{kTagLastModifiedDate, Encoded(MXFTIMESTAMPTag{})},
             {kTagVersion, Encoded(uint16_t{0x0103})},
             {kTagPrimaryPackage, Encoded(MXFKEYTag{}), false},
             {kTagIdentifications, Batch({MXFKEYTag{}})},
             {kTagContentStorage, Encoded(MXFKEYTag{})},
             {kTagOperationalPattern, Encoded(kOpAtomLabel)},
             {kTagEssenceContainers, Batch({})},
             {kTagDMSchemes, std::vector<uint8_t>(8)}});  // while empty, not even the element size is told
}
int32_t CPreface::SetLastModifiedDate(MXFTIMESTAMPTag date) { return Store(kTagLastModifiedDate, Encoded(date)); }
int32_t CPreface::SetVersion(uint16_t version) { return Store(kTagVersion, Encoded(version)); }
int32_t CPreface::SetPrimaryPackageFlag(bool written) { return StoreWritten(kTagPrimaryPackage, written); }
int32_t CPreface::SetPrimaryPackage(MXFKEYTag package) { return Store(kTagPrimaryPackage, Encoded(package)); }
int32_t CPreface::SetIdentification(MXFKEYTag identification) {
    return Store(kTagIdentifications, Batch({identification}));
}
int32_t CPreface::SetContentStorage(MXFKEYTag contentStorage) {
    return Store(kTagContentStorage, Encoded(contentStorage));
}
int32_t CPreface::SetOperationalPattern(MXFKEYTag label) { return Store(kTagOperationalPattern, Encoded(label)); }
int32_t CPreface::AddEssenceContainer(MXFKEYTag label) { return AppendToBatch(kTagEssenceContainers, label); }
int32_t CPreface::AddDMScheme(MXFKEYTag label) { return AppendToBatch(kTagDMSchemes, label); }

CIdentification::CIdentification() : CMXFHeaderBase(kIdentificationKey) {
    Declare({{kTagThisGenerationUID, Encoded(MXFKEYTag{})},
             {kTagCompanyName, std::vector<uint8_t>(kCompanyNameSize)},
             {kTagProductName, std::vector<uint8_t>(kProductNameSize)},
             {kTagVersionString, std::vector<uint8_t>(kVersionStringSize)},
             {kTagProductUID, Encoded(kDefaultProductUID)},
             {kTagModificationDate, Encoded(MXFTIMESTAMPTag{})}});
    SetCompanyName("Kestralin");
    SetProductName("Jq");
    SetVersionString("2.0");
}
int32_t CIdentification::SetThisGenerationUID(MXFKEYTag uid) { return Store(kTagThisGenerationUID, Encoded(uid)); }
int32_t CIdentification::SetCompanyName(const std::string& utf8) {
    return TextStatus(StoreText(kTagCompanyName, utf8));
}
int32_t CIdentification::SetProductName(const std::string& utf8) {
    return TextStatus(StoreText(kTagProductName, utf8));
}
int32_t CIdentification::SetVersionString(const std::string& utf8) {
    return TextStatus(StoreText(kTagVersionString, utf8));
}
int32_t CIdentification::SetProductUID(MXFKEYTag uid) { return Store(kTagProductUID, Encoded(uid)); }
int32_t CIdentification::SetModificationDate(MXFTIMESTAMPTag date) {
    return Store(kTagModificationDate, Encoded(date));
}

CContentStorage::CContentStorage() : CMXFHeaderBase(kContentStorageKey) {
    Declare({{kTagPackages, Batch({})}, {kTagEssenceContainerData, Batch({})}});
}
int32_t CContentStorage::AddPackage(MXFKEYTag package) { return AppendToBatch(kTagPackages, package); }
int32_t CContentStorage::AddEssenceContainerData(MXFKEYTag data) {
    return AppendToBatch(kTagEssenceContainerData, data);
}

CEssenceContainerData::CEssenceContainerData() : CMXFHeaderBase(kEssenceContainerDataKey) {
    Declare({{kTagLinkedPackageUID, Encoded(MXFUMIDTag{})},
             {kTagIndexSID, Encoded(uint32_t{1})},
             {kTagBodySID, Encoded(uint32_t{2})}});
}
int32_t CEssenceContainerData::SetLinkedPackageUID(MXFUMIDTag umid) {
    return Store(kTagLinkedPackageUID, Encoded(umid));
}
int32_t CEssenceContainerData::SetIndexSID(uint32_t sid) { return Store(kTagIndexSID, Encoded(sid)); }
int32_t CEssenceContainerData::SetBodySID(uint32_t sid) { return Store(kTagBodySID, Encoded(sid)); }

CMaterialPackage::CMaterialPackage() : CMXFHeaderBase(kMaterialPackageKey) {
    Declare({{kTagPackageUID, Encoded(MXFUMIDTag{})},
             {kTagPackageName, std::vector<uint8_t>(kPackageNameSize)},
             {kTagPackageCreationDate, Encoded(MXFTIMESTAMPTag{})},
             {kTagPackageModifiedDate, Encoded(MXFTIMESTAMPTag{})},
             {kTagPackageTracks, Batch({})}});
}
int32_t CMaterialPackage::SetPackageUID(MXFUMIDTag umid) { return Store(kTagPackageUID, Encoded(umid)); }
int32_t CMaterialPackage::SetName(const std::string& utf8) { return TextStatus(StoreText(kTagPackageName, utf8)); }
int32_t CMaterialPackage::SetPackageCreationDate(MXFTIMESTAMPTag date) {
    return Store(kTagPackageCreationDate, Encoded(date));
}
int32_t CMaterialPackage::SetPackageModifiedDate(MXFTIMESTAMPTag date) {
    return Store(kTagPackageModifiedDate, Encoded(date));
}
int32_t CMaterialPackage::AddTrack(MXFKEYTag track) { return AppendToBatch(kTagPackageTracks, track); }

CFilePackage::CFilePackage() : CMXFHeaderBase(kFilePackageKey) {
    Declare({{kTagPackageUID, Encoded(MXFUMIDTag{})},
             {kTagPackageCreationDate, Encoded(MXFTIMESTAMPTag{})},
             {kTagPackageModifiedDate, Encoded(MXFTIMESTAMPTag{})},
             {kTagPackageTracks, Batch({})},
             {kTagDescriptor, Encoded(MXFKEYTag{})}});
}
int32_t CFilePackage::SetPackageUID(MXFUMIDTag umid) { return Store(kTagPackageUID, Encoded(umid)); }
int32_t CFilePackage::SetPackageCreationDate(MXFTIMESTAMPTag date) {
    return Store(kTagPackageCreationDate, Encoded(date));
}
int32_t CFilePackage::SetPackageModifiedDate(MXFTIMESTAMPTag date) {
    return Store(kTagPackageModifiedDate, Encoded(date));
}
int32_t CFilePackage::AddTrack(MXFKEYTag track) { return AppendToBatch(kTagPackageTracks, track); }
int32_t CFilePackage::SetDescriptor(MXFKEYTag descriptor) { return Store(kTagDescriptor, Encoded(descriptor)); }

CTrack::CTrack() : CMXFHeaderBase(kTrackKey) {
    Declare({{kTagTrackID, Encoded(uint32_t{0})},
             {kTagTrackNumber, Encoded(uint32_t{0})},
             {kTagEditRate, Encoded(MXFRATIONALTag{})},
             {kTagOrigin, Encoded(int64_t{0})},
             {kTagSequence, Encoded(MXFKEYTag{})}});
}
int32_t CTrack::SetTrackID(uint32_t trackID) { return Store(kTagTrackID, Encoded(trackID)); }
int32_t CTrack::SetTrackNumber(uint32_t trackNumber) { return Store(kTagTrackNumber, Encoded(trackNumber)); }
int32_t CTrack::SetEditRate(MXFRATIONALTag editRate) { return Store(kTagEditRate, Encoded(editRate)); }
int32_t CTrack::SetOrigin(int64_t origin) { return Store(kTagOrigin, Encoded(origin)); }
int32_t CTrack::SetSequence(MXFKEYTag sequence) { return Store(kTagSequence, Encoded(sequence)); }

CSequence::CSequence(uint32_t trackCode) : CMXFHeaderBase(kSequenceKey) {
    Declare({{kTagDataDefinition, DataDefinition(kSequenceKinds, trackCode)},
             {kTagDuration, Encoded(int64_t{0})},
             {kTagStructuralComponents, Batch({})}});
}
int32_t CSequence::SetDuration(int64_t duration) { return Store(kTagDuration, Encoded(duration)); }
int32_t CSequence::AddStructuralComponent(MXFKEYTag component) {
    return AppendToBatch(kTagStructuralComponents, component);
}

CSourceComponent::CSourceComponent(uint32_t trackCode) : CMXFHeaderBase(kSourceClipKey) {
    Declare({{kTagDataDefinition, DataDefinition(kComponentKinds, trackCode)},
             {kTagStartPosition, Encoded(int64_t{0})},  // before the duration, other than in the other components
             {kTagDuration, Encoded(int64_t{0})},
             {kTagSourcePackageID, Encoded(MXFUMIDTag{})},
             {kTagSourceTrackID, Encoded(uint32_t{0})}});
}
int32_t CSourceComponent::SetStartPosition(int64_t position) { return Store(kTagStartPosition, Encoded(position)); }
int32_t CSourceComponent::SetDuration(int64_t duration) { return Store(kTagDuration, Encoded(duration)); }
int32_t CSourceComponent::SetSourcePackageID(MXFUMIDTag umid) { return Store(kTagSourcePackageID, Encoded(umid)); }
int32_t CSourceComponent::SetSourceTrackID(uint32_t trackID) { return Store(kTagSourceTrackID, Encoded(trackID)); }

CTimecodeComponent::CTimecodeComponent(uint32_t videoStd) : CMXFHeaderBase(kTimecodeComponentKey) {
    const TimecodeFormat format = TimecodeFormatOf(videoStd);
    Declare({{kTagDataDefinition, Encoded(kTimecodeDataDefinition)},
             {kTagDuration, Encoded(int64_t{0})},
             {kTagRoundedTimecodeBase, Encoded(format.base)},
             {kTagStartTimecode, Encoded(int64_t{0})},
             {kTagDropFrame, Encoded(format.drop)}});
}
int32_t CTimecodeComponent::SetDuration(int64_t duration) { return Store(kTagDuration, Encoded(duration)); }
int32_t CTimecodeComponent::SetRoundedTimecodeBase(uint16_t base) {
    return Store(kTagRoundedTimecodeBase, Encoded(base));
}
int32_t CTimecodeComponent::SetStartTimecode(int64_t frames) { return Store(kTagStartTimecode, Encoded(frames)); }
int32_t CTimecodeComponent::SetDropFrame(bool drop) { return Store(kTagDropFrame, Encoded(drop)); }

// Standard and sampling rate say how a duration is to be converted; who sets it has converted it already.
CFillerComponent::CFillerComponent(uint32_t /*videoStd*/, uint32_t trackCode, uint32_t /*samplesPerSec*/)
    : CMXFHeaderBase(kFillerComponentKey), trackCode_(trackCode) {
    Declare({{kTagDataDefinition, DataDefinition(kComponentKinds, trackCode)}, {kTagDuration, Encoded(int64_t{0})}});
}
int32_t CFillerComponent::SetDuration(int64_t duration) { return Store(kTagDuration, Encoded(duration)); }
uint32_t CFillerComponent::GetTrackCode() const { return trackCode_; }

}  // namespace kmxf
