#include <gtest/gtest.h>

#include <vector>

#include "Op1bBuilder.h"

namespace kmxf::test {
namespace {

// Writes one group of two frames with one channel, and returns its segments in the order in which they were written.
std::vector<uint8_t> BuildGroup(COp1bBase& builder) {
    HeaderOf(builder);
    for (int i = 0; i < 2; ++i) builder.AddIndexEntry(0, 0, 0, 0);
    std::vector<uint8_t> segments;
    const auto keep = [&](const std::vector<uint8_t>& segment) {
        segments.insert(segments.end(), segment.begin(), segment.end());
    };
    builder.SetBodyPartitionParamVideo(0x20000, 0, 2, true, false);
    keep(Cut(VideoPartitionOf(builder, true), 156, 152));
    keep(Cut(ANCBlockOf(builder, 0x20200, 2), 1336, 100));
    builder.SetBodyPartitionParamAudio(0x20800, 0, 2, 0, true, false);
    keep(Cut(AudioPartitionOf(builder, true, 0), 156, 100));
    return segments;
}

TEST(Op1bBase, TheFooterRepeatsAllSegments) {
    auto builder = Builder(1);
    auto segments = BuildGroup(*builder);
    const auto more = BuildGroup(*builder);
    segments.insert(segments.end(), more.begin(), more.end());
    ASSERT_EQ(segments.size(), 704u);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x30000), kStatusOk);
    EXPECT_EQ(builder->GetFooterSize(), 860u);
    const auto footer = FooterOf(*builder);
    ASSERT_EQ(footer.size(), 860u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00  83 00 00 88"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 03 00 00  00 00 00 00 00 02 08 00  00 00 00 00 00 03 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 02 C0"
                              "00 00 00 65  00 00 00 00 00 00 00 00  00 00 00 00"),
                          std::span(footer).first(84)));
    EXPECT_TRUE(SameBytes(segments, std::span(footer).subspan(156)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 00 00"), Cut(HeaderOf(*builder), 44, 8)));
}

TEST(Op1bBase, FillItemsAreNotRepeatedInTheFooter) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->AddIndexEntry(0, 0, 0, 0);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 1, true, false);
    VideoPartitionOf(*builder, true);
    EXPECT_EQ(builder->GetFooterSize(), 156u + 141);
}

TEST(Op1bBase, WithoutKeepingTheFooterIsOnePack) {
    COp1bBase builder(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, 2, 1);
    EXPECT_EQ(builder.Initialize(false), kStatusOk);
    BuildGroup(builder);
    EXPECT_EQ(builder.GetFooterSize(), 156u);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00"),
                          Cut(FooterOf(builder), 60, 24)));  // no index, no IndexSID
}

TEST(Op1bBase, TheFooterIsEnteredOnce) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x12345), kStatusOk);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x12345), kStatusOk);
    EXPECT_EQ(builder->GetRandomIndexSize(), 60u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 28"
                              "00 00 00 00 00 00 00 00 00 00 00 00  00 00 00 01 00 00 00 00 00 02 00 00"
                              "00 00 00 00 00 00 00 00 00 01 23 45  00 00 00 3C"),
                          RandomIndexOf(*builder)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 01 23 45  00 00 00 00 00 02 00 00  00 00 00 00 00 01 23 45"),
                          Cut(FooterOf(*builder), 28, 24)));
}

TEST(Op1bBase, FooterPositionsCanBeSetOneByOne) {
    auto builder = Builder();
    EXPECT_EQ(builder->SetFooterPartitionPos(0x1122), kStatusOk);
    EXPECT_EQ(builder->SetFooterPrevPartitionPos(0x3344), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 11 22  00 00 00 00 00 00 33 44  00 00 00 00 00 00 11 22"),
                          Cut(FooterOf(*builder), 28, 24)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 11 22"), Cut(HeaderOf(*builder), 44, 8)));
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);  // the header alone
}

TEST(Op1bBase, EntriesAndSegmentsOfAnotherFileAreTakenOver) {
    auto builder = Builder();
    EXPECT_EQ(builder->AddPartitionInfo({0x20000, 1}), kStatusOk);
    EXPECT_EQ(builder->AddPartitionInfo({0x30000, 0}), kStatusOk);
    HeaderOf(*builder);  // not entered: there are entries already
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 1C"
                              "00 00 00 01 00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00 00 03 00 00  00 00 00 30"),
                          RandomIndexOf(*builder)));
    CIndexCommon segment(1, 0, 0, 0);
    segment.SetDuration(9);
    EXPECT_EQ(builder->AddFooterIndex(segment), kStatusOk);
    uint8_t* data = nullptr;
    ASSERT_EQ(segment.GetData(&data), kStatusOk);
    const auto expected = Take(data, segment.GetLength());
    const auto footer = FooterOf(*builder);
    ASSERT_EQ(footer.size(), 256u);
    EXPECT_TRUE(SameBytes(expected, std::span(footer).last(100)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 00 64 00 00 00 65"), std::span(footer).subspan(60, 12)));
}

TEST(Op1bBase, TheNextPartitionFollowsEntriesTakenOver) {
    auto builder = Builder();
    builder->AddPartitionInfo({0x20000, 1});
    builder->AddPartitionInfo({0x30000, 0});
    EXPECT_EQ(builder->SetFooterPartitionParam(0x40000), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 00 00"), Cut(FooterOf(*builder), 36, 8)));
}

}  // namespace
}  // namespace kmxf::test
