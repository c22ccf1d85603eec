#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/Bytes.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DMSGroups.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/structures/Descriptors.h"
#include "kmxf/structures/Sets.h"

namespace kmxf {

// What the tracks of one clip have in common.
struct ClipFormat {
    uint32_t videoStd = 0;
    uint32_t samplesPerSec = 48000;
};

// One track of a package with its sequence and components, linked to each other. Its kind follows from the track code;
// it turns video frames into its own edit units (SMPTE ST 377-1, B.9 to B.15).
class PackageTrack {
public:
    // With `spanned` an essence track begins with a filler component for what was recorded on earlier media.
    PackageTrack(const ClipFormat& format, uint32_t trackCode, uint32_t trackID, uint32_t trackNumber, bool spanned);

    bool IsTimecode() const;
    bool IsSound() const;
    MXFKEYTag InstanceUID() const { return track_.GetInstanceUID(); }

    void SetDuration(int64_t frames);
    void SetFillerDuration(int64_t frames);                       // no effect without a filler
    void SetStartTimecode(int64_t frames, bool drop);             // timecode tracks only
    void SetSource(const MXFUMIDTag& package, uint32_t trackID);  // essence tracks only

    // Calls `visit` with each set in the order of the file.
    template <class Visit>
    void VisitSets(Visit visit) {
        visit(track_);
        visit(sequence_);
        if (filler_) visit(*filler_);
        std::visit(visit, component_);
    }

private:
    int64_t EditUnits(int64_t frames) const;
    void UpdateDurations();

    ClipFormat format_;
    uint32_t trackCode_;
    bool spanned_;
    int64_t frames_ = 0;
    int64_t fillerFrames_ = 0;
    CTrack track_;
    CSequence sequence_;
    std::optional<CFillerComponent> filler_;
    std::variant<CTimecodeComponent, CSourceComponent> component_;
};

// An essence descriptor, with the sub-descriptor it refers to.
struct EssenceDescriptor {
    std::variant<CCDCIEssenceDescriptor, CMPEGEssenceDescriptor, CAESEssenceDescriptor> descriptor;
    std::optional<CH264EssenceSubDescriptor> subDescriptor;

    CFileDescriptor& Common();
};

// The header metadata of one file: every set that describes it, linked, in the order of the file. A value: a copy keeps
// all InstanceUIDs and with them all links.
class HeaderMetadata {
public:
    explicit HeaderMetadata(const ClipFormat& format);

    CPreface preface;
    CIdentification identification;
    CContentStorage contentStorage;
    CEssenceContainerData essenceContainerData;
    CMaterialPackage materialPackage;
    std::vector<PackageTrack> materialTracks;
    CFilePackage filePackage;
    std::vector<PackageTrack> fileTracks;
    std::vector<EssenceDescriptor> descriptors;

    PackageTrack& AddMaterialTrack(PackageTrack track);
    PackageTrack& AddFileTrack(PackageTrack track);
    // The descriptor of the file package; its sub-descriptor is linked.
    void AddDescriptor(EssenceDescriptor descriptor);

    void SetDuration(int64_t frames);  // every track of both packages
    void SetCreationDate(const MXFTIMESTAMPTag& date);
    void SetModifiedDate(const MXFTIMESTAMPTag& date);
    int32_t SetDescriptiveMetadata(const CDescriptiveMetadata& metadata, const MXFKEYTag& sceneScheme);

    uint32_t GetLength();
    // kStatusNoMemory when a set fails to serialise or does not fit.
    int32_t Write(ByteWriter& writer);

private:
    // The preface and the material package as the file has them, with the descriptive metadata that is there now. The
    // links are made here and not kept, so that a group that is built anew leaves none behind.
    CPreface LinkedPreface() const;
    CMaterialPackage LinkedMaterialPackage() const;

    template <class Visit>
    void VisitSets(Visit visit) {
        visit(primer_);
        visit(LinkedPreface());
        visit(identification);
        visit(contentStorage);
        visit(essenceContainerData);
        visit(LinkedMaterialPackage());
        for (PackageTrack& track : materialTracks) track.VisitSets(visit);
        if (clip_) visit(*clip_);
        if (scene_) visit(*scene_);
        visit(filePackage);
        for (PackageTrack& track : fileTracks) track.VisitSets(visit);
        for (EssenceDescriptor& each : descriptors) {
            std::visit(visit, each.descriptor);
            if (each.subDescriptor) visit(*each.subDescriptor);
        }
    }

    uint32_t videoStd_;
    CPrimer primer_;
    std::optional<CDMSClip> clip_;
    std::optional<CDMSScene> scene_;
    MXFKEYTag sceneScheme_;
};

// Writes a structure at the writer's position: a set, a pack, a group. False when it fails to serialise or does not
// fit.
template <class Structure>
bool Put(ByteWriter& writer, Structure&& structure) {
    uint8_t* data = nullptr;
    if (structure.GetData(&data) != kStatusOk) return false;
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    writer.Bytes({data, structure.GetLength()});
    return writer.Ok();
}

}  // namespace kmxf
