#include "kmxf/writer/OpAtomPictureCDCI.h"

#include <gtest/gtest.h>

#include "kmxf/core/VideoStandard.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "writer/OpAtomFixture.h"

namespace kmxf::test {
namespace {

struct DVRow {
    uint32_t videoStd, compType;
    bool consumerDV;
    const char* container;  // last four bytes of the essence container label
    const char* frameSize;
    const char* editRate;
};
constexpr DVRow kRows[] = {
    {VIDEO_STD_59_94I, COMP_TYPE_DV25, false, "02 02 40 02", "00 01 D4 C0", "00 00 75 30 00 00 03 E9"},
    {VIDEO_STD_50I, COMP_TYPE_DV25, false, "02 02 41 02", "00 02 32 80", "00 00 00 19 00 00 00 01"},
    {VIDEO_STD_59_94I, COMP_TYPE_DV25, true, "02 02 01 02", "00 01 D4 C0", "00 00 75 30 00 00 03 E9"},
    {VIDEO_STD_50I, COMP_TYPE_DV25, true, "02 02 02 02", "00 02 32 80", "00 00 00 19 00 00 00 01"},
    {VIDEO_STD_59_94I, COMP_TYPE_DV50, false, "02 02 50 02", "00 03 A9 80", "00 00 75 30 00 00 03 E9"},
    {VIDEO_STD_50I, COMP_TYPE_DV50, false, "02 02 51 02", "00 04 65 00", "00 00 00 19 00 00 00 01"},
    {VIDEO_STD_59_94I, COMP_TYPE_DV100_1080I, false, "02 02 60 02", "00 07 53 00", "00 00 75 30 00 00 03 E9"},
    {VIDEO_STD_50I, COMP_TYPE_DV100_1080I, false, "02 02 61 02", "00 08 CA 00", "00 00 00 19 00 00 00 01"},
    {VIDEO_STD_23_98P, COMP_TYPE_DV100_720P, false, "02 02 62 02", "00 03 A9 80", "00 00 5D C0 00 00 03 E9"},
    {VIDEO_STD_29_97P, COMP_TYPE_DV100_720P, false, "02 02 62 02", "00 03 A9 80", "00 00 75 30 00 00 03 E9"},
    {VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, false, "02 02 62 02", "00 03 A9 80", "00 00 EA 60 00 00 03 E9"},
    {VIDEO_STD_25P, COMP_TYPE_DV100_720P, false, "02 02 63 02", "00 04 65 00", "00 00 00 19 00 00 00 01"},
    {VIDEO_STD_50P, COMP_TYPE_DV100_720P, false, "02 02 63 02", "00 04 65 00", "00 00 00 32 00 00 00 01"},
};

TEST(OpAtomPictureCDCI, EveryFormatHasItsLabelRateAndFrameSize) {
    for (const DVRow& row : kRows) {
        COpAtomPictureCDCI builder(row.videoStd, row.compType, 0x100, 0, 48000, false, row.consumerDV, 0);
        ASSERT_EQ(builder.Initialize(), kStatusOk);
        builder.SetDuration(4);
        builder.SetDataSize(0);
        const auto header = HeaderOf(builder);
        const auto packets = Packets(header, 0, 32744);
        const auto descriptor = SetsOfKind(packets, 0x28).front();
        auto label = Hex("06 0E 2B 34 04 01 01 01 0D 01 03 01");
        for (const uint8_t byte : Hex(row.container)) label.push_back(byte);
        EXPECT_EQ(descriptor.Item(0x3004), label);
        EXPECT_EQ(descriptor.Item(0x3001), Hex(row.editRate));
        EXPECT_EQ(descriptor.Item(0x3002), Bytes64(4));
        EXPECT_EQ(descriptor.Item(0x3006), Hex("00 00 00 01"));
        EXPECT_EQ(std::vector<uint8_t>(header.begin() + 108, header.begin() + 124), label);
        EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32728, header.begin() + 32744), label);
        const auto index = packets[packets.size() - 3].Items();
        EXPECT_EQ(index.at(0x3F0B), Hex(row.editRate));
        EXPECT_EQ(index.at(0x3F0C), Bytes64(0));
        EXPECT_EQ(index.at(0x3F0D), Bytes64(4));
        EXPECT_EQ(index.at(0x3F05), Hex(row.frameSize));
        EXPECT_EQ(index.at(0x3F06), Hex("00 00 00 01"));
        EXPECT_EQ(index.at(0x3F07), Hex("00 00 00 02"));
    }
}

TEST(OpAtomPictureCDCI, FileTrackCarriesTheElementsNumber) {
    COpAtomPictureCDCI builder(VIDEO_STD_50I, COMP_TYPE_DV25, 0x100, 0, 48000, false, false, 0);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(3);
    const auto packets = PacketsOf(builder);
    const auto track = SetsOfKind(packets, 0x3B).back();
    EXPECT_EQ(track.Item(0x4801), Hex("00 00 00 01"));
    EXPECT_EQ(track.Item(0x4804), Hex("18 01 02 01"));
    EXPECT_EQ(track.Item(0x4B01), Hex("00 00 00 19 00 00 00 01"));
    EXPECT_EQ(SetsOfKind(packets, 0x0F).back().Item(0x0202), Bytes64(3));
    EXPECT_EQ(SetsOfKind(packets, 0x11).back().Item(0x0202), Bytes64(3));
    EXPECT_EQ(SetsOfKind(packets, 0x37).front().Item(0x4701), SetsOfKind(packets, 0x28).front().Item(0x3C0A));
}

TEST(OpAtomPictureCDCI, WideSetsTheAspectRatio) {
    COpAtomPictureCDCI builder(VIDEO_STD_50I, COMP_TYPE_DV25, 0x100, 0, 48000, false, false, 0);
    EXPECT_EQ(builder.SetWide(true), kStatusWrongState);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    const auto ratio = [&] { return SetsOfKind(PacketsOf(builder), 0x28).front().Item(0x320E); };
    EXPECT_EQ(ratio(), Hex("00 00 00 04 00 00 00 03"));
    EXPECT_EQ(builder.SetWide(true), kStatusOk);
    EXPECT_EQ(ratio(), Hex("00 00 00 10 00 00 00 09"));
    EXPECT_EQ(builder.SetWide(false), kStatusOk);
    EXPECT_EQ(ratio(), Hex("00 00 00 04 00 00 00 03"));
}

TEST(OpAtomPictureCDCI, FormatsWithoutAFrameSizeAreRefused) {
    const auto initialize = [](uint32_t videoStd, uint32_t compType) {
        return COpAtomPictureCDCI(videoStd, compType, 0x100, 0, 48000, false, false, 0).Initialize();
    };
    EXPECT_EQ(initialize(VIDEO_STD_25P, COMP_TYPE_DV25), kStatusInvalidArgument);
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, COMP_TYPE_DV100_720P), kStatusInvalidArgument);
    EXPECT_EQ(initialize(0, COMP_TYPE_DV25), kStatusInvalidArgument);
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, 0), kStatusInvalidArgument);
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080), kStatusInvalidArgument);
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080), kStatusInvalidArgument);
}

TEST(OpAtomPictureCDCI, TheUnusedOutOffsetLeavesNoTrace) {
    const auto header = [](uint32_t unusedOutOffset) {
        const FixedEnvironment environment;
        COpAtomPictureCDCI builder(VIDEO_STD_50P, COMP_TYPE_DV100_720P, 0x100, 0, 48000, false, false, unusedOutOffset);
        EXPECT_EQ(builder.Initialize(), kStatusOk);
        return HeaderOf(builder);
    };
    EXPECT_TRUE(SameBytes(header(0), header(1)));
}

}  // namespace
}  // namespace kmxf::test
