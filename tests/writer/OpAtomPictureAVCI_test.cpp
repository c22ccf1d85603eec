#include "kmxf/writer/OpAtomPictureAVCI.h"

#include <gtest/gtest.h>

#include "kmxf/core/VideoStandard.h"
#include "support/Hex.h"
#include "writer/OpAtomFixture.h"

namespace kmxf::test {
namespace {

TEST(OpAtomPictureAVCI, FirstFrameHasAnIndexSegmentOfItsOwn) {
    COpAtomPictureAVCI builder(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080, 0x104, 0, 48000, false);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(100);
    builder.SetDataSize(512 + 100 * 472064);
    EXPECT_EQ(builder.GetFooterSize(), 324u);
    const auto footer = FooterOf(builder);
    ASSERT_EQ(footer.size(), 324u);
    const auto packets = Packets(footer, 0, footer.size());
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(std::vector<uint8_t>(footer.begin() + 60, footer.begin() + 68), Bytes64(200));
    const auto first = packets[1].Items(), rest = packets[2].Items();
    EXPECT_EQ(first.at(0x3F0C), Bytes64(0));
    EXPECT_EQ(first.at(0x3F0D), Bytes64(1));
    EXPECT_EQ(first.at(0x3F05), Hex("00 07 36 00"));  // 472064 + 512
    EXPECT_EQ(rest.at(0x3F0C), Bytes64(1));
    EXPECT_EQ(rest.at(0x3F0D), Bytes64(99));
    EXPECT_EQ(rest.at(0x3F05), Hex("00 07 34 00"));  // 472064
    EXPECT_NE(first.at(0x3C0A), rest.at(0x3C0A));

    const auto header = PacketsOf(builder);
    EXPECT_EQ(header[header.size() - 3].value, packets[1].value) << "the header repeats the first segment only";
    EXPECT_NE(header[header.size() - 4].key, packets[1].key);
}

TEST(OpAtomPictureAVCI, SegmentsOfShortRecordingsNeverHaveNegativeDurations) {
    const auto durations = [](int64_t frames) {
        COpAtomPictureAVCI builder(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080, 0x100, 0, 48000, false);
        EXPECT_EQ(builder.Initialize(), kStatusOk);
        if (frames >= 0) builder.SetDuration(frames);
        const auto footer = FooterOf(builder);
        const auto packets = Packets(footer, 0, footer.size());
        return std::pair{BigEndian(packets[1].Item(0x3F0D)), BigEndian(packets[2].Item(0x3F0D))};
    };
    EXPECT_EQ(durations(-1), (std::pair<uint64_t, uint64_t>{0, 0})) << "before the first SetDuration";
    EXPECT_EQ(durations(0), (std::pair<uint64_t, uint64_t>{0, 0}));
    EXPECT_EQ(durations(1), (std::pair<uint64_t, uint64_t>{1, 0}));
    EXPECT_EQ(durations(2), (std::pair<uint64_t, uint64_t>{1, 1}));
}

TEST(OpAtomPictureAVCI, DescribesItsPicturesWithASubDescriptor) {
    COpAtomPictureAVCI builder(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080, 0x100, 0, 48000, false);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(7);
    const auto header = HeaderOf(builder);
    const auto packets = Packets(header, 0, 32744);
    const auto descriptor = SetsOfKind(packets, 0x51).front();
    const auto sub = SetsOfKind(packets, 0x6E).front();
    EXPECT_EQ(sub.offset, descriptor.End());
    auto reference = Hex("00 00 00 01 00 00 00 10");
    for (const uint8_t byte : sub.Item(0x3C0A)) reference.push_back(byte);
    EXPECT_EQ(descriptor.Item(0x9001), reference);
    EXPECT_EQ(descriptor.Item(0x3201), Hex("06 0E 2B 34 04 01 01 0A 04 01 02 02 01 32 31 01"));
    EXPECT_EQ(descriptor.Item(0x3004), Hex("06 0E 2B 34 04 01 01 01 0D 01 03 01 02 10 60 02"));
    EXPECT_EQ(descriptor.Item(0x3002), Bytes64(7));
    EXPECT_EQ(descriptor.Item(0x3006), Hex("00 00 00 01"));
    EXPECT_EQ(SetsOfKind(packets, 0x3B).back().Item(0x4804), Hex("15 01 06 01"));
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32744, header.begin() + 32760),
              Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 06 01"));
    EXPECT_EQ(SetsOfKind(packets, 0x37).front().Item(0x4701), descriptor.Item(0x3C0A));
}

TEST(OpAtomPictureAVCI, OtherTypesAreRefused) {
    const auto initialize = [](uint32_t videoStd, uint32_t compType) {
        return COpAtomPictureAVCI(videoStd, compType, 0x100, 0, 48000, false).Initialize();
    };
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, 0x1FFFF), kStatusInvalidArgument) << "the writer's type before one is set";
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, COMP_TYPE_AVCI50_720), kStatusInvalidArgument);
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080), kStatusInvalidArgument);
    EXPECT_EQ(initialize(VIDEO_STD_59_94I, COMP_TYPE_DV25), kStatusInvalidArgument);
    EXPECT_EQ(initialize(0, COMP_TYPE_AVCI50_1080), kStatusInvalidArgument);
}

TEST(OpAtomPictureAVCI, EveryFormatWithAFrameSizeInitializes) {
    int formats = 0;
    for (const uint32_t compType : {0xC900u, 0xCA00u, 0xCD00u, 0xCE00u, 0xD100u, 0xD200u}) {
        for (const uint32_t videoStd :
             {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x0200007Cu, 0x02000099u, 0x020000B2u}) {
            COpAtomPictureAVCI builder(videoStd, compType, 0x100, 0, 48000, false);
            if (builder.Initialize() != kStatusOk) continue;
            ++formats;
            EXPECT_EQ(HeaderOf(builder).size(), 32768u);
        }
    }
    EXPECT_EQ(formats, 3 * 7 + 3 * 5);
}

}  // namespace
}  // namespace kmxf::test
