#include "kmxf/tools/SalvageMXF.h"

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kmxf/core/Status.h"
#include "support/FixedEnvironment.h"
#include "support/Packets.h"
#include "tools/AtomSalvage.h"

// How much of the essence is kept.
namespace kmxf::test {
namespace {

TEST_F(SalvageMXF, EveryVideoFormatKeepsItsWholeFrames) {
    int formats = 0;
    for (const uint32_t compType :
         {0x0400u, 0x4800u, 0x4D00u, 0x4E00u, 0xC900u, 0xCA00u, 0xCD00u, 0xCE00u, 0xD100u, 0xD200u}) {
        for (const uint32_t videoStd :
             {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x0200007Cu, 0x02000099u, 0x020000B2u}) {
            const AtomFormat format = Video(videoStd, compType);
            const size_t frameSize = format.FrameSize();
            if (frameSize == 0) continue;
            ++formats;
            SCOPED_TRACE(testing::Message() << std::hex << compType << " at " << videoStd);
            const bool paired = compType == 0x4E00;
            const Bytes whole = CutOff(format, VideoEssence(format, 3));
            EXPECT_EQ(BigEndian(std::span(whole).subspan(44, 8)), 0u);
            // Of two-frame units a frame that is alone is not kept.
            ASSERT_EQ(Salvage(format, whole, true), kStatusOk);
            ExpectWhole(format, whole, paired ? 2 : 3, format.InFront() + frameSize * (paired ? 2 : 3));
            Bytes cut(whole.begin(), whole.end() - 1);
            ASSERT_EQ(Salvage(format, cut, true), kStatusOk);
            ExpectWhole(format, cut, 2, format.InFront() + 2 * frameSize);
        }
    }
    EXPECT_EQ(formats, 11 + 36);
}

TEST_F(SalvageMXF, EveryFamilyGivesUpFourMebibytesOfAnIncompleteRecording) {
    for (const AtomFormat& format :
         {Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Video(VIDEO_STD_50I, COMP_TYPE_DV50),
          Video(VIDEO_STD_50I, COMP_TYPE_DV100_1080I), Video(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P),
          Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720), Video(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080)}) {
        SCOPED_TRACE(format.compType);
        const size_t frames = kVideoCut / format.FrameSize() + 4;
        const Bytes file = CutOff(format, VideoEssence(format, frames));
        const size_t left = file.size() - kHeaderArea - kVideoCut - format.InFront();
        auto kept = static_cast<uint32_t>(left / format.FrameSize());
        if (format.compType == COMP_TYPE_DV100_720P) kept &= ~1u;
        ASSERT_GE(kept, 2u);
        ASSERT_EQ(Salvage(format, file, false), kStatusOk);
        ExpectWhole(format, file, kept, format.InFront() + kept * format.FrameSize());
    }
}

TEST_F(SalvageMXF, EveryKindOfSoundKeepsItsWholeFrames) {
    for (const uint32_t rate : {48000u, 96000u}) {
        for (const uint16_t bytesPerSample : {uint16_t{2}, uint16_t{3}}) {
            SCOPED_TRACE(testing::Message() << rate << " " << bytesPerSample);
            const AtomFormat format = Sound(VIDEO_STD_50I, rate, bytesPerSample);
            const size_t frameSize = 1920u * (rate / 48000) * bytesPerSample;
            const Bytes file = CutOff(format, Noise(frameSize * 5, rate + bytesPerSample));
            for (const size_t lost : {size_t{0}, size_t{1}, frameSize, frameSize + 1}) {
                const Bytes cut(file.begin(), file.end() - static_cast<std::ptrdiff_t>(lost));
                const auto frames = static_cast<uint32_t>(5 - (lost + frameSize - 1) / frameSize);
                ASSERT_EQ(Salvage(format, cut, true), kStatusOk);
                ExpectWhole(format, cut, frames, frames * frameSize);
            }
        }
    }
}

TEST_F(SalvageMXF, IncompleteSoundGivesUpItsCutSizeToo) {
    // One frame of 1920 samples is 3840 bytes.
    for (const auto& [clipType, cut] : std::vector<std::pair<uint32_t, size_t>>{
             {0x101, 131072}, {0x104, 131072}, {0x10002, 262144}, {0x10102, 262144}, {0x10104, 131072}}) {
        SCOPED_TRACE(clipType);
        const AtomFormat format = Sound(VIDEO_STD_50I, 48000, 2, clipType);
        const Bytes file = CutOff(format, Noise(cut + 3 * 3840 + 100, 9));
        ASSERT_EQ(Salvage(format, file, false), kStatusOk);
        ExpectWhole(format, file, 3, 3 * 3840);
    }
}

TEST_F(SalvageMXF, RecordingCutAnywhereKeepsWhatIsWhole) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const Bytes whole = CutOff(format, VideoEssence(format, 4));
    std::vector<size_t> sizes;
    for (size_t frame = 0; frame <= 4; ++frame) {
        for (const int step : {-17, -1, 0, 1, 223, 224, 225}) {
            const size_t size = kHeaderArea + frame * 120000 + static_cast<size_t>(step);
            if (size <= whole.size()) sizes.push_back(size);
        }
    }
    const Bytes places = Noise(80, 3);
    for (size_t i = 0; i + 3 < places.size(); i += 4) {
        sizes.push_back(BigEndian(std::span(places).subspan(i, 4)) % whole.size());
    }
    for (const size_t size : sizes) {
        SCOPED_TRACE(size);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const size_t frames = size < kHeaderArea ? 0 : (size - kHeaderArea) / 120000;
        if (frames == 0) {
            ExpectRefused(format, cut, true, kStatusNotFound, {"CSalvageMXF::Salvage: No Data."});
        } else {
            ASSERT_EQ(Salvage(format, cut, true), kStatusOk);
            ExpectWhole(format, cut, static_cast<uint32_t>(frames), frames * 120000);
        }
    }
}

TEST_F(SalvageMXF, RecordingNoLongerThanHeaderAndCutHasNoData) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const std::vector<std::string> noData = {"CSalvageMXF::Salvage: No Data."};
    Bytes file(kHeaderArea + kVideoCut);
    ExpectRefused(format, file, false, kStatusNotFound, noData);
    ExpectRefused(format, Bytes(100), false, kStatusNotFound, noData);
    ExpectRefused(format, {}, false, kStatusNotFound, noData);
    ExpectRefused(format, Bytes(kHeaderArea), true, kStatusNotFound, noData);
    // More than the cut, but less than a frame
    file.resize(kHeaderArea + kVideoCut + 119999);
    ExpectRefused(format, file, false, kStatusNotFound, noData);
    file.resize(kHeaderArea + kVideoCut + 120000);
    ASSERT_EQ(Salvage(format, file, false), kStatusOk);
    ExpectWhole(format, file, 1, 120000);
}

TEST_F(SalvageMXF, HeaderOfTheFirstFrameAloneIsNoData) {
    const AtomFormat format = Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
    for (const size_t size : {size_t{1}, size_t{511}, size_t{512}, size_t{512 + 116223}}) {
        ExpectRefused(format, Bytes(kHeaderArea + size), true, kStatusNotFound, {"CSalvageMXF::Salvage: No Data."});
    }
}

TEST_F(SalvageMXF, SoundShorterThanAFrameIsNoData) {
    ExpectRefused(Sound(VIDEO_STD_50I), Bytes(kHeaderArea + 3839), true, kStatusNotFound,
                  {"CSalvageMXF::Salvage: No Data."});
}

TEST_F(SalvageMXF, SoundEndsOnAFrameOfTheCadence) {
    struct Row {
        uint32_t videoStd, rate;
        size_t samples, kept;
        uint32_t frames;
    };
    for (const Row& row : {
             Row{VIDEO_STD_59_94I, 48000, 1600, 1600, 1},
             Row{VIDEO_STD_59_94I, 48000, 3203, 1600, 1},
             Row{VIDEO_STD_59_94I, 48000, 3204, 3204, 2},
             Row{VIDEO_STD_29_97P, 48000, 8008 + 1599, 8008, 5},
             Row{VIDEO_STD_23_98P, 48000, 4004, 4004, 2},
             Row{VIDEO_STD_50P, 48000, 1919, 960, 1},
             Row{VIDEO_STD_59_94P, 48000, 2401, 1600, 2},
             Row{VIDEO_STD_25P, 96000, 3840, 3840, 1},
             // At 96 kHz the count can come out one frame short.
             Row{VIDEO_STD_59_94I, 96000, 6407, 3200, 1},
             Row{VIDEO_STD_59_94I, 96000, 2 * 8008, 2 * 8008, 5},
         }) {
        SCOPED_TRACE(testing::Message() << row.videoStd << " " << row.rate << " " << row.samples);
        const AtomFormat format = Sound(row.videoStd, row.rate);
        // An odd byte at the end is no sample.
        Bytes file = CutOff(format, Noise(row.samples * 2 + 1, 6));
        ASSERT_EQ(Salvage(format, file, true), kStatusOk);
        ExpectWhole(format, file, row.frames, row.kept * 2);
    }
}

TEST_F(SalvageMXF, FrameThatLacksASampleOrTwoIsCountedAndFilledUp) {
    // 2402 samples count as 3 frames at 59.94p, which have 2404.
    const AtomFormat format = Sound(VIDEO_STD_59_94P);
    Bytes file = CutOff(format, Noise(2402 * 2, 6));
    ASSERT_EQ(Salvage(format, file, true), kStatusOk);
    file.resize(kHeaderArea + 2404 * 2);
    ExpectWhole(format, file, 3, 2404 * 2);
    // With an end that is not trusted the samples come from there.
    file = CutOff(format, Noise(2402 * 2 + 131072, 6));
    ASSERT_EQ(Salvage(format, file, false), kStatusOk);
    ExpectWhole(format, file, 3, 2404 * 2);
}

TEST_F(SalvageMXF, FooterOfACompleteFileIsCutAsPartOfAFrame) {
    const FixedEnvironment environment;
    const AtomFormat dv = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), sound = Sound(VIDEO_STD_50I);
    for (const AtomFormat& format : {dv, sound}) {
        const size_t size = format.fileType == kFileTypeVideo ? 240000 : 7680;
        const Bytes file = Record(format, Noise(size, 2), true);
        ASSERT_EQ(Salvage(format, file, true), kStatusOk);
        EXPECT_EQ(stream->Bytes().size(), file.size());
        ExpectWhole(format, file, 2, size);
    }
}

}  // namespace
}  // namespace kmxf::test
