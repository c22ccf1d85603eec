#include "kmxf/tools/SalvageMXF.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "support/Hex.h"
#include "support/TestData.h"
#include "tools/AtomSalvage.h"

// What the first and the last frame say.
namespace kmxf::test {
namespace {

using testing::ElementsAre;

std::string Text(const CTimecode& timecode) { return timecode.GetText(); }

TEST_F(SalvageMXF, FirstFrameTellsTimecodeAndUserBits) {
    const struct {
        const char* file;
        AtomFormat format;
        const char* timecode;
        Bytes usersBit;
    } kRows[] = {
        {"dv25-5994i.dif", Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), "01:02:03;04", {}},
        {"dv50-50i.dif", Video(VIDEO_STD_50I, COMP_TYPE_DV50), "12:34:56:18", {}},
        {"dv100-720-5994p.dif", Video(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P), "00:08:59;27", {}},
        {"avci100-1080-5994i.raw",
         Video(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080),
         "02:03:59;25",
         {0x12, 0x34, 0x56, 0x78}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.file);
        const Bytes file = CutOff(row.format, LoadTestData(std::string("essence/") + row.file));
        ASSERT_EQ(Salvage(row.format, file, true), kStatusOk);
        ExpectWhole(row.format, file, 2, row.format.InFront() + 2 * row.format.FrameSize());
        CTimecode timecode;
        EXPECT_EQ(salvager->GetStartTimecode(&timecode), kStatusOk);
        EXPECT_EQ(Text(timecode), row.timecode);
        EXPECT_EQ(timecode.GetVideoStd(), row.format.videoStd);
        EXPECT_EQ(Text(salvager->GetStartTimecode()), row.timecode);
        CUsersBit usersBit;
        Bytes bits(4);
        EXPECT_EQ(salvager->GetStartUsersBit(&usersBit), row.usersBit.empty() ? kStatusNotFound : kStatusOk);
        usersBit.GetData(bits.data());
        EXPECT_EQ(bits, row.usersBit.empty() ? Bytes(4) : row.usersBit);
        salvager->GetStartUsersBit().GetData(bits.data());
        EXPECT_EQ(bits, row.usersBit.empty() ? Bytes(4) : row.usersBit);
        MXFUMIDEXTag umid;
        EXPECT_EQ(salvager->GetStartUMID(&umid), kStatusNotFound);
        EXPECT_EQ(salvager->GetEndDIFUMID(&umid), kStatusNotFound);
        EXPECT_EQ(salvager->GetStartUMID(), MXFUMIDEXTag());
    }
}

// A basic UMID as it stands in the VAUX packs of the first DIF sequence of a frame, with this last byte.
void PutUMID(Bytes& essence, size_t frameAt, uint8_t last) {
    Bytes umid = Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0");
    umid.back() = last;
    std::ranges::copy(umid, essence.begin() + static_cast<std::ptrdiff_t>(frameAt + 243 + 80 + 20));
}

TEST_F(SalvageMXF, FirstAndLastFrameKeptTellTheirUMIDs) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    Bytes essence = LoadTestData("essence/dv25-5994i.dif");
    const Bytes again = essence;
    essence.insert(essence.end(), again.begin(), again.end());
    for (size_t frame = 0; frame < 4; ++frame) PutUMID(essence, frame * 120000, static_cast<uint8_t>(0xA0 + frame));
    Bytes file = CutOff(format, essence);
    file.pop_back();  // the last one is not whole
    ASSERT_EQ(Salvage(format, file, true), kStatusOk);
    MXFUMIDEXTag first, last, dif;
    EXPECT_EQ(salvager->GetStartUMID(&first), kStatusOk);
    EXPECT_EQ(salvager->GetEndUMID(&last), kStatusOk);
    EXPECT_EQ(first.bytes[31], 0xA0);
    EXPECT_EQ(first.bytes[32], 0x00);
    EXPECT_EQ(last.bytes[31], 0xA2);
    EXPECT_EQ(salvager->GetStartUMID(), first);
    EXPECT_EQ(salvager->GetEndUMID(), last);
    EXPECT_EQ(salvager->GetStartDIFUMID(&dif), kStatusOk);
    EXPECT_EQ(dif, first);
    EXPECT_EQ(salvager->GetEndDIFUMID(&dif), kStatusOk);
    EXPECT_EQ(dif, last);
}

TEST_F(SalvageMXF, UMIDOfAVCIntraIsNoDIFUMID) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080);
    Bytes essence = LoadTestData("essence/avci100-1080-5994i.raw");
    const Bytes umid =
        Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 11 22 33 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0");
    std::ranges::copy(umid, essence.begin() + 58);  // the first pack that is free
    ASSERT_EQ(Salvage(format, CutOff(format, essence), true), kStatusOk);
    MXFUMIDEXTag found;
    EXPECT_EQ(salvager->GetStartUMID(&found), kStatusOk);
    EXPECT_TRUE(SameBytes(umid, std::span(found.bytes).first(32)));
    EXPECT_EQ(salvager->GetStartDIFUMID(&found), kStatusNotFound);
    EXPECT_EQ(salvager->GetEndUMID(&found), kStatusNotFound);
}

TEST_F(SalvageMXF, ConsumerDVIsToldByItsEssence) {
    const AtomFormat format = Video(VIDEO_STD_50I, COMP_TYPE_DV25);
    const auto isConsumerDV = [&] {
        CMemoryFileIO reading(stream->Bytes());
        CReadMXFVideo reader;
        reader.SetFilename("cut.mxf");
        EXPECT_EQ(reader.Open(&reading, true), kStatusOk);
        return reader.IsConsumerDV();
    };
    ASSERT_EQ(Salvage(format, CutOff(format, LoadTestData("essence/dv25-50i-iec.dif")), true), kStatusOk);
    EXPECT_TRUE(isConsumerDV());
    EXPECT_EQ(Text(salvager->GetStartTimecode()), "23:59:59:20");
    ASSERT_EQ(Salvage(format, CutOff(format, VideoEssence(format, 2)), true), kStatusOk);
    EXPECT_FALSE(isConsumerDV());
}

TEST_F(SalvageMXF, FramesWithoutValuesAndSoundGiveNone) {
    const auto expectNone = [&] {
        CTimecode timecode(5, false);
        CUsersBit usersBit;
        MXFUMIDEXTag umid;
        umid.bytes[0] = 7;
        EXPECT_EQ(salvager->GetStartTimecode(&timecode), kStatusNotFound);
        EXPECT_EQ(timecode.GetTotalFrame(), 5u);
        EXPECT_EQ(salvager->GetStartUsersBit(&usersBit), kStatusNotFound);
        EXPECT_EQ(salvager->GetStartUMID(&umid), kStatusNotFound);
        EXPECT_EQ(salvager->GetEndUMID(&umid), kStatusNotFound);
        EXPECT_EQ(salvager->GetStartDIFUMID(&umid), kStatusNotFound);
        EXPECT_EQ(salvager->GetEndDIFUMID(&umid), kStatusNotFound);
        EXPECT_EQ(umid.bytes[0], 7);
        EXPECT_EQ(salvager->GetStartTimecode().GetTotalFrame(), 0u);
        EXPECT_EQ(salvager->GetEndUMID(), MXFUMIDEXTag());
    };
    salvager = std::make_unique<CSalvageMXF>(true);
    expectNone();
    for (const AtomFormat& format :
         {Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Video(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080)}) {
        ASSERT_EQ(Salvage(format, Bytes(kHeaderArea + 512 + 2 * format.FrameSize()), true), kStatusOk);
        expectNone();
    }
    ASSERT_EQ(Salvage(Sound(VIDEO_STD_50I), Bytes(kHeaderArea + 3840), true), kStatusOk);
    expectNone();
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    ASSERT_EQ(Salvage(format, CutOff(format, LoadTestData("essence/dv25-5994i.dif")), true), kStatusOk);
    CTimecode timecode;
    EXPECT_EQ(salvager->GetStartTimecode(&timecode), kStatusOk);
    EXPECT_EQ(Run(), kStatusInvalidArgument);
    expectNone();
}

TEST_F(SalvageMXF, FrameThatCannotBeReadDoesNotCostTheOthers) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const Bytes file = CutOff(format, LoadTestData("essence/dv25-5994i.dif"));
    for (const Fault fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile}) {
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        stream->FailNth(Op::kRead, 1, fault);
        ASSERT_EQ(Run(), kStatusOk);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::GetVideoParam: Read Error."));
        CTimecode timecode;
        EXPECT_EQ(salvager->GetStartTimecode(&timecode), kStatusNotFound);
        log.Clear();
        ExpectWhole(format, file, 2, 240000);
    }
}

}  // namespace
}  // namespace kmxf::test
