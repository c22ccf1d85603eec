#pragma once

#include <cstdint>

#include "core/Labels.h"
#include "kmxf/core/VideoStandard.h"

// What the labels of an OP-Atom video file say about its pictures.
namespace kmxf {

// The label leaves the standard to the sample rate of the descriptor.
inline constexpr uint32_t kByRate = 0;

struct LabelledFormat {
    MXFKEYTag label;
    uint32_t frameDataSize;  // bytes; 0: the picture coding label decides
    uint32_t videoStd;
    uint32_t compType;
    bool consumerDV = false;
};

constexpr MXFKEYTag DVContainer(uint8_t format) {
    MXFKEYTag label = kDVContainerLabel;
    label.bytes[14] = format;
    return label;
}
constexpr MXFKEYTag AVCIntraCoding(uint8_t pictureClass, uint8_t raster) {
    MXFKEYTag label = kAVCIntraPictureCoding;
    label.bytes[14] = pictureClass;
    label.bytes[15] = raster;
    return label;
}

// clang-format off

// Essence container labels, clip-wrapped (SMPTE ST 383, ST 381-3)
inline constexpr LabelledFormat kContainerFormats[] = {
    {DVContainer(0x40),          120000, VIDEO_STD_59_94I, COMP_TYPE_DV25},
    {DVContainer(0x41),          144000, VIDEO_STD_50I,    COMP_TYPE_DV25},
    {DVContainer(0x50),          240000, VIDEO_STD_59_94I, COMP_TYPE_DV50},
    {DVContainer(0x51),          288000, VIDEO_STD_50I,    COMP_TYPE_DV50},
    {DVContainer(0x01),          120000, VIDEO_STD_59_94I, COMP_TYPE_DV25, true},
    {DVContainer(0x02),          144000, VIDEO_STD_50I,    COMP_TYPE_DV25, true},
    {DVContainer(0x60),          480000, VIDEO_STD_59_94I, COMP_TYPE_DV100_1080I},
    {DVContainer(0x61),          576000, VIDEO_STD_50I,    COMP_TYPE_DV100_1080I},
    {DVContainer(0x62),          240000, kByRate,          COMP_TYPE_DV100_720P},
    {DVContainer(0x63),          288000, kByRate,          COMP_TYPE_DV100_720P},
    {kAVCIntraContainerLabel,         0, kByRate,          0},
};

// Picture coding labels of AVC-Intra (SMPTE RP 2027), classes 50, 100 and 200. The last byte of the label: 1 and 2 for
// 1080 lines interlaced at 59.94 and 50 fields, 3 and 4 for 1080 lines progressive, 8 and 9 for 720 lines.
inline constexpr LabelledFormat kAVCIntraFormats[] = {
    {AVCIntraCoding(0x21, 0x08),  116224, kByRate,          COMP_TYPE_AVCI50_720},
    {AVCIntraCoding(0x21, 0x09),  140288, kByRate,          COMP_TYPE_AVCI50_720},
    {AVCIntraCoding(0x21, 0x01),  232448, VIDEO_STD_59_94I, COMP_TYPE_AVCI50_1080},
    {AVCIntraCoding(0x21, 0x02),  280576, VIDEO_STD_50I,    COMP_TYPE_AVCI50_1080},
    {AVCIntraCoding(0x21, 0x03),  232448, kByRate,          COMP_TYPE_AVCI50_1080},
    {AVCIntraCoding(0x21, 0x04),  280576, kByRate,          COMP_TYPE_AVCI50_1080},
    {AVCIntraCoding(0x31, 0x08),  236032, kByRate,          COMP_TYPE_AVCI100_720},
    {AVCIntraCoding(0x31, 0x09),  284160, kByRate,          COMP_TYPE_AVCI100_720},
    {AVCIntraCoding(0x31, 0x01),  472064, VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080},
    {AVCIntraCoding(0x31, 0x02),  568320, VIDEO_STD_50I,    COMP_TYPE_AVCI100_1080},
    {AVCIntraCoding(0x31, 0x03),  472064, kByRate,          COMP_TYPE_AVCI100_1080},
    {AVCIntraCoding(0x31, 0x04),  568320, kByRate,          COMP_TYPE_AVCI100_1080},
    {AVCIntraCoding(0x32, 0x08),  476160, kByRate,          COMP_TYPE_AVCI200_720},
    {AVCIntraCoding(0x32, 0x09),  571904, kByRate,          COMP_TYPE_AVCI200_720},
    {AVCIntraCoding(0x32, 0x01),  952320, VIDEO_STD_59_94I, COMP_TYPE_AVCI200_1080},
    {AVCIntraCoding(0x32, 0x02), 1143808, VIDEO_STD_50I,    COMP_TYPE_AVCI200_1080},
    {AVCIntraCoding(0x32, 0x03),  952320, kByRate,          COMP_TYPE_AVCI200_1080},
    {AVCIntraCoding(0x32, 0x04), 1143808, kByRate,          COMP_TYPE_AVCI200_1080},
};

// clang-format on

}  // namespace kmxf
