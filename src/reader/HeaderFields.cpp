#include "reader/HeaderFields.h"

#include <algorithm>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFHeader.h"

namespace kmxf {

namespace {

constexpr uint32_t kBufferSize = 131072;  // what the caller of an exported function has

constexpr size_t kPatternBytesAt = 96;  // bytes 12 and 13 of the operational pattern in a pack with a 4-byte length

// The half of a Long-GOP compression type that says the raster, by the stored height of the picture.
struct HeightRow {
    uint32_t height, raster;
};
constexpr HeightRow kHeights[] = {
    {540, 0xC100}, {544, 0xC100}, {720, 0xC200}, {1080, 0xC100}, {1088, 0xC100},
};
// The half that says the rate.
constexpr uint32_t kRates[] = {0x04000000, 0x0C000000, 0x10000000, 0x20000000};

HeaderBytes Buffer(const uint8_t* header) { return {header, header == nullptr ? 0 : kBufferSize}; }

uint32_t Size(HeaderBytes bytes) { return static_cast<uint32_t>(bytes.size()); }

}  // namespace

std::optional<size_t> FindPacket(HeaderBytes header, const MXFKEYTag& key) {
    for (size_t at = 0;;) {
        const HeaderBytes rest = header.subspan(at);
        const auto head = ReadKLVHead(rest);
        if (!head) return std::nullopt;
        if (head->key == key) return at;
        const auto value = KLVValue(rest, *head);
        if (!value) return std::nullopt;
        at += head->size + value->size();
    }
}

std::optional<ByteReader> FindItem(HeaderBytes header, const MXFKEYTag& key, uint16_t localTag, uint32_t length) {
    int64_t offset = 0;
    uint32_t found = 0;
    if (!GetKeyParam(header.data(), Size(header), key, localTag, &offset, &found) || found != length)
        return std::nullopt;
    ByteReader reader(header);
    reader.Skip(static_cast<uint64_t>(offset));
    const HeaderBytes value = reader.Take(length);
    return reader.Ok() ? std::optional(ByteReader(value)) : std::nullopt;
}

uint16_t FileTag(HeaderBytes header, uint16_t localTag) {
    return GetLocalTag(header.data(), Size(header), FindRow(kPrimerRows, &PrimerRow::tag, localTag)->ul);
}

bool HasDescriptiveMetadata(HeaderBytes header) {
    return std::ranges::any_of(
        std::initializer_list<MXFKEYTag>{kClipFrameworkKey, kSceneFrameworkKey}, [&](const MXFKEYTag& key) {
            int64_t offset = 0;
            uint32_t length = 0;
            return GetKeyParam(header.data(), Size(header), key, kTagFrameworkLanguageCode, &offset, &length);
        });
}

uint32_t GetVideoStandardFromHeader(HeaderBytes header) {
    auto rate = FindItem(header, kCDCIDescriptorKey, kTagSampleRate, 8);
    auto layout = FindItem(header, kCDCIDescriptorKey, kTagFrameLayout, 1);
    return rate && layout ? EditRateToVideoStd(rate->Rational(), layout->U8()) : 0;
}

uint32_t GetCompTypeLongGFromHeader(HeaderBytes header) {
    auto height = FindItem(header, kCDCIDescriptorKey, kTagStoredHeight, 4);
    const uint16_t rateTag = FileTag(header, kTagAVCAverageBitRate);
    auto bitRate = rateTag == 0 ? std::nullopt : FindItem(header, kAVCSubDescriptorKey, rateTag, 4);
    const auto* row = height ? FindRow(kHeights, &HeightRow::height, height->U32()) : nullptr;
    if (row == nullptr || !bitRate) return 0;

    // Of full-height pictures at the high frame rates the bit rate stands doubled.
    const uint32_t videoStd = GetVideoStandardFromHeader(header);
    const bool doubled = row->height >= 1080 && (videoStd == VIDEO_STD_59_94P || videoStd == VIDEO_STD_50P);
    const uint32_t rate = bitRate->U32() / (doubled ? 2 : 1);
    for (const uint32_t half : kRates) {
        if (GetAVCBitRate(row->raster | half) == rate) return row->raster | half;
    }
    return 0;
}

int64_t GetSampleNumFromHeader(HeaderBytes header) {
    // The clip of the file package is the one that comes from nowhere else.
    for (HeaderBytes rest = header;;) {
        int64_t offset = 0;
        uint32_t length = 0;
        if (!GetKeyParam(rest.data(), Size(rest), kSourceClipKey, kTagInstanceUID, &offset, &length)) return 0;
        // The set is taken to have a 4-byte length and the InstanceUID in front.
        const int64_t start = offset - kKLVHeadSize - 4;
        if (start < 0) return 0;
        rest = rest.subspan(static_cast<size_t>(start));
        ByteReader reader(rest);
        reader.Skip(sizeof(MXFKEYTag));
        const uint32_t total = (reader.U32() & 0xFFFFFF) + kKLVHeadSize;
        if (total > rest.size()) return 0;
        const HeaderBytes clip = rest.first(total);
        auto definition = FindItem(clip, kSourceClipKey, kTagDataDefinition, 16);
        auto source = FindItem(clip, kSourceClipKey, kTagSourcePackageID, 32);
        if (!definition || !source) return 0;
        if (definition->Key() == kSoundDataDefinition && source->Umid() == MXFUMIDTag{}) {
            auto duration = FindItem(clip, kSourceClipKey, kTagDuration, 8);
            return duration ? duration->I64() : 0;
        }
        rest = rest.subspan(total);
    }
}

uint32_t GetSamplingRateFromHeader(HeaderBytes header) {
    auto item = FindItem(header, kAES3DescriptorKey, kTagAudioSamplingRate, 8);
    const uint32_t rate = item ? item->U32() : 0;  // the numerator
    return rate == 48000 || rate == 96000 ? rate : 0;
}

uint8_t GetBytesPerSampleFromHeader(HeaderBytes header) {
    auto item = FindItem(header, kAES3DescriptorKey, kTagQuantizationBits, 4);
    const uint32_t bits = item ? item->U32() : 0;
    return bits == 16 || bits == 24 ? static_cast<uint8_t>(bits / 8) : uint8_t{0};
}

int64_t GetStartTimecodeFromHeader(HeaderBytes header) {
    auto item = FindItem(header, kTimecodeComponentKey, kTagStartTimecode, 8);
    return item ? item->I64() : -1;
}

uint16_t GetRoundedTCBaseFromHeader(HeaderBytes header) {
    auto item = FindItem(header, kTimecodeComponentKey, kTagRoundedTimecodeBase, 2);
    return item ? item->U16() : uint16_t{0};
}

bool GetDropFlagFromHeader(HeaderBytes header) {
    auto item = FindItem(header, kTimecodeComponentKey, kTagDropFrame, 1);
    return item && item->U8() != 0;
}

MXFUMIDTag GetMaterialUIDFromHeader(HeaderBytes header) {
    auto item = FindItem(header, kMaterialPackageKey, kTagPackageUID, 32);
    return item ? item->Umid() : MXFUMIDTag{};
}

int32_t GetOperationPattern(const uint8_t* header) {
    ByteReader reader(Buffer(header));
    reader.Skip(kPatternBytesAt);
    const uint8_t complexity = reader.U8(), packages = reader.U8();
    if (complexity == 0x10) return 0;
    if (complexity == 0x01 && (packages == 0x01 || packages == 0x02)) return packages;
    return -1;
}

uint32_t GetVideoStandardFromHeader(const uint8_t* header) { return GetVideoStandardFromHeader(Buffer(header)); }
uint32_t GetCompTypeLongGFromHeader(const uint8_t* header) { return GetCompTypeLongGFromHeader(Buffer(header)); }
int64_t GetSampleNumFromHeader(const uint8_t* header) { return GetSampleNumFromHeader(Buffer(header)); }
uint32_t GetSamplingRateFromHeader(const uint8_t* header) { return GetSamplingRateFromHeader(Buffer(header)); }
uint8_t GetBytesPerSampleFromHeader(const uint8_t* header) { return GetBytesPerSampleFromHeader(Buffer(header)); }
int64_t GetStartTimecodeFromHeader(const uint8_t* header) { return GetStartTimecodeFromHeader(Buffer(header)); }
uint16_t GetRoundedTCBaseFromHeader(const uint8_t* header) { return GetRoundedTCBaseFromHeader(Buffer(header)); }
bool GetDropFlagFromHeader(const uint8_t* header) { return GetDropFlagFromHeader(Buffer(header)); }
MXFUMIDTag GetMaterialUIDFromHeader(const uint8_t* header) { return GetMaterialUIDFromHeader(Buffer(header)); }

}  // namespace kmxf
