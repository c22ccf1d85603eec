// What the header of an OP-1b clip carries for others comes back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "roundtrip/Op1bComparing.h"
#include "roundtrip/Op1bRecording.h"
#include "support/Hex.h"
#include "support/Walk.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;

class Op1bHeaderRoundTrip : public testing::TestWithParam<bool> {
protected:
    Op1bHeaderRoundTrip() { SetFormat(writer_, clip_); }
    void RecordAndOpen() {
        ASSERT_TRUE(client_.Feed(writer_));
        ASSERT_EQ(writer_.Close(), kStatusOk);
        ASSERT_EQ(reader_.Open("clip.mxf", &stream_), kStatusOk);
    }
    // The text of an item in the only set of its kind.
    std::string Text(std::string_view set, std::string_view item) {
        const auto sets = Named(Walk(stream_.GetContents()), set);
        EXPECT_EQ(sets.size(), 1u) << set;
        const InspectedItem* found = sets.empty() ? nullptr : sets[0].Item(item);
        return found == nullptr ? "no such item" : found->Text();
    }

    Op1bClip clip_{0x0100007C, 0x2000C100, 2, 2, 3, GetParam()};
    CMemoryFileIO stream_;
    Op1bClient client_{clip_};
    CCreateMXFOp1b writer_;
    CReadMXFOp1b reader_;
};
INSTANTIATE_TEST_SUITE_P(BothLayouts, Op1bHeaderRoundTrip, testing::Bool());

TEST_P(Op1bHeaderRoundTrip, XMLOfEverySizeComesBack) {
    for (const uint16_t size : {uint16_t{0}, uint16_t{1}, uint16_t{811}, uint16_t{65535}}) {
        SCOPED_TRACE(size);
        const auto xml = Noise(size, size);
        SetFormat(writer_, clip_);
        ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
        ASSERT_EQ(writer_.SetXMLData(size == 0 ? EmptyANC().data() : xml.data(), size), kStatusOk);
        RecordAndOpen();
        ASSERT_EQ(reader_.GetXMLDataSize(), size);
        std::vector<uint8_t> back(size + 1u, 0x77);
        ASSERT_EQ(reader_.GetXMLData(back.data()), kStatusOk);
        EXPECT_EQ(back.back(), 0x77);
        back.pop_back();
        EXPECT_TRUE(SameBytes(xml, back));
        if (size != 0) {
            EXPECT_TRUE(SameBytes(xml, BytesAt(stream_, static_cast<uint64_t>(reader_.GetXMLOffset()), size)));
        }
        reader_.Close();
    }
}

// The greatest thumbnails: one leaves room for the smallest fill item, the other for none.
TEST_P(Op1bHeaderRoundTrip, ThumbnailsUpToTheGreatestComeBack) {
    for (const uint16_t size : {uint16_t{10854}, uint16_t{16011}, uint16_t{16031}}) {
        SCOPED_TRACE(size);
        const auto picture = Noise(size, size);
        SetFormat(writer_, clip_);
        ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
        EXPECT_EQ(writer_.SetThumbnailData(picture.data(), 16012, 96, 54, 0), kStatusInvalidArgument);
        ASSERT_EQ(writer_.SetThumbnailData(picture.data(), size, 96, 54, 0), kStatusOk);
        ASSERT_EQ(writer_.SetThumbnailPosition(2), kStatusOk);
        RecordAndOpen();
        EXPECT_EQ(reader_.GetThumbnailType(), 0);
        EXPECT_EQ(reader_.GetThumbnailWidth(), 96);
        EXPECT_EQ(reader_.GetThumbnailHeight(), 54);
        ASSERT_EQ(reader_.GetThumbnailDataSize(), size);
        std::vector<uint8_t> back(size + 1u, 0x77);
        ASSERT_EQ(reader_.GetThumbnailData(back.data()), kStatusOk);
        EXPECT_EQ(back.back(), 0x77);
        back.pop_back();
        EXPECT_TRUE(SameBytes(picture, back));
        reader_.Close();
    }
}

TEST_P(Op1bHeaderRoundTrip, PlaceholdersStandInForXMLAndThumbnail) {
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    ASSERT_EQ(reader_.GetXMLDataSize(), 6u);
    uint8_t xml[6];
    ASSERT_EQ(reader_.GetXMLData(xml), kStatusOk);
    EXPECT_THAT(xml, ElementsAre('D', 'u', 'm', 'm', 'y', 0));
    EXPECT_EQ(reader_.GetThumbnailWidth(), 80);
    EXPECT_EQ(reader_.GetThumbnailHeight(), 45);
    ASSERT_EQ(reader_.GetThumbnailDataSize(), 10854u);
    std::vector<uint8_t> picture(10854, 0x77);
    ASSERT_EQ(reader_.GetThumbnailData(picture.data()), kStatusOk);
    EXPECT_EQ(std::count(picture.begin(), picture.end(), 0), 10854);
}

TEST_P(Op1bHeaderRoundTrip, UMIDAndNameComeBack) {
    MXFUMIDTag umid;
    std::iota(std::begin(umid.bytes), std::end(umid.bytes), uint8_t{0xE1});
    writer_.SetUMID(umid);
    ASSERT_EQ(writer_.SetPackageName("Stra\u00DFe \u3042"), kStatusOk);
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    MXFUMIDTag back;
    ASSERT_EQ(reader_.GetMaterialUID(back), kStatusOk);
    EXPECT_EQ(back, umid);
    EXPECT_EQ(Text("MaterialPackage", "PackageName"), "Stra\u00DFe \u3042");
}

TEST_P(Op1bHeaderRoundTrip, ANameThatDoesNotFitDoesNotCostTheRecording) {
    ASSERT_EQ(writer_.SetPackageName(std::string(201, 'n')), kStatusOk);
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    EXPECT_EQ(Text("MaterialPackage", "PackageName"), "");
    ExpectPictures(reader_, stream_, clip_);
}

TEST_P(Op1bHeaderRoundTrip, DescriptiveMetadataComesBack) {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Kamera \u00E9");
    metadata.SetFamilyName("Family");
    metadata.SetFirstGivenName("Given");
    metadata.SetProjectNumber("P-1");
    metadata.SetProjectName("Project");
    metadata.SetTakeNumber(513);
    metadata.SetSceneNumber("12a");
    writer_.SetDescriptiveMetadata(metadata);
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    EXPECT_TRUE(reader_.IsValidDMS());
    EXPECT_EQ(Text("Participant", "JobFunction"), "Kamera \u00E9");
    EXPECT_EQ(Text("Person", "FamilyName"), "Family");
    EXPECT_EQ(Text("Person", "FirstGivenName"), "Given");
    EXPECT_EQ(Text("Project", "ProjectNumber"), "P-1");
    EXPECT_EQ(Text("Project", "ProjectName"), "Project");
    EXPECT_EQ(Text("ClipFramework", "TakeNumber"), "513");
    EXPECT_EQ(Text("SceneFramework", "SceneNumber"), "12a");
}

}  // namespace
}  // namespace kmxf::test
