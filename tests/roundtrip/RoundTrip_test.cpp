// What goes into a recording comes out of it: every format, through streams of every kind, in pieces of odd sizes.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "roundtrip/Recording.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/StreamKinds.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

// Odd sizes, with a large one now and then so that a slow stream gets through in time.
const std::vector<uint32_t> kPieceSizes = {1, 99991, 7, 250007};

struct Format {
    uint32_t videoStd, compType;
    bool consumerDV;
};
std::vector<Format> AllFormats() {
    std::vector<Format> formats;
    for (const uint32_t compType :
         {0x0400u, 0x4800u, 0x4D00u, 0x4E00u, 0xC900u, 0xCA00u, 0xCD00u, 0xCE00u, 0xD100u, 0xD200u}) {
        for (const uint32_t videoStd :
             {0x0100007Cu, 0x010000B2u, 0x02000058u, 0x0200005Eu, 0x0200007Cu, 0x02000099u, 0x020000B2u}) {
            if (GetFrameDataSize(videoStd, compType) == 0) continue;
            formats.push_back({videoStd, compType, false});
            if (compType == 0x0400) formats.push_back({videoStd, compType, true});
        }
    }
    return formats;
}

void RecordAndReadVideo(const Format& format, uint32_t frames, bool rewriteHeader, IStreamFileIO& writing,
                        IStreamFileIO& reading, const char* name) {
    const uint32_t frameSize = GetFrameDataSize(format.videoStd, format.compType);
    const auto essence = Noise(size_t{frameSize} * frames, format.compType ^ format.videoStd);
    {
        Feeder feeder;
        CCreateMXFVideo writer;
        writer.SetFilename(name);
        writer.SetVideoStandard(format.videoStd);
        writer.SetDVType(format.compType);
        writer.SetConsumerDV(format.consumerDV);
        writer.SetClipType(0x104);
        writer.SetRenderingDataSize(static_cast<int64_t>(essence.size()));
        ASSERT_EQ(writer.Open(&writing, rewriteHeader), 0);
        ASSERT_TRUE(writer.IsOpened());
        feeder.Write(writer, essence, kPieceSizes);
        ASSERT_EQ(writer.Close(), 0);
        ASSERT_EQ(feeder.UnderWay(), 0u);
    }
    CReadMXFVideo reader;
    reader.SetFilename(name);
    ASSERT_EQ(reader.Open(&reading, true), 0);
    EXPECT_EQ(reader.GetVideoStandard(), format.videoStd);
    EXPECT_EQ(reader.GetCompType(), format.compType);
    EXPECT_EQ(reader.IsConsumerDV(), format.consumerDV);
    ASSERT_EQ(reader.GetFrameDataSize(), frameSize);
    ASSERT_EQ(reader.GetDuration(), frames);
    for (uint32_t frame = frames; frame-- > 0;) {
        uint8_t* data = nullptr;
        ASSERT_EQ(reader.GetFrameData(frame, &data), 0);
        EXPECT_TRUE(SameBytes(std::span(essence).subspan(size_t{frame} * frameSize, frameSize), {data, frameSize}));
        reader.ReleaseFrameData(data);
    }
}

TEST(RoundTrip, EveryVideoFormatThroughEveryKindOfStream) {
    const auto formats = AllFormats();
    EXPECT_EQ(formats.size(), 13u + 36u);
    const auto kinds = StreamKinds();
    for (size_t i = 0; i < formats.size(); ++i) {
        for (size_t k = 0; k < kinds.size(); ++k) {
            // The slow ones take their time: one format in four each.
            if (k >= 2 && (i + k) % 4 != 0) continue;
            SCOPED_TRACE(std::string(kinds[k].name) + " " + std::to_string(formats[i].compType) + " " +
                         std::to_string(formats[i].videoStd));
            kinds[k].with([&](IStreamFileIO& writing, IStreamFileIO& reading, const char* name) {
                RecordAndReadVideo(formats[i], 2, i % 2 == 0, writing, reading, name);
            });
        }
    }
}

TEST(RoundTrip, EveryKindOfSoundThroughEveryKindOfStream) {
    for (const StreamKind& kind : StreamKinds()) {
        for (const uint32_t rate : {48000u, 96000u}) {
            for (const uint16_t bytesPerSample : {uint16_t{2}, uint16_t{3}}) {
                SCOPED_TRACE(std::string(kind.name) + " " + std::to_string(rate) + " " +
                             std::to_string(bytesPerSample));
                const auto samples = DurationToAudioSample(VIDEO_STD_59_94I, 30, rate);
                const auto essence = Noise(static_cast<size_t>(samples) * bytesPerSample, rate + bytesPerSample);
                kind.with([&](IStreamFileIO& writing, IStreamFileIO& reading, const char* name) {
                    Feeder feeder;
                    CCreateMXFAudio writer;
                    writer.SetFilename(name);
                    writer.SetVideoStandard(VIDEO_STD_59_94I);
                    writer.SetClipType(0x104);
                    writer.SetSamplesPerSec(rate);
                    writer.SetBytesPerSample(bytesPerSample);
                    ASSERT_EQ(writer.Open(&writing, true), 0);
                    feeder.Write(writer, essence, {4001, 33331, 2});
                    uint32_t frames = 0;
                    writer.GetTotalDuration(&frames);
                    EXPECT_EQ(frames, 30u);
                    ASSERT_EQ(writer.Close(), 0);

                    CReadMXFAudio reader;
                    reader.SetFilename(name);
                    ASSERT_EQ(reader.Open(&reading, true), 0);
                    EXPECT_EQ(reader.GetSamplingRate(), rate);
                    EXPECT_EQ(reader.GetBitsPerSample(), bytesPerSample * 8u);
                    int64_t size = 0;
                    uint32_t offset = 0;
                    ASSERT_EQ(reader.GetDataSize(&size), 0);
                    ASSERT_EQ(reader.GetDataOffset(&offset), 0);
                    ASSERT_EQ(size, static_cast<int64_t>(essence.size()));
                    // The lookups moved the position: raw file positions from here on.
                    ASSERT_EQ(reader.Seek(offset, kSeekBegin), int64_t{offset});
                    std::vector<uint8_t> back;
                    while (back.size() < essence.size()) {
                        CMemoryPiece piece(static_cast<uint32_t>(std::min<size_t>(7001, essence.size() - back.size())));
                        const int32_t count = reader.Read(&piece);
                        ASSERT_GT(count, 0);
                        back.insert(back.end(), piece.GetBuffer(), piece.GetBuffer() + count);
                    }
                    EXPECT_TRUE(SameBytes(essence, back));
                });
            }
        }
    }
}

TEST(RoundTrip, ReadBackGivesTheLastUnitAndTakesItAgain) {
    for (const StreamKind& kind : StreamKinds()) {
        SCOPED_TRACE(kind.name);
        const auto essence = Noise(2 * 120000, 5);
        kind.with([&](IStreamFileIO& writing, IStreamFileIO& reading, const char* name) {
            Feeder feeder;
            CCreateMXFVideo writer;
            writer.SetFilename(name);
            writer.SetVideoStandard(VIDEO_STD_59_94I);
            writer.SetDVType(COMP_TYPE_DV25);
            ASSERT_EQ(writer.Open(&writing, true), 0);
            feeder.Write(writer, std::span(essence).first(70000), {70000});
            ASSERT_EQ(writer.GetReadBackSize(), 4464u);
            CMemoryPiece unit(4464);
            ASSERT_EQ(writer.ReadBack(&unit), 4464);
            EXPECT_TRUE(SameBytes(std::span(essence).subspan(65536, 4464), {unit.GetBuffer(), 4464}));
            feeder.Write(writer, std::span(essence).subspan(65536), {32768});
            ASSERT_EQ(writer.Close(), 0);

            CReadMXFVideo reader;
            reader.SetFilename(name);
            ASSERT_EQ(reader.Open(&reading, true), 0);
            ASSERT_EQ(reader.GetDuration(), 2u);
            uint8_t* data = nullptr;
            ASSERT_EQ(reader.GetFrameData(0, &data), 0);
            EXPECT_TRUE(SameBytes(std::span(essence).first(120000), {data, 120000}));
            reader.ReleaseFrameData(data);
        });
    }
}

}  // namespace
}  // namespace kmxf::test
