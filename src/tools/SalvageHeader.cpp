#include "tools/SalvageHeader.h"

#include <algorithm>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/DMSGroups.h"

namespace kmxf {

namespace {

constexpr uint64_t kMostHeader = kOp1bHeaderSize;

// The beginning of a file, in memory.
class HeaderSource final : public IByteSource {
public:
    explicit HeaderSource(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    uint64_t GetSize() override { return bytes_.size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        const auto from = bytes_.subspan(static_cast<size_t>(offset), bytes.size());
        std::ranges::copy(from, bytes.begin());
        return bytes.size();
    }

private:
    std::span<const uint8_t> bytes_;
};

std::vector<uint8_t> Copy(IByteSource& file, uint64_t offset, uint64_t most) {
    const uint64_t size = file.GetSize();
    std::vector<uint8_t> bytes(static_cast<size_t>(offset >= size ? 0 : std::min(most, size - offset)));
    if (!bytes.empty()) bytes.resize(std::min(file.Read(offset, bytes), bytes.size()));
    return bytes;
}

std::optional<uint64_t> FooterAt(IByteSource& file, uint64_t offset) {
    if (offset == 0) return std::nullopt;
    const auto head = ReadKLVHead(Copy(file, offset, kMostKLVHead));
    const bool there =
        head && KeyName(head->key) == "FooterPartitionPack" && head->length <= file.GetSize() - offset - head->size;
    return there ? std::optional(offset) : std::nullopt;
}

MXFUMIDTag UmidOf(const CheckedSet* set) {
    const InspectedItem* item = set == nullptr ? nullptr : set->Item("PackageUID");
    return item == nullptr ? MXFUMIDTag() : item->Umid().value_or(MXFUMIDTag());
}

// The label of some operational pattern (SMPTE ST 377-1, 8.3), whatever its version.
bool IsPattern(const MXFKEYTag& label) {
    constexpr size_t kVersion = 7, kWhich = 12;
    const auto same = [&](size_t from, size_t to) {
        return std::equal(label.bytes + from, label.bytes + to, kOp1bLabel.bytes + from);
    };
    return same(0, kVersion) && same(kVersion + 1, kWhich);
}

void ReadPacks(IByteSource& file, const std::vector<InspectedItem>& pack, SalvageHeader& header) {
    const InspectedItem* pattern = FindItem(pack, "OperationalPattern");
    const auto labels = pattern == nullptr ? std::vector<MXFKEYTag>() : pattern->Keys();
    if (!labels.empty()) {
        if (labels[0] == kOpAtomLabel || labels[0] == kOpAtomLabel3) header.layout = kOpAtom;
        if (labels[0] == kOp1bLabel) header.layout = kOp1b;
        header.otherPattern = header.layout == kOther && IsPattern(labels[0]);
    }
    if (const InspectedItem* footer = FindItem(pack, "FooterPartition")) {
        header.footer = FooterAt(file, footer->Unsigned().value_or(0));
    }
    // The label of IEC 61834 pictures is told apart by its 15th byte (SMPTE ST 383).
    const InspectedItem* containers = FindItem(pack, "EssenceContainers");
    for (const MXFKEYTag& label : containers == nullptr ? std::vector<MXFKEYTag>() : containers->Keys()) {
        for (const uint32_t videoStd : {VIDEO_STD_59_94I, VIDEO_STD_50I}) {
            MXFKEYTag consumer;
            header.consumerDV =
                header.consumerDV ||
                (GetEssenceContainerLabel(videoStd, COMP_TYPE_DV25, true, false, &consumer) && label == consumer);
        }
    }
}

void ReadTracks(SalvageHeader& header) {
    const CheckedPackage& material = header.metadata.material;
    const auto pictures = material.TracksOf("PictureTrack"), sounds = material.TracksOf("SoundTrack");
    header.clipType =
        static_cast<uint32_t>(std::min<size_t>(pictures.size(), 15) << 8 | std::min<size_t>(sounds.size(), 255));
    for (const auto& tracks : {pictures, sounds}) {
        for (size_t i = 0; i < tracks.size(); ++i) {
            const CheckedSet* clip = tracks[i]->Component("SourceClip");
            if (clip != nullptr && clip->Number("SourceTrackID").value_or(0) != 0 && !header.channel) {
                header.channel = static_cast<uint32_t>(i);
            }
        }
    }
    const CheckedTrack* timecode = material.Track("TimecodeTrack");
    header.videoStd = header.metadata.videoStd;
    if (header.videoStd == 0 && timecode != nullptr) {
        header.videoStd = EditRateToVideoStd(timecode->set->Rational("EditRate").value_or(MXFRATIONALTag()), 0);
    }
    if (const CheckedSet* start = timecode == nullptr ? nullptr : timecode->Component("TimecodeComponent")) {
        header.startTimecode = start->Number("StartTimecode").value_or(0);
        header.startDrop = start->Number("DropFrame").value_or(0) != 0;
    }
}

void ReadIdentity(SalvageHeader& header) {
    const CheckedMetadata& metadata = header.metadata;
    header.materialUMID = UmidOf(metadata.material.set);
    if (!metadata.sources.empty()) header.fileUMID = UmidOf(metadata.sources.front().set);
    if (const CheckedSet* material = metadata.material.set) {
        header.packageName = material->Text("PackageName");
        if (const InspectedItem* created = material->Item("PackageCreationDate")) {
            header.creationDate = created->Timestamp().value_or(MXFTIMESTAMPTag());
        }
    }
    if (const auto found = metadata.Named("Identification"); !found.empty()) {
        header.company = found.front()->Text("CompanyName");
        header.product = found.front()->Text("ProductName");
        header.version = found.front()->Text("VersionString");
        header.productUID = found.front()->Key("ProductUID").value_or(MXFKEYTag());
    }
    if (!header.IsPicture() && !header.IsSound()) header.channel.reset();  // of which kind it is is not told
    if (metadata.pictureDescriptor != nullptr) {
        header.wide = metadata.pictureDescriptor->Rational("AspectRatio") == MXFRATIONALTag{16, 9};
    }
}

}  // namespace

bool SalvageHeader::IsFinal() const { return materialUMID != MXFUMIDTag(); }

CDescriptiveMetadata DescriptiveMetadataOf(std::span<const uint8_t> header, uint32_t videoStd) {
    CDescriptiveMetadata metadata;
    const auto size = static_cast<uint32_t>(header.size());
    if (CDMSClip clip(videoStd); clip.SetData(header.data(), size) == kStatusOk) {
        metadata.SetJobFunction(clip.GetJobFunction());
        metadata.SetFamilyName(clip.GetFamilyName());
        metadata.SetFirstGivenName(clip.GetFirstGivenName());
        metadata.SetProjectNumber(clip.GetProjectNumber());
        metadata.SetProjectName(clip.GetProjectName());
        metadata.SetTakeNumber(clip.GetTakeNumber());
    }
    if (CDMSScene scene(videoStd); scene.SetData(header.data(), size) == kStatusOk) {
        metadata.SetSceneNumber(scene.GetSceneNumber());
    }
    return metadata;
}

namespace {

// Damage to the head of essence that is in its place moves its value, not its key.
void NotePlace(const InspectedPacket& packet, SalvageHeader& header) {
    const bool inPlace =
        packet.offset == kOpAtomHeaderSize - kElementHeadSize || packet.ValueOffset() == kOpAtomHeaderSize;
    if (packet.kind == PacketKind::kEssence && !inPlace) header.elsewhere = packet.ValueOffset();
}

}  // namespace

SalvageHeader ReadSalvageHeader(IByteSource& file) {
    SalvageHeader header;
    const auto bytes = Copy(file, 0, kMostHeader);
    HeaderSource source(bytes);
    CInspector inspector(source);
    bool sound = true;  // up to here
    while (const auto packet = inspector.Next()) {
        if (packet->kind == PacketKind::kPartition) {
            // Behind a second pack comes essence. Sets can be there though the pack in front of them is gone.
            if (header.found || packet->name != "HeaderPartitionPack") {
                auto next = inspector.Next();
                while (next && next->kind == PacketKind::kFill && next->whole) next = inspector.Next();
                if (sound && next) NotePlace(*next, header);
                break;
            }
            header.found = true;
            ReadPacks(file, inspector.Items(*packet), header);
        } else if (packet->kind == PacketKind::kEssence) {
            if (sound) NotePlace(*packet, header);
            break;
        } else if (packet->kind == PacketKind::kSet && header.metadata.sets.size() < kMostPackets) {
            header.metadata.sets.push_back({*packet, inspector.Items(*packet)});
        }
        sound = sound && packet->kind != PacketKind::kDamage && packet->whole;
    }
    header.metadata.Follow();
    ReadTracks(header);
    ReadIdentity(header);
    header.descriptive = DescriptiveMetadataOf(bytes, header.videoStd);
    return header;
}

}  // namespace kmxf
