#include <gtest/gtest.h>

#include "Op1bBuilder.h"

namespace kmxf::test {
namespace {

TEST(Op1bBase, NothingWorksBeforeInitialize) {
    COp1bBase builder(VIDEO_STD_50I, COMP_TYPE_LONGG25_1080, 2, 2);
    uint8_t* data = nullptr;
    const uint8_t bytes[16] = {};
    EXPECT_EQ(builder.GetHeaderData(&data), kStatusWrongState);
    EXPECT_EQ(builder.SetDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.SetContainerDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.SetOrigin(1), kStatusWrongState);
    EXPECT_EQ(builder.SetStartTimecode(0, false), kStatusWrongState);
    EXPECT_EQ(builder.SetDMS({}), kStatusWrongState);
    EXPECT_EQ(builder.SetXMLData(bytes, 1), kStatusWrongState);
    EXPECT_EQ(builder.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusWrongState);
    EXPECT_EQ(builder.SetThumbnailPosition(1), kStatusWrongState);
    EXPECT_EQ(builder.SetUMID({}), kStatusWrongState);
    EXPECT_EQ(builder.SetPackageName("x"), kStatusWrongState);
    EXPECT_EQ(builder.SetIdentification("a", "b", "c", bytes), kStatusWrongState);
    EXPECT_EQ(builder.SetCreationDate({}), kStatusWrongState);
    EXPECT_EQ(builder.SetModifiedDate({}), kStatusWrongState);
    EXPECT_EQ(builder.AddFillerSize(1), kStatusWrongState);

    EXPECT_EQ(builder.SetBodyPartitionParamVideo(0, 0, 1, false, true), kStatusFailure);
    EXPECT_EQ(builder.SetBodyPartitionParamAudio(0, 0, 1, 0, false, true), kStatusFailure);
    EXPECT_EQ(builder.GetBodyPartitionDataVideo(&data, false), kStatusFailure);
    EXPECT_EQ(builder.GetBodyPartitionDataAudio(&data, false, 0), kStatusFailure);
    EXPECT_EQ(builder.GetBodyPartitionDataANCData(&data, 0, 1), kStatusFailure);
    EXPECT_EQ(builder.AddIndexEntry(0, 0, 0, 0), kStatusFailure);
    EXPECT_EQ(builder.AddPartitionInfo({}), kStatusFailure);
    EXPECT_EQ(builder.AddFooterIndex(CIndexCommon(1, 0, 0, 0)), kStatusFailure);
    EXPECT_EQ(builder.SetFooterPartitionParam(1), kStatusFailure);
    EXPECT_EQ(builder.SetFooterPartitionPos(1), kStatusFailure);
    EXPECT_EQ(builder.SetFooterPrevPartitionPos(1), kStatusFailure);
    EXPECT_EQ(builder.GetFooterData(&data), kStatusFailure);
    EXPECT_EQ(builder.GetRandomIndexData(&data), kStatusFailure);
    EXPECT_EQ(data, nullptr);

    EXPECT_EQ(builder.GetHeaderSize(), 131072u);
    EXPECT_EQ(builder.GetHeaderMetadataSize(), 0u);
    EXPECT_EQ(builder.GetBodyPartitionSize(true, true), 0u);
    EXPECT_EQ(builder.GetBodyPartitionSizeANCData(1), 0u);
    EXPECT_EQ(builder.GetFooterSize(), 0u);
    EXPECT_EQ(builder.GetRandomIndexSize(), 0u);
    uint8_t untouched[1] = {7};
    EXPECT_EQ(builder.MXFMemSetHeaderMetadata(untouched, 5), 5u);
    EXPECT_EQ(untouched[0], 7);
}

TEST(Op1bBase, NullPointersAreInvalid) {
    auto builder = Builder();
    const uint8_t bytes[16] = {};
    EXPECT_EQ(builder->GetHeaderData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetBodyPartitionDataVideo(nullptr, true), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetBodyPartitionDataAudio(nullptr, true, 0), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetBodyPartitionDataANCData(nullptr, 0, 1), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetFooterData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetRandomIndexData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetKLData(kTrackCodePicture, 1, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetXMLData(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetThumbnailData(nullptr, 1, 1, 1, 0), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetIdentification("a", "b", "c", nullptr), kStatusInvalidArgument);
    EXPECT_FALSE(COp1bBase::CreateDummyANC(nullptr));
    uint8_t out[512];
    EXPECT_FALSE(COp1bBase::CreateANCData(nullptr, 1, out));
    EXPECT_FALSE(COp1bBase::CreateANCData(nullptr, 0, out));
    EXPECT_FALSE(COp1bBase::CreateANCData(bytes, 1, nullptr));
    EXPECT_EQ(builder->MXFMemSetHeaderMetadata(nullptr, 9), 9u);
}

TEST(Op1bBase, OnlyLongGOPFormatsAreBuilt) {
    for (const uint32_t type :
         {COMP_TYPE_LONGG6_1080, COMP_TYPE_LONGG6_720, COMP_TYPE_LONGG12_1080, COMP_TYPE_LONGG12_720,
          COMP_TYPE_LONGG25_1080, COMP_TYPE_LONGG25_720, COMP_TYPE_LONGG50_1080, COMP_TYPE_LONGG50_720}) {
        for (const uint32_t standard : kOp1bStandards) {
            EXPECT_EQ(COp1bBase(standard, type, 2, 1).Initialize(), kStatusOk) << std::hex << type << ' ' << standard;
        }
        EXPECT_EQ(COp1bBase(0x0300007C, type, 2, 1).Initialize(), kStatusInvalidArgument);
        EXPECT_EQ(COp1bBase(0, type, 2, 1).Initialize(), kStatusInvalidArgument);
    }
    for (const uint32_t type :
         {COMP_TYPE_DV25, COMP_TYPE_DV50, COMP_TYPE_DV100_1080I, COMP_TYPE_AVCI50_1080, COMP_TYPE_AVCI100_1080,
          COMP_TYPE_AVCI200_1080, CompType{0xC100}, CompType{0x0800C100}, CompType{0}}) {
        COp1bBase builder(VIDEO_STD_59_94I, type, 2, 1);
        EXPECT_EQ(builder.Initialize(), kStatusInvalidArgument) << std::hex << type;
        EXPECT_EQ(builder.SetDuration(1), kStatusWrongState);
    }
}

TEST(Op1bBase, OfTheNumberOfChannelsOnlyTheLowByteCounts) {
    EXPECT_EQ(SetsOfKind(PacketsOf(*Builder(0x10104)), 0x47).size(), 4u);
    EXPECT_EQ(SetsOfKind(PacketsOf(*Builder(0x100)), 0x47).size(), 0u);
}

TEST(Op1bBase, TheLayoutIsChosenBeforeInitialize) {
    auto builder = Builder();
    EXPECT_EQ(builder->SetPlayerLayout(true), kStatusWrongState);
    EXPECT_TRUE(SetsOfKind(PacketsOf(*builder), 0x44).empty());
}

}  // namespace
}  // namespace kmxf::test
