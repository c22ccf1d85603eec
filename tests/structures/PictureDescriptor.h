#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/Hex.h"

namespace kmxf::test {

// Edit rates, sizes and numbers of lines, and subsamplings, as hex
inline const std::string k24000 = "00 00 5D C0 00 00 03 E9", k30000 = "00 00 75 30 00 00 03 E9",
                         k60000 = "00 00 EA 60 00 00 03 E9", k25 = "00 00 00 19 00 00 00 01",
                         k50 = "00 00 00 32 00 00 00 01";
inline const std::string k1280 = "00 00 05 00", k1920 = "00 00 07 80";
inline const std::string k540 = "00 00 02 1C", k720 = "00 00 02 D0", k1080 = "00 00 04 38";
inline const std::string kLines21And584 = "00 00 00 15 00 00 02 48", kLines26 = "00 00 00 1A 00 00 00 00",
                         kLines42 = "00 00 00 2A 00 00 00 00";
inline const std::string k1 = "00 00 00 01", k2 = "00 00 00 02";

// The items of a picture descriptor that depend on the format, as hex.
struct PictureItems {
    std::string rate, container, coding;
    std::string layout, width, height, aspectRatio, lineMap, depth, horizontal, vertical;
};

// A whole picture descriptor without sub-descriptor, whose InstanceUID is the first that a fixed environment makes.
inline std::vector<uint8_t> PictureDescriptor(const std::string& keyByte, const PictureItems& items) {
    return Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01" + keyByte + "00  83 00 00 B5" +
               "3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01"
               "30 06 00 04  00 00 00 00"
               "30 01 00 08" +
               items.rate +
               "30 02 00 08  00 00 00 00 00 00 00 00"
               "30 04 00 10" +
               items.container + "32 01 00 10" + items.coding + "32 0C 00 01" + items.layout + "32 03 00 04" +
               items.width + "32 02 00 04" + items.height + "32 0E 00 08" + items.aspectRatio +
               "32 0D 00 10  00 00 00 02 00 00 00 04" + items.lineMap + "33 01 00 04" + items.depth + "33 02 00 04" +
               items.horizontal + "33 08 00 04" + items.vertical + "90 01 00 08  00 00 00 00 00 00 00 10");
}

}  // namespace kmxf::test
