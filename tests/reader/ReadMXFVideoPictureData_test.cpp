#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "reader/VideoReading.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string UsersBitText(const CUsersBit& usersBit) {
    uint8_t bytes[4]{};
    usersBit.GetData(bytes);
    return HexLine(bytes, 0);
}

constexpr std::string_view kBasicUMID =
    "06 0A 2B 34 01 01 01 05 01 01 0D 20 13 00 00 00 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF";

TEST_F(ReadMXFVideo, RealDV25Tells) {
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    ExpectTotal(2);
    ExpectStartAndEnd("01:02:03;04", "01:02:03;05");
    ExpectTimecode(1, "01:02:03;05");
    for (const uint32_t frame : {0u, 1u}) {
        CTimecode fromUnit;
        fromUnit.SetVideoStd(VIDEO_STD_50I);  // that of the file replaces it
        EXPECT_EQ(0, reader.GetDIFTimecode(frame, &fromUnit));
        EXPECT_EQ(frame == 0 ? "01:02:03;04" : "01:02:03;05", fromUnit.GetText());
        EXPECT_EQ(0x0100007Cu, fromUnit.GetVideoStd());
    }
    ExpectNothingHeld();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, RealDV25CarriesNoUserBitsUMIDOrColourFrame) {
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    uint8_t clf = 9;
    EXPECT_EQ(kStatusNotFound, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ(kStatusNotFound, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2));
    EXPECT_EQ(kStatusNotFound, reader.GetStartUMID(&umid));
    EXPECT_EQ(kStatusNotFound, reader.GetEndUMID(&umid));
    EXPECT_EQ(kStatusNotFound, reader.GetEndCLF(&clf));
    EXPECT_EQ(9, clf);
    EXPECT_EQ(MXFUMIDEXTag{}, umid);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetStartUsersBit: GetUsersBit Error.",
                            "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error.",
                            "CReadMXFVideo::GetStartUMID: GetUMID Error.", "CReadMXFVideo::GetEndUMID: GetUMID Error."))
        << "an absent colour frame is not logged";
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, DV25WithEverythingTellsItOfFirstAndLastFrame) {
    auto essence = LoadTestData("essence/dv25-5994i.dif");
    for (const size_t frame : {0u, 1u}) {
        const auto at = [&](size_t offset) { return frame * 120000 + offset; };
        const auto n = static_cast<uint8_t>(frame);
        Patch(essence, at(94), Join({Hex("14 12 34 56"), {n}}));           // user bits in the subcode
        Patch(essence, at(268), Join({Hex("64 AB CD EF"), {n}}));          // and in VAUX
        Patch(essence, at(245), {static_cast<uint8_t>(0x9F + 0x10 * n)});  // colour frame 1 and 2, valid
        Patch(essence, at(323), Hex(kBasicUMID));
        Patch(essence, at(323 + 31), {n});
    }
    MustOpen(VideoFile(kDV25At5994i, {}, essence));
    CUsersBit usersBit;
    EXPECT_EQ(0, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 00 ", UsersBitText(usersBit));
    EXPECT_EQ(0, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 01 ", UsersBitText(usersBit));
    EXPECT_EQ(0, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2));
    EXPECT_EQ("AB CD EF 01 ", UsersBitText(usersBit));
    uint8_t clf = 0;
    EXPECT_EQ(0, reader.GetEndCLF(&clf));
    EXPECT_EQ(2, clf);
    EXPECT_EQ(0, reader.GetDIFCLF(0, &clf));
    EXPECT_EQ(1, clf);
    for (const auto& [get, last] :
         {std::pair{&CReadMXFVideo::GetStartUMID, 0}, std::pair{&CReadMXFVideo::GetEndUMID, 1}}) {
        MXFUMIDEXTag umid;
        std::ranges::fill(umid.bytes, uint8_t{0x77});
        EXPECT_EQ(0, (reader.*get)(&umid));
        auto expected = Hex(kBasicUMID);
        expected[31] = static_cast<uint8_t>(last);
        expected.resize(64);
        EXPECT_TRUE(SameBytes(expected, umid.bytes));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, RealIECDVTells) {
    auto essence = LoadTestData("essence/dv25-50i-iec.dif");
    Patch(essence, 323, Hex(kBasicUMID));
    MustOpen(VideoFile(kIECAt50i, {}, essence));
    ExpectStartAndEnd("23:59:59:20", "23:59:59:21");
    // The UMID of consumer DV is not looked for.
    const int before = stream->CountOfAll();
    MXFUMIDEXTag umid;
    std::ranges::fill(umid.bytes, uint8_t{0x77});
    EXPECT_EQ(0, reader.GetStartUMID(&umid));
    EXPECT_EQ(0, reader.GetEndUMID(&umid));
    EXPECT_TRUE(SameBytes(ByteVector(64, 0x77), umid.bytes));
    EXPECT_EQ(before, stream->CountOfAll());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusFailure, reader.GetStartUMID(nullptr));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetDIFUMID: Error.", "CReadMXFVideo::GetStartUMID: GetUMID Error."));
}

TEST_F(ReadMXFVideo, OddFramesOf720LinesAreTheSecondOfTheirUnit) {
    auto essence = LoadTestData("essence/dv100-720-5994p.dif");
    // The real pair has one timecode twice. The first pack of the second frame says 28 now, and the one that is read
    // without the unit 29.
    Patch(essence, 240000 + 86, Hex("13 68"));
    Patch(essence, 240000 + 110, Hex("13 69"));
    Patch(essence, 94, Hex("14 01 02 03 04"));
    Patch(essence, 240000 + 94, Hex("14 05 06 07 08"));
    Patch(essence, 245, {0x8F});           // colour frame 0
    Patch(essence, 240000 + 245, {0xBF});  // colour frame 3
    MustOpen(DV720File(kDV720At60, kRate5994, Join({essence, essence})));
    ExpectTotal(4);
    for (const uint32_t pair : {0u, 2u}) {
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetDIFTimecode(pair, &timecode));
        EXPECT_EQ("00:08:59;27", timecode.GetText());
        EXPECT_EQ(0x0200007Cu, timecode.GetVideoStd());
        EXPECT_EQ(0, reader.GetDIFTimecode(pair + 1, &timecode));
        EXPECT_EQ("00:08:59;28", timecode.GetText());
        ExpectTimecode(pair, "00:08:59;27");
        ExpectTimecode(pair + 1, "00:08:59;29");  // of the odd frame's own bytes
        CUsersBit usersBit;
        EXPECT_EQ(0, reader.GetDIFUsersBit(pair, &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ("01 02 03 04 ", UsersBitText(usersBit));
        EXPECT_EQ(0, reader.GetDIFUsersBit(pair + 1, &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ("05 06 07 08 ", UsersBitText(usersBit));
        uint8_t clf = 9;
        EXPECT_EQ(0, reader.GetDIFCLF(pair, &clf));
        EXPECT_EQ(0, clf);
        EXPECT_EQ(0, reader.GetDIFCLF(pair + 1, &clf));
        EXPECT_EQ(3, clf);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, UMIDOf720LinesIsThatOfTheUnit) {
    auto essence = LoadTestData("essence/dv100-720-5994p.dif");
    Patch(essence, 240000 + 323, Hex(kBasicUMID));
    MustOpen(DV720File(kDV720At60, kRate5994, essence));
    auto expected = Hex(kBasicUMID);
    expected.resize(64);
    MXFUMIDEXTag umid;
    EXPECT_EQ(0, reader.GetStartUMID(&umid));
    EXPECT_TRUE(SameBytes(expected, umid.bytes));
    umid = {};
    EXPECT_EQ(0, reader.GetEndUMID(&umid));
    EXPECT_TRUE(SameBytes(expected, umid.bytes));
}

TEST_F(ReadMXFVideo, RealAVCIntraTells) {
    MustOpen(AVCIFile("31 01", kRate2997, Join({ByteVector(512), LoadTestData("essence/avci100-1080-5994i.raw")})));
    ExpectTotal(2);
    ExpectStartAndEnd("02:03:59;25", "02:03:59;26");
    ExpectTimecode(1, "02:03:59;26");
    CUsersBit usersBit;
    EXPECT_EQ(0, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 78 ", UsersBitText(usersBit));
    EXPECT_EQ(0, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 78 ", UsersBitText(usersBit));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusNotFound, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetEndUsersBit: GetUsersBit Error."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, TimecodeOfAVCIntraReadsTheSEIAreaAlone) {
    MustOpen(AVCIFile("31 01", kRate2997, Join({ByteVector(512), LoadTestData("essence/avci100-1080-5994i.raw")})));
    const int before = stream->CountOfAll();
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_THAT(CallsSince(before), ElementsAre("Seek 505344 0", "GetPieceAllocator", "Allocate 512", "Read 512"));
}

TEST_F(ReadMXFVideo, TimecodeOfAVCIntraTakesTheStandardOfTheFile) {
    auto essence = LoadTestData("essence/avci50-720-5994p-header.raw");
    Patch(essence, 512 + 34, Hex("13 FF 24 59 FF 58 23 FF"));
    MustOpen(AVCIFile("21 08", "00 00 00 19 00 00 00 01", essence));
    ExpectTotal(3);
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
    EXPECT_EQ(0x02000099u, timecode.GetVideoStd());
    EXPECT_EQ(((23u * 60 + 58) * 60 + 59) * 25 + 24, timecode.GetTotalFrame());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode)) << "a pack of zeros";
    EXPECT_EQ("00:00:00:00", timecode.GetText());
}

TEST_F(ReadMXFVideo, UMIDOfAVCIntraIsNotAFailureWhenAbsent) {
    auto essence = Join({ByteVector(512), LoadTestData("essence/avci100-1080-5994i.raw")});
    Patch(essence, 512 + 472064 + 66, Hex(kBasicUMID));
    MustOpen(AVCIFile("31 01", kRate2997, essence));
    MXFUMIDEXTag umid;
    std::ranges::fill(umid.bytes, uint8_t{0x77});
    EXPECT_EQ(0, reader.GetStartUMID(&umid));
    EXPECT_TRUE(SameBytes(ByteVector(64, 0x77), umid.bytes));
    EXPECT_EQ(0, reader.GetEndUMID(&umid));
    auto expected = Hex(kBasicUMID);
    expected.resize(64);
    EXPECT_TRUE(SameBytes(expected, umid.bytes));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, AVCIntraWithoutSEICarriesNothing) {
    MustOpen(AVCI50File(1));
    CTimecode timecode;
    CUsersBit usersBit;
    EXPECT_EQ(kStatusNotFound, reader.GetStartTimecode(&timecode));
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(0, &timecode));
    EXPECT_EQ(kStatusNotFound, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error.",
                                         "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error."));
}

TEST_F(ReadMXFVideo, ColourFrameOfAVCIntraIsNotFoundWithoutALog) {
    MustOpen(AVCI50File(1));
    uint8_t clf = 9;
    EXPECT_EQ(kStatusNotFound, reader.GetEndCLF(&clf));
    EXPECT_EQ(kStatusNotFound, reader.GetEndCLF(nullptr));
    EXPECT_EQ(9, clf);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, TimecodeThatTheStandardCannotCountIsAFailure) {
    auto essence = LoadTestData("essence/dv25-50i-iec.dif");
    Patch(essence, 86, Hex("13 27 59 59 23"));  // frame 27 of 25
    MustOpen(VideoFile(kIECAt50i, {}, essence));
    CTimecode timecode;
    EXPECT_EQ(kStatusInvalidArgument, reader.GetDIFTimecode(0, &timecode));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFTimecode: GetTimecode Error."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, EndPositionMovesTheLastFrame) {
    EXPECT_EQ(kStatusWrongState, reader.SetEndPosition(1));
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    CTimecode timecode;
    EXPECT_EQ(0, reader.SetEndPosition(1));
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;04", timecode.GetText());
    EXPECT_EQ(0, reader.SetEndPosition(99));
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;05", timecode.GetText()) << "no further than the total";
    ExpectTotal(2);
    reader.SetEndPosition(1);
    EXPECT_EQ(0, reader.ReadHeader());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;05", timecode.GetText()) << "the header sets it back";
}

TEST_F(ReadMXFVideo, EndPositionOfZeroLeadsPastTheFile) {
    const auto expectUnreadable = [this](const OpAtomFile& file, int32_t clfStatus,
                                         const std::vector<std::string>& lines) {
        MustOpen(file);
        reader.SetEndPosition(0);
        CTimecode timecode;
        CUsersBit usersBit;
        MXFUMIDEXTag umid;
        uint8_t clf = 0;
        EXPECT_EQ(kStatusIoError, reader.GetEndTimecode(&timecode));
        EXPECT_EQ(kStatusIoError, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ(kStatusIoError, reader.GetEndUMID(&umid));
        EXPECT_EQ(clfStatus, reader.GetEndCLF(&clf));
        EXPECT_EQ(lines, log.Lines());
        ExpectNothingHeld();
    };
    expectUnreadable(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")), kStatusIoError,
                     {"CReadMXFVideo::GetTimecode: Read Error.", "CReadMXFVideo::GetEndTimecode: GetTimecode Error.",
                      "CReadMXFVideo::GetDIFData: Read Error.", "CReadMXFVideo::GetDIFUsersBit: GetDIFData Error.",
                      "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error.", "CReadMXFVideo::GetDIFData: Read Error.",
                      "CReadMXFVideo::GetDIFUMID: GetDIFData Error.", "CReadMXFVideo::GetEndUMID: GetUMID Error.",
                      "CReadMXFVideo::GetDIFData: Read Error.", "CReadMXFVideo::GetDIFCLF: GetDIFData Error.",
                      "CReadMXFVideo::GetEndCLF: GetCLF Error."});
    // The colour frame of AVC-Intra is never there.
    expectUnreadable(AVCI50File(1), kStatusNotFound,
                     {"CReadMXFVideo::GetSEIData: Read Error.", "CReadMXFVideo::GetAVCITimecode: GetSEIData Error.",
                      "CReadMXFVideo::GetEndTimecode: GetTimecode Error.", "CReadMXFVideo::GetSEIData: Read Error.",
                      "CReadMXFVideo::GetAVCIUsersBit: GetSEIData Error.",
                      "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error.", "CReadMXFVideo::GetSEIData: Read Error.",
                      "CReadMXFVideo::GetAVCIUMID: GetSEIData Error.", "CReadMXFVideo::GetEndUMID: GetUMID Error."});
}

TEST_F(ReadMXFVideo, FrameReadersNeedTheHeaderAnOutputAndTheirKindOfPicture) {
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    uint8_t clf = 0;
    const auto dif = [&](bool null) {
        EXPECT_EQ(kStatusFailure, reader.GetDIFTimecode(0, null ? nullptr : &timecode));
        EXPECT_EQ(kStatusFailure, reader.GetDIFUsersBit(0, null ? nullptr : &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ(kStatusFailure, reader.GetDIFUMID(0, null ? nullptr : &umid));
        EXPECT_EQ(kStatusFailure, reader.GetDIFCLF(0, null ? nullptr : &clf));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("CReadMXFVideo::GetDIFTimecode: Error.", "CReadMXFVideo::GetDIFUsersBit: Error.",
                                "CReadMXFVideo::GetDIFUMID: Error.", "CReadMXFVideo::GetDIFCLF: Error."));
        log.Clear();
    };
    const auto avci = [&](bool null) {
        EXPECT_EQ(kStatusFailure, reader.GetAVCITimecode(0, null ? nullptr : &timecode));
        EXPECT_EQ(kStatusFailure, reader.GetAVCIUsersBit(0, null ? nullptr : &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ(kStatusFailure, reader.GetAVCIUMID(0, null ? nullptr : &umid));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("CReadMXFVideo::GetAVCITimecode: Error.", "CReadMXFVideo::GetAVCIUsersBit: Error.",
                                "CReadMXFVideo::GetAVCIUMID: Error."));
        log.Clear();
    };
    dif(false);
    avci(false);
    MustOpen(DV25File(1));
    dif(true);
    avci(false);
    MustOpen(AVCI50File(1));
    dif(false);
    avci(true);
    EXPECT_TRUE(reader.IsOpened());
}

TEST_F(ReadMXFVideo, EndsOfTheClipLogWhatTheirFrameReadersReport) {
    MustOpen(DV25File(1));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetStartTimecode(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetEndTimecode(nullptr));
    EXPECT_EQ(kStatusFailure, reader.GetEndCLF(nullptr));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error.",
                            "CReadMXFVideo::GetEndTimecode: GetTimecode Error.", "CReadMXFVideo::GetDIFCLF: Error.",
                            "CReadMXFVideo::GetEndCLF: GetCLF Error."));
    reader.Close();
    log.Clear();
    CTimecode timecode;
    CUsersBit usersBit;
    EXPECT_EQ(kStatusWrongState, reader.GetStartTimecode(&timecode));
    EXPECT_EQ(kStatusFailure, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error.",
                                         "CReadMXFVideo::GetDIFUsersBit: Error.",
                                         "CReadMXFVideo::GetStartUsersBit: GetUsersBit Error."));
}

TEST_F(ReadMXFVideo, FailingSeekOfAFrameReaderGivesEverythingBack) {
    MustOpen(DV25File(1));
    stream->FailAll(Op::kSeek);
    CUsersBit usersBit;
    EXPECT_EQ(kStatusIoError, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error.", "CReadMXFVideo::GetDIFData: Seek Error.",
                                         "CReadMXFVideo::GetDIFUsersBit: GetDIFData Error.",
                                         "CReadMXFVideo::GetStartUsersBit: GetUsersBit Error."));
    EXPECT_FALSE(reader.IsOpened());
    ExpectNothingHeld();
}

}  // namespace
}  // namespace kmxf::test
