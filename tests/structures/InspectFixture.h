#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "support/Hex.h"
#include "support/Walk.h"

// A small file with a packet of every kind, and what a walk finds in a file as lines of text.
namespace kmxf::test {

inline const std::string kPackKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 ";
inline const std::string kSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 ";
inline const std::string kHeaderPackKey = kPackKey + "02 04 00 ";
inline const std::string kPrimerKey = kPackKey + "05 01 00 ";
inline const std::string kFillItemKey = "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 ";
inline const std::string kPictureKey = "06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01 ";
inline const std::string kUnknownKey = "06 0E 2B 34 03 01 01 01 7A 7A 7A 7A 7A 7A 7A 7A ";

inline std::string Head(const char* position) { return kPackKey + position + " 83 00 00 58 "; }
// A pack's value without essence containers: FooterPartition 489, and no BodySID but that given.
inline std::string PackFields(const char* thisPartition, const char* bodySID) {
    return std::string("00 01 00 03  00 00 00 01 ") + thisPartition +
           " 0000000000000000 00000000000001E9 0000000000000000 0000000000000000 00000000 0000000000000000 " + bodySID +
           " 06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00  00000000 00000010 ";
}

inline std::vector<uint8_t> SmallFile() {
    return Hex(kHeaderPackKey +
               "83 00 00 68"  // 0
               "00 01 00 03  00 00 00 01  0000000000000000  0000000000000000  00000000000001E9"
               "0000000000000086  0000000000000042  00000065  0000000000000000  00000000"
               "06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00"
               "00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01" +
               kPrimerKey +
               "83 00 00 3E  00 00 00 03  00 00 00 12"  // 124
               "3C 0A  06 0E 2B 34 01 01 01 01 01 01 15 02 00 00 00 00"
               "3B 02  06 0E 2B 34 01 01 01 02 07 02 01 10 02 04 00 00"
               "80 77  06 0E 2B 34 01 01 01 0E 04 01 06 06 01 0A 00 00" +
               kSetKey +
               "2F 00  83 00 00 25"  // 206: Preface
               "3C 0A 00 10  A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF"
               "3B 02 00 08  07 DD 05 06 07 08 09 00"
               "80 77 00 01  7A" +
               "06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00  83 00 00 14"  // 263
               "3F 0B 00 08  00 00 75 30 00 00 03 E9  3F 06 00 04  00 00 00 65" +
               kFillItemKey + "00" +                                                                       // 303
               Head("03 04 00") + PackFields("0000000000000140", "00000001") +                             // 320
               kPictureKey + "87 00 00 00 00 00 00 10  F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF" +  // 428
               kUnknownKey + "81 03  D1 D2 D3" +                                                           // 468
               Head("04 04 00") + PackFields("00000000000001E9", "00000000") +                             // 489
               kPackKey +
               "11 01 00  83 00 00 28"  // 597
               "00 00 00 00  00 00 00 00 00 00 00 00"
               "00 00 00 01  00 00 00 00 00 00 01 40"
               "00 00 00 00  00 00 00 00 00 00 01 E9"
               "00 00 00 3C");  // to 657
}

// "offset kind name head+length partition", with "/available" behind the length of a packet that is not whole.
inline std::string Line(const InspectedPacket& packet) {
    std::string line = std::to_string(packet.offset) + " " + std::string(KindName(packet.kind)) + " ";
    if (!packet.name.empty()) line += std::string(packet.name) + " ";
    line += std::to_string(packet.headSize) + "+" + std::to_string(packet.length);
    if (!packet.whole) line += "/" + std::to_string(packet.available);
    return line + " " + std::to_string(packet.partition);
}

inline std::vector<std::string> Lines(IByteSource& source) {
    CInspector inspector(source);
    std::vector<std::string> lines;
    while (const auto packet = inspector.Next()) lines.push_back(Line(*packet));
    return lines;
}
inline std::vector<std::string> Lines(const std::vector<uint8_t>& file) {
    MemorySource source(file);
    return Lines(source);
}

// "name = text" for every item of the packet of that number; the name of an unknown item is its tag.
inline std::vector<std::string> ItemLines(const std::vector<uint8_t>& file, size_t number) {
    std::vector<std::string> lines;
    const auto packets = Walk(file);
    for (const InspectedItem& item : packets.at(number).items) {
        char tag[8];
        std::snprintf(tag, sizeof tag, "%04X", item.tag);
        lines.push_back((item.name.empty() ? tag : std::string(item.name)) + " = " + item.Text());
    }
    return lines;
}

}  // namespace kmxf::test
