#include "Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "core/HexText.h"
#include "core/Labels.h"
#include "kmxf/core/Convert.h"

namespace kmxf::program {

std::string Hex(const uint8_t* bytes, size_t count) { return HexText({bytes, count}); }
std::string Hex(const MXFUMIDTag& umid) { return Hex(umid.bytes, sizeof umid.bytes); }

std::string HexCode(uint32_t code) {
    const uint8_t bytes[] = {static_cast<uint8_t>(code >> 24), static_cast<uint8_t>(code >> 16),
                             static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code)};
    return "0x" + Hex(bytes, sizeof bytes);
}

std::optional<std::vector<uint8_t>> ParseHex(const std::string& hex) {
    if (hex.size() % 2 != 0) return std::nullopt;
    if (!std::all_of(hex.begin(), hex.end(), [](unsigned char c) { return std::isxdigit(c) != 0; }))
        return std::nullopt;
    std::vector<uint8_t> bytes(hex.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

std::optional<MXFUMIDTag> ParseUmid(const std::string& hex) {
    const auto bytes = ParseHex(hex);
    MXFUMIDTag umid;
    if (!bytes || bytes->size() != sizeof umid.bytes) return std::nullopt;
    std::copy(bytes->begin(), bytes->end(), umid.bytes);
    return umid;
}

std::string IsoDate(const MXFTIMESTAMPTag& d) {
    char text[32];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u", unsigned{d.year}, unsigned{d.month},
                  unsigned{d.day}, unsigned{d.hour}, unsigned{d.minute}, unsigned{d.second});
    return text;
}

std::optional<MXFTIMESTAMPTag> ParseIsoDate(const std::string& text) {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int used = 0;
    const int fields = std::sscanf(text.c_str(), "%4u-%2u-%2u%n%*1[T ]%2u:%2u:%2u%n", &year, &month, &day, &used, &hour,
                                   &minute, &second, &used);
    if ((fields != 3 && fields != 6) || static_cast<size_t>(used) != text.size()) return std::nullopt;
    static constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (year == 0 || month < 1 || month > 12 || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    if (day < 1 || day > kDays[month - 1] + (leap && month == 2 ? 1 : 0)) return std::nullopt;
    MXFTIMESTAMPTag date;
    date.year = static_cast<uint16_t>(year);
    date.month = static_cast<uint8_t>(month);
    date.day = static_cast<uint8_t>(day);
    date.hour = static_cast<uint8_t>(hour);
    date.minute = static_cast<uint8_t>(minute);
    date.second = static_cast<uint8_t>(second);
    return date;
}

std::string RateText(const MXFRATIONALTag& rate) {
    return std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator);
}

std::optional<size_t> TextUnits(const std::string& utf8) {
    if (utf8.find('\0') != std::string::npos) return std::nullopt;
    const int32_t size = UTF8ToUTF16(utf8.c_str(), nullptr);
    const bool astral = std::any_of(utf8.begin(), utf8.end(), [](char c) { return (c & 0xF8) == 0xF0; });
    if (size < 0 || astral) return std::nullopt;
    return static_cast<size_t>(size) / 2;
}

std::string ErrorText(int error) { return std::generic_category().message(error); }

std::string WithSeparators(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, " ");
    return text;
}

}  // namespace kmxf::program
