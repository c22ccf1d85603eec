#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "core/Lookup.h"
#include "kmxf/core/Records.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Descriptors.h"

namespace kmxf {

// The video standards that a row of a table stands for, one bit each.
using StandardSet = uint8_t;
inline constexpr StandardSet k5994I = 0x01, k50I = 0x02;
inline constexpr StandardSet k2398P = 0x04, k2997P = 0x08, k5994P = 0x10, k25P = 0x20, k50P = 0x40;
inline constexpr StandardSet kInterlaced = k5994I | k50I;
inline constexpr StandardSet k60HzProgressive = k2398P | k2997P | k5994P, k50HzProgressive = k25P | k50P;
inline constexpr StandardSet kProgressive = k60HzProgressive | k50HzProgressive;
inline constexpr StandardSet kAnyStandard = kInterlaced | kProgressive;

struct StandardBit {
    uint32_t videoStd;
    StandardSet bit;
};
inline constexpr StandardBit kStandardBits[] = {
    {VIDEO_STD_59_94I, k5994I}, {VIDEO_STD_50I, k50I}, {VIDEO_STD_23_98P, k2398P}, {VIDEO_STD_29_97P, k2997P},
    {VIDEO_STD_59_94P, k5994P}, {VIDEO_STD_25P, k25P}, {VIDEO_STD_50P, k50P},
};

// The row of a table by format, null when there is none.
template <class Row>
const Row* FindFormat(std::span<const Row> rows, uint32_t videoStd, uint32_t compType) {
    const StandardBit* standard = FindRow(kStandardBits, &StandardBit::videoStd, videoStd);
    if (standard == nullptr) return nullptr;
    const auto row = std::ranges::find_if(
        rows, [&](const Row& each) { return each.compType == compType && (each.standards & standard->bit) != 0; });
    return row == rows.end() ? nullptr : &*row;
}

// What a format decides in a picture descriptor (SMPTE ST 377-1, annex E).
struct PictureFormat {
    uint32_t compType;
    StandardSet standards;
    MXFKEYTag coding;
    uint8_t frameLayout;  // 0 full frame, 1 separate fields
    uint32_t storedWidth, storedHeight;
    MXFRATIONALTag aspectRatio;
    uint32_t lineMap[2];
    uint32_t componentDepth;
    uint32_t horizontalSubsampling, verticalSubsampling;
};

// Gives the descriptor the values of the row and the standard's edit rate. Null: kStatusInvalidArgument, and the
// descriptor stays as it is.
int32_t DescribePicture(CCDCIEssenceDescriptor& descriptor, const PictureFormat* format, uint32_t videoStd);

}  // namespace kmxf
