#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "Op1bBuilder.h"
#include "support/SetItems.h"

namespace kmxf::test {
namespace {

TEST(Op1bBase, KLOfEachKindOfEssence) {
    auto builder = Builder(0);
    const auto kl = [&](uint32_t type, int64_t length) {
        std::vector<uint8_t> out(24, 0xEE);
        EXPECT_EQ(builder->GetKLData(type, length, out.data()), kStatusOk);
        return out;
    };
    const auto video = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01  83 12 34 56  EE EE EE EE");
    const auto sound = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01  87 11 22 33 44 55 66 77");
    const auto anc = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  EE EE EE EE");
    const std::vector<uint8_t> nothing(24, 0xEE);
    EXPECT_EQ(kl(0x30100, 0x123456), video);
    EXPECT_EQ(kl(0x30F00, 0x123456), video);
    EXPECT_EQ(kl(0, 0x123456), video);  // lies within every mask, the first of which is the picture's
    EXPECT_EQ(kl(0x30000, 0x123456), video);
    EXPECT_EQ(kl(0x30001, 0x11223344556677), sound);
    EXPECT_EQ(kl(0x300FF, 0x11223344556677), sound);
    EXPECT_EQ(kl(0x32000, 2), anc);
    EXPECT_EQ(kl(0x2000, 2), anc);
    EXPECT_EQ(kl(0x31000, 2), nothing);
    EXPECT_EQ(kl(0x30101, 2), nothing);
    EXPECT_EQ(kl(0x32001, 2), nothing);
    EXPECT_EQ(kl(0x40000, 2), nothing);
}

TEST(Op1bBase, TheDummyANCElementHas512Bytes) {
    std::vector<uint8_t> out(512, 0xEE);
    EXPECT_TRUE(COp1bBase::CreateDummyANC(out.data()));
    auto expected =
        Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  00 00"
            "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
    expected.resize(512);
    EXPECT_TRUE(SameBytes(expected, out));
}

TEST(Op1bBase, AnANCElementCarriesUpTo470Bytes) {
    std::vector<uint8_t> payload(471, 0xA5), out(513, 0xEE);
    const auto element = [&](const char* head, uint32_t size, const char* fill) {
        auto bytes = Hex(std::string("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01") + head);
        bytes.insert(bytes.end(), size, 0xA5);
        const auto tail = Hex(std::string("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00") + fill);
        bytes.insert(bytes.end(), tail.begin(), tail.end());
        bytes.resize(512);
        bytes.push_back(0xEE);
        return bytes;
    };
    EXPECT_TRUE(COp1bBase::CreateANCData(payload.data(), 0, out.data()));
    EXPECT_TRUE(SameBytes(element("83 00 00 02 01 00", 0, "83 00 01 D6"), out));
    EXPECT_TRUE(COp1bBase::CreateANCData(payload.data(), 1, out.data()));
    EXPECT_TRUE(SameBytes(element("83 00 00 03 01 00", 1, "83 00 01 D5"), out));
    EXPECT_TRUE(COp1bBase::CreateANCData(payload.data(), 470, out.data()));
    EXPECT_TRUE(SameBytes(element("83 00 01 D8 01 00", 470, "83 00 00 00"), out));
    const auto before = out;
    EXPECT_FALSE(COp1bBase::CreateANCData(payload.data(), 471, out.data()));
    EXPECT_FALSE(COp1bBase::CreateANCData(payload.data(), 0xFFFFFFFF, out.data()));
    EXPECT_EQ(out, before);
}

// The value of a pack's fields from ThisPartition to BodySID.
std::vector<uint8_t> FieldsOf(const std::vector<uint8_t>& pack) { return {pack.begin() + 28, pack.begin() + 84}; }

TEST(Op1bBase, BodyPartitionsNeedTheHeaderInTheRandomIndex) {
    auto builder = Builder();
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true), kStatusFailure);
    EXPECT_EQ(builder->SetBodyPartitionParamAudio(0x20000, 0, 1, 0, false, true), kStatusFailure);
    EXPECT_EQ(builder->GetBodyPartitionDataANCData(&data, 0x20000, 1), kStatusFailure);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x20000), kStatusFailure);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(builder->GetRandomIndexSize(), 24u);
    HeaderOf(*builder);
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);
    EXPECT_EQ(builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true), kStatusOk);
    EXPECT_EQ(builder->GetRandomIndexSize(), 48u);
}

TEST(Op1bBase, AVideoBodyPartitionIsOnePack) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 60, false, true);
    builder->SetBodyPartitionParamVideo(0x123456789A, 0x1122334455, 60, false, true);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00  83 00 00 88"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 12 34 56 78 9A  00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 11 22 33 44 55  00 00 00 01"
                              "06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00  00 00 00 03 00 00 00 10"
                              "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"
                              "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00"
                              "06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00"),
                          VideoPartitionOf(*builder, false)));
    EXPECT_EQ(builder->GetBodyPartitionSize(false, false), 156u);
    EXPECT_EQ(builder->GetBodyPartitionSize(false, true), 156u);
    EXPECT_EQ(builder->GetBodyPartitionSize(true, true), 256u);
}

TEST(Op1bBase, AVideoIndexPartitionIsFilledUpToFourBytes) {
    const struct {
        uint32_t frames, segment, fill;
        const char* byteCount;
    } rows[] = {
        {1, 141, 23, "00 00 00 00 00 00 00 A4"},    {2, 152, 0, "00 00 00 00 00 00 00 98"},
        {3, 163, 21, "00 00 00 00 00 00 00 B8"},    {4, 174, 22, "00 00 00 00 00 00 00 C4"},
        {48, 658, 22, "00 00 00 00 00 00 02 A8"},   {50, 680, 0, "00 00 00 00 00 00 02 A8"},
        {60, 790, 22, "00 00 00 00 00 00 03 2C"},   {100, 1230, 22, "00 00 00 00 00 00 04 E4"},
        {120, 1450, 22, "00 00 00 00 00 00 05 C0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.frames);
        auto builder = Builder();
        HeaderOf(*builder);
        for (uint32_t i = 0; i < row.frames; ++i) builder->AddIndexEntry(0, 0, 0, i);
        EXPECT_EQ(builder->SetBodyPartitionParamVideo(0x20000, 99, row.frames, true, false), kStatusOk);
        EXPECT_EQ(builder->GetBodyPartitionSize(true, false), 156 + row.segment + row.fill);
        const auto bytes = VideoPartitionOf(*builder, true);
        ASSERT_EQ(bytes.size(), 156 + row.segment + row.fill);
        EXPECT_EQ(bytes.size() % 4, 0u);
        EXPECT_TRUE(
            SameBytes(Hex(std::string("00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                                      "00 00 00 00 00 00 00 00") +
                          row.byteCount + "00 00 00 65  00 00 00 00 00 00 00 00  00 00 00 00"),
                      FieldsOf(bytes)));
        const auto packets = Packets(bytes, 156, bytes.size());
        EXPECT_EQ(packets[0].End(), 156u + row.segment);
        ASSERT_EQ(packets.size(), row.fill == 0 ? 1u : 2u);
        if (row.fill > 0) {
            auto fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 00");
            fill.push_back(static_cast<uint8_t>(row.fill - 20));
            fill.resize(row.fill);
            EXPECT_TRUE(SameBytes(fill, std::span(bytes).last(row.fill)));
        }
    }
}

TEST(Op1bBase, AVideoIndexSegmentHasAnEntryForEachFrame) {
    auto builder = Builder();
    HeaderOf(*builder);
    EXPECT_EQ(builder->AddIndexEntry(0, 0, 0xC0, 0), kStatusOk);
    EXPECT_EQ(builder->AddIndexEntry(-1, -128, 0x22, 0x102030405060708), kStatusOk);
    EXPECT_EQ(builder->AddIndexEntry(127, -2, 0x3B, 0x7FFFFFFFFFFFFFFF), kStatusOk);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 3, true, false);
    const auto bytes = VideoPartitionOf(*builder, true);
    const auto segment = Packets(bytes, 156, bytes.size()).front();
    EXPECT_EQ(segment.key, Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00"));
    ExpectItems(segment, {{0x3F0B, "00 00 75 30 00 00 03 E9"},
                          {0x3F0C, "00 00 00 00 00 00 00 00"},
                          {0x3F0D, "00 00 00 00 00 00 00 03"},
                          {0x3F05, "00 00 00 00"},
                          {0x3F06, "00 00 00 65"},
                          {0x3F07, "00 00 00 01"}});
    EXPECT_FALSE(segment.Items().contains(0x3F08));
    EXPECT_EQ(segment.Item(0x3F09), Hex("00 00 00 01 00 00 00 06  FF 00 00 00 00 00"));
    EXPECT_EQ(segment.Item(0x3F0A), Hex("00 00 00 03 00 00 00 0B  00 00 C0 00 00 00 00 00 00 00 00"
                                        "FF 80 22 01 02 03 04 05 06 07 08  7F FE 3B 7F FF FF FF FF FF FF FF"));
}

TEST(Op1bBase, TheNextSegmentBeginsWithTheNextFrame) {
    auto builder = Builder(1);
    HeaderOf(*builder);
    std::set<std::vector<uint8_t>> uids;
    const auto segmentOf = [&](const std::vector<uint8_t>& bytes) {
        const auto packet = Packets(bytes, 156, bytes.size()).front();
        EXPECT_TRUE(uids.insert(UidOf(packet)).second);
        return packet;
    };
    for (uint32_t group = 0; group < 3; ++group) {
        SCOPED_TRACE(group);
        for (int i = 0; i < 2; ++i) builder->AddIndexEntry(0, 0, 0, 0);
        builder->SetBodyPartitionParamVideo(1, 0, 2, true, false);
        const auto video = segmentOf(VideoPartitionOf(*builder, true));
        EXPECT_EQ(BigEndian(video.Item(0x3F0C)), 2 * group);
        EXPECT_EQ(BigEndian(video.Item(0x3F0D)), 2u);
        EXPECT_EQ(BigEndian(std::span(video.value).last(30).first(4)), 2u);  // its entries alone
        const auto anc = ANCBlockOf(*builder, 1, 2);
        const auto packets = Packets(anc, 0, anc.size());
        EXPECT_EQ(BigEndian(packets.back().Item(0x3F0C)), 2 * group);
        EXPECT_TRUE(uids.insert(UidOf(packets.back())).second);
        builder->SetBodyPartitionParamAudio(1, 0, 2, 0, true, false);
        const auto sound = segmentOf(AudioPartitionOf(*builder, true, 0));
        constexpr uint64_t kStarts[] = {0, 3204, 6408};
        EXPECT_EQ(BigEndian(sound.Item(0x3F0C)), kStarts[group]);
        EXPECT_EQ(BigEndian(sound.Item(0x3F0D)), 3204u);
    }
}

TEST(Op1bBase, AnANCBlockIsBodyElementsAndIndex) {
    auto builder = Builder(2, VIDEO_STD_25P);
    HeaderOf(*builder);
    for (int i = 0; i < 52; ++i) builder->AddIndexEntry(0, 0, 0, 0);
    EXPECT_EQ(builder->GetBodyPartitionSizeANCData(2), 1436u);  // 2 x 156 + 2 x 512 + 100
    const auto block = ANCBlockOf(*builder, 0x30000, 2);
    ASSERT_EQ(block.size(), 1436u);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 00 00 00 64 00  00 00 00 02"),  // 50 frames before it
                          FieldsOf(block)));
    auto element =
        Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  00 00"
            "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
    element.resize(512);
    EXPECT_TRUE(SameBytes(element, std::span(block).subspan(156, 512)));
    EXPECT_TRUE(SameBytes(element, std::span(block).subspan(668, 512)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 04 9C  00 00 00 00 00 03 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 64"
                              "00 00 00 66  00 00 00 00 00 00 00 00  00 00 00 00"),
                          std::span(block).subspan(1180 + 28, 56)));
    const auto segment = Packets(block, 1336, block.size()).front();
    EXPECT_EQ(segment.End() - segment.offset, 100u);
    ExpectItems(segment, {{0x3F0B, "00 00 00 19 00 00 00 01"},
                          {0x3F0D, "00 00 00 00 00 00 00 02"},
                          {0x3F05, "00 00 02 00"},
                          {0x3F06, "00 00 00 66"},
                          {0x3F07, "00 00 00 02"}});
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 28"
                              "00 00 00 00 00 00 00 00 00 00 00 00  00 00 00 02 00 00 00 00 00 03 00 00"
                              "00 00 00 00 00 00 00 00 00 03 04 9C  00 00 00 3C"),
                          RandomIndexOf(*builder)));
}

TEST(Op1bBase, AnANCBlockThatNoBufferCanHoldFails) {
    auto builder = Builder();
    HeaderOf(*builder);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->GetBodyPartitionDataANCData(&data, 0, 8388608), kStatusNoMemory);  // 4 GiB and 412 bytes
    EXPECT_EQ(data, nullptr);
}

TEST(Op1bBase, SoundPartitionsAreThoseOfTheirChannel) {
    auto builder = Builder(2, VIDEO_STD_59_94I, 3);
    HeaderOf(*builder);
    builder->SetBodyPartitionParamAudio(0x40000, 0x99, 60, 1, false, true);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 04 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 00 00 00 00 99  00 00 00 04"),
                          FieldsOf(AudioPartitionOf(*builder, false, 1))));
    builder->SetBodyPartitionParamAudio(0x50000, 0x99, 60, 1, true, false);
    const auto bytes = AudioPartitionOf(*builder, true, 1);
    ASSERT_EQ(bytes.size(), 256u);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 05 00 00  00 00 00 00 00 04 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 64"
                              "00 00 00 68  00 00 00 00 00 00 00 00  00 00 00 00"),
                          FieldsOf(bytes)));
    const auto segment = Packets(bytes, 156, bytes.size()).front();
    ExpectItems(segment, {
                             {0x3F0B, "00 00 BB 80 00 00 00 01"},
                             {0x3F0D, "00 00 00 00 00 01 77 60"},  // 12 x 8008
                             {0x3F05, "00 00 00 03"},
                             {0x3F06, "00 00 00 68"},
                             {0x3F07, "00 00 00 04"},
                         });
}

TEST(Op1bBase, AChannelThatTheClipDoesNotHaveFails) {
    auto builder = Builder(2);
    HeaderOf(*builder);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->SetBodyPartitionParamAudio(1, 0, 1, 2, false, true), kStatusFailure);
    EXPECT_EQ(builder->SetBodyPartitionParamAudio(1, 0, 1, 255, false, true), kStatusFailure);
    EXPECT_EQ(builder->GetBodyPartitionDataAudio(&data, true, 2), kStatusFailure);
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);
    EXPECT_EQ(data, nullptr);
}

TEST(Op1bBase, APartitionMayHaveIndexAndEssence) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->AddIndexEntry(0, 0, 0, 0);
    builder->SetBodyPartitionParamVideo(0x20000, 0x77, 1, true, true);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 A4"
                              "00 00 00 65  00 00 00 00 00 00 00 77  00 00 00 01"),
                          FieldsOf(VideoPartitionOf(*builder, true))));
}

TEST(Op1bBase, AFillerSizeIsTakenBackByTheNextHeader) {
    auto builder = Builder();
    const auto header = HeaderOf(*builder);
    EXPECT_EQ(builder->AddFillerSize(100), kStatusOk);
    EXPECT_TRUE(SameBytes(header, HeaderOf(*builder)));
}

}  // namespace
}  // namespace kmxf::test
