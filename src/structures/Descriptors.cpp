#include "kmxf/structures/Descriptors.h"

#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/PictureFormat.h"

namespace kmxf {

namespace {

// The coding label of DV and DV-based pictures names the family and the format in it (SMPTE ST 383).
constexpr MXFKEYTag DVCoding(uint8_t family, uint8_t format) {
    MXFKEYTag label = kDVPictureCoding;
    label.bytes[13] = family;
    label.bytes[14] = format;
    return label;
}

constexpr MXFRATIONALTag kNarrow = {4, 3};
constexpr MXFRATIONALTag kWide = {16, 9};
constexpr MXFKEYTag kHigh422 = kAVCHigh422PictureCoding;
constexpr MXFKEYTag kHigh = kAVCHighPictureCoding;

// clang-format off

// DV of 1080 lines is described by the full raster at 10 bits, and at both rates by the same lines, although the codec
// stores fewer pixels of 8 bits: these are the values that files of the kind carry.
constexpr PictureFormat kFormats[] = {
    {COMP_TYPE_DV25,         k5994I,           DVCoding(0x02, 0x01), 1,  720,  240, kNarrow, {23, 285},  8, 4, 1},
    {COMP_TYPE_DV25,         k50I,             DVCoding(0x02, 0x02), 1,  720,  288, kNarrow, {23, 335},  8, 4, 1},
    {COMP_TYPE_DV50,         k5994I,           DVCoding(0x02, 0x03), 1,  720,  240, kNarrow, {23, 285},  8, 2, 1},
    {COMP_TYPE_DV50,         k50I,             DVCoding(0x02, 0x04), 1,  720,  288, kNarrow, {23, 335},  8, 2, 1},
    {COMP_TYPE_DV100_1080I,  k5994I,           DVCoding(0x02, 0x05), 1, 1920,  540, kWide,   {21, 584}, 10, 2, 1},
    {COMP_TYPE_DV100_1080I,  k50I,             DVCoding(0x02, 0x06), 1, 1920,  540, kWide,   {21, 584}, 10, 2, 1},
    {COMP_TYPE_DV100_720P,   k60HzProgressive, DVCoding(0x02, 0x07), 0, 1280,  720, kWide,   {26, 0},   10, 2, 1},
    {COMP_TYPE_DV100_720P,   k50HzProgressive, DVCoding(0x02, 0x08), 0, 1280,  720, kWide,   {26, 0},   10, 2, 1},
    {COMP_TYPE_LONGG6_1080,  kInterlaced,      kHigh,                1, 1920,  540, kWide,   {21, 584},  8, 2, 2},
    {COMP_TYPE_LONGG6_1080,  kProgressive,     kHigh,                0, 1920, 1080, kWide,   {42, 0},    8, 2, 2},
    {COMP_TYPE_LONGG6_720,   kAnyStandard,     kHigh,                0, 1280,  720, kWide,   {26, 0},    8, 2, 2},
    {COMP_TYPE_LONGG12_1080, kInterlaced,      kHigh,                1, 1920,  540, kWide,   {21, 584},  8, 2, 2},
    {COMP_TYPE_LONGG12_1080, kProgressive,     kHigh,                0, 1920, 1080, kWide,   {42, 0},    8, 2, 2},
    {COMP_TYPE_LONGG12_720,  kAnyStandard,     kHigh,                0, 1280,  720, kWide,   {26, 0},    8, 2, 2},
    {COMP_TYPE_LONGG25_1080, kInterlaced,      kHigh422,             1, 1920,  540, kWide,   {21, 584}, 10, 2, 1},
    {COMP_TYPE_LONGG25_1080, kProgressive,     kHigh422,             0, 1920, 1080, kWide,   {42, 0},   10, 2, 1},
    {COMP_TYPE_LONGG25_720,  kAnyStandard,     kHigh422,             0, 1280,  720, kWide,   {26, 0},   10, 2, 1},
    {COMP_TYPE_LONGG50_1080, kInterlaced,      kHigh422,             1, 1920,  540, kWide,   {21, 584}, 10, 2, 1},
    {COMP_TYPE_LONGG50_1080, kProgressive,     kHigh422,             0, 1920, 1080, kWide,   {42, 0},   10, 2, 1},
    {COMP_TYPE_LONGG50_720,  kAnyStandard,     kHigh422,             0, 1280,  720, kWide,   {26, 0},   10, 2, 1},
};

// Consumer DV (IEC 61834) differs in its coding label, and at 50i it is 4:2:0.
constexpr PictureFormat kConsumerFormats[] = {
    {COMP_TYPE_DV25, k5994I, DVCoding(0x01, 0x01), 1, 720, 240, kNarrow, {23, 285}, 8, 4, 1},
    {COMP_TYPE_DV25, k50I,   DVCoding(0x01, 0x02), 1, 720, 288, kNarrow, {23, 335}, 8, 2, 2},
};

// clang-format on

std::vector<uint8_t> LineMap(uint32_t first, uint32_t second) {
    return EncodedBytes(16, [&](ByteWriter& writer) {
        for (const uint32_t number : {uint32_t{2}, uint32_t{4}, first, second}) writer.U32(number);
    });
}

MXFKEYTag ClipContainer(uint32_t videoStd, uint32_t compType, bool consumerDV) {
    MXFKEYTag label;
    GetEssenceContainerLabel(videoStd, compType, consumerDV, false, &label);
    return label;
}

}  // namespace

int32_t DescribePicture(CCDCIEssenceDescriptor& descriptor, const PictureFormat* format, uint32_t videoStd) {
    if (format == nullptr) return kStatusInvalidArgument;
    descriptor.SetSampleRate(GetVideoEditRate(videoStd));
    descriptor.SetPictureEssenceCoding(format->coding);
    descriptor.SetFrameLayout(format->frameLayout);
    descriptor.SetStoredWidth(format->storedWidth);
    descriptor.SetStoredHeight(format->storedHeight);
    descriptor.SetAspectRatio(format->aspectRatio);
    descriptor.SetVideoLineMap(format->lineMap[0], format->lineMap[1]);
    descriptor.SetComponentDepth(format->componentDepth);
    descriptor.SetHorizontalSubsampling(format->horizontalSubsampling);
    descriptor.SetVerticalSubsampling(format->verticalSubsampling);
    return kStatusOk;
}

CFileDescriptor::CFileDescriptor(const MXFKEYTag& key) : CMXFHeaderBase(key) {
    Declare({{kTagLinkedTrackID, Encoded(uint32_t{0})},
             {kTagSampleRate, Encoded(MXFRATIONALTag{})},
             {kTagContainerDuration, Encoded(int64_t{0})},
             {kTagEssenceContainer, Encoded(MXFKEYTag{})}});
}
int32_t CFileDescriptor::SetLinkedTrackID(uint32_t trackID) { return Store(kTagLinkedTrackID, Encoded(trackID)); }
int32_t CFileDescriptor::SetSampleRate(MXFRATIONALTag rate) { return Store(kTagSampleRate, Encoded(rate)); }
int32_t CFileDescriptor::SetContainerDuration(int64_t duration) {
    return Store(kTagContainerDuration, Encoded(duration));
}
int32_t CFileDescriptor::SetEssenceContainer(MXFKEYTag label) { return Store(kTagEssenceContainer, Encoded(label)); }

CCDCIEssenceDescriptor::CCDCIEssenceDescriptor(uint32_t videoStd, uint32_t compType, bool consumerDV)
    : CCDCIEssenceDescriptor(kCDCIDescriptorKey, videoStd, compType, consumerDV) {}
CCDCIEssenceDescriptor::CCDCIEssenceDescriptor(const MXFKEYTag& key, uint32_t videoStd, uint32_t compType,
                                               bool consumerDV)
    : CFileDescriptor(key) {
    Declare({{kTagPictureEssenceCoding, Encoded(MXFKEYTag{})},
             {kTagFrameLayout, Encoded(uint8_t{1})},
             {kTagStoredWidth, Encoded(uint32_t{720})},
             {kTagStoredHeight, Encoded(uint32_t{240})},
             {kTagAspectRatio, Encoded(kNarrow)},
             {kTagVideoLineMap, LineMap(23, 285)},
             {kTagComponentDepth, Encoded(uint32_t{8})},
             {kTagHorizontalSubsampling, Encoded(uint32_t{4})},
             {kTagVerticalSubsampling, Encoded(uint32_t{1})},
             {kTagSubDescriptors, Batch({})}});
    SetEssenceContainer(ClipContainer(videoStd, compType, consumerDV));
    SetVideoFormat(videoStd, compType, consumerDV);
}
int32_t CCDCIEssenceDescriptor::SetVideoFormat(uint32_t videoStd, uint32_t compType, bool consumerDV) {
    const auto* consumer = consumerDV ? FindFormat<PictureFormat>(kConsumerFormats, videoStd, compType) : nullptr;
    const auto* format = consumer ? consumer : FindFormat<PictureFormat>(kFormats, videoStd, compType);
    return DescribePicture(*this, format, videoStd);
}
int32_t CCDCIEssenceDescriptor::SetPictureEssenceCoding(MXFKEYTag label) {
    return Store(kTagPictureEssenceCoding, Encoded(label));
}
int32_t CCDCIEssenceDescriptor::SetFrameLayout(uint8_t layout) { return Store(kTagFrameLayout, Encoded(layout)); }
int32_t CCDCIEssenceDescriptor::SetStoredWidth(uint32_t width) { return Store(kTagStoredWidth, Encoded(width)); }
int32_t CCDCIEssenceDescriptor::SetStoredHeight(uint32_t height) { return Store(kTagStoredHeight, Encoded(height)); }
int32_t CCDCIEssenceDescriptor::SetAspectRatio(MXFRATIONALTag ratio) { return Store(kTagAspectRatio, Encoded(ratio)); }
int32_t CCDCIEssenceDescriptor::SetVideoLineMap(uint32_t first, uint32_t second) {
    return Store(kTagVideoLineMap, LineMap(first, second));
}
int32_t CCDCIEssenceDescriptor::SetComponentDepth(uint32_t bits) { return Store(kTagComponentDepth, Encoded(bits)); }
int32_t CCDCIEssenceDescriptor::SetHorizontalSubsampling(uint32_t value) {
    return Store(kTagHorizontalSubsampling, Encoded(value));
}
int32_t CCDCIEssenceDescriptor::SetVerticalSubsampling(uint32_t value) {
    return Store(kTagVerticalSubsampling, Encoded(value));
}
int32_t CCDCIEssenceDescriptor::AddSubDescriptor(MXFKEYTag subDescriptor) {
    return AppendToBatch(kTagSubDescriptors, subDescriptor);
}

CMPEGEssenceDescriptor::CMPEGEssenceDescriptor(uint32_t videoStd, uint32_t compType)
    : CCDCIEssenceDescriptor(kMPEGDescriptorKey, videoStd, compType, false) {}

CAESEssenceDescriptor::CAESEssenceDescriptor() : CFileDescriptor(kAES3DescriptorKey) {
    constexpr MXFRATIONALTag kRate = {48000, 1};
    SetSampleRate(kRate);
    SetEssenceContainer(kAES3ClipContainerLabel);
    Declare({{kTagAudioSamplingRate, Encoded(kRate)},
             {kTagLocked, Encoded(true)},
             {kTagChannelCount, Encoded(uint32_t{1})},
             {kTagQuantizationBits, Encoded(uint32_t{16})},
             {kTagSoundEssenceCompression, Encoded(kUncompressedSoundCoding)},
             {kTagBlockAlign, Encoded(uint16_t{2})},
             {kTagAverageBytesPerSecond, Encoded(uint32_t{96000})}});
}
int32_t CAESEssenceDescriptor::SetAudioSamplingRate(MXFRATIONALTag rate) {
    return Store(kTagAudioSamplingRate, Encoded(rate));
}
int32_t CAESEssenceDescriptor::SetLocked(bool locked) { return Store(kTagLocked, Encoded(locked)); }
int32_t CAESEssenceDescriptor::SetChannelCount(uint32_t count) { return Store(kTagChannelCount, Encoded(count)); }
int32_t CAESEssenceDescriptor::SetQuantizationBits(uint32_t bits) { return Store(kTagQuantizationBits, Encoded(bits)); }
int32_t CAESEssenceDescriptor::SetSoundEssenceCompression(MXFKEYTag label) {
    return Store(kTagSoundEssenceCompression, Encoded(label));
}
int32_t CAESEssenceDescriptor::SetBlockAlign(uint16_t bytes) { return Store(kTagBlockAlign, Encoded(bytes)); }
int32_t CAESEssenceDescriptor::SetAverageBytesPerSecond(uint32_t bytes) {
    return Store(kTagAverageBytesPerSecond, Encoded(bytes));
}

CDataEssenceDescriptor::CDataEssenceDescriptor(MXFRATIONALTag editRate) : CFileDescriptor(kANCDataDescriptorKey) {
    SetSampleRate(editRate);
    SetEssenceContainer(kANCContainerLabel);
}

}  // namespace kmxf
