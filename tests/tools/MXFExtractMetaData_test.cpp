#include "kmxf/tools/MXFExtractMetaData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/FailingAllocation.h"
#include "reader/HeaderFixture.h"
#include "roundtrip/Recording.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/MemoryFiles.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t kNoEndUMID = -1;
constexpr std::string_view kMaterialKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 36 00";
constexpr std::string_view kFilePackageKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 37 00";
constexpr std::string_view kTimecodeKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 14 00";
constexpr std::string_view kParticipantSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 18 01 00";
constexpr std::string_view kPersonSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 1A 02 00";
constexpr std::string_view kProjectSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 20 02 00";
constexpr std::string_view kClipFrameworkSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 02 00";
constexpr std::string_view kSceneFrameworkSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00";

std::string UTF16(std::string_view ascii) {
    std::string hex;
    for (const char c : ascii) {
        char unit[8];
        std::snprintf(unit, sizeof unit, "00 %02X ", static_cast<unsigned>(c));
        hex += unit;
    }
    return hex;
}

struct Extractor : CMXFExtractMetaData {
    using CMXFExtractMetaData::Get720PFormat;
    using CMXFExtractMetaData::GetAudioInformation;
    using CMXFExtractMetaData::GetAVCIFormat;
    using CMXFExtractMetaData::GetDataOffset;
    using CMXFExtractMetaData::GetDIFSize;
    using CMXFExtractMetaData::GetDMSData;
    using CMXFExtractMetaData::GetDVWideFlag;
    using CMXFExtractMetaData::GetKeyInfo;
    using CMXFExtractMetaData::GetLocalTag;
    using CMXFExtractMetaData::GetMXFBodyDataSize;
    using CMXFExtractMetaData::GetPartitionSize;
    using CMXFExtractMetaData::GetPelmardFormat;
    using CMXFExtractMetaData::GetPrimerPackData;
    using CMXFExtractMetaData::GetVideoInformation;
    using CMXFExtractMetaData::ReadMetadata;
};

// --- recordings by the library's own writers ---

MXFUMIDTag UMID(uint8_t last) {
    MXFUMIDTag umid;
    std::ranges::copy(Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00"), umid.bytes);
    umid.bytes[31] = last;
    return umid;
}

CDescriptiveMetadata Descriptive() {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Caméra");
    metadata.SetFamilyName("Nowak");
    metadata.SetFirstGivenName("Ada");
    metadata.SetProjectNumber("P-7");
    metadata.SetProjectName("北 river");
    metadata.SetTakeNumber(5);
    metadata.SetSceneNumber("12B");
    return metadata;
}

// What all files of the clip are told.
struct Settings {
    uint32_t videoStd = VIDEO_STD_59_94I;
    uint32_t compType = COMP_TYPE_DV25;
    bool consumerDV = false, wide = false;
    std::string packageName = "Żółw";
    CTimecode start{1798, true};
    uint8_t material = 0xA0;
    CDescriptiveMetadata metadata = Descriptive();
    uint32_t samplingRate = 48000;
    uint16_t bytesPerSample = 2;
};

template <class Writer>
ByteVector Record(Writer& writer, const Settings& settings, uint8_t umid, const ByteVector& essence) {
    CMemoryFileIO stream;
    Feeder feeder;
    writer.SetVideoStandard(settings.videoStd);
    writer.SetClipType(0x102);
    writer.SetUMID(UMID(umid));
    writer.SetShotUMID(UMID(settings.material));
    writer.SetStartTimecode(settings.start);
    writer.SetPackageName(settings.packageName);
    writer.SetDescriptiveMetadata(settings.metadata);
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    writer.SetCreationDate({2026, 3, 4, 5, 6, 7, 0});
    feeder.Write(writer, essence, {static_cast<uint32_t>(essence.size())});
    EXPECT_EQ(writer.Close(), kStatusOk);
    return stream.GetContents();
}
ByteVector Video(const Settings& settings, const ByteVector& essence) {
    CCreateMXFVideo writer;
    writer.SetDVType(settings.compType);
    writer.SetConsumerDV(settings.consumerDV);
    writer.SetWide(settings.wide);
    return Record(writer, settings, 0x01, essence);
}
ByteVector Sound(const Settings& settings, size_t samples, uint32_t channel = 0) {
    CCreateMXFAudio writer;
    writer.SetChannel(channel);
    writer.SetSamplesPerSec(settings.samplingRate);
    writer.SetBytesPerSample(settings.bytesPerSample);
    return Record(writer, settings, static_cast<uint8_t>(2 + channel), ByteVector(samples * settings.bytesPerSample));
}
ByteVector DV25() { return LoadTestData("essence/dv25-5994i.dif"); }

// Replaces `from` wherever it stands; it must stand somewhere.
ByteVector Replaced(ByteVector bytes, const ByteVector& from, const ByteVector& to) {
    EXPECT_EQ(from.size(), to.size());
    int count = 0;
    for (auto at = bytes.begin(); (at = std::search(at, bytes.end(), from.begin(), from.end())) != bytes.end(); ++count)
        at = std::copy(to.begin(), to.end(), at);
    EXPECT_GT(count, 0);
    return bytes;
}

// The value of an accessor; with another status than the expected one the test has failed.
template <class Value, class... Argument>
Value Get(CMXFExtractMetaData& from, int32_t (CMXFExtractMetaData::*accessor)(Argument...), int32_t expected = 0) {
    Value value{};
    EXPECT_EQ((from.*accessor)(&value), expected);
    return value;
}
template <class Value>
Value Get(CMXFExtractMetaData& from, int32_t (CMXFExtractMetaData::*accessor)(uint32_t, Value*), uint32_t channel) {
    Value value{};
    EXPECT_EQ((from.*accessor)(channel, &value), 0);
    return value;
}

using Accessor = std::function<int32_t(CMXFExtractMetaData&, bool null)>;
template <class Value>
Accessor Of(int32_t (CMXFExtractMetaData::*accessor)(Value*)) {
    return [accessor](CMXFExtractMetaData& from, bool null) {
        Value value{};
        return (from.*accessor)(null ? nullptr : &value);
    };
}
template <class Value>
Accessor Of(uint32_t channel, int32_t (CMXFExtractMetaData::*accessor)(uint32_t, Value*)) {
    return [=](CMXFExtractMetaData& from, bool null) {
        Value value{};
        return (from.*accessor)(channel, null ? nullptr : &value);
    };
}
using C = CMXFExtractMetaData;
std::vector<Accessor> AudioAccessors(uint32_t channel) {
    return {Of(channel, &C::GetAudioDuration),      Of(channel, &C::GetAudioDataOffset),
            Of(channel, &C::GetAudioDataSize),      Of(channel, &C::GetAudioFileSize),
            Of(channel, &C::GetAudioFileUMID),      Of(channel, &C::GetAudioMaterialUMID),
            Of(channel, &C::GetAudioBitsPerSample), Of(channel, &C::GetAudioSamplingRate),
            Of(channel, &C::GetAudioClipName),      Of(channel, &C::GetAudioStartTimecode)};
}
std::vector<Accessor> DIFAccessors() {
    return {Of(&C::GetDIFStartTimecode),    Of(&C::GetDIFStartUsersBit),    Of(&C::GetDIFStartUMID),
            Of(&C::GetDIFVideoStandard),    Of(&C::GetDIFDVType),           Of(&C::GetDIFConsumerDVFlag),
            Of(&C::GetDIF2332PulldownFlag), Of(&C::GetDIFPulldownFrameRate)};
}
std::vector<Accessor> OtherAccessors() {
    return {Of(&C::GetClipDuration),       Of(&C::GetClipName),
            Of(&C::GetPackageName),        Of(&C::GetMXFStartTimecode),
            Of(&C::GetMaterialUMID),       Of(&C::GetJobFunction),
            Of(&C::GetFamilyName),         Of(&C::GetFirstGivenName),
            Of(&C::GetProjectName),        Of(&C::GetProjectNumber),
            Of(&C::GetSceneNumber),        Of(&C::GetTakeNumber),
            Of(&C::GetClipKind),           Of(&C::GetWideFlag),
            Of(&C::GetConsumerDVFlag),     Of(&C::GetVideoDuration),
            Of(&C::GetVideoDataOffset),    Of(&C::GetVideoDataSize),
            Of(&C::GetVideoFileSize),      Of(&C::GetVideoCreationDate),
            Of(&C::GetVideoFileUMID),      Of(&C::GetVideoMaterialUMID),
            Of(&C::GetVideoStartTimecode), Of(&C::GetVideoClipName),
            Of(&C::GetVideoStandard),      Of(&C::GetDVType),
            Of(&C::GetDIFEndUMID)};
}
std::vector<Accessor> AllAccessors() {
    auto all = OtherAccessors();
    for (const auto& more : {DIFAccessors(), AudioAccessors(0)}) all.insert(all.end(), more.begin(), more.end());
    return all;
}

class MXFExtractMetaData : public testing::Test {
protected:
    // A clip of 2 frames with two sounds; the sound for 2 frames has 3204 samples.
    void RecordClip() {
        files["/card/VIDEO/AB0001.MXF"] = Video({}, DV25());
        files["/card/AUDIO/AB000100.MXF"] = Sound({}, 3204, 0);
        files["/card/AUDIO/AB000101.MXF"] = Sound({}, 3204, 1);
    }
    int32_t Extract() {
        return extractor.ExtractMetaData("/card/VIDEO/AB0001.MXF",
                                         {"/card/AUDIO/AB000100.MXF", "/card/AUDIO/AB000101.MXF"});
    }
    // A clip of this video and of sounds, extracted.
    int32_t ExtractClip(ByteVector video, std::vector<ByteVector> sounds = {}) {
        files["V"] = std::move(video);
        std::vector<std::string> names;
        for (ByteVector& sound : sounds) {
            names.push_back("A" + std::to_string(names.size()));
            files[names.back()] = std::move(sound);
        }
        return extractor.ExtractMetaData("V", names);
    }
    // Puts the file into the place of an open one.
    IFileIO* Opened(ByteVector bytes) {
        files["file"] = std::move(bytes);
        open.reset();
        open = std::make_unique<Open>();
        EXPECT_TRUE(open->file->Open("file", kOpenRead));
        return open->file;
    }
    IFileIO* Opened(const OpAtomFile& file) { return Opened(file.Bytes()); }

    void ExpectNothingExtracted() {
        for (const Accessor& accessor : AllAccessors()) {
            EXPECT_EQ(accessor(extractor, false), kStatusNotFound);
            EXPECT_EQ(accessor(extractor, true), kStatusNotFound);
        }
        EXPECT_EQ(files.Opened(), 0);
    }

    struct Open {
        IFileIOFactory* factory = CFileIOMain::GetFactory(0, nullptr, 32768);
        IFileIO* file = factory->CreateFileIO(1);
        ~Open() {
            file->Release();
            factory->Release();
        }
    };

    LogRecorder log;
    MemoryFiles files;
    Extractor extractor;
    std::unique_ptr<Open> open;
};

// --- whole clips ---

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
    ASSERT_EQ(Extract(), kStatusOk);
    // Six times at most the header area of 32768 bytes in each file, and a unit of 120000 bytes.
    EXPECT_LT(files.BytesRead(), 3u * 6 * 32768 + 120000);
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
    Settings settings;
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
        Settings settings;
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
    Settings settings;
    settings.videoStd = VIDEO_STD_59_94P;
    settings.compType = COMP_TYPE_DV100_720P;
    ByteVector essence = LoadTestData("essence/dv100-720-5994p.dif");
    essence.insert(essence.end(), essence.begin(), essence.begin() + 480000);
    const auto video = Video(settings, essence);
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
    Settings other;
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
    Settings other;
    other.start = CTimecode(1798, false);
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound(other, 3204)}), kStatusOk);
    CTimecode timecode;
    EXPECT_EQ(extractor.GetMXFStartTimecode(&timecode), kStatusDisagree);
    // Of the standard only the rounded base is in a sound file: 29.97p and 59.94i are no difference.
    Settings progressive;
    progressive.videoStd = VIDEO_STD_29_97P;
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {Sound(progressive, 3204)}), kStatusOk);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetMXFStartTimecode).GetTotalFrame(), 1798u);
}

TEST_F(MXFExtractMetaData, VideoWithoutSoundAgreesWithItself) {
    ASSERT_EQ(ExtractClip(Video({}, DV25())), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 2u);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "Żółw");
    EXPECT_EQ(Get<uint16_t>(extractor, &C::GetTakeNumber), 5u);
    for (const Accessor& accessor : AudioAccessors(0)) EXPECT_EQ(accessor(extractor, false), kStatusInvalidArgument);
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
    Settings none, scene, clip;
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
    Settings settings;
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

// --- DIF units ---

// The packs of a DV frame: user bits in the first subcode block, a UMID in the VAUX blocks.
constexpr size_t kSubcodePack = 86, kVAUXPack = 243;

const ByteVector& ExtendedUMID() {
    static const ByteVector umid =
        Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 33 00 00 01"
            "F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0"
            "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"
            "11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20");
    return umid;
}
// Puts a UMID into the packs of the frame at `offset`: an id that has no known use, four bytes of data.
void PutUMID(ByteVector& essence, size_t offset, uint8_t last) {
    auto umid = ExtendedUMID();
    umid.back() = last;
    size_t pack = 1;  // the first one is the source pack
    for (size_t at = 0; at < umid.size(); at += 4, ++pack) {
        const size_t block = pack / 15, number = pack % 15;
        ByteVector bytes{0xF0};
        bytes.insert(bytes.end(), umid.begin() + static_cast<ptrdiff_t>(at),
                     umid.begin() + static_cast<ptrdiff_t>(at + 4));
        Patch(essence, offset + kVAUXPack + 80 * block + 5 * number, bytes);
    }
}
uint8_t LastByte(const MXFUMIDEXTag& umid) {
    EXPECT_TRUE(std::equal(umid.bytes, umid.bytes + 63, ExtendedUMID().begin()));
    return umid.bytes[63];
}

TEST_F(MXFExtractMetaData, FirstUnitGivesWhatItCarries) {
    auto essence = DV25();
    Patch(essence, kSubcodePack + 8, Hex("14 12 34 56 78"));
    PutUMID(essence, 0, 0x20);
    ASSERT_EQ(ExtractClip(Video({}, essence)), kStatusOk);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03;04");
    uint8_t usersBit[4];
    EXPECT_EQ(Get<CUsersBit>(extractor, &C::GetDIFStartUsersBit).GetData(usersBit), kStatusOk);
    EXPECT_THAT(usersBit, ElementsAre(0x12, 0x34, 0x56, 0x78));
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFStartUMID)), 0x20);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDIFVideoStandard), 0x0100007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDIFDVType), 0x0400u);
    EXPECT_FALSE(Get<bool>(extractor, &C::GetDIFConsumerDVFlag));
}

TEST_F(MXFExtractMetaData, WhatTheFirstUnitDoesNotCarryIsNotFound) {
    ASSERT_EQ(ExtractClip(Video({}, DV25())), kStatusOk);
    CUsersBit usersBit;
    EXPECT_EQ(extractor.GetDIFStartUsersBit(&usersBit), kStatusNotFound);
    MXFUMIDEXTag umid;
    umid.bytes[0] = 0x99;
    EXPECT_EQ(extractor.GetDIFStartUMID(&umid), kStatusNotFound);
    EXPECT_EQ(umid.bytes[0], 0x99);
    bool flag = false;
    EXPECT_EQ(extractor.GetDIF2332PulldownFlag(&flag), kStatusNotFound);
    uint8_t rate = 0;
    EXPECT_EQ(extractor.GetDIFPulldownFrameRate(&rate), kStatusNotFound);
    // Essence that is no DIF frame at all carries nothing; the file is reported all the same.
    ASSERT_EQ(ExtractClip(Video({}, ByteVector(240000, 0xFF))), kStatusOk);
    for (const Accessor& accessor : DIFAccessors()) EXPECT_EQ(accessor(extractor, false), kStatusNotFound);
    // A null pointer comes first.
    for (const Accessor& accessor : DIFAccessors()) EXPECT_EQ(accessor(extractor, true), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, ConsumerDVIsToldByLabelAndByUnit) {
    Settings settings;
    settings.videoStd = VIDEO_STD_50I;
    settings.consumerDV = settings.wide = true;
    settings.start = CTimecode(100, false);
    ASSERT_EQ(ExtractClip(Video(settings, LoadTestData("essence/dv25-50i-iec.dif"))), kStatusOk);
    EXPECT_TRUE(Get<bool>(extractor, &C::GetConsumerDVFlag));
    EXPECT_TRUE(Get<bool>(extractor, &C::GetDIFConsumerDVFlag));
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0x010000B2u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0x0400u);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "23:59:59:20");
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetText(), "00:00:04:00");
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetVideoStd(), 0x010000B2u);
}

TEST_F(MXFExtractMetaData, AVCIntraHasNoUnits) {
    Settings settings;
    settings.compType = COMP_TYPE_AVCI100_1080;
    ASSERT_EQ(ExtractClip(Video(settings, LoadTestData("essence/avci100-1080-5994i.raw"))), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 2u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0x0100007Cu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0xCD00u);
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_FALSE(Get<bool>(extractor, &C::GetConsumerDVFlag));
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 944128 + 512);
    for (const Accessor& accessor : DIFAccessors()) EXPECT_EQ(accessor(extractor, false), kStatusNotFound);
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, EndUMIDIsThatOfTheClipsLastUnit) {
    auto essence = DV25();
    PutUMID(essence, 0, 0x01);
    PutUMID(essence, 120000, 0x02);
    ASSERT_EQ(ExtractClip(Video({}, essence)), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x02);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFStartUMID)), 0x01);
    ASSERT_EQ(ExtractClip(Video({}, essence), {Sound({}, 1700)}), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x01);
    EXPECT_EQ(files.Opened(), 0);
}

TEST_F(MXFExtractMetaData, EndUMIDOf720LineDVIsInTheUnitOfTwoFrames) {
    Settings settings;
    settings.videoStd = VIDEO_STD_59_94P;
    settings.compType = COMP_TYPE_DV100_720P;
    ByteVector essence = LoadTestData("essence/dv100-720-5994p.dif");
    essence.insert(essence.end(), essence.begin(), essence.begin() + 480000);
    PutUMID(essence, 0, 0x01);
    PutUMID(essence, 480000, 0x02);
    ASSERT_EQ(ExtractClip(Video(settings, essence)), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x02);
    ASSERT_EQ(ExtractClip(Video(settings, essence), {Sound(settings, 2600)}), kStatusOk);
    EXPECT_EQ(LastByte(Get<MXFUMIDEXTag>(extractor, &C::GetDIFEndUMID)), 0x01);
    ASSERT_EQ(ExtractClip(Video(settings, essence), {Sound(settings, 900)}), kStatusOk);
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
}

TEST_F(MXFExtractMetaData, EndUMIDThatCannotBeReadIsNone) {
    MXFUMIDEXTag umid;
    umid.bytes[0] = 0x99;
    auto essence = DV25();
    PutUMID(essence, 0, 0x01);
    const auto video = Video({}, essence);
    ASSERT_EQ(ExtractClip(video), kStatusOk);
    EXPECT_EQ(extractor.GetDIFEndUMID(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kStatusFrameNoInfo);  // the second frame has none
    ASSERT_EQ(ExtractClip(video, {Sound({}, 100)}), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 0u);
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
    // Cut behind the first frame
    ASSERT_EQ(ExtractClip({video.begin(), video.begin() + 32768 + 239999}), kStatusOk);
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
    for (int call = 1; call <= 5; ++call) {
        ASSERT_EQ(ExtractClip(video), kStatusOk);
        files.FailNth(call);
        EXPECT_EQ(extractor.GetDIFEndUMID(&umid), call == 5 ? kStatusFrameNoInfo : kNoEndUMID) << call;
        EXPECT_THAT(files.Calls(), testing::SizeIs(call == 1 ? 1 : call == 2 ? 3 : call == 3 ? 4 : 5));
        EXPECT_EQ(files.Opened(), 0);
        files.FailNth(0);
    }
    EXPECT_EQ(umid.bytes[0], 0x99);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// --- states and failures ---

TEST_F(MXFExtractMetaData, NothingIsKnownBeforeAnExtraction) { ExpectNothingExtracted(); }

TEST_F(MXFExtractMetaData, NullPointersAndChannelsThatAreNotThereAreRefused) {
    RecordClip();
    ASSERT_EQ(Extract(), kStatusOk);
    for (const Accessor& accessor : AllAccessors()) EXPECT_EQ(accessor(extractor, true), kStatusInvalidArgument);
    for (const uint32_t channel : {2u, 0xFFFFFFFFu}) {
        for (const Accessor& accessor : AudioAccessors(channel))
            EXPECT_EQ(accessor(extractor, false), kStatusInvalidArgument);
    }
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
    Settings settings;
    settings.compType = COMP_TYPE_AVCI100_1080;
    settings.packageName = "Second";
    settings.metadata.ResetParam();
    ASSERT_EQ(ExtractClip(Video(settings, LoadTestData("essence/avci100-1080-5994i.raw"))), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "Second");
    EXPECT_EQ(Get<std::string>(extractor, &C::GetFamilyName), "");
    for (const Accessor& accessor : DIFAccessors()) EXPECT_EQ(accessor(extractor, false), kStatusNotFound);
    for (const Accessor& accessor : AudioAccessors(0)) EXPECT_EQ(accessor(extractor, false), kStatusInvalidArgument);
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

TEST_F(MXFExtractMetaData, DataOffsetThatIsNoMultipleOfFourIsStoredAllTheSame) {
    // The element's length in 7 bytes instead of 8, and the essence one byte earlier.
    auto video = Video({}, DV25());
    video[32760] = 0x86;
    video.erase(video.begin() + 32761);
    ASSERT_EQ(ExtractClip(video), kStatusOk);
    uint32_t offset = 0;
    EXPECT_EQ(extractor.GetVideoDataOffset(&offset), kStatusInvalidArgument);
    EXPECT_EQ(offset, 32767u);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 240000);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03;04");
}

TEST_F(MXFExtractMetaData, OpenSoundRecordingHasNoSamples) {
    auto sound = Sound({}, 3204);
    // What the header of a recording that was cut off says: the element is empty, the container duration 0.
    Patch(sound, 32761, ByteVector(7));
    sound = Replaced(sound, Hex("30 02 00 08 00 00 00 00 00 00 0C 84"), Hex("30 02 00 08 00 00 00 00 00 00 00 00"));
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {sound}), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 0), 0u);
    EXPECT_EQ(Get(extractor, &C::GetAudioDataSize, 0), 0);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 0u);
}

// Everything a video file must say, and where a row is replaced, something else.
struct Described {
    std::string_view label = "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01";
    ByteVector descriptor = LocalItem("30 02", "00 00 00 00 00 00 00 03");
    ByteVector name = LocalItem("44 02", "00 4E 00 61 00 6D 00 65 00 00 00 58");
    ByteVector date = LocalItem("44 05", "07 EA 0C 1F 17 3B 3A 05");
    ByteVector base = LocalItem("15 02", "00 1E");
    ByteVector start = LocalItem("15 01", "00 00 00 00 00 00 07 08");
    ByteVector drop = LocalItem("15 03", "01");
    std::string_view descriptorKey = kCDCIKey;

    ByteVector Bytes(ByteVector essence) const {
        const std::string materialUMID = "A1" + std::string(31 * 2, '0'), fileUMID = "F1" + std::string(31 * 2, '0');
        OpAtomFile file;
        file.container = Hex(label);
        file.sets = Join({Packet(kMaterialKey, Join({LocalItem("44 01", materialUMID), name, date})),
                          Packet(kFilePackageKey, LocalItem("44 01", fileUMID)),
                          Packet(kTimecodeKey, Join({base, start, drop})), Packet(descriptorKey, descriptor)});
        file.essence = std::move(essence);
        return file.Bytes();
    }
};

TEST_F(MXFExtractMetaData, LongGOPPicturesAreReportedWithoutStandardAndType) {
    ASSERT_EQ(ExtractClip(Described().Bytes(ByteVector(9))), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 3u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0u);
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 9);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetVideoClipName), "Name");
    EXPECT_EQ(Get<MXFTIMESTAMPTag>(extractor, &C::GetVideoCreationDate),
              (MXFTIMESTAMPTag{2026, 12, 31, 23, 59, 58, 5}));
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetVideoMaterialUMID).bytes[0], 0xA1);
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetVideoFileUMID).bytes[0], 0xF1);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetText(), "00:01:00;02");  // 1800 frames
    for (const Accessor& accessor : DIFAccessors()) EXPECT_EQ(accessor(extractor, false), kStatusNotFound);
    // With sound of any length the frames of a standard that is not known do not count.
    ASSERT_EQ(ExtractClip(Described().Bytes(ByteVector(9)), {Sound({}, 5)}), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 0), 0xFFFFFFFFu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 3u);
}

TEST_F(MXFExtractMetaData, UnitsOfAnUnknownRateHaveNoSizeAndCarryNothing) {
    Described file;
    const std::string label = Label("02 02 62 02");
    file.label = label;
    file.descriptor = Join({file.descriptor, LocalItem("30 01", "00 00 00 11 00 00 00 01")});
    ASSERT_EQ(ExtractClip(file.Bytes({})), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0x4E00u);
    for (const Accessor& accessor : DIFAccessors()) EXPECT_EQ(accessor(extractor, false), kStatusNotFound);
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
}

TEST_F(MXFExtractMetaData, PackageNameIsCutAtItsWidthAndOtherValuesMustFit) {
    Described file;
    file.name = LocalItem("44 02", UTF16(std::string(201, 'n')));
    ASSERT_EQ(ExtractClip(file.Bytes({})), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), std::string(200, 'n'));
    file.name = LocalItem("44 02", "");
    ASSERT_EQ(ExtractClip(file.Bytes({})), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "");

    const auto tooLong = [](ByteVector item) {
        item[3] = static_cast<uint8_t>(item[3] + 1);
        item.push_back(0);
        return item;
    };
    for (const auto item :
         {&Described::descriptor, &Described::date, &Described::base, &Described::start, &Described::drop}) {
        Described other;
        other.*item = tooLong(other.*item);
        EXPECT_EQ(ExtractClip(other.Bytes({})), kStatusIoError);
        other.descriptorKey = kAES3Key;
        files["A"] = other.Bytes({});
        // The date is not asked of a sound file; this one has no bits and no rate.
        EXPECT_EQ(extractor.GetAudioInformation("A"),
                  item == &Described::date ? kStatusFailure : kStatusInvalidArgument);
    }
}

TEST_F(MXFExtractMetaData, WithoutMemoryThereIsAStatus) {
    const auto video = Video({}, DV25()), sound = Sound({}, 3204);
    MXFKEYTag key;
    std::ranges::copy(Hex(kMaterialKey), key.bytes);
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

// --- one file, step by step ---

TEST_F(MXFExtractMetaData, PartitionSizeIsThatOfAnyPacket) {
    const auto sized = [&](std::string_view length) {
        auto bytes = Join({Hex(kFillItemKey), Hex(length)});
        bytes.resize(25, 0xEE);
        return extractor.GetPartitionSize(bytes.data());
    };
    EXPECT_EQ(sized("00"), 17u);
    EXPECT_EQ(sized("7F"), 144u);
    EXPECT_EQ(sized("80"), 17u);
    EXPECT_EQ(sized("81 80"), 146u);
    EXPECT_EQ(sized("83 00 00 68"), 124u);
    EXPECT_EQ(sized("87 00 00 00 00 01 00 00"), 65560u);
    EXPECT_EQ(sized("88 00 00 00 00 FF FF FF E6"), 0xFFFFFFFFu);
    EXPECT_EQ(sized("88 00 00 00 00 FF FF FF E7"), 0u);
    EXPECT_EQ(sized("88 FF FF FF FF FF FF FF FF"), 0u);
    EXPECT_EQ(sized("89 00 00 00 00 00 00 00 00"), 0u);
    EXPECT_EQ(extractor.GetPartitionSize(nullptr), 0u);
}

TEST_F(MXFExtractMetaData, EssenceIsFoundBehindPacksOfTheirOwnSizes) {
    OpAtomFile file;
    file.essence = ByteVector(500, 0x55);
    EXPECT_EQ(extractor.GetDataOffset(Opened(file)), 32768u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(open->file), 500);
    // A body pack without essence container is 16 bytes shorter; what it counts lies in front of the element.
    const auto header = Pack{.headerByteCount = 10, .indexByteCount = 20}.Bytes();
    const auto body = Pack{.kind = "03 04", .container = {}, .headerByteCount = 3, .indexByteCount = 4}.Bytes();
    const auto bytes = Join({header, ByteVector(30), body, ByteVector(7),
                             Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01 83 00 01 02"), ByteVector(258)});
    EXPECT_EQ(extractor.GetDataOffset(Opened(bytes)), 124u + 30 + 108 + 7 + 20);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(open->file), 258);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, ShortFormOfTheEssenceLengthGivesSizeZero) {
    const auto packs = Join({Pack{}.Bytes(), Pack{.kind = "03 04"}.Bytes()});
    const auto element = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01");
    const auto with = [&](std::string_view length) {
        return Opened(Join({packs, element, Hex(length), ByteVector(9)}));
    };
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("09")), 0);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 265u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("80")), 0);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 265u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("81 09")), 9);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 266u);
    // More than 8 bytes: the last 8 count. The value itself need not be there.
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("89 01 00 00 00 00 00 00 01 02")), 258);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 274u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, EssenceThatIsNotFoundIsReportedByItsSizeAlone) {
    const auto expect = [&](const ByteVector& bytes, const char* message) {
        EXPECT_EQ(extractor.GetDataOffset(Opened(bytes)), 0u);
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_EQ(extractor.GetMXFBodyDataSize(open->file), 0);
        EXPECT_THAT(log.Lines(), ElementsAre(std::string("CMXFExtractMetaData::GetMXFBodyDataSize: ") + message));
        log.Clear();
    };
    EXPECT_EQ(extractor.GetDataOffset(nullptr), 0u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(nullptr), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CMXFExtractMetaData::GetMXFBodyDataSize: Invalid argument."));
    log.Clear();

    OpAtomFile file;
    file.essence = ByteVector(5);
    const auto bytes = file.Bytes();
    for (const ptrdiff_t size : {0, 24, 25, 123, 124, 32619, 32620, 32743, 32744, 32760, 32767})
        expect({bytes.begin(), bytes.begin() + size}, "Read Error.");
    auto changed = bytes;
    changed[kBodyPackAt + 5] = 0x53;
    expect(changed, "SetData Error.");
    expect(ByteVector(40000), "SetData Error.");
    // Counts that are negative, absurd or run in a circle
    for (const size_t pack : {size_t{0}, kBodyPackAt}) {
        for (const size_t at : {kHeaderByteCountAt, kIndexByteCountAt}) {
            for (const std::string_view count : {"FF FF FF FF FF FF FF FF", "FF FF FF FF FF FF FF 84",
                                                 "7F FF FF FF FF FF FF FF", "00 00 00 00 7F FF FF FF"}) {
                changed = bytes;
                Patch(changed, pack + at, Hex(count));
                expect(changed, "Read Error.");
            }
        }
    }
    // A pack that states more than the file has
    changed = bytes;
    Patch(changed, 17, Hex("FF FF FF"));
    expect(changed, "Read Error.");
    changed = bytes;
    Patch(changed, 16, Hex("88 FF FF FF FF FF FF FF E8"));
    expect(changed, "Read Error.");
}

// A header pack and metadata behind it: a primer with these entries, and sets.
struct Metadata {
    std::vector<std::pair<std::string_view, std::string_view>> primer;
    ByteVector sets;

    static constexpr size_t kPrimerAt = 124;
    ByteVector Bytes() const {
        ByteVector entries = Join({BigEndian(primer.size(), 4), Hex("00 00 00 12")});
        for (const auto& [tag, label] : primer) entries = Join({entries, Hex(tag), Hex(label)});
        const auto metadata = Join({Packet(kPrimerKey, entries), sets});
        return Join({Pack{.headerByteCount = metadata.size()}.Bytes(), metadata});
    }
};

TEST_F(MXFExtractMetaData, ItemsAreFoundByKeyAndTag) {
    OpAtomFile file;
    file.sets = Join({Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 01")),
                      Packet(kMaterialKey, Join({LocalItem("3C 0A", "01 02 03"), LocalItem("44 05", "0A 0B 0C 0D")}))});
    IFileIO* opened = Opened(file);
    int64_t offset = -1;
    uint32_t length = 0;
    MXFKEYTag key;
    std::ranges::copy(Hex(kMaterialKey), key.bytes);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, &offset, &length), kStatusOk);
    EXPECT_EQ(offset, OpAtomFile::kSetsAt + 28 + 20 + 7 + 4);
    EXPECT_EQ(length, 4u);
    uint8_t buffer[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 5), kStatusOk);
    EXPECT_THAT(buffer, ElementsAre(0x0A, 0x0B, 0x0C, 0x0D, 9));
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x3C0A, buffer, 3), kStatusOk);
    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 0x0D, 9));

    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 3), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 0), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, nullptr, 5), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(nullptr, key, 0x4405, buffer, 5), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4406, buffer, 5), kStatusFailure);
    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 0x0D, 9));

    EXPECT_EQ(extractor.GetKeyInfo(nullptr, key, 0x4405, &offset, &length), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, nullptr, &length), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, &offset, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4406, &offset, &length), kStatusFailure);
    key.bytes[7] = 2;
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, &offset, &length), kStatusFailure);
    EXPECT_EQ(extractor.GetKeyInfo(Opened(ByteVector(200)), key, 0x4405, &offset, &length), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, ItemsOfHeadersCutShortAreNotFound) {
    Metadata metadata{.primer = {}, .sets = Packet(kMaterialKey, LocalItem("44 05", "0A 0B 0C 0D"))};
    const auto bytes = metadata.Bytes();
    MXFKEYTag key;
    std::ranges::copy(Hex(kMaterialKey), key.bytes);
    uint8_t buffer[8];
    for (size_t size = 0; size < bytes.size(); ++size) {
        IFileIO* opened = Opened(ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)));
        EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 8), kStatusIoError) << size;
    }
    EXPECT_EQ(extractor.ReadMetadata(Opened(bytes), key, 0x4405, buffer, 8), kStatusOk);
    // The item states more than the file has.
    auto lying = bytes;
    Patch(lying, bytes.size() - 6, Hex("00 05"));
    EXPECT_EQ(extractor.ReadMetadata(Opened(lying), key, 0x4405, buffer, 8), kStatusIoError);
    // It may run on behind the header metadata, as long as there is a file.
    lying.push_back(0x0E);
    EXPECT_EQ(extractor.ReadMetadata(Opened(lying), key, 0x4405, buffer, 8), kStatusOk);
    EXPECT_THAT(std::vector<int>(buffer, buffer + 5), ElementsAre(0x0A, 0x0B, 0x0C, 0x0D, 0x0E));
}

constexpr std::string_view kLabelA = "06 0E 2B 34 01 01 01 03 02 30 05 01 01 00 00 00";
constexpr std::string_view kLabelB = "06 0E 2B 34 01 01 01 03 02 30 06 03 01 01 01 00";

TEST_F(MXFExtractMetaData, PrimerGivesItsEntriesInOrder) {
    Metadata metadata{.primer = {{"80 07", kLabelA}, {"80 0A", kLabelB}, {"90 00", kLabelA}}, .sets = {}};
    std::vector<MXFLOCALTAGENTRYTag> entries(1);
    ASSERT_EQ(extractor.GetPrimerPackData(Opened(metadata.Bytes()), entries), kStatusOk);
    MXFKEYTag a, b;
    std::ranges::copy(Hex(kLabelA), a.bytes);
    std::ranges::copy(Hex(kLabelB), b.bytes);
    EXPECT_THAT(entries, ElementsAre(MXFLOCALTAGENTRYTag{0x8007, a}, MXFLOCALTAGENTRYTag{0x800A, b},
                                     MXFLOCALTAGENTRYTag{0x9000, a}));
    EXPECT_EQ(extractor.GetLocalTag(entries, a), 0x8007);
    EXPECT_EQ(extractor.GetLocalTag(entries, b), 0x800A);
    a.bytes[7] = 9;
    EXPECT_EQ(extractor.GetLocalTag(entries, a), 0);
    EXPECT_EQ(extractor.GetLocalTag({}, b), 0);
}

TEST_F(MXFExtractMetaData, PrimerIsFoundBehindPacketsOfEveryForm) {
    const auto primer = Packet(kPrimerKey, Join({Hex("00 00 00 01 00 00 00 12 80 07"), Hex(kLabelA)}));
    std::vector<MXFLOCALTAGENTRYTag> entries;
    for (const std::string_view length : {"05", "81 05", "83 00 00 05", "88 00 00 00 00 00 00 00 05"}) {
        const auto bytes = Join({Hex(kFillItemKey), Hex(length), ByteVector(5), primer});
        EXPECT_EQ(extractor.GetPrimerPackData(Opened(bytes), entries), kStatusOk) << length;
        EXPECT_EQ(entries.size(), 1u);
    }
    // The first of two counts, and no more entries than the packet holds.
    const auto lying = Packet(kPrimerKey, Join({Hex("FF FF FF FF 00 00 00 12 80 07"), Hex(kLabelB), ByteVector(17)}));
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(Join({lying, primer})), entries), kStatusOk);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(std::ranges::equal(entries[0].ul.bytes, Hex(kLabelB)));
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(Packet(kPrimerKey, Hex("00 00 00 00 00 00 00 12"))), entries),
              kStatusOk);
    EXPECT_THAT(entries, IsEmpty());
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(Packet(kPrimerKey, Hex("00 00 00 01"))), entries),
              kStatusNoMemory);  // no 25 bytes
}

TEST_F(MXFExtractMetaData, FileWithoutAWholePrimerHasNone) {
    Metadata metadata{.primer = {{"80 07", kLabelA}, {"80 0A", kLabelB}}, .sets = {}};
    const auto bytes = metadata.Bytes();
    std::vector<MXFLOCALTAGENTRYTag> entries;
    for (size_t size = 0; size < bytes.size(); ++size) {
        IFileIO* opened = Opened(ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)));
        EXPECT_EQ(extractor.GetPrimerPackData(opened, entries), kStatusNoMemory) << size;
        EXPECT_THAT(entries, IsEmpty());
    }
    EXPECT_EQ(extractor.GetPrimerPackData(nullptr, entries), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(ByteVector(100000)), entries), kStatusNoMemory);
    // Lengths that lead outside or would run in a circle
    for (const std::string_view length :
         {"83 FF FF FF", "88 FF FF FF FF FF FF FF FF", "88 FF FF FF FF FF FF FF E7", "89 00 00 00 00 00 00 00 00"}) {
        const auto lying = Join({Hex(kFillItemKey), Hex(length), ByteVector(50)});
        EXPECT_EQ(extractor.GetPrimerPackData(Opened(lying), entries), kStatusNoMemory) << length;
    }
}

// --- formats ---

struct Format {
    uint32_t fileType = 0, videoStd = 9, compType = 9;
    bool consumerDV = false, wide = false, avci = false;
    bool operator==(const Format&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Format& f) {
    return out << std::hex << f.fileType << ' ' << f.videoStd << ' ' << f.compType << ' ' << f.consumerDV << f.wide
               << f.avci;
}

ByteVector CodingItem(std::string_view lastTwo) {
    return LocalItem("32 01", "06 0E 2B 34 04 01 01 0A 04 01 02 02 01 32 " + std::string(lastTwo));
}
// Both picture descriptors, with what decides.
ByteVector Descriptors(std::string_view rate, std::string_view ratio, std::string_view coding = "21 01") {
    const auto rateItem = LocalItem("30 01", rate);
    return Join({Packet(kCDCIKey, Join({rateItem, LocalItem("32 0E", ratio)})),
                 Packet(kMPEGKey, Join({rateItem, CodingItem(coding)}))});
}
constexpr std::string_view k5994 = "00 00 EA 60 00 00 03 E9", k16To9 = "00 00 00 10 00 00 00 09",
                           k4To3 = "00 00 00 04 00 00 00 03";

TEST_F(MXFExtractMetaData, FormatGoesByTheFirstContainerLabel) {
    const struct {
        std::string label;
        Format format;  // with a descriptor of 59.94p and 16:9
    } kRows[] = {
        {Label("02 02 40 02"), {0x20001, 0x0100007C, 0x0400, false, true, false}},
        {Label("02 02 41 02"), {0x20001, 0x010000B2, 0x0400, false, true, false}},
        {Label("02 02 50 02"), {0x20001, 0x0100007C, 0x4800, false, true, false}},
        {Label("02 02 51 02"), {0x20001, 0x010000B2, 0x4800, false, true, false}},
        {Label("02 02 01 02"), {0x20001, 0x0100007C, 0x0400, true, true, false}},
        {Label("02 02 02 02"), {0x20001, 0x010000B2, 0x0400, true, true, false}},
        {Label("02 02 60 02"), {0x20001, 0x0100007C, 0x4D00, false, true, false}},
        {Label("02 02 60 01"), {0x20001, 0x0100007C, 0x4D00, false, true, false}},
        {Label("02 02 60 FF"), {0x20001, 0x0100007C, 0x4D00, false, true, false}},
        {Label("02 02 61 02"), {0x20001, 0x010000B2, 0x4D00, false, true, false}},
        {Label("02 02 62 02"), {0x20001, 0x0200007C, 0x4E00, false, true, false}},
        {Label("02 02 63 02"), {0x20001, 0x0200007C, 0x4E00, false, true, false}},
        {Label("02 10 60 02"), {0x20001, 0x0100007C, 0xC900, false, true, true}},
        {"06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01", {0x20001, 0, 0, false, true, false}},
        {Label("02 06 04 00"), {0x20002, 0, 0, false, false, false}},
    };
    const auto read = [&](std::string_view label, std::string_view ratio, Format& format) {
        OpAtomFile file;
        file.container = Hex(label);
        file.sets = Descriptors(k5994, ratio);
        return extractor.GetPelmardFormat(Opened(file), &format.fileType, &format.videoStd, &format.compType,
                                          &format.consumerDV, &format.wide, &format.avci);
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        Format format;
        EXPECT_EQ(read(row.label, k16To9, format), kStatusOk);
        EXPECT_EQ(format, row.format);
        // Only of DV 25 and DV 50 the descriptor says whether they are wide.
        Format narrow = row.format;
        if (narrow.compType == 0x0400 || narrow.compType == 0x4800) narrow.wide = false;
        EXPECT_EQ(read(row.label, k4To3, format), kStatusOk);
        EXPECT_EQ(format, narrow);
    }
    for (const std::string& label :
         {Label("02 02 61 01"), Label("02 02 40 01"), Label("02 02 64 02"), Label("02 10 60 01"), Label("02 06 03 00"),
          std::string("06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 02"),
          std::string("06 0E 2B 34 04 01 01 02 0D 01 03 01 02 02 40 02"),
          std::string("06 0E 2B 34 04 01 01 02 0D 01 03 01 02 02 60 02"), std::string()}) {
        Format format;
        EXPECT_EQ(read(label, k16To9, format), kStatusFailure) << label;
        EXPECT_EQ(format, Format{}) << label;
    }
}

TEST_F(MXFExtractMetaData, FormatNeedsTheDescriptorWhereTheLabelLeavesItOpen) {
    for (const std::string_view lastFour :
         {"02 02 40 02", "02 02 50 02", "02 02 01 02", "02 02 62 02", "02 10 60 02"}) {
        OpAtomFile file;
        file.container = Hex(Label(lastFour));
        Format format;
        EXPECT_EQ(extractor.GetPelmardFormat(Opened(file), &format.fileType, &format.videoStd, &format.compType,
                                             &format.consumerDV, &format.wide, &format.avci),
                  kStatusFailure);
        EXPECT_EQ(format, Format{});
    }
}

TEST_F(MXFExtractMetaData, FormatOfWhatCannotBeRead) {
    Format f;
    const auto read = [&](IFileIO* file) {
        return extractor.GetPelmardFormat(file, &f.fileType, &f.videoStd, &f.compType, &f.consumerDV, &f.wide, &f.avci);
    };
    const auto bytes = OpAtomFile{.sets = {}, .essence = {}}.Bytes();
    EXPECT_EQ(read(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(read(Opened(ByteVector(200))), kStatusInvalidArgument);
    for (const ptrdiff_t size : {0, 24, 25, 123})
        EXPECT_EQ(read(Opened(ByteVector(bytes.begin(), bytes.begin() + size))), kStatusIoError) << size;
    EXPECT_EQ(read(Opened(ByteVector(bytes.begin(), bytes.begin() + 124))), kStatusOk);

    IFileIO* opened = open->file;
    EXPECT_EQ(extractor.GetPelmardFormat(opened, nullptr, &f.videoStd, &f.compType, &f.consumerDV, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPelmardFormat(opened, &f.fileType, nullptr, &f.compType, &f.consumerDV, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, nullptr, &f.consumerDV, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, &f.compType, nullptr, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(
        extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, &f.compType, &f.consumerDV, nullptr, &f.avci),
        kStatusInvalidArgument);
    EXPECT_EQ(
        extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, &f.compType, &f.consumerDV, &f.wide, nullptr),
        kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetDVWideFlag(nullptr, &f.wide), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetDVWideFlag(opened, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.Get720PFormat(nullptr, &f.videoStd), kStatusInvalidArgument);
    EXPECT_EQ(extractor.Get720PFormat(opened, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetAVCIFormat(nullptr, &f.videoStd, &f.compType), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetAVCIFormat(opened, nullptr, &f.compType), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetAVCIFormat(opened, &f.videoStd, nullptr), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, OnlySixteenToNineIsWide) {
    for (const auto& [ratio, expected] : {std::pair{k16To9, true},
                                          {k4To3, false},
                                          {std::string_view("00 00 00 20 00 00 00 12"), false},
                                          {std::string_view("00 00 00 10 00 00 00 0A"), false}}) {
        OpAtomFile file;
        file.sets = Descriptors(k5994, ratio);
        bool wide = !expected;
        EXPECT_EQ(extractor.GetDVWideFlag(Opened(file), &wide), kStatusOk);
        EXPECT_EQ(wide, expected) << ratio;
    }
}

TEST_F(MXFExtractMetaData, RateGivesTheStandardOfProgressivePictures) {
    const struct {
        std::string_view rate;
        uint32_t videoStd;
    } kRows[] = {{"00 00 00 18 00 00 00 01", 0x02000058}, {"00 00 5D C0 00 00 03 E9", 0x02000058},
                 {"00 00 00 19 00 00 00 01", 0x02000099}, {"00 00 00 1E 00 00 00 01", 0x0200005E},
                 {"00 00 75 30 00 00 03 E9", 0x0200005E}, {"00 00 00 32 00 00 00 01", 0x020000B2},
                 {"00 00 00 3C 00 00 00 01", 0x0200007C}, {"00 00 EA 60 00 00 03 E9", 0x0200007C},
                 {"00 00 00 17 00 00 00 01", 0}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.rate);
        OpAtomFile file;
        file.sets = Descriptors(row.rate, k16To9, "21 08");
        uint32_t videoStd = 9, compType = 9;
        EXPECT_EQ(extractor.Get720PFormat(Opened(file), &videoStd), kStatusOk);
        EXPECT_EQ(videoStd, row.videoStd);
        videoStd = 9;
        EXPECT_EQ(extractor.GetAVCIFormat(open->file, &videoStd, &compType), kStatusOk);
        EXPECT_EQ(videoStd, row.videoStd);
        EXPECT_EQ(compType, 0xCA00u);
    }
}

TEST_F(MXFExtractMetaData, CodingLabelGivesTheAVCIntraClass) {
    const struct {
        std::string_view coding;
        uint32_t videoStd, compType;  // at 59.94
    } kRows[] = {{"21 08", 0x0200007C, 0xCA00}, {"21 09", 0x0200007C, 0xCA00}, {"21 01", 0x0100007C, 0xC900},
                 {"21 02", 0x010000B2, 0xC900}, {"21 03", 0x0200007C, 0xC900}, {"21 04", 0x0200007C, 0xC900},
                 {"31 08", 0x0200007C, 0xCE00}, {"31 09", 0x0200007C, 0xCE00}, {"31 01", 0x0100007C, 0xCD00},
                 {"31 02", 0x010000B2, 0xCD00}, {"31 03", 0x0200007C, 0xCD00}, {"31 04", 0x0200007C, 0xCD00},
                 {"32 08", 0x0200007C, 0xD200}, {"32 09", 0x0200007C, 0xD200}, {"32 01", 0x0100007C, 0xD100},
                 {"32 02", 0x010000B2, 0xD100}, {"32 03", 0x0200007C, 0xD100}, {"32 04", 0x0200007C, 0xD100}};
    uint32_t videoStd = 9, compType = 9;
    for (const auto& row : kRows) {
        OpAtomFile file;
        file.sets = Descriptors(k5994, k16To9, row.coding);
        EXPECT_EQ(extractor.GetAVCIFormat(Opened(file), &videoStd, &compType), kStatusOk);
        EXPECT_EQ(videoStd, row.videoStd) << row.coding;
        EXPECT_EQ(compType, row.compType) << row.coding;
    }
    OpAtomFile file;
    for (const ByteVector& set :
         {Join({LocalItem("30 01", k5994), CodingItem("21 05")}), LocalItem("30 01", k5994), CodingItem("21 01")}) {
        file.sets = Packet(kMPEGKey, set);
        videoStd = compType = 9;
        EXPECT_EQ(extractor.GetAVCIFormat(Opened(file), &videoStd, &compType), kStatusFailure);
        EXPECT_EQ(videoStd, 9u);
        EXPECT_EQ(compType, 9u);
    }
    file.sets =
        Packet(kMPEGKey, Join({LocalItem("32 01", std::string(17 * 3, '0').substr(0, 34)), CodingItem("21 01")}));
    EXPECT_EQ(extractor.GetAVCIFormat(Opened(file), &videoStd, &compType), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, UnitSizes) {
    const uint32_t all[] = {0x0100007C, 0x010000B2, 0x02000058, 0x0200005E, 0x0200007C, 0x02000099, 0x020000B2, 0};
    const struct {
        uint32_t compType;
        std::vector<uint32_t> sizes;
    } kRows[] = {{0x0400, {120000, 144000, 0, 0, 0, 0, 0, 0}},
                 {0x4800, {240000, 288000, 0, 0, 0, 0, 0, 0}},
                 {0x4D00, {480000, 576000, 480000, 480000, 480000, 576000, 576000, 0}},
                 {0x4E00, {480000, 576000, 480000, 480000, 480000, 576000, 576000, 0}},
                 {0xCD00, {0, 0, 0, 0, 0, 0, 0, 0}},
                 {0, {0, 0, 0, 0, 0, 0, 0, 0}}};
    for (const auto& row : kRows) {
        for (size_t i = 0; i < std::size(all); ++i)
            EXPECT_EQ(extractor.GetDIFSize(all[i], row.compType), row.sizes[i]) << row.compType << ' ' << all[i];
    }
}

// --- descriptive metadata ---

struct Texts {
    std::string job = "?", family = "?", given = "?", number = "?", name = "?";
    uint16_t take = 99;
    std::string kind = "?", scene = "?";
    bool operator==(const Texts&) const = default;
};
const Texts kNoTexts{"", "", "", "", "", 0, "", ""};

class DescriptiveMetadataOfFiles : public MXFExtractMetaData {
protected:
    DescriptiveMetadataOfFiles() {
        // Other tags than this library's own
        file.primer = {{"C0 01", "06 0E 2B 34 01 01 01 03 02 30 05 01 01 00 00 00"},
                       {"C0 02", "06 0E 2B 34 01 01 01 03 02 30 06 03 01 01 01 00"},
                       {"C0 03", "06 0E 2B 34 01 01 01 03 02 30 06 03 01 02 01 00"},
                       {"C0 04", "06 0E 2B 34 01 01 01 02 01 03 01 06 00 00 00 00"},
                       {"C0 05", "06 0E 2B 34 01 01 01 05 01 03 01 08 01 00 00 00"},
                       {"C0 06", "06 0E 2B 34 01 01 01 01 01 05 07 00 00 00 00 00"},
                       {"C0 07", "06 0E 2B 34 01 01 01 05 03 02 05 04 00 00 00 00"},
                       {"C0 08", "06 0E 2B 34 01 01 01 01 01 05 06 00 00 00 00 00"}};
    }
    int32_t Read(IFileIO* opened) {
        return extractor.GetDMSData(opened, &texts.job, &texts.family, &texts.given, &texts.number, &texts.name,
                                    &texts.take, &texts.kind, &texts.scene);
    }
    int32_t Read() {
        texts = {};
        return Read(Opened(file.Bytes()));
    }
    static ByteVector AllSets() {
        return Join(
            {Packet(kSceneFrameworkSetKey, LocalItem("C0 08", "37 41")),
             Packet(kClipFrameworkSetKey, Join({LocalItem("C0 06", "01 02"), LocalItem("C0 07", UTF16("k"))})),
             Packet(kProjectSetKey, Join({LocalItem("C0 04", "41 2D 31"), LocalItem("C0 05", UTF16("pn"))})),
             Packet(kParticipantSetKey, LocalItem("C0 01", UTF16("job"))),
             Packet(kPersonSetKey, Join({LocalItem("C0 02", UTF16("fam")), LocalItem("C0 03", UTF16("giv"))}))});
    }

    Metadata file;
    Texts texts;
};

TEST_F(DescriptiveMetadataOfFiles, TagsAreThoseOfTheFilesOwnPrimer) {
    file.sets = AllSets();
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, (Texts{"job", "fam", "giv", "A-1", "pn", 0x0102, "k", "7A"}));
    // An item that the primer does not know is left out, even where a set has it.
    const auto primer = file.primer;
    for (size_t i = 0; i < primer.size(); ++i) {
        file.primer = primer;
        file.primer.erase(file.primer.begin() + static_cast<ptrdiff_t>(i));
        Texts expected{"job", "fam", "giv", "A-1", "pn", 0x0102, "k", "7A"};
        std::string* const fields[] = {&expected.job,  &expected.family, &expected.given, &expected.number,
                                       &expected.name, nullptr,          &expected.kind,  &expected.scene};
        if (fields[i] != nullptr) fields[i]->clear();
        if (fields[i] == nullptr) expected.take = 0;
        EXPECT_EQ(Read(), kStatusOk);
        EXPECT_EQ(texts, expected) << i;
    }
}

TEST_F(DescriptiveMetadataOfFiles, WhatIsNotThereIsEmpty) {
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, kNoTexts);
    file.sets = Packet(kClipFrameworkSetKey, LocalItem("C0 06", "00 05"));
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, (Texts{"", "", "", "", "", 5, "", ""}));
    file.primer.clear();
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, kNoTexts);
}

TEST_F(DescriptiveMetadataOfFiles, TextsEndAtTheirFirstZeroAndNamesAtTheirWidth) {
    file.sets = Join(
        {Packet(kParticipantSetKey, LocalItem("C0 01", UTF16(std::string(61, 'j')))),
         Packet(kPersonSetKey, Join({LocalItem("C0 02", UTF16("fa") + "00 00 " + UTF16("m")), LocalItem("C0 03", "")})),
         Packet(kProjectSetKey, Join({LocalItem("C0 04", "41 00 42"), LocalItem("C0 05", "00 E9 4E 2D 00")})),
         Packet(kSceneFrameworkSetKey, LocalItem("C0 08", std::string(33 * 2, '3')))});
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts.job, std::string(60, 'j'));
    EXPECT_EQ(texts.family, "fa");
    EXPECT_EQ(texts.given, "");
    EXPECT_EQ(texts.number, "A");
    EXPECT_EQ(texts.name, "é中");
    EXPECT_EQ(texts.scene, std::string(33, '3'));
}

TEST_F(DescriptiveMetadataOfFiles, TakeNumberIsTwoBytes) {
    for (const auto& [value, take] : {std::pair{std::string_view("00 05"), 5},
                                      {std::string_view("01 02 03"), 0x0102},
                                      {std::string_view("05"), 0},
                                      {std::string_view(""), 0}}) {
        file.sets = Packet(kClipFrameworkSetKey, LocalItem("C0 06", value));
        EXPECT_EQ(Read(), kStatusOk);
        EXPECT_EQ(texts.take, take) << value;
    }
}

TEST_F(DescriptiveMetadataOfFiles, CutShortIsAFailureNotAnEmptyValue) {
    file.sets = AllSets();
    const auto bytes = file.Bytes();
    const size_t primerEnd = Metadata::kPrimerAt + 20 + 8 + 8 * 18;
    for (size_t size = 0; size < bytes.size(); ++size) {
        const int32_t expected = size < primerEnd ? kStatusNoMemory : kStatusIoError;
        EXPECT_EQ(Read(Opened(ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)))), expected)
            << size;
    }
    // The last item states more than the file has.
    file.sets = Packet(kPersonSetKey, LocalItem("C0 02", UTF16("fam")));
    auto lying = file.Bytes();
    Patch(lying, lying.size() - 8, Hex("00 09"));
    EXPECT_EQ(Read(Opened(lying)), kStatusIoError);
}

TEST_F(DescriptiveMetadataOfFiles, NullPointersAreRefused) {
    file.sets = AllSets();
    IFileIO* opened = Opened(file.Bytes());
    EXPECT_EQ(Read(nullptr), kStatusInvalidArgument);
    std::string text;
    uint16_t take = 0;
    for (int null = 0; null < 8; ++null) {
        const auto out = [&](int which) { return which == null ? nullptr : &text; };
        EXPECT_EQ(extractor.GetDMSData(opened, out(0), out(1), out(2), out(3), out(4), null == 5 ? nullptr : &take,
                                       out(6), out(7)),
                  kStatusInvalidArgument)
            << null;
    }
    EXPECT_EQ(text, "");
}

// --- damaged files ---

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
