#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/tools/MXFExtractMetaData.h"
#include "reader/HeaderFixture.h"
#include "roundtrip/Recording.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TestData.h"
#include "tools/MemoryFiles.h"

namespace kmxf::test {

inline constexpr int32_t kNoEndUMID = -1;
inline constexpr std::string_view kMaterialKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 36 00";
inline constexpr std::string_view kFilePackageKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 37 00";
inline constexpr std::string_view kTimecodeKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 14 00";
inline constexpr std::string_view kParticipantSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 18 01 00";
inline constexpr std::string_view kPersonSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 1A 02 00";
inline constexpr std::string_view kProjectSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 20 02 00";
inline constexpr std::string_view kClipFrameworkSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 02 00";
inline constexpr std::string_view kSceneFrameworkSetKey = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00";

inline std::string UTF16(std::string_view ascii) {
    std::string hex;
    for (const char c : ascii) {
        char unit[8];
        std::snprintf(unit, sizeof unit, "00 %02X ", static_cast<unsigned>(c));
        hex += unit;
    }
    return hex;
}

inline MXFUMIDTag UMID(uint8_t last) {
    MXFUMIDTag umid;
    std::ranges::copy(Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00"), umid.bytes);
    umid.bytes[31] = last;
    return umid;
}

inline CDescriptiveMetadata Descriptive() {
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
struct ClipSettings {
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

inline ClipSettings DV720Settings() {
    ClipSettings settings;
    settings.videoStd = VIDEO_STD_59_94P;
    settings.compType = COMP_TYPE_DV100_720P;
    return settings;
}

template <class Writer>
ByteVector Record(Writer& writer, const ClipSettings& settings, uint8_t umid, const ByteVector& essence) {
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
inline ByteVector Video(const ClipSettings& settings, const ByteVector& essence) {
    CCreateMXFVideo writer;
    writer.SetDVType(settings.compType);
    writer.SetConsumerDV(settings.consumerDV);
    writer.SetWide(settings.wide);
    return Record(writer, settings, 0x01, essence);
}
inline ByteVector Sound(const ClipSettings& settings, size_t samples, uint32_t channel = 0) {
    CCreateMXFAudio writer;
    writer.SetChannel(channel);
    writer.SetSamplesPerSec(settings.samplingRate);
    writer.SetBytesPerSample(settings.bytesPerSample);
    return Record(writer, settings, static_cast<uint8_t>(2 + channel), ByteVector(samples * settings.bytesPerSample));
}
inline ByteVector DV25() { return LoadTestData("essence/dv25-5994i.dif"); }
// Four frames, two units.
inline ByteVector DV720() {
    const auto unit = LoadTestData("essence/dv100-720-5994p.dif");
    return Join({unit, unit});
}

// Replaces `from` wherever it stands; it must stand somewhere.
inline ByteVector Replaced(ByteVector bytes, const ByteVector& from, const ByteVector& to) {
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
inline std::vector<Accessor> AudioAccessors(uint32_t channel) {
    using C = CMXFExtractMetaData;
    return {Of(channel, &C::GetAudioDuration),      Of(channel, &C::GetAudioDataOffset),
            Of(channel, &C::GetAudioDataSize),      Of(channel, &C::GetAudioFileSize),
            Of(channel, &C::GetAudioFileUMID),      Of(channel, &C::GetAudioMaterialUMID),
            Of(channel, &C::GetAudioBitsPerSample), Of(channel, &C::GetAudioSamplingRate),
            Of(channel, &C::GetAudioClipName),      Of(channel, &C::GetAudioStartTimecode)};
}
inline std::vector<Accessor> DIFAccessors() {
    using C = CMXFExtractMetaData;
    return {Of(&C::GetDIFStartTimecode),    Of(&C::GetDIFStartUsersBit),    Of(&C::GetDIFStartUMID),
            Of(&C::GetDIFVideoStandard),    Of(&C::GetDIFDVType),           Of(&C::GetDIFConsumerDVFlag),
            Of(&C::GetDIF2332PulldownFlag), Of(&C::GetDIFPulldownFrameRate)};
}
inline std::vector<Accessor> OtherAccessors() {
    using C = CMXFExtractMetaData;
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
inline std::vector<Accessor> AllAccessors() {
    auto all = OtherAccessors();
    for (const auto& more : {DIFAccessors(), AudioAccessors(0)}) all.insert(all.end(), more.begin(), more.end());
    return all;
}

// A header pack and metadata behind it: a primer with these entries, and sets.
struct MetadataFile {
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

class MXFExtractMetaData : public testing::Test {
protected:
    using C = CMXFExtractMetaData;
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

    // What each accessor returns, given a null pointer or not.
    void ExpectEach(const std::vector<Accessor>& accessors, int32_t status, bool null = false) {
        for (size_t i = 0; i < accessors.size(); ++i)
            EXPECT_EQ(accessors[i](extractor, null), status) << "accessor " << i << (null ? ", null" : "");
    }
    void ExpectNothingExtracted() {
        for (const bool null : {false, true}) ExpectEach(AllAccessors(), kStatusNotFound, null);
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

}  // namespace kmxf::test
