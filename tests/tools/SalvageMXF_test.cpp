#include "kmxf/tools/SalvageMXF.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "kmxf/writer/OpAtomSound.h"
#include "roundtrip/Recording.h"
#include "support/FaultyStream.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/Packets.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/StreamFactory.h"
#include "writer/WriterDoubles.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;

constexpr size_t kHeaderArea = 32768;
constexpr size_t kVideoCut = 4194304;
constexpr std::string_view kFooterKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00";

struct Format {
    uint32_t fileType = kFileTypeVideo;
    uint32_t videoStd = VIDEO_STD_59_94I;
    uint32_t compType = COMP_TYPE_DV25;
    uint32_t clipType = 0x102;
    uint32_t rate = 48000;
    uint16_t bytesPerSample = 2;

    bool IsAVCI() const { return (compType & 0xC000) == 0xC000; }
    size_t InFront() const { return fileType == kFileTypeVideo && IsAVCI() ? 512 : 0; }
    size_t FooterSize() const { return InFront() > 0 ? 324 : 224; }
    size_t FrameSize() const { return GetFrameDataSize(videoStd, compType); }
    size_t SoundSize(int64_t frames) const {
        return static_cast<size_t>(DurationToAudioSample(videoStd, frames, rate)) * bytesPerSample;
    }
};
Format Video(uint32_t videoStd, uint32_t compType) { return {.videoStd = videoStd, .compType = compType}; }
Format Sound(uint32_t videoStd, uint32_t rate = 48000, uint16_t bytesPerSample = 2, uint32_t clipType = 0x101) {
    return {kFileTypeAudio, videoStd, 0, clipType, rate, bytesPerSample};
}

MXFUMIDTag UmidOf(uint8_t fill) {
    MXFUMIDTag umid;
    std::ranges::fill(umid.bytes, fill);
    return umid;
}

// What writer and salvager are told alike.
void Describe(CCreateMXFBase& file, const Format& format) {
    const Bytes product(16, 0x77);
    file.SetFilename("cut.mxf");
    file.SetVideoStandard(format.videoStd);
    file.SetClipType(format.clipType);
    file.SetSamplesPerSec(format.rate);
    file.SetUMID(UmidOf(0xA1));
    file.SetShotUMID(UmidOf(0xB2));
    file.SetStartTimecode(107892, true);
    file.SetPackageName("A001C007");
    file.SetIdentification("Company", "Product", "9.87", product.data());
}
void Describe(CSalvageMXF& salvager, const Format& format) {
    Describe(static_cast<CCreateMXFBase&>(salvager), format);
    salvager.SetFileType(format.fileType);
    salvager.SetCompType(format.compType);
    salvager.SetBytesPerSample(format.bytesPerSample);
    salvager.SetSamplesPerSec(format.rate);
}

// The file that a recording of this essence leaves behind: whole, or as it is when the writer goes away.
Bytes Record(const Format& format, std::span<const uint8_t> essence, bool close) {
    CMemoryFileIO stream;
    Feeder feeder;
    const auto record = [&](auto& writer) {
        Describe(writer, format);
        EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
        feeder.Write(writer, essence, {500000, 7});
        EXPECT_EQ(close ? writer.Close() : kStatusOk, kStatusOk);
    };
    if (format.fileType == kFileTypeVideo) {
        CCreateMXFVideo writer;
        writer.SetDVType(format.compType);
        record(writer);
    } else {
        CCreateMXFAudio writer;
        writer.SetBytesPerSample(format.bytesPerSample);
        record(writer);
    }
    return stream.GetContents();
}
Bytes CutOff(const Format& format, std::span<const uint8_t> essence) { return Record(format, essence, false); }

Bytes VideoEssence(const Format& format, size_t frames) {
    return Noise(format.FrameSize() * frames, format.compType ^ format.videoStd);
}

class SalvageMXF : public testing::Test {
protected:
    // Salvages `file` with the settings of the format; the result is what `stream` holds then, which must have been
    // given back whole.
    int32_t Salvage(const Format& format, Bytes file, bool completed) {
        stream = std::make_unique<FaultyStream>(std::move(file));
        salvager = std::make_unique<CSalvageMXF>(completed);
        Describe(*salvager, format);
        return Run();
    }
    int32_t Run() {
        log.Clear();
        const StreamFactory factory(stream.get());
        const int32_t status = salvager->Salvage();
        EXPECT_FALSE(salvager->IsOpened());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_TRUE(stream->Released());
        EXPECT_EQ(stream->LivePieces(), 0);
        EXPECT_EQ(stream->LiveAllocators(), 0);
        EXPECT_EQ(factory.Live(), 0);
        return status;
    }
    // A run that fails, leaves the file alone and has nothing to show.
    void ExpectRefused(const Format& format, const Bytes& file, bool completed, int32_t status,
                       const std::vector<std::string>& lines) {
        EXPECT_EQ(Salvage(format, file, completed), status);
        EXPECT_EQ(log.Lines(), lines);
        EXPECT_TRUE(SameBytes(file, stream->Bytes()));
        EXPECT_EQ(salvager->GetDuration(), 0u);
        EXPECT_EQ(salvager->GetDataSize(), 0);
    }

    // The salvaged file is whole, and its essence the first `size` bytes of what was behind the header area.
    void ExpectWhole(const Format& format, const Bytes& before, uint32_t frames, size_t size) {
        const Bytes& after = stream->Bytes();
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_EQ(salvager->GetDuration(), frames);
        EXPECT_EQ(salvager->GetDataSize(), static_cast<int64_t>(size));
        const size_t footer = kHeaderArea + size;
        ASSERT_EQ(after.size(), std::max(before.size(), footer + format.FooterSize()));
        EXPECT_EQ(BigEndian(std::span(after).subspan(44, 8)), footer) << "FooterPartition";
        EXPECT_TRUE(SameBytes(Hex(kFooterKey), std::span(after).subspan(footer, 16)));
        EXPECT_TRUE(
            SameBytes(std::span(before).subspan(kHeaderArea, size), std::span(after).subspan(kHeaderArea, size)));
        const size_t behind = footer + format.FooterSize();
        if (behind < before.size()) {
            EXPECT_TRUE(SameBytes(std::span(before).subspan(behind), std::span(after).subspan(behind)))
                << "what stands behind the footer stays there";
        }
        CMemoryFileIO reading(after);
        if (format.fileType == kFileTypeVideo) {
            ExpectFrames(format, reading, before, frames);
        } else {
            ExpectSound(format, reading, size);
        }
    }
    void ExpectFrames(const Format& format, IStreamFileIO& reading, const Bytes& before, uint32_t frames) {
        CReadMXFVideo reader;
        reader.SetFilename("cut.mxf");
        ASSERT_EQ(reader.Open(&reading, true), kStatusOk);
        EXPECT_EQ(reader.GetVideoStandard(), format.videoStd);
        EXPECT_EQ(reader.GetCompType(), format.compType);
        ASSERT_EQ(reader.GetDuration(), frames);
        for (uint32_t frame = 0; frame < frames; ++frame) {
            uint8_t* data = nullptr;
            ASSERT_EQ(reader.GetFrameData(frame, &data), kStatusOk);
            const size_t at = kHeaderArea + format.InFront() + frame * format.FrameSize();
            EXPECT_TRUE(SameBytes(std::span(before).subspan(at, format.FrameSize()), {data, format.FrameSize()}));
            reader.ReleaseFrameData(data);
        }
    }
    void ExpectSound(const Format& format, IStreamFileIO& reading, size_t size) {
        CReadMXFAudio reader;
        reader.SetFilename("cut.mxf");
        ASSERT_EQ(reader.Open(&reading, true), kStatusOk);
        EXPECT_EQ(reader.GetSamplingRate(), format.rate);
        EXPECT_EQ(reader.GetBitsPerSample(), format.bytesPerSample * 8u);
        int64_t dataSize = 0;
        EXPECT_EQ(reader.GetDataSize(&dataSize), kStatusOk);
        EXPECT_EQ(dataSize, static_cast<int64_t>(size));
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    std::unique_ptr<CSalvageMXF> salvager;
};

// --- every format, cut everywhere ---

TEST_F(SalvageMXF, EveryVideoFormatKeepsItsWholeFrames) {
    int formats = 0;
    for (const uint32_t compType :
         {0x0400u, 0x4800u, 0x4D00u, 0x4E00u, 0xC900u, 0xCA00u, 0xCD00u, 0xCE00u, 0xD100u, 0xD200u}) {
        for (const uint32_t videoStd :
             {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x0200007Cu, 0x02000099u, 0x020000B2u}) {
            const Format format = Video(videoStd, compType);
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
    for (const Format& format :
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
            const Format format = Sound(VIDEO_STD_50I, rate, bytesPerSample);
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
        const Format format = Sound(VIDEO_STD_50I, 48000, 2, clipType);
        const Bytes file = CutOff(format, Noise(cut + 3 * 3840 + 100, 9));
        ASSERT_EQ(Salvage(format, file, false), kStatusOk);
        ExpectWhole(format, file, 3, 3 * 3840);
    }
}

TEST_F(SalvageMXF, RecordingCutAnywhereKeepsWhatIsWhole) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
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

TEST_F(SalvageMXF, LostHeaderIsNoMatter) {
    const Format format = Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
    const Bytes original = CutOff(format, VideoEssence(format, 2));
    Bytes file = original;
    const Bytes noise = Noise(kHeaderArea, 1);
    std::ranges::copy(noise, file.begin());
    ASSERT_EQ(Salvage(format, file, true), kStatusOk);
    ExpectWhole(format, original, 2, 512 + 2 * 116224);
}

// --- the result is what the writer would have made ---

TEST_F(SalvageMXF, SalvagedFileIsTheOneThatCloseWouldHaveWritten) {
    for (const Format& format :
         {Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Video(VIDEO_STD_50P, COMP_TYPE_DV100_720P),
          Video(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080), Sound(VIDEO_STD_50I), Sound(VIDEO_STD_25P, 96000, 3)}) {
        SCOPED_TRACE(format.compType);
        const Bytes essence =
            format.fileType == kFileTypeVideo ? VideoEssence(format, 2) : Noise(format.SoundSize(2), 8);
        Bytes closed, cut;
        {
            const FixedEnvironment environment;
            closed = Record(format, essence, true);
        }
        cut = CutOff(format, essence);
        const FixedEnvironment environment;
        stream = std::make_unique<FaultyStream>(cut);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        // The video writer has these types always wide.
        salvager->SetWide((format.compType & 0x0C00) == 0x0C00);
        ASSERT_EQ(Run(), kStatusOk);
        EXPECT_TRUE(SameBytes(closed, stream->Bytes()));
    }
}

TEST_F(SalvageMXF, EverySettingGetsIntoTheHeader) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const FixedEnvironment environment;
    stream = std::make_unique<FaultyStream>(CutOff(format, VideoEssence(format, 2)));
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    CDescriptiveMetadata metadata;
    metadata.SetSceneNumber("SCENE 42");
    salvager->SetDescriptiveMetadata(metadata);
    salvager->SetWide(true);
    salvager->SetMaterialDuration(99);
    salvager->SetPrevDuration(77);
    ASSERT_EQ(Run(), kStatusOk);
    const auto packets = Packets(stream->Bytes(), 0, 32744);
    const auto one = [&](uint8_t kind) { return SetsOfKind(packets, kind).at(0); };
    const auto material = one(0x36), file = one(0x37), identification = one(0x30), descriptor = one(0x28);
    EXPECT_EQ(material.Item(0x4401), Bytes(32, 0xB2));
    EXPECT_EQ(file.Item(0x4401), Bytes(32, 0xA1));
    EXPECT_TRUE(Contains(material.Item(0x4402), Hex("00 41 00 30 00 30 00 31 00 43 00 30 00 30 00 37")));
    EXPECT_EQ(material.Item(0x4405), Hex("07 EA 01 02 03 04 05 00")) << "created now";
    EXPECT_TRUE(Contains(identification.Item(0x3C01), Hex("00 43 00 6F 00 6D 00 70 00 61 00 6E 00 79 00 00")));
    EXPECT_EQ(identification.Item(0x3C05), Bytes(16, 0x77));
    EXPECT_EQ(one(0x14).Item(0x1501), Hex("00 00 00 00 00 01 A5 74")) << "start timecode 107892";
    EXPECT_EQ(one(0x14).Item(0x1503), Hex("01"));
    EXPECT_EQ(descriptor.Item(0x320E), Hex("00 00 00 10 00 00 00 09")) << "16:9";
    EXPECT_EQ(descriptor.Item(0x3002), Hex("00 00 00 00 00 00 00 02"));
    EXPECT_EQ(SetsOfKind(packets, 0x09).at(0).Item(0x0202), Hex("00 00 00 00 00 00 00 4D")) << "77 frames elsewhere";
    EXPECT_TRUE(Contains(stream->Bytes(), Hex("53 43 45 4E 45 20 34 32"))) << "the scene number";
}

TEST_F(SalvageMXF, WithoutAShotUMIDBothPackagesHaveTheOneUMID) {
    const Format format = Sound(VIDEO_STD_50I);
    stream = std::make_unique<FaultyStream>(CutOff(format, Noise(3840, 1)));
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    salvager->SetShotUMID({});
    ASSERT_EQ(Run(), kStatusOk);
    const auto packets = Packets(stream->Bytes(), 0, 32744);
    EXPECT_EQ(SetsOfKind(packets, 0x36).at(0).Item(0x4401), Bytes(32, 0xA1));
}

TEST_F(SalvageMXF, SalvagedTwiceChangesNothing) {
    struct Row {
        Format format;
        size_t size;
        bool completed;
    };
    const Format dv = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), sound = Sound(VIDEO_STD_59_94P, 96000, 3);
    for (const Row& row :
         {Row{dv, 120000 * 2, true}, Row{dv, 120000 * 2 + 100, true}, Row{dv, 120000 * 2 + 90000, true},
          Row{dv, kVideoCut + 120000 * 2 + 5, false}, Row{sound, 14424 * 3, true}, Row{sound, 14424 * 3 + 2000, true},
          Row{sound, 131072 + 50000, false}}) {
        SCOPED_TRACE(row.size);
        const Bytes file = CutOff(row.format, Noise(row.size, 4));
        const auto salvaged = [&](const Bytes& bytes) {
            const FixedEnvironment environment;
            EXPECT_EQ(Salvage(row.format, bytes, row.completed), kStatusOk);
            return stream->Bytes();
        };
        const Bytes once = salvaged(file);
        EXPECT_FALSE(std::ranges::equal(file, once));
        EXPECT_TRUE(SameBytes(once, salvaged(once)));
    }
}

// --- what is too short, and counts that round ---

TEST_F(SalvageMXF, RecordingNoLongerThanHeaderAndCutHasNoData) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
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
    const Format format = Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
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
        const Format format = Sound(row.videoStd, row.rate);
        // An odd byte at the end is no sample.
        Bytes file = CutOff(format, Noise(row.samples * 2 + 1, 6));
        ASSERT_EQ(Salvage(format, file, true), kStatusOk);
        ExpectWhole(format, file, row.frames, row.kept * 2);
    }
}

TEST_F(SalvageMXF, FrameThatLacksASampleOrTwoIsCountedAndFilledUp) {
    // 2402 samples count as 3 frames at 59.94p, which have 2404.
    const Format format = Sound(VIDEO_STD_59_94P);
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
    const Format dv = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), sound = Sound(VIDEO_STD_50I);
    for (const Format& format : {dv, sound}) {
        const size_t size = format.fileType == kFileTypeVideo ? 240000 : 7680;
        const Bytes file = Record(format, Noise(size, 2), true);
        ASSERT_EQ(Salvage(format, file, true), kStatusOk);
        EXPECT_EQ(stream->Bytes().size(), file.size());
        ExpectWhole(format, file, 2, size);
    }
}

// --- settings ---

TEST_F(SalvageMXF, OddSampleSizesAndRatesAreStoredAsTheUsual) {
    const Format format = Sound(VIDEO_STD_50I);
    for (const uint16_t bytes : {uint16_t{0}, uint16_t{4}, uint16_t{24}}) {
        const Bytes file = CutOff(format, Noise(3840 * 2, 1));
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        EXPECT_EQ(salvager->SetBytesPerSample(3), kStatusOk);
        EXPECT_EQ(salvager->SetBytesPerSample(bytes), kStatusOk);
        EXPECT_EQ(salvager->SetSamplesPerSec(96000), kStatusOk);
        EXPECT_EQ(salvager->SetSamplesPerSec(44100), kStatusOk);
        ASSERT_EQ(Run(), kStatusOk);
        ExpectWhole(format, file, 2, 7680);
    }
}

TEST_F(SalvageMXF, SettersReturnNoFailure) {
    CSalvageMXF fresh(false);
    EXPECT_EQ(fresh.SetFileType(5), kStatusOk);
    EXPECT_EQ(fresh.SetWide(true), kStatusOk);
    EXPECT_EQ(fresh.SetMaterialDuration(5), kStatusOk);
    EXPECT_EQ(fresh.SetDVType(5), kStatusOk);
    EXPECT_EQ(fresh.SetCompType(5), kStatusOk);
    EXPECT_EQ(fresh.GetOpenFlag(), 2u);
}

TEST_F(SalvageMXF, CompressionTypeIsDV25UntilItIsSetByEitherName) {
    const Bytes dv25 = CutOff(Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Noise(240000, 3));
    const Bytes dv50 = CutOff(Video(VIDEO_STD_59_94I, COMP_TYPE_DV50), Noise(240000, 3));
    const auto salvage = [&](const Bytes& file, auto set) {
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        salvager->SetFilename("cut.mxf");
        salvager->SetFileType(kFileTypeVideo);
        salvager->SetVideoStandard(VIDEO_STD_59_94I);
        set();
        EXPECT_EQ(Run(), kStatusOk);
        return salvager->GetDuration();
    };
    EXPECT_EQ(salvage(dv25, [] {}), 2u);
    EXPECT_EQ(salvage(dv50, [&] { salvager->SetDVType(COMP_TYPE_DV50); }), 1u);
    EXPECT_EQ(salvage(dv50, [&] { salvager->SetCompType(COMP_TYPE_DV50); }), 1u);
}

TEST_F(SalvageMXF, CompressionTypeDoesNotMakeThePictureWide) {
    const Format format = Video(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P);
    ASSERT_EQ(Salvage(format, CutOff(format, VideoEssence(format, 2)), true), kStatusOk);
    const auto packets = Packets(stream->Bytes(), 0, 32744);
    EXPECT_EQ(SetsOfKind(packets, 0x28).at(0).Item(0x320E), Hex("00 00 00 04 00 00 00 03"));
}

TEST_F(SalvageMXF, EverySettingButTheNameIsResetByARun) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV50);
    ASSERT_EQ(Salvage(format, CutOff(format, VideoEssence(format, 2)), true), kStatusOk);
    // As sound of an unknown standard, which is what the defaults say.
    EXPECT_EQ(Run(), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::Salvage: AudioSampleToDuration Error."));
    EXPECT_EQ(stream->Calls().at(stream->Calls().size() - 5), "Open cut.mxf 0x2");
    // And they are the same after a failure.
    Describe(*salvager, format);
    stream->FailNth(Op::kOpen, stream->Count(Op::kOpen) + 1);
    EXPECT_EQ(Run(), kStatusIoError);
    EXPECT_EQ(Run(), kStatusInvalidArgument);
    Describe(*salvager, format);
    EXPECT_EQ(Run(), kStatusOk);
    EXPECT_EQ(salvager->GetDuration(), 2u);
}

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
    Format format = Sound(VIDEO_STD_50I);
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

// --- is it complete? ---

TEST_F(SalvageMXF, RecordingIsCompleteWhenItsHeaderNamesAFooter) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
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
    const Format format = Sound(VIDEO_STD_50I);
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

// --- what the essence says ---

std::string Text(const CTimecode& timecode) { return timecode.GetText(); }

TEST_F(SalvageMXF, FirstFrameTellsTimecodeAndUserBits) {
    const struct {
        const char* file;
        Format format;
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
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
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
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080);
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
    const Format format = Video(VIDEO_STD_50I, COMP_TYPE_DV25);
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
    for (const Format& format :
         {Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Video(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080)}) {
        ASSERT_EQ(Salvage(format, Bytes(kHeaderArea + 512 + 2 * format.FrameSize()), true), kStatusOk);
        expectNone();
    }
    ASSERT_EQ(Salvage(Sound(VIDEO_STD_50I), Bytes(kHeaderArea + 3840), true), kStatusOk);
    expectNone();
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    ASSERT_EQ(Salvage(format, CutOff(format, LoadTestData("essence/dv25-5994i.dif")), true), kStatusOk);
    CTimecode timecode;
    EXPECT_EQ(salvager->GetStartTimecode(&timecode), kStatusOk);
    EXPECT_EQ(Run(), kStatusInvalidArgument);
    expectNone();
}

TEST_F(SalvageMXF, FrameThatCannotBeReadDoesNotCostTheOthers) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
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

// --- queries ---

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
    const auto duration = [&](const Format& format, Bytes file, bool completed) {
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
    const Format dv = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), intra = Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
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
    const auto ask = [&](const Format& format, FaultyStream* reading) {
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

// --- failures ---

TEST_F(SalvageMXF, FormatWithoutAFrameSizeIsRefused) {
    const Bytes file(kHeaderArea + 500000);
    for (const Format& format :
         {Video(VIDEO_STD_59_94P, COMP_TYPE_DV25), Video(0, COMP_TYPE_DV25), Video(VIDEO_STD_59_94I, 0x1FFFF),
          Video(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080), Video(VIDEO_STD_50I, COMP_TYPE_AVCI50_720)}) {
        ExpectRefused(format, file, true, kStatusInvalidArgument, {"CSalvageMXF::Salvage: Invalid Format."});
    }
}

TEST_F(SalvageMXF, SoundOfAnUnknownStandardIsRefused) {
    for (const uint32_t rate : {48000u, 96000u}) {
        ExpectRefused(Sound(0x01000000, rate), Bytes(kHeaderArea + 50000), true, kStatusInvalidArgument,
                      {"CSalvageMXF::Salvage: AudioSampleToDuration Error."});
    }
}

TEST_F(SalvageMXF, BuilderThatRefusesAValueLeavesTheFileAlone) {
    for (const bool video : {true, false}) {
        const Format format = video ? Video(VIDEO_STD_59_94I, COMP_TYPE_DV25) : Sound(VIDEO_STD_50I);
        const std::string step = video ? "CreateVideoHeader" : "CreateAudioHeader";
        const Bytes file = CutOff(format, Noise(240000, 1));
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        salvager->SetPackageName(std::string(201, 'n'));
        EXPECT_EQ(Run(), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::" + step + ": SetPackageName Error.",
                                             "CSalvageMXF::Salvage: " + step + " Error."));
        EXPECT_TRUE(SameBytes(file, stream->Bytes()));
        EXPECT_EQ(salvager->GetDuration(), 0u);
    }
}

TEST_F(SalvageMXF, HeaderThatDoesNotFitLeavesTheFileAlone) {
    Format format = Sound(VIDEO_STD_50I);
    const Bytes file = CutOff(format, Noise(3840, 1));
    format.clipType = 0x1FF;  // 255 sound tracks
    ExpectRefused(format, file, true, kStatusNoMemory, {"CSalvageMXF::Salvage: GetHeaderData Error."});
}

TEST_F(SalvageMXF, BuilderThatHasNoFooterFailsWithItsStatus) {
    struct Scripted : CSalvageMXF {
        Scripted() : CSalvageMXF(true) {}
        int32_t SetMXFParam() override {
            builder_ = std::make_unique<ScriptedBuilder<COpAtomSound>>(script, 0u, 0u, 48000u, 0u, 16u, false);
            return script.answers["SetMXFParam"];
        }
        Script script;
    };
    const Format format = Sound(VIDEO_STD_50I);
    for (const auto& [operation, line] : std::vector<std::pair<std::string, std::string>>{
             {"SetMXFParam", "CSalvageMXF::Salvage: CreateAudioHeader Error."},
             {"GetHeaderData", "CSalvageMXF::Salvage: GetHeaderData Error."},
             {"GetFooterData", "CSalvageMXF::Salvage: GetFooterData Error."}}) {
        auto scripted = std::make_unique<Scripted>();
        Script& script = scripted->script;
        script.answers[operation] = kStatusDisagree;
        Describe(*scripted, format);
        salvager = std::move(scripted);
        stream = std::make_unique<FaultyStream>(Bytes(kHeaderArea + 3840));
        EXPECT_EQ(Run(), kStatusDisagree) << operation;
        EXPECT_THAT(log.Lines(), ElementsAre(line));
        EXPECT_EQ(script.built, script.destroyed);
    }
    auto scripted = std::make_unique<Scripted>();
    Script& script = scripted->script;
    Describe(*scripted, format);
    salvager = std::move(scripted);
    stream = std::make_unique<FaultyStream>(Bytes(kHeaderArea + 3840 + 1000));
    EXPECT_EQ(Run(), kStatusOk);
    EXPECT_THAT(script.calls, ElementsAre("GetHeaderData", "GetFooterData"));
    EXPECT_EQ(Runs(stream->Bytes()), std::string("H*32768 ") + '\0' + "*3840 F*224 " + '\0' + "*776");
}

TEST_F(SalvageMXF, EveryFailureOfTheStreamIsReportedAndLeavesNothingBehind) {
    const Format format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const Bytes file = CutOff(format, LoadTestData("essence/dv25-5994i.dif"));
    const std::string here = "CSalvageMXF::Salvage: ", read = "CSalvageMXF::GetVideoParam: Read Error.";
    const std::string write = "CCreateMXFBase::WriteStreamPiece: Write Error.";
    struct Row {
        const char* call;
        int32_t status;
        std::vector<std::string> lines;
    };
    const std::vector<Row> rows = {
        {"Open cut.mxf 0x2", kStatusIoError, {"CCreateMXFBase::Open: Open Error.", here + "Open Error."}},
        {"RegisterCallback", kStatusIoError, {"CCreateMXFBase::Open: RegisterCallback Error.", here + "Open Error."}},
        {"Seek 0 0", kStatusIoError, {here + "Seek Error."}},
        {"Seek 0 2", kStatusIoError, {here + "Seek Error."}},
        {"GetPieceAllocator", kStatusOk, {read}},  // the first frame
        {"Allocate 120000", kStatusOk, {read}},
        {"Seek 32768 0", kStatusOk, {read}},
        {"Read 120000", kStatusOk, {read}},
        {"GetPieceAllocator", kStatusOk, {read}},  // the last frame
        {"Allocate 120000", kStatusOk, {read}},
        {"Seek 152768 0", kStatusOk, {read}},
        {"Read 120000", kStatusOk, {read}},
        {"Seek 0 0", kStatusIoError, {here + "Seek Error."}},  // the header
        {"GetPieceAllocator", kStatusNoMemory, {here + "Allocate Error."}},
        {"Allocate 32768", kStatusNoMemory, {here + "Allocate Error."}},
        {"Write 32768 tag 1", kStatusIoError, {write, here + "Write Error."}},
        {"GetPieceAllocator", kStatusOk, {}},                       // of the completion; the piece is freed later
        {"Seek 272768 0", kStatusIoError, {here + "Seek Error."}},  // the footer
        {"GetPieceAllocator", kStatusNoMemory, {here + "Allocate Error."}},
        {"Allocate 224", kStatusNoMemory, {here + "Allocate Error."}},
        {"Write 224 tag 2", kStatusIoError, {write, here + "Write Error."}},
        {"GetPieceAllocator", kStatusOk, {}},
        {"DataSync", kStatusIoError, {here + "DataSync Error."}},
        {"Close", kStatusOk, {"CCreateMXFBase::FileClose: FileClose Error."}},
    };
    {
        ASSERT_EQ(Salvage(format, file, true), kStatusOk);
        std::vector<std::string> calls;
        for (const Row& row : rows) calls.emplace_back(row.call);
        ASSERT_EQ(stream->Calls(), calls);
    }
    for (const Fault fault : {Fault::kFail, Fault::kFailCompleted, Fault::kShort}) {
        for (size_t call = 0; call < rows.size(); ++call) {
            SCOPED_TRACE(testing::Message() << call << " " << rows[call].call);
            stream = std::make_unique<FaultyStream>(file);
            stream->FailNthOfAll(static_cast<int>(call + 1), fault);
            salvager = std::make_unique<CSalvageMXF>(true);
            Describe(*salvager, format);
            EXPECT_EQ(Run(), rows[call].status);
            auto lines = rows[call].lines;
            const bool completes = fault != Fault::kFail && std::string(rows[call].call).starts_with("Write");
            if (completes) {
                lines.insert(lines.begin(),
                             "CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.");
            }
            EXPECT_EQ(log.Lines(), lines);
            EXPECT_EQ(salvager->GetDuration(), rows[call].status == kStatusOk ? 2u : 0u);
            EXPECT_EQ(salvager->GetDataSize(), rows[call].status == kStatusOk ? 240000 : 0);
            // Whatever failed: the essence is as it was.
            EXPECT_TRUE(SameBytes(std::span(file).subspan(kHeaderArea),
                                  std::span(stream->Bytes()).subspan(kHeaderArea, 240000)));
        }
    }
}

TEST_F(SalvageMXF, WithoutAStreamNothingIsOpened) {
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, Sound(VIDEO_STD_50I));
    {
        const StreamFactory factory(nullptr);
        EXPECT_EQ(salvager->Salvage(), kStatusInvalidArgument);
        EXPECT_EQ(factory.Live(), 0);
    }
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::Salvage: Open Error."));
    log.Clear();
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) { return nullptr; });
    EXPECT_EQ(salvager->Salvage(), kStatusInvalidArgument);
    CFileIOMain::SetFactoryProvider({});
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::Salvage: Open Error."));
}

TEST_F(SalvageMXF, WaitsForAStreamThatWritesLater) {
    const Format format = Sound(VIDEO_STD_50I, 48000, 3);
    const Bytes file = CutOff(format, Noise(5760 * 3, 7));
    stream = std::make_unique<FaultyStream>(file);
    stream->CompleteAsynchronously(std::chrono::milliseconds(10));
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    ASSERT_EQ(Run(), kStatusOk);
    ExpectWhole(format, file, 3, 5760 * 3);
}

TEST_F(SalvageMXF, WriteThatIsLostLaterIsNotTakenForSalvaged) {
    const Format format = Sound(VIDEO_STD_50I);
    stream = std::make_unique<FaultyStream>(Bytes(kHeaderArea + 3840));
    stream->FailNth(Op::kWrite, 2, Fault::kBadCompletion);
    stream->FailNth(Op::kDataSync, 1);
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    EXPECT_EQ(Run(), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.",
                                         "CSalvageMXF::Salvage: DataSync Error."));
}

TEST_F(SalvageMXF, ClientCannotWriteThroughASalvager) {
    FaultyStream own(Bytes(kHeaderArea + 3840, 0x5A));
    CSalvageMXF asked(true);
    Describe(asked, Sound(VIDEO_STD_50I));
    ASSERT_EQ(asked.Open(&own, true), kStatusOk);
    CMemoryPiece piece(100);
    EXPECT_EQ(asked.Write(&piece, 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: m_pOpAtomBase is NULL."));
    EXPECT_EQ(own.Bytes(), Bytes(kHeaderArea + 3840, 0x5A));
}

// --- on disk ---

TEST_F(SalvageMXF, SalvagesFilesOnDiskOneAfterTheOther) {
    const TemporaryFolder folder;
    CSalvageMXF one(true);
    for (const Format& format : {Video(VIDEO_STD_50I, COMP_TYPE_DV50), Sound(VIDEO_STD_59_94I, 48000, 3)}) {
        const Bytes essence = format.fileType == kFileTypeVideo ? LoadTestData("essence/dv50-50i.dif")
                                                                : Noise(format.SoundSize(12) + 5, 3);
        const Bytes file = CutOff(format, essence);
        const std::string name = folder.File("clip.mxf");
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        Describe(one, format);
        one.SetFilename(name.c_str());
        EXPECT_FALSE(one.IsCompletedFile());
        ASSERT_EQ(one.Salvage(), kStatusOk);
        EXPECT_TRUE(one.IsCompletedFile());
        const bool video = format.fileType == kFileTypeVideo;
        EXPECT_EQ(one.GetDuration(), video ? 2u : 12u);
        const Bytes salvaged = LoadFile(name);
        EXPECT_EQ(BigEndian(std::span(salvaged).subspan(44, 8)), 32768u + static_cast<uint64_t>(one.GetDataSize()));
        EXPECT_TRUE(SameBytes(std::span(file).subspan(kHeaderArea, static_cast<size_t>(one.GetDataSize())),
                              std::span(salvaged).subspan(kHeaderArea, static_cast<size_t>(one.GetDataSize()))));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
    Describe(one, Sound(VIDEO_STD_50I));
    one.SetFilename(folder.File("no such file").c_str());
    EXPECT_EQ(one.Salvage(), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: Open Error.", "CSalvageMXF::Salvage: Open Error."));
    EXPECT_FALSE(std::ifstream(folder.File("no such file")).is_open());
}

}  // namespace
}  // namespace kmxf::test
