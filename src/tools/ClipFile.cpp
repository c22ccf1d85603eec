#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <set>
#include <thread>
#include <utility>

#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/VideoStandard.h"
#include "tools/ClipHeader.h"
#include "tools/MemberName.h"

namespace kmxf {

namespace {

namespace fs = std::filesystem;

constexpr size_t kPartitionPackSize = 124;  // with one essence container label

std::string Recording(const std::string& path, const CPartition& pack, const MXFUMIDTag& umid) {
    const fs::path whole = CanonicalPath(path);
    if (pack.IsOp1b()) return whole.string();
    if (umid == MXFUMIDTag{}) {
        MXFKEYTag container{};
        pack.GetEssenceContainer(&container, 0);
        const bool isSound = container == kAES3ClipContainerLabel;
        return (whole.parent_path() / (isSound ? NameOf(whole).clip : StemOf(whole))).string();
    }
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string hex;
    for (const uint8_t byte : umid.bytes) hex.append({kDigits[byte >> 4], kDigits[byte & 15]});
    return hex;
}

ClipDescription Description(const ClipSets& sets) {
    const ClipSet& project = sets.First("Project");
    const ClipSet& clip = sets.First("ClipFramework");
    const InspectedItem* take = clip.Item("TakeNumber");
    const bool hasTake = take != nullptr && !take->value.empty();
    return {.jobFunction = sets.First("Participant").Text("JobFunction"),
            .familyName = sets.First("Person").Text("FamilyName"),
            .firstGivenName = sets.First("Person").Text("FirstGivenName"),
            .projectNumber = project.Text("ProjectNumber"),
            .projectName = project.Text("ProjectName"),
            .takeNumber = hasTake ? std::optional(clip.Number("TakeNumber")) : std::nullopt,
            .clipKind = clip.Text("ClipKind"),
            .sceneNumber = sets.First("SceneFramework").Text("SceneNumber")};
}

// The tracks of the material package; a clip with a source is one whose essence is in the file.
void ReadTracks(ClipFile& file, const ClipSets& sets, const ClipSet& materialPackage) {
    std::set<const ClipSet*> seen;  // a hostile list may name one a thousand times
    for (const MXFKEYTag& uid : materialPackage.Keys("PackageTracks")) {
        const ClipSet& track = sets.Find(uid);
        if (!seen.insert(&track).second) continue;
        for (const MXFKEYTag& sequenceUid : track.Keys("Sequence")) {
            const ClipSet& sequence = sets.Find(sequenceUid);
            const auto definition = sequence.Keys("DataDefinition");
            if (definition.empty() ||
                (definition.front() != kPictureDataDefinition && definition.front() != kSoundDataDefinition))
                continue;
            const auto id = static_cast<uint32_t>(track.Number("TrackID"));
            file.tracks.push_back(id);
            const auto components = sequence.Keys("StructuralComponents");
            if (std::ranges::any_of(components, [&](const MXFKEYTag& component) {
                    return sets.Find(component).Number("SourceTrackID") != 0;
                }))
                file.heldTracks.push_back(id);
        }
    }
}

}  // namespace

std::string CanonicalPath(const std::string& path) {
    std::error_code error;
    const fs::path whole = fs::weakly_canonical(fs::absolute(path), error);
    return error ? path : whole.string();
}

std::vector<uint8_t> ClipSource::Look(uint64_t offset, size_t size) const {
    std::vector<uint8_t> bytes(size);
    const uint64_t there = Size();
    const auto count = static_cast<size_t>(std::min<uint64_t>(size, there - std::min(offset, there)));
    const size_t read = count == 0 ? 0 : bytes_.Read(offset, std::span(bytes).first(count));
    if (read < count) Fail("cannot be read (offset " + std::to_string(offset + read) + ")");
    return bytes;
}

void ClipSource::Fail(const std::string& what) const { throw ClipError(path_ + ": " + what); }

HeaderArea TakeApart(std::span<const uint8_t> bytes) {
    HeaderArea area;
    area.pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
    int64_t metadataSize = 0;
    area.pack.GetHeaderByteCount(metadataSize);
    const size_t packSize = area.pack.GetLength();
    if (metadataSize < 0 || packSize > bytes.size() || static_cast<uint64_t>(metadataSize) > bytes.size() - packSize) {
        area.damage = 0;
        return area;
    }
    area.sets = ClipSets(bytes.first(packSize + static_cast<size_t>(metadataSize)));
    area.damage = area.sets.All("PrimerPack").empty() ? packSize : area.sets.Broken();
    return area;
}

void ReadIdentity(ClipFile& file, const ClipSets& sets) {
    const ClipSet& materialPackage = sets.First("MaterialPackage");
    file.materialUmid = materialPackage.Umid("PackageUID");
    file.packageName = materialPackage.Text("PackageName");
    file.creationDate = materialPackage.Timestamp("PackageCreationDate");
    file.fileUmid = sets.First("SourcePackage").Umid("PackageUID");
    const ClipSet& identification = sets.First("Identification");
    file.company = identification.Text("CompanyName");
    file.product = identification.Text("ProductName");
    file.productVersion = identification.Text("VersionString");
    const ClipSet& timecode = sets.First("TimecodeComponent");
    file.startTimecode = static_cast<int64_t>(timecode.Number("StartTimecode"));
    // One beyond what a timecode counts is none.
    if (std::in_range<uint32_t>(file.startTimecode))
        file.timecodeBase = static_cast<uint32_t>(timecode.Number("RoundedTimecodeBase"));
    file.dropFrame = timecode.Number("DropFrame") != 0;
    file.description = Description(sets);
    ReadTracks(file, sets, materialPackage);
}

std::optional<CPartition> FooterAt(const ClipSource& source, uint64_t offset, uint64_t fileSize) {
    if (offset == 0 || offset > fileSize || fileSize - offset < kPartitionPackSize) return std::nullopt;
    const auto bytes = source.Look(offset, kPartitionPackSize);
    CPartition pack;
    const bool parsed = pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) == 0;
    return parsed && pack.GetKey().bytes[kPackKindByte] == kFooterPack ? std::optional(pack) : std::nullopt;
}

void WatchGrowth(std::span<const WatchedFile> files) {
    std::vector<WatchedFile> still;
    std::ranges::copy_if(files, std::back_inserter(still),
                         [](const WatchedFile& each) { return each.file->verdict.kind == ClipVerdict::Kind::kCutOff; });
    // Slow recordings write a piece a few times a second.
    for (int i = 0; i < 10 && !still.empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        std::erase_if(still, [](const WatchedFile& each) {
            const bool grows = each.source->GetSize() != each.file->fileSize;
            if (grows) each.file->verdict = {ClipVerdict::Kind::kGrowing, 0};
            return grows;
        });
    }
}

std::string ClipVerdict::Text() const {
    switch (kind) {
        case Kind::kClosed:
            return "closed";
        case Kind::kCutOff:
            return "cut off at frame " + std::to_string(at);
        case Kind::kDamaged:
            return "damaged at offset " + std::to_string(at);
        case Kind::kGrowing:
            return "growing";
    }
    return "";
}

uint32_t ClipFile::LeadSize() const { return format && IsAVCI(format->compType) ? kParameterSetBlock : 0; }

uint64_t ClipFile::FrameOffset(uint64_t frame) const { return dataOffset + LeadSize() + frame * frameSize; }

int64_t ClipFile::FirstSample(uint64_t frame) const {
    return std::min(DurationToAudioSample(rateStandard, static_cast<int64_t>(frame), samplingRate), samples);
}

ByteRange ClipFile::SoundOf(const ClipGroup& group, const ByteRange& samplesOfGroup, uint32_t first,
                            uint32_t end) const {
    const auto before = [&](uint32_t frame) {
        const auto sample = static_cast<uint64_t>(DurationToAudioSample(rateStandard, frame, samplingRate));
        return std::min(samplesOfGroup.begin + sample * (bitsPerSample / 8), samplesOfGroup.end);
    };
    return {before(first), end == group.frames ? samplesOfGroup.end : before(end)};
}

ClipFile ReadClipFileAtOnce(IByteSource& bytes, const std::string& path) {
    const ClipSource source(bytes, path);
    const auto start = source.Look(0, kHeaderAreaSize);
    ClipFile file;
    file.path = path;
    file.fileSize = source.Size();
    CPartition pack;
    if (file.fileSize < 20 || pack.SetData(start.data(), static_cast<uint32_t>(start.size())) != 0)
        source.Fail("is not an MXF file: it does not begin with a partition pack (offset 0)");
    if (file.fileSize < kPartitionPackSize)
        source.Fail("ends within its first partition pack (offset " + std::to_string(file.fileSize) + ")");
    file.isOp1b = pack.IsOp1b();
    if (!pack.IsOpAtom() && !file.isOp1b)
        source.Fail("is an MXF file of another operational pattern than OP-Atom and OP-1b (offset 84)");
    (file.isOp1b ? ReadOp1b : ReadOpAtom)(source, start, file);
    file.recording = Recording(path, pack, file.materialUmid);
    return file;
}

ClipFile ReadClipFile(IByteSource& bytes, const std::string& path) {
    ClipFile file = ReadClipFileAtOnce(bytes, path);
    const WatchedFile watched[] = {{&file, &bytes}};
    WatchGrowth(watched);
    return file;
}

std::optional<std::string> ReadRecording(IByteSource& bytes, const std::string& path) {
    // The material package comes early: half a header area is enough to tell files apart.
    constexpr size_t kLook = kHeaderAreaSize / 2;
    const auto start = ClipSource(bytes, path).Look(0, kLook);
    CPartition pack;
    if (pack.SetData(start.data(), kLook) != 0 || !pack.IsOpAtom()) return std::nullopt;
    return Recording(path, pack, ClipSets(start).First("MaterialPackage").Umid("PackageUID"));
}

}  // namespace kmxf
