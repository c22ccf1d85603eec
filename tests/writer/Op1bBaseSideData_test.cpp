#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Op1bBuilder.h"
#include "support/SetItems.h"

namespace kmxf::test {
namespace {

TEST(Op1bBase, XMLStandsInAnAreaOfItsOwn) {
    auto builder = Builder();
    const std::string xml = "<clip/>";
    EXPECT_EQ(builder->SetXMLData(reinterpret_cast<const uint8_t*>(xml.data()), 7), kStatusOk);
    const auto header = HeaderOf(*builder);
    const auto packets = Packets(header, 32768, header.size());
    ASSERT_EQ(packets.size(), 6u);
    EXPECT_EQ(packets[0].key, Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3A 00"));
    EXPECT_EQ(packets[0].Item(0x4801), Hex("00 00 03 E9"));
    EXPECT_EQ(packets[3].key, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00"));
    EXPECT_EQ(packets[3].Item(0xA001), Hex("00"));
    EXPECT_EQ(packets[3].Item(0xA002), std::vector<uint8_t>(xml.begin(), xml.end()));
    EXPECT_EQ(packets[4].offset, 32768u + 300);
    EXPECT_EQ(packets[4].key, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00"));
    EXPECT_EQ(packets[5].offset, 114688u);

    const auto metadata = Packets(header, 0, 32768);
    EXPECT_EQ(SetsOfKind(metadata, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 01 00"));
    const auto tracks = Batch(SetsOfKind(metadata, 0x36).front(), 0x4403);
    ASSERT_EQ(tracks.size(), 6u);
    EXPECT_EQ(tracks.back(), UidOf(packets[0]));
}

TEST(Op1bBase, XMLOfAnyLengthFitsItsArea) {
    auto builder = Builder();
    const std::vector<uint8_t> xml(65535, 'x');
    for (const uint16_t size : {uint16_t{65535}, uint16_t{0}}) {
        EXPECT_EQ(builder->SetXMLData(xml.data(), size), kStatusOk);
        const auto header = HeaderOf(*builder);
        ASSERT_EQ(header.size(), 0x20000u);
        const auto packets = Packets(header, 32768, 114688);
        ASSERT_EQ(packets.size(), 5u);
        EXPECT_EQ(packets[4].offset, 32768u + 293 + size);
        EXPECT_EQ(packets[3].Item(0xA002).size(), size);
    }
}

TEST(Op1bBase, ThumbnailStandsInAnAreaOfItsOwn) {
    auto builder = Builder(2, VIDEO_STD_25P);
    EXPECT_EQ(builder->SetThumbnailPosition(77), kStatusOk);
    const auto picture = Hex("42 4D 01 02 03");
    EXPECT_EQ(builder->SetThumbnailData(picture.data(), 5, 160, 90, 1), kStatusOk);
    const auto header = HeaderOf(*builder);
    const auto packets = Packets(header, 32768, header.size());
    ASSERT_EQ(packets.size(), 6u);
    EXPECT_EQ(packets[1].offset, 114688u);
    EXPECT_EQ(packets[1].Item(0x4801), Hex("00 00 03 EA"));
    EXPECT_EQ(packets[1].Item(0x4B01), Hex("00 00 00 19 00 00 00 01"));
    EXPECT_EQ(packets[2].Item(0x0202), Hex("00 00 00 00 00 00 00 01"));
    EXPECT_EQ(packets[3].Item(0x0601), Hex("00 00 00 00 00 00 00 4D"));
    EXPECT_EQ(packets[4].key, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00"));
    ExpectItems(packets[4], {{0xA011, "01"}, {0xA012, "00 A0"}, {0xA013, "00 5A"}});
    EXPECT_EQ(packets[4].Item(0xA014), picture);
    EXPECT_EQ(packets[5].offset, 114688u + 358);
    EXPECT_EQ(packets[5].End(), 131072u);
    const auto metadata = Packets(header, 0, 32768);
    EXPECT_EQ(SetsOfKind(metadata, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 02 00"));
    EXPECT_EQ(Batch(SetsOfKind(metadata, 0x36).front(), 0x4403).back(), UidOf(packets[1]));
}

TEST(Op1bBase, ThumbnailPositionReachesAThumbnailThatIsThere) {
    auto builder = Builder();
    const uint8_t picture[1] = {};
    builder->SetThumbnailData(picture, 1, 1, 1, 0);
    EXPECT_EQ(builder->SetThumbnailPosition(0xFFFFFFFF), kStatusOk);
    auto header = HeaderOf(*builder);
    EXPECT_EQ(Packets(header, 114688, header.size())[2].Item(0x0601), Hex("00 00 00 00 FF FF FF FF"));
    builder->SetThumbnailData(picture, 1, 1, 1, 0);  // a new picture keeps it
    header = HeaderOf(*builder);
    EXPECT_EQ(Packets(header, 114688, header.size())[2].Item(0x0601), Hex("00 00 00 00 FF FF FF FF"));
}

TEST(Op1bBase, ThumbnailsThatLeaveNoRoomForTheirFillItemAreRefused) {
    const std::vector<uint8_t> picture(65535, 0x5A);
    for (const uint16_t size : {uint16_t{16012}, uint16_t{16030}, uint16_t{16032}, uint16_t{65535}}) {
        auto builder = Builder();
        EXPECT_EQ(builder->SetThumbnailData(picture.data(), size, 80, 45, 0), kStatusInvalidArgument) << size;
        const auto header = HeaderOf(*builder);
        EXPECT_EQ(Packets(header, 114688, header.size()).size(), 1u) << size;  // no group was begun
    }
    for (const uint16_t size : {uint16_t{0}, uint16_t{16011}, uint16_t{16031}}) {
        auto builder = Builder();
        EXPECT_EQ(builder->SetThumbnailData(picture.data(), size, 80, 45, 0), kStatusOk) << size;
        const auto header = HeaderOf(*builder);
        ASSERT_EQ(header.size(), 0x20000u) << size;
        const auto packets = Packets(header, 114688, header.size());
        EXPECT_EQ(packets.size(), size == 16031 ? 4u : 5u);
        EXPECT_EQ(packets[3].Item(0xA014).size(), size);
    }
}

TEST(Op1bBase, ARefusedThumbnailKeepsTheOneBefore) {
    auto builder = Builder();
    const uint8_t picture[2] = {1, 2};
    EXPECT_EQ(builder->SetThumbnailData(picture, 2, 3, 4, 2), kStatusInvalidArgument);
    EXPECT_TRUE(SetsOfKind(PacketsOf(*builder), 0x39).empty());
    EXPECT_EQ(builder->SetThumbnailData(picture, 2, 3, 4, 1), kStatusOk);
    const auto before = HeaderOf(*builder);
    EXPECT_EQ(builder->SetThumbnailData(picture, 1, 9, 9, 2), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetThumbnailData(nullptr, 1, 9, 9, 0), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(before, HeaderOf(*builder)));
}

TEST(Op1bBase, SchemesAndTracksOfDescriptiveMetadataComeOnce) {
    auto builder = Builder(0);
    for (int i = 0; i < 2; ++i) {
        AddSideData(*builder);
        EXPECT_EQ(builder->SetDMS(AllMetadata()), kStatusOk);
        HeaderOf(*builder);
    }
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(SetsOfKind(packets, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 04 00 00 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 01 00"
                  "06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 02 00  06 0E 2B 34 04 01 01 04 0D 01 04 01 01 02 02 01"
                  "06 0E 2B 34 04 01 01 04 0D 01 04 01 01 03 02 01"));
    // Timecode, picture, ANC, then 1001, 1002, 101, 102.
    const auto tracks = Batch(SetsOfKind(packets, 0x36).front(), 0x4403);
    ASSERT_EQ(tracks.size(), 7u);
    std::vector<uint64_t> ids;
    for (const auto& track : tracks) {
        for (const Packet& packet : packets) {
            if (packet.key[4] == 0x02 && packet.key[5] == 0x53 && UidOf(packet) == track) {
                ids.push_back(BigEndian(packet.Item(0x4801)));
            }
        }
    }
    EXPECT_EQ(ids, (std::vector<uint64_t>{1, 2, 3, 1001, 1002, 101, 102}));
}

TEST(Op1bBase, DescriptiveMetadataIsThereWhereItWasSet) {
    const auto tracks = [](const CDescriptiveMetadata& metadata) {
        auto builder = Builder(0);
        EXPECT_EQ(builder->SetDMS(metadata), kStatusOk);
        const auto packets = PacketsOf(*builder);
        return std::pair(SetsOfKind(packets, 0x3A).size(), SetsOfKind(packets, 0x39).size());
    };
    EXPECT_EQ(tracks({}), std::pair(size_t{0}, size_t{0}));
    EXPECT_EQ(tracks(StaticMetadata()), std::pair(size_t{1}, size_t{0}));
    EXPECT_EQ(tracks(SceneMetadata()), std::pair(size_t{0}, size_t{1}));
    EXPECT_EQ(tracks(AllMetadata()), std::pair(size_t{1}, size_t{1}));
}

}  // namespace
}  // namespace kmxf::test
