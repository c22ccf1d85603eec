#include <algorithm>
#include <cstring>
#include <vector>

#include "HeaderArea.h"
#include "Program.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFHeader.h"

namespace kmxf::program {

namespace {

constexpr size_t kGetterRoom = 0x20000;   // that the library's getters of header values look at
constexpr size_t kMostHeader = 16 << 20;  // of a file that is not this system's

// The whole header, however long, and at least the getters' room: zeros behind a shorter one.
std::vector<uint8_t> WholeHeader(const InputFile& file, Bytes start, uint64_t fileSize) {
    CPartition pack;
    pack.SetData(start.data(), static_cast<uint32_t>(start.size()));
    int64_t metadataSize = 0;
    pack.GetHeaderByteCount(metadataSize);
    const uint64_t wanted = pack.GetLength() + static_cast<uint64_t>(std::max<int64_t>(metadataSize, 0));
    std::vector<uint8_t> header(start.begin(), start.end());
    if (wanted > header.size() && wanted <= std::clamp<uint64_t>(fileSize, kGetterRoom, kMostHeader)) {
        const auto rest = file.Look(header.size(), static_cast<size_t>(wanted - header.size()));
        header.insert(header.end(), rest.begin(), rest.end());
    }
    header.resize(std::max(header.size(), kGetterRoom));
    return header;
}

ByteRange Place(Bytes header, Bytes value) {
    const auto begin = static_cast<uint64_t>(value.data() - header.data());
    return {begin, begin + value.size()};
}

void ReadSideData(FileInfo& info, Bytes header, const HeaderSets& sets) {
    static constexpr char kPlaceholder[] = "Dummy";
    if (const Bytes xml = sets.Item(kXMLFrameworkKey, kTagXMLData); !xml.empty()) {
        info.xml = {Place(header, xml),
                    xml.size() == sizeof kPlaceholder && std::memcmp(xml.data(), kPlaceholder, xml.size()) == 0};
    }
    const auto thumbnail = [&](uint16_t tag) { return sets.Item(kThumbnailFrameworkKey, tag); };
    if (const Bytes picture = thumbnail(kTagThumbnailData); !picture.empty()) {
        const bool black = std::all_of(picture.begin(), picture.end(), [](uint8_t byte) { return byte == 0; });
        info.thumbnail = {{Place(header, picture), black},
                          Number(thumbnail(kTagThumbnailWidth)),
                          Number(thumbnail(kTagThumbnailHeight)),
                          Number(thumbnail(kTagThumbnailFormat))};
    }
}

// The origin that the picture's track of the file package has.
int64_t Origin(const HeaderSets& filePackage) {
    for (const Bytes track : filePackage.All(kTrackKey)) {
        if (std::ranges::equal(HeaderSets::Item(track, kTagTrackNumber), Bytes(kAVCLongGOPElementKey.bytes).last(4))) {
            return static_cast<int64_t>(Number(HeaderSets::Item(track, kTagOrigin)));
        }
    }
    return 0;
}

// Counts the frames of groups that the random index names; false when the header counts on others.
bool CountFrames(FileInfo& info, int64_t frames) {
    const int64_t perGroup = info.partitionFrames;
    const auto groups = static_cast<int64_t>(info.groups.size());
    if (frames < 0 || frames > groups * perGroup || frames <= (groups - 1) * perGroup) return false;
    for (Op1bGroup& group : info.groups) {
        group.frames = static_cast<uint32_t>(std::min(perGroup, frames - info.frames));
        group.firstFrame = static_cast<uint64_t>(info.frames);
        info.frames += group.frames;
    }
    return true;
}

// Finds the groups of a file that was closed properly; where it was not, the offset that contradicts it.
std::optional<uint64_t> TakeListedGroups(const InputFile& file, FileInfo& info, Bytes header, const HeaderSets& sets,
                                         uint64_t footer, const CPartition& footerPack) {
    // Behind the footer's own index stands the random index.
    const uint64_t counted = footer + footerPack.GetLength() + static_cast<uint64_t>(footerPack.GetIndexByteCount());
    uint64_t damage = std::clamp(counted, footer, info.fileSize);
    const auto partitions = ListedPartitions(file, footer, damage);
    if (!partitions) return damage;
    info.groups = GroupsOf(*partitions, info.channels);
    size_t sorted = 0;
    for (const Op1bGroup& group : info.groups) sorted += 4 + 2 * group.sound.size();
    if (sorted != partitions->size()) return damage + 12 * sorted;
    const Bytes contained = sets.Item(kCDCIDescriptorKey, kTagContainerDuration);
    const Bytes packaged = sets.From(kFilePackageKey).Item(kSourceClipKey, kTagDuration);
    info.duration = static_cast<int64_t>(Number(packaged));
    const Bytes frames = contained.empty() ? packaged : contained;
    if (!CountFrames(info, static_cast<int64_t>(Number(frames))))
        return frames.empty() ? 0 : Place(header, frames).begin;
    return std::nullopt;
}

// Finds the groups that are whole, however the file ended.
void TakeWalkedGroups(const InputFile& file, FileInfo& info) {
    info.groups = GroupsOf(WalkedPartitions(file), info.channels);
    // What is a last group without sound in a closed file is one whose sound was still to come.
    if (!info.groups.empty() && info.groups.back().sound.size() != info.channels) info.groups.pop_back();
    info.frames = 0;
    for (Op1bGroup& group : info.groups) {
        group.firstFrame = static_cast<uint64_t>(info.frames);
        info.frames += group.frames;
    }
    info.duration = info.frames;
    info.samples = DurationToAudioSample(info.rateStandard, info.frames, info.samplingRate);
}

Verdict Judge(const InputFile& file, FileInfo& info, Bytes header, const HeaderArea& area) {
    const auto footer = static_cast<uint64_t>(area.pack.GetFooterPartition());
    auto damage = area.damage;
    const auto footerPack = damage ? std::nullopt : FooterAt(file, footer, info.fileSize);
    if (footerPack) {
        damage = TakeListedGroups(file, info, header, area.sets, footer, *footerPack);
        if (!damage) return {};
    }
    if (info.format && !area.sets.Broken()) TakeWalkedGroups(file, info);
    if (damage) return {Verdict::Kind::kDamaged, *damage};
    if (IsGrowing(file, info.fileSize)) return {Verdict::Kind::kGrowing, 0};
    return {Verdict::Kind::kCutOff, static_cast<uint64_t>(info.frames)};
}

}  // namespace

void ReadOp1b(const InputFile& file, Bytes start, FileInfo& info) {
    const std::vector<uint8_t> header = WholeHeader(file, start, info.fileSize);
    HeaderArea area = TakeApart(header);
    if (area.damage) area.damage = std::min(*area.damage, info.fileSize);

    const VideoFormat format{GetVideoStandardFromHeader(header.data()), GetCompTypeLongGFromHeader(header.data()),
                             false};
    if (format.videoStd != 0 && format.compType != 0) {
        info.isVideo = true;
        info.format = format;
        info.frameRate = GetVideoEditRate(format.videoStd);
        info.rateStandard = format.videoStd;
        info.partitionFrames = VideoStandardToPartitionFrame(format.videoStd);
        info.wide = Rational(area.sets.Item(kCDCIDescriptorKey, kTagAspectRatio)) == MXFRATIONALTag{16, 9};
    } else if (!area.damage) {
        Fail(ExitStatus::kInput, info.path,
             "holds pictures of a format not known here (offset " + std::to_string(area.pack.GetLength()) + ")");
    }
    info.channels = static_cast<uint32_t>(area.sets.All(kAES3DescriptorKey).size());
    if (info.channels != 0) {
        info.samplingRate = GetSamplingRateFromHeader(header.data());
        info.bitsPerSample = 8 * GetBytesPerSampleFromHeader(header.data());
        info.samples = GetSampleNumFromHeader(header.data());
        if (info.samplingRate == 0 || info.bitsPerSample == 0) {
            area.damage = area.damage.value_or(area.pack.GetLength());
        }
    }
    info.origin = Origin(area.sets.From(kFilePackageKey));
    ReadIdentity(info, area.sets);
    ReadSideData(info, header, area.sets);
    info.verdict = Judge(file, info, header, area);
    if (!info.groups.empty()) {
        info.dataOffset = static_cast<uint32_t>(info.groups.front().pictures.begin);
        info.dataSize = static_cast<int64_t>(info.groups.back().end - info.dataOffset);
    }
}

}  // namespace kmxf::program
