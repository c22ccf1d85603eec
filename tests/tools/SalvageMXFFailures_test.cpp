#include "kmxf/tools/SalvageMXF.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/writer/OpAtomSound.h"
#include "reader/FailingAllocation.h"
#include "support/Packets.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/AtomSalvage.h"
#include "tools/StreamFactory.h"
#include "writer/WriterDoubles.h"

// Failures, slow streams and files on disk.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXF, FormatWithoutAFrameSizeIsRefused) {
    const Bytes file(kHeaderArea + 500000);
    for (const AtomFormat& format :
         {Video(VIDEO_STD_59_94P, COMP_TYPE_DV25), Video(0, COMP_TYPE_DV25), Video(VIDEO_STD_59_94I, 0x1FFFF),
          Video(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080), Video(VIDEO_STD_50I, COMP_TYPE_AVCI50_720)}) {
        ExpectRefused(format, file, true, kStatusInvalidArgument, {"CSalvageMXF::Salvage: Invalid Format."});
    }
}

TEST_F(SalvageMXF, SoundOfAnUnknownStandardIsRefused) {
    for (const uint32_t rate : {48000u, 96000u}) {
        ExpectRefused(Sound(0x01000000, rate), Bytes(kHeaderArea + 50000), true, kStatusInvalidArgument,
                      {"CSalvageMXF::Salvage: AudioSampleToDuration Error."});
    }
}

TEST_F(SalvageMXF, BuilderThatRefusesAValueLeavesTheFileAlone) {
    for (const bool video : {true, false}) {
        const AtomFormat format = video ? Video(VIDEO_STD_59_94I, COMP_TYPE_DV25) : Sound(VIDEO_STD_50I);
        const std::string step = video ? "CreateVideoHeader" : "CreateAudioHeader";
        const Bytes file = CutOff(format, Noise(240000, 1));
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        salvager->SetPackageName(std::string(201, 'n'));
        EXPECT_EQ(Run(), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::" + step + ": SetPackageName Error.",
                                             "CSalvageMXF::Salvage: " + step + " Error."));
        EXPECT_TRUE(SameBytes(file, stream->Bytes()));
        EXPECT_EQ(salvager->GetDuration(), 0u);
    }
}

TEST_F(SalvageMXF, HeaderThatDoesNotFitLeavesTheFileAlone) {
    AtomFormat format = Sound(VIDEO_STD_50I);
    const Bytes file = CutOff(format, Noise(3840, 1));
    format.clipType = 0x1FF;  // 255 sound tracks
    ExpectRefused(format, file, true, kStatusNoMemory, {"CSalvageMXF::Salvage: GetHeaderData Error."});
}

TEST_F(SalvageMXF, BuilderThatHasNoFooterFailsWithItsStatus) {
    struct Scripted : CSalvageMXF {
        Scripted() : CSalvageMXF(true) {}
        int32_t SetMXFParam() override {
            builder_ = std::make_unique<ScriptedBuilder<COpAtomSound>>(script, 0u, 0u, 48000u, 0u, 16u, false);
            return script.answers["SetMXFParam"];
        }
        Script script;
    };
    const AtomFormat format = Sound(VIDEO_STD_50I);
    for (const auto& [operation, line] : std::vector<std::pair<std::string, std::string>>{
             {"SetMXFParam", "CSalvageMXF::Salvage: CreateAudioHeader Error."},
             {"GetHeaderData", "CSalvageMXF::Salvage: GetHeaderData Error."},
             {"GetFooterData", "CSalvageMXF::Salvage: GetFooterData Error."}}) {
        auto scripted = std::make_unique<Scripted>();
        Script& script = scripted->script;
        script.answers[operation] = kStatusDisagree;
        Describe(*scripted, format);
        salvager = std::move(scripted);
        stream = std::make_unique<FaultyStream>(Bytes(kHeaderArea + 3840));
        EXPECT_EQ(Run(), kStatusDisagree) << operation;
        EXPECT_THAT(log.Lines(), ElementsAre(line));
        EXPECT_EQ(script.built, script.destroyed);
    }
    auto scripted = std::make_unique<Scripted>();
    Script& script = scripted->script;
    Describe(*scripted, format);
    salvager = std::move(scripted);
    stream = std::make_unique<FaultyStream>(Bytes(kHeaderArea + 3840 + 1000));
    EXPECT_EQ(Run(), kStatusOk);
    EXPECT_THAT(script.calls, ElementsAre("GetHeaderData", "GetFooterData"));
    EXPECT_EQ(Runs(stream->Bytes()), std::string("H*32768 ") + '\0' + "*3840 F*224 " + '\0' + "*776");
}

TEST_F(SalvageMXF, EveryFailureOfTheStreamIsReportedAndLeavesNothingBehind) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const Bytes file = CutOff(format, LoadTestData("essence/dv25-5994i.dif"));
    const std::string here = "CSalvageMXF::Salvage: ", read = "CSalvageMXF::GetVideoParam: Read Error.";
    const std::string write = "CCreateMXFBase::WriteStreamPiece: Write Error.";
    struct Row {
        const char* call;
        int32_t status;
        std::vector<std::string> lines;
    };
    const std::vector<Row> rows = {
        {"Open cut.mxf 0x2", kStatusIoError, {"CCreateMXFBase::Open: Open Error.", here + "Open Error."}},
        {"RegisterCallback", kStatusIoError, {"CCreateMXFBase::Open: RegisterCallback Error.", here + "Open Error."}},
        {"Seek 0 0", kStatusIoError, {here + "Seek Error."}},
        {"Seek 0 2", kStatusIoError, {here + "Seek Error."}},
        {"GetPieceAllocator", kStatusOk, {read}},  // the first frame
        {"Allocate 120000", kStatusOk, {read}},
        {"Seek 32768 0", kStatusOk, {read}},
        {"Read 120000", kStatusOk, {read}},
        {"GetPieceAllocator", kStatusOk, {read}},  // the last frame
        {"Allocate 120000", kStatusOk, {read}},
        {"Seek 152768 0", kStatusOk, {read}},
        {"Read 120000", kStatusOk, {read}},
        {"Seek 0 0", kStatusIoError, {here + "Seek Error."}},  // the header
        {"GetPieceAllocator", kStatusNoMemory, {here + "Allocate Error."}},
        {"Allocate 32768", kStatusNoMemory, {here + "Allocate Error."}},
        {"Write 32768 tag 1", kStatusIoError, {write, here + "Write Error."}},
        {"GetPieceAllocator", kStatusOk, {}},                       // of the completion; the piece is freed later
        {"Seek 272768 0", kStatusIoError, {here + "Seek Error."}},  // the footer
        {"GetPieceAllocator", kStatusNoMemory, {here + "Allocate Error."}},
        {"Allocate 224", kStatusNoMemory, {here + "Allocate Error."}},
        {"Write 224 tag 2", kStatusIoError, {write, here + "Write Error."}},
        {"GetPieceAllocator", kStatusOk, {}},
        {"DataSync", kStatusIoError, {here + "DataSync Error."}},
        {"Close", kStatusOk, {"CCreateMXFBase::FileClose: FileClose Error."}},
    };
    {
        ASSERT_EQ(Salvage(format, file, true), kStatusOk);
        std::vector<std::string> calls;
        for (const Row& row : rows) calls.emplace_back(row.call);
        ASSERT_EQ(stream->Calls(), calls);
    }
    for (const Fault fault : {Fault::kFail, Fault::kFailCompleted, Fault::kShort}) {
        for (size_t call = 0; call < rows.size(); ++call) {
            SCOPED_TRACE(testing::Message() << call << " " << rows[call].call);
            stream = std::make_unique<FaultyStream>(file);
            stream->FailNthOfAll(static_cast<int>(call + 1), fault);
            salvager = std::make_unique<CSalvageMXF>(true);
            Describe(*salvager, format);
            EXPECT_EQ(Run(), rows[call].status);
            auto lines = rows[call].lines;
            const bool completes = fault != Fault::kFail && std::string(rows[call].call).starts_with("Write");
            if (completes) {
                lines.insert(lines.begin(),
                             "CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.");
            }
            EXPECT_EQ(log.Lines(), lines);
            EXPECT_EQ(salvager->GetDuration(), rows[call].status == kStatusOk ? 2u : 0u);
            EXPECT_EQ(salvager->GetDataSize(), rows[call].status == kStatusOk ? 240000 : 0);
            // Whatever failed: the essence is as it was.
            EXPECT_TRUE(SameBytes(std::span(file).subspan(kHeaderArea),
                                  std::span(stream->Bytes()).subspan(kHeaderArea, 240000)));
        }
    }
}

TEST_F(SalvageMXF, WithoutAStreamNothingIsOpened) {
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, Sound(VIDEO_STD_50I));
    {
        const StreamFactory factory(nullptr);
        EXPECT_EQ(salvager->Salvage(), kStatusInvalidArgument);
        EXPECT_EQ(factory.Live(), 0);
    }
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::Salvage: Open Error."));
    log.Clear();
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) { return nullptr; });
    EXPECT_EQ(salvager->Salvage(), kStatusInvalidArgument);
    CFileIOMain::SetFactoryProvider({});
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::Salvage: Open Error."));
}

TEST_F(SalvageMXF, MissingMemoryForTheFactoryIsAStatus) {
    struct Provider {
        IFileIOFactory* operator()(uint32_t, const CNetworkInfo*, uint32_t) const { return nullptr; }
        char itsOwn[4567]{};
    };
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, Sound(VIDEO_STD_50I));
    CFileIOMain::SetFactoryProvider(Provider{});
    {
        const FailingAllocation none(FailingAllocation::By::kNew, sizeof(Provider));
        EXPECT_FALSE(salvager->IsCompletedFile());
        uint32_t frames = 0;
        EXPECT_EQ(salvager->GetDuration(&frames), kStatusIoError);
        EXPECT_EQ(salvager->Salvage(), kStatusInvalidArgument);
    }
    CFileIOMain::SetFactoryProvider({});
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::GetDuration: Stat Error.", "CSalvageMXF::Salvage: Open Error."));
}

TEST_F(SalvageMXF, WaitsForAStreamThatWritesLater) {
    const AtomFormat format = Sound(VIDEO_STD_50I, 48000, 3);
    const Bytes file = CutOff(format, Noise(5760 * 3, 7));
    stream = std::make_unique<FaultyStream>(file);
    stream->CompleteAsynchronously(std::chrono::milliseconds(10));
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    ASSERT_EQ(Run(), kStatusOk);
    ExpectWhole(format, file, 3, 5760 * 3);
}

TEST_F(SalvageMXF, WriteThatIsLostLaterIsNotTakenForSalvaged) {
    const AtomFormat format = Sound(VIDEO_STD_50I);
    stream = std::make_unique<FaultyStream>(Bytes(kHeaderArea + 3840));
    stream->FailNth(Op::kWrite, 2, Fault::kBadCompletion);
    stream->FailNth(Op::kDataSync, 1);
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    EXPECT_EQ(Run(), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.",
                                         "CSalvageMXF::Salvage: DataSync Error."));
}

TEST_F(SalvageMXF, ClientCannotWriteThroughASalvager) {
    FaultyStream own(Bytes(kHeaderArea + 3840, 0x5A));
    CSalvageMXF asked(true);
    Describe(asked, Sound(VIDEO_STD_50I));
    ASSERT_EQ(asked.Open(&own, true), kStatusOk);
    CMemoryPiece piece(100);
    EXPECT_EQ(asked.Write(&piece, 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: m_pOpAtomBase is NULL."));
    EXPECT_EQ(own.Bytes(), Bytes(kHeaderArea + 3840, 0x5A));
}

TEST_F(SalvageMXF, SalvagesFilesOnDiskOneAfterTheOther) {
    const TemporaryFolder folder;
    CSalvageMXF one(true);
    for (const AtomFormat& format : {Video(VIDEO_STD_50I, COMP_TYPE_DV50), Sound(VIDEO_STD_59_94I, 48000, 3)}) {
        const Bytes essence = format.fileType == kFileTypeVideo ? LoadTestData("essence/dv50-50i.dif")
                                                                : Noise(format.SoundSize(12) + 5, 3);
        const Bytes file = CutOff(format, essence);
        const std::string name = folder.File("clip.mxf");
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        Describe(one, format);
        one.SetFilename(name.c_str());
        EXPECT_FALSE(one.IsCompletedFile());
        ASSERT_EQ(one.Salvage(), kStatusOk);
        EXPECT_TRUE(one.IsCompletedFile());
        const bool video = format.fileType == kFileTypeVideo;
        EXPECT_EQ(one.GetDuration(), video ? 2u : 12u);
        const Bytes salvaged = LoadFile(name);
        EXPECT_EQ(BigEndian(std::span(salvaged).subspan(44, 8)), 32768u + static_cast<uint64_t>(one.GetDataSize()));
        EXPECT_TRUE(SameBytes(std::span(file).subspan(kHeaderArea, static_cast<size_t>(one.GetDataSize())),
                              std::span(salvaged).subspan(kHeaderArea, static_cast<size_t>(one.GetDataSize()))));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
    Describe(one, Sound(VIDEO_STD_50I));
    one.SetFilename(folder.File("no such file").c_str());
    EXPECT_EQ(one.Salvage(), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Open: Open Error.", "CSalvageMXF::Salvage: Open Error."));
    EXPECT_FALSE(std::ifstream(folder.File("no such file")).is_open());
}

}  // namespace
}  // namespace kmxf::test
