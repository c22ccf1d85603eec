// What goes into an OP-1b clip comes out of it: pictures, sound, ancillary data.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "roundtrip/Op1bComparing.h"
#include "roundtrip/Op1bFormats.h"
#include "roundtrip/Op1bRecording.h"
#include "support/AccessUnits.h"
#include "support/Completions.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/StreamKinds.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kTypes[] = {0x0400C100, 0x0C00C100, 0x1000C100, 0x2000C100,
                               0x0400C200, 0x0C00C200, 0x1000C200, 0x2000C200};

void RecordTo(IStreamFileIO& stream, const char* name, const Op1bClip& clip) {
    Completions completions;
    Op1bClient client(clip);
    CCreateMXFOp1b writer;
    SetFormat(writer, clip);
    writer.RegisterCallback(&completions);
    ASSERT_EQ(writer.Open(name, &stream), kStatusOk);
    ASSERT_TRUE(client.Feed(writer));
    ASSERT_EQ(writer.Close(), kStatusOk);
    // The client hears of each of its pieces, and of no other.
    const auto all = completions.All();
    EXPECT_EQ(all.size(), client.Pieces());
    for (const Completion& each : all) {
        EXPECT_EQ(each.status, 0);
        EXPECT_EQ(each.tag, 4);
    }
}

void CheckClip(const Op1bClip& clip, IStreamFileIO& writing, IStreamFileIO& reading, const char* name) {
    SCOPED_TRACE(Name(clip));
    RecordTo(writing, name, clip);
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open(name, &reading), kStatusOk);
    ExpectProperties(reader, clip);
    ExpectPictures(reader, reading, clip);
    ExpectSound(reader, reading, clip);
}
void CheckClip(const Op1bClip& clip) {
    CMemoryFileIO stream;
    CheckClip(clip, stream, stream, "clip.mxf");
}

// --- every format ---

TEST(Op1bRoundTrip, EveryTypeAtEveryStandardThatTakesItComesBack) {
    const LogRecorder log;
    size_t clips = 0;
    for (const Op1bStandard& standard : Op1bStandards()) {
        for (const uint32_t type : kTypes) {
            if (!CCreateMXFOp1b::CheckFormat(standard.code, type)) continue;
            const uint8_t bytesPerSample = clips / 5 % 2 == 0 ? 2 : 3;
            CheckClip({standard.code, type, kChannelCounts[clips % 5], bytesPerSample, 1, clips / 2 % 2 == 0});
            if (HasFailure()) return;
            ++clips;
        }
    }
    EXPECT_EQ(clips, 4u * 7 + 4u * 5);  // 1080 lines at all standards, 720 at the progressive ones
    EXPECT_THAT(log.Lines(), IsEmpty());
}

class Op1bRoundTripOf : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(EachStandard, Op1bRoundTripOf, testing::ValuesIn(Op1bStandardCodes()));

// Types, sample sizes and layouts take turns.
TEST_P(Op1bRoundTripOf, EveryNumberOfFramesWithEveryNumberOfChannelsComesBack) {
    const LogRecorder log;
    const uint32_t group = Op1bStandardOf(GetParam()).groupFrames;
    const size_t types = GetParam() >> 24 == 2 ? 8 : 4;
    size_t turn = GetParam() % 8;
    for (const uint32_t frames : {1u, group - 1, group, group + 1, 2 * group + 10}) {
        for (const uint8_t channels : kChannelCounts) {
            CheckClip({GetParam(), kTypes[turn % types], channels, static_cast<uint8_t>(2 + turn % 2), frames,
                       turn / 2 % 2 == 1});
            if (HasFailure()) return;
            ++turn;
        }
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_P(Op1bRoundTripOf, PicturesThatCannotBeShownMakeTheOrigin) {
    for (const uint32_t hidden : {1u, 2u, 3u}) {
        const uint32_t frames = Op1bStandardOf(GetParam()).groupFrames + hidden % 2 * 2 + 1;
        CheckClip({GetParam(), 0x1000C100, 1, 2, frames, hidden == 2, hidden});
    }
}

TEST_P(Op1bRoundTripOf, StartTimecodeComesBack) {
    const bool drops = Op1bStandardOf(GetParam()).rate[1] == 1001;
    for (const bool drop : {true, false}) {
        for (const bool players : {false, true}) {
            const Op1bClip clip{GetParam(), 0x1000C100, 1, 2, 2, players, 1};
            CMemoryFileIO stream;
            Op1bClient client(clip);
            CCreateMXFOp1b writer;
            SetFormat(writer, clip);
            writer.SetStartTimecode(CTimecode(1789433, drop));
            ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
            ASSERT_TRUE(client.Feed(writer));
            ASSERT_EQ(writer.Close(), kStatusOk);
            CReadMXFOp1b reader;
            ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
            CTimecode timecode;
            ASSERT_EQ(reader.GetStartTimecode(timecode), kStatusOk);
            EXPECT_EQ(timecode.GetTotalFrame(), 1789433u);
            EXPECT_EQ(timecode.IsDrop(), drop && drops);
            EXPECT_EQ(timecode.GetVideoStd(), GetParam());
        }
    }
}

TEST(Op1bRoundTrip, EveryKindOfStreamTakesAClip) {
    const LogRecorder log;
    for (const StreamKind& kind : StreamKinds()) {
        SCOPED_TRACE(kind.name);
        kind.with([](IStreamFileIO& writing, IStreamFileIO& reading, const char* name) {
            CheckClip({0x02000058, 0x1000C200, 2, 3, 106, true}, writing, reading, name);
        });
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(Op1bRoundTrip, BothLayoutsAnswerTheSame) {
    const LogRecorder quiet;
    for (const uint32_t standard : {0x02000058u, 0x0200007Cu}) {
        const uint32_t group = Op1bStandardOf(standard).groupFrames;
        std::vector<int64_t> answers[2];
        for (const bool players : {false, true}) {
            const Op1bClip clip{standard, 0x1000C100, 4, 3, 2 * group + 10, players, 2};
            CMemoryFileIO stream;
            Op1bClient client(clip);
            CCreateMXFOp1b writer;
            SetFormat(writer, clip);
            writer.SetUMID({{1, 2, 3}});
            writer.SetStartTimecode(CTimecode(90000, true));
            CDescriptiveMetadata metadata;
            metadata.SetSceneNumber("12a");
            writer.SetDescriptiveMetadata(metadata);
            ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
            ASSERT_TRUE(client.Feed(writer));
            ASSERT_EQ(writer.Close(), kStatusOk);
            CReadMXFOp1b reader;
            ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
            EXPECT_TRUE(reader.IsValidDMS());
            answers[players] = AskEverything(
                reader, {0, 1, group - 1, group, 2 * group, 2 * group + 7, 2 * group + 9, 2 * group + 10});
        }
        EXPECT_EQ(answers[0], answers[1]);
    }
}

// --- recordings that end early ---

TEST(Op1bRoundTrip, TheLastGroupMayLackItsSound) {
    for (const uint32_t frames : {106u, 96u}) {
        for (const bool players : {false, true}) {
            const Op1bClip clip{0x02000058, 0x1000C100, 2, 2, frames, players};
            SCOPED_TRACE(Name(clip));
            const LogRecorder log;
            CMemoryFileIO stream;
            Op1bClient client(clip);
            client.LeaveOutLastSound();
            CCreateMXFOp1b writer;
            SetFormat(writer, clip);
            ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
            ASSERT_TRUE(client.Feed(writer));
            ASSERT_EQ(writer.Close(), kStatusOk);
            // 10 frames: two of the cycles of 8008 samples and half of one; 48 frames: twelve.
            const int missing = frames == 106 ? (2 * 8008 + 4004) * 2 : 12 * 8008 * 2;
            EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::SetMXFParam: Audio data size differs from an "
                                                 "expected value. Diff = " +
                                                 std::to_string(missing) + "."));
            CReadMXFOp1b reader;
            ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
            ExpectProperties(reader, clip);
            ExpectPictures(reader, stream, clip);
            const uint32_t last = (frames - 1) / 48 * 48;
            for (const uint32_t frame : {last - 1, last, frames - 1}) {
                for (uint32_t c = 0; c < 2; ++c) {
                    AUDIODATAINFOTag info;
                    ASSERT_EQ(reader.GetAudioInfo(frame, c, info), frame < last ? kStatusOk : kStatusFailure) << frame;
                    if (frame >= last) continue;
                    const auto sound = SoundOf(clip, c, frame, 1);
                    EXPECT_TRUE(SameBytes(sound, BytesAt(stream, info.offset + info.position, sound.size())));
                }
            }
        }
    }
}

TEST(Op1bRoundTrip, AnInterruptedClipHasNoDuration) {
    for (const uint32_t frames : {1u, 47u, 48u, 49u, 106u}) {
        const Op1bClip clip{0x02000058, 0x1000C100, 2, 2, frames};
        SCOPED_TRACE(Name(clip));
        CMemoryFileIO stream;
        Op1bClient client(clip);
        {
            CCreateMXFOp1b writer;
            SetFormat(writer, clip);
            ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
            ASSERT_TRUE(client.Feed(writer));
        }
        EXPECT_FALSE(stream.IsOpened());
        const LogRecorder log;
        CReadMXFOp1b reader;
        EXPECT_EQ(reader.Open("clip.mxf", &stream), kStatusNotFound);
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Open: Duration is 0."));
        EXPECT_FALSE(stream.IsOpened());
    }
}

// --- real pictures ---

TEST(Op1bRoundTrip, ARealStreamComesBackWithItsTimecodesInTheOrderOfDisplay) {
    const auto essence = LoadTestData("essence/longg25-1080-5994i.264");
    const auto units = AccessUnits("essence/longg25-1080-5994i.au.json");
    ASSERT_EQ(units.size(), 24u);
    std::vector<std::string> shown(units.size());
    for (const AccessUnit& unit : units) shown.at(unit.displayIndex) = unit.timecode;
    EXPECT_EQ(shown.front(), "03:04:59;25");
    EXPECT_EQ(shown.back(), "03:05:00;20");

    for (const bool players : {false, true}) {
        FaultyStream stream;
        CCreateMXFOp1b writer;
        SetFormat(writer, {0x0100007C, 0x1000C100, 0, 2, 24, players});
        ASSERT_EQ(writer.Open("real.mxf", &stream), kStatusOk);
        for (const AccessUnit& unit : units) {
            CMemoryPiece piece(essence.data() + unit.offset, static_cast<uint32_t>(unit.size));
            ASSERT_EQ(writer.WriteVideo(&piece, static_cast<int8_t>(unit.temporalOffset),
                                        static_cast<int8_t>(unit.keyFrameOffset), static_cast<uint8_t>(unit.flags)),
                      static_cast<int32_t>((unit.size + 3) / 4 * 4));
        }
        ASSERT_EQ(writer.Close(), kStatusOk);

        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("real.mxf", &stream), kStatusOk);
        ASSERT_EQ(reader.GetDuration(), 24);
        for (uint32_t k = 0; k < 24; ++k) {
            const auto begin = essence.begin() + static_cast<std::ptrdiff_t>(units[k].offset);
            const auto unit = Aligned({begin, begin + static_cast<std::ptrdiff_t>(units[k].size)});
            VIDEOFRAMEINFOTag info;
            ASSERT_EQ(reader.GetVideoInfo(k, info), kStatusOk);
            EXPECT_TRUE(SameBytes(unit, BytesAt(stream, info.offset, info.size))) << k;
            EXPECT_EQ(info.temporalOffset, units[k].temporalOffset) << k;
            EXPECT_EQ(info.keyFrameOffset, units[k].keyFrameOffset) << k;
            EXPECT_EQ(info.flags, units[k].flags) << k;

            const int64_t stored = reader.GetCodingPosition(k);
            ASSERT_GE(stored, 0);
            ASSERT_LT(stored, 24);
            EXPECT_EQ(units[static_cast<size_t>(stored)].displayIndex, k);
            const int reads = stream.Count(Op::kRead);
            CTimecode timecode;
            ASSERT_EQ(reader.GetTimecode(static_cast<uint32_t>(stored), timecode, SEI_DATA_TYPE1), kStatusOk) << k;
            EXPECT_EQ(timecode.GetText(), shown[k]);
            EXPECT_LE(stream.Count(Op::kRead), reads + 3);
        }
    }
}

}  // namespace
}  // namespace kmxf::test
