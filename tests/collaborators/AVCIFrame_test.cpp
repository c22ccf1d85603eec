#include <gtest/gtest.h>

#include "collaborators/Given.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "support/Hex.h"

namespace kmxf::test {

namespace {

constexpr size_t kArea = 512;
constexpr size_t kFirstFreePack = 58;  // behind the timecode, user bits and source packs

Bytes Timecode(const CAVCIFrame& frame, int type = 1) {
    return Given(4, [&](uint8_t* out) { return frame.GetTimecode(out, static_cast<eSEIDataType>(type)); });
}
Bytes UsersBit(const CAVCIFrame& frame, int type = 1) {
    return Given(4, [&](uint8_t* out) { return frame.GetUsersBit(out, static_cast<eSEIDataType>(type)); });
}
Bytes UMID(const CAVCIFrame& frame) {
    return Given(64, [&](uint8_t* out) { return frame.GetUMID(out); });
}

Bytes RealArea() { return Part(Essence("avci100-1080-5994i.raw"), 0, kArea); }
CAVCIFrame& Set(CAVCIFrame& frame, const Bytes& area) {
    EXPECT_EQ(frame.SetSEIData(area.data(), static_cast<uint32_t>(area.size())), kStatusOk);
    return frame;
}

// What the message begins with: NAL unit, type, size, UUID and letters.
const Bytes kMessage = Hex("00 00 00 01 06 05 FF F2 F7 49 3E B3 D4 00 47 96 86 86 C9 70 7B 64 37 2A 55 4D 49 44");

}  // namespace

TEST(AVCIFrame, RealFramesGiveTheirTimecodesAndUserBits) {
    const struct {
        const char* file;
        size_t offset, size;
        Bytes timecode, usersBit;
    } kFrames[] = {
        {"avci100-1080-5994i.raw", 0, 472064, {0x65, 0x59, 0x03, 0x02}, {0x12, 0x34, 0x56, 0x78}},  // 02:03:59;25
        {"avci100-1080-5994i.raw", 472064, 472064, {0x66, 0x59, 0x03, 0x02}, {0x12, 0x34, 0x56, 0x78}},
        // A coder without timecode leaves zeros, which are a timecode of zero.
        {"avci50-720-5994p.raw", 0, 116224, {0, 0, 0, 0}, {0, 0, 0, 0}},
        {"avci50-720-5994p.raw", 116224, 116224, {0, 0, 0, 0}, {0, 0, 0, 0}},
        {"avci50-720-5994p.raw", 232448, 116224, {0, 0, 0, 0}, {0, 0, 0, 0}},
        {"avci50-720-5994p-header.raw", 512, 116224, {0, 0, 0, 0}, {0, 0, 0, 0}},
    };
    for (const auto& row : kFrames) {
        SCOPED_TRACE(row.file);
        const Bytes bytes = Part(Essence(row.file), row.offset, row.size);
        const Bytes area = Part(bytes, 0, kArea);
        CAVCIFrame frames[4];
        ASSERT_EQ(frames[0].SetFrameData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
        ASSERT_EQ(frames[1].SetFrameData(area.data()), kStatusOk);
        ASSERT_EQ(frames[2].SetSEIData(area.data()), kStatusOk);
        ASSERT_EQ(frames[3].SetSEIData(area.data(), kArea), kStatusOk);
        for (const CAVCIFrame& frame : frames) {
            EXPECT_EQ(Timecode(frame), row.timecode);
            EXPECT_EQ(UsersBit(frame), row.usersBit);
            for (const int type : {2, 3, 0, -1, INT32_MIN}) {
                EXPECT_EQ(Timecode(frame, type), Bytes());
                EXPECT_EQ(UsersBit(frame, type), Bytes());
            }
            EXPECT_EQ(UMID(frame), Bytes());
        }
    }
}

TEST(AVCIFrame, ParameterSetsInFrontOfAFrameCarryNothing) {
    const Bytes& bytes = Essence("avci50-720-5994p-header.raw");
    CAVCIFrame frame;
    ASSERT_EQ(frame.SetFrameData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
    EXPECT_EQ(Timecode(frame), Bytes());
    EXPECT_EQ(UsersBit(frame), Bytes());
    // The messages of the frame stand behind these 512 bytes; the SEI area may hold both.
    ASSERT_EQ(frame.SetSEIData(bytes.data(), 1024), kStatusOk);
    EXPECT_EQ(Timecode(frame), Bytes(4, 0x00));
}

TEST(AVCIFrame, ObjectWithoutBytesCarriesNothing) {
    const CAVCIFrame frame;
    EXPECT_EQ(Timecode(frame), Bytes());
    EXPECT_EQ(UsersBit(frame), Bytes());
    EXPECT_EQ(UMID(frame), Bytes());
}

TEST(AVCIFrame, NullPointersAreInvalidArguments) {
    CAVCIFrame frame;
    EXPECT_EQ(frame.SetFrameData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.SetFrameData(nullptr, 512), kStatusInvalidArgument);
    EXPECT_EQ(frame.SetSEIData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.SetSEIData(nullptr, 512), kStatusInvalidArgument);
    const Bytes area = RealArea();
    Set(frame, area);
    EXPECT_EQ(frame.GetTimecode(nullptr, SEI_DATA_TYPE1), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetUsersBit(nullptr, SEI_DATA_TYPE1), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetUMID(nullptr), kStatusInvalidArgument);
}

TEST(AVCIFrame, SecondPairIsTheSecondPackOfItsKind) {
    Bytes area = RealArea();
    Put(area, kFirstFreePack, Hex("14 FF 9A BC FF DE F0 FF"));
    Put(area, kFirstFreePack + 8, Hex("13 FF 04 03 FF 02 01 FF"));
    CAVCIFrame frame;
    Set(frame, area);
    EXPECT_EQ(Timecode(frame, 1), (Bytes{0x65, 0x59, 0x03, 0x02}));
    EXPECT_EQ(Timecode(frame, 2), (Bytes{0x04, 0x03, 0x02, 0x01}));
    EXPECT_EQ(UsersBit(frame, 1), (Bytes{0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(UsersBit(frame, 2), (Bytes{0x9A, 0xBC, 0xDE, 0xF0}));
}

TEST(AVCIFrame, PackThatIsNoTimecodeIsNone) {
    for (const char* pack : {"FF FF FF FF FF FF FF FF",     // no pack
                             "13 FF FF FF FF FF FF FF",     // no time
                             "13 FF 30 00 FF 00 00 FF",     // 30 frames
                             "13 00 01 02 FF 03 04 FF",     // not stuffed
                             "13 FF 01 02 00 03 04 FF",     // nor here
                             "13 FF 01 02 FF 03 04 00",     // nor here
                             "12 FF 01 02 FF 03 04 FF"}) {  // another pack
        Bytes area = RealArea();
        Put(area, 34, Hex(pack));
        CAVCIFrame frame;
        Set(frame, area);
        EXPECT_EQ(Timecode(frame), Bytes()) << pack;
        EXPECT_EQ(UsersBit(frame), (Bytes{0x12, 0x34, 0x56, 0x78}));
    }
}

TEST(AVCIFrame, OtherUserDataCarryNothing) {
    for (const size_t changed : {11u, 14u, 29u, 30u, 33u}) {  // type, UUID, letters
        Bytes area = RealArea();
        area[changed] ^= 0x02;
        CAVCIFrame frame;
        Set(frame, area);
        EXPECT_EQ(Timecode(frame), Bytes()) << changed;
        EXPECT_EQ(UsersBit(frame), Bytes()) << changed;
    }
}

TEST(AVCIFrame, UMIDIsFoundAsItStands) {
    const Bytes basic =
        Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 11 22 33"
            "F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0");
    Bytes area = RealArea();
    Put(area, 107, basic);
    CAVCIFrame frame;
    Bytes expected = basic;
    expected.resize(64, 0x00);
    EXPECT_EQ(UMID(Set(frame, area)), expected);
    area[107 + 12] = 0x33;
    expected = Part(area, 107, 64);
    EXPECT_EQ(UMID(Set(frame, area)), expected);
}

TEST(AVCIFrame, UMIDIsFoundInStuffedPacks) {
    Bytes area = RealArea();
    Put(area, 90, Hex(R"(
        80 FF 06 0A FF 2B 34 FF  80 FF 01 01 FF 01 05 FF  80 FF 01 01 FF 0F 20 FF  80 FF 13 00 FF 00 00 FF
        80 FF F1 F2 FF F3 F4 FF  80 FF F5 F6 FF F7 F8 FF  80 FF F9 FA FF FB FC FF  80 FF FD FE FF 00 F0 FF)"));
    CAVCIFrame frame;
    EXPECT_EQ(UMID(Set(frame, area)), Hex(R"(
        06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE 00 F0
        00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00)"));
}

TEST(AVCIFrame, UMIDIsReadWithoutEmulationPrevention) {
    Bytes area = kMessage;
    const Bytes escaped = Hex(R"(
        06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 03 00
        F1 00 00 03 01 F5 00 00 03 03 F9 FA FB FC FD FE FF F0)");
    area.insert(area.end(), escaped.begin(), escaped.end());
    CAVCIFrame frame;
    EXPECT_EQ(UMID(Set(frame, area)), Hex(R"(
        06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00 F1 00 00 01 F5 00 00 03 F9 FA FB FC FD FE FF F0
        00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00)"));
}

TEST(AVCIFrame, AreaCutAtEveryByteGivesItsWholePacks) {
    const Bytes whole = RealArea();
    for (size_t size = 1; size <= kArea; ++size) {
        SCOPED_TRACE(size);
        const Bytes area = Part(whole, 0, size);
        CAVCIFrame frame;
        Set(frame, area);
        EXPECT_EQ(Timecode(frame), size >= 42 ? (Bytes{0x65, 0x59, 0x03, 0x02}) : Bytes());
        EXPECT_EQ(UsersBit(frame), size >= 50 ? (Bytes{0x12, 0x34, 0x56, 0x78}) : Bytes());
        EXPECT_EQ(UMID(frame), Bytes());
        ASSERT_EQ(frame.SetFrameData(area.data(), static_cast<uint32_t>(size)), kStatusOk);
        EXPECT_EQ(Timecode(frame).empty(), size < 42);
    }
}

TEST(AVCIFrame, PictureTimingIsNotLookedAt) {
    const Bytes area = Hex("00 00 00 01 06 01 09 3b 24 19 ec 41 80 00 00 20 80");
    CAVCIFrame frame;
    EXPECT_EQ(Timecode(Set(frame, area)), Bytes());
}

TEST(AVCIFrame, NoiseIsHarmless) {
    std::mt19937 random(4);
    for (int i = 0; i < 1000; ++i) {
        Bytes area = i % 3 == 0 ? Noise(random, 1 + random() % 600) : RealArea();
        for (int k = 0; k < i % 20; ++k)
            area[random() % std::min<size_t>(area.size(), 100)] = static_cast<uint8_t>(random());
        CAVCIFrame frame;
        Set(frame, area);
        for (const int type : {1, 2}) {
            Timecode(frame, type);
            UsersBit(frame, type);
        }
        UMID(frame);
    }
}

}  // namespace kmxf::test
