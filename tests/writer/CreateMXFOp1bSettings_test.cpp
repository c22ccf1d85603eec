#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Op1bRecording.h"
#include "WriterChecks.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

using testing::IsEmpty;

TEST_F(CreateMXFOp1b, SettersStoreAnyCodeAndReturn0) {
    EXPECT_EQ(writer.SetVideoStandard(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetCompType(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetUMID({{1}}), kStatusOk);
    EXPECT_EQ(writer.SetPackageName(std::string(1000, 'x')), kStatusOk);
    EXPECT_EQ(writer.SetDescriptiveMetadata({}), kStatusOk);
    EXPECT_EQ(writer.SetStartTimecode(CTimecode(1800, true)), kStatusOk);
    EXPECT_EQ(writer.SetPlayerLayout(true), kStatusOk);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_EQ(writer.GetDuration(), 0u);
    EXPECT_EQ(writer.GetCurrentOffset(), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, TheStandardDecidesTheFramesOfAGroup) {
    EXPECT_EQ(writer.GetPartitionFrame(), 0u);
    const std::pair<uint32_t, uint32_t> rows[] = {
        {0x02000058, 48},  {0x0100007C, 60},  {0x0200005E, 60}, {0x010000B2, 50}, {0x02000099, 50},
        {0x020000B2, 100}, {0x0200007C, 120}, {0x0100005E, 0},  {0, 0},           {0xFFFFFFFF, 0}};
    for (const auto& [standard, frames] : rows) {
        writer.SetVideoStandard(standard);
        EXPECT_EQ(writer.GetPartitionFrame(), frames) << std::hex << standard;
    }
}

TEST_F(CreateMXFOp1b, SamplesHaveTwoOrThreeBytes) {
    EXPECT_EQ(writer.SetBytesPerSample(3), kStatusOk);
    for (const int bytes : {0, 1, 4, 255}) {
        EXPECT_EQ(writer.SetBytesPerSample(static_cast<uint8_t>(bytes)), kStatusInvalidArgument) << bytes;
    }
    SetFormat(writer, {0x02000099, 0x1000C100, 1, 3, 1});
    writer.SetBytesPerSample(4);  // the 3 stays
    writer.Open("clip.mxf", &stream);
    WriteVideo();
    WriteAudio(1920 * 3, 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x47).front().Item(0x3D01), Hex("00 00 00 18"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, ClipTypesWithoutOnePictureAreUnexpectedAndKept) {
    EXPECT_EQ(writer.SetClipType(0x101), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0x100), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0x1F1FF), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0x001), kStatusUnexpectedKind);
    EXPECT_EQ(writer.SetClipType(0x300), kStatusUnexpectedKind);
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.SetClipType(0x204), kStatusUnexpectedKind);
    writer.Open("clip.mxf", &stream);
    WriteVideo();
    for (uint8_t c = 0; c < 4; ++c) EXPECT_EQ(WriteAudio(3200, c), 3200);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x47).size(), 4u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, WithoutAClipTypeThereIsNoSound) {
    writer.SetVideoStandard(0x0200005E);
    writer.SetCompType(0x1000C100);
    writer.Open("clip.mxf", &stream);
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x47).size(), 0u);
}

TEST_F(CreateMXFOp1b, IdentificationOutOfRangeIsRefusedWhole) {
    ExpectIdentificationOutOfRangeIsRefused(writer);
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    auto set = SetsOfKind(HeaderOf(stream.Bytes()), 0x30).front();
    auto company = Hex("00 4B 00 65 00 73 00 74 00 72 00 61 00 6C 00 69 00 6E"), product = Hex("00 4A 00 71");
    company.resize(32);
    product.resize(32);
    EXPECT_EQ(set.Item(0x3C01), company);
    EXPECT_EQ(set.Item(0x3C02), product);
    EXPECT_EQ(set.Item(0x3C04), Hex("00 33 00 2E 00 30 00 00"));
    EXPECT_EQ(set.Item(0x3C05), Hex("06 0E 2B 34 04 01 01 08 0E 0E 01 01 01 01 00 01"));

    const uint8_t uid[16] = {9};
    const std::string s16(16, 's');
    EXPECT_EQ(writer.SetIdentification(s16, s16, "1234", uid), kStatusOk);
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    set = SetsOfKind(HeaderOf(stream.Bytes()), 0x30).front();
    EXPECT_EQ(set.Item(0x3C01)[31], 's');
    EXPECT_EQ(set.Item(0x3C04), Hex("00 31 00 32 00 33 00 34"));
    EXPECT_EQ(set.Item(0x3C05)[0], 9);
}

TEST_F(CreateMXFOp1b, SideDataNeedsAnOpenFile) {
    const uint8_t bytes[1] = {};
    EXPECT_EQ(writer.SetXMLData(bytes, 1), kStatusWrongState);
    EXPECT_EQ(writer.SetXMLData(nullptr, 1), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailData(nullptr, 1, 1, 1, 9), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailPosition(1), kStatusWrongState);
    Open(Clip(1));
    EXPECT_EQ(writer.SetXMLData(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetThumbnailData(nullptr, 1, 1, 1, 1), kStatusUnexpectedKind);
    EXPECT_EQ(writer.SetThumbnailData(bytes, 1, 1, 1, 1), kStatusUnexpectedKind);
    EXPECT_EQ(writer.SetThumbnailData(nullptr, 1, 1, 1, 0), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetThumbnailData(std::vector<uint8_t>(16012).data(), 16012, 1, 1, 0), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetXMLData(bytes, 1), kStatusOk);
    EXPECT_EQ(writer.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusOk);
    EXPECT_EQ(writer.SetThumbnailPosition(1), kStatusOk);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.SetXMLData(bytes, 1), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailPosition(1), kStatusWrongState);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(CheckFormat, Interlaced720DoesNotExist) {
    constexpr uint32_t kStandards[] = {0x0100007C, 0x010000B2, 0x02000058, 0x0200005E, 0x0200007C,
                                       0x02000099, 0x020000B2, 0,          0xFFFFFFFF};
    constexpr bool kOf720[] = {false, false, true, true, true, true, true, false, false};
    for (size_t i = 0; i < std::size(kStandards); ++i) {
        for (const uint32_t type : {0x0400C200u, 0x0C00C200u, 0x1000C200u, 0x2000C200u, 0x200u, 0xFFFFFFFFu}) {
            EXPECT_EQ(CCreateMXFOp1b::CheckFormat(kStandards[i], type), kOf720[i]) << std::hex << kStandards[i];
        }
        for (const uint32_t type : {0x0400C100u, 0x0C00C100u, 0x1000C100u, 0x2000C100u, 0u, 0xFFFFFDFFu}) {
            EXPECT_TRUE(CCreateMXFOp1b::CheckFormat(kStandards[i], type)) << std::hex << kStandards[i];
        }
    }
}

TEST_F(CreateMXFOp1b, SettingsOfTheOpenFileReachTheFinalHeader) {
    Open(Clip(1));
    WriteVideo();
    writer.SetStartTimecode(CTimecode(17982, false));
    writer.SetPackageName("B");
    const uint8_t uid[16] = {7};
    writer.SetIdentification("c", "p", "v", uid);
    // What decides the layout of the file does not.
    writer.SetVideoStandard(0x02000099);
    writer.SetClipType(0x104);
    writer.SetBytesPerSample(3);
    writer.SetPlayerLayout(true);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = HeaderOf(stream.Bytes());
    const auto timecodes = SetsOfKind(packets, 0x14);
    EXPECT_EQ(timecodes.size(), 2u);
    for (const Packet& timecode : timecodes) {
        EXPECT_EQ(BigEndian(timecode.Item(0x1501)), 17982u);
        EXPECT_EQ(timecode.Item(0x1503), Hex("00"));
    }
    EXPECT_EQ(SetsOfKind(packets, 0x36).front().Item(0x4402)[1], 'B');
    EXPECT_EQ(SetsOfKind(packets, 0x30).front().Item(0x3C01)[1], 'c');
    EXPECT_TRUE(SetsOfKind(packets, 0x47).empty());
    EXPECT_TRUE(SetsOfKind(packets, 0x44).empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, ANameThatDoesNotFitIsLeftOut) {
    writer.SetPackageName(std::string(201, 'n'));
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x36).front().Item(0x4402), std::vector<uint8_t>(400));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, ClosingResetsTheSettings) {
    Open(Clip(1, 2));
    writer.SetPackageName("old");
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.GetPartitionFrame(), 0u);
    writer.SetVideoStandard(0x0200005E);
    writer.SetCompType(0x1000C100);
    ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = HeaderOf(stream.Bytes());
    EXPECT_TRUE(SetsOfKind(packets, 0x47).empty());
    EXPECT_EQ(SetsOfKind(packets, 0x36).front().Item(0x4402), std::vector<uint8_t>(400));
}

TEST_F(CreateMXFOp1b, ResetParamLeavesTheFileOpen) {
    Open(Clip(2, 1));
    WriteVideo();
    writer.ResetParam();
    EXPECT_EQ(writer.GetPartitionFrame(), 60u) << "of the open file";
    EXPECT_EQ(WriteVideo(), 8);
    EXPECT_EQ(WriteAudio(3204 * 2, 0), 6408);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
