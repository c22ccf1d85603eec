#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kmxf {

// Upper case, no spaces.
inline std::string HexText(std::span<const uint8_t> bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

}  // namespace kmxf
