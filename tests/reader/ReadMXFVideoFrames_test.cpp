#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "reader/FailingAllocation.h"
#include "reader/VideoReading.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFVideo, HandsOutFramesInAnyOrder) {
    const auto essence = NumberedFrames(5, 120000);
    MustOpen(VideoFile(kDV25At5994i, {}, essence));
    ExpectTotal(5);
    for (const uint32_t frame : {0u, 1u, 2u, 3u, 4u, 3u, 0u, 4u}) {
        EXPECT_TRUE(SameBytes(ByteVector(120000, static_cast<uint8_t>(frame + 1)),
                              Take(&CReadMXFVideo::GetFrameData, frame, 120000)));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, FramesOfAVCIntraStandBehindTheirHeader) {
    MustOpen(AVCI50File(3));
    ExpectTotal(3);
    for (const uint32_t frame : {2u, 0u, 1u}) {
        const auto expected = static_cast<uint8_t>(frame + 1);
        EXPECT_TRUE(SameBytes(ByteVector(116224, expected), Take(&CReadMXFVideo::GetFrameData, frame, 116224)));
        EXPECT_TRUE(SameBytes(ByteVector(512, expected), Take(&CReadMXFVideo::GetSEIData, frame, 512)));
    }
}

TEST_F(ReadMXFVideo, EachGetterSeeksOnceAndReadsOnce) {
    MustOpen(DV25File(2));
    int before = stream->CountOfAll();
    Take(&CReadMXFVideo::GetFrameData, 1, 120000);
    EXPECT_THAT(CallsSince(before),
                ElementsAre("Seek 152768 0", "GetPieceAllocator", "Allocate 120000", "Read 120000"));
    before = stream->CountOfAll();
    Take(&CReadMXFVideo::GetDIFData, 1, 576000);
    EXPECT_THAT(CallsSince(before),
                ElementsAre("Seek 152768 0", "GetPieceAllocator", "Allocate 120000", "Read 120000"));
    before = stream->CountOfAll();
    Take(&CReadMXFVideo::GetSEIData, 1, 512);
    EXPECT_THAT(CallsSince(before), ElementsAre("Seek 152768 0", "GetPieceAllocator", "Allocate 512", "Read 512"));
}

TEST_F(ReadMXFVideo, DIFUnitIsTheStartOfALargeBuffer) {
    MustOpen(DV25File(2));
    auto expected = ByteVector(120000, 2);
    expected.resize(576000);
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 1, 576000)));
}

TEST_F(ReadMXFVideo, LargestDIFUnitFillsTheBuffer) {
    MustOpen(VideoFile("02 02 61 02", {}, NumberedFrames(2, 576000)));
    EXPECT_TRUE(SameBytes(ByteVector(576000, 2), Take(&CReadMXFVideo::GetDIFData, 1, 576000)));
    MustOpen(DV720File(kDV720At50, "00 00 00 32 00 00 00 01", NumberedFrames(2, 288000)));
    EXPECT_TRUE(SameBytes(NumberedFrames(2, 288000), Take(&CReadMXFVideo::GetDIFData, 1, 576000)));
}

TEST_F(ReadMXFVideo, DIFUnitOf720LinesIsAPairOfFrames) {
    MustOpen(DV720File(kDV720At60, kRate5994, NumberedFrames(6, 240000)));
    ExpectFormat(0x0200007C, 0x4E00, 240000);
    uint32_t unit = 0;
    EXPECT_EQ(reader.GetDIFDataSize(&unit), kStatusOk);
    EXPECT_EQ(unit, 480000u);
    auto expected = ByteVector(240000, 5);
    expected.resize(480000, 6);
    expected.resize(576000);
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 5, 576000)));
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 4, 576000)));
    EXPECT_TRUE(SameBytes(ByteVector(240000, 6), Take(&CReadMXFVideo::GetFrameData, 5, 240000))) << "but one frame";
}

TEST_F(ReadMXFVideo, DIFUnitOf720LinesAtAnUnknownRateIsTheEvenFrame) {
    MustOpen(DV720File(kDV720At60, "00 00 00 00 00 00 00 00", NumberedFrames(4, 240000)));
    auto expected = ByteVector(240000, 3);
    expected.resize(576000);
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 3, 576000)));
}

TEST_F(ReadMXFVideo, LastUnitOfAnOddCountRunsIntoWhatFollowsTheEssence) {
    auto bytes = DV720File(kDV720At60, kRate5994, NumberedFrames(3, 240000)).Bytes();
    ASSERT_EQ(0, Open(bytes));
    ExpectTotal(3);
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusIoError, reader.GetDIFData(2, &data)) << "a footer of 124 bytes is too short";
    EXPECT_EQ(nullptr, data);
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFData: Read Error."));
    EXPECT_TRUE(reader.IsOpened());
    bytes.resize(bytes.size() + 239876, 0xAB);
    ASSERT_EQ(0, Open(bytes));
    const auto unit = Take(&CReadMXFVideo::GetDIFData, 2, 576000);
    EXPECT_EQ(3, unit.at(239999));
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05"), std::span(unit).subspan(240000, 6)));
    EXPECT_EQ(0xAB, unit.at(479999));
}

TEST_F(ReadMXFVideo, FramePastTheLastOneIsWhatFollowsTheEssence) {
    auto bytes = DV25File(1).Bytes();
    ASSERT_EQ(0, Open(bytes));
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusIoError, reader.GetFrameData(1, &data));
    EXPECT_EQ(kStatusIoError, reader.GetFrameData(0xFFFFFFFF, &data));
    EXPECT_EQ(nullptr, data);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetFrameData: Read Error.", "CReadMXFVideo::GetFrameData: Read Error."));
    EXPECT_TRUE(reader.IsOpened()) << "the data getters close nothing";
    bytes.resize(bytes.size() + 120000);
    ASSERT_EQ(0, Open(bytes));
    const auto footer = Take(&CReadMXFVideo::GetFrameData, 1, 120000);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34"), std::span(footer).first(4)));
}

struct DataGetter {
    const char* name;
    int32_t (CReadMXFVideo::*get)(uint32_t, uint8_t**);
    const char* noPiece;
    size_t bufferSize;
};
constexpr DataGetter kDataGetters[] = {
    {"CReadMXFVideo::GetFrameData", &CReadMXFVideo::GetFrameData, "Allocate Error.", 120000},
    {"CReadMXFVideo::GetDIFData", &CReadMXFVideo::GetDIFData, "Allocte Error.", 576000},
    {"CReadMXFVideo::GetSEIData", &CReadMXFVideo::GetSEIData, "Allocate Error.", 512},
};

TEST_F(ReadMXFVideo, DataGettersNeedTheHeaderAndAPointer) {
    for (const auto& getter : kDataGetters) {
        const std::string error = std::string(getter.name) + ": Error.";
        reader.Close();
        log.Clear();
        uint8_t kept = 0, *data = &kept;
        EXPECT_EQ(kStatusFailure, (reader.*getter.get)(0, &data));
        EXPECT_EQ(&kept, data);
        EXPECT_THAT(log.Lines(), ElementsAre(error));
        MustOpen(DV25File(1));
        EXPECT_EQ(kStatusFailure, (reader.*getter.get)(0, nullptr));
        EXPECT_THAT(log.Lines(), ElementsAre(error));
        EXPECT_TRUE(reader.IsOpened());
    }
}

TEST_F(ReadMXFVideo, FailingOperationsOfTheDataGettersLeaveTheFileOpen) {
    struct Case {
        Op op;
        Fault fault;
        int32_t status;
        const char* message;  // null: the getter's own
    };
    for (const auto& getter : kDataGetters) {
        for (const auto& [op, fault, status, message] : {
                 Case{Op::kGetPieceAllocator, Fault::kFail, kStatusNoMemory, nullptr},
                 Case{Op::kAllocate, Fault::kFail, kStatusNoMemory, nullptr},
                 Case{Op::kRead, Fault::kFail, kStatusIoError, "Read Error."},
                 Case{Op::kRead, Fault::kShort, kStatusIoError, "Read Error."},
                 Case{Op::kRead, Fault::kEndOfFile, kStatusIoError, "Read Error."},
             }) {
            MustOpen(DV25File(1));
            stream->FailAll(op, fault);
            uint8_t kept = 0, *data = &kept;
            EXPECT_EQ(status, (reader.*getter.get)(0, &data));
            EXPECT_EQ(&kept, data);
            EXPECT_THAT(log.Lines(),
                        ElementsAre(std::string(getter.name) + ": " + (message ? message : getter.noPiece)));
            EXPECT_EQ("ReadMXFVideo", log.Records().at(0).sourceFile);
            EXPECT_TRUE(reader.IsOpened());
            ExpectNothingHeld();
        }
    }
}

TEST_F(ReadMXFVideo, FailingSeekOfADataGetterIsLoggedTwiceAndCloses) {
    for (const auto& getter : kDataGetters) {
        const std::string error = std::string(getter.name) + ": Seek Error.";
        MustOpen(DV25File(1));
        stream->FailAll(Op::kSeek);
        uint8_t* data = nullptr;
        EXPECT_EQ(kStatusIoError, (reader.*getter.get)(0, &data));
        EXPECT_EQ(nullptr, data);
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error.", error));
        EXPECT_FALSE(reader.IsOpened());
        ExpectNothingHeld();

        MustOpen(DV25File(1));
        reader.SetFrameDataSize(0);
        EXPECT_EQ(kStatusWrongState, (reader.*getter.get)(0, &data));
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init.", error));
        EXPECT_FALSE(reader.IsOpened());
    }
}

TEST_F(ReadMXFVideo, RunningOutOfMemoryForTheBufferIsAStatus) {
    for (const auto& getter : kDataGetters) {
        MustOpen(DV25File(1));
        uint8_t* data = nullptr;
        int32_t status = 0;
        {
            const FailingAllocation noMemory(FailingAllocation::By::kMalloc, getter.bufferSize);
            status = (reader.*getter.get)(0, &data);
        }
        EXPECT_EQ(kStatusNoMemory, status);
        EXPECT_EQ(nullptr, data);
        EXPECT_THAT(log.Lines(), ElementsAre(std::string(getter.name) + ": Error."));
        EXPECT_TRUE(reader.IsOpened());
        ExpectNothingHeld();
    }
}

TEST_F(ReadMXFVideo, AVCIntraHasNoDIFUnits) {
    MustOpen(AVCI50File(1));
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusFailure, reader.GetDIFData(0, &data));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFData: Error."));
}

TEST_F(ReadMXFVideo, DIFUnitThatTheBufferCannotHoldIsRefused) {
    MustOpen(DV720File(kDV720At60, kRate5994, NumberedFrames(4, 240000)));
    reader.SetFrameDataSize(288001);
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusFailure, reader.GetDIFData(0, &data));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFData: Error."));
    reader.SetFrameDataSize(288000);
    EXPECT_EQ(576000u, Take(&CReadMXFVideo::GetDIFData, 0, 576000).size());
}

TEST_F(ReadMXFVideo, ReleasingNothingIsAllowed) {
    EXPECT_EQ(0, reader.ReleaseFrameData(nullptr));
    EXPECT_EQ(0, reader.ReleaseDIFData(nullptr));
    EXPECT_EQ(0, reader.ReleaseSEIData(nullptr));
}

TEST_F(ReadMXFVideo, AnyReleaseFreesAnyBuffer) {
    MustOpen(DV25File(1));
    uint8_t *frame = nullptr, *unit = nullptr, *area = nullptr;
    ASSERT_EQ(0, reader.GetFrameData(0, &frame));
    ASSERT_EQ(0, reader.GetDIFData(0, &unit));
    ASSERT_EQ(0, reader.GetSEIData(0, &area));
    reader.Close();
    EXPECT_EQ(0, reader.ReleaseDIFData(frame));
    EXPECT_EQ(0, reader.ReleaseSEIData(unit));
    EXPECT_EQ(0, reader.ReleaseFrameData(area));
}

TEST_F(ReadMXFVideo, RealFramesComeOutAsTheyWentIn) {
    const auto essence = LoadTestData("essence/dv50-50i.dif");
    MustOpen(VideoFile("02 02 51 02", {}, essence));
    ExpectTotal(2);
    EXPECT_TRUE(SameBytes(
        essence, Join({Take(&CReadMXFVideo::GetFrameData, 0, 288000), Take(&CReadMXFVideo::GetFrameData, 1, 288000)})));
    ExpectStartAndEnd("12:34:56:18", "12:34:56:19");
}

}  // namespace
}  // namespace kmxf::test
