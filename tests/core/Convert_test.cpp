#include "kmxf/core/Convert.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "kmxf/core/Environment.h"

namespace kmxf {
namespace {

using Units = std::vector<uint16_t>;

// What UTF8ToUTF16 returns, and the units it stores: into a buffer of exactly the size it asked for, after a look at
// the units behind it.
struct ToUTF16 {
    int32_t result;
    Units units;
    bool operator==(const ToUTF16&) const = default;
};
ToUTF16 Widen(const std::string& text) {
    const std::vector<char> source(text.c_str(), text.c_str() + text.size() + 1);  // nothing behind the terminator
    const int32_t counted = UTF8ToUTF16(source.data(), nullptr);
    Units units(text.size() + 1, 0xEEEE);
    const int32_t stored = UTF8ToUTF16(source.data(), units.data());
    EXPECT_EQ(counted, stored) << text;
    if (stored >= 0) {
        const auto count = static_cast<size_t>(stored) / 2;
        for (size_t i = count; i < units.size(); ++i) EXPECT_EQ(units[i], 0xEEEE) << "no terminator is written";
        units.resize(count);
    }
    return {stored, units};
}

struct ToUTF8 {
    int32_t result;
    std::string text;
    bool operator==(const ToUTF8&) const = default;
};
ToUTF8 Narrow(Units source) {
    source.push_back(0);
    source.shrink_to_fit();
    const int32_t counted = UTF16ToUTF8(source.data(), nullptr);
    std::vector<char> text(source.size() * 4, '\x55');
    const int32_t stored = UTF16ToUTF8(source.data(), text.data());
    EXPECT_EQ(counted, stored);
    for (auto i = static_cast<size_t>(stored); i < text.size(); ++i) EXPECT_EQ(text[i], '\x55') << "no terminator";
    return {stored, std::string(text.data(), static_cast<size_t>(stored))};
}

TEST(CreateUUID, IsRandomOfVersion4InNetworkOrder) {
    MXFKEYTag first, second;
    EXPECT_TRUE(CreateUUID(&first));
    EXPECT_TRUE(CreateUUID(&second));
    EXPECT_NE(first, second);
    for (const MXFKEYTag& uuid : {first, second}) {
        EXPECT_EQ(uuid.bytes[6] & 0xF0, 0x40);
        EXPECT_EQ(uuid.bytes[8] & 0xC0, 0x80);
    }
}

TEST(CreateUUID, IsTrueForNullToo) { EXPECT_TRUE(CreateUUID(nullptr)); }

TEST(CreateUUID, StoresWhatTheSourceGives) {
    constexpr MXFKEYTag given{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
    SetUUIDSource([&] { return given; });
    MXFKEYTag uuid;
    EXPECT_TRUE(CreateUUID(&uuid));
    SetUUIDSource({});
    EXPECT_EQ(uuid, given);
}

TEST(GetCurrentTimeMXF, IsTheLocalTimeOfTheSource) {
    LocalTime time;
    time.calendar.tm_year = 113;
    time.calendar.tm_mon = 11;
    time.calendar.tm_mday = 31;
    time.calendar.tm_hour = 23;
    time.calendar.tm_min = 58;
    time.calendar.tm_sec = 57;
    time.fraction = 999;
    SetNowSource([&] { return time; });
    const MXFTIMESTAMPTag now = GetCurrentTimeMXF();
    SetNowSource({});
    EXPECT_EQ(now, (MXFTIMESTAMPTag{2013, 12, 31, 23, 58, 57, 0}));
}

TEST(GetCurrentTimeMXF, IsTheSystemsLocalTime) {
    const std::time_t before = std::time(nullptr);
    const MXFTIMESTAMPTag now = GetCurrentTimeMXF();
    const std::time_t after = std::time(nullptr);
    std::tm calendar{};
    calendar.tm_year = now.year - 1900;
    calendar.tm_mon = now.month - 1;
    calendar.tm_mday = now.day;
    calendar.tm_hour = now.hour;
    calendar.tm_min = now.minute;
    calendar.tm_sec = now.second;
    calendar.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&calendar);
    EXPECT_GE(seconds, before - 1);  // the clocks of time() and of chrono may tick a little apart
    EXPECT_LE(seconds, after + 1);
    EXPECT_EQ(now.quarterMillisecond, 0);
}

TEST(UTF8ToUTF16, ConvertsEveryLengthOfSequence) {
    EXPECT_EQ(Widen("A"), (ToUTF16{2, {0x0041}}));
    EXPECT_EQ(Widen("\x7F"), (ToUTF16{2, {0x007F}}));
    EXPECT_EQ(Widen("\xC2\x80"), (ToUTF16{2, {0x0080}}));
    EXPECT_EQ(Widen("\xC3\xA9"), (ToUTF16{2, {0x00E9}}));
    EXPECT_EQ(Widen("\xDF\xBF"), (ToUTF16{2, {0x07FF}}));
    EXPECT_EQ(Widen("\xE0\xA0\x80"), (ToUTF16{2, {0x0800}}));
    EXPECT_EQ(Widen("\xE3\x81\x82"), (ToUTF16{2, {0x3042}}));
    EXPECT_EQ(Widen("\xEF\xBF\xBF"), (ToUTF16{2, {0xFFFF}}));
    EXPECT_EQ(Widen("a\xC3\xA9\xE3\x81\x82z"), (ToUTF16{8, {0x0061, 0x00E9, 0x3042, 0x007A}}));
}

TEST(UTF8ToUTF16, TakesThePlaneOfAFourByteSequenceFromItsOwnBits) {
    // U+1F600, whose surrogates would be D83D DE00.
    EXPECT_EQ(Widen("\xF0\x9F\x98\x80"), (ToUTF16{4, {0xD8CC, 0xDE00}}));
    // U+10000: 0 - 1 runs below D800.
    EXPECT_EQ(Widen("\xF0\x90\x80\x80"), (ToUTF16{4, {0xD7C0, 0xDC00}}));
    // b0 & 7 = 4, b1 = 8F, b2 = BF, b3 = BF: D800 + (16 + 3 - 1 << 6 = 480) + 3C + 30; DC00 + 3C0 + 3F.
    EXPECT_EQ(Widen("\xF4\x8F\xBF\xBF"), (ToUTF16{4, {0xDCEC, 0xDFFF}}));
    // The highest lead byte: D800 + (28 + 3 - 1 << 6 = 780) + 3C + 30.
    EXPECT_EQ(Widen("\xF7\xBF\xBF\xBF"), (ToUTF16{4, {0xDFEC, 0xDFFF}}));
    EXPECT_EQ(Widen("A\xF0\x9F\x98\x80Z"), (ToUTF16{8, {0x0041, 0xD8CC, 0xDE00, 0x005A}}));
}

TEST(UTF8ToUTF16, TestsNoMoreThanTheBitPatterns) {
    EXPECT_EQ(Widen("\xC0\x80"), (ToUTF16{2, {0x0000}})) << "overlong";
    EXPECT_EQ(Widen("\xC1\x81"), (ToUTF16{2, {0x0041}})) << "overlong";
    EXPECT_EQ(Widen("\xE0\x80\x81"), (ToUTF16{2, {0x0001}})) << "overlong";
    EXPECT_EQ(Widen("\xED\xA0\x80"), (ToUTF16{2, {0xD800}})) << "a surrogate";
}

TEST(UTF8ToUTF16, OfNothingIsNothing) {
    EXPECT_EQ(Widen(""), (ToUTF16{0, {}}));
    EXPECT_EQ(UTF8ToUTF16(nullptr, nullptr), -1);
    uint16_t unit = 0xEEEE;
    EXPECT_EQ(UTF8ToUTF16(nullptr, &unit), -1);
    EXPECT_EQ(unit, 0xEEEE);
}

TEST(UTF8ToUTF16, RefusesEveryByteThatBeginsNoSequence) {
    for (int byte = 0x80; byte <= 0xBF; ++byte) EXPECT_EQ(Widen(std::string(1, static_cast<char>(byte))).result, -1);
    for (int byte = 0xF8; byte <= 0xFF; ++byte)
        EXPECT_EQ(Widen(std::string(1, static_cast<char>(byte)) + "\x80\x80\x80").result, -1);
}

TEST(UTF8ToUTF16, RefusesAByteThatContinuesNoSequence) {
    for (const std::string good : {"\xC3\xA9", "\xE3\x81\x82", "\xF0\x9F\x98\x80"})
        for (size_t place = 1; place < good.size(); ++place)
            for (const int byte : {0x01, 0x41, 0x7F, 0xC0, 0xC3, 0xE3, 0xFF}) {
                std::string bad = good;
                bad[place] = static_cast<char>(byte);
                EXPECT_EQ(Widen(bad).result, -1) << place << " " << byte;
            }
}

TEST(UTF8ToUTF16, RefusesASequenceThatTheTerminatorCutsAndReadsNothingBehindIt) {
    for (const std::string good : {"\xC3\xA9", "\xE3\x81\x82", "\xF0\x9F\x98\x80"})
        for (size_t length = 1; length < good.size(); ++length)
            EXPECT_EQ(Widen(good.substr(0, length)).result, -1) << length;
}

TEST(UTF8ToUTF16, LeavesTheUnitsInFrontOfAFailure) {
    Units units(4, 0xEEEE);
    EXPECT_EQ(UTF8ToUTF16("AB\xFFzz", units.data()), -1);
    EXPECT_EQ(units, (Units{0x41, 0x42, 0xEEEE, 0xEEEE}));
}

TEST(UTF16ToUTF8, ConvertsEveryLengthOfSequence) {
    EXPECT_EQ(Narrow({0x0001}), (ToUTF8{1, "\x01"}));
    EXPECT_EQ(Narrow({0x007F}), (ToUTF8{1, "\x7F"}));
    EXPECT_EQ(Narrow({0x0080}), (ToUTF8{2, "\xC2\x80"}));
    EXPECT_EQ(Narrow({0x00E9}), (ToUTF8{2, "\xC3\xA9"}));
    EXPECT_EQ(Narrow({0x07FF}), (ToUTF8{2, "\xDF\xBF"}));
    EXPECT_EQ(Narrow({0x0800}), (ToUTF8{3, "\xE0\xA0\x80"}));
    EXPECT_EQ(Narrow({0x3042}), (ToUTF8{3, "\xE3\x81\x82"}));
    EXPECT_EQ(Narrow({0xD7FF}), (ToUTF8{3, "\xED\x9F\xBF"}));
    EXPECT_EQ(Narrow({0xE000}), (ToUTF8{3, "\xEE\x80\x80"}));
    EXPECT_EQ(Narrow({0xFFFF}), (ToUTF8{3, "\xEF\xBF\xBF"}));
    EXPECT_EQ(Narrow({0x0061, 0x00E9, 0x3042, 0x007A}), (ToUTF8{7, "a\xC3\xA9\xE3\x81\x82z"}));
}

TEST(UTF16ToUTF8, MakesSurrogatePairsFourBytes) {
    EXPECT_EQ(Narrow({0xD800, 0xDC00}), (ToUTF8{4, "\xF0\x90\x80\x80"}));  // U+10000
    EXPECT_EQ(Narrow({0xD83D, 0xDE00}), (ToUTF8{4, "\xF0\x9F\x98\x80"}));  // U+1F600
    EXPECT_EQ(Narrow({0xDBFF, 0xDFFF}), (ToUTF8{4, "\xF4\x8F\xBF\xBF"}));  // U+10FFFF
}

TEST(UTF16ToUTF8, PairsASurrogateWithWhateverFollows) {
    // Plane 1, next = 0041: third byte 80 + (0 << 4) + 1, fourth 80 + 1. The letter is consumed.
    EXPECT_EQ(Narrow({0xD800, 0x0041, 0x0042}), (ToUTF8{5,
                                                        "\xF0\x90\x81\x81"
                                                        "B"}));
    // A low surrogate in front goes the same way: (DC01 >> 6 & F) + 1 = 1.
    EXPECT_EQ(Narrow({0xDC01, 0xD800}), (ToUTF8{4, "\xF0\x90\x90\x80"}));
}

TEST(UTF16ToUTF8, PairsALastSurrogateWithZeroAndStopsAtTheTerminator) {
    EXPECT_EQ(Narrow({0xD83D}), (ToUTF8{4, "\xF0\x9F\x90\x80"}));
    EXPECT_EQ(Narrow({0x0041, 0xDFFF}), (ToUTF8{5, "A\xF4\x8F\xB0\x80"}));
}

TEST(UTF16ToUTF8, OfNothingIsNothing) {
    EXPECT_EQ(Narrow({}), (ToUTF8{0, ""}));
    EXPECT_EQ(UTF16ToUTF8(nullptr, nullptr), -1);
    char byte = '\x55';
    EXPECT_EQ(UTF16ToUTF8(nullptr, &byte), -1);
    EXPECT_EQ(byte, '\x55');
}

TEST(UTFConversions, LeadBackForEveryUnitThatIsNoSurrogate) {
    for (uint32_t unit = 1; unit <= 0xFFFF; ++unit) {
        if (unit >= 0xD800 && unit <= 0xDFFF) continue;
        const uint16_t source[2] = {static_cast<uint16_t>(unit), 0};
        char text[4]{};
        const int32_t bytes = UTF16ToUTF8(source, text);
        ASSERT_EQ(bytes, unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3);
        uint16_t back = 0;
        ASSERT_EQ(UTF8ToUTF16(text, &back), 2) << unit;
        ASSERT_EQ(back, unit);
    }
}

}  // namespace
}  // namespace kmxf
