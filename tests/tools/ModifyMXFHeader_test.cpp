#include "kmxf/tools/ModifyMXFHeader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"
#include "reader/FailingAllocation.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/HeaderEditing.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ByteVector FileWith(ByteVector sets, ByteVector essence = Hex("E0 E1 E2 E3")) {
    OpAtomFile file;
    file.sets = std::move(sets);
    file.essence = std::move(essence);
    return file.Bytes();
}

class ModifyMXFHeader : public testing::Test {
protected:
    ModifyMXFHeader() { editor.SetShotUMID(ShotUMID()); }

    // What Save returned for this stream, which must be closed and hold nothing then.
    int32_t Save(FaultyStream& stream) {
        log.Clear();
        const int32_t status = editor.Save(&stream);
        EXPECT_FALSE(editor.IsOpened());
        EXPECT_EQ(stream.LivePieces(), 0);
        EXPECT_EQ(stream.LiveAllocators(), 0);
        return status;
    }
    int32_t SaveBytes(ByteVector bytes) {
        FaultyStream stream(bytes);
        const int32_t status = Save(stream);
        EXPECT_FALSE(stream.IsOpened());
        if (status != kStatusOk) {
            EXPECT_TRUE(SameBytes(bytes, stream.Bytes())) << "nothing is written";
        }
        return status;
    }

    LogRecorder log;
    CModifyMXFHeader editor;
};

TEST_F(ModifyMXFHeader, WritesTheShotUMIDOverThePackageUIDAndNothingElse) {
    auto expected = FileWith(MaterialPackage());
    FaultyStream stream(expected);
    EXPECT_EQ(editor.SetFilename("shot.mxf"), kStatusOk);
    EXPECT_EQ(Save(stream), kStatusOk);
    Patch(expected, kUMIDAt, Hex(kShotUMID));
    EXPECT_TRUE(SameBytes(expected, stream.Bytes()));
    EXPECT_THAT(stream.Calls(),
                ElementsAre("Open shot.mxf 0x2", "GetPieceAllocator", "Allocate 32768", "Seek 0 0", "Read 32768",
                            "Seek 32768 0",                                                   // the header
                            "GetPieceAllocator", "Allocate 32768", "Seek 0 0", "Read 32768",  // the look-up
                            "GetPieceAllocator", "Allocate 32", "Seek 196 0", "Write 32 tag 0", "DataSync", "Close"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeader, ReportsMissingMemoryAndClosesTheFile) {
    const auto bytes = FileWith(MaterialPackage());
    FaultyStream stream(bytes);
    log.Clear();
    {
        const FailingAllocation none(FailingAllocation::By::kNew, sizeof(MXFUMIDTag));  // the piece's bytes
        EXPECT_EQ(editor.Save(&stream), kStatusNoMemory);
    }
    EXPECT_FALSE(editor.IsOpened());
    EXPECT_FALSE(stream.IsOpened());
    EXPECT_TRUE(SameBytes(bytes, stream.Bytes()));
    EXPECT_THAT(log.Lines(), ElementsAre("CModifyMXFHeader::Save: Save Error"));
}

TEST_F(ModifyMXFHeader, EditsAFileOnDisk) {
    const TemporaryFolder folder;
    auto expected = FileWith(MaterialPackage());
    const std::string name = folder.File("clip.mxf");
    { std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char*>(expected.data()), 32896); }
    expected.resize(32896);
    IFileIOFactory* factory = CFileIOMain::GetFactory(0, nullptr, 32768);
    IStreamFileIO* stream = factory->CreateStreamFileIO(0);
    editor.SetFilename(name.c_str());
    EXPECT_EQ(editor.Save(stream), kStatusOk);
    stream->Release();
    factory->Release();
    Patch(expected, kUMIDAt, Hex(kShotUMID));
    EXPECT_TRUE(SameBytes(expected, LoadFile(name)));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeader, ShotUMIDIsZeroAtFirst) {
    auto expected = FileWith(MaterialPackage());
    FaultyStream stream(expected);
    CModifyMXFHeader fresh;
    EXPECT_EQ(fresh.Save(&stream), kStatusOk);
    Patch(expected, kUMIDAt, ByteVector(32));
    EXPECT_TRUE(SameBytes(expected, stream.Bytes()));
}

TEST_F(ModifyMXFHeader, OpensForReadingAndWritingWithoutEmptyingTheFile) { EXPECT_EQ(editor.GetOpenFlag(), 2u); }

TEST_F(ModifyMXFHeader, RefusesANullStreamWithoutALog) {
    EXPECT_EQ(editor.Save(nullptr), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeader, EditsARecordingThatWasCutOff) {
    auto expected = FileWith(MaterialPackage(), {});
    FaultyStream stream(expected);
    EXPECT_EQ(Save(stream), kStatusOk);
    Patch(expected, kUMIDAt, Hex(kShotUMID));
    EXPECT_TRUE(SameBytes(expected, stream.Bytes()));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeader, HandsOnTheStatusOfAHeaderThatCannotBeRead) {
    auto bytes = FileWith(MaterialPackage());
    bytes.resize(32767);
    EXPECT_EQ(SaveBytes(bytes), kStatusIoError);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::ReadHeader: Read Error.", "CReadMXFBase::Open: ReadHeader Error.",
                            "CModifyMXFHeader::Save: Save Error"));
    EXPECT_EQ(SaveBytes(ByteVector(32768)), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::ReadHeader: No OpAtom.", "CReadMXFBase::Open: ReadHeader Error.",
                            "CModifyMXFHeader::Save: Save Error"));
    const auto record = log.Records().back();
    EXPECT_EQ(record.module, "");
    EXPECT_EQ(record.sourceFile, "ModifyMXFHeader");
    EXPECT_EQ(record.level, kLogError);
    EXPECT_GT(record.line, 0);
}

TEST_F(ModifyMXFHeader, FileOfAnotherPatternIsLeftAlone) {
    OpAtomFile file;
    file.pattern = kOp1b;
    file.sets = MaterialPackage();
    file.essence = Hex("00");
    EXPECT_EQ(SaveBytes(file.Bytes()), kStatusFailure);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::ReadHeader: No OpAtom.", "CReadMXFBase::ReadMetadata: Header is not read.",
                            "CModifyMXFHeader::Save: Save Error"));
}

TEST_F(ModifyMXFHeader, FileWithoutAPackageUIDOf32BytesIsLeftAlone) {
    const std::string shorter(kOldUMID.substr(0, 31 * 3 - 1));
    for (const auto& sets : {
             ByteVector{},
             Packet(kMaterialKey, LocalItem("3C 0A", U('1'))),
             MaterialPackage(shorter),
             MaterialPackage(std::string(kOldUMID) + " 00"),
             MaterialPackage(""),
         }) {
        EXPECT_EQ(SaveBytes(FileWith(sets)), kStatusFailure);
        EXPECT_THAT(log.Lines(), ElementsAre("CModifyMXFHeader::Save: Save Error"));
    }
}

TEST_F(ModifyMXFHeader, EveryFailureOfTheStreamIsReportedAndLeavesNothingBehind) {
    const auto bytes = FileWith(MaterialPackage());
    const std::string saveError = "CModifyMXFHeader::Save: Save Error";
    const auto header = [&](const std::string& message) {
        return std::vector<std::string>{"CReadMXFBase::ReadHeader: " + message, "CReadMXFBase::Open: ReadHeader Error.",
                                        saveError};
    };
    const auto lookup = [&](const std::string& message) {
        return std::vector<std::string>{"CReadMXFBase::ReadMetadata: " + message, saveError};
    };
    const std::vector<std::string> only{saveError};
    struct Row {
        int32_t status;
        std::vector<std::string> lines;
    };
    // One row for each call of OverThePackageUIDAndNothingElse, in its order.
    const std::vector<Row> rows = {
        {kStatusIoError, {"CReadMXFBase::Open: Open Error.", saveError}},
        {kStatusIoError, header("Allocate Error.")},
        {kStatusIoError, header("Allocate Error.")},
        {kStatusIoError, header("Read Error.")},
        {kStatusIoError, header("Read Error.")},
        {kStatusIoError, header("Read Error.")},
        {kStatusFailure, lookup("Allocate Error.")},
        {kStatusFailure, lookup("Allocate Error.")},
        {kStatusFailure, lookup("Read Error.")},
        {kStatusFailure, lookup("Read Error.")},
        {kStatusIoError, only},
        {kStatusIoError, only},
        {kStatusIoError, only},
        {kStatusIoError, only},
        {kStatusIoError, only},
        {kStatusOk, {"CReadMXFBase::FileClose: FileClose Error."}},
    };
    for (const Fault fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile, Fault::kFailCompleted}) {
        for (size_t call = 0; call < rows.size(); ++call) {
            FaultyStream stream(bytes);
            stream.FailNthOfAll(static_cast<int>(call + 1), fault);
            EXPECT_EQ(Save(stream), rows[call].status) << call;
            EXPECT_EQ(log.Lines(), rows[call].lines) << call;
            EXPECT_FALSE(stream.IsOpened()) << call;
            // Whatever became of the 32 bytes: around them the file is as it was.
            auto before = bytes, after = stream.Bytes();
            Patch(before, kUMIDAt, ByteVector(32));
            Patch(after, kUMIDAt, ByteVector(32));
            EXPECT_TRUE(SameBytes(before, after)) << call;
        }
    }
}

TEST_F(ModifyMXFHeader, WriteThatIsLostLaterIsNotTakenForSaved) {
    FaultyStream stream(FileWith(MaterialPackage()));
    stream.FailNth(Op::kWrite, 1, Fault::kBadCompletion);
    stream.FailNth(Op::kDataSync, 1);
    EXPECT_EQ(Save(stream), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CModifyMXFHeader::Save: Save Error"));
}

TEST_F(ModifyMXFHeader, WaitsForAStreamThatWritesLater) {
    auto expected = FileWith(MaterialPackage());
    FaultyStream stream(expected);
    stream.CompleteAsynchronously(std::chrono::milliseconds(20));
    EXPECT_EQ(Save(stream), kStatusOk);
    Patch(expected, kUMIDAt, Hex(kShotUMID));
    EXPECT_TRUE(SameBytes(expected, stream.Bytes()));
}

TEST_F(ModifyMXFHeader, OneEditorEditsFileAfterFile) {
    for (int file = 0; file < 2; ++file) EXPECT_EQ(SaveBytes(FileWith(MaterialPackage())), kStatusOk);
    EXPECT_EQ(SaveBytes(FileWith({})), kStatusFailure);
    EXPECT_EQ(SaveBytes(FileWith(MaterialPackage())), kStatusOk);
}

}  // namespace
}  // namespace kmxf::test
