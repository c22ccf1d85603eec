#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "Op1bBuilder.h"
#include "support/SetItems.h"

namespace kmxf::test {
namespace {

TEST(Op1bBase, AHeaderWithoutSideDataIsFilledUp) {
    auto builder = Builder(0);
    const auto header = HeaderOf(*builder);
    ASSERT_EQ(header.size(), 0x20000u);
    EXPECT_EQ(builder->GetHeaderSize(), 0x20000u);
    const auto packets = Packets(header, 0, header.size());
    const auto fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00");
    ASSERT_GT(packets.size(), 3u);
    const Packet& first = packets[packets.size() - 3];
    EXPECT_EQ(first.key, fill);
    EXPECT_EQ(first.End(), 32768u);
    // 81920 bytes, then 16384.
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 01 3F EC"),
                          std::span(header).subspan(32768, 20)));
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 3F EC"),
                          std::span(header).subspan(114688, 20)));
    for (size_t i = 32788; i < header.size(); ++i) {
        if (i >= 114688 && i < 114708) continue;
        ASSERT_EQ(header[i], 0) << i;
    }
}

TEST(Op1bBase, TheHeaderPackIsClosedCompleteAndNamesTheHeaderBytes) {
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00  83 00 00 88"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 01 FF 64  00 00 00 00 00 00 00 00"  // 131072 - 156
                              "00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00"
                              "06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00  00 00 00 03 00 00 00 10"
                              "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"
                              "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00"
                              "06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00"),
                          Cut(HeaderOf(*Builder(1)), 0, 156)));
}

TEST(Op1bBase, WithoutSoundThereAreTwoEssenceContainerLabels) {
    auto builder = Builder(0);
    const auto header = HeaderOf(*builder);
    const auto labels =
        Hex("00 00 00 02 00 00 00 10  06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"
            "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00");
    EXPECT_TRUE(SameBytes(labels, std::span(header).subspan(100, 40)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 01 FF 74"), std::span(header).subspan(52, 8)));  // 131072 - 140
    const auto preface = SetsOfKind(Packets(header, 0, header.size()), 0x2F).front();
    EXPECT_EQ(preface.Item(0x3B0A), labels);
    EXPECT_EQ(preface.Item(0x3B09), Hex("06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00"));
    EXPECT_EQ(preface.Item(0x3B0B), Hex("00 00 00 00 00 00 00 00"));
    EXPECT_FALSE(preface.Items().contains(0x3B08));  // no primary package
    EXPECT_EQ(builder->GetBodyPartitionSize(false, false), 140u);
    EXPECT_EQ(builder->GetFooterSize(), 140u);
}

TEST(Op1bBase, SetsStandInTheOrderOfTheFile) {
    auto builder = Builder();
    builder->SetDMS(AllMetadata());
    AddSideData(*builder);
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(packets[1].key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 05 01 00"));
    const auto expected = Hex(R"(
        2F 30 18 23 23 23 23                              // preface, identification, content storage, container data
        36 3B 0F 14 3B 0F 11 3B 0F 11 3B 0F 11 3B 0F 11   // material package, with timecode, picture, ANC, two sounds
        3A 0F 41 01 19 20 18 1A                           // clip
        39 0F 41 01                                       // scene
        37 3B 0F 14 3B 0F 11 3B 0F 11 3B 0F 11 3B 0F 11   // file package
        28 6E 5C 47 47                                    // descriptors
    )");
    // Byte 13 tells descriptive frameworks apart, except for clip and scene: ... 0D 01 04 01 01 kind.
    std::vector<uint8_t> actual;
    for (size_t i = 2; packets[i].key[4] == 0x02; ++i) {
        actual.push_back(packets[i].key[10] == 0x04 ? packets[i].key[13] : packets[i].Kind());
    }
    EXPECT_EQ(actual, expected);
}

TEST(Op1bBase, HeaderMetadataIsPrimerAndSets) {
    auto builder = Builder();
    EXPECT_EQ(builder->GetHeaderMetadataSize(), 7826u);
    const auto header = HeaderOf(*builder);
    std::vector<uint8_t> buffer(7826 + 20, 0xEE);
    EXPECT_EQ(builder->MXFMemSetHeaderMetadata(buffer.data(), 10), 7836u);
    EXPECT_TRUE(SameBytes(std::span(header).subspan(156, 7826), std::span(buffer).subspan(10, 7826)));
    EXPECT_TRUE(SameBytes(std::vector<uint8_t>(10, 0xEE), std::span(buffer).first(10)));
    EXPECT_TRUE(SameBytes(std::vector<uint8_t>(10, 0xEE), std::span(buffer).last(10)));
    // The fill item behind it: 32768 - 156 - 7826 - 20 = 24766.
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 60 BE"),
                          std::span(header).subspan(7982, 20)));
}

TEST(Op1bBase, TheHeaderMayBeBuiltAgain) {
    auto builder = Builder();
    builder->SetDMS(AllMetadata());
    AddSideData(*builder);
    const auto once = HeaderOf(*builder);
    EXPECT_TRUE(SameBytes(once, HeaderOf(*builder)));
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);  // the header is entered once
}

TEST(Op1bBase, SetsAreLinked) {
    const auto packets = PacketsOf(*Builder());
    const auto one = [&](uint8_t kind) { return SetsOfKind(packets, kind).front(); };
    const auto all = [&](uint8_t kind) {
        Uids uids;
        for (const Packet& set : SetsOfKind(packets, kind)) uids.push_back(UidOf(set));
        return uids;
    };
    EXPECT_EQ(Batch(one(0x2F), 0x3B06), all(0x30));
    EXPECT_EQ(one(0x2F).Item(0x3B03), UidOf(one(0x18)));
    EXPECT_EQ(Batch(one(0x18), 0x1901), (Uids{UidOf(one(0x36)), UidOf(one(0x37))}));
    EXPECT_EQ(Batch(one(0x18), 0x1902), all(0x23));
    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 2u);
    for (const Package& package : packages) {
        ASSERT_EQ(package.chains.size(), 5u);
        Uids tracks;
        for (const Chain& chain : package.chains) {
            tracks.push_back(UidOf(chain.track));
            EXPECT_EQ(chain.track.Item(0x4803), UidOf(chain.sequence));
            EXPECT_EQ(Batch(chain.sequence, 0x1001), Uids{UidOf(chain.component)});
        }
        EXPECT_EQ(Batch(package.set, 0x4403), tracks);
    }
    EXPECT_EQ(packages[1].set.Item(0x4701), UidOf(one(0x28)));
    EXPECT_EQ(Batch(one(0x28), 0x9001), all(0x6E));
    std::set<std::vector<uint8_t>> uids;
    for (size_t i = 2; packets[i].key[4] == 0x02; ++i) EXPECT_TRUE(uids.insert(UidOf(packets[i])).second) << i;
}

TEST(Op1bBase, ContainersTracksAndDescriptorsAreNumberedAlike) {
    auto builder = Builder();
    builder->SetUMID(Umid(1));
    const auto packets = PacketsOf(*builder);
    const auto containers = SetsOfKind(packets, 0x23);
    ASSERT_EQ(containers.size(), 4u);
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(BigEndian(containers[i].Item(0x3F06)), 101 + i);
        EXPECT_EQ(BigEndian(containers[i].Item(0x3F07)), 1 + i);
    }
    const auto packages = PackagesOf(packets);
    const struct {
        uint32_t id, number;
        const char* rate;
        const char* definition;  // second half
    } rows[] = {
        {1, 0x00000000, "00 00 75 30 00 00 03 E9", "01 03 02 01 01 00 00 00"},
        {2, 0x15010501, "00 00 75 30 00 00 03 E9", "01 03 02 02 01 00 00 00"},
        {3, 0x17010201, "00 00 75 30 00 00 03 E9", "01 03 02 02 03 00 00 00"},
        {4, 0x16010C01, "00 00 BB 80 00 00 00 01", "01 03 02 02 02 00 00 00"},
        {5, 0x16010C01, "00 00 BB 80 00 00 00 01", "01 03 02 02 02 00 00 00"},
    };
    for (size_t p = 0; p < 2; ++p) {
        for (size_t i = 0; i < 5; ++i) {
            SCOPED_TRACE(testing::Message() << "package " << p << ", track " << i);
            const Chain& chain = packages[p].chains[i];
            EXPECT_EQ(BigEndian(chain.track.Item(0x4801)), rows[i].id);
            EXPECT_EQ(BigEndian(chain.track.Item(0x4804)), p == 0 ? 0 : rows[i].number);
            EXPECT_EQ(chain.track.Item(0x4B01), Hex(rows[i].rate));
            EXPECT_EQ(chain.track.Item(0x4B02), Hex("00 00 00 00 00 00 00 00"));
            const auto definition = Hex(std::string("06 0E 2B 34 04 01 01 01") + rows[i].definition);
            EXPECT_EQ(chain.sequence.Item(0x0201), definition);
            EXPECT_EQ(chain.component.Item(0x0201), definition);
            if (i == 0) continue;
            EXPECT_EQ(BigEndian(chain.component.Item(0x1201)), 0u);
            EXPECT_EQ(BigEndian(chain.component.Item(0x1102)), p == 0 ? rows[i].id : 0);
        }
    }
    const struct {
        uint8_t kind;
        uint32_t trackID;
        const char* container;
    } descriptors[] = {
        {0x28, 2, "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"},
        {0x5C, 3, "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00"},
        {0x47, 4, "06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00"},
    };
    for (const auto& row : descriptors) {
        const auto set = SetsOfKind(packets, row.kind).front();
        EXPECT_EQ(BigEndian(set.Item(0x3006)), row.trackID);
        EXPECT_EQ(set.Item(0x3004), Hex(row.container));
    }
    EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x47)[1].Item(0x3006)), 5u);
}

TEST(Op1bBase, DescriptorsDescribeTheFormat) {
    const auto packets = PacketsOf(*Builder(1, VIDEO_STD_59_94P, 3));
    const auto picture = SetsOfKind(packets, 0x28).front();
    ExpectItems(picture, {{0x3001, "00 00 EA 60 00 00 03 E9"},
                          {0x3201, "06 0E 2B 34 04 01 01 0D 04 01 02 02 01 31 60 01"},
                          {0x320C, "00"},
                          {0x3203, "00 00 07 80"},
                          {0x3202, "00 00 04 38"},
                          {0x320E, "00 00 00 10 00 00 00 09"},
                          {0x320D, "00 00 00 02 00 00 00 04 00 00 00 2A 00 00 00 00"},
                          {0x3301, "00 00 00 0A"}});
    EXPECT_EQ(SetsOfKind(packets, 0x6E).front().Item(0x9014), Hex("02 FA F0 80"));  // 50 Mbit/s: twice 25
    const auto data = SetsOfKind(packets, 0x5C).front();
    EXPECT_EQ(data.Item(0x3001), Hex("00 00 EA 60 00 00 03 E9"));
    const auto sound = SetsOfKind(packets, 0x47).front();
    ExpectItems(sound, {{0x3001, "00 00 BB 80 00 00 00 01"},
                        {0x3D03, "00 00 BB 80 00 00 00 01"},
                        {0x3D07, "00 00 00 01"},
                        {0x3D01, "00 00 00 18"},
                        {0x3D0A, "00 03"},
                        {0x3D09, "00 02 32 80"}});
    const auto sound16 = SetsOfKind(PacketsOf(*Builder(1)), 0x47).front();
    ExpectItems(sound16, {{0x3D01, "00 00 00 10"}, {0x3D0A, "00 02"}, {0x3D09, "00 01 77 00"}});
}

TEST(Op1bBase, EachNumberOfChannelsFitsUpToItsLimit) {
    const struct {
        bool players;
        CDescriptiveMetadata metadata;
        uint32_t most;
    } rows[] = {
        {false, {}, 27}, {false, StaticMetadata(), 26}, {false, AllMetadata(), 25},
        {true, {}, 24},  {true, StaticMetadata(), 22},  {true, AllMetadata(), 22},
    };
    for (const auto& row : rows) {
        for (const bool sideData : {false, true}) {
            for (const uint32_t channels : {row.most, row.most + 1}) {
                SCOPED_TRACE(channels);
                auto builder = Builder(channels, VIDEO_STD_59_94I, 2, row.players);
                builder->SetDMS(row.metadata);
                if (sideData) AddSideData(*builder);
                uint8_t* data = nullptr;
                const int32_t status = builder->GetHeaderData(&data);
                EXPECT_EQ(status, channels == row.most ? kStatusOk : kStatusNoMemory);
                EXPECT_EQ(data != nullptr, channels == row.most);
                if (data != nullptr) {
                    EXPECT_EQ(Packets(Take(data, 0x20000), 0, 0x20000).back().End(), 0x20000u);
                }
                // A header that does not fit is not entered into the random index.
                EXPECT_EQ(builder->GetRandomIndexSize(), channels == row.most ? 36u : 24u);
            }
        }
    }
}

TEST(Op1bBase, TheMostChannelsThatCanBeAskedForDoNotFit) {
    auto builder = Builder(255);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->GetHeaderData(&data), kStatusNoMemory);
    EXPECT_EQ(data, nullptr);
}

}  // namespace
}  // namespace kmxf::test
