#include <gtest/gtest.h>

#include <vector>

#include "Op1bBuilder.h"

namespace kmxf::test {
namespace {

TEST(Op1bBase, PlayersLayoutHasAPackageForEachChannel) {
    auto builder = Builder(2, VIDEO_STD_59_94I, 2, true);
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(KindsOf(packets), Hex(R"(
        2F 30 18 23 23 23 23
        36 3B 0F 14 3B 0F 11 3B 0F 11 3B 0F 11 3B 0F 11   // material package
        37 3B 0F 14 3B 0F 11 3B 0F 11                     // file package: timecode, picture, ANC
        44 28 6E 5C 47 47                                 // descriptors
        37 3B 0F 11 37 3B 0F 11                           // file packages of the sound
    )"));
    EXPECT_EQ(builder->GetHeaderMetadataSize(), 8250u);  // 7826 + 128 + 2 x 148
}

TEST(Op1bBase, PlayersLayoutNamesAMultipleDescriptor) {
    auto builder = Builder(2, VIDEO_STD_25P, 2, true);
    const auto packets = PacketsOf(*builder);
    const auto multiple = SetsOfKind(packets, 0x44).front();
    EXPECT_EQ(multiple.key, Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 44 00"));
    ASSERT_EQ(multiple.value.size(), 108u);
    EXPECT_TRUE(SameBytes(Hex("3C 0A 00 10"), std::span(multiple.value).first(4)));
    EXPECT_TRUE(SameBytes(Hex("30 01 00 08 00 00 00 19 00 00 00 01  30 02 00 08 00 00 00 00 00 00 00 00"
                              "30 04 00 10 06 0E 2B 34 04 01 01 03 0D 01 03 01 02 7F 01 00"
                              "3F 01 00 28 00 00 00 02 00 00 00 10"),
                          std::span(multiple.value).subspan(20, 56)));
    EXPECT_EQ(Batch(multiple, 0x3F01),
              (Uids{UidOf(SetsOfKind(packets, 0x28).front()), UidOf(SetsOfKind(packets, 0x5C).front())}));

    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 4u);
    EXPECT_EQ(packages[1].set.Item(0x4701), UidOf(multiple));
    EXPECT_EQ(packages[2].set.Item(0x4701), UidOf(SetsOfKind(packets, 0x47)[0]));
    EXPECT_EQ(packages[3].set.Item(0x4701), UidOf(SetsOfKind(packets, 0x47)[1]));
    Uids uids;
    for (const Package& package : packages) uids.push_back(UidOf(package.set));
    EXPECT_EQ(Batch(SetsOfKind(packets, 0x18).front(), 0x1901), uids);
}

TEST(Op1bBase, PlayersLayoutCountsUMIDsAndKeepsTrackNumbers) {
    auto builder = Builder(2, VIDEO_STD_25P, 2, true);
    builder->SetUMID(Umid(0xFD));
    builder->SetDuration(100);
    builder->SetOrigin(2);
    const auto packets = PacketsOf(*builder);
    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 4u);
    ASSERT_EQ(packages[0].chains.size(), 5u);
    ASSERT_EQ(packages[1].chains.size(), 3u);
    constexpr uint8_t kInstances[] = {0xFD, 0xFE, 0xFF, 0x00};  // counted modulo 256
    for (size_t p = 0; p < 4; ++p) EXPECT_EQ(packages[p].set.Item(0x4401), BytesOf(Umid(kInstances[p])));
    for (size_t c = 0; c < 2; ++c) {
        SCOPED_TRACE(c);
        const Package& sound = packages[2 + c];
        ASSERT_EQ(sound.chains.size(), 1u);
        const Chain& chain = sound.chains[0];
        EXPECT_EQ(Batch(sound.set, 0x4403), Uids{UidOf(chain.track)});
        EXPECT_EQ(BigEndian(chain.track.Item(0x4801)), 4 + c);
        EXPECT_EQ(BigEndian(chain.track.Item(0x4804)), 0x16010C01u);
        EXPECT_EQ(chain.track.Item(0x4B01), Hex("00 00 BB 80 00 00 00 01"));
        EXPECT_EQ(BigEndian(chain.track.Item(0x4B02)), 3840u);
        EXPECT_EQ(BigEndian(chain.sequence.Item(0x0202)), 188160u);
        EXPECT_EQ(BigEndian(chain.component.Item(0x0202)), 188160u);
        EXPECT_EQ(chain.component.Item(0x1101), std::vector<uint8_t>(32));
        EXPECT_EQ(chain.track.Item(0x4803), UidOf(chain.sequence));
        EXPECT_EQ(Batch(chain.sequence, 0x1001), Uids{UidOf(chain.component)});
        const Chain& material = packages[0].chains[3 + c];
        EXPECT_EQ(material.component.Item(0x1101), BytesOf(Umid(kInstances[2 + c])));
        EXPECT_EQ(BigEndian(material.component.Item(0x1102)), 4 + c);
        EXPECT_EQ(SetsOfKind(packets, 0x23)[2 + c].Item(0x2701), BytesOf(Umid(kInstances[2 + c])));
    }
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(SetsOfKind(packets, 0x23)[i].Item(0x2701), BytesOf(Umid(0xFE)));
        EXPECT_EQ(packages[0].chains[1 + i].component.Item(0x1101), BytesOf(Umid(0xFE)));
    }
}

TEST(Op1bBase, PlayersLayoutWithoutSoundHasOneFilePackage) {
    auto builder = Builder(0, VIDEO_STD_25P, 2, true);
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(PackagesOf(packets).size(), 2u);
    EXPECT_EQ(SetsOfKind(packets, 0x44).size(), 1u);
}

TEST(Op1bBase, BodyAndFooterAreTheSameInBothLayouts) {
    Uids files;
    for (const bool players : {false, true}) {
        auto builder = Builder(1, VIDEO_STD_25P, 2, players);
        HeaderOf(*builder);
        builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true);
        builder->SetFooterPartitionParam(0x30000);
        files.push_back(VideoPartitionOf(*builder, false));
        for (const auto& part : {FooterOf(*builder), RandomIndexOf(*builder)}) {
            files.back().insert(files.back().end(), part.begin(), part.end());
        }
    }
    EXPECT_TRUE(SameBytes(files[0], files[1]));
}

}  // namespace
}  // namespace kmxf::test
