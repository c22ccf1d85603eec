#include "structures/AVCIntraPicture.h"

#include "core/Labels.h"
#include "structures/PictureFormat.h"

namespace kmxf {

namespace {

// The coding label names the class of AVC-Intra, and the raster with its rate.
constexpr MXFKEYTag Coding(uint8_t avcClass, uint8_t raster) {
    MXFKEYTag label = kAVCIntraPictureCoding;
    label.bytes[14] = avcClass;
    label.bytes[15] = raster;
    return label;
}

constexpr MXFRATIONALTag kWide = {16, 9};

// clang-format off

// 10 bits throughout; class 50 is 4:2:0 of three quarters the width, classes 100 and 200 are 4:2:2 (SMPTE RP 2027).
constexpr PictureFormat kFormats[] = {
    {COMP_TYPE_AVCI50_1080,  k5994I,           Coding(0x21, 0x01), 1, 1440,  540, kWide, {21, 584}, 10, 2, 2},
    {COMP_TYPE_AVCI50_1080,  k50I,             Coding(0x21, 0x02), 1, 1440,  540, kWide, {21, 584}, 10, 2, 2},
    {COMP_TYPE_AVCI50_1080,  k60HzProgressive, Coding(0x21, 0x03), 0, 1440, 1080, kWide, {42, 0},   10, 2, 2},
    {COMP_TYPE_AVCI50_1080,  k50HzProgressive, Coding(0x21, 0x04), 0, 1440, 1080, kWide, {42, 0},   10, 2, 2},
    {COMP_TYPE_AVCI50_720,   k60HzProgressive, Coding(0x21, 0x08), 0,  960,  720, kWide, {26, 0},   10, 2, 2},
    {COMP_TYPE_AVCI50_720,   k50HzProgressive, Coding(0x21, 0x09), 0,  960,  720, kWide, {26, 0},   10, 2, 2},
    {COMP_TYPE_AVCI100_1080, k5994I,           Coding(0x31, 0x01), 1, 1920,  540, kWide, {21, 584}, 10, 2, 1},
    {COMP_TYPE_AVCI100_1080, k50I,             Coding(0x31, 0x02), 1, 1920,  540, kWide, {21, 584}, 10, 2, 1},
    {COMP_TYPE_AVCI100_1080, k60HzProgressive, Coding(0x31, 0x03), 0, 1920, 1080, kWide, {42, 0},   10, 2, 1},
    {COMP_TYPE_AVCI100_1080, k50HzProgressive, Coding(0x31, 0x04), 0, 1920, 1080, kWide, {42, 0},   10, 2, 1},
    {COMP_TYPE_AVCI100_720,  k60HzProgressive, Coding(0x31, 0x08), 0, 1280,  720, kWide, {26, 0},   10, 2, 1},
    {COMP_TYPE_AVCI100_720,  k50HzProgressive, Coding(0x31, 0x09), 0, 1280,  720, kWide, {26, 0},   10, 2, 1},
    {COMP_TYPE_AVCI200_1080, k5994I,           Coding(0x32, 0x01), 1, 1920,  540, kWide, {21, 584}, 10, 2, 1},
    {COMP_TYPE_AVCI200_1080, k50I,             Coding(0x32, 0x02), 1, 1920,  540, kWide, {21, 584}, 10, 2, 1},
    {COMP_TYPE_AVCI200_1080, k60HzProgressive, Coding(0x32, 0x03), 0, 1920, 1080, kWide, {42, 0},   10, 2, 1},
    {COMP_TYPE_AVCI200_1080, k50HzProgressive, Coding(0x32, 0x04), 0, 1920, 1080, kWide, {42, 0},   10, 2, 1},
    {COMP_TYPE_AVCI200_720,  k60HzProgressive, Coding(0x32, 0x08), 0, 1280,  720, kWide, {26, 0},   10, 2, 1},
    {COMP_TYPE_AVCI200_720,  k50HzProgressive, Coding(0x32, 0x09), 0, 1280,  720, kWide, {26, 0},   10, 2, 1},
};

// clang-format on

}  // namespace

int32_t DescribeAVCIntraPicture(CMPEGEssenceDescriptor& descriptor, uint32_t videoStd, uint32_t compType) {
    return DescribePicture(descriptor, FindFormat<PictureFormat>(kFormats, videoStd, compType), videoStd);
}

}  // namespace kmxf
