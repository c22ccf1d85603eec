#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kmxf::test {

// The bytes of a text of hex pairs. Blanks and line ends between the pairs do not count; '#' and '//' begin a comment
// that ends with the line.
inline std::vector<uint8_t> Hex(std::string_view text) {
    const auto digit = [](char c) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
        const auto value = kDigits.find(lower);
        if (value == kDigits.npos) throw std::invalid_argument(std::string("not a hex digit: ") + c);
        return static_cast<uint8_t>(value);
    };
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == '#' || text.substr(i, 2) == "//") {
            i = std::min(text.find('\n', i), text.size());
        } else if (std::string_view(" \t\r\n").find(text[i]) != std::string_view::npos) {
            ++i;
        } else {
            if (i + 1 == text.size()) throw std::invalid_argument("half a byte at the end");
            bytes.push_back(static_cast<uint8_t>(digit(text[i]) << 4 | digit(text[i + 1])));
            i += 2;
        }
    }
    return bytes;
}

// Up to 16 bytes from `offset` as a line of a dump; empty past the end.
inline std::string HexLine(std::span<const uint8_t> bytes, size_t offset) {
    std::string line;
    for (size_t i = offset; i < std::min(bytes.size(), offset + 16); ++i) {
        char pair[4];
        std::snprintf(pair, sizeof pair, "%02X ", bytes[i]);
        line += pair;
    }
    return line;
}

// EXPECT_TRUE(SameBytes(expected, actual)): says where they begin to differ, and shows the lines from there on.
inline testing::AssertionResult SameBytes(std::span<const uint8_t> expected, std::span<const uint8_t> actual) {
    const bool same = expected.size() == actual.size() &&
                      (expected.empty() || std::memcmp(expected.data(), actual.data(), expected.size()) == 0);
    if (same) return testing::AssertionSuccess();
    const auto [e, a] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    const auto difference = static_cast<size_t>(e - expected.begin());
    auto result = testing::AssertionFailure();
    result << "sizes " << expected.size() << " (expected) and " << actual.size() << " (actual), first difference at "
           << difference << '\n';
    for (size_t line = difference / 16 * 16, shown = 0; shown < 8; line += 16, ++shown) {
        if (line >= std::max(expected.size(), actual.size())) break;
        const std::string wanted = HexLine(expected, line), got = HexLine(actual, line);
        result << (wanted == got ? "  " : "! ") << line << "\n    expected " << wanted << "\n    actual   " << got
               << '\n';
    }
    return result;
}

}  // namespace kmxf::test
