#include <algorithm>
#include <vector>

#include "core/Bytes.h"
#include "core/Labels.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFHeader.h"
#include "tools/ClipGroups.h"
#include "tools/ClipHeader.h"

namespace kmxf {

namespace {

constexpr size_t kGetterRoom = 0x20000;   // that the library's getters of header values look at
constexpr size_t kMostHeader = 16 << 20;  // of a file that is not this system's

// The whole header, however long, and at least the getters' room: zeros behind a shorter one.
std::vector<uint8_t> WholeHeader(const ClipSource& source, std::span<const uint8_t> start, uint64_t fileSize) {
    CPartition pack;
    pack.SetData(start.data(), static_cast<uint32_t>(start.size()));
    int64_t metadataSize = 0;
    pack.GetHeaderByteCount(metadataSize);
    const uint64_t wanted = pack.GetLength() + static_cast<uint64_t>(std::max<int64_t>(metadataSize, 0));
    std::vector<uint8_t> header(start.begin(), start.end());
    if (wanted > header.size() && wanted <= std::clamp<uint64_t>(fileSize, kGetterRoom, kMostHeader)) {
        const auto rest = source.Look(header.size(), static_cast<size_t>(wanted - header.size()));
        header.insert(header.end(), rest.begin(), rest.end());
    }
    header.resize(std::max(header.size(), kGetterRoom));
    return header;
}

ByteRange Place(const InspectedItem& item) { return {item.offset, item.offset + item.value.size()}; }

void ReadSideData(ClipFile& file, const ClipSets& sets) {
    static constexpr char kPlaceholder[] = "Dummy";
    if (const InspectedItem* xml = sets.First("XMLFramework").Item("XMLData"); xml != nullptr && !xml->value.empty())
        file.xml = {Place(*xml), std::ranges::equal(xml->value, kPlaceholder)};
    const ClipSet& thumbnail = sets.First("ThumbnailFramework");
    if (const InspectedItem* data = thumbnail.Item("ThumbnailData"); data != nullptr && !data->value.empty()) {
        const bool black = std::ranges::all_of(data->value, [](uint8_t byte) { return byte == 0; });
        file.thumbnail = {{Place(*data), black},
                          thumbnail.Number("ThumbnailWidth"),
                          thumbnail.Number("ThumbnailHeight"),
                          thumbnail.Number("ThumbnailFormat")};
    }
}

// The origin that the picture's track of the file package has.
int64_t Origin(const ClipSets& sets) {
    const uint32_t pictureTrack = ByteReader(std::span(kAVCLongGOPElementKey.bytes).last(4)).U32();
    for (const ClipSet* track : sets.AllBehind("SourcePackage", "Track"))
        if (track->Number("TrackNumber") == pictureTrack) return static_cast<int64_t>(track->Number("Origin"));
    return 0;
}

// Counts the frames of groups that the random index names; false when the header counts on others.
bool CountFrames(ClipFile& file, int64_t frames) {
    const int64_t perGroup = file.partitionFrames;
    const auto groups = static_cast<int64_t>(file.groups.size());
    if (frames < 0 || frames > groups * perGroup || frames <= (groups - 1) * perGroup) return false;
    for (ClipGroup& group : file.groups) {
        group.frames = static_cast<uint32_t>(std::min(perGroup, frames - file.frames));
        group.firstFrame = static_cast<uint64_t>(file.frames);
        file.frames += group.frames;
    }
    return true;
}

// Finds the groups of a file that was closed properly; where it was not, the offset that contradicts it.
std::optional<uint64_t> TakeListedGroups(const ClipSource& source, ClipFile& file, const ClipSets& sets,
                                         uint64_t footer, const CPartition& footerPack) {
    // Behind the footer's own index stands the random index.
    const uint64_t counted = footer + footerPack.GetLength() + static_cast<uint64_t>(footerPack.GetIndexByteCount());
    uint64_t damage = std::clamp(counted, footer, file.fileSize);
    const auto partitions = ListedPartitions(source, footer, damage);
    if (!partitions) return damage;
    file.groups = GroupsOf(*partitions, file.channels);
    size_t sorted = 0;
    for (const ClipGroup& group : file.groups) sorted += 4 + 2 * group.sound.size();
    if (sorted != partitions->size()) return damage + 12 * sorted;
    const InspectedItem* contained = sets.First("CDCIDescriptor").Item("ContainerDuration");
    const InspectedItem* packaged = sets.FirstBehind("SourcePackage", "SourceClip").Item("Duration");
    const auto number = [](const InspectedItem* item) {
        return item == nullptr ? 0 : static_cast<int64_t>(item->Unsigned().value_or(0));
    };
    const InspectedItem* frames = contained == nullptr ? packaged : contained;
    if (!CountFrames(file, number(frames))) return frames == nullptr ? 0 : frames->offset;
    file.duration = number(packaged);
    if (file.duration < 0 || file.duration > file.frames) return packaged->offset;
    return std::nullopt;
}

// Finds the groups that are whole, however the file ended.
void TakeWalkedGroups(const ClipSource& source, ClipFile& file) {
    file.groups = GroupsOf(WalkedPartitions(source.Bytes()), file.channels);
    // What is a last group without sound in a closed file is one whose sound was still to come.
    if (!file.groups.empty() && file.groups.back().sound.size() != file.channels) file.groups.pop_back();
    file.frames = 0;
    for (ClipGroup& group : file.groups) {
        group.firstFrame = static_cast<uint64_t>(file.frames);
        file.frames += group.frames;
    }
    file.duration = file.frames;
    file.samples = DurationToAudioSample(file.rateStandard, file.frames, file.samplingRate);
}

ClipVerdict Judge(const ClipSource& source, ClipFile& file, const HeaderArea& area) {
    const auto footer = static_cast<uint64_t>(area.pack.GetFooterPartition());
    auto damage = area.damage;
    const auto footerPack = damage ? std::nullopt : FooterAt(source, footer, file.fileSize);
    if (footerPack) {
        damage = TakeListedGroups(source, file, area.sets, footer, *footerPack);
        if (!damage) return {};
    }
    if (file.format && !area.sets.Broken()) TakeWalkedGroups(source, file);
    if (damage) return {ClipVerdict::Kind::kDamaged, *damage};
    return {ClipVerdict::Kind::kCutOff, static_cast<uint64_t>(file.frames)};
}

}  // namespace

void ReadOp1b(const ClipSource& source, std::span<const uint8_t> start, ClipFile& file) {
    const std::vector<uint8_t> header = WholeHeader(source, start, file.fileSize);
    HeaderArea area = TakeApart(header);
    if (area.damage) area.damage = std::min(*area.damage, file.fileSize);

    const ClipPictureFormat format{GetVideoStandardFromHeader(header.data()),
                                   GetCompTypeLongGFromHeader(header.data())};
    if (format.videoStd != 0 && format.compType != 0) {
        file.isVideo = true;
        file.format = format;
        file.frameRate = GetVideoEditRate(format.videoStd);
        file.rateStandard = format.videoStd;
        file.partitionFrames = VideoStandardToPartitionFrame(format.videoStd);
        file.wide = area.sets.First("CDCIDescriptor").Rational("AspectRatio") == MXFRATIONALTag{16, 9};
    } else if (!area.damage) {
        source.Fail("holds pictures of a format not known here (offset " + std::to_string(area.pack.GetLength()) + ")");
    }
    file.channels = static_cast<uint32_t>(area.sets.All("AES3Descriptor").size());
    if (file.channels != 0) {
        file.samplingRate = GetSamplingRateFromHeader(header.data());
        file.bitsPerSample = 8 * GetBytesPerSampleFromHeader(header.data());
        file.samples = GetSampleNumFromHeader(header.data());
        if (file.samplingRate == 0 || (file.bitsPerSample != 16 && file.bitsPerSample != 24)) {
            area.damage = area.damage.value_or(area.pack.GetLength());
        }
    }
    file.origin = Origin(area.sets);
    ReadIdentity(file, area.sets);
    ReadSideData(file, area.sets);
    file.verdict = Judge(source, file, area);
    if (!file.groups.empty()) {
        file.dataOffset = file.groups.front().pictures.begin;
        file.dataSize = static_cast<int64_t>(file.groups.back().end - file.dataOffset);
    }
}

}  // namespace kmxf
