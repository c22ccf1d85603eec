#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "reader/FailingAllocation.h"
#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(MXFExtractMetaData, NothingIsKnownBeforeAnExtraction) { ExpectNothingExtracted(); }

TEST_F(MXFExtractMetaData, NullPointersAndChannelsThatAreNotThereAreRefused) {
    RecordClip();
    ASSERT_EQ(Extract(), kStatusOk);
    ExpectEach(AllAccessors(), kStatusInvalidArgument, true);
    for (const uint32_t channel : {2u, 0xFFFFFFFFu}) ExpectEach(AudioAccessors(channel), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, ResetForgetsEverything) {
    RecordClip();
    ASSERT_EQ(Extract(), kStatusOk);
    extractor.ResetParam();
    ExpectNothingExtracted();
    ASSERT_EQ(Extract(), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 2u);
}

TEST_F(MXFExtractMetaData, SecondExtractionKnowsNothingOfTheFirst) {
    RecordClip();
    ASSERT_EQ(Extract(), kStatusOk);
    ClipSettings settings;
    settings.compType = COMP_TYPE_AVCI100_1080;
    settings.packageName = "Second";
    settings.metadata.ResetParam();
    ASSERT_EQ(ExtractClip(Video(settings, LoadTestData("essence/avci100-1080-5994i.raw"))), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "Second");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetFamilyName), "");
    ExpectEach(DIFAccessors(), kStatusNotFound);
    ExpectEach(AudioAccessors(0), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, FilesThatCannotBeOpenedFailTheClip) {
    RecordClip();
    ASSERT_EQ(Extract(), kStatusOk);
    EXPECT_EQ(extractor.ExtractMetaData("none", {}), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CMXFExtractMetaData::ExtractMetaData: GetVideoInformation Error."));
    const auto record = log.Records().back();
    EXPECT_EQ(record.module, "");
    EXPECT_EQ(record.sourceFile, "MXFExtractMetaData");
    EXPECT_EQ(record.level, kLogError);
    EXPECT_GT(record.line, 0);
    ExpectNothingExtracted();
    log.Clear();
    EXPECT_EQ(extractor.ExtractMetaData("/card/VIDEO/AB0001.MXF", {"/card/AUDIO/AB000100.MXF", "none"}),
              kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CMXFExtractMetaData::ExtractMetaData: GetAudioInformation Error."));
    ExpectNothingExtracted();
}

TEST_F(MXFExtractMetaData, VideoCutShortFailsAtEveryByteUpToTheEndOfTheFirstUnit) {
    const auto video = Video({}, DV25());
    for (size_t size = 0; size < 32768; size += size < 9000 || size > 32500 ? 1 : 61) {
        EXPECT_EQ(ExtractClip({video.begin(), video.begin() + static_cast<ptrdiff_t>(size)}), kStatusIoError) << size;
        EXPECT_EQ(files.Opened(), 0);
    }
    for (const size_t size : {size_t{32768}, size_t{32768 + 119999}})
        EXPECT_EQ(ExtractClip({video.begin(), video.begin() + static_cast<ptrdiff_t>(size)}), kStatusIoError) << size;
    EXPECT_EQ(ExtractClip({video.begin(), video.begin() + 32768 + 120000}), kStatusOk);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 240000);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoFileSize), 152768);
}

TEST_F(MXFExtractMetaData, SoundCutShortFailsAtEveryByteOfItsHeaderArea) {
    const auto sound = Sound({}, 3204);
    files["V"] = Video({}, DV25());
    ASSERT_EQ(extractor.ExtractMetaData("V", {}), kStatusOk);
    for (size_t size = 0; size < 32768; size += size < 9000 || size > 32500 ? 1 : 61) {
        files["A"].assign(sound.begin(), sound.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(extractor.GetAudioInformation("A"), kStatusIoError) << size;
        EXPECT_EQ(files.Opened(), 0);
    }
    files["A"].assign(sound.begin(), sound.begin() + 32768);
    EXPECT_EQ(extractor.GetAudioInformation("A"), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioDataSize, 0), 6408);
    EXPECT_EQ(Get(extractor, &C::GetAudioFileSize, 0), 32768);
}

TEST_F(MXFExtractMetaData, ReadingThatFailsAnywhereFailsTheClipAndClosesTheFile) {
    RecordClip();
    files.FailNth(0);
    ASSERT_EQ(Extract(), kStatusOk);
    const auto calls = files.Calls();
    ASSERT_GT(calls.size(), 100u);
    for (size_t call = 1; call <= calls.size(); ++call) {
        SCOPED_TRACE(std::to_string(call) + " " + calls[call - 1]);
        log.Clear();
        // A fresh one, so that the file object is made anew each time.
        Extractor fresh;
        files.FailNth(static_cast<int>(call));
        const int32_t status =
            fresh.ExtractMetaData("/card/VIDEO/AB0001.MXF", {"/card/AUDIO/AB000100.MXF", "/card/AUDIO/AB000101.MXF"});
        files.FailNth(0);
        EXPECT_EQ(files.Opened(), 0);
        uint32_t frames = 0;
        if (calls[call - 1] == "Close") {  // nothing is lost
            EXPECT_EQ(status, kStatusOk);
            EXPECT_THAT(log.Lines(), IsEmpty());
        } else {
            EXPECT_TRUE(status == kStatusIoError || status == kStatusNoMemory) << status;
            ASSERT_FALSE(log.Lines().empty());
            EXPECT_THAT(log.Lines().back(), testing::StartsWith("CMXFExtractMetaData::ExtractMetaData: Get"));
            EXPECT_EQ(fresh.GetClipDuration(&frames), kStatusNotFound);
        }
    }
}

TEST_F(MXFExtractMetaData, OneFileObjectServesAllFilesAndGoesWithTheExtractor) {
    RecordClip();
    {
        Extractor own;
        EXPECT_EQ(files.Live(), 0);
        files.FailNth(0);
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(own.ExtractMetaData("/card/VIDEO/AB0001.MXF", {"/card/AUDIO/AB000100.MXF"}), kStatusOk);
            EXPECT_EQ(files.Live(), 2);
        }
        EXPECT_EQ(std::ranges::count(files.Calls(), "GetFactory"), 1);
        EXPECT_EQ(std::ranges::count(files.Calls(), "CreateFileIO"), 1);
        EXPECT_EQ(std::ranges::count(files.Calls(), "Close"), 4);
    }
    EXPECT_EQ(files.Live(), 0);
}

TEST_F(MXFExtractMetaData, WithoutFactoryOrFileNothingIsExtractedUntilThereIsOne) {
    RecordClip();
    for (const int call : {1, 2}) {
        Extractor own;
        files.FailNth(call);
        EXPECT_EQ(own.ExtractMetaData("/card/VIDEO/AB0001.MXF", {}), kStatusIoError);
        files.FailNth(0);
        EXPECT_EQ(own.ExtractMetaData("/card/VIDEO/AB0001.MXF", {}), kStatusOk);
    }
    EXPECT_EQ(files.Live(), 0);
}

TEST_F(MXFExtractMetaData, SoundGivenAsVideoFails) {
    EXPECT_EQ(ExtractClip(Sound({}, 3204)), kStatusIoError);
    EXPECT_EQ(ExtractClip(Video({}, DV25()), {Video({}, DV25())}), kStatusFailure);
    EXPECT_THAT(log.Lines(), ElementsAre("CMXFExtractMetaData::ExtractMetaData: GetVideoInformation Error.",
                                         "CMXFExtractMetaData::ExtractMetaData: GetAudioInformation Error."));
}

TEST_F(MXFExtractMetaData, RubbishIsNoClip) {
    EXPECT_EQ(ExtractClip(ByteVector(100000)), kStatusIoError);
    EXPECT_EQ(ExtractClip(Noise(100000, 3)), kStatusIoError);
    EXPECT_EQ(ExtractClip(Video({}, DV25()), {ByteVector(100000)}), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, MissingValueFailsTheFile) {
    // Each item's tag made another: package name, start timecode, package UIDs, creation date, duration.
    const auto video = Video({}, DV25());
    const auto sound = Sound({}, 3204);
    const struct {
        std::string_view item;
        bool ofSound;
    } kRows[] = {{"44 02 01 90", true}, {"15 02 00 02", true}, {"15 01 00 08", true}, {"15 03 00 01", true},
                 {"44 01 00 20", true}, {"30 02 00 08", true}, {"44 05 00 08", false}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.item);
        auto other = Hex(row.item);
        other[0] = 0x7E;
        EXPECT_EQ(ExtractClip(Replaced(video, Hex(row.item), other)), kStatusIoError);
        EXPECT_EQ(ExtractClip(video, {Replaced(sound, Hex(row.item), other)}),
                  row.ofSound ? kStatusFailure : kStatusOk);
    }
    for (const std::string_view item : {"3D 01 00 04", "3D 03 00 08"}) {
        auto other = Hex(item);
        other[0] = 0x7E;
        EXPECT_EQ(ExtractClip(video, {Replaced(sound, Hex(item), other)}), kStatusFailure) << item;
    }
}

TEST_F(MXFExtractMetaData, VideoWithoutPrimerFailsAndSoundTellsWhy) {
    auto other = Hex(kPrimerKey);
    other[14] = 0x09;
    EXPECT_EQ(ExtractClip(Replaced(Video({}, DV25()), Hex(kPrimerKey), other)), kStatusIoError);
    EXPECT_EQ(ExtractClip(Video({}, DV25()), {Replaced(Sound({}, 3204), Hex(kPrimerKey), other)}), kStatusNoMemory);
}

TEST_F(MXFExtractMetaData, Of720LineDVAWholeUnitOfTwoFramesIsNeeded) {
    const ClipSettings settings = DV720Settings();
    auto video = Video(settings, LoadTestData("essence/dv100-720-5994p.dif"));
    video.resize(32768 + 480000);
    EXPECT_EQ(ExtractClip(video), kStatusOk);
    video.resize(32768 + 479999);
    EXPECT_EQ(ExtractClip(video), kStatusIoError);
    video.resize(32768 + 240000);
    EXPECT_EQ(ExtractClip(video), kStatusIoError);
}

TEST_F(MXFExtractMetaData, WithoutMemoryThereIsAStatus) {
    const auto video = Video({}, DV25()), sound = Sound({}, 3204);
    MXFKEYTag key = Key(kMaterialKey);
    int64_t offset = 0;
    uint32_t length = 0;
    std::vector<MXFLOCALTAGENTRYTag> entries;
    IFileIO* opened = Opened(video);
    {
        const FailingAllocation none(FailingAllocation::By::kNew, 25);
        EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4401, &offset, &length), kStatusNoMemory);
        EXPECT_EQ(extractor.GetPrimerPackData(opened, entries), kStatusNoMemory);
        EXPECT_EQ(extractor.GetDataOffset(opened), 0u);
        EXPECT_EQ(extractor.GetMXFBodyDataSize(opened), 0);
        EXPECT_THAT(log.Lines(), ElementsAre("CMXFExtractMetaData::GetMXFBodyDataSize: Error."));
    }
    ASSERT_EQ(ExtractClip(video, {sound}), kStatusOk);
    {
        const FailingAllocation none(FailingAllocation::By::kNew, 120000);
        MXFUMIDEXTag umid;
        EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
        EXPECT_EQ(extractor.ExtractMetaData("V", {}), kStatusIoError);
    }
    ASSERT_EQ(extractor.ExtractMetaData("V", {}), kStatusOk);
    const FailingAllocation none(FailingAllocation::By::kNew, 25);
    EXPECT_EQ(extractor.GetAudioInformation("A0"), kStatusNoMemory);
    EXPECT_EQ(extractor.GetVideoInformation("V"), kStatusIoError);
}

TEST_F(MXFExtractMetaData, DamageAnywhereInTheHeaderGivesAStatusAndNothingWorse) {
    const auto video = Video({}, DV25());
    const auto sound = Sound({}, 3204);
    for (uint32_t seed = 0; seed < 300; ++seed) {
        auto damaged = seed % 2 != 0 ? video : sound;
        const auto random = Noise(24, seed + 1);
        for (size_t i = 0; i + 3 < random.size(); i += 4) {
            const size_t at = (size_t{random[i]} << 8 | random[i + 1]) % (i % 8 == 0 ? 9000 : 32768);
            damaged[at] = random[i + 2];
        }
        if (seed % 2 != 0) {
            const int32_t status = ExtractClip(damaged);
            EXPECT_TRUE(status == kStatusOk || status == kStatusIoError) << status;
            MXFUMIDEXTag umid;
            extractor.GetDIFEndUMID(&umid);
        } else {
            const int32_t status = ExtractClip(video, {damaged});
            EXPECT_TRUE(status == kStatusOk || (status <= kStatusFailure && status >= kStatusIoError)) << status;
        }
        EXPECT_EQ(files.Opened(), 0);
    }
}

}  // namespace
}  // namespace kmxf::test
