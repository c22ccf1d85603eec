// What goes into an OP-1b clip comes out of it: pictures, sound, ancillary data, what the header carries for others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "kmxf/writer/Op1bBase.h"
#include "roundtrip/Op1bFormats.h"
#include "roundtrip/Op1bRecording.h"
#include "support/AccessUnits.h"
#include "support/Completions.h"
#include "support/HeapUse.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/SparseStream.h"
#include "support/StreamKinds.h"
#include "support/Walk.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kTypes[] = {0x0400C100, 0x0C00C100, 0x1000C100, 0x2000C100,
                               0x0400C200, 0x0C00C200, 0x1000C200, 0x2000C200};
// Bytes of the file that a reader has open.
std::vector<uint8_t> BytesAt(IStreamFileIO& stream, uint64_t offset, size_t size) {
    CMemoryPiece piece(static_cast<uint32_t>(size));
    EXPECT_EQ(stream.Seek(static_cast<int64_t>(offset), kSeekBegin), static_cast<int64_t>(offset));
    EXPECT_EQ(stream.Read(&piece, 0), static_cast<int32_t>(size));
    return {piece.GetBuffer(), piece.GetBuffer() + size};
}

std::vector<uint8_t> Aligned(std::vector<uint8_t> bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

// The value of an ANC element without data, and the fill item behind it.
const std::vector<uint8_t>& EmptyANC() {
    static const auto kBytes = [] {
        auto bytes = Hex("00 00  06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
        bytes.resize(492);
        return bytes;
    }();
    return kBytes;
}

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

// At the high frame rates half of the origin is stored, rounded up.
uint32_t OriginRead(const Op1bClip& clip) {
    return clip.Standard().halfTimecode ? (clip.hidden + 1) / 2 * 2 : clip.hidden;
}

void ExpectProperties(CReadMXFOp1b& reader, const Op1bClip& clip) {
    const uint32_t duration = clip.frames - clip.hidden;
    EXPECT_EQ(reader.GetDuration(), duration);
    EXPECT_EQ(reader.GetOrigin(), OriginRead(clip));
    EXPECT_EQ(reader.GetPartitionFrame(), clip.Standard().groupFrames);
    EXPECT_EQ(reader.GetVideoStandard(), clip.videoStd);
    EXPECT_EQ(reader.GetCompressionType(), clip.compType);
    EXPECT_EQ(reader.GetAudioCh(), clip.channels);
    EXPECT_EQ(reader.GetSamplingRate(), clip.channels == 0 ? 0u : 48000u);
    EXPECT_EQ(reader.GetBytesPerSample(), clip.channels == 0 ? 0 : clip.bytesPerSample);
    const uint32_t samples = SamplesOf(clip.Standard(), duration);
    EXPECT_EQ(reader.GetAudioDataSize(), clip.channels == 0 ? 0 : samples * clip.bytesPerSample);
    EXPECT_FALSE(reader.IsValidDMS());
}

void ExpectPictures(CReadMXFOp1b& reader, IStreamFileIO& stream, const Op1bClip& clip) {
    uint64_t streamOffset = 0;
    for (uint32_t i = 0; i < clip.frames; ++i) {
        const auto picture = Aligned(clip.Frame(i));
        VIDEOFRAMEINFOTag info, filler;
        MXFINDEXENTRYTag entry;
        ASSERT_EQ(reader.GetVideoInfo(i, info), kStatusOk) << i;
        ASSERT_EQ(info.size, picture.size()) << i;
        ASSERT_TRUE(SameBytes(picture, BytesAt(stream, info.offset, info.size))) << i;
        ASSERT_EQ(info.temporalOffset, clip.TemporalOffset(i)) << i;
        ASSERT_EQ(info.keyFrameOffset, clip.KeyFrameOffset(i)) << i;
        ASSERT_EQ(info.flags, clip.Flags(i)) << i;
        ASSERT_EQ(reader.GetVideoInfoFiller(i, filler), kStatusOk) << i;
        ASSERT_EQ(filler, info) << i;
        ASSERT_EQ(reader.GetVideoIndexEntry(i, entry), kStatusOk) << i;
        ASSERT_EQ(entry.streamOffset, streamOffset) << i;
        ASSERT_EQ(reader.GetCodingPosition(i), int64_t{i} + clip.TemporalOffset(i)) << i;
        streamOffset += 20 + picture.size();

        ANCDATAINFOTag anc;
        ASSERT_EQ(reader.GetANCInfo(i, anc), kStatusOk) << i;
        ASSERT_EQ(anc.size, 2u) << i;
        ASSERT_EQ(anc.hasData, 0) << i;
        ASSERT_TRUE(SameBytes(EmptyANC(), BytesAt(stream, anc.offset, 492))) << i;
    }
    VIDEOFRAMEINFOTag info;
    EXPECT_EQ(reader.GetVideoInfo(clip.frames, info), kStatusNotFound);
}

void ExpectSound(CReadMXFOp1b& reader, IStreamFileIO& stream, const Op1bClip& clip) {
    const uint32_t most = clip.Standard().groupFrames;
    for (uint32_t i = 0; i < clip.frames - clip.hidden; ++i) {
        const uint32_t first = i / most * most, frames = std::min(most, clip.frames - first);
        for (uint32_t c = 0; c < clip.channels; ++c) {
            AUDIODATAINFOTag info;
            ASSERT_EQ(reader.GetAudioInfo(i, c, info), kStatusOk) << i << ", channel " << c;
            const auto sound = SoundOf(clip, c, i, 1);
            ASSERT_TRUE(SameBytes(sound, BytesAt(stream, info.offset + info.position, sound.size())))
                << i << ", channel " << c;
            ASSERT_EQ(info.size, SoundOf(clip, c, first, frames).size()) << i << ", channel " << c;
        }
    }
    AUDIODATAINFOTag info;
    const int32_t beyond = clip.channels == 0 ? kStatusFailure : kStatusInvalidArgument;
    EXPECT_EQ(reader.GetAudioInfo(0, clip.channels, info), beyond);
    EXPECT_EQ(reader.GetAudioInfo(clip.frames - clip.hidden, 0, info), beyond);
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

// --- what the header carries ---

class Op1bHeaderRoundTrip : public testing::TestWithParam<bool> {
protected:
    Op1bHeaderRoundTrip() { SetFormat(writer_, clip_); }
    void RecordAndOpen() {
        ASSERT_TRUE(client_.Feed(writer_));
        ASSERT_EQ(writer_.Close(), kStatusOk);
        ASSERT_EQ(reader_.Open("clip.mxf", &stream_), kStatusOk);
    }
    // The text of an item in the only set of its kind.
    std::string Text(std::string_view set, std::string_view item) {
        const auto sets = Named(Walk(stream_.GetContents()), set);
        EXPECT_EQ(sets.size(), 1u) << set;
        const InspectedItem* found = sets.empty() ? nullptr : sets[0].Item(item);
        return found == nullptr ? "no such item" : found->Text();
    }

    Op1bClip clip_{0x0100007C, 0x2000C100, 2, 2, 3, GetParam()};
    CMemoryFileIO stream_;
    Op1bClient client_{clip_};
    CCreateMXFOp1b writer_;
    CReadMXFOp1b reader_;
};
INSTANTIATE_TEST_SUITE_P(BothLayouts, Op1bHeaderRoundTrip, testing::Bool());

TEST_P(Op1bHeaderRoundTrip, XMLOfEverySizeComesBack) {
    for (const uint16_t size : {uint16_t{0}, uint16_t{1}, uint16_t{811}, uint16_t{65535}}) {
        SCOPED_TRACE(size);
        const auto xml = Noise(size, size);
        SetFormat(writer_, clip_);
        ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
        ASSERT_EQ(writer_.SetXMLData(size == 0 ? EmptyANC().data() : xml.data(), size), kStatusOk);
        RecordAndOpen();
        ASSERT_EQ(reader_.GetXMLDataSize(), size);
        std::vector<uint8_t> back(size + 1u, 0x77);
        ASSERT_EQ(reader_.GetXMLData(back.data()), kStatusOk);
        EXPECT_EQ(back.back(), 0x77);
        back.pop_back();
        EXPECT_TRUE(SameBytes(xml, back));
        if (size != 0) {
            EXPECT_TRUE(SameBytes(xml, BytesAt(stream_, static_cast<uint64_t>(reader_.GetXMLOffset()), size)));
        }
        reader_.Close();
    }
}

// The greatest thumbnails: one leaves room for the smallest fill item, the other for none.
TEST_P(Op1bHeaderRoundTrip, ThumbnailsUpToTheGreatestComeBack) {
    for (const uint16_t size : {uint16_t{10854}, uint16_t{16011}, uint16_t{16031}}) {
        SCOPED_TRACE(size);
        const auto picture = Noise(size, size);
        SetFormat(writer_, clip_);
        ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
        EXPECT_EQ(writer_.SetThumbnailData(picture.data(), 16012, 96, 54, 0), kStatusInvalidArgument);
        ASSERT_EQ(writer_.SetThumbnailData(picture.data(), size, 96, 54, 0), kStatusOk);
        ASSERT_EQ(writer_.SetThumbnailPosition(2), kStatusOk);
        RecordAndOpen();
        EXPECT_EQ(reader_.GetThumbnailType(), 0);
        EXPECT_EQ(reader_.GetThumbnailWidth(), 96);
        EXPECT_EQ(reader_.GetThumbnailHeight(), 54);
        ASSERT_EQ(reader_.GetThumbnailDataSize(), size);
        std::vector<uint8_t> back(size + 1u, 0x77);
        ASSERT_EQ(reader_.GetThumbnailData(back.data()), kStatusOk);
        EXPECT_EQ(back.back(), 0x77);
        back.pop_back();
        EXPECT_TRUE(SameBytes(picture, back));
        reader_.Close();
    }
}

TEST_P(Op1bHeaderRoundTrip, PlaceholdersStandInForXMLAndThumbnail) {
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    ASSERT_EQ(reader_.GetXMLDataSize(), 6u);
    uint8_t xml[6];
    ASSERT_EQ(reader_.GetXMLData(xml), kStatusOk);
    EXPECT_THAT(xml, ElementsAre('D', 'u', 'm', 'm', 'y', 0));
    EXPECT_EQ(reader_.GetThumbnailWidth(), 80);
    EXPECT_EQ(reader_.GetThumbnailHeight(), 45);
    ASSERT_EQ(reader_.GetThumbnailDataSize(), 10854u);
    std::vector<uint8_t> picture(10854, 0x77);
    ASSERT_EQ(reader_.GetThumbnailData(picture.data()), kStatusOk);
    EXPECT_EQ(std::count(picture.begin(), picture.end(), 0), 10854);
}

TEST_P(Op1bHeaderRoundTrip, UMIDAndNameComeBack) {
    MXFUMIDTag umid;
    std::iota(std::begin(umid.bytes), std::end(umid.bytes), uint8_t{0xE1});
    writer_.SetUMID(umid);
    ASSERT_EQ(writer_.SetPackageName("Stra\u00DFe \u3042"), kStatusOk);
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    MXFUMIDTag back;
    ASSERT_EQ(reader_.GetMaterialUID(back), kStatusOk);
    EXPECT_EQ(back, umid);
    EXPECT_EQ(Text("MaterialPackage", "PackageName"), "Stra\u00DFe \u3042");
}

TEST_P(Op1bHeaderRoundTrip, ANameThatDoesNotFitDoesNotCostTheRecording) {
    ASSERT_EQ(writer_.SetPackageName(std::string(201, 'n')), kStatusOk);
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    EXPECT_EQ(Text("MaterialPackage", "PackageName"), "");
    ExpectPictures(reader_, stream_, clip_);
}

TEST_P(Op1bHeaderRoundTrip, DescriptiveMetadataComesBack) {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Kamera \u00E9");
    metadata.SetFamilyName("Family");
    metadata.SetFirstGivenName("Given");
    metadata.SetProjectNumber("P-1");
    metadata.SetProjectName("Project");
    metadata.SetTakeNumber(513);
    metadata.SetSceneNumber("12a");
    writer_.SetDescriptiveMetadata(metadata);
    ASSERT_EQ(writer_.Open("clip.mxf", &stream_), kStatusOk);
    RecordAndOpen();
    EXPECT_TRUE(reader_.IsValidDMS());
    EXPECT_EQ(Text("Participant", "JobFunction"), "Kamera \u00E9");
    EXPECT_EQ(Text("Person", "FamilyName"), "Family");
    EXPECT_EQ(Text("Person", "FirstGivenName"), "Given");
    EXPECT_EQ(Text("Project", "ProjectNumber"), "P-1");
    EXPECT_EQ(Text("Project", "ProjectName"), "Project");
    EXPECT_EQ(Text("ClipFramework", "TakeNumber"), "513");
    EXPECT_EQ(Text("SceneFramework", "SceneNumber"), "12a");
}

// --- what reading costs ---

TEST(Op1bRoundTrip, AFrameOfTheGroupThatIsHeldCostsNothingAndAnyOtherTwoReads) {
    const Op1bClip clip{0x0200005E, 0x1000C100, 2, 2, 130};
    const auto file = RecordClip(clip);
    FaultyStream stream(file);
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
    VIDEOFRAMEINFOTag info;
    AUDIODATAINFOTag sound;
    uint32_t group = 0;
    // Forth, back, and across.
    std::vector<uint32_t> order(130);
    std::iota(order.begin(), order.end(), 0);
    order.insert(order.end(), order.rbegin(), order.rend());
    for (uint32_t i = 0; i < 130; ++i) order.push_back(i * 61 % 130);
    for (const uint32_t frame : order) {
        const int all = stream.CountOfAll(), reads = stream.Count(Op::kRead);
        ASSERT_EQ(reader.GetVideoInfo(frame, info), kStatusOk);
        if (frame / 60 == group) {
            ASSERT_EQ(stream.CountOfAll(), all) << frame;
        } else {
            ASSERT_EQ(stream.Count(Op::kRead), reads + 2) << frame;
        }
        group = frame / 60;
        const int then = stream.CountOfAll();
        ASSERT_EQ(reader.GetAudioInfo(frame, 1, sound), kStatusOk);
        ASSERT_GE(reader.GetCodingPosition(frame), -1);
        ASSERT_EQ(stream.CountOfAll(), then) << frame;
    }
}

TEST(Op1bRoundTrip, TenHoursOpenInAFewReads) {
    constexpr uint32_t kFrames = 10 * 3600 * 60, kGroups = kFrames / 120, kChannels = 4;
    constexpr int64_t kPack = 156, kPictures = 120 * 24;
    // As the writer has it, but all groups are of one size, and only what opening needs is there.
    COp1bBase builder(0x0200007C, 0x2000C100, 3, kChannels);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(kFrames);
    builder.SetContainerDuration(kFrames);
    SparseStream stream;
    uint8_t* bytes = nullptr;
    const auto put = [&](int64_t offset, uint32_t size) {
        stream.Put(static_cast<uint64_t>(offset), {bytes, size});
        std::free(bytes);
    };
    ASSERT_EQ(builder.GetHeaderData(&bytes), kStatusOk);
    put(0, builder.GetHeaderSize());

    for (uint32_t i = 0; i < 120; ++i) builder.AddIndexEntry(0, 0, 0x22, i * 24);
    ASSERT_EQ(builder.SetBodyPartitionParamVideo(131072, 0, 120, false, true), kStatusOk);
    const int64_t index = 131072 + kPack + kPictures;
    ASSERT_EQ(builder.SetBodyPartitionParamVideo(index, 0, 120, true, false), kStatusOk);
    const uint32_t indexSize = builder.GetBodyPartitionSize(true, false);
    ASSERT_EQ(builder.GetBodyPartitionDataVideo(&bytes, true), kStatusOk);
    put(index, indexSize);

    constexpr int64_t kSound = 24 + 12 * 8008 * 3;  // 120 frames
    int64_t offset = index + indexSize;
    const auto enter = [&](uint32_t bodySID, int64_t size) {
        builder.AddPartitionInfo({static_cast<uint64_t>(offset), bodySID});
        offset += size;
    };
    for (uint32_t group = 0; group < kGroups; ++group) {
        if (group > 0) {
            enter(1, kPack + kPictures);
            enter(0, indexSize);
        }
        enter(2, kPack + 120 * 512);
        enter(0, kPack + 100);
        for (uint32_t c = 0; c < kChannels; ++c) {
            enter(3 + c, kPack + kSound);
            enter(0, kPack + 100);
        }
    }
    enter(0, kPack);  // the footer
    ASSERT_EQ(builder.GetRandomIndexData(&bytes), kStatusOk);
    put(offset, builder.GetRandomIndexSize());
    ASSERT_GT(stream.Size(), uint64_t{20} << 30);

    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
    const int reads = stream.Reads();
    EXPECT_LE(reads, 10);
    EXPECT_EQ(reader.GetDuration(), kFrames);
    EXPECT_EQ(reader.GetAudioCh(), 4u);
    VIDEOFRAMEINFOTag video;
    ASSERT_EQ(reader.GetVideoInfo(119, video), kStatusOk);
    EXPECT_EQ(video.offset, 131072u + 156 + 119 * 24 + 20);
    AUDIODATAINFOTag sound;
    ASSERT_EQ(reader.GetAudioInfo(kFrames - 1, 3, sound), kStatusOk);
    EXPECT_EQ(sound.offset + sound.size + 2 * 156 + 100 - 156, static_cast<uint64_t>(offset) - 156);
    EXPECT_EQ(sound.size, 12u * 8008 * 3);
    EXPECT_EQ(sound.position, (11u * 8008 + 7208) * 3);
    EXPECT_EQ(stream.Reads(), reads);
    const LogRecorder quiet;
    EXPECT_EQ(reader.GetVideoInfo(kFrames - 1, video), kStatusFailure) << "its index is not there";
    EXPECT_LE(stream.Reads(), reads + 3);
}

// Frames of one byte and sound that costs the writer nothing: what it holds is what it must remember of a frame.
TEST(Op1bRoundTrip, ALongRecordingHoldsAtMost32BytesAFrame) {
    constexpr uint32_t kFrames = 100000;
    constexpr size_t kConstant = 512 * 1024;  // builder, header, pieces
    const Op1bClip clip{0x0200005E, 0x1000C100, 4};
    CMemoryPiece frame("x", 1), block(SamplesOf(clip.Standard(), 60) * 2);
    SparseStream stream(131072);
    CCreateMXFOp1b writer;
    SetFormat(writer, clip);
    const size_t before = HeapBytes();
    uint32_t writes = 0;
    size_t most = 0;
    stream.OnWrite([&] {
        if (++writes % 16 != 0) return;
        const size_t allowed = kConstant + size_t{32} * writer.GetDuration();
        most = std::max(most, HeapBytes() - before);
        ASSERT_LE(HeapBytes() - before, allowed) << "after " << writer.GetDuration() << " frames";
    });
    ASSERT_EQ(writer.Open("long.mxf", &stream), kStatusOk);
    for (uint32_t i = 0; i < kFrames; ++i) {
        ASSERT_EQ(writer.WriteVideo(&frame, 0, 0, 0x22), 4);
        if ((i + 1) % 60 != 0) continue;
        for (uint8_t c = 0; c < 4; ++c) ASSERT_EQ(writer.WriteAudio(&block, c), static_cast<int32_t>(block.GetSize()));
        if (HasFailure()) return;
    }
    RecordProperty("BytesHeld", static_cast<int>(most));
    EXPECT_GT(most, size_t{11} * kFrames) << "the index of every frame is kept for the footer";
    stream.OnWrite({});  // at the end the footer is built from what was held
    const LogRecorder log;
    ASSERT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(log.Lines().size(), 1u) << "the sound of the last group is missing";
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
