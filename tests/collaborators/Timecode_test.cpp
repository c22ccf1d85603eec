#include "kmxf/collaborators/Timecode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "kmxf/core/Status.h"

namespace kmxf {
namespace {

using testing::ElementsAre;

CTimecode At(uint32_t videoStd, uint32_t totalFrames, bool drop) {
    CTimecode timecode(totalFrames, drop);
    EXPECT_EQ(timecode.SetVideoStd(videoStd), kStatusOk);
    return timecode;
}

std::vector<uint8_t> Packed(const CTimecode& timecode) {
    std::vector<uint8_t> data(4, 0xAA);
    EXPECT_EQ(timecode.GetData(data.data()), kStatusOk);
    return data;
}

TEST(Timecode, StartsAtFrameZeroNonDrop5994i) {
    const CTimecode timecode;
    EXPECT_EQ(timecode.GetTotalFrame(), 0u);
    EXPECT_FALSE(timecode.IsDrop());
    EXPECT_EQ(timecode.GetVideoStd(), 0x0100007Cu);
    EXPECT_EQ(timecode.GetText(), "00:00:00:00");
}

TEST(Timecode, IsCopiedFreely) {
    const CTimecode first = At(VIDEO_STD_50I, 25, false);
    CTimecode second(first);
    second.SetTotalFrame(50);
    EXPECT_EQ(first.GetText(), "00:00:01:00");
    EXPECT_EQ(second.GetText(), "00:00:02:00");
    second = first;
    EXPECT_EQ(second.GetTotalFrame(), 25u);
    EXPECT_TRUE(std::has_virtual_destructor_v<CTimecode>);
}

TEST(Timecode, DropFrameLeavesOutTwoLabelsAMinuteButNotTheTenth) {
    const struct {
        uint32_t frames;
        const char* text;
    } rows[] = {
        {0, "00:00:00;00"},      {1, "00:00:00;01"},      {1799, "00:00:59;29"},    {1800, "00:01:00;02"},
        {3597, "00:01:59;29"},   {3598, "00:02:00;02"},   {16183, "00:08:59;29"},   {16184, "00:09:00;02"},
        {17981, "00:09:59;29"},  {17982, "00:10:00;00"},  {17983, "00:10:00;01"},   {19781, "00:10:59;29"},
        {19782, "00:11:00;02"},  {107891, "00:59:59;29"}, {107892, "01:00:00;00"},  {1078920, "10:00:00;00"},
        {109692, "01:01:00;02"}, {125874, "01:10:00;00"}, {2589407, "23:59:59;29"},
    };
    for (const uint32_t videoStd : {VIDEO_STD_59_94I, VIDEO_STD_29_97P, VIDEO_STD_59_94P}) {
        for (const auto& row : rows) {
            EXPECT_EQ(At(videoStd, row.frames, true).GetText(), row.text);
            CTimecode timecode = At(videoStd, 7, false);
            EXPECT_EQ(timecode.SetText(row.text), kStatusOk);
            EXPECT_EQ(timecode.GetTotalFrame(), row.frames) << row.text;
            EXPECT_TRUE(timecode.IsDrop());
        }
    }
}

TEST(Timecode, NonDropCountsByTheNominalRate) {
    const struct {
        uint32_t videoStd;
        uint32_t frames;
        const char* text;
    } rows[] = {
        {VIDEO_STD_59_94I, 1800, "00:01:00:00"},    {VIDEO_STD_59_94I, 108000, "01:00:00:00"},
        {VIDEO_STD_29_97P, 2591999, "23:59:59:29"}, {VIDEO_STD_59_94P, 29, "00:00:00:29"},
        {VIDEO_STD_59_94P, 30, "00:00:01:00"},      {VIDEO_STD_50I, 1500, "00:01:00:00"},
        {VIDEO_STD_25P, 2159999, "23:59:59:24"},    {VIDEO_STD_50P, 25, "00:00:01:00"},
        {VIDEO_STD_23_98P, 1440, "00:01:00:00"},    {VIDEO_STD_23_98P, 2073599, "23:59:59:23"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(At(row.videoStd, row.frames, false).GetText(), row.text);
        CTimecode timecode = At(row.videoStd, 7, true);
        EXPECT_EQ(timecode.SetText(row.text), kStatusOk);
        EXPECT_EQ(timecode.GetTotalFrame(), row.frames) << row.text;
        EXPECT_FALSE(timecode.IsDrop());
    }
}

TEST(Timecode, BeginsAgainAfterADay) {
    const struct {
        uint32_t videoStd;
        bool drop;
        uint32_t framesPerDay;
    } rows[] = {
        {VIDEO_STD_59_94I, true, 2589408},  {VIDEO_STD_29_97P, true, 2589408},  {VIDEO_STD_59_94P, true, 2589408},
        {VIDEO_STD_59_94I, false, 2592000}, {VIDEO_STD_50I, false, 2160000},    {VIDEO_STD_25P, false, 2160000},
        {VIDEO_STD_50P, false, 2160000},    {VIDEO_STD_23_98P, false, 2073600},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(At(row.videoStd, row.framesPerDay - 1, row.drop).GetTotalFrame(), row.framesPerDay - 1);
        EXPECT_EQ(At(row.videoStd, row.framesPerDay, row.drop).GetTotalFrame(), 0u);
        EXPECT_EQ(At(row.videoStd, 3 * row.framesPerDay + 5, row.drop).GetTotalFrame(), 5u);
    }
    EXPECT_EQ(CTimecode(0xFFFFFFFF, false).GetTotalFrame(), 4294967295u % 2592000u);
}

TEST(Timecode, TheOrderOfTheSettersDoesNotMatter) {
    // A count that the first settings would not have.
    CTimecode timecode;
    EXPECT_EQ(timecode.SetVideoStd(VIDEO_STD_23_98P), kStatusOk);
    EXPECT_EQ(timecode.SetTotalFrame(2591999), kStatusOk);
    EXPECT_EQ(timecode.SetVideoStd(VIDEO_STD_59_94I), kStatusOk);
    EXPECT_EQ(timecode.GetText(), "23:59:59:29");
}

TEST(Timecode, TheFlagIsKeptButNothingLeftOutAt24And25) {
    for (const auto& [videoStd, text] : {std::pair{VIDEO_STD_23_98P, "00:01:15;00"},
                                         {VIDEO_STD_50I, "00:01:12;00"},
                                         {VIDEO_STD_25P, "00:01:12;00"},
                                         {VIDEO_STD_50P, "00:01:12;00"}}) {
        CTimecode timecode = At(videoStd, 1800, true);
        EXPECT_TRUE(timecode.IsDrop());
        EXPECT_EQ(timecode.GetTotalFrame(), 1800u);
        EXPECT_EQ(timecode.GetText(), text);
        timecode.SetTotalFrame(2073599);
        EXPECT_EQ(timecode.GetTotalFrame(), 2073599u);
    }
}

TEST(Timecode, SetDropFlagKeepsTheCountOrTheText) {
    CTimecode timecode(107892, true);
    EXPECT_EQ(timecode.SetDropFlag(0, false), kStatusOk);
    EXPECT_FALSE(timecode.IsDrop());
    EXPECT_EQ(timecode.GetTotalFrame(), 107892u);
    EXPECT_EQ(timecode.GetText(), "00:59:56:12");

    timecode = CTimecode(107892, true);
    EXPECT_EQ(timecode.SetDropFlag(0, true), kStatusOk);
    EXPECT_FALSE(timecode.IsDrop());
    EXPECT_EQ(timecode.GetText(), "01:00:00:00");
    EXPECT_EQ(timecode.GetTotalFrame(), 108000u);

    EXPECT_EQ(timecode.SetDropFlag(0x40, true), kStatusOk);  // any bit will do
    EXPECT_TRUE(timecode.IsDrop());
    EXPECT_EQ(timecode.GetTotalFrame(), 107892u);
}

TEST(Timecode, RefusesUnknownVideoStandards) {
    CTimecode timecode = At(VIDEO_STD_25P, 100, false);
    for (const uint32_t unknown : {0xFFFFFFFFu, 0u, 0x0100005Eu}) {
        EXPECT_EQ(timecode.SetVideoStd(unknown), kStatusInvalidArgument);
        EXPECT_EQ(timecode.GetVideoStd(), VIDEO_STD_25P);
        EXPECT_EQ(timecode.GetText(), "00:00:04:00");
    }
}

TEST(Timecode, PackedFormIsFramesSecondsMinutesHours) {
    const uint8_t drop[4] = {0x42, 0x00, 0x01, 0x00};  // 00:01:00;02
    CTimecode timecode;
    EXPECT_EQ(timecode.SetData(drop), kStatusOk);
    EXPECT_TRUE(timecode.IsDrop());
    EXPECT_EQ(timecode.GetTotalFrame(), 1800u);
    EXPECT_THAT(Packed(timecode), ElementsAre(0x42, 0x00, 0x01, 0x00));

    const uint8_t nonDrop[4] = {0x29, 0x59, 0x58, 0x23};  // 23:58:59:29
    EXPECT_EQ(timecode.SetData(nonDrop), kStatusOk);
    EXPECT_FALSE(timecode.IsDrop());
    EXPECT_EQ(timecode.GetText(), "23:58:59:29");
    EXPECT_EQ(timecode.GetTotalFrame(), 2590199u);
    EXPECT_THAT(Packed(timecode), ElementsAre(0x29, 0x59, 0x58, 0x23));

    timecode = At(VIDEO_STD_25P, 0, false);
    const uint8_t base25[4] = {0x24, 0x07, 0x30, 0x10};
    EXPECT_EQ(timecode.SetData(base25), kStatusOk);
    EXPECT_EQ(timecode.GetTotalFrame(), 945199u);  // 25 * (36000 + 1800 + 7) + 24
}

TEST(Timecode, PackedFormIgnoresTheFlagsAboveTheTens) {
    // Colour frame, parity and binary group flags set everywhere; 10:11:12:13 without drop frame.
    const uint8_t data[4] = {0x13 | 0x80, 0x12 | 0x80, 0x11 | 0x80, 0x10 | 0xC0};
    CTimecode timecode;
    EXPECT_EQ(timecode.SetData(data), kStatusOk);
    EXPECT_EQ(timecode.GetText(), "10:11:12:13");
    EXPECT_THAT(Packed(timecode), ElementsAre(0x13, 0x12, 0x11, 0x10));
}

TEST(Timecode, PackedFormThatIsNoTimecodeChangesNothing) {
    const uint8_t bad[][4] = {
        {0x0A, 0x00, 0x00, 0x00},  // units above 9
        {0x00, 0x0F, 0x00, 0x00}, {0x00, 0x00, 0x0B, 0x00},
        {0x00, 0x00, 0x00, 0x0C}, {0x30, 0x00, 0x00, 0x00},  // frame 30
        {0x00, 0x60, 0x00, 0x00},                            // second 60
        {0x00, 0x00, 0x60, 0x00},                            // minute 60
        {0x00, 0x00, 0x00, 0x24},                            // hour 24
        {0xFF, 0xFF, 0xFF, 0xFF},                            // "no information"
    };
    CTimecode timecode(1234, true);
    for (const auto& data : bad) {
        EXPECT_EQ(timecode.SetData(data), kStatusInvalidArgument);
        EXPECT_EQ(timecode.GetTotalFrame(), 1234u);
        EXPECT_TRUE(timecode.IsDrop());
    }
    EXPECT_EQ(timecode.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(timecode.GetData(nullptr), kStatusInvalidArgument);

    const uint8_t frame25[4] = {0x25, 0x00, 0x00, 0x00};
    EXPECT_EQ(timecode.SetData(frame25), kStatusOk);
    timecode = At(VIDEO_STD_50P, 0, false);
    EXPECT_EQ(timecode.SetData(frame25), kStatusInvalidArgument);
}

TEST(Timecode, ALabelThatIsLeftOutCountsTwoFramesLess) {
    const uint8_t leftOut[4] = {0x40, 0x00, 0x01, 0x00};  // 00:01:00;00
    CTimecode timecode;
    EXPECT_EQ(timecode.SetData(leftOut), kStatusOk);
    EXPECT_EQ(timecode.GetTotalFrame(), 1798u);  // 1800 - 2
    EXPECT_EQ(timecode.GetText(), "00:00:59;28");
}

TEST(Timecode, TextOfAnyOtherFormIsRefused) {
    CTimecode timecode(1234, true);
    for (const char* text : {"",
                             "00:00:00",
                             "0:00:00:00",
                             "00:00:00:0",
                             "00:00:00:000",
                             " 0:00:00:00",
                             "00:00:00:00 ",
                             "-1:00:00:00",
                             "+1:00:00:00",
                             "00;00:00:00",
                             "00:00:00.00",
                             "00:00:00,00",
                             "24:00:00:00",
                             "00:60:00:00",
                             "00:00:60:00",
                             "00:00:00:30",
                             "99:99:99:99",
                             "00:01:00;00",
                             "00:01:00;01",
                             "10:59:00;01",
                             "aa:bb:cc:dd",
                             "00:00:00;30"}) {
        EXPECT_EQ(timecode.SetText(text), kStatusInvalidArgument) << text;
        EXPECT_EQ(timecode.GetTotalFrame(), 1234u);
        EXPECT_TRUE(timecode.IsDrop());
    }
    EXPECT_EQ(timecode.SetText(std::string("01:00:00:00\0", 12)), kStatusInvalidArgument);
    CTimecode film = At(VIDEO_STD_23_98P, 0, false);
    EXPECT_EQ(film.SetText("00:00:00:24"), kStatusInvalidArgument);
    EXPECT_EQ(film.SetText("00:00:00:23"), kStatusOk);
}

TEST(Timecode, EveryFrameOfADayComesBackFromItsPackedForm) {
    for (const auto& [videoStd, drop, framesPerDay] : {std::tuple{VIDEO_STD_59_94I, true, 2589408u},
                                                       {VIDEO_STD_29_97P, false, 2592000u},
                                                       {VIDEO_STD_50P, false, 2160000u},
                                                       {VIDEO_STD_23_98P, true, 2073600u}}) {
        CTimecode in = At(videoStd, 0, drop), out = At(videoStd, 0, false);
        for (uint32_t frame = 0; frame < framesPerDay; frame += frame < 20000 ? 1 : 997) {
            in.SetTotalFrame(frame);
            uint8_t data[4];
            in.GetData(data);
            ASSERT_EQ(out.SetData(data), kStatusOk) << frame;
            ASSERT_EQ(out.GetTotalFrame(), frame);
        }
        EXPECT_EQ(out.IsDrop(), drop);
    }
}

TEST(UsersBit, HoldsFourBytes) {
    CUsersBit usersBit;
    uint8_t out[4] = {1, 1, 1, 1};
    EXPECT_EQ(usersBit.GetData(out), kStatusOk);
    EXPECT_THAT(out, ElementsAre(0, 0, 0, 0));
    const uint8_t in[4] = {0x12, 0x34, 0xFF, 0x78};
    EXPECT_EQ(usersBit.SetData(in), kStatusOk);
    EXPECT_EQ(usersBit.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(usersBit.GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(usersBit.GetData(out), kStatusOk);
    EXPECT_THAT(out, ElementsAre(0x12, 0x34, 0xFF, 0x78));
}

}  // namespace
}  // namespace kmxf
