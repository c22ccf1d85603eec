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
#include "structures/MultipleDescriptor.h"

namespace kmxf {

// Durations come from the caller as they are: sums of absurd ones wrap.
inline int64_t Sum(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t Difference(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

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
    void SetOrigin(int64_t frames);                               // what the essence has in front of the clip
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

// A package of essence, with its tracks.
struct EssencePackage {
    PackageTrack& AddTrack(PackageTrack track);

    template <class Visit>
    void VisitSets(Visit visit) {
        visit(package);
        for (PackageTrack& track : tracks) track.VisitSets(visit);
    }

    CFilePackage package;
    std::vector<PackageTrack> tracks;
};

// An essence descriptor, with the sub-descriptor it refers to.
struct EssenceDescriptor {
    using Any = std::variant<CCDCIEssenceDescriptor, CMPEGEssenceDescriptor, CAESEssenceDescriptor,
                             CDataEssenceDescriptor, MultipleDescriptor>;

    explicit EssenceDescriptor(Any any, std::optional<CH264EssenceSubDescriptor> sub = std::nullopt);

    CFileDescriptor& Common();
    MXFKEYTag InstanceUID() { return Common().GetInstanceUID(); }

    Any descriptor;
    std::optional<CH264EssenceSubDescriptor> subDescriptor;
};

// The header metadata of one file: every set that describes it, linked, in the order of the file. A value: a copy keeps
// all InstanceUIDs and with them all links.
class HeaderMetadata {
public:
    explicit HeaderMetadata(const ClipFormat& format);

    CPreface preface;
    CIdentification identification;
    CContentStorage contentStorage;
    std::vector<CEssenceContainerData> essenceContainers;  // one at first
    CMaterialPackage materialPackage;
    std::vector<PackageTrack> materialTracks;
    EssencePackage filePackage;
    std::vector<EssenceDescriptor> descriptors;
    std::vector<EssencePackage> soundPackages;  // for sound that is not in the file package
    // Groups that stand in areas of their own, not in this metadata, and are linked from here.
    std::optional<CDMSKestralinStatic> xml;
    std::optional<CDMSKestralinEvent> thumbnail;

    CEssenceContainerData& AddEssenceContainer();
    PackageTrack& AddMaterialTrack(PackageTrack track);
    EssencePackage& AddSoundPackage();

    void SetCreationDate(const MXFTIMESTAMPTag& date);
    void SetModifiedDate(const MXFTIMESTAMPTag& date);
    int32_t SetIdentification(const std::string& company, const std::string& product, const std::string& version,
                              const uint8_t* productUID);
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
        for (CEssenceContainerData& container : essenceContainers) visit(container);
        visit(LinkedMaterialPackage());
        for (PackageTrack& track : materialTracks) track.VisitSets(visit);
        if (clip_) visit(*clip_);
        if (scene_) visit(*scene_);
        filePackage.VisitSets(visit);
        for (EssenceDescriptor& each : descriptors) {
            std::visit(visit, each.descriptor);
            if (each.subDescriptor) visit(*each.subDescriptor);
        }
        for (EssencePackage& package : soundPackages) package.VisitSets(visit);
    }

    uint32_t videoStd_;
    CPrimer primer_;
    std::optional<CDMSClip> clip_;
    std::optional<CDMSScene> scene_;
    MXFKEYTag sceneScheme_;
};

// Whether a clip of this standard counts its timecode without dropping, whatever is asked.
bool NeverDrops(uint32_t videoStd);

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
