#include "kmxf/writer/CreateMXFAudio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OpAtomRecording.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/OpAtomSound.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TestAudio final : public CCreateMXFAudio {
public:
    using CCreateMXFAudio::builder_;
    using CCreateMXFAudio::settings_;

    void UseScript(Script& script) {
        builder_ = std::make_unique<ScriptedBuilder<COpAtomSound>>(script, VIDEO_STD_50I, 1u, 48000u, 0u, 16u, false);
    }
};

class CreateMXFAudio : public OpAtomRecording<TestAudio> {
protected:
    CreateMXFAudio() { Set(); }
    void Set() {
        writer.SetFilename("a00.mxf");
        writer.SetVideoStandard(VIDEO_STD_50I);
        writer.SetClipType(0x102);
        writer.SetUMID({{1}});
    }
};

TEST_F(CreateMXFAudio, BytesPerSampleIs2Or3AndOutlivesResetParam) {
    writer.settings_.dataSize = 11520;  // 5760 samples of 2 bytes, 3840 of 3
    EXPECT_EQ(writer.GetDuration(), 3u);
    EXPECT_EQ(writer.SetBytesPerSample(3), kStatusOk);
    EXPECT_EQ(writer.GetDuration(), 2u);
    writer.ResetParam();
    writer.SetVideoStandard(VIDEO_STD_50I);
    writer.settings_.dataSize = 11520;
    EXPECT_EQ(writer.GetDuration(), 2u);
    for (const uint16_t other : {uint16_t{4}, uint16_t{0}, uint16_t{1}, uint16_t{0xFFFF}, uint16_t{2}}) {
        writer.SetBytesPerSample(3);
        EXPECT_EQ(writer.SetBytesPerSample(other), kStatusOk);
        EXPECT_EQ(writer.GetDuration(), 3u) << other;
    }
}

TEST_F(CreateMXFAudio, DurationCountsFourSamplesMore) {
    const struct {
        uint32_t videoStd, rate;
        int64_t samples;
        uint32_t frames;
    } rows[] = {
        {VIDEO_STD_50I, 48000, 1920, 1},
        {VIDEO_STD_50I, 48000, 1916, 1},
        {VIDEO_STD_50I, 48000, 1915, 0},
        {VIDEO_STD_50I, 48000, 0, 0},
        {VIDEO_STD_50P, 48000, 956, 1},
        {VIDEO_STD_50P, 48000, 955, 0},
        {VIDEO_STD_59_94I, 48000, 8008, 5},
        {VIDEO_STD_59_94I, 48000, 8004, 5},
        {VIDEO_STD_59_94I, 48000, 8003, 4},
        {VIDEO_STD_23_98P, 48000, 1998, 1},
        {VIDEO_STD_23_98P, 48000, 1997, 0},
        // 3204 samples are two frames at 48 kHz; half of them, in 96 kHz, is one
        {VIDEO_STD_59_94I, 96000, 3200, 1},
        {VIDEO_STD_59_94I, 96000, 3199, 0},
        {VIDEO_STD_50I, 96000, 3836, 1},
        {0x12345678, 48000, 1920, 0xFFFFFFFF},
    };
    for (const auto& row : rows) {
        writer.SetVideoStandard(row.videoStd);
        writer.SetSamplesPerSec(row.rate);
        writer.settings_.dataSize = row.samples * 2;
        EXPECT_EQ(writer.GetDuration(), row.frames) << std::hex << row.videoStd << std::dec << ' ' << row.samples;
        uint32_t total = 0;
        writer.GetTotalDuration(&total);
        EXPECT_EQ(total, row.frames);
    }
}

TEST_F(CreateMXFAudio, RecordsSamplesBehindTheHeaderAndNothingElse) {
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(3840, 's'), 0), 3840);
    EXPECT_EQ(TotalDataSize(), 3840);
    const std::vector<uint8_t> open = stream.Bytes();
    ASSERT_EQ(open.size(), 32768u + 3840);
    EXPECT_EQ(Runs(std::span(open).subspan(32768)), "s*3840");
    // The footer's place is not known while the recording goes on, and the essence has no length.
    EXPECT_EQ(HexLine(std::span(open).first(52), 44), "00 00 00 00 00 00 00 00 ");
    EXPECT_EQ(HexLine(std::span(open).first(32768), 32760), "87 00 00 00 00 00 00 00 ");

    EXPECT_EQ(writer.Close(), kStatusOk);
    const std::vector<uint8_t>& closed = stream.Bytes();
    ASSERT_EQ(closed.size(), 32768u + 3840 + 224);
    EXPECT_EQ(HexLine(closed, 0), "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00 ");
    EXPECT_EQ(HexLine(std::span(closed).first(52), 44), "00 00 00 00 00 00 8F 00 ");  // 36608
    EXPECT_EQ(HexLine(closed, 32744), "06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 04 01 ");
    EXPECT_EQ(HexLine(std::span(closed).first(32768), 32760), "87 00 00 00 00 00 0F 00 ");  // 3840
    EXPECT_EQ(Runs(std::span(closed).subspan(32768, 3840)), "s*3840");
    EXPECT_EQ(HexLine(closed, 36608), "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00 ");
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_FALSE(writer.IsOpened());
    ExpectNothingHeld(stream);
}

TEST_F(CreateMXFAudio, TheFinalHeaderAndFooterHaveEverySetting) {
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(12);
    metadata.SetSceneNumber("scene");
    std::vector<uint8_t> expectedHeader, expectedFooter;
    {
        const FixedEnvironment environment;
        COpAtomSound builder(VIDEO_STD_59_94I, 0x104, 96000, 2, 24, true);
        ASSERT_EQ(builder.Initialize(), kStatusOk);
        builder.SetDataSize(0);
        HeaderOf(builder);
        SetSpanned(builder, kNow, 5, 48048, metadata);  // 16016 samples
        expectedFooter = FooterOf(builder);
        builder.SetIdentification("Acme", "Recorder", "9.9", kProductUID);
        expectedHeader = HeaderOf(builder);
    }
    const FixedEnvironment environment;
    writer.SetVideoStandard(VIDEO_STD_59_94I);
    writer.SetClipType(0x104);
    writer.SetChannel(2);
    writer.SetSamplesPerSec(96000);
    writer.SetBytesPerSample(3);
    SetSpanned();
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(48048), 0), 48048);
    writer.SetPackageName("take");
    writer.SetDescriptiveMetadata(metadata);
    EXPECT_EQ(writer.SetIdentification("Acme", "Recorder", "9.9", kProductUID), kStatusOk);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_TRUE(SameBytes(expectedHeader, std::span(stream.Bytes()).first(32768)));
    EXPECT_TRUE(SameBytes(expectedFooter, std::span(stream.Bytes()).subspan(32768 + 48048)));
    // "Acme", 24 bits, 96000 samples a second
    EXPECT_TRUE(Contains(expectedHeader, Hex("00 41 00 63 00 6D 00 65 00 00")));
    EXPECT_TRUE(Contains(expectedHeader, Hex("3D 01 00 04 00 00 00 18")));
    EXPECT_TRUE(Contains(expectedHeader, Hex("3D 03 00 08 00 01 77 00 00 00 00 01")));
}

TEST_F(CreateMXFAudio, AHeaderThatIsNotRewrittenIsFinalFromTheStart) {
    std::vector<uint8_t> expected;
    {
        const FixedEnvironment environment;
        COpAtomSound builder(VIDEO_STD_50I, 0x102, 48000, 0, 16, false);
        ASSERT_EQ(builder.Initialize(), kStatusOk);
        SetPlain(builder, 1, 3840);
        builder.SetIdentification("Acme", "Recorder", "9.9", kProductUID);
        expected = HeaderOf(builder);
    }
    const FixedEnvironment environment;
    writer.SetRenderingDataSize(3840);
    writer.SetIdentification("Acme", "Recorder", "9.9", kProductUID);
    EXPECT_EQ(writer.Open(&stream, false), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(1000), 0), 1000);
    EXPECT_TRUE(SameBytes(expected, std::span(stream.Bytes()).first(32768)));
    EXPECT_EQ(writer.Write(Essence(2840), 0), 2840);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_TRUE(SameBytes(expected, std::span(stream.Bytes()).first(32768)));
    EXPECT_EQ(stream.Bytes().size(), 32768u + 3840 + 224);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFAudio, OpenReturnsEveryFailure) {
    stream.FailAll(Op::kOpen);
    EXPECT_EQ(writer.Open(&stream, true), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: Open Error.", "CCreateMXFAudio::Open: Open Error."));
    EXPECT_EQ(log.Records()[1].sourceFile, "CreateMXFAudio");
    EXPECT_EQ(writer.settings_.clipType, 0u);
    EXPECT_EQ(writer.builder_, nullptr);

    log.Clear();
    Set();
    FaultyStream unregistered;
    unregistered.FailAll(Op::kRegisterCallback);
    EXPECT_EQ(writer.Open(&unregistered, true), kStatusIoError);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CCreateMXFBase::Open: RegisterCallback Error.", "CCreateMXFAudio::Open: Open Error."));
    EXPECT_FALSE(unregistered.IsOpened());

    log.Clear();
    Set();
    EXPECT_EQ(writer.Open(nullptr, true), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::Open: Open Error."));
    EXPECT_EQ(writer.settings_.clipType, 0u);
    EXPECT_EQ(writer.builder_, nullptr);
}

TEST_F(CreateMXFAudio, OpenOfAnOpenedWriterKeepsTheRecording) {
    writer.Open(&stream, true);
    writer.Write(Essence(3840), 0);
    const COpAtomBase* const builder = writer.builder_.get();
    FaultyStream other;
    EXPECT_EQ(writer.Open(&other, false), kStatusOk);
    EXPECT_EQ(writer.Open(nullptr, false), kStatusInvalidArgument);
    EXPECT_EQ(other.CountOfAll(), 0);
    EXPECT_EQ(writer.builder_.get(), builder);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_EQ(TotalDataSize(), 3840);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFAudio, PassesTheSettingsToTheBuilderInOrder) {
    writer.UseScript(script);
    writer.SetStartTimecode(90000, true);
    writer.SetCreationDate({2020, 1, 1, 0, 0, 0, 0});
    writer.SetPackageName("name");
    CDescriptiveMetadata metadata;
    metadata.SetSceneNumber("scene");
    writer.SetDescriptiveMetadata(metadata);
    writer.settings_.dataSize = 7680;
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls,
                ElementsAre("SetStartTimecode 90000 drop", "SetCreationDate 2020", "SetModifiedDate 2020", "SetUMID 1",
                            "SetDuration 2", "SetDataSize 7680", "SetPackageName name", "SetDMS scene"));
    EXPECT_EQ(writer.settings_.duration, 2u);

    script.calls.clear();
    writer.SetShotUMID({{2}});
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls, ElementsAre("SetStartTimecode 90000 drop", "SetCreationDate 2020", "SetModifiedDate 2020",
                                          "SetUMID 1", "ChangeMaterialUMID 2", "SetDuration 2", "SetDataSize 7680",
                                          "SetPackageName name", "SetDMS scene"));

    // A spanned clip gets the shot UMID even if it is all zero.
    script.calls.clear();
    writer.SetShotUMID({});
    writer.SetPrevDuration(-3);
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls, ElementsAre("SetStartTimecode 90000 drop", "SetCreationDate 2020", "SetModifiedDate 2020",
                                          "SetUMID 1", "ChangeMaterialUMID 0", "SetFillerDuration -3", "SetDuration 2",
                                          "SetDataSize 7680", "SetPackageName name", "SetDMS scene"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFAudio, AnAllZeroUMIDIsPassedToo) {
    writer.UseScript(script);
    writer.SetUMID({});
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls, testing::Contains("SetUMID 0"));
}

TEST_F(CreateMXFAudio, EveryFailingSetterIsReported) {
    const struct {
        const char* operation;
        const char* line;
        size_t calls;  // made until then
    } rows[] = {
        {"SetStartTimecode", "CCreateMXFAudio::SetMXFParam: SetStartTimecode Error.", 1},
        {"SetUMID", "CCreateMXFAudio::SetMXFParam: SetUMID Error.", 4},
        {"ChangeMaterialUMID", "CCreateMXFAudio::SetMXFParam: ChangeMaterialUMID Error.", 5},
        {"SetFillerDuration", "CCreateMXFAudio::SetMXFParam: SetFillerDuration Error.", 6},
        {"SetDuration", "CCreateMXFAudio::SetMXFParam: SetDuration Error.", 7},
        {"SetDataSize", "CCreateMXFAudio::SetMXFParam: SetDataSize Error.", 8},
        {"SetPackageName", "CCreateMXFAudio::SetMXFParam: SetPackageName Error.", 9},
        {"SetDMS", "CCreateMXFAudio::SetMXFParam: SetDMS Error.", 10},
    };
    writer.SetPrevDuration(10);
    for (const auto& row : rows) ExpectReported(row.operation, row.line, "CreateMXFAudio", row.calls);
}

TEST_F(CreateMXFAudio, AFailingShotUMIDIsReportedWithoutSpanningToo) {
    script.answers = {{"ChangeMaterialUMID", kStatusFailure}};
    writer.UseScript(script);
    writer.SetShotUMID({{2}});
    EXPECT_EQ(writer.SetMXFParam(), kStatusFailure);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::SetMXFParam: ChangeMaterialUMID Error."));
}

TEST_F(CreateMXFAudio, ResultsOfTheDatesAreNotLookedAt) {
    script.answers = {{"SetCreationDate", kStatusFailure}, {"SetModifiedDate", kStatusFailure}};
    writer.UseScript(script);
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFAudio, ParametersNeedABuilder) {
    EXPECT_EQ(writer.SetMXFParam(), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::SetMXFParam: m_pOpAtomBase is NULL."));
}

TEST_F(CreateMXFAudio, AnUnknownVideoStandardHasNoDuration) {
    for (const uint32_t rate : {48000u, 96000u}) {
        SCOPED_TRACE(rate);
        log.Clear();
        Set();
        writer.SetSamplesPerSec(rate);
        FaultyStream file;
        ASSERT_EQ(writer.Open(&file, true), kStatusOk);
        EXPECT_EQ(writer.Write(Essence(3840), 0), 3840);
        writer.SetVideoStandard(0x12345678);
        EXPECT_EQ(writer.Close(), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::SetMXFParam: GetDuration Error.",
                                             "CCreateMXFBase::Close: SetMXFParam Error."));
        EXPECT_EQ(file.Bytes().size(), 32768u + 3840);  // no footer
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_FALSE(file.IsOpened());
    }
}

TEST_F(CreateMXFAudio, ADurationThatIsUnknownIsReported) {
    class Unknowing final : public CCreateMXFAudio {
    public:
        uint32_t GetDuration() override { return 0xFFFFFFFF; }
    } unknowing;
    unknowing.SetVideoStandard(VIDEO_STD_50I);
    ASSERT_EQ(unknowing.Open(&stream, true), kStatusOk);
    EXPECT_EQ(unknowing.SetMXFParam(), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::SetMXFParam: GetDuration Error."));
}

TEST_F(CreateMXFAudio, ParametersThatFailInTheFirstWriteAreLoggedOnce) {
    writer.SetRenderingDataSize(3840);
    writer.SetPackageName(std::string(201, 'n'));
    ASSERT_EQ(writer.Open(&stream, false), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(3840), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::SetMXFParam: SetPackageName Error."));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_FALSE(writer.IsOpened());
}

TEST_F(CreateMXFAudio, APackageNameThatDoesNotFitFailsTheClose) {
    ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(3840), 0), 3840);
    writer.SetPackageName("\xFF");
    EXPECT_EQ(writer.Close(), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFAudio::SetMXFParam: SetPackageName Error.",
                                         "CCreateMXFBase::Close: SetMXFParam Error."));
}

}  // namespace
}  // namespace kmxf::test
