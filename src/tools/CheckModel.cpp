#include "tools/CheckModel.h"

#include <algorithm>
#include <array>

#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "kmxf/core/VideoStandard.h"
#include "tools/CheckPrototypes.h"

namespace kmxf {

namespace {

constexpr int64_t kSpareSamples = 4;  // that a recording may end in front of its last frame's end

std::array<uint8_t, 16> Order(const MXFKEYTag& uid) { return std::to_array(uid.bytes); }

std::optional<int64_t> NumberOf(const InspectedItem* item) {
    if (item == nullptr) return std::nullopt;
    if (item->kind == ValueKind::kSigned) return item->Signed();
    const auto number = item->Unsigned();
    return number ? std::optional(static_cast<int64_t>(*number)) : std::nullopt;
}

std::optional<MXFKEYTag> KeyOf(const InspectedItem* item) {
    const auto keys = item == nullptr ? std::vector<MXFKEYTag>() : item->Keys();
    return keys.empty() ? std::nullopt : std::optional(keys.front());
}

}  // namespace

std::optional<int64_t> CheckedSet::Number(std::string_view itemName) const { return NumberOf(Item(itemName)); }
std::optional<MXFKEYTag> CheckedSet::Key(std::string_view itemName) const { return KeyOf(Item(itemName)); }
std::optional<MXFRATIONALTag> CheckedSet::Rational(std::string_view itemName) const {
    const InspectedItem* item = Item(itemName);
    return item == nullptr ? std::nullopt : item->Rational();
}
std::string CheckedSet::Text(std::string_view itemName) const {
    const InspectedItem* item = Item(itemName);
    return item == nullptr ? "" : item->Text();
}
bool CheckedSet::IsDescriptive() const { return Key("DataDefinition") == kDescriptiveDataDefinition; }

const CheckedSet* CheckedTrack::Component(std::string_view componentName) const {
    const auto found =
        std::ranges::find_if(components, [&](const CheckedSet* component) { return component->name == componentName; });
    return found == components.end() ? nullptr : *found;
}

std::vector<const CheckedTrack*> CheckedPackage::TracksOf(std::string_view kind) const {
    std::vector<const CheckedTrack*> found;
    for (const CheckedTrack& track : tracks)
        if (track.kind == kind) found.push_back(&track);
    return found;
}
const CheckedTrack* CheckedPackage::Track(std::string_view kind) const {
    const auto found = TracksOf(kind);
    return found.empty() ? nullptr : found.front();
}

const CheckedSet* CheckedMetadata::Find(const MXFKEYTag& uid) const {
    const auto found = byUID.find(Order(uid));
    return found == byUID.end() ? nullptr : found->second;
}

std::vector<const CheckedSet*> CheckedMetadata::Named(std::string_view name) const {
    std::vector<const CheckedSet*> found;
    for (const CheckedSet& set : sets)
        if (set.name == name) found.push_back(&set);
    return found;
}

std::vector<const CheckedSet*> CheckedMetadata::Referred(const InspectedItem* item) {
    std::vector<const CheckedSet*> found;
    if (item == nullptr || references_ >= kMostReferences) return found;
    for (const MXFKEYTag& uid : item->Keys()) {
        const CheckedSet* set = Find(uid);
        if (set != nullptr && references_++ < kMostReferences) found.push_back(set);
    }
    return found;
}

CheckedTrack CheckedMetadata::Track(const CheckedSet& set) {
    CheckedTrack track{.set = &set, .sequence = nullptr, .components = {}, .kind = {}};
    const auto sequence = set.Key("Sequence");
    track.sequence = sequence ? Find(*sequence) : nullptr;
    if (track.sequence == nullptr) return track;
    if (const auto definition = track.sequence->Key("DataDefinition")) track.kind = KeyName(*definition);
    track.components = Referred(track.sequence->Item("StructuralComponents"));
    return track;
}

CheckedPackage CheckedMetadata::Package(const CheckedSet& set) {
    CheckedPackage package{.set = &set, .tracks = {}};
    for (const CheckedSet* track : Referred(set.Item("PackageTracks"))) package.tracks.push_back(Track(*track));
    return package;
}

void CheckedMetadata::Follow() {
    for (const CheckedSet& set : sets)
        if (const auto uid = set.Key("InstanceUID")) byUID.emplace(Order(*uid), &set);
    for (const CheckedSet& set : sets) {
        if (set.name == "Preface" && preface == nullptr) preface = &set;
        if (set.name == "MaterialPackage" && material.set == nullptr) material = Package(set);
        if (set.name == "SourcePackage") sources.push_back(Package(set));
        if (set.name == "CDCIDescriptor" || set.name == "MPEGDescriptor") pictureDescriptor = &set;
        if (set.name == "AVCSubDescriptor") subDescriptor = &set;
        if (set.name == "AES3Descriptor") soundDescriptors.push_back(&set);
    }

    if (pictureDescriptor != nullptr) {
        picture = FindPicture(*pictureDescriptor, subDescriptor);
        pictureRate = pictureDescriptor->Rational("SampleRate").value_or(MXFRATIONALTag());
    } else if (const CheckedTrack* track = material.Track("PictureTrack")) {
        pictureRate = track->set->Rational("EditRate").value_or(MXFRATIONALTag());
    }
    // Interlaced and progressive pictures of one rate share the cadence of their sound.
    videoStd = picture ? picture->videoStd : EditRateToVideoStd(pictureRate, 0);

    const CheckedTrack* sound = material.Track("SoundTrack");
    std::optional<MXFRATIONALTag> rate = sound == nullptr ? std::nullopt : sound->set->Rational("EditRate");
    if (!soundDescriptors.empty()) {
        rate = soundDescriptors.front()->Rational("AudioSamplingRate");
        bytesPerSample = static_cast<uint32_t>(soundDescriptors.front()->Number("BlockAlign").value_or(0));
    }
    samplesPerSec = rate == MXFRATIONALTag{96000, 1} ? 96000 : 48000;
}

int64_t CheckedMetadata::EditUnits(std::string_view kind, int64_t frames) const {
    if (frames == 0) return 0;  // in whatever units
    if (kind == "TimecodeTrack") return CalcTimecodeDuration(videoStd, frames);
    if (kind == "SoundTrack") return DurationToAudioSample(videoStd, frames, samplesPerSec);
    return frames;
}

std::optional<uint64_t> CheckedPartition::Field(std::string_view name) const {
    const InspectedItem* item = FindItem(fields, name);
    return item == nullptr ? std::nullopt : item->Unsigned();
}
std::optional<MXFKEYTag> CheckedPartition::Label(std::string_view name) const { return KeyOf(FindItem(fields, name)); }

std::string CheckedPartition::Contents() const {
    std::string text;
    for (const auto& [name, count] : counts)
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + std::string(name);
    return text.empty() ? "nothing" : text;
}

std::optional<int64_t> CheckedFile::StoredSamples() const {
    if (!IsSound() || metadata.bytesPerSample == 0) return std::nullopt;
    return static_cast<int64_t>(ElementSize() / metadata.bytesPerSample);
}

std::optional<int64_t> CheckedFile::StoredFrames() const {
    if (layout == kOp1b) {
        if (!group.first || !group.frames) return std::nullopt;
        return static_cast<int64_t>(*group.first + *group.frames);
    }
    if (const auto samples = StoredSamples()) {
        if (metadata.videoStd == 0) return std::nullopt;
        return AudioSampleToDuration(metadata.videoStd, *samples + kSpareSamples, metadata.samplesPerSec);
    }
    if (!metadata.picture) return std::nullopt;
    const int64_t frameSize = GetFrameDataSize(metadata.picture->videoStd, metadata.picture->compType);
    const int64_t inFront = IsAVCI(metadata.picture->compType) ? kParameterSetBlock : 0;
    if (frameSize == 0) return std::nullopt;
    return std::max<int64_t>(static_cast<int64_t>(ElementSize()) - inFront, 0) / frameSize;
}

std::optional<int64_t> CheckedFile::HeaderFrames() const {
    const CheckedTrack* track = metadata.material.Track("PictureTrack");
    const CheckedSet* clip = track == nullptr ? nullptr : track->Component("SourceClip");
    return clip == nullptr ? std::nullopt : clip->Number("Duration");
}

}  // namespace kmxf
