#include "collaborators/PicTiming.h"

#include <gtest/gtest.h>

#include "collaborators/BitReader.h"
#include "collaborators/Given.h"
#include "support/Hex.h"

namespace kmxf::test {

namespace {

// Parameter sets as coders write them, behind the NAL unit header and without emulation prevention.
const Bytes kLongGOP =
    Hex("7a 00 28 b6 cd 30 1e 01 13 f2 e0 2d 40 40 40 50 00 00 3e 90 00 0e a6 09 f1 62 d3 80");  // no HRD
const Bytes kWithHRD =
    Hex("64 00 0d ac b2 02 83 f6 02 20 00 00 00 20 00 00 06 4c 04 00 3d 08 00 0f 42 72 61 80 7c 50 a9 20");
// AVC-Intra class 100, 1080 lines: scaling matrices, VUI without pic_struct.
const Bytes kIntra = Hex(R"(
    7A 10 29 B6 D4 20 22 33 19 C6 63 23 21 01 11 98 CE 33 19 18 21 03 3A 46 65 6A 65 24 AD E9 12 32
    14 1A 26 34 AD A4 41 82 23 01 50 2B 1A 24 69 48 30 40 2E 11 12 08 C6 8C 04 41 28 4C 34 F0 1E 01
    13 F2 E0 2D 40 40 40 50 00 00 3E 90 00 0E A6 08 40)");
// Baseline, picture order count type 1 with a cycle of two, cropping, no VUI:
// 42 00 1E, then the bits 1 (id), 1 (frame number), 010 (type 1), 0, 1, 1, 011 (cycle), 1, 1, 1 (reference frames),
// 0, 1, 1 (16 x 16), 1 (frames only), 1, 1 (cropping), 1, 1, 1, 1, 0 (VUI), 1 (stop).
const Bytes kBaseline = Hex("42 00 1E D3 7D FF 40");
// High 4:4:4 Predictive: F4 00 1E, then the bits 1 (id), 00100 (4:4:4), 0, 1, 1, 0, 1 (scaling matrices), eight zeros
// (no such list), four times 1 000010001 (a list that -8 ends at once), 1 (frame number), 1, 1 (type 0), 1 (reference
// frames), 0, 1, 1 (16 x 16), 1 (frames only), 0, 0 (no cropping), 1 (VUI), seven zeros, 1 (pic_struct), 0, 1 (stop).
const Bytes k444 = Hex("F4 00 1E 91 A0 10 8C 23 08 C2 3E E4 05");

PicTimingLayout Default() { return {}; }
PicTimingLayout WithHRD() { return {20, 0, true}; }  // delays of 13 and 7 bits, no time offset

std::optional<PackData> Timestamp(const char* payload, const PicTimingLayout& layout, int32_t number = 1) {
    return ReadClockTimestamp(Hex(payload), layout, number);
}

}  // namespace

TEST(PicTiming, BitReaderTakesExpGolombCodes) {
    // 1 | 010 | 011 | 00100 | 00101, then 1 00100 as signed: 0, +2 -> codes 0 and 3.
    const Bytes bytes = {0b10100110, 0b01000010, 0b11001000};
    BitReader bits(bytes);
    EXPECT_EQ(bits.UE(), 0u);
    EXPECT_EQ(bits.UE(), 1u);
    EXPECT_EQ(bits.UE(), 2u);
    EXPECT_EQ(bits.UE(), 3u);
    EXPECT_EQ(bits.UE(), 4u);
    EXPECT_EQ(bits.SE(), 0);
    EXPECT_EQ(bits.SE(), 2);
    EXPECT_TRUE(bits.Ok());
    const Bytes signs = {0b01001100, 0b10100000};  // 010 | 011 | 00101
    BitReader signedBits(signs);
    EXPECT_EQ(signedBits.SE(), 1);
    EXPECT_EQ(signedBits.SE(), -1);
    EXPECT_EQ(signedBits.SE(), -2);
}

TEST(PicTiming, BitReaderStaysFailedPastTheEnd) {
    const Bytes bytes = {0xFF};
    BitReader bits(bytes);
    EXPECT_EQ(bits.U(9), 0u);
    EXPECT_FALSE(bits.Ok());
    EXPECT_EQ(bits.U(1), 0u);
    EXPECT_EQ(bits.UE(), 0u);
    EXPECT_FALSE(bits.AtEnd());
    const Bytes zeros(5, 0x00);
    BitReader long_(zeros);  // 32 zeros and more are no code
    EXPECT_EQ(long_.UE(), 0u);
    EXPECT_FALSE(long_.Ok());
    BitReader empty({});
    EXPECT_TRUE(empty.AtEnd());
    EXPECT_FALSE(empty.Flag());
    EXPECT_FALSE(empty.Ok());
}

TEST(PicTiming, BitReaderKnowsTheFillingOfTheLastByte) {
    const Bytes bytes = {0b10110000};
    BitReader bits(bytes);
    bits.Skip(3);
    EXPECT_TRUE(bits.AtEnd());
    BitReader early(bytes);
    early.Skip(2);
    EXPECT_FALSE(early.AtEnd());
    BitReader late(bytes);
    late.Skip(4);
    EXPECT_FALSE(late.AtEnd());
    BitReader all(bytes);
    all.Skip(8);
    EXPECT_TRUE(all.AtEnd());
}

TEST(PicTiming, ParameterSetGivesTheLayout) {
    const auto longGOP = ReadPicTimingLayout(kLongGOP);
    ASSERT_TRUE(longGOP);
    EXPECT_EQ(longGOP->delayBits, 0u);
    EXPECT_EQ(longGOP->timeOffsetBits, 24u);
    EXPECT_TRUE(longGOP->hasTimestamps);
    const auto withHRD = ReadPicTimingLayout(kWithHRD);
    ASSERT_TRUE(withHRD);
    EXPECT_EQ(withHRD->delayBits, 20u);
    EXPECT_EQ(withHRD->timeOffsetBits, 0u);
    EXPECT_TRUE(withHRD->hasTimestamps);
    for (const Bytes* set : {&kIntra, &kBaseline}) {
        const auto layout = ReadPicTimingLayout(*set);
        ASSERT_TRUE(layout);
        EXPECT_EQ(layout->delayBits, 0u);
        EXPECT_FALSE(layout->hasTimestamps);
    }
}

TEST(PicTiming, ParameterSetOf444HasTwelveScalingLists) {
    const auto layout = ReadPicTimingLayout(k444);
    ASSERT_TRUE(layout);
    EXPECT_EQ(layout->delayBits, 0u);
    EXPECT_TRUE(layout->hasTimestamps);
}

TEST(PicTiming, ParameterSetCutAtAnyByteGivesNone) {
    // The last byte that is read: pic_struct_present_flag, or vui_parameters_present_flag.
    const struct {
        const Bytes& set;
        size_t needed;
    } kSets[] = {{kLongGOP, 24}, {kWithHRD, 29}, {kIntra, 80}, {kBaseline, 7}};
    for (const auto& row : kSets)
        for (size_t size = 0; size <= row.set.size(); ++size)
            EXPECT_EQ(ReadPicTimingLayout(Part(row.set, 0, size)).has_value(), size >= row.needed) << size;
}

TEST(PicTiming, ParameterSetOfNoiseEnds) {
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i) {
        Bytes bytes = Noise(random, random() % 200);
        if (!bytes.empty()) bytes[0] = i % 2 == 0 ? 0x64 : 0x42;
        ReadPicTimingLayout(bytes);
        ReadClockTimestamp(bytes, {static_cast<uint32_t>(random() % 65), static_cast<uint32_t>(random() % 32), true},
                           1);
    }
    // A count of 2^32 - 2 offsets in a cycle with no bits behind it.
    EXPECT_FALSE(ReadPicTimingLayout(Hex("42 00 1E D3 00 00 00 01 FF FF FF FF")));
}

TEST(PicTiming, ClockTimestampIsGivenAsAPack) {
    // pic_struct 3; one timestamp: ct_type 1, nuit 1, counting_type 4, full, n_frames 25, 59 s, 4 min, 3 h; no second.
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 20", Default()), (PackData{0x65, 0x59, 0x04, 0x03}));
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 20", Default(), 2), std::nullopt);
    // counting_type 1, not dropping: pic_struct 0, 23:59:59:29
    EXPECT_EQ(Timestamp("0a 0c 1d ef bb 80 00 00 40", Default()), (PackData{0x29, 0x59, 0x59, 0x23}));
    // cpb_removal_delay 5, dpb_output_delay 2, pic_struct 0, counting_type 4, 10:09:08;07
    EXPECT_EQ(Timestamp("00 28 20 b2 40 72 09 54", WithHRD()), (PackData{0x47, 0x08, 0x09, 0x10}));
}

TEST(PicTiming, SecondTimestampTakesWhatItLeavesOutFromTheFirst) {
    // pic_struct 4: 23:56:34:12 in full, then frame 13 and second 35 only.
    const char* payload = "4a 04 0c 8b 8b 80 00 00 50 00 6e 30 00 00 04";
    EXPECT_EQ(Timestamp(payload, Default(), 1), (PackData{0x12, 0x34, 0x56, 0x23}));
    EXPECT_EQ(Timestamp(payload, Default(), 2), (PackData{0x13, 0x35, 0x56, 0x23}));
    EXPECT_EQ(Timestamp(payload, Default(), 3), std::nullopt);
}

TEST(PicTiming, LastTimestampOfEachPictureStructureMayBeTheOnlyOne) {
    // pic_struct 0 to 8 with 1, 1, 1, 2, 2, 3, 3, 2, 3 flags; behind the last of them 03:04:59:25 in full.
    for (const char* payload :
         {"08 04 19 ec 41 80 00 00 40", "18 04 19 ec 41 80 00 00 40", "28 04 19 ec 41 80 00 00 40",
          "34 02 0c f6 20 c0 00 00 20", "44 02 0c f6 20 c0 00 00 20", "52 01 06 7b 10 60 00 00 10",
          "62 01 06 7b 10 60 00 00 10", "74 02 0c f6 20 c0 00 00 20", "82 01 06 7b 10 60 00 00 10"}) {
        EXPECT_EQ(Timestamp(payload, Default()), (PackData{0x25, 0x59, 0x04, 0x03})) << payload;
    }
}

TEST(PicTiming, TimestampsOutOfRangeCountAsNone) {
    for (const int32_t number : {0, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 20", Default(), number), std::nullopt);
}

TEST(PicTiming, ShortTimestampNeedsAllItsParts) {
    EXPECT_EQ(Timestamp("0a 08 05 87 12 60 00 00 08", Default()), (PackData{0x05, 0x03, 0x04, 0x06}));
    EXPECT_EQ(Timestamp("0a 08 05 87 10 00 00 01", Default()), std::nullopt);  // no hours
}

TEST(PicTiming, ValuesThatAreNoTimeAreNone) {
    EXPECT_EQ(Timestamp("0a 0c 1e 0c 43 00 00 00 40", Default()), std::nullopt);  // 30 frames
    EXPECT_EQ(Timestamp("0a 0c 1d f0 43 00 00 00 40", Default()), std::nullopt);  // 60 seconds
    EXPECT_EQ(Timestamp("0a 3c 05 0c 43 00 00 00 40", Default()), std::nullopt);  // counting_type 7
    EXPECT_EQ(Timestamp("9a 0c 05 0c 43 00 00 00 40", Default()), std::nullopt);  // pic_struct 9
    EXPECT_EQ(Timestamp("0e 0c 1d ef bb 80 00 00 40", Default()), std::nullopt);  // ct_type 3
}

TEST(PicTiming, PayloadMustBeUsedUpExactly) {
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 20 80", Default()), std::nullopt);  // a byte more
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 10", Default()), std::nullopt);     // filling begins a bit too late
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 00", Default()), std::nullopt);     // no filling
    const Bytes whole = Hex("3b 24 19 ec 41 80 00 00 20");
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(ReadClockTimestamp(Part(whole, 0, size), Default(), 1), std::nullopt) << size;
}

TEST(PicTiming, PayloadOfAnotherLayoutIsNone) {
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 20", WithHRD()), std::nullopt);
    EXPECT_EQ(Timestamp("00 28 20 b2 40 72 09 54", Default()), std::nullopt);
    // Delays and no timestamp.
    EXPECT_EQ(Timestamp("00 00 00 40", WithHRD()), std::nullopt);
    EXPECT_EQ(Timestamp("00 00 00 40", Default()), std::nullopt);
    EXPECT_EQ(Timestamp("00 30 00 40", Default()), std::nullopt);
    EXPECT_EQ(Timestamp("3b 24 19 ec 41 80 00 00 20", {0, 24, false}), std::nullopt);
}

}  // namespace kmxf::test
