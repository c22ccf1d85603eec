// Files as they come off damaged cards: whatever they hold, the readers answer with a status, and nothing more happens.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "roundtrip/Recording.h"
#include "support/LogRecorder.h"

namespace kmxf::test {
namespace {

std::vector<uint8_t> RecordedFile(uint32_t compType) {
    const uint32_t frameSize = GetFrameDataSize(VIDEO_STD_59_94P, compType);
    CMemoryFileIO stream;
    Feeder feeder;
    CCreateMXFVideo writer;
    writer.SetVideoStandard(VIDEO_STD_59_94P);
    writer.SetDVType(compType);
    writer.SetClipType(0x102);
    EXPECT_EQ(writer.Open(&stream, true), 0);
    feeder.Write(writer, Noise(size_t{frameSize} * 2, compType), {frameSize});
    EXPECT_EQ(writer.Close(), 0);
    return stream.GetContents();
}

// Does with a file what a client would. What fails hands nothing out; what is left behind the leak checker tells.
void Exercise(std::vector<uint8_t> contents) {
    CMemoryFileIO stream(std::move(contents));
    CReadMXFVideo video;
    video.SetFilename("damaged");
    video.Open(&stream, true);
    if (video.IsReadHeader()) {
        if (video.GetFrameDataSize() < 4u << 20) {
            const auto take = [&](auto get, auto release, uint32_t frame) {
                uint8_t* data = nullptr;
                EXPECT_EQ((video.*get)(frame, &data) == kStatusOk, data != nullptr);
                if (data != nullptr) (video.*release)(data);
            };
            take(&CReadMXFVideo::GetFrameData, &CReadMXFVideo::ReleaseFrameData, 1);
            take(&CReadMXFVideo::GetDIFData, &CReadMXFVideo::ReleaseDIFData, 1);
            take(&CReadMXFVideo::GetSEIData, &CReadMXFVideo::ReleaseSEIData, 0xFFFFFFFF);
        }
        CTimecode timecode;
        CUsersBit usersBit;
        MXFUMIDEXTag umid;
        uint8_t clf = 0;
        video.GetStartTimecode(&timecode);
        video.GetEndTimecode(&timecode);
        video.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2);
        video.GetEndUMID(&umid);
        video.GetEndCLF(&clf);
        video.IsValidDMS();
    }
    EXPECT_EQ(video.Close(), kStatusOk);
    EXPECT_FALSE(video.IsOpened());
    CReadMXFAudio audio;
    audio.SetFilename("damaged");
    audio.Open(&stream, true);
    if (audio.IsReadHeader()) {
        audio.GetSamplingRate();
        audio.GetBitsPerSample();
        uint32_t fileType = 0;
        EXPECT_EQ(audio.GetFileType(&fileType), kStatusOk);
    }
    EXPECT_EQ(audio.Close(), kStatusOk);
    EXPECT_FALSE(audio.IsOpened());
}

class DamagedFiles : public testing::TestWithParam<uint32_t> {
protected:
    LogRecorder quiet_;
    std::vector<uint8_t> file_ = RecordedFile(GetParam());
};

TEST_P(DamagedFiles, CutAnywhereInTheHeaderArea) {
    for (size_t size = 0; size < 32768; size += size < 4096 || size > 32500 ? 1 : 61) {
        CMemoryFileIO stream(std::vector<uint8_t>(file_.begin(), file_.begin() + static_cast<std::ptrdiff_t>(size)));
        CReadMXFVideo reader;
        reader.SetFilename("cut");
        EXPECT_NE(reader.Open(&stream, true), kStatusOk) << size;
        EXPECT_FALSE(reader.IsOpened()) << size;
    }
}

TEST_P(DamagedFiles, CutAnywhereInTheEssence) {
    for (size_t size = 32768; size < file_.size(); size += 39989) {
        Exercise({file_.begin(), file_.begin() + static_cast<std::ptrdiff_t>(size)});
    }
}

TEST_P(DamagedFiles, EveryByteOfTheHeaderTurnedOver) {
    // The packs, primer, sets and the essence head; the fill between them only here and there.
    for (size_t at = 0; at < 32768; at += at < 5200 || at > 32600 ? 3 : 97) {
        auto damaged = std::vector<uint8_t>(file_.begin(), file_.begin() + 34000);
        damaged[at] = static_cast<uint8_t>(~damaged[at]);
        Exercise(std::move(damaged));
    }
}

TEST_P(DamagedFiles, LengthsOfAllOnes) {
    // Wherever a packet's length stands: 0x83 and three bytes behind a label that begins 06 0E 2B 34.
    for (size_t at = 0; at + 24 < 32768; ++at) {
        static constexpr uint8_t kLabel[] = {0x06, 0x0E, 0x2B, 0x34};
        const auto here = file_.begin() + static_cast<std::ptrdiff_t>(at);
        if (!std::equal(std::begin(kLabel), std::end(kLabel), here) || (file_[at + 16] & 0x80) == 0) continue;
        for (const uint8_t form : {uint8_t{0x83}, uint8_t{0x88}, uint8_t{0xFF}}) {
            auto damaged = std::vector<uint8_t>(file_.begin(), file_.begin() + 34000);
            damaged[at + 16] = form;
            std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at + 17), 7, uint8_t{0xFF});
            Exercise(std::move(damaged));
        }
    }
    auto all = file_;
    std::fill(all.begin() + 16, all.begin() + 32768, uint8_t{0xFF});
    Exercise(std::move(all));
}

TEST_P(DamagedFiles, RandomBytes) {
    std::mt19937 random(GetParam());
    for (int i = 0; i < 60; ++i) {
        auto damaged = std::vector<uint8_t>(file_.begin(), file_.begin() + 40000);
        const size_t start = random() % 32768;
        const size_t count = 1 + random() % 300;
        for (size_t at = start; at < start + count; ++at) damaged[at] = static_cast<uint8_t>(random());
        Exercise(std::move(damaged));
    }
    for (int i = 0; i < 20; ++i) Exercise(Noise(32768 + random() % 5000, static_cast<uint32_t>(random())));
}

INSTANTIATE_TEST_SUITE_P(DVAndAVCIntra, DamagedFiles, testing::Values(COMP_TYPE_DV100_720P, COMP_TYPE_AVCI50_720));

}  // namespace
}  // namespace kmxf::test
