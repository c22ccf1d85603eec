#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "Op1bBuilder.h"

namespace kmxf::test {
namespace {

constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();

// Origin of the file package's track; durations of sequence and component, which agree, in both packages.
struct Durations {
    uint64_t origin, material, file;
    bool operator==(const Durations&) const = default;
};
std::vector<Durations> DurationsOf(COp1bBase& builder) {
    const auto packages = PackagesOf(PacketsOf(builder));
    std::vector<Durations> durations;
    for (size_t i = 0; i < packages[0].chains.size(); ++i) {
        for (const Package& package : packages) {
            const Chain& chain = package.chains[i];
            EXPECT_EQ(chain.sequence.Item(0x0202), chain.component.Item(0x0202));
        }
        EXPECT_EQ(BigEndian(packages[0].chains[i].track.Item(0x4B02)), 0u);
        durations.push_back({BigEndian(packages[1].chains[i].track.Item(0x4B02)),
                             BigEndian(packages[0].chains[i].sequence.Item(0x0202)),
                             BigEndian(packages[1].chains[i].sequence.Item(0x0202))});
    }
    return durations;
}

TEST(Op1bBase, FilePackageTracksAreShorterByTheOrigin) {
    auto builder = Builder(1);
    EXPECT_EQ(builder->SetDuration(130), kStatusOk);
    EXPECT_EQ(builder->SetOrigin(3), kStatusOk);
    // Sound: 130 frames have 26 x 8008 samples, 127 have 25 x 8008 + 3204, 3 have 4804.
    const std::vector<Durations> expected = {{3, 130, 127}, {3, 130, 127}, {3, 130, 127}, {4804, 208208, 203404}};
    EXPECT_EQ(DurationsOf(*builder), expected);
    auto other = Builder(1);
    other->SetOrigin(3);
    other->SetDuration(130);
    EXPECT_EQ(DurationsOf(*other), expected);
}

TEST(Op1bBase, TimecodeCountsHalfTheFramesAt5994pAnd50p) {
    auto builder = Builder(1, VIDEO_STD_59_94P);
    builder->SetDuration(245);
    builder->SetOrigin(3);
    EXPECT_EQ(DurationsOf(*builder),
              (std::vector<Durations>{{2, 123, 121}, {3, 245, 242}, {3, 245, 242}, {2404, 196196, 193792}}));
    builder = Builder(1, VIDEO_STD_50P);
    builder->SetDuration(102);
    builder->SetOrigin(1);
    EXPECT_EQ(DurationsOf(*builder),
              (std::vector<Durations>{{1, 51, 51}, {1, 102, 101}, {1, 102, 101}, {960, 97920, 96960}}));
    const auto rate = PackagesOf(PacketsOf(*builder))[0].chains[0].track.Item(0x4B01);
    EXPECT_EQ(rate, Hex("00 00 00 19 00 00 00 01"));
}

TEST(Op1bBase, ContainerDurationIsThatOfAllFrames) {
    auto builder = Builder(1, VIDEO_STD_23_98P, 2, true);
    builder->SetOrigin(3);
    EXPECT_EQ(builder->SetContainerDuration(50), kStatusOk);
    const auto packets = PacketsOf(*builder);
    for (const uint8_t kind : {uint8_t{0x44}, uint8_t{0x28}, uint8_t{0x5C}}) {
        EXPECT_EQ(BigEndian(SetsOfKind(packets, kind).front().Item(0x3002)), 50u);
    }
    EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x47).front().Item(0x3002)), 100100u);  // 12 x 8008 + 4004
}

TEST(Op1bBase, AbsurdDurationsDoNoHarm) {
    for (const bool players : {false, true}) {
        auto builder = Builder(2, VIDEO_STD_59_94P, 2, players);
        for (const int64_t absurd : {kMost, kLeast, int64_t{-1}}) {
            EXPECT_EQ(builder->SetOrigin(absurd), kStatusOk);
            EXPECT_EQ(builder->SetDuration(absurd), kStatusOk);
            EXPECT_EQ(builder->SetContainerDuration(absurd), kStatusOk);
            EXPECT_EQ(builder->SetStartTimecode(absurd, true), kStatusOk);
            EXPECT_EQ(HeaderOf(*builder).size(), 0x20000u);
        }
        builder->SetOrigin(-1);
        builder->SetDuration(kMost);
        builder->SetStartTimecode(kMost, true);
        builder->SetOrigin(1);
        builder->SetDuration(kLeast);
        EXPECT_EQ(HeaderOf(*builder).size(), 0x20000u);
    }
}

struct Start {
    uint64_t material, file;
    uint8_t drop;
};
Start StartOf(COp1bBase& builder) {
    const auto packages = PackagesOf(PacketsOf(builder));
    const Packet &material = packages[0].chains[0].component, &file = packages[1].chains[0].component;
    EXPECT_EQ(material.Item(0x1503), file.Item(0x1503));
    return {BigEndian(material.Item(0x1501)), BigEndian(file.Item(0x1501)), file.Item(0x1503)[0]};
}

TEST(Op1bBase, TheFilePackageStartsLaterByTheOrigin) {
    for (const uint32_t standard : kOp1bStandards) {
        const bool neverDrops = standard == 0x010000B2 || standard == 0x02000099 || standard == 0x020000B2;
        for (const bool drop : {false, true}) {
            auto builder = Builder(0, standard);
            EXPECT_EQ(builder->SetStartTimecode(107892, drop), kStatusOk);
            EXPECT_EQ(builder->SetOrigin(3), kStatusOk);
            const Start start = StartOf(*builder);
            EXPECT_EQ(start.material, 107892u) << std::hex << standard;
            EXPECT_EQ(start.file, 107895u) << std::hex << standard;  // not halved anywhere
            EXPECT_EQ(start.drop, drop && !neverDrops ? 1 : 0) << std::hex << standard;
        }
    }
}

TEST(Op1bBase, DropFrameIsThatOfTheStandardUntilTheStartIsSet) {
    for (const uint32_t standard : kOp1bStandards) {
        const bool neverDrops = standard == 0x010000B2 || standard == 0x02000099 || standard == 0x020000B2;
        auto builder = Builder(0, standard);
        EXPECT_EQ(StartOf(*builder).drop, neverDrops ? 0 : 1) << std::hex << standard;
        builder->SetDuration(10);
        builder->SetOrigin(1);
        EXPECT_EQ(StartOf(*builder).drop, neverDrops ? 0 : 1) << std::hex << standard;
    }
}

}  // namespace
}  // namespace kmxf::test
