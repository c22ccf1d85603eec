#include <algorithm>

#include "core/AVCIHeaderBlocks.h"
#include "core/CompressionType.h"
#include "core/Layout.h"
#include "core/Lookup.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf {

namespace {

constexpr size_t kPPSOffset = 256;

// The block for each standard, by class and raster; null where the class has none.
struct BlockRow {
    VideoStd videoStd;
    const AVCIBlock* class50_1080;
    const AVCIBlock* class50_720;
    const AVCIBlock* class100_1080;
    const AVCIBlock* class200_1080;
    const AVCIBlock* class100_720;  // class 200 too
};
// clang-format off
constexpr BlockRow kBlocks[] = {
    {VIDEO_STD_59_94I, &kI50_1080_5994I, nullptr,         &kI100_1080_5994I, &kI100_1080_5994I, nullptr},
    {VIDEO_STD_50I,    &kI50_1080_50I,   nullptr,         &kI100_1080_50I,   &kI100_1080_50I,   nullptr},
    {VIDEO_STD_23_98P, &kI50_1080_2398P, &kI50_720_2398P, &kI100_1080_2398P, &kI100_1080_2398P, &kI100_720_2398P},
    {VIDEO_STD_29_97P, &kI50_1080_2997P, &kI50_720_2997P, &kI100_1080_2997P, &kI100_1080_2997P, &kI100_720_2997P},
    {VIDEO_STD_25P,    &kI50_1080_25P,   &kI50_720_25P,   &kI100_1080_25P,   &kI100_1080_25P,   &kI100_720_25P},
    {VIDEO_STD_59_94P, &kI50_1080_5994P, &kI50_720_5994P, &kI100_1080_5994P, &kI200_1080_5994P, &kI100_720_5994P},
    {VIDEO_STD_50P,    &kI50_1080_50P,   &kI50_720_50P,   &kI100_1080_50P,   &kI200_1080_50P,   &kI100_720_50P},
};

// The column of kBlocks and the picture parameter set of each compression type.
struct TypeRow {
    CompType compType;
    const AVCIBlock* BlockRow::*block;
    uint8_t pps[9];
};
constexpr TypeRow kTypes[] = {
    {COMP_TYPE_AVCI50_1080,  &BlockRow::class50_1080,  {0x00, 0x00, 0x00, 0x01, 0x68, 0xEE, 0x31, 0x12, 0x11}},
    {COMP_TYPE_AVCI50_720,   &BlockRow::class50_720,   {0x00, 0x00, 0x00, 0x01, 0x68, 0xEE, 0x31, 0x12, 0x11}},
    {COMP_TYPE_AVCI100_1080, &BlockRow::class100_1080, {0x00, 0x00, 0x00, 0x01, 0x68, 0xCE, 0x33, 0x48, 0xD0}},
    {COMP_TYPE_AVCI100_720,  &BlockRow::class100_720,  {0x00, 0x00, 0x00, 0x01, 0x68, 0xCE, 0x31, 0x12, 0x11}},
    {COMP_TYPE_AVCI200_1080, &BlockRow::class200_1080, {0x00, 0x00, 0x00, 0x01, 0x68, 0xCE, 0x33, 0x48, 0xD0}},
    {COMP_TYPE_AVCI200_720,  &BlockRow::class100_720,  {0x00, 0x00, 0x00, 0x01, 0x68, 0xCE, 0x31, 0x12, 0x11}},
};
// clang-format on

}  // namespace

bool GetAVCIHeader(uint32_t videoStd, uint32_t compType, uint8_t* buffer) {
    if (buffer == nullptr || !IsAVCFamily(compType)) return false;
    std::fill_n(buffer, kParameterSetBlock, uint8_t{0});
    const BlockRow* blocks = FindRow(kBlocks, &BlockRow::videoStd, videoStd);
    if (blocks == nullptr) return false;
    // Long-GOP streams carry their own parameter sets: their header stays zero.
    if (const TypeRow* type = FindRow(kTypes, &TypeRow::compType, compType); type != nullptr) {
        if (const AVCIBlock* block = blocks->*type->block; block != nullptr) std::ranges::copy(*block, buffer);
        std::ranges::copy(type->pps, buffer + kPPSOffset);
    }
    return true;
}

}  // namespace kmxf
