#include "kmxf/tools/SalvageMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>

#include "kmxf/collaborators/Log.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/TestData.h"
#include "tools/ClipSalvage.h"

// What the salvaged file holds, and the results of a run.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXFOp1b, SalvagedFileIsTheOneThatCloseWouldHaveWritten) {
    for (const RecordedClip& clip :
         {RecordedClip{}, RecordedClip{.channels = 4, .bytesPerSample = 3, .frames = 50},
          RecordedClip{.videoStd = VIDEO_STD_59_94P, .compType = COMP_TYPE_LONGG50_720, .channels = 1, .frames = 240},
          RecordedClip{.videoStd = VIDEO_STD_59_94I, .frames = 61, .players = true},
          RecordedClip{.channels = 0, .frames = 100},
          RecordedClip{.videoStd = VIDEO_STD_23_98P, .compType = COMP_TYPE_LONGG6_1080, .channels = 8, .frames = 96},
          RecordedClip{.frames = 7}, RecordedClip{.frames = 50, .sideData = false}}) {
        SCOPED_TRACE(testing::Message() << clip.videoStd << " " << clip.frames);
        Bytes closed;
        {
            const FixedEnvironment environment;
            closed = Record(clip, true);
        }
        Bytes cut;
        {
            const FixedEnvironment environment;
            cut = Record(clip, false);
        }
        EXPECT_LT(cut.size(), closed.size());
        EXPECT_EQ(NumberAt(cut, 44, 8), 0u);
        {
            const FixedEnvironment environment;
            ASSERT_EQ(Run(cut), kCompleted);
        }
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_TRUE(SameBytes(Renumbered(closed), Renumbered(After())));
        ExpectFrames(clip, clip.frames);
        // And again: nothing changes.
        const Bytes once = After();
        {
            const FixedEnvironment environment;
            ASSERT_EQ(Run(once), kCompleted);
        }
        EXPECT_TRUE(SameBytes(Renumbered(once), Renumbered(After())));
    }
}

TEST_F(SalvageMXFOp1b, ClipWithoutSoundIsSalvaged) {
    const RecordedClip clip{.channels = 0, .frames = 60};
    const Bytes file = Record(clip, false);  // the second group has no index
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(salvager->GetDuration(), 50);
    EXPECT_EQ(salvager->GetBytesPerSample(), 2);
    EXPECT_EQ(salvager->GetAudioDataSize(), 0);
    EXPECT_EQ(salvager->GetClipType(), 0x10100u);
    ExpectFrames(clip, 50);
}

TEST_F(SalvageMXFOp1b, ResultsAreThoseOfTheHeaderAndTheGroupsKept) {
    const FixedEnvironment environment;
    const RecordedClip clip{.bytesPerSample = 3, .frames = 100};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 100);
    int64_t pictures = 0;
    for (uint32_t frame = 0; frame < 100; ++frame) pictures += static_cast<int64_t>((30 + frame % 7 + 3) / 4 * 4);
    EXPECT_EQ(salvager->GetVideoDataSize(), pictures);
    EXPECT_EQ(salvager->GetAudioDataSize(), 100 * 1920 * 3);
    EXPECT_EQ(salvager->GetVideoStandard(), 0x02000099u);
    EXPECT_EQ(salvager->GetCompType(), 0x1000C100u);
    EXPECT_EQ(salvager->GetBytesPerSample(), 3);
    EXPECT_EQ(salvager->GetClipType(), 0x10102u);
    EXPECT_EQ(salvager->GetOrigin(), 0);
    EXPECT_EQ(salvager->GetCreationDate(), (MXFTIMESTAMPTag{2026, 1, 2, 3, 4, 5, 0}));
    EXPECT_EQ(salvager->GetUMID(), SomeUMID());
    EXPECT_EQ(salvager->GetStartTimecode().GetTotalFrame(), 90000u);
    EXPECT_FALSE(salvager->GetStartTimecode().IsDrop()) << "never at 25p";
    uint8_t bits[4]{1, 1, 1, 1};
    salvager->GetStartUsersBit().GetData(bits);
    EXPECT_THAT(bits, ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(salvager->GetStartUMID(), MXFUMIDEXTag());
}

TEST_F(SalvageMXFOp1b, BeforeARunResultsAreEmpty) {
    const CSalvageMXFOp1b fresh;
    EXPECT_EQ(fresh.GetDuration() + fresh.GetVideoDataSize() + fresh.GetAudioDataSize() + fresh.GetOrigin(), 0);
    EXPECT_EQ(fresh.GetVideoStandard() + fresh.GetCompType() + fresh.GetClipType() + fresh.GetBytesPerSample(), 0u);
    EXPECT_EQ(fresh.GetUMID(), MXFUMIDTag());
    EXPECT_EQ(fresh.GetStartUMID(), MXFUMIDEXTag());
    EXPECT_EQ(fresh.GetCreationDate(), MXFTIMESTAMPTag());
    EXPECT_EQ(fresh.GetStartTimecode().GetTotalFrame(), 0u);
}

TEST_F(SalvageMXFOp1b, MetadataOfAFinishedHeaderSurvives) {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Reporter");
    metadata.SetFamilyName("Family");
    metadata.SetFirstGivenName("Given");
    metadata.SetProjectNumber("P-17");
    metadata.SetProjectName("Project");
    metadata.SetTakeNumber(5);
    metadata.SetSceneNumber("42b");
    for (const bool players : {false, true}) {
        const RecordedClip clip{.frames = 50, .players = players};
        Bytes closed;
        {
            const FixedEnvironment environment;
            closed = Record(clip, true, metadata);
        }
        Bytes cut = closed;
        cut.resize(GroupStarts(closed, 2).back() + 100);  // the copy ended in the footer
        {
            const FixedEnvironment environment;
            ASSERT_EQ(Run(cut), kCompleted);
        }
        EXPECT_TRUE(SameBytes(Renumbered(closed), Renumbered(After())));
    }
}

TEST_F(SalvageMXFOp1b, FramesInFrontCountForTheOrigin) {
    RecordedClip clip{.frames = 100};
    for (const uint32_t frame : {1u, 2u, 3u, 60u}) clip.entries[frame] = {0, 0x3B};  // only the first group's count
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(salvager->GetOrigin(), 3);
    EXPECT_EQ(salvager->GetDuration(), 100);
    ExpectFrames(clip, 100);
    clip.entries[4] = {0, 0x3B};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    ASSERT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::GetOutOfRangeFrame: Invalid  OutOfRangeFrame."));
    EXPECT_EQ(log.Records().front().level, kLogError);
    EXPECT_EQ(log.Records().front().sourceFile, "SalvageMXFOp1b");
    EXPECT_EQ(salvager->GetOrigin(), 0);
}

TEST_F(SalvageMXFOp1b, FramesAtTheEndThatWaitForOthersAreRolledOut) {
    RecordedClip clip{.frames = 100};
    for (const uint32_t frame : {49u, 90u, 97u, 98u, 99u}) clip.entries[frame] = {1, 0x00};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(salvager->GetDuration(), 97);
    EXPECT_EQ(salvager->GetAudioDataSize(), 100 * 1920 * 2);
    ExpectFrames(clip, 100);
    // A negative offset, or 0, ends the count.
    clip.entries[98] = {-1, 0x00};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 99);
    // Of the first group alone, those of the first group
    const Bytes closed = Record(clip, true);
    ASSERT_EQ(Run(First(closed, GroupStarts(closed, 2)[1])), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 49);
}

TEST_F(SalvageMXFOp1b, TooManyFramesToRollOutAreNone) {
    for (const uint32_t count : {4u, 5u, 50u}) {
        RecordedClip clip{.frames = 50};
        for (uint32_t frame = 50 - count; frame < 50; ++frame) clip.entries[frame] = {2, 0x00};
        ASSERT_EQ(Run(Record(clip, false)), kCompleted);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::GetRollOutFrame: Invalid RollOutFrame."));
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    }
}

// Nor does a timecode that came into the header from the first picture.
TEST_F(SalvageMXFOp1b, FramesThatCannotBeShownChangeNothingTheSecondTime) {
    RecordedClip clip{.videoStd = VIDEO_STD_59_94I, .frames = 120};
    clip.firstPicture = First(LoadTestData("essence/longg25-1080-5994i.264"), 20000);
    for (const uint32_t frame : {1u, 2u}) clip.entries[frame] = {0, 0x3B};
    for (const uint32_t frame : {117u, 118u, 119u}) clip.entries[frame] = {1, 0x00};
    const auto salvaged = [&](const Bytes& file) {
        const FixedEnvironment environment;
        EXPECT_EQ(Run(file), kCompleted);
        EXPECT_EQ(salvager->GetOrigin(), 2);
        EXPECT_EQ(salvager->GetDuration(), 117);
        EXPECT_EQ(salvager->GetStartTimecode().GetText(), "03:04:59;25");
        return Renumbered(After());
    };
    const Bytes once = salvaged(Record(clip, false));
    EXPECT_TRUE(SameBytes(once, salvaged(After())));
}

// There is nothing to be shown.
TEST_F(SalvageMXFOp1b, ClipOfFramesThatCannotBeShownIsRefused) {
    RecordedClip clip{.frames = 4};
    for (const uint32_t frame : {1u, 2u, 3u}) clip.entries[frame] = {1, 0x3B};
    ExpectRefused(Record(clip, false), {"CSalvageMXFOp1b::Salvage: Duration is 0."});
}

TEST_F(SalvageMXFOp1b, TimecodeIsThatOfTheFirstPicture) {
    RecordedClip clip{.videoStd = VIDEO_STD_59_94I, .frames = 60};
    clip.firstPicture = First(LoadTestData("essence/longg25-1080-5994i.264"), 20000);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetText(), "03:04:59;25");
    EXPECT_EQ(salvager->GetStartTimecode().GetVideoStd(), VIDEO_STD_59_94I);
    CMemoryFileIO reading(After());
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
    CTimecode timecode;
    ASSERT_EQ(reader.GetStartTimecode(timecode), kStatusOk);
    EXPECT_EQ(timecode.GetText(), "03:04:59;25");
}

TEST_F(SalvageMXFOp1b, UserBitsAndUMIDAreThoseOfTheFirstPicture) {
    RecordedClip clip{.videoStd = VIDEO_STD_59_94I, .frames = 60};
    // The SEI message of intra frames, which Long-GOP pictures may carry too
    clip.firstPicture = First(LoadTestData("essence/avci100-1080-5994i.raw"), 2000);
    const Bytes umid =
        Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 11 22 33 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0");
    Put(clip.firstPicture, 58, umid);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetText(), "02:03:59;25");
    uint8_t bits[4]{};
    salvager->GetStartUsersBit().GetData(bits);
    EXPECT_THAT(bits, ElementsAre(0x12, 0x34, 0x56, 0x78));
    const MXFUMIDEXTag found = salvager->GetStartUMID();
    EXPECT_TRUE(SameBytes(umid, std::span(found.bytes).first(32)));
    // Less than the 512 bytes that are looked at: the timecode is there, and then not any more.
    clip.firstPicture.resize(60);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetText(), "02:03:59;25");
    EXPECT_EQ(salvager->GetStartUMID(), MXFUMIDEXTag());
    clip.firstPicture.resize(30);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetTotalFrame(), 90000u);
}

}  // namespace
}  // namespace kmxf::test
