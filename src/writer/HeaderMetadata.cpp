#include "writer/HeaderMetadata.h"

#include <utility>

#include "core/Labels.h"
#include "kmxf/core/Convert.h"

namespace kmxf {

namespace {

bool IsWithin(uint32_t trackCode, uint32_t mask) { return (trackCode & mask) == trackCode; }
bool IsTimecodeCode(uint32_t trackCode) { return IsWithin(trackCode, kTrackCodeTimecode); }
bool IsSoundCode(uint32_t trackCode) { return IsWithin(trackCode, 0x300FF); }

MXFRATIONALTag EditRate(const ClipFormat& format, uint32_t trackCode) {
    if (IsTimecodeCode(trackCode)) return GetTimecodeEditRate(format.videoStd);
    if (IsSoundCode(trackCode)) return GetAudioEditRate(format.samplesPerSec);
    return GetVideoEditRate(format.videoStd);
}

std::variant<CTimecodeComponent, CSourceComponent> Component(const ClipFormat& format, uint32_t trackCode) {
    if (IsTimecodeCode(trackCode)) return CTimecodeComponent(format.videoStd);
    return CSourceComponent(trackCode);
}

}  // namespace

bool NeverDrops(uint32_t videoStd) {
    return videoStd == VIDEO_STD_50I || videoStd == VIDEO_STD_25P || videoStd == VIDEO_STD_50P;
}

PackageTrack::PackageTrack(const ClipFormat& format, uint32_t trackCode, uint32_t trackID, uint32_t trackNumber,
                           bool spanned)
    : format_(format),
      trackCode_(trackCode),
      spanned_(spanned),
      sequence_(trackCode),
      component_(Component(format, trackCode)) {
    track_.SetTrackID(trackID);
    track_.SetTrackNumber(trackNumber);
    track_.SetEditRate(EditRate(format, trackCode));
    track_.SetSequence(sequence_.GetInstanceUID());
    if (spanned && !IsTimecodeCode(trackCode)) {
        filler_.emplace(format.videoStd, trackCode, IsSoundCode(trackCode) ? format.samplesPerSec : 48000);
        sequence_.AddStructuralComponent(filler_->GetInstanceUID());
    }
    std::visit([this](auto& component) { sequence_.AddStructuralComponent(component.GetInstanceUID()); }, component_);
}

bool PackageTrack::IsTimecode() const { return IsTimecodeCode(trackCode_); }
bool PackageTrack::IsSound() const { return IsSoundCode(trackCode_); }

int64_t PackageTrack::EditUnits(int64_t frames) const {
    if (IsTimecode()) return CalcTimecodeDuration(format_.videoStd, frames);
    if (IsSound()) return DurationToAudioSample(format_.videoStd, frames, format_.samplesPerSec);
    return frames;
}

void PackageTrack::UpdateDurations() {
    if (IsTimecode()) {
        // Timecode runs through what was recorded before as well.
        const int64_t units = EditUnits(Sum(fillerFrames_, frames_));
        std::get<CTimecodeComponent>(component_).SetDuration(units);
        sequence_.SetDuration(units);
        return;
    }
    const int64_t clip = EditUnits(frames_);
    const int64_t before = filler_ ? EditUnits(fillerFrames_) : 0;
    if (filler_) filler_->SetDuration(before);
    std::get<CSourceComponent>(component_).SetDuration(clip);
    sequence_.SetDuration(Sum(before, clip));
}

void PackageTrack::SetDuration(int64_t frames) {
    frames_ = frames;
    UpdateDurations();
}

void PackageTrack::SetOrigin(int64_t frames) { track_.SetOrigin(EditUnits(frames)); }

void PackageTrack::SetFillerDuration(int64_t frames) {
    if (!spanned_) return;
    fillerFrames_ = frames;
    UpdateDurations();
}

void PackageTrack::SetStartTimecode(int64_t frames, bool drop) {
    if (auto* timecode = std::get_if<CTimecodeComponent>(&component_)) {
        timecode->SetStartTimecode(frames);
        timecode->SetDropFrame(drop);
    }
}

void PackageTrack::SetSource(const MXFUMIDTag& package, uint32_t trackID) {
    if (auto* clip = std::get_if<CSourceComponent>(&component_)) {
        clip->SetSourcePackageID(package);
        clip->SetSourceTrackID(trackID);
    }
}

PackageTrack& EssencePackage::AddTrack(PackageTrack track) {
    package.AddTrack(track.InstanceUID());
    return tracks.emplace_back(std::move(track));
}

EssenceDescriptor::EssenceDescriptor(Any any, std::optional<CH264EssenceSubDescriptor> sub)
    : descriptor(std::move(any)), subDescriptor(std::move(sub)) {
    if (!subDescriptor) return;
    if (auto* picture = dynamic_cast<CCDCIEssenceDescriptor*>(&Common())) {
        picture->AddSubDescriptor(subDescriptor->GetInstanceUID());
    }
}

CFileDescriptor& EssenceDescriptor::Common() {
    return std::visit([](auto& held) -> CFileDescriptor& { return held; }, descriptor);
}

HeaderMetadata::HeaderMetadata(const ClipFormat& format) : essenceContainers(1), videoStd_(format.videoStd) {
    MXFKEYTag generation;
    CreateUUID(&generation);
    identification.SetThisGenerationUID(generation);
    preface.SetIdentification(identification.GetInstanceUID());
    preface.SetContentStorage(contentStorage.GetInstanceUID());
    contentStorage.AddPackage(materialPackage.GetInstanceUID());
    contentStorage.AddPackage(filePackage.package.GetInstanceUID());
    contentStorage.AddEssenceContainerData(essenceContainers.front().GetInstanceUID());
}

CEssenceContainerData& HeaderMetadata::AddEssenceContainer() {
    CEssenceContainerData& container = essenceContainers.emplace_back();
    contentStorage.AddEssenceContainerData(container.GetInstanceUID());
    return container;
}

PackageTrack& HeaderMetadata::AddMaterialTrack(PackageTrack track) {
    materialPackage.AddTrack(track.InstanceUID());
    return materialTracks.emplace_back(std::move(track));
}

EssencePackage& HeaderMetadata::AddSoundPackage() {
    EssencePackage& added = soundPackages.emplace_back();
    contentStorage.AddPackage(added.package.GetInstanceUID());
    return added;
}

void HeaderMetadata::SetCreationDate(const MXFTIMESTAMPTag& date) {
    materialPackage.SetPackageCreationDate(date);
    filePackage.package.SetPackageCreationDate(date);
    for (EssencePackage& each : soundPackages) each.package.SetPackageCreationDate(date);
}

void HeaderMetadata::SetModifiedDate(const MXFTIMESTAMPTag& date) {
    preface.SetLastModifiedDate(date);
    identification.SetModificationDate(date);
    materialPackage.SetPackageModifiedDate(date);
    filePackage.package.SetPackageModifiedDate(date);
    for (EssencePackage& each : soundPackages) each.package.SetPackageModifiedDate(date);
}

int32_t HeaderMetadata::SetIdentification(const std::string& company, const std::string& product,
                                          const std::string& version, const uint8_t* productUID) {
    identification.SetProductUID(ByteReader({productUID, sizeof(MXFKEYTag)}).Key());
    int32_t status = kStatusOk;
    for (const int32_t each : {identification.SetCompanyName(company), identification.SetProductName(product),
                               identification.SetVersionString(version)}) {
        if (each != kStatusOk) status = each;
    }
    return status;
}

int32_t HeaderMetadata::SetDescriptiveMetadata(const CDescriptiveMetadata& metadata, const MXFKEYTag& sceneScheme) {
    sceneScheme_ = sceneScheme;
    if (metadata.IsSetStaticMetadata()) {
        clip_.emplace(videoStd_);
        if (const int32_t status = clip_->Build(); status != kStatusOk) return status;
        // A value that does not fit its field leaves the field empty; that is not an error here.
        clip_->SetTakeNumber(metadata.GetTakeNumber());
        clip_->SetProjectNumber(metadata.GetProjectNumber());
        clip_->SetProjectName(metadata.GetProjectName());
        clip_->SetJobFunction(metadata.GetJobFunction());
        clip_->SetFamilyName(metadata.GetFamilyName());
        clip_->SetFirstGivenName(metadata.GetFirstGivenName());
    }
    if (metadata.IsSetEventMetadata()) {
        scene_.emplace(videoStd_);
        if (const int32_t status = scene_->Build(); status != kStatusOk) return status;
        scene_->SetEventStartPosition(0);
        scene_->SetSceneNumber(metadata.GetSceneNumber());
    }
    return kStatusOk;
}

CPreface HeaderMetadata::LinkedPreface() const {
    CPreface linked = preface;
    if (xml) linked.AddDMScheme(kDMSchemeXML);
    if (thumbnail) linked.AddDMScheme(kDMSchemeThumbnail);
    if (clip_) linked.AddDMScheme(kDMSchemeClip);
    if (scene_) linked.AddDMScheme(sceneScheme_);
    return linked;
}

CMaterialPackage HeaderMetadata::LinkedMaterialPackage() const {
    CMaterialPackage linked = materialPackage;
    if (xml) linked.AddTrack(xml->GetTrackInstanceUID());
    if (thumbnail) linked.AddTrack(thumbnail->GetTrackInstanceUID());
    if (clip_) linked.AddTrack(clip_->GetTrackInstanceUID());
    if (scene_) linked.AddTrack(scene_->GetTrackInstanceUID());
    return linked;
}

uint32_t HeaderMetadata::GetLength() {
    uint32_t length = 0;
    VisitSets([&](auto&& set) { length += set.GetLength(); });
    return length;
}

int32_t HeaderMetadata::Write(ByteWriter& writer) {
    bool written = true;
    VisitSets([&](auto&& set) { written = written && Put(writer, set); });
    return written ? kStatusOk : kStatusNoMemory;
}

}  // namespace kmxf
