#include "kmxf/writer/OpAtomBase.h"

#include <algorithm>
#include <utility>

#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Filler.h"
#include "writer/OpAtomParts.h"

namespace kmxf {

namespace {

constexpr uint32_t kIndexSID = 1;
constexpr uint32_t kBodySID = 2;

}  // namespace

void COpAtomBase::Parts::SetEssence(const ClipFormat& format, const MXFKEYTag& key, uint32_t trackCode,
                                    const MXFKEYTag& container, EssenceDescriptor descriptor) {
    elementKey = key;
    const uint32_t trackNumber = ByteReader(std::span(key.bytes).last(4)).U32();
    metadata.filePackage.AddTrack(PackageTrack(format, trackCode, kFileTrackID, trackNumber, false));
    descriptor.Common().SetLinkedTrackID(kFileTrackID);
    descriptor.Common().SetEssenceContainer(container);
    metadata.filePackage.package.SetDescriptor(descriptor.Common().GetInstanceUID());
    metadata.descriptors.push_back(std::move(descriptor));
    metadata.preface.AddEssenceContainer(container);
    for (CPartition* pack : {&headerPartition, &bodyPartition, &footerPartition}) pack->AddEssenceContainer(container);
}

CIndexCommon& COpAtomBase::Parts::AddIndexSegment(CIndexCommon segment, const MXFRATIONALTag& editRate, int64_t start,
                                                  uint32_t bytes) {
    segment.SetEditRate(editRate);
    segment.SetStartPosition(start);
    segment.SetEditUnitByteCount(bytes);
    segment.SetIndexSID(kIndexSID);
    segment.SetBodySID(kBodySID);
    return index.emplace_back(std::move(segment));
}

COpAtomBase::COpAtomBase(uint32_t videoStd, uint32_t clipType, uint32_t samplesPerSec, bool spanned)
    : videoStd_(videoStd),
      clipType_(clipType),
      samplesPerSec_(samplesPerSec == 96000 ? 96000 : 48000),
      spanned_(spanned) {}
COpAtomBase::~COpAtomBase() = default;

COpAtomBase::COpAtomBase(const COpAtomBase& other)
    : videoStd_(other.videoStd_),
      clipType_(other.clipType_),
      samplesPerSec_(other.samplesPerSec_),
      spanned_(other.spanned_),
      parts_(other.parts_ ? std::make_unique<Parts>(*other.parts_) : nullptr) {}

COpAtomBase& COpAtomBase::operator=(const COpAtomBase& other) {
    if (this != &other) {
        videoStd_ = other.videoStd_;
        clipType_ = other.clipType_;
        samplesPerSec_ = other.samplesPerSec_;
        spanned_ = other.spanned_;
        parts_ = other.parts_ ? std::make_unique<Parts>(*other.parts_) : nullptr;
    }
    return *this;
}

COpAtomBase::Parts& COpAtomBase::BuildClip() {
    const ClipFormat format{videoStd_, samplesPerSec_};
    parts_ = std::make_unique<Parts>(format);
    HeaderMetadata& metadata = parts_->metadata;
    metadata.preface.SetPrimaryPackageFlag(true);
    metadata.preface.SetPrimaryPackage(metadata.filePackage.package.GetInstanceUID());
    metadata.essenceContainers.front().SetIndexSID(kIndexSID);
    metadata.essenceContainers.front().SetBodySID(kBodySID);

    metadata.materialTracks.reserve(1 + GetPictureTrackNum(clipType_) + GetSoundTrackNum(clipType_));
    uint32_t trackID = 0;
    const auto addTracks = [&](uint32_t count, uint32_t code, uint32_t step) {
        for (uint32_t i = 0; i < count; ++i) {
            metadata.AddMaterialTrack(PackageTrack(format, code + i * step, ++trackID, 0, spanned_));
        }
    };
    addTracks(1, kTrackCodeTimecode, 0);
    addTracks(GetPictureTrackNum(clipType_), kTrackCodePicture, 0x100);
    addTracks(GetSoundTrackNum(clipType_), kTrackCodeSound, 1);

    parts_->headerPartition.SetIndexSID(kIndexSID);
    parts_->bodyPartition.SetBodySID(kBodySID);
    parts_->footerPartition.SetIndexSID(kIndexSID);
    return *parts_;
}

void COpAtomBase::ReferToFilePackage(Kind kind, uint32_t channel, const MXFUMIDTag& umid) {
    uint32_t number = 0;
    for (PackageTrack& track : parts_->metadata.materialTracks) {
        if (track.IsTimecode() || track.IsSound() != (kind == Kind::kSound)) continue;
        if (number++ == channel) track.SetSource(umid, kFileTrackID);
    }
}

int32_t COpAtomBase::SetDuration(int64_t duration) {
    if (!parts_) return kStatusWrongState;
    HeaderMetadata& metadata = parts_->metadata;
    for (PackageTrack& track : metadata.materialTracks) track.SetDuration(duration);
    for (PackageTrack& track : metadata.filePackage.tracks) track.SetDuration(duration);
    return kStatusOk;
}

int32_t COpAtomBase::SetDataSize(int64_t size) {
    if (!parts_) return kStatusWrongState;
    CPartition& header = parts_->headerPartition;
    CPartition& body = parts_->bodyPartition;
    CPartition& footer = parts_->footerPartition;
    const int64_t bodyOffset = kOpAtomHeaderSize - kElementHeadSize - static_cast<int64_t>(body.GetLength());
    const auto footerOffset = static_cast<int64_t>(kOpAtomHeaderSize + static_cast<uint64_t>(size));
    parts_->dataSize = size;
    body.SetThisPartition(bodyOffset);
    footer.SetThisPartition(footerOffset);
    footer.SetPreviousPartition(bodyOffset);
    for (CPartition* pack : {&header, &body, &footer}) pack->SetFooterPartition(footerOffset);
    return kStatusOk;
}

void COpAtomBase::MarkOpen() {
    if (!parts_) return;
    parts_->headerPartition.SetFooterPartition(0);
    parts_->bodyPartition.SetFooterPartition(0);
}

int32_t COpAtomBase::SetStartTimecode(int64_t frames, bool drop) {
    if (!parts_) return kStatusWrongState;
    for (PackageTrack& track : parts_->metadata.materialTracks) {
        track.SetStartTimecode(frames, drop && !NeverDrops(videoStd_));
    }
    return kStatusOk;
}

int32_t COpAtomBase::SetCreationDate(MXFTIMESTAMPTag date) {
    if (!parts_) return kStatusWrongState;
    parts_->metadata.SetCreationDate(date);
    return kStatusOk;
}

int32_t COpAtomBase::SetModifiedDate(MXFTIMESTAMPTag date) {
    if (!parts_) return kStatusWrongState;
    parts_->metadata.SetModifiedDate(date);
    return kStatusOk;
}

int32_t COpAtomBase::SetPackageName(const std::string& utf8) {
    return parts_ ? parts_->metadata.materialPackage.SetName(utf8) : kStatusWrongState;
}

int32_t COpAtomBase::SetUMID(MXFUMIDTag umid) {
    if (!parts_) return kStatusWrongState;
    HeaderMetadata& metadata = parts_->metadata;
    metadata.filePackage.package.SetPackageUID(umid);
    metadata.essenceContainers.front().SetLinkedPackageUID(umid);
    if (!parts_->ownMaterialUMID) metadata.materialPackage.SetPackageUID(umid);
    return kStatusOk;
}

int32_t COpAtomBase::SetMaterialDuration(int64_t duration) { return SetDuration(duration); }

int32_t COpAtomBase::ChangeMaterialUMID(MXFUMIDTag umid) {
    if (!parts_) return kStatusWrongState;
    parts_->metadata.materialPackage.SetPackageUID(umid);
    parts_->ownMaterialUMID = true;
    return kStatusOk;
}

int32_t COpAtomBase::SetFillerDuration(int64_t duration) {
    if (!parts_) return kStatusWrongState;
    for (PackageTrack& track : parts_->metadata.materialTracks) track.SetFillerDuration(duration);
    return kStatusOk;
}

int32_t COpAtomBase::SetDMS(const CDescriptiveMetadata& metadata) {
    return parts_ ? parts_->metadata.SetDescriptiveMetadata(metadata, kDMSchemeSceneOpAtom) : kStatusWrongState;
}

int32_t COpAtomBase::SetIdentification(const std::string& company, const std::string& product,
                                       const std::string& version, const uint8_t* productUID) {
    if (productUID == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusWrongState;
    return parts_->metadata.SetIdentification(company, product, version, productUID);
}

int32_t COpAtomBase::GetHeaderData(uint8_t** data) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusWrongState;
    CPartition& header = parts_->headerPartition;
    CPartition& body = parts_->bodyPartition;
    CIndexCommon& segment = parts_->index.front();

    const uint32_t metadataSize = parts_->metadata.GetLength();
    CFiller fill;
    fill.SetLength(static_cast<uint32_t>(std::max<int64_t>(parts_->Room(), 0)));
    header.SetHeaderByteCount(metadataSize);
    header.SetIndexByteCount(int64_t{fill.GetLength()} + segment.GetLength());

    // HandOut answers kStatusNoMemory when the pieces do not make up exactly the header area: more metadata than fits,
    // or a rest of 1 to 19 bytes, which no fill item can take.
    return HandOut(kOpAtomHeaderSize, data, [&](ByteWriter& writer) {
        const bool written = Put(writer, header) && parts_->metadata.Write(writer) == kStatusOk &&
                             Put(writer, segment) && (fill.GetLength() == 0 || Put(writer, fill)) && Put(writer, body);
        if (!written) return;
        writer.Key(parts_->elementKey);
        writer.BER(static_cast<uint64_t>(parts_->dataSize), 7);
    });
}

int64_t COpAtomBase::Parts::Room() {
    return int64_t{kOpAtomHeaderSize} - kElementHeadSize - bodyPartition.GetLength() - headerPartition.GetLength() -
           index.front().GetLength() - metadata.GetLength();
}

int32_t COpAtomBase::CheckRoom(const CDescriptiveMetadata& metadata) const {
    if (!parts_) return kStatusOk;
    Parts trial(*parts_);
    if (const int32_t status = trial.metadata.SetDescriptiveMetadata(metadata, kDMSchemeSceneOpAtom);
        status != kStatusOk) {
        return status;
    }
    const int64_t room = trial.Room();
    return room == 0 || room >= kKLVHeadSize ? kStatusOk : kStatusNoMemory;
}

uint32_t COpAtomBase::GetHeaderSize() { return kOpAtomHeaderSize; }

int32_t COpAtomBase::GetFooterData(uint8_t** data) { return WriteFooter(data, 1); }

uint32_t COpAtomBase::GetFooterSize() { return FooterSize(1); }

int32_t COpAtomBase::WriteFooter(uint8_t** data, size_t segments) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusWrongState;
    CPartition& footer = parts_->footerPartition;
    const uint32_t size = FooterSize(segments);
    footer.SetIndexByteCount(int64_t{size} - footer.GetLength());
    return HandOut(size, data, [&](ByteWriter& writer) {
        Put(writer, footer);
        for (size_t i = 0; i < segments; ++i) Put(writer, parts_->index[i]);
    });
}

uint32_t COpAtomBase::FooterSize(size_t segments) const {
    if (!parts_) return 0;
    uint32_t size = parts_->footerPartition.GetLength();
    for (size_t i = 0; i < segments; ++i) size += parts_->index[i].GetLength();
    return size;
}

}  // namespace kmxf
