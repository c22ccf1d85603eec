#include "kmxf/writer/OpAtomSound.h"

#include <gtest/gtest.h>

#include "kmxf/core/VideoStandard.h"
#include "support/Hex.h"
#include "writer/OpAtomFixture.h"

namespace kmxf::test {
namespace {

struct SoundRow {
    uint32_t samplesPerSec, bits;
    const char* rate;
    const char* storedBits;
    const char* blockAlign;
    const char* bytesPerSecond;
    int64_t samples;  // of 7 frames at 59.94i
};
constexpr SoundRow kRows[] = {
    {48000, 16, "00 00 BB 80 00 00 00 01", "00 00 00 10", "00 02", "00 01 77 00", 11212},
    {48000, 24, "00 00 BB 80 00 00 00 01", "00 00 00 18", "00 03", "00 02 32 80", 11212},
    {96000, 16, "00 01 77 00 00 00 00 01", "00 00 00 10", "00 02", "00 02 EE 00", 22424},
    {96000, 24, "00 01 77 00 00 00 00 01", "00 00 00 18", "00 03", "00 04 65 00", 22424},
    {44100, 20, "00 00 BB 80 00 00 00 01", "00 00 00 10", "00 02", "00 01 77 00", 11212},  // become 48000 and 16
};

TEST(OpAtomSound, DescribesEveryKindOfSound) {
    for (const SoundRow& row : kRows) {
        COpAtomSound builder(VIDEO_STD_59_94I, 0x101, row.samplesPerSec, 0, row.bits, false);
        ASSERT_EQ(builder.Initialize(), kStatusOk);
        builder.SetDuration(7);
        const auto packets = PacketsOf(builder);
        const auto descriptor = SetsOfKind(packets, 0x47).front();
        EXPECT_EQ(descriptor.Item(0x3001), Hex(row.rate));
        EXPECT_EQ(descriptor.Item(0x3D03), Hex(row.rate));
        EXPECT_EQ(descriptor.Item(0x3D01), Hex(row.storedBits));
        EXPECT_EQ(descriptor.Item(0x3D0A), Hex(row.blockAlign));
        EXPECT_EQ(descriptor.Item(0x3D09), Hex(row.bytesPerSecond));
        EXPECT_EQ(descriptor.Item(0x3D07), Hex("00 00 00 01"));
        EXPECT_EQ(descriptor.Item(0x3002), Bytes64(row.samples));
        EXPECT_EQ(descriptor.Item(0x3004), Hex("06 0E 2B 34 04 01 01 01 0D 01 03 01 02 06 04 00"));
        EXPECT_EQ(descriptor.Item(0x3006), Hex("00 00 00 01"));
        const auto track = SetsOfKind(packets, 0x3B).back();
        EXPECT_EQ(track.Item(0x4B01), Hex(row.rate));
        EXPECT_EQ(track.Item(0x4804), Hex("16 01 04 01"));
        EXPECT_EQ(SetsOfKind(packets, 0x0F).back().Item(0x0202), Bytes64(row.samples));
        EXPECT_EQ(SetsOfKind(packets, 0x11).back().Item(0x0202), Bytes64(row.samples));
        const auto index = packets[packets.size() - 3].Items();
        EXPECT_EQ(index.at(0x3F0B), Hex(row.rate));
        EXPECT_EQ(index.at(0x3F0D), Bytes64(row.samples));
        EXPECT_EQ(BigEndian(index.at(0x3F05)), BigEndian(Hex(row.blockAlign)));
    }
}

TEST(OpAtomSound, PictureTracksOfTheClipStillCountFrames) {
    COpAtomSound builder(VIDEO_STD_59_94I, 0x101, 96000, 0, 16, false);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(7);
    const auto clips = SetsOfKind(PacketsOf(builder), 0x11);
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(clips[0].Item(0x0202), Bytes64(7));
    EXPECT_EQ(clips[1].Item(0x0202), Bytes64(22424));
}

TEST(OpAtomSound, HeaderAndFooterAreLaidOutLikeAPictures) {
    COpAtomSound builder(VIDEO_STD_50I, 0x101, 48000, 0, 24, false);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDataSize(5760);
    const auto header = HeaderOf(builder);
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32744, header.end()),
              Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 04 01  87 00 00 00 00 00 16 80"));
    EXPECT_EQ(builder.GetFooterSize(), 224u);
    const auto footer = FooterOf(builder);
    EXPECT_EQ(std::vector<uint8_t>(footer.begin() + 28, footer.begin() + 36), Bytes64(32768 + 5760));
    EXPECT_EQ(std::vector<uint8_t>(footer.begin() + 60, footer.begin() + 68), Bytes64(100));
}

TEST(OpAtomSound, SpannedSoundCountsItsFillerInSamples) {
    COpAtomSound builder(VIDEO_STD_50I, 0x101, 96000, 0, 24, true);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetFillerDuration(2);
    builder.SetDuration(1);
    const auto fillers = SetsOfKind(PacketsOf(builder), 0x09);
    ASSERT_EQ(fillers.size(), 2u);
    EXPECT_EQ(fillers[0].Item(0x0202), Bytes64(2));
    EXPECT_EQ(fillers[1].Item(0x0202), Bytes64(7680));
}

}  // namespace
}  // namespace kmxf::test
