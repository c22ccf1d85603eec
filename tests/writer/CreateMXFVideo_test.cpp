#include "kmxf/writer/CreateMXFVideo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OpAtomRecording.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/OpAtomPictureAVCI.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TestVideo final : public CCreateMXFVideo {
public:
    using CCreateMXFVideo::builder_;
    using CCreateMXFVideo::settings_;

    template <class Builder = COpAtomPictureCDCI>
    void UseScript(Script& script) {
        if constexpr (std::is_same_v<Builder, COpAtomPictureCDCI>) {
            builder_ = std::make_unique<ScriptedBuilder<Builder>>(script, VIDEO_STD_50I, COMP_TYPE_DV25, 0x100u, 0u,
                                                                  48000u, false, false, 0u);
        } else {
            builder_ = std::make_unique<ScriptedBuilder<Builder>>(script, VIDEO_STD_50I, COMP_TYPE_AVCI100_1080, 0x100u,
                                                                  0u, 48000u, false);
        }
    }
};

class CreateMXFVideo : public OpAtomRecording<TestVideo> {
protected:
    CreateMXFVideo() { Set(VIDEO_STD_50I, COMP_TYPE_DV25); }
    void Set(uint32_t videoStd, uint32_t compType) {
        writer.SetFilename("a.mxf");
        writer.SetVideoStandard(videoStd);
        writer.SetDVType(compType);
        writer.SetClipType(0x100);
        writer.SetUMID({{1}});
    }
    // The header of a recording of 1000 bytes.
    std::vector<uint8_t> RecordHeader() {
        FaultyStream file;
        EXPECT_EQ(writer.Open(&file, true), kStatusOk);
        EXPECT_EQ(writer.Write(Essence(1000), 0), 1000);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_GT(file.Bytes().size(), 32768u + 1000);
        return {file.Bytes().begin(), file.Bytes().begin() + 32768};
    }
};

TEST_F(CreateMXFVideo, TheCompressionTypeDecidesTheBuilder) {
    const struct {
        uint32_t compType, videoStd;
        bool avci;
    } rows[] = {
        {COMP_TYPE_DV25, VIDEO_STD_50I, false},        {COMP_TYPE_DV50, VIDEO_STD_59_94I, false},
        {COMP_TYPE_DV100_1080I, VIDEO_STD_50I, false}, {COMP_TYPE_DV100_720P, VIDEO_STD_59_94P, false},
        {COMP_TYPE_AVCI50_1080, VIDEO_STD_50I, true},  {COMP_TYPE_AVCI50_720, VIDEO_STD_50P, true},
        {COMP_TYPE_AVCI100_1080, VIDEO_STD_25P, true}, {COMP_TYPE_AVCI100_720, VIDEO_STD_59_94P, true},
        {COMP_TYPE_AVCI200_1080, VIDEO_STD_50I, true}, {COMP_TYPE_AVCI200_720, VIDEO_STD_25P, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.compType);
        Set(row.videoStd, row.compType);
        ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
        EXPECT_EQ(dynamic_cast<COpAtomPictureAVCI*>(writer.builder_.get()) != nullptr, row.avci);
        EXPECT_EQ(dynamic_cast<COpAtomPictureCDCI*>(writer.builder_.get()) != nullptr, !row.avci);
        writer.Write(Essence(10), 0);
        EXPECT_EQ(stream.Bytes().size(), 32768u + 10 + (row.avci ? 512 : 0));
        EXPECT_EQ(TotalDataSize(), row.avci ? 522 : 10);
        writer.Close();
        writer.ResetParam();
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, AFormatWithoutBuilderFailsToInitialize) {
    for (const uint32_t type : {0x1FFFFu, COMP_TYPE_LONGG50_1080, COMP_TYPE_LONGG6_720, 0xC100u, 0u, 0x1234u}) {
        SCOPED_TRACE(type);
        log.Clear();
        Set(VIDEO_STD_50I, type);
        EXPECT_EQ(writer.Open(&stream, true), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFVideo::Open: Initialize Error."));
        EXPECT_EQ(log.Records()[0].sourceFile, "CreateMXFVideo");
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_EQ(writer.builder_, nullptr);
        EXPECT_EQ(writer.settings_.clipType, 0u);  // reset
    }
    EXPECT_EQ(stream.CountOfAll(), 0);
}

TEST_F(CreateMXFVideo, WithoutDVTypeOpenFails) {
    TestVideo fresh;
    fresh.SetVideoStandard(VIDEO_STD_50I);
    EXPECT_EQ(fresh.Open(&stream, true), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFVideo::Open: Initialize Error."));
}

TEST_F(CreateMXFVideo, AnAVCIntraTypeSetOnceStaysInForce) {
    Set(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080);
    writer.SetDVType(COMP_TYPE_DV25);  // the builder for AVC-Intra has no DV
    EXPECT_EQ(writer.Open(&stream, true), kStatusInvalidArgument);
    Set(VIDEO_STD_50I, COMP_TYPE_DV25);  // after the reset
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_TRUE(writer.IsOpened());
}

TEST_F(CreateMXFVideo, OpenReturns0ButForInitialize) {
    stream.FailAll(Op::kOpen);
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: Open Error."));
    EXPECT_EQ(writer.settings_.compType, 0x1FFFFu);
    EXPECT_EQ(writer.builder_, nullptr);

    log.Clear();
    Set(VIDEO_STD_50I, COMP_TYPE_DV25);
    FaultyStream unregistered;
    unregistered.FailAll(Op::kRegisterCallback);
    EXPECT_EQ(writer.Open(&unregistered, true), kStatusOk);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_FALSE(unregistered.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: RegisterCallback Error."));

    log.Clear();
    Set(VIDEO_STD_50I, COMP_TYPE_DV25);
    EXPECT_EQ(writer.Open(nullptr, true), kStatusOk);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(writer.settings_.compType, COMP_TYPE_DV25);  // not even reset
    FaultyStream good;
    EXPECT_EQ(writer.Open(&good, true), kStatusOk);
    EXPECT_TRUE(writer.IsOpened());
    writer.Close();
}

TEST_F(CreateMXFVideo, OpenOfAnOpenedWriterKeepsTheRecording) {
    writer.Open(&stream, true);
    writer.Write(Essence(144000), 0);
    const COpAtomBase* const builder = writer.builder_.get();
    FaultyStream other;
    EXPECT_EQ(writer.Open(&other, false), kStatusOk);
    EXPECT_EQ(writer.Open(nullptr, false), kStatusOk);
    EXPECT_EQ(other.CountOfAll(), 0);
    EXPECT_EQ(writer.builder_.get(), builder);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, WideIs16To9) {
    const std::vector<uint8_t> wide = Hex("32 0E 00 08 00 00 00 10 00 00 00 09");
    const std::vector<uint8_t> narrow = Hex("32 0E 00 08 00 00 00 04 00 00 00 03");
    const struct {
        uint32_t compType, videoStd;
        int setWide;  // -1: not called
        bool expected;
    } rows[] = {
        {COMP_TYPE_DV25, VIDEO_STD_50I, -1, false},      {COMP_TYPE_DV25, VIDEO_STD_50I, 1, true},
        {COMP_TYPE_DV25, VIDEO_STD_50I, 0, false},       {COMP_TYPE_DV50, VIDEO_STD_50I, -1, false},
        {COMP_TYPE_DV50, VIDEO_STD_50I, 1, true},        {COMP_TYPE_DV100_1080I, VIDEO_STD_50I, -1, true},
        {COMP_TYPE_DV100_1080I, VIDEO_STD_50I, 0, true}, {COMP_TYPE_DV100_720P, VIDEO_STD_50P, 0, true},
        {COMP_TYPE_AVCI50_1080, VIDEO_STD_50I, 0, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.compType << ' ' << row.setWide);
        Set(row.videoStd, row.compType);
        if (row.setWide >= 0) {
            EXPECT_EQ(writer.SetWide(row.setWide == 1), kStatusOk);
        }
        const auto header = RecordHeader();
        EXPECT_EQ(Contains(header, wide), row.expected);
        EXPECT_EQ(Contains(header, narrow), !row.expected);
    }
}

TEST_F(CreateMXFVideo, ConsumerDVHasALabelOfItsOwn) {
    const auto label = [&] { return HexLine(RecordHeader(), 108).substr(36, 11); };  // its last four bytes
    EXPECT_EQ(label(), "02 02 41 02");
    Set(VIDEO_STD_50I, COMP_TYPE_DV25);
    EXPECT_EQ(writer.SetConsumerDV(true), kStatusOk);
    EXPECT_EQ(label(), "02 02 02 02");
    Set(VIDEO_STD_50I, COMP_TYPE_DV25);  // Close has reset the flag
    EXPECT_EQ(label(), "02 02 41 02");
    Set(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    writer.SetConsumerDV(true);
    EXPECT_EQ(label(), "02 02 01 02");
}

TEST_F(CreateMXFVideo, UnusedOutOffsetIs0Or1ForDV100720POnly) {
    EXPECT_EQ(writer.SetUnusedOutOffset(7), kStatusOk);  // ignored
    writer.SetDVType(COMP_TYPE_DV100_720P);
    EXPECT_EQ(writer.SetUnusedOutOffset(0), kStatusOk);
    EXPECT_EQ(writer.SetUnusedOutOffset(1), kStatusOk);
    EXPECT_EQ(writer.SetUnusedOutOffset(2), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetUnusedOutOffset(-1), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, DurationIsInWholeFramesAndEvenAtProgressiveRates) {
    const struct {
        uint32_t videoStd, compType;
        int64_t size;
        uint32_t duration;
        uint32_t inHeader;
    } rows[] = {
        {VIDEO_STD_50I, COMP_TYPE_DV25, 0, 0, 0},
        {VIDEO_STD_50I, COMP_TYPE_DV25, 143999, 0, 0},
        {VIDEO_STD_50I, COMP_TYPE_DV25, 4 * 144000, 4, 4},
        {VIDEO_STD_50I, COMP_TYPE_DV25, 5 * 144000, 5, 4},  // the header's count is even in all of DV
        {VIDEO_STD_59_94I, COMP_TYPE_DV50, 7 * 240000, 7, 6},
        {VIDEO_STD_59_94I, COMP_TYPE_DV100_1080I, 480000, 1, 0},
        {VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, 5 * 240000, 4, 4},
        {VIDEO_STD_50P, COMP_TYPE_DV100_720P, 5 * 288000, 4, 4},
        {VIDEO_STD_23_98P, COMP_TYPE_DV100_720P, 3 * 240000, 2, 2},
        {VIDEO_STD_29_97P, COMP_TYPE_DV100_720P, 240000, 0, 0},
        {VIDEO_STD_25P, COMP_TYPE_DV100_720P, 5 * 288000 - 1, 4, 4},
        {VIDEO_STD_50P, COMP_TYPE_AVCI100_720, 512 + 5 * 284160, 5, 5},
        {VIDEO_STD_59_94I, COMP_TYPE_AVCI50_1080, 512 + 232448, 1, 1},
        {VIDEO_STD_50I, COMP_TYPE_DV100_720P, 1000000, 0, 0},  // no such frames
        {0, COMP_TYPE_DV25, 1000000, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.videoStd << ' ' << row.compType << ' ' << std::dec
                                        << row.size);
        script.calls.clear();
        writer.ResetParam();
        Set(row.videoStd, row.compType);
        writer.settings_.dataSize = row.size;
        EXPECT_EQ(writer.GetDuration(), row.duration);
        uint32_t total = 77;
        writer.GetTotalDuration(&total);
        EXPECT_EQ(total, row.duration);
        writer.UseScript(script);
        EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
        EXPECT_THAT(script.calls, testing::Contains("SetDuration " + std::to_string(row.inHeader)));
        writer.builder_.reset();
    }
}

TEST_F(CreateMXFVideo, PassesTheSettingsToTheBuilderInOrder) {
    writer.UseScript(script);
    writer.SetStartTimecode(90000, false);
    writer.SetCreationDate({2020, 1, 1, 0, 0, 0, 0});
    writer.SetPackageName("name");
    writer.settings_.dataSize = 2 * 144000;
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls,
                ElementsAre("SetStartTimecode 90000", "SetCreationDate 2020", "SetModifiedDate 2020", "SetUMID 1",
                            "SetDuration 2", "SetDataSize 288000", "SetPackageName name", "SetDMS"));
    script.calls.clear();
    writer.SetShotUMID({{2}});
    writer.SetPrevDuration(100);
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls, ElementsAre("SetStartTimecode 90000", "SetCreationDate 2020", "SetModifiedDate 2020",
                                          "SetUMID 1", "ChangeMaterialUMID 2", "SetFillerDuration 100", "SetDuration 2",
                                          "SetDataSize 288000", "SetPackageName name", "SetDMS"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, OnlyDurationAndMetadataCanFail) {
    const struct {
        const char* operation;
        const char* line;
        size_t calls;
    } rows[] = {
        {"SetDuration", "CCreateMXFVideo::SetMXFParam: SetDuration Error.", 7},
        {"SetDMS", "CCreateMXFVideo::SetMXFParam: SetDMS Error.", 10},
    };
    writer.SetPrevDuration(10);
    for (const auto& row : rows) ExpectReported(row.operation, row.line, "CreateMXFVideo", row.calls);
    log.Clear();
    script.calls.clear();
    script.answers.clear();
    for (const char* ignored : {"SetStartTimecode", "SetCreationDate", "SetModifiedDate", "SetUMID",
                                "ChangeMaterialUMID", "SetFillerDuration", "SetDataSize", "SetPackageName"}) {
        script.answers[ignored] = kStatusFailure;
    }
    writer.UseScript(script);
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_EQ(script.calls.size(), 10u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, ParametersNeedABuilder) {
    EXPECT_EQ(writer.SetMXFParam(), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFVideo::SetMXFParam: m_pOpAtomBase is NULL."));
}

TEST_F(CreateMXFVideo, ParametersNeedTheBuilderOfTheType) {
    writer.UseScript<COpAtomPictureAVCI>(script);
    EXPECT_EQ(writer.SetMXFParam(), kStatusFailure);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFVideo::SetMXFParam: Error."));
    EXPECT_THAT(script.calls, testing::Contains("SetDataSize 0"));
    EXPECT_THAT(script.calls, testing::Not(testing::Contains("SetPackageName")));

    log.Clear();
    script.calls.clear();
    writer.SetDVType(COMP_TYPE_AVCI100_1080);
    EXPECT_EQ(writer.SetMXFParam(), kStatusOk);
    EXPECT_THAT(script.calls, testing::Contains("SetPackageName"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, APackageNameThatDoesNotFitIsLeftOut) {
    writer.SetPackageName(std::string(201, 'n'));
    RecordHeader();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, RecordsDVBetweenHeaderAndFooter) {
    stream.SetClusterSize(65536);
    ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(144000, 'a'), 0), 144000);
    const std::vector<uint8_t> open = stream.Bytes();
    ASSERT_EQ(open.size(), 32768u + 144000);
    EXPECT_EQ(HexLine(std::span(open).first(52), 44), "00 00 00 00 00 00 00 00 ");
    EXPECT_EQ(HexLine(std::span(open).first(32768), 32760), "87 00 00 00 00 00 00 00 ");
    EXPECT_EQ(writer.Write(Essence(144000, 'b'), 0), 144000);
    EXPECT_EQ(writer.Close(), kStatusOk);

    const std::vector<uint8_t>& closed = stream.Bytes();
    ASSERT_EQ(closed.size(), 32768u + 288000 + 224);
    EXPECT_EQ(HexLine(closed, 0), "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00 ");
    EXPECT_EQ(HexLine(std::span(closed).first(52), 44), "00 00 00 00 00 04 E5 00 ");  // 320768
    EXPECT_EQ(HexLine(closed, 32744), "06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01 ");
    EXPECT_EQ(HexLine(std::span(closed).first(32768), 32760), "87 00 00 00 00 04 65 00 ");  // 288000
    EXPECT_EQ(Runs(std::span(closed).subspan(32768, 288000)), "a*144000 b*144000");
    EXPECT_EQ(HexLine(closed, 320768), "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00 ");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, RecordsAVCIntraWithItsParameterSets) {
    stream.SetClusterSize(65536);
    Set(VIDEO_STD_59_94P, COMP_TYPE_AVCI100_720);
    ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(236032, 'a'), 0), 236032);
    EXPECT_EQ(TotalDataSize(), 236544);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const std::vector<uint8_t>& closed = stream.Bytes();
    ASSERT_EQ(closed.size(), 32768u + 236544 + 324);
    EXPECT_EQ(HexLine(std::span(closed).first(52), 44), "00 00 00 00 00 04 1C 00 ");        // 269312
    EXPECT_EQ(HexLine(std::span(closed).first(32768), 32760), "87 00 00 00 00 03 9C 00 ");  // 236544
    EXPECT_EQ(HexLine(closed, 32744), "06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 06 01 ");
    // profile 122, constraint_set3_flag, level 4.2; picture parameter set
    EXPECT_EQ(HexLine(closed, 32768).substr(0, 42), "00 00 00 01 09 10 00 00 00 01 67 7A 10 2A ");
    EXPECT_EQ(HexLine(closed, 32768 + 256).substr(0, 27), "00 00 00 01 68 CE 31 12 11 ");
    EXPECT_EQ(Runs(std::span(closed).subspan(33280, 236032)), "a*236032");
    EXPECT_EQ(HexLine(closed, 269312), "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00 ");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, TheFinalHeaderAndFooterHaveEverySetting) {
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(12);
    std::vector<uint8_t> expectedOpen, expectedHeader, expectedFooter;
    {
        const FixedEnvironment environment;
        COpAtomPictureCDCI builder(VIDEO_STD_59_94I, COMP_TYPE_DV25, 0x204, 1, 48000, true, true, 0);
        ASSERT_EQ(builder.Initialize(), kStatusOk);
        builder.SetDataSize(0);
        builder.MarkOpen();
        expectedOpen = HeaderOf(builder);
        SetSpanned(builder, {2020, 1, 1, 0, 0, 0, 0}, 2, 240000, metadata);
        builder.SetWide(true);
        expectedFooter = FooterOf(builder);
        builder.SetIdentification("Kestralin", "Jq", "2.0", kProductUID);
        expectedHeader = HeaderOf(builder);
    }
    const FixedEnvironment environment;
    Set(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    writer.SetClipType(0x204);
    writer.SetChannel(1);
    writer.SetConsumerDV(true);
    writer.SetWide(true);
    SetSpanned();
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(240000), 0), 240000);
    EXPECT_TRUE(SameBytes(expectedOpen, std::span(stream.Bytes()).first(32768)));
    writer.SetCreationDate({2020, 1, 1, 0, 0, 0, 0});
    writer.SetPackageName("take");
    writer.SetDescriptiveMetadata(metadata);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_TRUE(SameBytes(expectedHeader, std::span(stream.Bytes()).first(32768)));
    EXPECT_TRUE(SameBytes(expectedFooter, std::span(stream.Bytes()).subspan(32768 + 240000)));
}

TEST_F(CreateMXFVideo, RenderModeHasTheFinalHeaderFromTheStart) {
    std::vector<uint8_t> expected;
    {
        const FixedEnvironment environment;
        COpAtomPictureAVCI builder(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080, 0x100, 0, 48000, false);
        ASSERT_EQ(builder.Initialize(), kStatusOk);
        SetPlain(builder, 1, 281088);
        builder.SetIdentification("Kestralin", "Jq", "2.0", kProductUID);
        expected = HeaderOf(builder);
    }
    const FixedEnvironment environment;
    Set(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080);
    writer.SetRenderingDataSize(280576);
    writer.Open(&stream, false);
    EXPECT_EQ(writer.Write(Essence(280576), 0), 280576);
    EXPECT_TRUE(SameBytes(expected, std::span(stream.Bytes()).first(32768)));
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_TRUE(SameBytes(expected, std::span(stream.Bytes()).first(32768)));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFVideo, RenderingDataSizeBeforeTheTypeIsTooLarge) {
    TestVideo fresh;  // its default type counts as AVC-Intra
    fresh.SetVideoStandard(VIDEO_STD_50I);
    fresh.SetRenderingDataSize(144000);
    fresh.SetDVType(COMP_TYPE_DV25);
    fresh.Open(&stream, false);
    EXPECT_EQ(fresh.Write(Essence(144000), 0), 144000);
    EXPECT_EQ(fresh.Close(), kStatusFailure);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Close: Different DataSize."));
}

TEST_F(CreateMXFVideo, MoreHeaderMetadataThanFitsIsRefusedBeforeAnythingIsWritten) {
    writer.SetClipType(0x1FF);  // 255 sound tracks
    ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(144000), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: GetHeaderData Error."));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_FALSE(writer.IsOpened());
}

TEST_F(CreateMXFVideo, MetadataThatFillsTheHeaderOnlyAtCloseIsRefusedAtTheFirstWrite) {
    // The tracks alone would fit; with the metadata groups, which come into the header at close, they do not.
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(1);
    metadata.SetSceneNumber("7");
    writer.SetClipType(0x100 | 78);
    writer.SetDescriptiveMetadata(metadata);
    ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(144000), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: GetHeaderData Error."));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFVideo, MetadataThatLeavesARestNoFillItemCanTakeIsRefusedAtTheFirstWrite) {
    // Behind 76 tracks of sound and a clip group 18 bytes of the header are left; a fill item has 20 at least.
    Set(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080);
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(1);
    writer.SetClipType(0x100 | 76);
    writer.SetDescriptiveMetadata(metadata);
    ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(472064), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: GetHeaderData Error."));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFVideo, ANewRecordingAfterAFailureIsGood) {
    for (int n = 1; n <= 12; ++n) {
        SCOPED_TRACE(n);
        FaultyStream bad;
        bad.FailNthOfAll(n);
        Set(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080);
        writer.Open(&bad, true);
        if (writer.IsOpened() && writer.Write(Essence(1000), 0) > 0) writer.Close();
        EXPECT_FALSE(writer.IsOpened());
        ExpectNothingHeld(bad);
        writer.ResetParam();
        Set(VIDEO_STD_50I, COMP_TYPE_DV25);
        RecordHeader();
    }
}

TEST_F(CreateMXFVideo, ALostRecordingKeepsItsOpenHeader) {
    {
        TestVideo other;
        other.SetVideoStandard(VIDEO_STD_50I);
        other.SetDVType(COMP_TYPE_DV25);
        other.Open(&stream, true);
        other.Write(Essence(144000), 0);
    }
    EXPECT_FALSE(stream.IsOpened());
    ASSERT_EQ(stream.Bytes().size(), 32768u + 144000);
    EXPECT_EQ(HexLine(std::span(stream.Bytes()).first(52), 44), "00 00 00 00 00 00 00 00 ");
}

}  // namespace
}  // namespace kmxf::test
