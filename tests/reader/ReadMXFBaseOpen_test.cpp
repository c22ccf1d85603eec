#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "reader/BaseReading.h"
#include "support/LogChecks.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFBase, StartsClosed) {
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_FALSE(reader.IsReadHeader());
    EXPECT_EQ(0u, reader.GetOpenFlag());
    EXPECT_EQ(0, reader.Close());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFBase, OpensTheNamedFileForReadingAndReadsItsHeaderOnce) {
    FaultyStream file(PlainFile());
    EXPECT_EQ(0, reader.SetFilename("clip.mxf"));
    EXPECT_EQ(0, reader.Open(&file, true));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_TRUE(reader.IsReadHeader());
    EXPECT_THAT(file.Calls(), ElementsAre("Open clip.mxf 0x0", "GetPieceAllocator", "Allocate 32768", "Seek 0 0",
                                          "Read 32768", "Seek 32768 0"));
    test::ExpectNothingHeld(file);
    EXPECT_EQ(0, reader.ReadHeader()) << "nothing to do";
    EXPECT_EQ(6, file.CountOfAll());
    EXPECT_THAT(log.Lines(), IsEmpty());
    reader.Close();
}

TEST_F(ReadMXFBase, OpensWithoutReadingTheHeader) {
    FaultyStream file(PlainFile());
    EXPECT_EQ(0, reader.Open(&file, false));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_FALSE(reader.IsReadHeader());
    EXPECT_EQ(1, file.CountOfAll());
    EXPECT_EQ(0, reader.ReadHeader());
    EXPECT_TRUE(reader.IsReadHeader());
    reader.Close();
}

TEST_F(ReadMXFBase, RefusesANullStream) {
    EXPECT_EQ(kStatusInvalidArgument, reader.Open(nullptr, true));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Open: Invalid argument."));
}

TEST_F(ReadMXFBase, LogsNameTheSourceFileAndLine) {
    reader.Open(nullptr, true);
    ExpectOneError(log, "CReadMXFBase::Open", "ReadMXFBase", "Invalid argument.");
}

TEST_F(ReadMXFBase, ReportsAFileThatCannotBeOpened) {
    FaultyStream file(PlainFile());
    file.FailNth(Op::kOpen, 1);
    EXPECT_EQ(kStatusIoError, reader.Open(&file, true));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Open: Open Error."));
    EXPECT_EQ(0, reader.Close());
    EXPECT_EQ(0, file.Count(Op::kClose)) << "what was not opened is not closed";
}

TEST_F(ReadMXFBase, FileNameOutlivesClose) {
    FaultyStream first(PlainFile()), second(PlainFile());
    reader.SetFilename("kept.mxf");
    reader.Open(&first, true);
    EXPECT_EQ(0, reader.Close());
    EXPECT_FALSE(first.IsOpened());
    EXPECT_EQ(0, reader.Open(&second, true));
    EXPECT_EQ("Open kept.mxf 0x0", second.Calls().at(0));
    reader.Close();
}

TEST_F(ReadMXFBase, TakesFileNamesOfUpTo255Bytes) {
    EXPECT_EQ(kStatusInvalidArgument, reader.SetFilename(nullptr));
    const std::string longest(255, 'a');
    EXPECT_EQ(0, reader.SetFilename(longest.c_str()));
    EXPECT_EQ(kStatusInvalidArgument, reader.SetFilename(std::string(256, 'b').c_str()));
    FaultyStream file(PlainFile());
    reader.Open(&file, false);
    EXPECT_EQ("Open " + longest + " 0x0", file.Calls().at(0));
    reader.Close();
}

TEST_F(ReadMXFBase, SecondOpenGoesOverToTheNewStreamWithoutClosingTheFirst) {
    FaultyStream first(PlainFile()), second(FileWith(Hex("01 02 03")).Bytes());
    reader.Open(&first, true);
    EXPECT_EQ(0, reader.Open(&second, true));
    EXPECT_TRUE(first.IsOpened());
    int64_t size = 0;
    EXPECT_EQ(0, reader.GetDataSize(&size));
    EXPECT_EQ(3, size) << "of the new file";
    reader.Close();
    EXPECT_FALSE(second.IsOpened());
}

TEST_F(ReadMXFBase, FailedSecondOpenLeavesNothingOpen) {
    FaultyStream first(PlainFile()), second(PlainFile());
    second.FailNth(Op::kOpen, 1);
    reader.Open(&first, true);
    EXPECT_EQ(kStatusIoError, reader.Open(&second, true));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_FALSE(reader.IsReadHeader());
}

TEST_F(ReadMXFBase, ClosesOnceAndForgetsTheEssence) {
    FaultyStream file(PlainFile());
    reader.Open(&file, true);
    EXPECT_EQ(0, reader.Close());
    EXPECT_EQ(0, reader.Close());
    EXPECT_EQ(1, file.Count(Op::kClose));
    uint32_t offset = 7;
    EXPECT_EQ(kStatusWrongState, reader.GetDataOffset(&offset));
    EXPECT_EQ(7u, offset);
}

TEST_F(ReadMXFBase, DestructorCloses) {
    FaultyStream file(PlainFile());
    {
        CReadMXFBase other;
        other.Open(&file, true);
    }
    EXPECT_FALSE(file.IsOpened());
    EXPECT_EQ(1, file.Count(Op::kClose));
}

TEST_F(ReadMXFBase, FailingCloseIsLoggedAndCountsAsClosed) {
    FaultyStream file(PlainFile());
    file.FailNth(Op::kClose, 1);
    reader.Open(&file, true);
    EXPECT_EQ(0, reader.Close());
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::FileClose: FileClose Error."));
    EXPECT_EQ("ReadMXFBase", log.Records().at(0).sourceFile);
}

TEST_F(ReadMXFBase, OpenFlagIsForDerivedReadersToChoose) {
    struct Editor : CReadMXFBase {
        uint32_t GetOpenFlag() override { return kOpenReadWrite; }
    } editor;
    FaultyStream file(PlainFile());
    editor.Open(&file, false);
    EXPECT_EQ("Open  0x2", file.Calls().at(0));
    editor.Close();
}

}  // namespace
}  // namespace kmxf::test
