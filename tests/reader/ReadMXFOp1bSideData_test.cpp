#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "reader/Op1bReading.h"

namespace kmxf::test {
namespace {

TEST_F(ReadMXFOp1b, HandsOutXMLAndThumbnail) {
    const ByteVector xml(300, 'x'), picture(1000, 0x7C);
    clip.AddPictures(1);
    clip.moreSets = Join({Fill(44), XMLGroup(xml), Fill(20), ThumbnailGroup(picture)});
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    const size_t at = clip.moreSetsAt[0] + 44;
    EXPECT_EQ(300u, reader.GetXMLDataSize());
    EXPECT_EQ(static_cast<int64_t>(at + 20 + 20 + 5 + 4), reader.GetXMLOffset());
    ByteVector given(300);
    EXPECT_EQ(0, reader.GetXMLData(given.data()));
    EXPECT_EQ(xml, given);
    EXPECT_EQ(1, reader.GetThumbnailType());
    EXPECT_EQ(80, reader.GetThumbnailWidth());
    EXPECT_EQ(45, reader.GetThumbnailHeight());
    EXPECT_EQ(1000u, reader.GetThumbnailDataSize());
    given.resize(1000);
    EXPECT_EQ(0, reader.GetThumbnailData(given.data()));
    EXPECT_EQ(picture, given);
    EXPECT_EQ(kStatusInvalidArgument, reader.GetXMLData(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetThumbnailData(nullptr));

    MXFKEYTag key = Key(kXMLKey);
    EXPECT_EQ(static_cast<int64_t>(at), reader.GetFrameworkOffset(bytes.data(), key));
    EXPECT_EQ(-1, reader.GetFrameworkOffset(nullptr, key));
    key.bytes[7] = 0x10;
    EXPECT_EQ(-1, reader.GetFrameworkOffset(bytes.data(), key));
}

TEST_F(ReadMXFOp1b, HeaderWithoutXMLAndThumbnail) {
    clip.AddPictures(1);
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(0u, reader.GetXMLDataSize());
    EXPECT_EQ(0, reader.GetXMLOffset());
    EXPECT_EQ(-1, reader.GetThumbnailType());
    EXPECT_EQ(0, reader.GetThumbnailWidth());
    uint8_t buffer[1];
    EXPECT_EQ(kStatusNotFound, reader.GetXMLData(buffer));
    EXPECT_EQ(kStatusNotFound, reader.GetThumbnailData(buffer));
}

TEST_F(ReadMXFOp1b, GroupsMayBeEmpty) {
    clip.AddPictures(1);
    clip.moreSets = Join({XMLGroup({}), Packet(kThumbnailKey, {})});
    ASSERT_EQ(0, Open(clip.Bytes()));
    uint8_t buffer[1] = {0x55};
    EXPECT_EQ(0u, reader.GetXMLDataSize());
    EXPECT_EQ(0, reader.GetXMLData(buffer));
    EXPECT_EQ(0, reader.GetThumbnailType());
    EXPECT_EQ(80, reader.GetThumbnailWidth());
    EXPECT_EQ(45, reader.GetThumbnailHeight());
    EXPECT_EQ(0, reader.GetThumbnailData(buffer));
    EXPECT_EQ(0x55, buffer[0]);
}

TEST_F(ReadMXFOp1b, MalformedGroupsAreRefused) {
    clip.AddPictures(1);
    auto leadsOut = XMLGroup(ByteVector(30));
    Patch(leadsOut, 17, Hex("7F FF FF"));
    auto itemLeadsOut = XMLGroup(ByteVector(30));
    Patch(itemLeadsOut, 20 + 20 + 5 + 2, Hex("00 1F"));
    const ByteVector bad[] = {
        leadsOut,
        itemLeadsOut,
        Packet(kXMLKey, Hex("A0 01 00")),
        ThumbnailGroup(ByteVector(16385)),
        Packet(kThumbnailKey, LocalItem("A0 11", "00 01")),
        Packet(kThumbnailKey, LocalItem("A0 12", "50")),
        Packet(kThumbnailKey, LocalItem("A0 13", "00 00 00 2D")),
    };
    for (const auto& group : bad) {
        clip.moreSets = group;
        ExpectRefused(kStatusFailure, clip.Bytes(), "GetMetadata Error.");
    }
}

TEST_F(ReadMXFOp1b, ThumbnailOfTheGreatestSize) {
    clip.AddPictures(1);
    clip.moreSets = ThumbnailGroup(ByteVector(16384));
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_EQ(16384u, reader.GetThumbnailDataSize());
}

TEST_F(ReadMXFOp1b, KnowsDescriptiveMetadata) {
    clip.AddPictures(1);
    clip.moreSets = Packet("06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00", LocalItem("80 01", "65 6E 00"));
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_TRUE(reader.IsValidDMS());
}

}  // namespace
}  // namespace kmxf::test
