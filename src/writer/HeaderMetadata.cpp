#include "writer/HeaderMetadata.h"

#include <utility>

#include "core/Labels.h"
#include "kmxf/core/Convert.h"

namespace kmxf {

namespace {

bool IsWithin(uint32_t trackCode, uint32_t mask) { return (trackCode & mask) == trackCode; }
bool IsTimecodeCode(uint32_t trackCode) { return IsWithin(trackCode, kTrackCodeTimecode); }
bool IsSoundCode(uint32_t trackCode) { return IsWithin(trackCode, 0x300FF); }

// Durations come from the caller as they are; sums of absurd ones wrap.
int64_t Sum(int64_t a, int64_t b) { return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b)); }

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

CFileDescriptor& EssenceDescriptor::Common() {
    return std::visit([](auto& held) -> CFileDescriptor& { return held; }, descriptor);
}

HeaderMetadata::HeaderMetadata(const ClipFormat& format) : videoStd_(format.videoStd) {
    MXFKEYTag generation;
    CreateUUID(&generation);
    identification.SetThisGenerationUID(generation);
    preface.SetIdentification(identification.GetInstanceUID());
    preface.SetContentStorage(contentStorage.GetInstanceUID());
    contentStorage.AddPackage(materialPackage.GetInstanceUID());
    contentStorage.AddPackage(filePackage.GetInstanceUID());
    contentStorage.AddEssenceContainerData(essenceContainerData.GetInstanceUID());
}

PackageTrack& HeaderMetadata::AddMaterialTrack(PackageTrack track) {
    materialPackage.AddTrack(track.InstanceUID());
    return materialTracks.emplace_back(std::move(track));
}

PackageTrack& HeaderMetadata::AddFileTrack(PackageTrack track) {
    filePackage.AddTrack(track.InstanceUID());
    return fileTracks.emplace_back(std::move(track));
}

void HeaderMetadata::AddDescriptor(EssenceDescriptor descriptor) {
    std::visit(
        [&](auto& held) {
            filePackage.SetDescriptor(held.GetInstanceUID());
            if constexpr (requires { held.AddSubDescriptor(MXFKEYTag{}); }) {
                if (descriptor.subDescriptor) held.AddSubDescriptor(descriptor.subDescriptor->GetInstanceUID());
            }
        },
        descriptor.descriptor);
    descriptors.push_back(std::move(descriptor));
}

void HeaderMetadata::SetDuration(int64_t frames) {
    for (PackageTrack& track : materialTracks) track.SetDuration(frames);
    for (PackageTrack& track : fileTracks) track.SetDuration(frames);
}

void HeaderMetadata::SetCreationDate(const MXFTIMESTAMPTag& date) {
    materialPackage.SetPackageCreationDate(date);
    filePackage.SetPackageCreationDate(date);
}

void HeaderMetadata::SetModifiedDate(const MXFTIMESTAMPTag& date) {
    preface.SetLastModifiedDate(date);
    identification.SetModificationDate(date);
    materialPackage.SetPackageModifiedDate(date);
    filePackage.SetPackageModifiedDate(date);
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
    if (clip_) linked.AddDMScheme(kDMSchemeClip);
    if (scene_) linked.AddDMScheme(sceneScheme_);
    return linked;
}

CMaterialPackage HeaderMetadata::LinkedMaterialPackage() const {
    CMaterialPackage linked = materialPackage;
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
