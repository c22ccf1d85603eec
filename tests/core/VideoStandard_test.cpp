#include "kmxf/core/VideoStandard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

namespace kmxf {
namespace {

constexpr uint32_t kStandards[7] = {0x0100007C, 0x010000B2, 0x02000058, 0x0200005E, 0x0200007C, 0x02000099, 0x020000B2};
constexpr uint32_t kTypes[18] = {0x0400,     0x4800,     0x4D00,     0x4E00,     0xC900,     0xCA00,
                                 0xCD00,     0xCE00,     0xD100,     0xD200,     0x0400C100, 0x0400C200,
                                 0x0C00C100, 0x0C00C200, 0x1000C100, 0x1000C200, 0x2000C100, 0x2000C200};

// Codes near the real ones, and codes made of their parts.
constexpr uint32_t kNoStandards[] = {0,          1,          0x0000007C, 0x0100005E, 0x01000058, 0x01000099, 0x0100007D,
                                     0x02000059, 0x0300007C, 0x0200007D, 0x020000B3, 0x7C,       0xFFFFFFFF};
constexpr uint32_t kNoTypes[] = {0,          1,          0x0401,     0x0800,     0x4900,     0xC000,     0xC100,
                                 0xC200,     0xC800,     0xD000,     0x1FFFF,    0x0800C100, 0x0400C101, 0x0400C900,
                                 0x2000C300, 0x04000000, 0x4000C100, 0x8000C200, 0xFFFFFFFF};

TEST(VideoStandard, NamesStandForTheirCodes) {
    EXPECT_EQ(VIDEO_STD_59_94I, 0x0100007Cu);
    EXPECT_EQ(VIDEO_STD_50I, 0x010000B2u);
    EXPECT_EQ(VIDEO_STD_23_98P, 0x02000058u);
    EXPECT_EQ(VIDEO_STD_29_97P, 0x0200005Eu);
    EXPECT_EQ(VIDEO_STD_59_94P, 0x0200007Cu);
    EXPECT_EQ(VIDEO_STD_25P, 0x02000099u);
    EXPECT_EQ(VIDEO_STD_50P, 0x020000B2u);
    EXPECT_EQ(COMP_TYPE_DV25, 0x0400u);
    EXPECT_EQ(COMP_TYPE_DV50, 0x4800u);
    EXPECT_EQ(COMP_TYPE_DV100_1080I, 0x4D00u);
    EXPECT_EQ(COMP_TYPE_DV100_720P, 0x4E00u);
    EXPECT_EQ(COMP_TYPE_AVCI50_1080, 0xC900u);
    EXPECT_EQ(COMP_TYPE_AVCI50_720, 0xCA00u);
    EXPECT_EQ(COMP_TYPE_AVCI100_1080, 0xCD00u);
    EXPECT_EQ(COMP_TYPE_AVCI100_720, 0xCE00u);
    EXPECT_EQ(COMP_TYPE_AVCI200_1080, 0xD100u);
    EXPECT_EQ(COMP_TYPE_AVCI200_720, 0xD200u);
    EXPECT_EQ(COMP_TYPE_LONGG6_1080, 0x0400C100u);
    EXPECT_EQ(COMP_TYPE_LONGG6_720, 0x0400C200u);
    EXPECT_EQ(COMP_TYPE_LONGG12_1080, 0x0C00C100u);
    EXPECT_EQ(COMP_TYPE_LONGG12_720, 0x0C00C200u);
    EXPECT_EQ(COMP_TYPE_LONGG25_1080, 0x1000C100u);
    EXPECT_EQ(COMP_TYPE_LONGG25_720, 0x1000C200u);
    EXPECT_EQ(COMP_TYPE_LONGG50_1080, 0x2000C100u);
    EXPECT_EQ(COMP_TYPE_LONGG50_720, 0x2000C200u);
}

TEST(VideoStandard, GivesRatesScanAndGroup) {
    struct Row {
        uint32_t standard;
        MXFRATIONALTag edit, timecode;
        bool progressive;
        uint32_t group;
    };
    const Row rows[] = {
        {0x0100007C, {30000, 1001}, {30000, 1001}, false, 60},
        {0x010000B2, {25, 1}, {25, 1}, false, 50},
        {0x02000058, {24000, 1001}, {24000, 1001}, true, 48},
        {0x0200005E, {30000, 1001}, {30000, 1001}, true, 60},
        {0x0200007C, {60000, 1001}, {30000, 1001}, true, 120},
        {0x02000099, {25, 1}, {25, 1}, true, 50},
        {0x020000B2, {50, 1}, {25, 1}, true, 100},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(GetVideoEditRate(row.standard), row.edit) << row.standard;
        EXPECT_EQ(GetTimecodeEditRate(row.standard), row.timecode) << row.standard;
        EXPECT_EQ(IsProgressive(row.standard), row.progressive) << row.standard;
        EXPECT_EQ(ConvertTCVideoStd(row.standard), row.standard);
        EXPECT_EQ(VideoStandardToPartitionFrame(row.standard), row.group) << row.standard;
    }
}

TEST(VideoStandard, KnowsNothingOfOtherCodes) {
    for (const uint32_t standard : kNoStandards) {
        EXPECT_EQ(GetVideoEditRate(standard), (MXFRATIONALTag{0, 0})) << standard;
        EXPECT_EQ(GetTimecodeEditRate(standard), (MXFRATIONALTag{0, 0})) << standard;
        EXPECT_FALSE(IsProgressive(standard)) << standard;
        EXPECT_EQ(ConvertTCVideoStd(standard), 0xFFFFFFFFu) << standard;
        EXPECT_EQ(VideoStandardToPartitionFrame(standard), 0u) << standard;
        EXPECT_EQ(CalcTimecodeDuration(standard, 7), 7) << standard;
    }
}

TEST(AudioEditRate, Is96000Or48000) {
    EXPECT_EQ(GetAudioEditRate(48000), (MXFRATIONALTag{48000, 1}));
    EXPECT_EQ(GetAudioEditRate(96000), (MXFRATIONALTag{96000, 1}));
    for (const uint32_t rate : {0u, 44100u, 32000u, 95999u, 192000u, 0xFFFFFFFFu})
        EXPECT_EQ(GetAudioEditRate(rate), (MXFRATIONALTag{48000, 1})) << rate;
}

TEST(TimecodeDuration, IsHalfRoundedUpAt59And50Progressive) {
    for (const uint32_t standard : {0x0200007Cu, 0x020000B2u}) {
        const int64_t expected[] = {0, 1, 1, 2, 2, 3};
        for (int64_t frames = 0; frames < 6; ++frames)
            EXPECT_EQ(CalcTimecodeDuration(standard, frames), expected[frames]) << frames;
        EXPECT_EQ(CalcTimecodeDuration(standard, 0x100000001), 0x80000001);
        EXPECT_EQ(CalcTimecodeDuration(standard, -1), 0);
        EXPECT_EQ(CalcTimecodeDuration(standard, -2), 0);
        EXPECT_EQ(CalcTimecodeDuration(standard, -3), -1);
        CalcTimecodeDuration(standard, std::numeric_limits<int64_t>::max());  // no overflow under the sanitizer
    }
    for (const uint32_t standard : {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x02000099u})
        for (const int64_t frames : {int64_t{-1}, int64_t{0}, int64_t{7}, int64_t{0x100000001}})
            EXPECT_EQ(CalcTimecodeDuration(standard, frames), frames);
}

TEST(EditRateToVideoStd, LooksAtTheNumeratorAlone) {
    struct Row {
        int32_t numerator;
        uint32_t interlaced, progressive;
    };
    const Row rows[] = {
        {24, 0, 0x02000058},
        {24000, 0, 0x02000058},
        {25, 0x010000B2, 0x02000099},
        {30, 0x0100007C, 0x0200005E},
        {30000, 0x0100007C, 0x0200005E},
        {50, 0, 0x020000B2},
        {60, 0, 0x0200007C},
        {60000, 0, 0x0200007C},
        {0, 0, 0},
        {1, 0, 0},
        {-25, 0, 0},
        {23, 0, 0},
        {48, 0, 0},
        {25000, 0, 0},
        {50000, 0, 0},
        {48000, 0, 0},
    };
    for (const Row& row : rows)
        for (const int32_t denominator : {0, 1, 1001, -1}) {
            EXPECT_EQ(EditRateToVideoStd({row.numerator, denominator}, 0), row.progressive) << row.numerator;
            for (const uint8_t flag : {uint8_t{1}, uint8_t{2}, uint8_t{3}, uint8_t{4}, uint8_t{255}})
                EXPECT_EQ(EditRateToVideoStd({row.numerator, denominator}, flag), row.interlaced) << row.numerator;
        }
}

TEST(CompressionType, BelongsToOneFamily) {
    struct Row {
        uint32_t type;
        bool dv, avci, avcGOP;
        uint32_t bitRate;
    };
    const Row rows[] = {
        {0x0400, true, false, false, 0},
        {0x4800, true, false, false, 0},
        {0x4D00, true, false, false, 0},
        {0x4E00, true, false, false, 0},
        {0xC900, false, true, false, 0},
        {0xCA00, false, true, false, 0},
        {0xCD00, false, true, false, 0},
        {0xCE00, false, true, false, 0},
        {0xD100, false, true, false, 0},
        {0xD200, false, true, false, 0},
        {0x0400C100, false, false, true, 6000000},
        {0x0400C200, false, false, false, 6000000},
        {0x0C00C100, false, false, true, 12000000},
        {0x0C00C200, false, false, false, 12000000},
        {0x1000C100, false, false, true, 25000000},
        {0x1000C200, false, false, false, 25000000},
        {0x2000C100, false, false, true, 50000000},
        {0x2000C200, false, false, false, 50000000},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(IsDV(row.type), row.dv) << row.type;
        EXPECT_EQ(IsAVCI(row.type), row.avci) << row.type;
        EXPECT_EQ(IsAVCGOP(row.type), row.avcGOP) << row.type;
        EXPECT_EQ(GetAVCBitRate(row.type), row.bitRate) << row.type;
    }
    for (const uint32_t type : kNoTypes) {
        EXPECT_FALSE(IsDV(type)) << type;
        EXPECT_FALSE(IsAVCI(type)) << type;
        EXPECT_FALSE(IsAVCGOP(type)) << type;
        EXPECT_EQ(GetAVCBitRate(type), 0u) << type;
    }
}

TEST(FrameDataSize, IsThatOfTheTable) {
    // 59.94i, 50i, 23.98p, 29.97p, 59.94p, 25p, 50p
    const uint32_t sizes[18][7] = {
        {120000, 144000, 0, 0, 0, 0, 0},
        {240000, 288000, 0, 0, 0, 0, 0},
        {480000, 576000, 0, 0, 0, 0, 0},
        {0, 0, 240000, 240000, 240000, 288000, 288000},
        {232448, 280576, 232448, 232448, 232448, 280576, 280576},
        {0, 0, 116224, 116224, 116224, 140288, 140288},
        {472064, 568320, 472064, 472064, 472064, 568320, 568320},
        {0, 0, 236032, 236032, 236032, 284160, 284160},
        {952320, 1143808, 952320, 952320, 952320, 1143808, 1143808},
        {0, 0, 476160, 476160, 476160, 571904, 571904},
        {},
        {},
        {},
        {},
        {},
        {},
        {},
        {},
    };
    for (size_t type = 0; type < 18; ++type)
        for (size_t standard = 0; standard < 7; ++standard)
            EXPECT_EQ(GetFrameDataSize(kStandards[standard], kTypes[type]), sizes[type][standard])
                << kStandards[standard] << " " << kTypes[type];
}

TEST(FrameDataSize, IsZeroForOtherCodes) {
    for (const uint32_t standard : kNoStandards)
        for (const uint32_t type : kTypes) EXPECT_EQ(GetFrameDataSize(standard, type), 0u);
    for (const uint32_t standard : kStandards)
        for (const uint32_t type : kNoTypes) EXPECT_EQ(GetFrameDataSize(standard, type), 0u);
}

TEST(DataSizeToDuration, CountsWholeFrames) {
    EXPECT_EQ(DataSizeToDuration(1200000, 0x0100007C, 0x0400), 10u);
    EXPECT_EQ(DataSizeToDuration(1199999, 0x0100007C, 0x0400), 9u);
    EXPECT_EQ(DataSizeToDuration(0, 0x0100007C, 0x0400), 0u);
    EXPECT_EQ(DataSizeToDuration(432000, 0x010000B2, 0x0400), 3u) << "an odd count stays odd";
    EXPECT_EQ(DataSizeToDuration(576000 * int64_t{3}, 0x010000B2, 0x4D00), 3u);
    EXPECT_EQ(DataSizeToDuration(120000 * int64_t{4000000000}, 0x0100007C, 0x0400), 4000000000u);
}

TEST(DataSizeToDuration, RoundsProgressiveDVDownToPairs) {
    EXPECT_EQ(DataSizeToDuration(1200000, 0x0200007C, 0x4E00), 4u) << "5 rounded down to even";
    struct Row {
        uint32_t standard;
        int64_t size;
    };
    for (const Row& row : {Row{0x02000058, 240000}, Row{0x0200005E, 240000}, Row{0x0200007C, 240000},
                           Row{0x02000099, 288000}, Row{0x020000B2, 288000}}) {
        const uint32_t expected[] = {0, 0, 2, 2, 4, 4, 6, 6};
        for (int64_t frames = 0; frames < 8; ++frames)
            EXPECT_EQ(DataSizeToDuration(frames * row.size, row.standard, 0x4E00), expected[frames]) << frames;
        EXPECT_EQ(DataSizeToDuration(2 * row.size - 1, row.standard, 0x4E00), 0u);
    }
}

TEST(DataSizeToDuration, DoesNotRoundAVCIntraNorMindItsHeader) {
    EXPECT_EQ(DataSizeToDuration(1180160, 0x0200007C, 0xCE00), 5u);
    EXPECT_EQ(DataSizeToDuration(1180160 + 512, 0x0200007C, 0xCE00), 5u);
    EXPECT_EQ(DataSizeToDuration(1416192 + 512, 0x0100007C, 0xCD00), 3u);
    EXPECT_EQ(DataSizeToDuration(512 + 116224, 0x02000058, 0xCA00), 1u);
    EXPECT_EQ(DataSizeToDuration(512, 0x02000058, 0xCA00), 0u);
}

TEST(DataSizeToDuration, IsZeroWithoutAFrameSize) {
    EXPECT_EQ(DataSizeToDuration(1200000, 0x0100007C, 0x4E00), 0u);
    EXPECT_EQ(DataSizeToDuration(1200000, 0x0200007C, 0x0400), 0u);
    EXPECT_EQ(DataSizeToDuration(1200000, 0x0200007C, 0x0400C100), 0u);
    EXPECT_EQ(DataSizeToDuration(1200000, 0, 0x0400), 0u);
}

// ---- audio

// Samples in front of frame 0, 1, ... at 48 kHz: two cycles and a little more, at 59.94i four.
struct Cadence {
    std::vector<uint32_t> standards;
    std::vector<int64_t> samples;
};
const std::vector<Cadence> kCadences{
    {{0x010000B2, 0x02000099}, {0, 1920, 3840, 5760, 7680, 9600, 11520}},
    {{0x020000B2}, {0, 960, 1920, 2880, 3840, 4800, 5760}},
    {{0x0100007C, 0x0200005E}, {0,     1600,  3204,  4804,  6408,  8008,  9608,  11212, 12812, 14416, 16016,
                                17616, 19220, 20820, 22424, 24024, 25624, 27228, 28828, 30432, 32032, 33632}},
    {{0x0200007C}, {0,    800,  1600,  2404,  3204,  4004,  4804,  5608,  6408,  7208,  8008,
                    8808, 9608, 10412, 11212, 12012, 12812, 13616, 14416, 15216, 16016, 16816}},
    {{0x02000058}, {0, 2004, 4004, 6008, 8008, 10012, 12012, 14016, 16016, 18020, 20020, 22024, 24024, 26028}},
};

TEST(DurationToAudioSample, FollowsTheCadence) {
    for (const Cadence& cadence : kCadences)
        for (const uint32_t standard : cadence.standards)
            for (size_t frames = 0; frames < cadence.samples.size(); ++frames) {
                const auto duration = static_cast<int64_t>(frames);
                const int64_t samples = cadence.samples[frames];
                EXPECT_EQ(DurationToAudioSample(standard, duration, 48000), samples) << standard << " " << frames;
                EXPECT_EQ(DurationToAudioSample(standard, duration, 96000), 2 * samples) << standard << " " << frames;
            }
    EXPECT_EQ(DurationToAudioSample(0x0100007C, 7, 48000), 11212);
    EXPECT_EQ(DurationToAudioSample(0x0100007C, 7, 96000), 22424);
    EXPECT_EQ(DurationToAudioSample(0x0200007C, 3, 48000), 2404);
}

TEST(DurationToAudioSample, Needs64Bits) {
    EXPECT_EQ(DurationToAudioSample(0x010000B2, 10000000, 48000), 19200000000);
    EXPECT_EQ(DurationToAudioSample(0x0100007C, 10000001, 48000), 16016001600);
    EXPECT_EQ(DurationToAudioSample(0x0200007C, 10000009, 96000), 16016014416);
}

TEST(DurationToAudioSample, TakesEveryOtherRateFor48000) {
    for (const uint32_t rate : {0u, 32000u, 44100u, 192000u}) {
        EXPECT_EQ(DurationToAudioSample(0x0100007C, 7, rate), 11212) << rate;
        EXPECT_EQ(DurationToAudioSample(0, 7, rate), -1) << rate;
    }
}

TEST(DurationToAudioSample, FailsWithMinusOneAndAt96000WithMinusTwo) {
    for (const uint32_t standard : kNoStandards) {
        EXPECT_EQ(DurationToAudioSample(standard, 7, 48000), -1);
        EXPECT_EQ(DurationToAudioSample(standard, 7, 96000), -2);
    }
}

TEST(DurationToAudioSample, ReadsNothingOutsideItsTablesForAnyDuration) {
    for (const uint32_t standard : kStandards)
        for (const int64_t frames :
             {int64_t{-1}, int64_t{-9}, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()})
            for (const uint32_t rate : {48000u, 96000u}) DurationToAudioSample(standard, frames, rate);
    EXPECT_EQ(DurationToAudioSample(0x010000B2, -2, 48000), -3840);
}

TEST(AudioSampleToDuration, ChangesAtTheStartOfEachFrame) {
    // The first sample of frame 1, 2, ... on the way back; not that of the way forth at 23.98p, nor in two frames of
    // ten at 59.94p.
    const std::vector<Cadence> back{
        {{0x010000B2, 0x02000099}, {1920, 3840, 5760, 7680}},
        {{0x020000B2}, {960, 1920, 2880, 3840}},
        {{0x0100007C, 0x0200005E}, {1600, 3204, 4804, 6408, 8008, 9608, 11212, 12812, 14416, 16016, 17616, 19220}},
        {{0x0200007C}, {800,  1600, 2402,  3204,  4004,  4804,  5606,  6408,  7208,  8008,
                        8808, 9608, 10410, 11212, 12012, 12812, 13614, 14416, 15216, 16016}},
        {{0x02000058}, {2002, 4004, 6006, 8008, 10010, 12012, 14014, 16016, 18018}},
    };
    for (const Cadence& cadence : back)
        for (const uint32_t standard : cadence.standards) {
            EXPECT_EQ(AudioSampleToDuration(standard, 0, 48000), 0u);
            for (size_t i = 0; i < cadence.samples.size(); ++i) {
                const auto frame = static_cast<uint32_t>(i + 1);
                const int64_t samples = cadence.samples[i];
                EXPECT_EQ(AudioSampleToDuration(standard, samples - 1, 48000), frame - 1) << standard << " " << frame;
                EXPECT_EQ(AudioSampleToDuration(standard, samples, 48000), frame) << standard << " " << frame;
                EXPECT_EQ(AudioSampleToDuration(standard, samples - 1, 96000), (frame - 1) / 2) << standard;
                EXPECT_EQ(AudioSampleToDuration(standard, samples, 96000), frame / 2) << standard;
            }
        }
    EXPECT_EQ(AudioSampleToDuration(0x010000B2, 1919, 48000), 0u);
    EXPECT_EQ(AudioSampleToDuration(0x010000B2, 1920, 48000), 1u);
    EXPECT_EQ(AudioSampleToDuration(0x0200007C, 2402, 48000), 3u);
}

TEST(AudioSampleToDuration, HalvesThe32BitResultAt96000) {
    // 2^32 + 2 frames of 50i: the count is cut to 32 bits, then halved.
    EXPECT_EQ(AudioSampleToDuration(0x010000B2, 1920 * int64_t{0x100000002}, 48000), 2u);
    EXPECT_EQ(AudioSampleToDuration(0x010000B2, 1920 * int64_t{0x100000002}, 96000), 1u);
    EXPECT_EQ(AudioSampleToDuration(0x010000B2, 1920 * int64_t{0xFFFFFFFE}, 96000), 0x7FFFFFFFu);
}

TEST(AudioSampleToDuration, TakesEveryOtherRateFor48000) {
    for (const uint32_t rate : {0u, 32000u, 44100u, 192000u}) {
        EXPECT_EQ(AudioSampleToDuration(0x0100007C, 11212, rate), 7u) << rate;
        EXPECT_EQ(AudioSampleToDuration(0, 11212, rate), 0xFFFFFFFFu) << rate;
    }
}

TEST(AudioSampleToDuration, FailsWithAllOnesWhichAt96000AreHalvedToo) {
    for (const uint32_t standard : kNoStandards) {
        EXPECT_EQ(AudioSampleToDuration(standard, 8008, 48000), 0xFFFFFFFFu);
        EXPECT_EQ(AudioSampleToDuration(standard, 8008, 96000), 0x7FFFFFFFu);
    }
}

TEST(AudioSampleToDuration, ReadsNothingOutsideItsTablesForAnyCount) {
    for (const uint32_t standard : kStandards)
        for (const int64_t samples :
             {int64_t{-1}, int64_t{-8007}, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()})
            for (const uint32_t rate : {48000u, 96000u}) AudioSampleToDuration(standard, samples, rate);
    EXPECT_EQ(AudioSampleToDuration(0x0100007C, -1, 48000), 0u);
}

TEST(AudioRoundTrip, LeadsBackToEveryDurationAt48000) {
    for (const uint32_t standard : kStandards)
        for (int64_t frames = 0; frames < 2000; ++frames)
            ASSERT_EQ(AudioSampleToDuration(standard, DurationToAudioSample(standard, frames, 48000), 48000), frames)
                << standard;
}

TEST(AudioRoundTrip, ComesOutAFrameShortAt96000WhereTheHalvingLosesIt) {
    const std::vector<int64_t> none, interlaced{1, 6, 11, 16, 21, 26, 31, 36}, progressive{2, 12, 22, 32};
    struct Row {
        uint32_t standard;
        std::vector<int64_t> lost;
    };
    for (const Row& row : {Row{0x0100007C, interlaced}, Row{0x0200005E, interlaced}, Row{0x0200007C, progressive},
                           Row{0x010000B2, none}, Row{0x02000058, none}, Row{0x02000099, none}, Row{0x020000B2, none}})
        for (int64_t frames = 0; frames <= 40; ++frames) {
            const bool lost = std::count(row.lost.begin(), row.lost.end(), frames) != 0;
            const int64_t samples = DurationToAudioSample(row.standard, frames, 96000);
            EXPECT_EQ(AudioSampleToDuration(row.standard, samples, 96000), lost ? frames - 1 : frames)
                << row.standard << " " << frames;
            EXPECT_EQ(AudioSampleToDuration(row.standard, samples + 4, 96000), frames)
                << "4 samples more bring it back";
        }
}

// ---- labels and track codes

MXFKEYTag DVLabel(uint8_t kind, uint8_t wrapping) {
    return {{0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x01, 0x0D, 0x01, 0x03, 0x01, 0x02, 0x02, kind, wrapping}};
}
constexpr MXFKEYTag kAVCIntraClip{
    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x01, 0x0D, 0x01, 0x03, 0x01, 0x02, 0x10, 0x60, 0x02}};
constexpr MXFKEYTag kAVCIntraFrame{
    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x01, 0x0D, 0x01, 0x03, 0x01, 0x02, 0x10, 0x60, 0x01}};
constexpr MXFKEYTag kLongGOP{
    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x0A, 0x0D, 0x01, 0x03, 0x01, 0x02, 0x10, 0x60, 0x01}};
constexpr MXFKEYTag kUntouched{{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}};

TEST(EssenceContainerLabel, OfDVSaysKindAndWrapping) {
    // 00: no such format. Columns: 59.94i, 50i, 23.98p, 29.97p, 59.94p, 25p, 50p
    struct Row {
        uint32_t type;
        bool iec;
        uint8_t kinds[7];
    };
    const Row rows[] = {
        {0x0400, true, {0x01, 0x02, 0, 0, 0, 0, 0}},          {0x0400, false, {0x40, 0x41, 0, 0, 0, 0, 0}},
        {0x4800, true, {0x50, 0x51, 0, 0, 0, 0, 0}},          {0x4800, false, {0x50, 0x51, 0, 0, 0, 0, 0}},
        {0x4D00, true, {0x60, 0x61, 0, 0, 0, 0, 0}},          {0x4D00, false, {0x60, 0x61, 0, 0, 0, 0, 0}},
        {0x4E00, true, {0, 0, 0x62, 0x62, 0x62, 0x63, 0x63}}, {0x4E00, false, {0, 0, 0x62, 0x62, 0x62, 0x63, 0x63}},
    };
    for (const Row& row : rows) {
        for (size_t i = 0; i < 7; ++i)
            for (const bool frameWrap : {false, true}) {
                const uint8_t kind = row.kinds[i];
                MXFKEYTag label = kUntouched;
                EXPECT_EQ(GetEssenceContainerLabel(kStandards[i], row.type, row.iec, frameWrap, &label), kind != 0)
                    << kStandards[i] << " " << row.type;
                EXPECT_EQ(label, kind == 0 ? kUntouched : DVLabel(kind, frameWrap ? 0x01 : 0x02))
                    << kStandards[i] << " " << row.type;
            }
        for (const uint32_t standard : kNoStandards) {
            MXFKEYTag label = kUntouched;
            EXPECT_FALSE(GetEssenceContainerLabel(standard, row.type, row.iec, true, &label));
            EXPECT_EQ(label, kUntouched);
        }
    }
    MXFKEYTag label;
    EXPECT_TRUE(GetEssenceContainerLabel(0x010000B2, 0x0400, false, true, &label));
    EXPECT_EQ(
        label,
        (MXFKEYTag{{0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x01, 0x0D, 0x01, 0x03, 0x01, 0x02, 0x02, 0x41, 0x01}}));
}

TEST(EssenceContainerLabel, OfAVCDoesNotDependOnTheStandard) {
    std::vector<uint32_t> standards(std::begin(kStandards), std::end(kStandards));
    standards.insert(standards.end(), std::begin(kNoStandards), std::end(kNoStandards));
    for (const uint32_t standard : standards)
        for (const bool iec : {false, true}) {
            for (size_t type = 4; type < 10; ++type) {
                MXFKEYTag clip, frame;
                EXPECT_TRUE(GetEssenceContainerLabel(standard, kTypes[type], iec, false, &clip));
                EXPECT_TRUE(GetEssenceContainerLabel(standard, kTypes[type], iec, true, &frame));
                EXPECT_EQ(clip, kAVCIntraClip);
                EXPECT_EQ(frame, kAVCIntraFrame);
            }
            for (size_t type = 10; type < 18; ++type) {
                MXFKEYTag clip, frame;
                EXPECT_TRUE(GetEssenceContainerLabel(standard, kTypes[type], iec, false, &clip));
                EXPECT_TRUE(GetEssenceContainerLabel(standard, kTypes[type], iec, true, &frame));
                EXPECT_EQ(clip, kLongGOP) << "frame wrapping in either case";
                EXPECT_EQ(frame, kLongGOP);
            }
        }
}

TEST(EssenceContainerLabel, OfOtherTypesIsNotThere) {
    for (const uint32_t type : kNoTypes) {
        MXFKEYTag label = kUntouched;
        EXPECT_FALSE(GetEssenceContainerLabel(0x0100007C, type, false, true, &label)) << type;
        EXPECT_EQ(label, kUntouched);
    }
    EXPECT_FALSE(GetEssenceContainerLabel(0x0100007C, 0x0400, false, false, nullptr));
}

TEST(TrackCode, CarriesTheNumbersOfItsTracks) {
    EXPECT_EQ(GetPictureTrackNum(0x30100), 1u);
    EXPECT_EQ(GetSoundTrackNum(0x30100), 0u);
    EXPECT_EQ(GetPictureTrackNum(0x30001), 0u);
    EXPECT_EQ(GetSoundTrackNum(0x30001), 1u);
    EXPECT_EQ(GetSoundTrackNum(0x30010), 16u);
    EXPECT_EQ(GetPictureTrackNum(0xFFFFFFFF), 15u);
    EXPECT_EQ(GetSoundTrackNum(0xFFFFFFFF), 255u);
    EXPECT_EQ(GetPictureTrackNum(0xFFFFF0FF), 0u);
    EXPECT_EQ(GetSoundTrackNum(0xFFFFFF00), 0u);
    for (const uint32_t code : {kTrackCodeTimecode, kTrackCodeData}) {
        EXPECT_EQ(GetPictureTrackNum(code), 0u);
        EXPECT_EQ(GetSoundTrackNum(code), 0u);
    }
}

}  // namespace
}  // namespace kmxf
