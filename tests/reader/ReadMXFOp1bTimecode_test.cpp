#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/Op1bReading.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFOp1b, ReadsTheStartOfAPicture) {
    clip.AddPictures(1);
    clip.pictures.push_back({Hex("01 02 03 04 05"), "00 00 80"});
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    ByteVector area(512, 0x77);
    EXPECT_EQ(0, reader.GetSEIType1(0, area.data()));
    EXPECT_TRUE(SameBytes(std::span(bytes).subspan(clip.pictureAt[0], 512), area));
    EXPECT_EQ(0, reader.GetSEIType1(1, area.data()));
    auto expected = Hex("01 02 03 04 05");
    expected.resize(512);
    EXPECT_TRUE(SameBytes(expected, area));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetSEIType1(0, nullptr));
    EXPECT_EQ(kStatusNotFound, reader.GetSEIType1(2, area.data()));
    stream->FailAll(Op::kRead);
    EXPECT_EQ(kStatusIoError, reader.GetSEIType1(0, area.data()));
    stream->FailAll(Op::kAllocate);
    EXPECT_EQ(kStatusIoError, reader.GetSEIType1(0, area.data()));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFOp1b::GetSEIType1: Read Error.", "CReadMXFOp1b::GetSEIType1: Allocate Error."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFOp1b, ReadsTimecodeAndUserBitsOfThePicture) {
    clip.pictures.push_back({PictureWithPacks()});
    ASSERT_EQ(0, Open(clip.Bytes()));
    CTimecode timecode;
    ASSERT_EQ(0, reader.GetTimecode(0, timecode, SEI_DATA_TYPE1));
    EXPECT_EQ("08:56:34:12", timecode.GetText());
    EXPECT_EQ(VIDEO_STD_23_98P, timecode.GetVideoStd());
    CUsersBit usersBit;
    ASSERT_EQ(0, reader.GetUsersBit(0, usersBit, SEI_DATA_TYPE1));
    uint8_t bits[4];
    usersBit.GetData(bits);
    EXPECT_THAT(bits, ElementsAre(0xA1, 0xA2, 0xA3, 0xA4));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(0, timecode, SEI_DATA_TYPE2));
    EXPECT_EQ(kStatusNotFound, reader.GetUsersBit(0, usersBit, SEI_DATA_TYPE2));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::GetTimecode: GetTimecode Error.",
                                         "CReadMXFOp1b::GetUsersBit: GetUsersBit Error."));
    EXPECT_EQ("08:56:34:12", timecode.GetText()) << "a failure leaves it";
}

TEST_F(ReadMXFOp1b, PicturesWithoutTimecode) {
    clip.AddPictures(3);
    clip.pictures[1].entry = "00 FE 22";  // a key frame before the first
    clip.pictures[2].entry = "00 05 22";  // one behind the last
    ASSERT_EQ(0, Open(clip.Bytes()));
    CTimecode timecode;
    CUsersBit usersBit;
    for (uint32_t frame = 0; frame < 4; ++frame) {
        EXPECT_EQ(kStatusNotFound, reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1)) << frame;
        EXPECT_EQ(kStatusNotFound, reader.GetUsersBit(frame, usersBit, SEI_DATA_TYPE1)) << frame;
    }
}

TEST_F(ReadMXFOp1b, PictureTimingIsReadByTheParameterSetOfTheKeyFrame) {
    // A parameter set with HRD parameters (delays of 13 and 7 bits), and picture timing that needs it: 10:09:08;07.
    const auto key =
        Hex("00 00 00 01 67 64 00 0d ac b2 02 83 f6 02 20 00 00 03 00 20 00 00 06 4c 04 00 3d 08 00 0f"
            "42 72 61 80 7c 50 a9 20 00 00 01 65 88 84 00");
    const auto picture = Hex("00 00 00 01 06 01 08 00 28 20 b2 40 72 09 54 80 00 00 01 41 9A 00 00");
    clip.AddPictures(50);
    clip.pictures[2].bytes = key;
    clip.pictures[3] = {picture, "00 FF 22"};
    clip.pictures[4] = {picture, "00 FF 22"};   // its key frame has none
    clip.pictures[49] = {picture, "00 D1 22"};  // 47 frames on, in another group
    ASSERT_EQ(0, Open(clip.Bytes()));
    for (const uint32_t frame : {3u, 49u}) ExpectTimecode(frame, "10:09:08;07");
    CTimecode timecode;
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(4, timecode, SEI_DATA_TYPE1));
    ASSERT_EQ(0, reader.GetVideoInfo(3, video));
    stream->FailNth(Op::kRead, stream->Count(Op::kRead) + 2);
    log.Clear();
    EXPECT_EQ(kStatusIoError, reader.GetTimecode(3, timecode, SEI_DATA_TYPE1)) << "the key frame cannot be read";
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFOp1b::GetSEIType1: Read Error.", "CReadMXFOp1b::GetTimecode: GetTimecode Error."));
}

TEST_F(ReadMXFOp1b, TheKeyFramesParameterSetComesBeforeAGuess) {
    // Delays and offset of 8 bits each; without the parameter set the payload reads as 00:00:01:10.
    const auto key =
        Hex("00 00 00 01 67 64 00 0D AC E8 2C 46 83 44 03 28 19 57 39 D0 50 00 00 00 01 "
            "65 88 84 00 ");
    const auto picture = Hex("00 00 00 01 06 01 09 08 04 08 04 00 20 95 00 40 80 00 00 00 01 41 9A 00 00 ");
    clip.AddPictures(4);
    clip.pictures[0].bytes = key;
    clip.pictures[1] = {picture, "00 FF 22"};
    ASSERT_EQ(0, Open(clip.Bytes()));
    ExpectTimecode(1, "10:09:08:00");
}

TEST_F(ReadMXFOp1b, TimecodeOfRealPicturesInStoredOrderAndAsShown) {
    const auto essence = LoadTestData("essence/longg25-1080-5994i.264");
    constexpr size_t kStarts[] = {0, 22482, 39040, 51973, 61947};
    clip.rate = "00 00 75 30 00 00 03 E9";
    clip.layout = "01";
    clip.storedHeight = 540;
    clip.groupFrames = 60;
    clip.channels = 0;
    constexpr std::string_view kEntries[] = {"00 00 C0", "01 FF 22", "01 FE 33", "FE FD 33"};
    for (size_t i = 0; i < 4; ++i)
        clip.pictures.push_back({ByteVector(essence.begin() + static_cast<ptrdiff_t>(kStarts[i]),
                                            essence.begin() + static_cast<ptrdiff_t>(kStarts[i + 1])),
                                 kEntries[i]});
    ASSERT_EQ(0, Open(clip.Bytes()));
    constexpr const char* kTimecodes[] = {"03:04:59;25", "03:04:59;28", "03:04:59;26", "03:04:59;27"};
    for (const uint32_t frame : {3u, 2u, 1u, 0u}) ExpectTimecode(frame, kTimecodes[frame]);
    constexpr const char* kShown[] = {"03:04:59;25", "03:04:59;26", "03:04:59;27", "03:04:59;28"};
    for (uint32_t frame = 0; frame < 4; ++frame)
        ExpectTimecode(static_cast<uint32_t>(reader.GetCodingPosition(frame)), kShown[frame]);
}

}  // namespace
}  // namespace kmxf::test
