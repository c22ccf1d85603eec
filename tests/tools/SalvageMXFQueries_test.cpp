#include "kmxf/tools/SalvageMXF.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "kmxf/collaborators/Log.h"
#include "kmxf/core/Status.h"
#include "tools/AtomSalvage.h"
#include "tools/StreamFactory.h"

// What can be asked of a file without writing it.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXF, CutSizesAreThoseOfTheTable) {
    const auto cut = &CSalvageMXF::GetCutSize;
    EXPECT_EQ(cut(0x20001, 0), 4194304u);
    EXPECT_EQ(cut(0x20001, 0x10002), 4194304u);
    EXPECT_EQ(cut(0x20002, 0x10002), 262144u);
    EXPECT_EQ(cut(0x20002, 0x10102), 262144u);
    EXPECT_EQ(cut(0x20002, 0x10104), 131072u);
    EXPECT_EQ(cut(0x20002, 0), 131072u);
    EXPECT_EQ(cut(0x20002, 2), 131072u);
    EXPECT_THAT(log.Lines(), IsEmpty());
    for (const uint32_t fileType : {0x20000u, 0u, 0x20003u, 0xFFFFFFFFu}) {
        log.Clear();
        EXPECT_EQ(cut(fileType, 0x10002), 0u);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::GetCutSize: Invalid FileType."));
    }
    EXPECT_EQ(log.Records().front().sourceFile, "SalvageMXF");
    EXPECT_EQ(log.Records().front().level, kLogError);
}

TEST_F(SalvageMXF, UnknownFileTypeIsSalvagedAsSoundWithNothingCut) {
    AtomFormat format = Sound(VIDEO_STD_50I);
    const Bytes file = CutOff(format, Noise(3840 * 2, 1));
    format.fileType = kFileTypeUnknown;
    EXPECT_EQ(Salvage(format, file, false), kStatusOk);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::GetCutSize: Invalid FileType."));
    log.Clear();
    ExpectWhole(Sound(VIDEO_STD_50I), file, 2, 7680);
    // With nothing to cut nobody asks.
    EXPECT_EQ(Salvage(format, file, true), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXF, RecordingIsCompleteWhenItsHeaderNamesAFooter) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const Bytes essence = VideoEssence(format, 2);
    const auto isCompleted = [&](Bytes file) {
        FaultyStream reading(std::move(file));
        const StreamFactory factory(&reading);
        CSalvageMXF asked(false);
        asked.SetFilename("cut.mxf");
        const bool completed = asked.IsCompletedFile();
        EXPECT_EQ(reading.Calls().front(), "Open cut.mxf 0x0");
        EXPECT_FALSE(reading.IsOpened());
        EXPECT_TRUE(reading.Released());
        EXPECT_EQ(reading.LivePieces() + reading.LiveAllocators() + factory.Live(), 0);
        return completed;
    };
    const Bytes open = CutOff(format, essence), closed = Record(format, essence, true);
    EXPECT_FALSE(isCompleted(open));
    EXPECT_TRUE(isCompleted(closed));
    ASSERT_EQ(Salvage(format, open, true), kStatusOk);
    EXPECT_TRUE(isCompleted(stream->Bytes()));
    EXPECT_TRUE(isCompleted({closed.begin(), closed.begin() + 32768}));
    EXPECT_FALSE(isCompleted({closed.begin(), closed.begin() + 32767}));
    EXPECT_FALSE(isCompleted({}));
    // One bit of the 8 bytes from 44 on is enough, and no other counts.
    for (size_t i = 40; i < 56; ++i) {
        Bytes header(32768);
        header[i] = 0x80;
        EXPECT_EQ(isCompleted(header), i >= 44 && i < 52) << i;
    }
}

TEST_F(SalvageMXF, FileThatCannotBeReadIsNotComplete) {
    const AtomFormat format = Sound(VIDEO_STD_50I);
    const Bytes closed = Record(format, Noise(3840, 1), true);
    CSalvageMXF asked(false);
    asked.SetFilename("cut.mxf");
    int calls = 0;
    {
        FaultyStream reading(closed);
        const StreamFactory factory(&reading);
        EXPECT_TRUE(asked.IsCompletedFile());
        calls = reading.CountOfAll();
    }
    for (int call = 1; call < calls; ++call) {  // the last one is Close
        FaultyStream reading(closed);
        reading.FailNthOfAll(call, Fault::kShort);
        const StreamFactory factory(&reading);
        EXPECT_FALSE(asked.IsCompletedFile()) << call;
        EXPECT_TRUE(reading.Released());
        EXPECT_EQ(reading.LivePieces() + reading.LiveAllocators() + factory.Live(), 0);
    }
    const StreamFactory none(nullptr);
    EXPECT_FALSE(asked.IsCompletedFile());
    EXPECT_EQ(none.Live(), 0);
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) { return nullptr; });
    EXPECT_FALSE(asked.IsCompletedFile());
}

TEST_F(SalvageMXF, NullPointersAreRefused) {
    CSalvageMXF asked(false);
    EXPECT_EQ(asked.GetDuration(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetDataOffset(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetDataSize(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetStartTimecode(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetStartUsersBit(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetStartUMID(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetEndUMID(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetStartDIFUMID(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(asked.GetEndDIFUMID(nullptr), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXF, OffsetIsTheHeaderAreaAndSizeIsZeroAtFirst) {
    CSalvageMXF asked(false);
    uint32_t offset = 0;
    int64_t size = 9;
    EXPECT_EQ(asked.GetDataOffset(&offset), kStatusOk);
    EXPECT_EQ(offset, 32768u);
    EXPECT_EQ(asked.GetDataOffset(), 32768u);
    EXPECT_EQ(asked.GetDataSize(&size), kStatusOk);
    EXPECT_EQ(size, 0);
}

TEST_F(SalvageMXF, DurationIsForetoldFromTheSizeOfTheFile) {
    const auto duration = [&](const AtomFormat& format, Bytes file, bool completed) {
        FaultyStream reading(std::move(file));
        const StreamFactory factory(&reading);
        CSalvageMXF asked(completed);
        Describe(asked, format);
        uint32_t frames = 77, total = 77;
        EXPECT_EQ(asked.GetDuration(&frames), kStatusOk);
        EXPECT_EQ(asked.GetDuration(), frames);
        EXPECT_EQ(asked.GetTotalDuration(&total), kStatusOk);
        EXPECT_EQ(total, frames);
        EXPECT_EQ(reading.Count(Op::kWrite), 0);
        EXPECT_TRUE(reading.Released());
        EXPECT_FALSE(reading.IsOpened());
        EXPECT_EQ(factory.Live(), 0);
        return frames;
    };
    const AtomFormat dv = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25),
                     intra = Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
    EXPECT_EQ(duration(dv, Bytes(kHeaderArea + 3 * 120000 - 1), true), 2u);
    EXPECT_EQ(duration(dv, Bytes(kHeaderArea + kVideoCut + 3 * 120000), false), 3u);
    EXPECT_EQ(duration(dv, Bytes(kHeaderArea + 3 * 120000), false), 0u);
    EXPECT_EQ(duration(dv, Bytes(7), true), 0u);
    EXPECT_EQ(duration(dv, {}, false), 0u);
    EXPECT_EQ(duration(intra, Bytes(kHeaderArea + 512 + 116224), true), 1u);
    EXPECT_EQ(duration(intra, Bytes(kHeaderArea + 511 + 116224), true), 0u);
    EXPECT_EQ(duration(intra, Bytes(kHeaderArea + 511), true), 0u);
    EXPECT_EQ(duration(Sound(VIDEO_STD_50I), Bytes(kHeaderArea + 131072 + 7680), false), 2u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXF, DurationThatCannotBeForetoldSaysWhy) {
    const auto ask = [&](const AtomFormat& format, FaultyStream* reading) {
        log.Clear();
        const StreamFactory factory(reading);
        CSalvageMXF asked(true);
        Describe(asked, format);
        uint32_t frames = 77;
        const int32_t status = asked.GetDuration(&frames);
        EXPECT_EQ(frames, 77u);
        EXPECT_EQ(asked.GetDuration(), 0u);
        EXPECT_EQ(factory.Live(), 0);
        return status;
    };
    const auto twice = [](const std::string& line) { return ElementsAre(line, line); };
    FaultyStream reading(Bytes(kHeaderArea + 240000));
    EXPECT_EQ(ask(Video(VIDEO_STD_59_94I, COMP_TYPE_DV100_720P), &reading), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), twice("CSalvageMXF::GetDuration: Invalid Format."));
    for (const uint32_t rate : {48000u, 96000u}) {
        EXPECT_EQ(ask(Sound(0x12345, rate), &reading), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), twice("CSalvageMXF::GetDuration: AudioSampleToDuration Error."));
    }
    EXPECT_EQ(ask(Sound(VIDEO_STD_50I), nullptr), kStatusIoError);
    EXPECT_THAT(log.Lines(), twice("CSalvageMXF::GetDuration: Stat Error."));
    for (const Op op : {Op::kOpen, Op::kSeek}) {
        FaultyStream failing(Bytes(kHeaderArea + 240000));
        failing.FailAll(op);
        EXPECT_EQ(ask(Sound(VIDEO_STD_50I), &failing), kStatusIoError);
        EXPECT_THAT(log.Lines(), twice("CSalvageMXF::GetDuration: Stat Error."));
        EXPECT_TRUE(failing.Released());
    }
}

}  // namespace
}  // namespace kmxf::test
