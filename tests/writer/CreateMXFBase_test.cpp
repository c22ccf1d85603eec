#include "kmxf/writer/CreateMXFBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "WriterDoubles.h"
#include "kmxf/core/VideoStandard.h"
#include "support/FaultyStream.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

// The writer with a scripted builder, and a compression type that needs no parameter set header.
class TestWriter final : public CCreateMXFBase {
public:
    TestWriter() { settings_.compType = COMP_TYPE_DV25; }
    ~TestWriter() override { FileClose(); }

    int32_t Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) override {
        if (!IsOpened() && withBuilder_) {
            builder_ = std::make_unique<ScriptedBuilder<COpAtomBase>>(script_, 0u, 0u, 48000u, false);
        }
        return CCreateMXFBase::Open(stream, rewriteHeaderAtClose);
    }
    int32_t SetMXFParam() override { return script_.Answer("SetMXFParam", std::to_string(settings_.dataSize)); }
    uint32_t GetDuration() override { return 7; }

    using CCreateMXFBase::FileClose;
    using CCreateMXFBase::hasPicture_;
    using CCreateMXFBase::settings_;
    using CCreateMXFBase::WriteOwnPiece;
    using CCreateMXFBase::WriteStreamPiece;

    Script script_;
    bool withBuilder_ = true;
};

class CreateMXFBase : public testing::Test {
protected:
    void OpenForAVCIntra(bool rewrite = true) {
        writer.settings_.compType = COMP_TYPE_AVCI100_1080;
        writer.settings_.videoStd = VIDEO_STD_50I;
        ASSERT_EQ(writer.Open(&stream, rewrite), kStatusOk);
    }
    // Closed, nothing left behind, all settings at their defaults.
    void ExpectGivenUp() {
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_FALSE(stream.IsOpened());
        EXPECT_EQ(stream.LivePieces(), 0);
        EXPECT_EQ(stream.LiveAllocators(), 0);
        EXPECT_EQ(writer.script_.built, writer.script_.destroyed);
        EXPECT_EQ(writer.settings_.compType, 0x1FFFFu);
        EXPECT_EQ(writer.settings_.dataSize, 0);
    }

    LogRecorder log;
    FaultyStream stream;
    TestWriter writer;
};

// --- settings ---

TEST_F(CreateMXFBase, DefaultsAreThoseOfResetParam) {
    writer.SetVideoStandard(VIDEO_STD_50I);
    writer.SetClipType(0x101);
    writer.SetChannel(3);
    writer.SetSamplesPerSec(96000);
    writer.SetUMID({{1}});
    writer.SetShotUMID({{2}});
    writer.SetPrevDuration(5);
    writer.SetStartTimecode(90000, true);
    writer.SetCreationDate({2020, 1, 2, 3, 4, 5, 6});
    writer.SetPackageName("name");
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(4);
    writer.SetDescriptiveMetadata(metadata);
    const uint8_t uid[16] = {9};
    writer.SetIdentification("c", "p", "v", uid);
    writer.SetRenderingDataSize(1000);
    writer.settings_.rewriteHeader = false;
    writer.settings_.dataSize = 8;
    writer.settings_.duration = 9;
    EXPECT_EQ(writer.settings_.prevDuration, 5);
    EXPECT_EQ(writer.settings_.metadata.GetTakeNumber(), 4);

    writer.ResetParam();
    EXPECT_EQ(writer.settings_.videoStd, 0u);
    EXPECT_EQ(writer.settings_.compType, 0x1FFFFu);
    EXPECT_EQ(writer.settings_.clipType, 0u);
    EXPECT_EQ(writer.settings_.channel, 0u);
    EXPECT_EQ(writer.settings_.samplesPerSec, 48000u);
    EXPECT_EQ(writer.settings_.umid, MXFUMIDTag());
    EXPECT_EQ(writer.settings_.shotUMID, MXFUMIDTag());
    EXPECT_EQ(writer.settings_.prevDuration, 0);
    EXPECT_FALSE(writer.IsSpanned());
    EXPECT_EQ(writer.settings_.startTimecode, 0);
    EXPECT_FALSE(writer.settings_.startDrop);
    EXPECT_EQ(writer.settings_.creationDate, MXFTIMESTAMPTag());
    EXPECT_EQ(writer.settings_.packageName, "");
    EXPECT_EQ(writer.settings_.metadata.GetTakeNumber(), 0);
    EXPECT_FALSE(writer.settings_.metadata.IsSetStaticMetadata());
    EXPECT_EQ(writer.settings_.company, "Kestralin");
    EXPECT_EQ(writer.settings_.product, "Jq");
    EXPECT_EQ(writer.settings_.version, "2.0");
    EXPECT_THAT(writer.settings_.productUID.bytes,
                testing::ElementsAreArray(Hex("06 0E 2B 34 04 01 01 08 0E 0E 01 01 01 00 00 01")));
    EXPECT_TRUE(writer.settings_.rewriteHeader);
    EXPECT_EQ(writer.settings_.renderingDataSize, 0);
    EXPECT_EQ(writer.settings_.dataSize, 0);
    EXPECT_EQ(writer.settings_.duration, 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, SettersStoreAnyCodeAndReturn0) {
    EXPECT_EQ(writer.SetVideoStandard(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetChannel(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetUMID({{1}}), kStatusOk);
    EXPECT_EQ(writer.SetShotUMID({{2}}), kStatusOk);
    EXPECT_EQ(writer.SetCreationDate({2020, 13, 32, 25, 61, 61, 0}), kStatusOk);
    EXPECT_EQ(writer.SetPackageName(std::string(1000, 'x')), kStatusOk);
    EXPECT_EQ(writer.SetDescriptiveMetadata({}), kStatusOk);
    EXPECT_EQ(writer.settings_.videoStd, 0xFFFFFFFFu);
    EXPECT_EQ(writer.settings_.clipType, 0xFFFFFFFFu);
    EXPECT_EQ(writer.settings_.channel, 0xFFFFFFFFu);
    EXPECT_EQ(writer.settings_.umid.bytes[0], 1);
    EXPECT_EQ(writer.settings_.shotUMID.bytes[0], 2);
    EXPECT_EQ(writer.settings_.creationDate.month, 13);
    EXPECT_EQ(writer.settings_.packageName.size(), 1000u);
}

TEST_F(CreateMXFBase, SamplesPerSecOtherThan48000And96000Stores48000) {
    for (const auto& [given, stored] : {std::pair{96000u, 96000u}, {44100u, 48000u}, {0u, 48000u}, {48000u, 48000u}}) {
        writer.SetSamplesPerSec(96000);
        EXPECT_EQ(writer.SetSamplesPerSec(given), kStatusOk);
        EXPECT_EQ(writer.settings_.samplesPerSec, stored) << given;
    }
}

TEST_F(CreateMXFBase, PrevDurationOtherThan0IsSpanned) {
    EXPECT_FALSE(writer.IsSpanned());
    EXPECT_EQ(writer.SetPrevDuration(1), kStatusOk);
    EXPECT_TRUE(writer.IsSpanned());
    EXPECT_EQ(writer.SetPrevDuration(0), kStatusOk);
    EXPECT_FALSE(writer.IsSpanned());
    EXPECT_EQ(writer.SetPrevDuration(-1), kStatusOk);
    EXPECT_TRUE(writer.IsSpanned());
}

TEST_F(CreateMXFBase, StartTimecodeComesAsFramesOrAsTimecode) {
    EXPECT_EQ(writer.SetStartTimecode(int64_t{1} << 40, true), kStatusOk);
    EXPECT_EQ(writer.settings_.startTimecode, int64_t{1} << 40);
    EXPECT_TRUE(writer.settings_.startDrop);
    EXPECT_EQ(writer.SetStartTimecode(CTimecode(17982, false)), kStatusOk);
    EXPECT_EQ(writer.settings_.startTimecode, 17982);
    EXPECT_FALSE(writer.settings_.startDrop);
    EXPECT_EQ(writer.SetStartTimecode(CTimecode(1800, true)), kStatusOk);
    EXPECT_EQ(writer.settings_.startTimecode, 1800);
    EXPECT_TRUE(writer.settings_.startDrop);
}

TEST_F(CreateMXFBase, FileNameHasUpTo255BytesAndOutlivesResetParam) {
    const std::string longest(255, 'n');
    EXPECT_EQ(writer.SetFilename(longest.c_str()), kStatusOk);
    EXPECT_EQ(writer.SetFilename(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetFilename(std::string(256, 'x').c_str()), kStatusInvalidArgument);
    writer.ResetParam();
    writer.Open(&stream, true);
    EXPECT_EQ(stream.Calls().front(), "Open " + longest + " 0x102");
}

TEST_F(CreateMXFBase, IdentificationOutOfRangeIsRefusedWhole) {
    const uint8_t uid[16] = {9};
    const std::string s16(16, 's'), s17(17, 's');
    EXPECT_EQ(writer.SetIdentification("", "p", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification(s17, "p", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", s17, "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "12345", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "v", nullptr), kStatusInvalidArgument);
    EXPECT_EQ(writer.settings_.company, "Kestralin");
    EXPECT_EQ(writer.settings_.product, "Jq");
    EXPECT_EQ(writer.settings_.version, "2.0");
    EXPECT_EQ(writer.settings_.productUID.bytes[0], 0x06);

    EXPECT_EQ(writer.SetIdentification(s16, s16, "1234", uid), kStatusOk);
    EXPECT_EQ(writer.settings_.company, s16);
    EXPECT_EQ(writer.settings_.product, s16);
    EXPECT_EQ(writer.settings_.version, "1234");
    EXPECT_EQ(writer.settings_.productUID, MXFKEYTag{{9}});
    EXPECT_EQ(writer.SetIdentification("c", "p", "v", uid), kStatusOk);
    EXPECT_EQ(writer.settings_.company, "c");
}

TEST_F(CreateMXFBase, RenderingDataSizeAdds512ByTheTypeOfTheMoment) {
    EXPECT_EQ(writer.SetRenderingDataSize(1000), kStatusOk);
    EXPECT_EQ(writer.settings_.renderingDataSize, 1000);
    for (const uint32_t type : {COMP_TYPE_AVCI100_1080, COMP_TYPE_LONGG6_720, 0x1FFFFu, 0xC000u}) {
        writer.settings_.compType = type;
        EXPECT_EQ(writer.SetRenderingDataSize(1000), kStatusOk);
        EXPECT_EQ(writer.settings_.renderingDataSize, 1512) << std::hex << type;
    }
    for (const uint32_t type : {COMP_TYPE_DV100_1080I, 0x8000u, 0x4000u, 0u}) {
        writer.settings_.compType = type;
        EXPECT_EQ(writer.SetRenderingDataSize(1000), kStatusOk);
        EXPECT_EQ(writer.settings_.renderingDataSize, 1000) << std::hex << type;
    }
}

TEST_F(CreateMXFBase, WriteRetryIsAcceptedAndNeverUsed) {
    struct Status final : IMXFStatus {
        void NotifyStatus(int32_t) override { ADD_FAILURE() << "called"; }
    } status;
    EXPECT_EQ(writer.SetWriteRetry(&status), kStatusOk);
    EXPECT_EQ(writer.SetWriteRetry(nullptr), kStatusOk);
    stream.FailNth(Op::kWrite, 2, Fault::kShort);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), -1);
    EXPECT_EQ(stream.Count(Op::kWrite), 2);
}

TEST_F(CreateMXFBase, QueriesStoreTheirValueAndIgnoreNull) {
    writer.settings_.dataSize = 70000;
    int64_t size = 0;
    uint32_t duration = 0, offset = 0;
    EXPECT_EQ(writer.GetTotalDataSize(&size), kStatusOk);
    EXPECT_EQ(writer.GetTotalDuration(&duration), kStatusOk);
    EXPECT_EQ(writer.GetDataOffset(&offset), kStatusOk);
    EXPECT_EQ(size, 70000);
    EXPECT_EQ(duration, 7u);
    EXPECT_EQ(offset, 32768u);
    EXPECT_EQ(writer.GetReadBackSize(), 4464u);
    writer.settings_.dataSize = 40000;
    EXPECT_EQ(writer.GetReadBackSize(), 7232u);
    EXPECT_EQ(writer.GetTotalDataSize(nullptr), kStatusOk);
    EXPECT_EQ(writer.GetTotalDuration(nullptr), kStatusOk);
    EXPECT_EQ(writer.GetDataOffset(nullptr), kStatusOk);
    EXPECT_EQ(writer.CCreateMXFBase::GetDuration(), 0u);
    EXPECT_EQ(writer.GetOpenFlag(), 0x102u);
}

// --- Open ---

TEST_F(CreateMXFBase, OpenOpensTheStreamAndRegistersItself) {
    const FixedEnvironment environment;
    writer.SetFilename("a.mxf");
    writer.settings_.dataSize = 5;
    EXPECT_EQ(writer.Open(&stream, false), kStatusOk);
    EXPECT_EQ(writer.settings_.dataSize, 0);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(stream.Calls(), ElementsAre("Open a.mxf 0x102", "RegisterCallback"));
    EXPECT_NE(stream.Callback(), nullptr);
    EXPECT_FALSE(writer.settings_.rewriteHeader);
    EXPECT_EQ(writer.settings_.creationDate, (MXFTIMESTAMPTag{2026, 1, 2, 3, 4, 5, 0}));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, OpenReplacesACreationDateSetBefore) {
    const FixedEnvironment environment;
    writer.SetCreationDate({1999, 1, 1, 0, 0, 0, 0});
    writer.Open(&stream, true);
    EXPECT_EQ(writer.settings_.creationDate.year, 2026);
    writer.SetCreationDate({1999, 1, 1, 0, 0, 0, 0});
    EXPECT_EQ(writer.settings_.creationDate.year, 1999);
}

TEST_F(CreateMXFBase, OpenRefusesANullStreamWithoutLogOrReset) {
    writer.settings_.dataSize = 5;
    EXPECT_EQ(writer.Open(nullptr, true), kStatusInvalidArgument);
    EXPECT_EQ(writer.settings_.dataSize, 5);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, OpenOfAnOpenedWriterDoesNothing) {
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    const int calls = stream.CountOfAll();
    FaultyStream other;
    EXPECT_EQ(writer.Open(&other, false), kStatusOk);
    EXPECT_EQ(writer.Open(nullptr, false), kStatusInvalidArgument);
    EXPECT_EQ(other.CountOfAll(), 0);
    EXPECT_EQ(stream.CountOfAll(), calls);
    EXPECT_EQ(writer.settings_.dataSize, 10);
    EXPECT_TRUE(writer.settings_.rewriteHeader);
    EXPECT_EQ(writer.script_.built, 1);
    EXPECT_TRUE(writer.IsOpened());
}

TEST_F(CreateMXFBase, OpenFailsWhenTheStreamCannotBeOpened) {
    stream.FailAll(Op::kOpen);
    EXPECT_EQ(writer.Open(&stream, true), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: Open Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 0);
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, OpenFailsWhenTheCallbackCannotBeRegistered) {
    stream.FailAll(Op::kRegisterCallback);
    EXPECT_EQ(writer.Open(&stream, true), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: RegisterCallback Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 1);
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, LogRecordsNameTheSourceFileAndAreErrors) {
    writer.Write(Essence(1), 0);
    const auto records = log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].module, "");
    EXPECT_EQ(records[0].function, "CCreateMXFBase::Write");
    EXPECT_EQ(records[0].sourceFile, "CreateMXFBase");
    EXPECT_EQ(records[0].level, kLogError);
    EXPECT_GT(records[0].line, 0);
    EXPECT_EQ(records[0].message, "Not Open.");
}

// --- layout of a recording ---

TEST_F(CreateMXFBase, RecordsHeaderEssenceAndFooterAndRewritesTheHeader) {
    stream.SetClusterSize(512);
    EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(1000, 'a'), 0), 1000);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 a*1000");
    EXPECT_EQ(stream.LivePieces(), 0);  // the header's piece went back with its completion
    EXPECT_EQ(stream.LiveAllocators(), 0);
    EXPECT_EQ(writer.Write(Essence(500, 'b'), 99), 500);
    int64_t size = 0;
    writer.GetTotalDataSize(&size);
    EXPECT_EQ(size, 1500);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "h*32768 a*1000 b*500 F*224");
    EXPECT_THAT(writer.script_.calls,
                ElementsAre("SetDataSize 0", "GetHeaderData", "SetMXFParam 1500", "GetFooterData", "GetHeaderData"));
    EXPECT_THAT(stream.Calls(),
                ElementsAre("Open  0x102", "RegisterCallback", "GetPieceAllocator", "Allocate 32768",
                            "Write 32768 tag 1", "GetPieceAllocator", "Write 1000 tag 0", "Write 500 tag 0",
                            "GetPieceAllocator", "Allocate 224", "Write 224 tag 2", "GetPieceAllocator", "Seek 0 0",
                            "Allocate 32768", "Seek 0 0", "Write 32768 tag 1", "GetPieceAllocator", "Close"));
    ExpectGivenUp();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, PutsTheParameterSetHeaderInFrontOfAVCIntra) {
    OpenForAVCIntra();
    EXPECT_EQ(writer.Write(Essence(1000, 'a'), 0), 1000);
    const auto& bytes = stream.Bytes();
    ASSERT_EQ(bytes.size(), 32768u + 512 + 1000);
    EXPECT_EQ(Runs(std::span(bytes).first(32768)), "H*32768");
    // access unit delimiter, sequence parameter set of profile 122; picture parameter set at 256
    EXPECT_EQ(HexLine(bytes, 32768).substr(0, 35), "00 00 00 01 09 10 00 00 00 01 67 7A");
    EXPECT_EQ(HexLine(bytes, 32768 + 256).substr(0, 26), "00 00 00 01 68 CE 33 48 D0");
    EXPECT_EQ(Runs(std::span(bytes).subspan(33280)), "a*1000");
    int64_t size = 0;
    writer.GetTotalDataSize(&size);
    EXPECT_EQ(size, 1512);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(stream.Bytes().size(), 32768u + 512 + 1000 + 224);
}

TEST_F(CreateMXFBase, AFileWithoutPictureNeverGetsAParameterSetHeader) {
    writer.settings_.compType = 0x1FFFF;  // has the bits of the AVC family
    writer.hasPicture_ = false;
    writer.SetRenderingDataSize(10);
    EXPECT_EQ(writer.settings_.renderingDataSize, 10);
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10");
}

TEST_F(CreateMXFBase, CloseRightAfterOpenWritesNothing) {
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open  0x102", "RegisterCallback", "Close"));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, CloseOfAClosedWriterKeepsItsSettings) {
    writer.SetChannel(3);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.settings_.channel, 3u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, AnEmptyPieceWritesTheHeaderOnce) {
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(0), 0), 0);
    EXPECT_EQ(writer.Write(Essence(10), 0), 10);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10");
}

TEST_F(CreateMXFBase, CloseAfterEmptyPiecesOnlyWritesNoFooter) {
    writer.Open(&stream, true);
    writer.Write(Essence(0), 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768");
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, AFileThatIsNotClosedKeepsItsFirstHeader) {
    {
        TestWriter other;
        other.Open(&stream, true);
        other.Write(Essence(10), 0);
    }
    EXPECT_FALSE(stream.IsOpened());
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10");
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFBase, TheBaseClosesWhatAConcreteClassLeftOpen) {
    class Careless final : public CCreateMXFBase {
    public:
        int32_t SetMXFParam() override { return kStatusOk; }
    };
    Careless().Open(&stream, true);
    EXPECT_FALSE(stream.IsOpened());
}

// --- header known in advance ---

TEST_F(CreateMXFBase, RenderModeWritesTheFinalHeaderFirst) {
    writer.SetRenderingDataSize(1500);
    EXPECT_EQ(writer.Open(&stream, false), kStatusOk);
    EXPECT_EQ(writer.Write(Essence(1000, 'a'), 0), 1000);
    EXPECT_EQ(writer.Write(Essence(500, 'b'), 0), 500);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 a*1000 b*500 F*224");
    EXPECT_THAT(writer.script_.calls,
                ElementsAre("SetMXFParam 1500", "GetHeaderData", "SetMXFParam 1500", "GetFooterData"));
    EXPECT_EQ(stream.Count(Op::kSeek), 0);
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, RenderModeCountsTheParameterSetHeader) {
    writer.settings_.compType = COMP_TYPE_AVCI100_1080;
    writer.SetRenderingDataSize(1000);
    OpenForAVCIntra(false);
    EXPECT_EQ(writer.Write(Essence(1000), 0), 1000);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(writer.script_.calls,
                ElementsAre("SetMXFParam 1512", "GetHeaderData", "SetMXFParam 1512", "GetFooterData"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, RenderModeWithAnotherSizeFailsBehindTheFooter) {
    for (const int64_t said : {999, 1001, 0}) {
        SCOPED_TRACE(said);
        log.Clear();
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.SetRenderingDataSize(said);
        writer.Open(&stream, false);
        EXPECT_EQ(writer.Write(Essence(1000), 0), 1000);
        EXPECT_EQ(writer.Close(), kStatusFailure);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Close: Different DataSize."));
        EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*1000 F*224");
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, RenderModeWithParametersThatFailWritesNothing) {
    writer.script_.answers["SetMXFParam"] = kStatusInvalidArgument;
    writer.SetRenderingDataSize(1000);
    writer.Open(&stream, false);
    EXPECT_EQ(writer.Write(Essence(1000), 0), -1);
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());  // the failing step has its own record
    ExpectGivenUp();
}

// --- arguments and state ---

TEST_F(CreateMXFBase, OperationsOfAClosedWriterResetAndLog) {
    const auto expectReset = [&](const char* line) {
        EXPECT_THAT(log.Lines(), ElementsAre(line));
        EXPECT_EQ(writer.settings_.channel, 0u);
        log.Clear();
        writer.SetChannel(3);
    };
    CompletionCollector client;
    Essence piece(10);
    writer.SetChannel(3);
    EXPECT_EQ(writer.Write(piece, 0), -1);
    expectReset("CCreateMXFBase::Write: Not Open.");
    EXPECT_EQ(writer.Write(nullptr, 0), -1);
    expectReset("CCreateMXFBase::Write: Not Open.");
    EXPECT_EQ(writer.Read(piece), -1);
    expectReset("CCreateMXFBase::Read: Not Open.");
    EXPECT_EQ(writer.Read(nullptr), -1);
    expectReset("CCreateMXFBase::Read: Not Open.");
    EXPECT_EQ(writer.ReadBack(piece), -1);
    expectReset("CCreateMXFBase::ReadBack: Not Open.");
    EXPECT_EQ(writer.ReadBack(nullptr), -1);
    expectReset("CCreateMXFBase::ReadBack: Not Open.");
    EXPECT_EQ(writer.DataSync(), kStatusWrongState);
    expectReset("CCreateMXFBase::DataSync: Not Open.");
    EXPECT_EQ(writer.RegisterCallback(&client), kStatusWrongState);
    expectReset("CCreateMXFBase::RegisterCallback: Not Open.");
    EXPECT_EQ(writer.RegisterCallback(nullptr), kStatusWrongState);
    expectReset("CCreateMXFBase::RegisterCallback: Not Open.");
}

TEST_F(CreateMXFBase, NullArgumentsCloseTheFile) {
    const struct {
        const char* line;
        int32_t result;
        std::function<int32_t()> call;
    } rows[] = {
        {"CCreateMXFBase::Write: Invalid argument.", -1, [&] { return writer.Write(nullptr, 0); }},
        {"CCreateMXFBase::Read: Invalid argument.", -1, [&] { return writer.Read(nullptr); }},
        {"CCreateMXFBase::ReadBack: Invalid argument.", -1, [&] { return writer.ReadBack(nullptr); }},
        {"CCreateMXFBase::RegisterCallback: Invalid argument.", kStatusInvalidArgument,
         [&] { return writer.RegisterCallback(nullptr); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        log.Clear();
        ASSERT_EQ(writer.Open(&stream, true), kStatusOk);
        EXPECT_EQ(row.call(), row.result);
        EXPECT_THAT(log.Lines(), ElementsAre(row.line));
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, WriteWithoutABuilderFails) {
    writer.withBuilder_ = false;
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: m_pOpAtomBase is NULL."));
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, WriteStreamPieceNeedsPieceAndStream) {
    Essence piece(10);
    EXPECT_EQ(writer.WriteStreamPiece(piece, 0), -1);
    EXPECT_EQ(writer.WriteOwnPiece(nullptr, 1), -1);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.WriteStreamPiece(nullptr, 0), -1);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(writer.WriteStreamPiece(piece, 0), 10);
}

TEST_F(CreateMXFBase, FailingBuilderEndsTheRecording) {
    const struct {
        const char* operation;
        const char* line;
        int32_t status;
        int writes;  // that the client gets through
    } rows[] = {
        {"GetHeaderData", "CCreateMXFBase::Write: GetHeaderData Error.", kStatusNoMemory, 0},
        {"SetMXFParam", "CCreateMXFBase::Close: SetMXFParam Error.", kStatusInvalidArgument, 1},
        {"GetFooterData", "CCreateMXFBase::Close: GetFooterData Error.", kStatusFailure, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operation);
        log.Clear();
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.script_.answers = {{row.operation, row.status}};
        writer.Open(&stream, true);
        EXPECT_EQ(writer.Write(Essence(10), 0), row.writes == 0 ? -1 : 10);
        if (row.writes > 0) {
            EXPECT_EQ(writer.Close(), row.status);
        }
        EXPECT_THAT(log.Lines(), ElementsAre(row.line));
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, FinalHeaderThatFailsLeavesTheFooter) {
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    writer.script_.answers["GetHeaderData"] = kStatusNoMemory;
    EXPECT_EQ(writer.Close(), kStatusNoMemory);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Close: GetHeaderData Error."));
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*10 F*224");
    ExpectGivenUp();
}

// --- Read, ReadBack, DataSync ---

TEST_F(CreateMXFBase, ReadReadsFromTheCurrentPosition) {
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);
    stream.Seek(32768 + 4, kSeekBegin);
    Essence piece(100, 0);
    EXPECT_EQ(writer.Read(piece), 6);
    EXPECT_EQ(Runs(piece.Bytes().first(6)), "e*6");
    EXPECT_EQ(writer.Read(piece), -1);  // the end of the file is a failure
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Read: Read Error."));
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, ReadBackOfWholeUnitsReadsNothing) {
    writer.Open(&stream, true);
    Essence piece(10);
    EXPECT_EQ(writer.ReadBack(piece), 0);
    writer.Write(Essence(65536), 0);
    EXPECT_EQ(writer.GetReadBackSize(), 0u);
    EXPECT_EQ(writer.ReadBack(piece), 0);
    EXPECT_EQ(stream.Count(Op::kRead), 0);
    EXPECT_EQ(stream.Count(Op::kSeek), 0);
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, ReadBackGivesTheIncompleteUnitBackAndMovesThePosition) {
    writer.Open(&stream, true);
    writer.Write(Essence(65536, 'a'), 0);
    writer.Write(Essence(4464, 'b'), 0);
    EXPECT_EQ(writer.GetReadBackSize(), 4464u);
    Essence piece(4464, 0);
    EXPECT_EQ(writer.ReadBack(piece), 4464);
    EXPECT_EQ(Runs(piece.Bytes()), "b*4464");
    EXPECT_EQ(writer.settings_.dataSize, 65536);
    EXPECT_EQ(stream.Position(), 32768 + 65536);
    EXPECT_EQ(writer.Write(Essence(32768, 'c'), 0), 32768);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 a*65536 c*32768");
    EXPECT_EQ(writer.settings_.dataSize, 98304);
}

TEST_F(CreateMXFBase, ReadBackOfTheFirstUnitDoesNotBringASecondHeader) {
    OpenForAVCIntra();
    writer.Write(Essence(100, 'a'), 0);
    Essence piece(612, 0);
    EXPECT_EQ(writer.ReadBack(piece), 612);  // the parameter set header too
    EXPECT_EQ(writer.settings_.dataSize, 0);
    EXPECT_EQ(stream.Position(), 32768);
    EXPECT_EQ(writer.Write(Essence(700, 'b'), 0), 700);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 b*700");
    EXPECT_EQ(writer.settings_.dataSize, 700);
}

TEST_F(CreateMXFBase, ReadBackNeedsAPieceOfTheExactSize) {
    for (const uint32_t size : {4463u, 4465u, 32768u}) {
        log.Clear();
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.Open(&stream, true);
        writer.Write(Essence(70000), 0);
        EXPECT_EQ(writer.ReadBack(Essence(size)), -1);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::ReadBack: ReadBack Error."));
        EXPECT_EQ(stream.Count(Op::kRead), 0);
        ExpectGivenUp();
    }
}

TEST_F(CreateMXFBase, ReadBackReturnsWhatAShortReadGave) {
    stream.FailNth(Op::kRead, 1, Fault::kShort);
    stream.FailNth(Op::kRead, 2, Fault::kEndOfFile);
    writer.Open(&stream, true);
    writer.Write(Essence(100), 0);
    EXPECT_EQ(writer.ReadBack(Essence(100)), 99);
    EXPECT_EQ(writer.settings_.dataSize, 0);
    writer.Write(Essence(100), 0);
    EXPECT_EQ(writer.ReadBack(Essence(100)), 0);
    EXPECT_TRUE(writer.IsOpened());
}

TEST_F(CreateMXFBase, DataSyncSyncsTheStream) {
    writer.Open(&stream, true);
    EXPECT_EQ(writer.DataSync(), kStatusOk);
    EXPECT_EQ(stream.Count(Op::kDataSync), 1);
}

// --- rewriting the header in the medium's units ---

TEST_F(CreateMXFBase, TheRewrittenUnitIsTheCluster) {
    stream.SetClusterSize(65536);
    writer.Open(&stream, true);
    writer.Write(Essence(40000), 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Runs(stream.Bytes()), "h*32768 e*40000 F*224");
    const auto calls = stream.Calls();
    ASSERT_GE(calls.size(), 7u);
    EXPECT_THAT(std::vector(calls.end() - 7, calls.end()),
                ElementsAre("Seek 0 0", "Allocate 65536", "Read 65536", "Seek 0 0", "Write 65536 tag 1",
                            "GetPieceAllocator", "Close"));
}

TEST_F(CreateMXFBase, TheRewrittenUnitEndsWithTheEssence) {
    for (const uint32_t cluster : {65536u, 0xFFFFFFFFu}) {
        FaultyStream file;
        file.SetClusterSize(cluster);
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.Open(&file, true);
        writer.Write(Essence(1000), 0);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*1000 F*224");
        EXPECT_THAT(file.Calls(), testing::Contains("Read 33768"));
        EXPECT_THAT(file.Calls(), testing::Contains("Write 33768 tag 1"));
    }
}

TEST_F(CreateMXFBase, AClusterNoLargerThanTheHeaderLeavesItAlone) {
    for (const uint32_t cluster : {0u, 1u, 4096u, 32768u}) {
        FaultyStream file;
        file.SetClusterSize(cluster);
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.Open(&file, true);
        writer.Write(Essence(100000), 0);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*100000 F*224");
        EXPECT_EQ(file.Count(Op::kRead), 0);
    }
}

TEST_F(CreateMXFBase, AFirstUnitNotReadWholeIsReadAgainAfterASync) {
    for (const Fault fault : {Fault::kFail, Fault::kEndOfFile, Fault::kShort}) {
        FaultyStream file;
        file.SetClusterSize(65536);
        file.FailNth(Op::kRead, 1, fault);
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.Open(&file, true);
        writer.Write(Essence(1000), 0);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*1000 F*224");
        const auto calls = file.Calls();
        EXPECT_THAT(std::vector(calls.end() - 8, calls.end()),
                    ElementsAre("Read 33768", "DataSync", "Seek 0 0", "Read 33768", "Seek 0 0", "Write 33768 tag 1",
                                "GetPieceAllocator", "Close"));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, AFirstUnitThatCannotBeReadFailsTheClose) {
    const struct {
        Op op;
        int n;
        Fault fault;
        const char* line;
    } rows[] = {
        {Op::kRead, 2, Fault::kFail, "CCreateMXFBase::Close: First Cluster Read Error."},
        {Op::kRead, 2, Fault::kEndOfFile, "CCreateMXFBase::Close: First Cluster Read Error."},
        {Op::kRead, 2, Fault::kShort, "CCreateMXFBase::Close: First Cluster Read Error."},
        {Op::kDataSync, 1, Fault::kFail, "CCreateMXFBase::Close: DataSync Error."},
        {Op::kSeek, 2, Fault::kFail, "CCreateMXFBase::Close: Seek Error."},
        {Op::kSeek, 3, Fault::kFail, "CCreateMXFBase::Close: Seek Error."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        log.Clear();
        FaultyStream file;
        file.SetClusterSize(65536);
        file.FailNth(Op::kRead, 1, Fault::kShort);
        file.FailNth(row.op, row.n, row.fault);
        writer.settings_.compType = COMP_TYPE_DV25;
        writer.Open(&file, true);
        writer.Write(Essence(1000), 0);
        EXPECT_EQ(writer.Close(), kStatusIoError);
        EXPECT_THAT(log.Lines(), ElementsAre(row.line));
        EXPECT_EQ(Runs(file.Bytes()), "H*32768 e*1000 F*224");  // the open header stands, and the footer
        EXPECT_EQ(file.LivePieces(), 0);
        EXPECT_EQ(file.LiveAllocators(), 0);
        EXPECT_FALSE(file.IsOpened());
    }
}

// --- completions ---

TEST_F(CreateMXFBase, CompletionsOfTheClientsPiecesGoOnToTheClient) {
    CompletionCollector client;
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);  // before there is a callback: dropped
    EXPECT_EQ(writer.RegisterCallback(&client), kStatusOk);
    stream.FailNth(Op::kWrite, 4, Fault::kBadCompletion);
    writer.Write(Essence(10), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
    writer.Write(Essence(10), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5."));
    writer.Close();
    EXPECT_THAT(client.Completions(), ElementsAre(CompletionCollector::Completion{3, 0, 0},
                                                  CompletionCollector::Completion{4, FaultyStream::kBadStatus, 0}));
}

TEST_F(CreateMXFBase, EveryTagButTheWritersOwnGoesToTheClient) {
    CompletionCollector client;
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    for (const int32_t tag : {0, 1, 2, 3, -1}) writer.CallbackForWriteComplete(0x123456789ABCDEF0, 0, tag);
    ASSERT_EQ(client.Completions().size(), 3u);
    EXPECT_EQ(client.Completions()[1], (CompletionCollector::Completion{0x123456789ABCDEF0, 0, 3}));
    EXPECT_EQ(client.Completions()[2].tag, -1);
}

TEST_F(CreateMXFBase, ALaterCallbackReplacesTheEarlierOne) {
    CompletionCollector first, second;
    writer.Open(&stream, true);
    writer.RegisterCallback(&first);
    writer.RegisterCallback(&second);
    writer.Write(Essence(10), 0);
    EXPECT_EQ(first.Completions().size(), 0u);
    EXPECT_EQ(second.Completions().size(), 1u);
}

TEST_F(CreateMXFBase, ANewRecordingBeginsWithoutACallback) {
    CompletionCollector client;
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    writer.Close();
    writer.Open(&stream, true);
    EXPECT_NE(writer.Write(Essence(10), 0), -1);
    EXPECT_TRUE(client.Completions().empty());
}

TEST_F(CreateMXFBase, StrayCompletionsAreHarmless) {
    writer.CallbackForWriteComplete(1, 0, 1);
    writer.CallbackForWriteComplete(1, -3, 2);
    writer.CallbackForWriteComplete(1, 0, 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-3."));
    writer.Open(&stream, true);
    writer.CallbackForWriteComplete(1, 0, 1);
    EXPECT_EQ(stream.LiveAllocators(), 0);
}

TEST_F(CreateMXFBase, AFailedCompletionFreesTheWritersPieceToo) {
    stream.FailNth(Op::kWrite, 1, Fault::kBadCompletion);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), 10);
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5."));
}

TEST_F(CreateMXFBase, APieceWithoutCompletionIsFreedByClosing) {
    stream.FailNth(Op::kWrite, 1, Fault::kFail);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::WriteStreamPiece: Write Error."));
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, AClientMayFreeItsPieceInTheCompletion) {
    struct Client final : IFileIOCallback {
        void CallbackForWriteComplete(uint64_t, int32_t, int32_t) override { piece.reset(); }
        std::unique_ptr<CMemoryPiece> piece;
    } client;
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    for (int i = 1; i <= 3; ++i) {
        client.piece = std::make_unique<CMemoryPiece>(100u);
        EXPECT_EQ(writer.Write(client.piece.get(), 0), 100);
        EXPECT_EQ(client.piece, nullptr);
        EXPECT_EQ(writer.settings_.dataSize, i * 100);
    }
}

TEST_F(CreateMXFBase, AsynchronousCompletionsRunBesideTheClient) {
    CompletionCollector client;
    std::vector<std::unique_ptr<Essence>> pieces;
    stream.CompleteAsynchronously(1ms);
    stream.SetClusterSize(65536);
    OpenForAVCIntra();
    writer.RegisterCallback(&client);
    for (int i = 0; i < 20; ++i) {
        pieces.push_back(std::make_unique<Essence>(1000u, 'a' + i));
        EXPECT_EQ(writer.Write(*pieces.back(), 0), 1000);
    }
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(client.Completions().size(), 20u);
    ASSERT_EQ(stream.Bytes().size(), 32768u + 512 + 20000 + 224);
    EXPECT_EQ(Runs(std::span(stream.Bytes()).first(32768)), "h*32768");
    EXPECT_EQ(Runs(std::span(stream.Bytes()).subspan(33280, 2000)), "a*1000 b*1000");
    EXPECT_EQ(Runs(std::span(stream.Bytes()).last(1224)), "t*1000 F*224");
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, DestructionWaitsForAsynchronousCompletions) {
    Essence piece(1000);
    {
        TestWriter other;
        stream.CompleteAsynchronously(5ms);
        other.Open(&stream, true);
        EXPECT_EQ(other.Write(piece, 0), 1000);
    }
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*1000");
}

TEST_F(CreateMXFBase, StreamOperationsHoldTheLockAndSettersDoNot) {
    // The stream calls back inside Write, so all this happens while a Write runs.
    struct Client final : IFileIOCallback {
        explicit Client(TestWriter& w) : writer(w) {}
        void CallbackForWriteComplete(uint64_t, int32_t, int32_t) override {
            EXPECT_EQ(writer.SetPackageName("set while writing"), kStatusOk);
            EXPECT_TRUE(writer.IsOpened());
            other = std::thread([this] {
                EXPECT_EQ(writer.DataSync(), kStatusOk);
                synced = true;
            });
            std::this_thread::sleep_for(30ms);
            EXPECT_FALSE(synced);
        }
        TestWriter& writer;
        std::thread other;
        std::atomic<bool> synced{false};
    } client(writer);
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    EXPECT_EQ(writer.Write(Essence(10), 0), 10);
    client.other.join();
    EXPECT_TRUE(client.synced);
}

// --- every operation fails once ---

// A short recording with every stream operation in it. Ends with the first operation that fails.
struct Recording {
    int32_t status = kStatusOk;  // or count
    const char* last = "";       // the operation that ended it

    Recording(TestWriter& writer, FaultyStream& stream, bool rewrite) {
        writer.settings_.compType = COMP_TYPE_AVCI100_1080;
        writer.SetVideoStandard(VIDEO_STD_50I);
        writer.SetRenderingDataSize(40000 - 512);
        const auto done = [&](const char* operation, int32_t result, int32_t expected) {
            last = operation;
            status = result;
            return result != expected;
        };
        if (done("Open", writer.Open(&stream, rewrite), kStatusOk)) return;
        if (done("Write", writer.Write(pieces[0], 0), 1000)) return;
        if (done("DataSync", writer.DataSync(), kStatusOk)) return;
        if (done("ReadBack", writer.ReadBack(pieces[1]), 1512)) return;
        if (done("Write", writer.Write(pieces[2], 0), 40000)) return;
        done("Close", writer.Close(), kStatusOk);
    }

    Essence pieces[3]{Essence(1000, 'a'), Essence(1512, 'b'), Essence(40000, 'c')};
};

struct Failing {
    const char* call;  // the stream operation that fails
    const char* last;
    int32_t status;
    const char* line;  // of the log; null: none
};

const char kWriteError[] = "CCreateMXFBase::WriteStreamPiece: Write Error.";

// Each row is one stream operation, in order.
constexpr Failing kRewriting[] = {
    {"Open  0x102", "Open", kStatusIoError, "CCreateMXFBase::Open: Open Error."},
    {"RegisterCallback", "Open", kStatusIoError, "CCreateMXFBase::Open: RegisterCallback Error."},
    {"GetPieceAllocator", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Allocate 32768", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Write 32768 tag 1", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},  // in the completion
    {"Allocate 512", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Write 512 tag 1", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Write 1000 tag 0", "Write", -1, kWriteError},
    {"DataSync", "DataSync", kStatusIoError, "CCreateMXFBase::DataSync: DataSync Error."},
    {"Seek -1512 2", "ReadBack", -1, "CCreateMXFBase::ReadBack: Seek Error."},
    {"Read 1512", "ReadBack", -1, "CCreateMXFBase::ReadBack: Read Error."},
    {"Seek -1512 2", "ReadBack", -1, "CCreateMXFBase::ReadBack: Seek Error."},
    {"Write 40000 tag 0", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Allocate 224", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Write 224 tag 2", "Close", kStatusIoError, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Seek 0 0", "Close", kStatusIoError, "CCreateMXFBase::Close: Seek Error."},
    {"Allocate 65536", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Read 65536", "Close", kStatusOk, nullptr},  // read again after a sync
    {"Seek 0 0", "Close", kStatusIoError, "CCreateMXFBase::Close: Seek Error."},
    {"Write 65536 tag 1", "Close", kStatusIoError, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Close", "Close", kStatusOk, "CCreateMXFBase::FileClose: FileClose Error."},
};

constexpr Failing kRendering[] = {
    {"Open  0x102", "Open", kStatusIoError, "CCreateMXFBase::Open: Open Error."},
    {"RegisterCallback", "Open", kStatusIoError, "CCreateMXFBase::Open: RegisterCallback Error."},
    {"GetPieceAllocator", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Allocate 32768", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Write 32768 tag 1", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Allocate 512", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Write 512 tag 1", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Write 1000 tag 0", "Write", -1, kWriteError},
    {"DataSync", "DataSync", kStatusIoError, "CCreateMXFBase::DataSync: DataSync Error."},
    {"Seek -1512 2", "ReadBack", -1, "CCreateMXFBase::ReadBack: Seek Error."},
    {"Read 1512", "ReadBack", -1, "CCreateMXFBase::ReadBack: Read Error."},
    {"Seek -1512 2", "ReadBack", -1, "CCreateMXFBase::ReadBack: Seek Error."},
    {"Write 40000 tag 0", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Allocate 224", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Write 224 tag 2", "Close", kStatusIoError, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Close", "Close", kStatusOk, "CCreateMXFBase::FileClose: FileClose Error."},
};

class EveryOperation : public CreateMXFBase {
protected:
    void ExpectNothingLeft(FaultyStream& file) {
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_FALSE(file.IsOpened());
        EXPECT_EQ(file.LivePieces(), 0);
        EXPECT_EQ(file.LiveAllocators(), 0);
        EXPECT_EQ(writer.script_.built, writer.script_.destroyed);
        EXPECT_EQ(writer.settings_.videoStd, 0u);
    }
    // The same writer still makes good files.
    void ExpectUsable() {
        FaultyStream file;
        const Recording again(writer, file, true);
        EXPECT_STREQ(again.last, "Close");
        EXPECT_EQ(again.status, kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 c*40000 F*224");
    }
    void FailEach(std::span<const Failing> rows, bool rewrite, Fault fault) {
        for (size_t i = 0; i < rows.size(); ++i) {
            const Failing& row = rows[i];
            SCOPED_TRACE(std::string(row.call) + ", operation " + std::to_string(i + 1));
            const bool isWrite = std::string_view(row.call).starts_with("Write");
            const bool accepted = isWrite && fault == Fault::kBadCompletion;
            FaultyStream file;
            file.SetClusterSize(65536);
            file.FailNthOfAll(static_cast<int>(i) + 1, fault);
            log.Clear();
            const Recording recording(writer, file, rewrite);
            ASSERT_GT(file.CountOfAll(), static_cast<int>(i));
            EXPECT_EQ(file.Calls()[i], row.call);
            EXPECT_STREQ(recording.last, accepted ? "Close" : row.last);
            EXPECT_EQ(recording.status, accepted ? kStatusOk : row.status);
            std::vector<std::string> lines;
            if (isWrite && fault != Fault::kFail) {
                lines.push_back("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.");
            }
            if (row.line != nullptr && !accepted) lines.push_back(row.line);
            EXPECT_THAT(log.Lines(), testing::ElementsAreArray(lines));
            ExpectNothingLeft(file);
            ExpectUsable();
        }
    }
};

TEST_F(EveryOperation, WithoutFailureSucceeds) {
    for (const bool rewrite : {true, false}) {
        FaultyStream file;
        file.SetClusterSize(65536);
        const Recording recording(writer, file, rewrite);
        EXPECT_STREQ(recording.last, "Close");
        EXPECT_EQ(recording.status, kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), rewrite ? "h*32768 c*40000 F*224" : "H*32768 c*40000 F*224");
        EXPECT_EQ(file.CountOfAll(), static_cast<int>(rewrite ? std::size(kRewriting) : std::size(kRendering)));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(EveryOperation, FailingIsReportedAndLeavesNothing) {
    FailEach(kRewriting, true, Fault::kFail);
    FailEach(kRendering, false, Fault::kFail);
}

TEST_F(EveryOperation, FailingWithACompletionIsReportedAndLeavesNothing) {
    FailEach(kRewriting, true, Fault::kFailCompleted);
    FailEach(kRendering, false, Fault::kFailCompleted);
}

TEST_F(EveryOperation, AcceptedWritesThatFailLaterAreLogged) { FailEach(kRewriting, true, Fault::kBadCompletion); }

TEST_F(EveryOperation, ShortWritesAreFailures) {
    for (size_t i = 0; i < std::size(kRewriting); ++i) {
        const Failing& row = kRewriting[i];
        if (row.line != kWriteError) continue;
        SCOPED_TRACE(row.call);
        FaultyStream file;
        file.SetClusterSize(65536);
        file.FailNthOfAll(static_cast<int>(i) + 1, Fault::kShort);
        log.Clear();
        const Recording recording(writer, file, true);
        EXPECT_STREQ(recording.last, row.last);
        EXPECT_EQ(recording.status, row.status);
        EXPECT_THAT(
            log.Lines(),
            ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.", kWriteError));
        ExpectNothingLeft(file);
    }
}

TEST_F(EveryOperation, FailingOnAnAsynchronousStreamLeavesNothing) {
    for (const Fault fault : {Fault::kFail, Fault::kFailCompleted, Fault::kShort, Fault::kBadCompletion}) {
        for (int n = 1; n <= static_cast<int>(std::size(kRewriting)); ++n) {
            SCOPED_TRACE(n);
            FaultyStream file;
            file.CompleteAsynchronously();
            file.SetClusterSize(65536);
            file.FailNthOfAll(n, fault);
            const Recording recording(writer, file, true);
            writer.Close();  // a short ReadBack is no failure
            ExpectNothingLeft(file);
        }
    }
    ExpectUsable();
}

TEST_F(EveryOperation, AFailingCloseIsLoggedAroundTheFailure) {
    const struct {
        Op op;
        int n;
        std::vector<std::string> lines;
    } rows[] = {
        {Op::kRegisterCallback,
         1,
         {"CCreateMXFBase::Open: RegisterCallback Error.", "CCreateMXFBase::FileClose: FileClose Error."}},
        {Op::kWrite, 1, {kWriteError, "CCreateMXFBase::FileClose: FileClose Error."}},
        {Op::kDataSync,
         1,
         {"CCreateMXFBase::FileClose: FileClose Error.", "CCreateMXFBase::DataSync: DataSync Error."}},
        {Op::kRead, 1, {"CCreateMXFBase::FileClose: FileClose Error.", "CCreateMXFBase::ReadBack: Read Error."}},
        {Op::kSeek, 3, {"CCreateMXFBase::Close: Seek Error.", "CCreateMXFBase::FileClose: FileClose Error."}},
    };
    for (const auto& row : rows) {
        FaultyStream file;
        file.FailNth(row.op, row.n);
        file.FailAll(Op::kClose);
        log.Clear();
        const Recording recording(writer, file, true);
        EXPECT_EQ(log.Lines(), row.lines);
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_EQ(file.LivePieces(), 0);
    }
}

TEST_F(EveryOperation, AStreamThatRunsOutOfAllocatorsEndsTheRecording) {
    FaultyStream file;
    file.FailAll(Op::kGetPieceAllocator);
    const Recording recording(writer, file, true);
    EXPECT_STREQ(recording.last, "Write");
    EXPECT_EQ(recording.status, -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: Allocate Error."));
    ExpectNothingLeft(file);
}

// --- opening again ---

TEST_F(CreateMXFBase, AWriterMakesOneFileAfterTheOther) {
    for (int i = 0; i < 3; ++i) {
        FaultyStream file;
        writer.settings_.compType = COMP_TYPE_DV25;
        EXPECT_EQ(writer.Open(&file, true), kStatusOk);
        EXPECT_EQ(writer.Write(Essence(100), 0), 100);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 e*100 F*224");
    }
    EXPECT_EQ(writer.script_.built, 3);
    EXPECT_EQ(writer.script_.destroyed, 3);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, ResetParamLeavesTheFileOpen) {
    writer.Open(&stream, true);
    writer.ResetParam();
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_TRUE(stream.IsOpened());
    EXPECT_EQ(writer.script_.destroyed, 0);
}

}  // namespace
}  // namespace kmxf::test
