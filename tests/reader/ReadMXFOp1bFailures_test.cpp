#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "reader/Op1bReading.h"

namespace kmxf::test {
namespace {

using testing::IsEmpty;

TEST_F(ReadMXFOp1b, EveryStreamFailureAtEveryOperationIsReported) {
    clip.channels = 1;
    clip.AddPictures(60);
    clip.pictures[50] = {PictureWithPacks()};
    const auto bytes = clip.Bytes();
    // What a run does; the statuses it got.
    const auto run = [&](FaultyStream& file) {
        std::vector<int32_t> statuses{reader.Open("a", &file)};
        if (statuses[0] != 0) return statuses;
        CTimecode timecode;
        statuses.push_back(reader.GetVideoInfo(47, video));
        statuses.push_back(reader.GetVideoInfoFiller(47, video));
        statuses.push_back(reader.GetANCInfo(47, anc));
        statuses.push_back(reader.GetVideoInfo(48, video));
        statuses.push_back(reader.GetTimecode(50, timecode, SEI_DATA_TYPE1));
        return statuses;
    };
    FaultyStream good(bytes);
    EXPECT_THAT(run(good), testing::Each(0));
    const int calls = good.CountOfAll();
    reader.Close();
    EXPECT_THAT(log.Lines(), IsEmpty());

    for (const Fault fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile}) {
        for (int n = 1; n <= calls + 1; ++n) {
            log.Clear();
            FaultyStream file(bytes);
            file.FailNthOfAll(n, fault);
            const auto statuses = run(file);
            const auto failed = std::ranges::count_if(statuses, [](int32_t status) { return status != 0; });
            EXPECT_EQ(statuses[0] == 0, file.IsOpened()) << n;
            EXPECT_EQ(0, file.LivePieces()) << n;
            EXPECT_EQ(0, file.LiveAllocators()) << n;
            reader.Close();
            // Not every operation can be short, and the end of the file is nothing to a seek.
            EXPECT_EQ(n <= calls, failed > 0) << n << ", fault " << static_cast<int>(fault);
            EXPECT_EQ(n <= calls + 1, !log.Lines().empty()) << n << ": the last is Close";
            EXPECT_FALSE(file.IsOpened()) << n;
        }
    }
    FaultyStream again(bytes);
    EXPECT_THAT(run(again), testing::Each(0)) << "the reader is as good as new";
    reader.Close();
}

TEST_F(ReadMXFOp1b, EveryCutOfAFileEnds) {
    clip.AddPictures(2);
    clip.channels = 1;
    clip.headerSize = 2400;
    for (auto& picture : clip.pictures) picture.bytes.resize(8);
    clip.moreSets = Join({XMLGroup(ByteVector(9)), ThumbnailGroup(ByteVector(9))});
    const auto whole = clip.Bytes();
    ASSERT_EQ(0, Open(whole));
    for (size_t size = 0; size < whole.size(); size += size < clip.headerSize || size + 300 > whole.size() ? 1u : 97u) {
        EXPECT_NE(0, Open(ByteVector(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)))) << size;
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_FALSE(log.Lines().empty());
    }
}

TEST_F(ReadMXFOp1b, EveryByteMayBeWrong) {
    clip.AddPictures(2);
    clip.channels = 1;
    clip.headerSize = 2400;
    for (auto& picture : clip.pictures) picture.bytes = PictureWithPacks();
    clip.moreSets = Join({XMLGroup(ByteVector(9)), ThumbnailGroup(ByteVector(9))});
    const auto whole = clip.Bytes();
    const size_t sound = clip.soundAt[0][0];
    CTimecode timecode;
    for (size_t at = 0; at < whole.size(); ++at) {
        if (at > sound && at + 400 < whole.size()) continue;                                 // samples
        if (at > 0 && whole[at - 1] == 0 && whole[at] == 0 && whole[at + 1] == 0) continue;  // fill
        auto bytes = whole;
        bytes[at] = static_cast<uint8_t>(~bytes[at]);
        if (Open(std::move(bytes)) != 0) continue;
        for (uint32_t frame = 0; frame < 3; ++frame) {
            reader.GetVideoInfoFiller(frame, video);
            reader.GetAudioInfo(frame, 0, audio);
            reader.GetANCInfo(frame, anc);
            reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1);
        }
        ExpectNothingHeld();
    }
}

}  // namespace
}  // namespace kmxf::test
