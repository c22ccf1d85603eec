#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The packs of a DV frame: user bits in the first subcode block, a UMID in the VAUX blocks.
constexpr size_t kSubcodePack = 86, kVAUXPack = 243;

const ByteVector& ExtendedUMID() {
    static const ByteVector umid =
        Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 33 00 00 01"
            "F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0"
            "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"
            "11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20");
    return umid;
}
// Puts a UMID into the packs of the frame at `offset`: an id that has no known use, four bytes of data.
void PutUMID(ByteVector& essence, size_t offset, uint8_t last) {
    auto umid = ExtendedUMID();
    umid.at(63) = last;
    size_t pack = 1;  // the first one is the source pack
    for (size_t at = 0; at < umid.size(); at += 4, ++pack) {
        const size_t block = pack / 15, number = pack % 15;
        ByteVector bytes{0xF0};
        bytes.insert(bytes.end(), umid.begin() + static_cast<ptrdiff_t>(at),
                     umid.begin() + static_cast<ptrdiff_t>(at + 4));
        Patch(essence, offset + kVAUXPack + 80 * block + 5 * number, bytes);
    }
}
uint8_t LastByte(const MXFUMIDEXTag& umid) {
    EXPECT_TRUE(std::equal(umid.bytes, umid.bytes + 63, ExtendedUMID().begin()));
    return umid.bytes[63];
}

TEST_F(MXFExtractMetaData, FirstUnitGivesWhatItCarries) {
    auto essence = DV25();
    Patch(essence, kSubcodePack + 8, Hex("14 12 34 56 78"));
    PutUMID(essence, 0, 0x20);
    ASSERT_EQ(ExtractClip(Video({}, essence)), kStatusOk);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03;04");
    uint8_t usersBit[4];
    EXPECT_EQ(Get<CUsersBit>(extractor, &C::GetDIFStartUsersBit).GetData(usersBit), kStatusOk);
    EXPECT_THAT(usersBit, ElementsAre(0x12, 0x34, 0x56, 0x78));
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFStartUMID)), 0x20);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDIFVideoStandard), 0x0100007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDIFDVType), 0x0400u);
    EXPECT_FALSE(Get<bool>(extractor, &C::GetDIFConsumerDVFlag));
}

TEST_F(MXFExtractMetaData, TimecodeAndUserBitsMayBeInTheSecondFrameOfAUnitOnly) {
    const ClipSettings settings = DV720Settings();
    auto essence = LoadTestData("essence/dv100-720-5994p.dif");
    // All subcode packs of the first frame's two channels of 10 sequences are emptied.
    for (size_t sequence = 0; sequence < 20; ++sequence) {
        for (const size_t block : {80u, 160u}) {
            for (size_t pack = 0; pack < 6; ++pack)
                Patch(essence, sequence * 12000 + block + 6 + 8 * pack, Hex("FF FF FF FF FF"));
        }
    }
    Patch(essence, 240000 + kSubcodePack, Hex("13 04 03 02 01"));
    Patch(essence, 240000 + kSubcodePack + 8, Hex("14 12 34 56 78"));
    ASSERT_EQ(ExtractClip(Video(settings, essence)), kStatusOk);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03:04");
    uint8_t usersBit[4];
    EXPECT_EQ(Get<CUsersBit>(extractor, &C::GetDIFStartUsersBit).GetData(usersBit), kStatusOk);
    EXPECT_THAT(usersBit, ElementsAre(0x12, 0x34, 0x56, 0x78));
}

TEST_F(MXFExtractMetaData, WhatTheFirstUnitDoesNotCarryIsNotFound) {
    ASSERT_EQ(ExtractClip(Video({}, DV25())), kStatusOk);
    CUsersBit usersBit;
    EXPECT_EQ(extractor.GetDIFStartUsersBit(&usersBit), kStatusNotFound);
    MXFUMIDEXTag umid;
    umid.bytes[0] = 0x99;
    EXPECT_EQ(extractor.GetDIFStartUMID(&umid), kStatusNotFound);
    EXPECT_EQ(umid.bytes[0], 0x99);
    bool flag = false;
    EXPECT_EQ(extractor.GetDIF2332PulldownFlag(&flag), kStatusNotFound);
    uint8_t rate = 0;
    EXPECT_EQ(extractor.GetDIFPulldownFrameRate(&rate), kStatusNotFound);
    // Essence that is no DIF frame at all carries nothing; the file is reported all the same.
    ASSERT_EQ(ExtractClip(Video({}, ByteVector(240000, 0xFF))), kStatusOk);
    ExpectEach(DIFAccessors(), kStatusNotFound);
    // A null pointer comes first.
    ExpectEach(DIFAccessors(), kStatusInvalidArgument, true);
}

TEST_F(MXFExtractMetaData, ConsumerDVIsToldByLabelAndByUnit) {
    ClipSettings settings;
    settings.videoStd = VIDEO_STD_50I;
    settings.consumerDV = settings.wide = true;
    settings.start = CTimecode(100, false);
    ASSERT_EQ(ExtractClip(Video(settings, LoadTestData("essence/dv25-50i-iec.dif"))), kStatusOk);
    EXPECT_TRUE(Get<bool>(extractor, &C::GetConsumerDVFlag));
    EXPECT_TRUE(Get<bool>(extractor, &C::GetDIFConsumerDVFlag));
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0x010000B2u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0x0400u);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "23:59:59:20");
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetTotalFrame(), 2159995u);  // at 25
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetText(), "00:00:04:00");
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetVideoStd(), 0x010000B2u);
}

TEST_F(MXFExtractMetaData, AVCIntraHasNoUnits) {
    ClipSettings settings;
    settings.compType = COMP_TYPE_AVCI100_1080;
    ASSERT_EQ(ExtractClip(Video(settings, LoadTestData("essence/avci100-1080-5994i.raw"))), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 2u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0x0100007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0xCD00u);
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_FALSE(Get<bool>(extractor, &C::GetConsumerDVFlag));
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 944128 + 512);
    ExpectEach(DIFAccessors(), kStatusNotFound);
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, EndUMIDIsThatOfTheClipsLastUnit) {
    auto essence = DV25();
    PutUMID(essence, 0, 0x01);
    PutUMID(essence, 120000, 0x02);
    ASSERT_EQ(ExtractClip(Video({}, essence)), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x02);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFStartUMID)), 0x01);
    ASSERT_EQ(ExtractClip(Video({}, essence), {Sound({}, 1700)}), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x01);
    EXPECT_EQ(files.Opened(), 0);
}

TEST_F(MXFExtractMetaData, EndUMIDOf720LineDVIsInTheUnitOfTwoFrames) {
    const ClipSettings settings = DV720Settings();
    ByteVector essence = DV720();
    PutUMID(essence, 0, 0x01);
    PutUMID(essence, 480000, 0x02);
    ASSERT_EQ(ExtractClip(Video(settings, essence)), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x02);
    ASSERT_EQ(ExtractClip(Video(settings, essence), {Sound(settings, 2600)}), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x01);
    ASSERT_EQ(ExtractClip(Video(settings, essence), {Sound(settings, 900)}), kStatusOk);
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
}

TEST_F(MXFExtractMetaData, EndUMIDThatCannotBeReadIsNone) {
    MXFUMIDEXTag umid;
    umid.bytes[0] = 0x99;
    auto essence = DV25();
    PutUMID(essence, 0, 0x01);
    const auto video = Video({}, essence);
    ASSERT_EQ(ExtractClip(video), kStatusOk);
    EXPECT_EQ(extractor.GetDIFEndUMID(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kStatusFrameNoInfo);  // the second frame has none
    ASSERT_EQ(ExtractClip(video, {Sound({}, 100)}), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 0u);
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
    // Cut behind the first frame
    ASSERT_EQ(ExtractClip({video.begin(), video.begin() + 32768 + 239999}), kStatusOk);
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
    for (int call = 1; call <= 5; ++call) {
        ASSERT_EQ(ExtractClip(video), kStatusOk);
        files.FailNth(call);
        EXPECT_EQ(extractor.GetDIFEndUMID(&umid), call == 5 ? kStatusFrameNoInfo : kNoEndUMID) << call;
        EXPECT_THAT(files.Calls(), testing::SizeIs(call == 1 ? 1 : call == 2 ? 3 : call == 3 ? 4 : 5));
        EXPECT_EQ(files.Opened(), 0);
        files.FailNth(0);
    }
    EXPECT_EQ(umid.bytes[0], 0x99);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
