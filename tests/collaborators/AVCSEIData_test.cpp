#include <gtest/gtest.h>

#include "collaborators/Given.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "support/Hex.h"

namespace kmxf::test {

namespace {

constexpr size_t kArea = 512;

// The access units of longg25-1080-5994i.264 in coding order.
const struct {
    size_t offset;
    Bytes timecode;
} kAccessUnits[] = {
    {0, {0x65, 0x59, 0x04, 0x03}},       // 03:04:59;25
    {22482, {0x68, 0x59, 0x04, 0x03}},   // 03:04:59;28
    {39040, {0x66, 0x59, 0x04, 0x03}},   // 03:04:59;26
    {51973, {0x67, 0x59, 0x04, 0x03}},   // 03:04:59;27
    {61947, {0x43, 0x00, 0x05, 0x03}},   // 03:05:00;03
    {77960, {0x69, 0x59, 0x04, 0x03}},   // 03:04:59;29
    {90084, {0x42, 0x00, 0x05, 0x03}},   // 03:05:00;02
    {100348, {0x46, 0x00, 0x05, 0x03}},  // 03:05:00;06
    {115688, {0x44, 0x00, 0x05, 0x03}},  // 03:05:00;04
    {125667, {0x45, 0x00, 0x05, 0x03}},  // 03:05:00;05
    {136547, {0x49, 0x00, 0x05, 0x03}},  // 03:05:00;09
    {163754, {0x47, 0x00, 0x05, 0x03}},  // 03:05:00;07
    {174449, {0x48, 0x00, 0x05, 0x03}},  // 03:05:00;08
    {186157, {0x52, 0x00, 0x05, 0x03}},  // 03:05:00;12
    {200838, {0x50, 0x00, 0x05, 0x03}},  // 03:05:00;10
    {213554, {0x51, 0x00, 0x05, 0x03}},  // 03:05:00;11
    {224586, {0x55, 0x00, 0x05, 0x03}},  // 03:05:00;15
    {238923, {0x53, 0x00, 0x05, 0x03}},  // 03:05:00;13
    {249208, {0x54, 0x00, 0x05, 0x03}},  // 03:05:00;14
    {257577, {0x58, 0x00, 0x05, 0x03}},  // 03:05:00;18
    {271433, {0x56, 0x00, 0x05, 0x03}},  // 03:05:00;16
    {280729, {0x57, 0x00, 0x05, 0x03}},  // 03:05:00;17
    {292056, {0x60, 0x00, 0x05, 0x03}},  // 03:05:00;20
    {304884, {0x59, 0x00, 0x05, 0x03}},  // 03:05:00;19
};

Bytes Timecode(const CAVCSEIData& data, int type = 1) {
    return Given(4, [&](uint8_t* out) { return data.GetTimecode(out, static_cast<eSEIDataType>(type)); });
}
Bytes UsersBit(const CAVCSEIData& data, int type = 1) {
    return Given(4, [&](uint8_t* out) { return data.GetUsersBit(out, static_cast<eSEIDataType>(type)); });
}
Bytes UMID(const CAVCSEIData& data) {
    return Given(64, [&](uint8_t* out) { return data.GetUMID(out); });
}
Bytes TimecodeOf(const Bytes& area, int type = 1) {
    CAVCSEIData data;
    EXPECT_EQ(data.SetSEIData(area.data(), static_cast<uint32_t>(area.size()), false), kStatusOk);
    return Timecode(data, type);
}

// A parameter set with HRD parameters, as a coder writes it: delays of 13 and 7 bits, no time offset.
const char* const kParameterSet =
    "00 00 00 01 67 64 00 0d ac b2 02 83 f6 02 20 00 00 03 00 20 00 00 06 4c 04 00 3d 08 00 0f 42 72 61 80 7c 50 a9 "
    "20 ";
// Picture timing of such a stream: delays 5 and 2, pic_struct 0, 10:09:08;07; and one of the coder, without timecode.
const char* const kTiming = "00 00 00 01 06 01 08 00 28 20 b2 40 72 09 54 80 ";
const char* const kTimingWithout = "00 00 01 06 01 04 00 00 03 00 40 80 ";
const char* const kUserData =
    "00 00 00 01 06 05 24 F7 49 3E B3 D4 00 47 96 86 86 C9 70 7B 64 37 2A 55 4D 49 44"
    "13 FF 21 43 FF 05 16 FF 14 FF CA FE FF BA BE FF 80 ";

}  // namespace

TEST(AVCSEIData, EveryRealPictureGivesItsTimecode) {
    const Bytes& stream = Essence("longg25-1080-5994i.264");
    CAVCSEIData kept;
    for (const auto& unit : kAccessUnits) {
        SCOPED_TRACE(unit.offset);
        const Bytes area = Part(stream, unit.offset, kArea);
        for (const bool flag : {false, true}) {
            CAVCSEIData fresh;  // most areas hold no parameter set
            ASSERT_EQ(fresh.SetSEIData(area.data(), flag), kStatusOk);
            EXPECT_EQ(Timecode(fresh), unit.timecode);
            EXPECT_EQ(Timecode(fresh, 2), Bytes());
            EXPECT_EQ(UsersBit(fresh), Bytes());
            EXPECT_EQ(UMID(fresh), Bytes());
        }
        ASSERT_EQ(kept.SetSEIData(area.data(), false), kStatusOk);
        EXPECT_EQ(Timecode(kept), unit.timecode);
    }
}

TEST(AVCSEIData, ObjectWithoutBytesCarriesNothing) {
    const CAVCSEIData data;
    EXPECT_EQ(Timecode(data), Bytes());
    EXPECT_EQ(UsersBit(data), Bytes());
    EXPECT_EQ(UMID(data), Bytes());
}

TEST(AVCSEIData, NullPointersAreInvalidArguments) {
    CAVCSEIData data;
    EXPECT_EQ(data.SetSEIData(nullptr, false), kStatusInvalidArgument);
    EXPECT_EQ(data.SetSEIData(nullptr, 512, true), kStatusInvalidArgument);
    const Bytes area = Hex(kUserData);
    ASSERT_EQ(data.SetSEIData(area.data(), static_cast<uint32_t>(area.size()), false), kStatusOk);
    EXPECT_EQ(data.GetTimecode(nullptr, SEI_DATA_TYPE1), kStatusInvalidArgument);
    EXPECT_EQ(data.GetUsersBit(nullptr, SEI_DATA_TYPE1), kStatusInvalidArgument);
    EXPECT_EQ(data.GetUMID(nullptr), kStatusInvalidArgument);
}

TEST(AVCSEIData, ParameterSetInTheAreaGivesTheLayout) {
    EXPECT_EQ(TimecodeOf(Hex(std::string(kParameterSet) + kTiming)), (Bytes{0x47, 0x08, 0x09, 0x10}));
    EXPECT_EQ(TimecodeOf(Hex(kTiming)), Bytes());  // nothing tells how long the delays are
    EXPECT_EQ(TimecodeOf(Hex(std::string(kParameterSet) + kTimingWithout)), Bytes());
    EXPECT_EQ(TimecodeOf(Hex(kTimingWithout)), Bytes());
}

TEST(AVCSEIData, ParameterSetHoldsForThePicturesBehindIt) {
    const Bytes key = Hex(std::string(kParameterSet) + kTimingWithout), other = Hex(kTiming);
    CAVCSEIData data;
    ASSERT_EQ(data.SetSEIData(key.data(), static_cast<uint32_t>(key.size()), false), kStatusOk);
    EXPECT_EQ(Timecode(data), Bytes());
    ASSERT_EQ(data.SetSEIData(other.data(), static_cast<uint32_t>(other.size()), false), kStatusOk);
    EXPECT_EQ(Timecode(data), (Bytes{0x47, 0x08, 0x09, 0x10}));
    // Until another takes its place.
    const Bytes& stream = Essence("longg25-1080-5994i.264");
    ASSERT_EQ(data.SetSEIData(stream.data(), false), kStatusOk);
    EXPECT_EQ(Timecode(data), (Bytes{0x65, 0x59, 0x04, 0x03}));
    ASSERT_EQ(data.SetSEIData(other.data(), static_cast<uint32_t>(other.size()), false), kStatusOk);
    EXPECT_EQ(Timecode(data), Bytes());
}

TEST(AVCSEIData, BothFieldsMayHaveATimecode) {
    // pic_struct 4: 23:56:34:12 in full, then frame 13 and second 35 only.
    const Bytes area = Hex("00 00 01 06 01 0F 4a 04 0c 8b 8b 80 00 00 50 00 6e 30 00 00 03 04 80");
    EXPECT_EQ(TimecodeOf(area, 1), (Bytes{0x12, 0x34, 0x56, 0x23}));
    EXPECT_EQ(TimecodeOf(area, 2), (Bytes{0x13, 0x35, 0x56, 0x23}));
    for (const int type : {3, 0, -1, INT32_MIN}) EXPECT_EQ(TimecodeOf(area, type), Bytes());
}

TEST(AVCSEIData, UserDataCarryTimecodeUserBitsAndUMID) {
    const Bytes area = Hex(kUserData);
    CAVCSEIData data;
    ASSERT_EQ(data.SetSEIData(area.data(), static_cast<uint32_t>(area.size()), false), kStatusOk);
    EXPECT_EQ(Timecode(data), (Bytes{0x21, 0x43, 0x05, 0x16}));
    EXPECT_EQ(UsersBit(data), (Bytes{0xCA, 0xFE, 0xBA, 0xBE}));
    EXPECT_EQ(UMID(data), Bytes());
    EXPECT_EQ(Timecode(data, 2), Bytes());

    const Bytes withUMID =
        Hex("00 00 00 01 06 05 34 F7 49 3E B3 D4 00 47 96 86 86 C9 70 7B 64 37 2A 55 4D 49 44"
            "06 0A 2B 34 01 01 01 05 01 01 0F 20 13 11 22 33 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0 80");
    ASSERT_EQ(data.SetSEIData(withUMID.data(), static_cast<uint32_t>(withUMID.size()), false), kStatusOk);
    Bytes umid = Part(withUMID, 27, 32);
    umid.resize(64, 0x00);
    EXPECT_EQ(UMID(data), umid);
}

TEST(AVCSEIData, UserDataGoBeforePictureTiming) {
    const std::string timing = "00 00 01 06 01 09 3b 24 19 ec 41 80 00 00 20 80 ";
    EXPECT_EQ(TimecodeOf(Hex(timing + kUserData)), (Bytes{0x21, 0x43, 0x05, 0x16}));
    EXPECT_EQ(TimecodeOf(Hex(kUserData + timing)), (Bytes{0x21, 0x43, 0x05, 0x16}));
    EXPECT_EQ(TimecodeOf(Hex(timing)), (Bytes{0x65, 0x59, 0x04, 0x03}));
}

TEST(AVCSEIData, AreaMayBeginAtAnSEIMessage) {
    EXPECT_EQ(TimecodeOf(Hex("01 09 3b 24 19 ec 41 80 00 00 20 80")), (Bytes{0x65, 0x59, 0x04, 0x03}));
    EXPECT_EQ(TimecodeOf(Hex("06 01 09 3b 24 19 ec 41 80 00 00 20 80")), (Bytes{0x65, 0x59, 0x04, 0x03}));
}

TEST(AVCSEIData, EmulationPreventionIsRemovedFromPictureTiming) {
    // 00:00:00:00 (pic_struct 0, counting_type 0) has so many zeros that the bytes need it: 0a 04 00 00 | 00 00 00
    // 00 40.
    EXPECT_EQ(TimecodeOf(Hex("00 00 01 06 01 09 0a 04 00 00 03 00 00 03 00 00 40 80")), (Bytes{0, 0, 0, 0}));
}

TEST(AVCSEIData, AreaCutAtEveryByteGivesWholeMessagesOnly) {
    const Bytes& stream = Essence("longg25-1080-5994i.264");
    const struct {
        size_t offset, needed;
        Bytes timecode;
    } kUnits[] = {{0, 64, {0x65, 0x59, 0x04, 0x03}},        // parameter sets in front
                  {22482, 22, {0x68, 0x59, 0x04, 0x03}},    // none
                  {136547, 72, {0x49, 0x00, 0x05, 0x03}}};  // and another message
    for (const auto& unit : kUnits)
        for (size_t size = 1; size <= kArea; ++size)
            EXPECT_EQ(TimecodeOf(Part(stream, unit.offset, size)), size >= unit.needed ? unit.timecode : Bytes())
                << unit.offset << ' ' << size;
}

TEST(AVCSEIData, PictureTimingThatIsShorterThanItSaysIsNone) {
    EXPECT_EQ(TimecodeOf(Hex("00 00 01 06 01 0A 3b 24 19 ec 41 80 00 00 20")), Bytes());
}

TEST(AVCSEIData, NoiseIsHarmless) {
    std::mt19937 random(5);
    const Bytes& stream = Essence("longg25-1080-5994i.264");
    CAVCSEIData data;
    for (int i = 0; i < 1000; ++i) {
        Bytes area = i % 3 == 0 ? Noise(random, 1 + random() % 600) : Part(stream, i % 2 == 0 ? 0 : 22482, kArea);
        for (int k = 0; k < i % 20; ++k)
            area[random() % std::min<size_t>(area.size(), 80)] = static_cast<uint8_t>(random());
        ASSERT_EQ(data.SetSEIData(area.data(), static_cast<uint32_t>(area.size()), false), kStatusOk);
        for (const int type : {1, 2}) {
            Timecode(data, type);
            UsersBit(data, type);
        }
        UMID(data);
    }
}

}  // namespace kmxf::test
