#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <utility>

#include "support/TemporaryFolder.h"
#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

using testing::IsEmpty;

TEST_F(MXFExtractMetaData, ClipIsReportedAsItWasRecorded) {
    RecordClip();
    ASSERT_EQ(Extract(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());

    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 2u);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetClipName), "AB0001");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "Żółw");
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetMXFStartTimecode).GetText(), "00:00:59;28");
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetMaterialUMID), UMID(0xA0));
    EXPECT_EQ(Get<std::string>(extractor, &C::GetJobFunction), "Caméra");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetFamilyName), "Nowak");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetFirstGivenName), "Ada");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetProjectName), "北 river");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetProjectNumber), "P-7");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetSceneNumber), "12B");
    EXPECT_EQ(Get<uint16_t>(extractor, &C::GetTakeNumber), 5u);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetClipKind), "moving pictures and sound");

    EXPECT_FALSE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_FALSE(Get<bool>(extractor, &C::GetConsumerDVFlag));
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 2u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDataOffset), 32768u);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 240000);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoFileSize), 272992);  // 32768, 2 frames, footer of 224
    EXPECT_EQ(Get<MXFTIMESTAMPTag>(extractor, &C::GetVideoCreationDate), (MXFTIMESTAMPTag{2026, 3, 4, 5, 6, 7, 0}));
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetVideoFileUMID), UMID(1));
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetVideoMaterialUMID), UMID(0xA0));
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetText(), "00:00:59;28");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetVideoClipName), "Żółw");
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0x0100007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0x0400u);

    for (const uint32_t channel : {0u, 1u}) {
        EXPECT_EQ(Get(extractor, &C::GetAudioDuration, channel), 2u);
        EXPECT_EQ(Get(extractor, &C::GetAudioDataOffset, channel), 32768u);
        EXPECT_EQ(Get(extractor, &C::GetAudioDataSize, channel), 6408);
        EXPECT_EQ(Get(extractor, &C::GetAudioFileSize, channel), 32768 + 6408 + 224);
        EXPECT_EQ(Get(extractor, &C::GetAudioFileUMID, channel), UMID(channel == 0 ? 2 : 3));
        EXPECT_EQ(Get(extractor, &C::GetAudioMaterialUMID, channel), UMID(0xA0));
        EXPECT_EQ(Get(extractor, &C::GetAudioBitsPerSample, channel), 16u);
        EXPECT_EQ(Get(extractor, &C::GetAudioSamplingRate, channel), 48000u);
        EXPECT_EQ(Get(extractor, &C::GetAudioClipName, channel), "Żółw");
        EXPECT_EQ(Get(extractor, &C::GetAudioStartTimecode, channel).GetText(), "00:00:59;28");
    }
}

TEST_F(MXFExtractMetaData, FilesAreReadFromDiskToo) {
    CFileIOMain::SetFactoryProvider({});
    const TemporaryFolder folder;
    const auto video = Video({}, DV25());
    const std::string name = folder.File("AB0001.MXF");
    {
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char*>(video.data()), static_cast<std::streamsize>(video.size()));
    }
    ASSERT_EQ(extractor.ExtractMetaData(name, {}), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetClipName), "AB0001");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "Żółw");
    EXPECT_EQ(extractor.ExtractMetaData(folder.File("none.mxf"), {}), kStatusIoError);
}

TEST_F(MXFExtractMetaData, OnlyHeadersAndTheFirstUnitAreRead) {
    RecordClip();
    files.FailNth(0);
    ASSERT_EQ(Extract(), kStatusOk);
    // Six times at most the header area of 32768 bytes in each file, and a unit of 120000 bytes.
    EXPECT_LT(files.BytesRead(), 3u * 6 * 32768 + 120000);
    int units = 0;
    for (const std::string& call : files.Calls()) {
        const long size = call.starts_with("Read ") ? std::stol(call.substr(5)) : 0;
        if (size == 120000) ++units;
        EXPECT_TRUE(size <= 32768 || size == 120000) << call;
    }
    EXPECT_EQ(units, 1);
}

TEST_F(MXFExtractMetaData, ClipNameLosesItsFolderAndFourCharactersBehindTheSixth) {
    const auto video = Video({}, DV25());
    const struct {
        const char *path, *name;
    } kRows[] = {
        {"AB0001.MXF", "AB0001"},
        {"D:\\CONTENTS\\VIDEO\\AB0001.MXF", "AB0001"},
        {"/mnt/card/AB0001.MXF", "AB0001"},
        {"/mnt\\card/AB0001.MXF", "AB0001"},
        {"/mnt/card\\AB0001.MXF", "AB0001"},
        {"AB0001V1.MXF", "AB0001XF"},
        {"AB00.MXF", "AB00.M"},
        {"ABCDEF", "ABCDEF"},
        {"a.mxf", "a.mxf"},
        {"ABCDEFG", "ABCDEF"},
        {"folder/", ""},
    };
    for (const auto& row : kRows) {
        files[row.path] = video;
        EXPECT_EQ(extractor.ExtractMetaData(row.path, {}), kStatusOk);
        EXPECT_EQ(Get<std::string>(extractor, &C::GetClipName), row.name) << row.path;
    }
}

TEST_F(MXFExtractMetaData, SoundWithOtherSettingsHasItsOwnValues) {
    ClipSettings settings;
    settings.samplingRate = 96000;
    settings.bytesPerSample = 3;
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound(settings, 6412)}), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioBitsPerSample, 0), 24u);
    EXPECT_EQ(Get(extractor, &C::GetAudioSamplingRate, 0), 96000u);
    EXPECT_EQ(Get(extractor, &C::GetAudioDataSize, 0), 6412 * 3);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 0), 2u);
}

TEST_F(MXFExtractMetaData, SoundTimecodeCountsByItsRoundedBase) {
    const struct {
        uint32_t videoStd, counted;
    } kRows[] = {{VIDEO_STD_23_98P, VIDEO_STD_23_98P}, {VIDEO_STD_25P, VIDEO_STD_50I},
                 {VIDEO_STD_50P, VIDEO_STD_50I},       {VIDEO_STD_29_97P, VIDEO_STD_59_94I},
                 {VIDEO_STD_59_94P, VIDEO_STD_59_94I}, {VIDEO_STD_59_94I, VIDEO_STD_59_94I}};
    for (const auto& row : kRows) {
        ClipSettings settings;
        settings.videoStd = row.videoStd;
        settings.start = CTimecode(100, false);
        ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound(settings, 5000)}), kStatusOk);
        EXPECT_EQ(Get(extractor, &C::GetAudioStartTimecode, 0).GetVideoStd(), row.counted);
        EXPECT_EQ(Get(extractor, &C::GetAudioStartTimecode, 0).GetTotalFrame(), 100u);
    }
}

TEST_F(MXFExtractMetaData, ShortestFileGivesTheClipDuration) {
    // One frame at 59.94i has 1600 samples, or 1601 or 1602.
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound({}, 3204), Sound({}, 1700)}), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 0), 2u);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 1), 1u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 1u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 2u);
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound({}, 48000)}), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 2u);
}

TEST_F(MXFExtractMetaData, ClipDurationOf720LineDVIsEven) {
    const ClipSettings settings = DV720Settings();
    const auto video = Video(settings, DV720());
    for (const auto& [samples, frames] : {std::pair{3300u, 4u}, {2600u, 2u}, {1700u, 2u}, {900u, 0u}}) {
        ASSERT_EQ(ExtractClip(video, {Sound(settings, samples)}), kStatusOk);
        EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), frames) << samples;
    }
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 4u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0x0200007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDIFVideoStandard), 0x0200007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDIFDVType), 0x4E00u);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "00:08:59;27");
    // Of other formats an odd duration stays.
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound({}, 1700)}), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 1u);
}

TEST_F(MXFExtractMetaData, FilesThatDisagreeAreToldApart) {
    ClipSettings other;
    other.packageName = "Other";
    other.material = 0xA1;
    other.start = CTimecode(1799, true);
    other.metadata.SetJobFunction("x");
    other.metadata.SetFamilyName("x");
    other.metadata.SetFirstGivenName("x");
    other.metadata.SetProjectName("x");
    other.metadata.SetProjectNumber("x");
    other.metadata.SetSceneNumber("x");
    other.metadata.SetTakeNumber(6);
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound({}, 3204), Sound(other, 3204)}), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
    for (const auto accessor : {&C::GetPackageName, &C::GetJobFunction, &C::GetFamilyName, &C::GetFirstGivenName,
                                &C::GetProjectName, &C::GetProjectNumber, &C::GetSceneNumber}) {
        std::string text = "before";
        EXPECT_EQ((extractor.*accessor)(&text), kStatusDisagree);
        EXPECT_EQ(text, "");
    }
    uint16_t take = 9;
    EXPECT_EQ(extractor.GetTakeNumber(&take), kStatusDisagree);
    EXPECT_EQ(take, 0);
    CTimecode timecode(7, false);
    EXPECT_EQ(extractor.GetMXFStartTimecode(&timecode), kStatusDisagree);
    EXPECT_EQ(timecode.GetTotalFrame(), 7u);
    MXFUMIDTag umid = UMID(0x77);
    EXPECT_EQ(extractor.GetMaterialUMID(&umid), kStatusDisagree);
    EXPECT_EQ(umid, UMID(0x77));
    // A null pointer comes first.
    EXPECT_EQ(extractor.GetPackageName(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetTakeNumber(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetMaterialUMID(nullptr), kStatusInvalidArgument);
    // The clip kind is the same, and each file keeps its own.
    EXPECT_EQ(Get<std::string>(extractor, &C::GetClipKind), "moving pictures and sound");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetVideoClipName), "Żółw");
    EXPECT_EQ(Get(extractor, &C::GetAudioClipName, 0), "Żółw");
    EXPECT_EQ(Get(extractor, &C::GetAudioClipName, 1), "Other");
    EXPECT_EQ(Get(extractor, &C::GetAudioMaterialUMID, 1), UMID(0xA1));
    EXPECT_EQ(Get(extractor, &C::GetAudioStartTimecode, 1).GetTotalFrame(), 1799u);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetTotalFrame(), 1798u);
}

TEST_F(MXFExtractMetaData, DropFrameFlagMakesTimecodesDiffer) {
    ClipSettings other;
    other.start = CTimecode(1798, false);
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound(other, 3204)}), kStatusOk);
    CTimecode timecode;
    EXPECT_EQ(extractor.GetMXFStartTimecode(&timecode), kStatusDisagree);
    // Of the standard only the rounded base is in a sound file: 29.97p and 59.94i are no difference.
    ClipSettings progressive;
    progressive.videoStd = VIDEO_STD_29_97P;
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound(progressive, 3204)}), kStatusOk);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetMXFStartTimecode).GetTotalFrame(), 1798u);
}

TEST_F(MXFExtractMetaData, VideoWithoutSoundAgreesWithItself) {
    ASSERT_EQ(ExtractClip(Video({}, DV25())), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 2u);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "Żółw");
    EXPECT_EQ(Get<uint16_t>(extractor, &C::GetTakeNumber), 5u);
    ExpectEach(AudioAccessors(0), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, OnlyOneClipKindIsKnown) {
    const ByteVector known = Hex("00 6D 00 6F 00 76 00 69 00 6E 00 67 00 20 00 70");  // "moving p"
    const ByteVector other = Hex("00 6D 00 6F 00 76 00 69 00 6E 00 67 00 20 00 50");
    const ByteVector empty = Hex("00 00 00 6F 00 76 00 69 00 6E 00 67 00 20 00 70");
    const auto video = Video({}, DV25()), sound = Sound({}, 3204);
    std::string kind = "before";
    ASSERT_EQ(ExtractClip(Replaced(video, known, other), {Replaced(sound, known, other)}), kStatusOk);
    EXPECT_EQ(extractor.GetClipKind(&kind), kStatusDisagree);
    EXPECT_EQ(kind, "");
    ASSERT_EQ(ExtractClip(Replaced(video, known, empty), {Replaced(sound, known, empty)}), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetClipKind), "");
    ASSERT_EQ(ExtractClip(video, {Replaced(sound, known, empty)}), kStatusOk);
    kind = "before";
    EXPECT_EQ(extractor.GetClipKind(&kind), kStatusDisagree);
    EXPECT_EQ(kind, "");
}

TEST_F(MXFExtractMetaData, FilesWithoutDescriptiveMetadataHaveEmptyValues) {
    ClipSettings none, scene, clip;
    none.metadata.ResetParam();
    scene.metadata.ResetParam();
    scene.metadata.SetSceneNumber("7");
    clip.metadata.ResetParam();
    clip.metadata.SetTakeNumber(3);
    for (const auto& [settings, sceneNumber, take, kind] :
         {std::tuple{none, "", 0, ""}, {scene, "7", 0, ""}, {clip, "", 3, "moving pictures and sound"}}) {
        ASSERT_EQ(ExtractClip(Video(settings, DV25()), {Sound(settings, 3204)}), kStatusOk);
        EXPECT_THAT(log.Lines(), IsEmpty());
        for (const auto accessor :
             {&C::GetJobFunction, &C::GetFamilyName, &C::GetFirstGivenName, &C::GetProjectName, &C::GetProjectNumber})
            EXPECT_EQ(Get<std::string>(extractor, accessor), "");
        EXPECT_EQ(Get<std::string>(extractor, &C::GetSceneNumber), sceneNumber);
        EXPECT_EQ(Get<uint16_t>(extractor, &C::GetTakeNumber), take);
        EXPECT_EQ(Get<std::string>(extractor, &C::GetClipKind), kind);
    }
}

TEST_F(MXFExtractMetaData, FullFieldsComeOutWhole) {
    ClipSettings settings;
    settings.packageName = std::string(200, 'p');
    settings.metadata.SetJobFunction(std::string(60, 'j'));
    settings.metadata.SetProjectNumber(std::string(32, 'n'));
    settings.metadata.SetProjectName(std::string(200, 'm'));
    settings.metadata.SetSceneNumber(std::string(32, 's'));
    settings.metadata.SetTakeNumber(0xFFFE);
    ASSERT_EQ(ExtractClip(Video(settings, DV25())), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), std::string(200, 'p'));
    EXPECT_EQ(Get<std::string>(extractor, &C::GetJobFunction), std::string(60, 'j'));
    EXPECT_EQ(Get<std::string>(extractor, &C::GetProjectNumber), std::string(32, 'n'));
    EXPECT_EQ(Get<std::string>(extractor, &C::GetProjectName), std::string(200, 'm'));
    EXPECT_EQ(Get<std::string>(extractor, &C::GetSceneNumber), std::string(32, 's'));
    EXPECT_EQ(Get<uint16_t>(extractor, &C::GetTakeNumber), 0xFFFE);
}

}  // namespace
}  // namespace kmxf::test
