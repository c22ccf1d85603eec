#include "reader/Op1bHeader.h"

#include <limits>

#include "collaborators/Report.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf {

namespace {

constexpr uint32_t kMostThumbnail = 16384;

// A count of frames or samples that a file can hold: it stays one when it is doubled, or turned into bytes.
std::optional<int64_t> FindCount(HeaderBytes header, const MXFKEYTag& key, uint16_t localTag) {
    auto item = FindItem(header, key, localTag, 8);
    const int64_t count = item ? item->I64() : -1;
    return count >= 0 && count <= std::numeric_limits<int64_t>::max() / 8 ? std::optional(count) : std::nullopt;
}

bool Fail(const char* message) {
    Report("CReadMXFOp1b::GetHeaderParam", "ReadMXFOp1b", "%s", message);
    return false;
}

// Hands `take` tag, file offset and value of every item of the set; false when the set or an item leads outside, or
// when `take` says so.
template <class Take>
bool ForEachItem(HeaderBytes header, size_t at, Take take) {
    const HeaderBytes set = header.subspan(at);
    const auto head = ReadKLVHead(set);
    const auto value = head ? KLVValue(set, *head) : std::nullopt;
    if (!value) return false;
    for (ByteReader items(*value); items.Remaining() > 0;) {
        const uint16_t tag = items.U16();
        const uint16_t length = items.U16();
        const size_t offset = at + head->size + items.Position();
        const HeaderBytes item = items.Take(length);
        if (!items.Ok() || !take(tag, offset, item)) return false;
    }
    return true;
}

bool Take(HeaderBytes value, uint8_t& number) {
    number = ByteReader(value).U8();
    return value.size() == sizeof number;
}
bool Take(HeaderBytes value, uint16_t& number) {
    number = ByteReader(value).U16();
    return value.size() == sizeof number;
}

// The tag under which the file holds an item; its own where the primer does not speak of it.
uint16_t TagOf(HeaderBytes header, uint16_t localTag) {
    const uint16_t tag = FileTag(header, localTag);
    return tag == 0 ? localTag : tag;
}

bool GetXML(HeaderBytes header, Op1bHeader& clip) {
    const auto at = FindPacket(header, kXMLFrameworkKey);
    if (!at) return true;
    SideData& xml = clip.xml.emplace();
    const uint16_t dataTag = TagOf(header, kTagXMLData);
    return ForEachItem(header, *at, [&](uint16_t tag, size_t offset, HeaderBytes value) {
        if (tag == dataTag) xml = {offset, static_cast<uint32_t>(value.size())};
        return true;
    });
}

bool GetThumbnail(HeaderBytes header, Op1bHeader& clip) {
    const auto at = FindPacket(header, kThumbnailFrameworkKey);
    if (!at) return true;
    Thumbnail& thumbnail = clip.thumbnail.emplace();
    const uint16_t formatTag = TagOf(header, kTagThumbnailFormat), dataTag = TagOf(header, kTagThumbnailData);
    const uint16_t widthTag = TagOf(header, kTagThumbnailWidth), heightTag = TagOf(header, kTagThumbnailHeight);
    return ForEachItem(header, *at, [&](uint16_t tag, size_t offset, HeaderBytes value) {
        if (tag == formatTag) return Take(value, thumbnail.format);
        if (tag == widthTag) return Take(value, thumbnail.width);
        if (tag == heightTag) return Take(value, thumbnail.height);
        if (tag == dataTag) thumbnail.picture = {offset, static_cast<uint32_t>(value.size())};
        return tag != dataTag || value.size() <= kMostThumbnail;
    });
}

}  // namespace

bool GetHeaderParam(HeaderBytes header, Op1bHeader& clip) {
    clip.videoStd = GetVideoStandardFromHeader(header);
    if (VideoStandardToPartitionFrame(clip.videoStd) == 0) return Fail("Invalid VideoStandard.");
    clip.compType = GetCompTypeLongGFromHeader(header);
    if (clip.compType == 0) return Fail("Invalid CompressionType.");

    // Origin and duration are those of the first tracks behind the file package: of its timecode and of its pictures.
    const auto filePackage = FindPacket(header, kFilePackageKey);
    if (!filePackage) return false;
    const auto origin = FindCount(header.subspan(*filePackage), kTrackKey, kTagOrigin);
    const auto duration = FindCount(header.subspan(*filePackage), kSourceClipKey, kTagDuration);
    if (!origin || !duration) return false;
    // A timecode frame spans two pictures at the high frame rates.
    const bool halved = clip.videoStd == VIDEO_STD_50P || clip.videoStd == VIDEO_STD_59_94P;
    clip.origin = halved ? 2 * *origin : *origin;
    clip.duration = *duration;
    // Unknown is negative (SMPTE ST 377-1) and the same as absent.
    clip.frames = FindCount(header, kCDCIDescriptorKey, kTagContainerDuration).value_or(clip.duration);

    clip.channels = GetKeyNum(header.data(), static_cast<uint32_t>(header.size()), kAES3DescriptorKey);
    if (clip.channels != 0) {
        clip.samples = GetSampleNumFromHeader(header);
        clip.samplingRate = GetSamplingRateFromHeader(header);
        clip.bytesPerSample = GetBytesPerSampleFromHeader(header);
        if (clip.samplingRate == 0 || clip.bytesPerSample == 0) return false;
        if (clip.samples < 0 || clip.samples > std::numeric_limits<int64_t>::max() / 8) return false;
    }
    clip.startTimecode = GetStartTimecodeFromHeader(header);
    clip.drop = GetDropFlagFromHeader(header);
    clip.materialUID = GetMaterialUIDFromHeader(header);
    clip.validDMS = HasDescriptiveMetadata(header);
    return true;
}

bool GetMetadata(HeaderBytes header, Op1bHeader& clip) { return GetXML(header, clip) && GetThumbnail(header, clip); }

}  // namespace kmxf
