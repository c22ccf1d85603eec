#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "reader/BaseReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFBase, ReadsPieceByPieceUpToTheEndOfTheFile) {
    Open(PlainFile());
    CMemoryPiece four(4), large(200);
    EXPECT_EQ(4, reader.Read(&four));
    EXPECT_TRUE(SameBytes(Hex("A0 A1 A2 A3"), {four.GetBuffer(), 4}));
    EXPECT_EQ(4, reader.Read(&four));
    EXPECT_TRUE(SameBytes(Hex("A4 A5 A6 A7"), {four.GetBuffer(), 4}));
    // The last two bytes, and the 124 of the footer behind them
    EXPECT_EQ(126, reader.Read(&large));
    EXPECT_TRUE(SameBytes(Hex("A8 A9 06 0E 2B 34"), {large.GetBuffer(), 6}));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());

    EXPECT_EQ(-1, reader.Read(&four));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Read: End of file."));
}

TEST_F(ReadMXFBase, ReadsFromTheStartOfAFileWhoseHeaderWasNotRead) {
    FaultyStream file(PlainFile());
    reader.Open(&file, false);
    CMemoryPiece piece(4);
    EXPECT_EQ(4, reader.Read(&piece));
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34"), {piece.GetBuffer(), 4}));
    reader.Close();
}

TEST_F(ReadMXFBase, ReadNeedsAnOpenFile) {
    CMemoryPiece piece(4);
    EXPECT_EQ(-1, reader.Read(&piece));
    EXPECT_EQ(-1, reader.Read(nullptr));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Read: Not Open.", "CReadMXFBase::Read: Not Open."));
}

TEST_F(ReadMXFBase, ReadWithoutAPieceCloses) {
    Open(PlainFile());
    EXPECT_EQ(-1, reader.Read(nullptr));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Read: Invalid argument."));
}

TEST_F(ReadMXFBase, FailingReadClosesAndIsLoggedAfterTheClose) {
    stream = std::make_unique<FaultyStream>(PlainFile());
    stream->FailNth(Op::kRead, 2);
    stream->FailNth(Op::kClose, 1);
    reader.Open(stream.get(), true);
    CMemoryPiece piece(4);
    EXPECT_EQ(-1, reader.Read(&piece));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::FileClose: FileClose Error.", "CReadMXFBase::Read: Read Error."));
}

TEST_F(ReadMXFBase, AccessorsTestThePointerBeforeTheState) {
    EXPECT_EQ(kStatusInvalidArgument, reader.GetDataOffset(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetDataSize(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetFileSize(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetFileOffset(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetFileType(nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFBase, AccessorsNeedAnOpenFileOrItsHeader) {
    uint32_t number = 5;
    int64_t large = 6;
    EXPECT_EQ(kStatusWrongState, reader.GetDataOffset(&number));
    EXPECT_EQ(kStatusWrongState, reader.GetDataSize(&large));
    EXPECT_EQ(kStatusWrongState, reader.GetFileSize(&large));
    EXPECT_EQ(kStatusWrongState, reader.GetFileOffset(&large));
    EXPECT_EQ(kStatusWrongState, reader.GetFileType(&number));
    EXPECT_EQ(5u, number);
    EXPECT_EQ(6, large);

    FaultyStream file(PlainFile());
    reader.Open(&file, false);
    EXPECT_EQ(kStatusWrongState, reader.GetDataOffset(&number));
    EXPECT_EQ(kStatusWrongState, reader.GetDataSize(&large));
    EXPECT_EQ(kStatusWrongState, reader.GetFileType(&number));
    EXPECT_EQ(0, reader.GetFileSize(&large));
    EXPECT_EQ(0, reader.GetFileOffset(&large));
    EXPECT_THAT(log.Lines(), IsEmpty());
    reader.Close();
}

TEST_F(ReadMXFBase, FileSizeLeavesTheStreamAtTheEnd) {
    Open(PlainFile());
    int64_t position = 0;
    EXPECT_EQ(0, reader.GetFileOffset(&position));
    EXPECT_EQ(32768, position);
    EXPECT_EQ(0, reader.GetFileSize(&position));
    EXPECT_EQ(32768 + 10 + 124, position);
    EXPECT_EQ(0, reader.GetFileOffset(&position));
    EXPECT_EQ(32768 + 10 + 124, position);
    const auto calls = stream->Calls();
    EXPECT_THAT(std::vector(calls.end() - 4, calls.end()), ElementsAre("Seek 0 1", "Seek 0 0", "Seek 0 2", "Seek 0 1"));
}

TEST_F(ReadMXFBase, PositionOfAFailingStreamIsAnIoError) {
    Open(PlainFile());
    stream->FailAll(Op::kSeek);
    int64_t position = 6;
    EXPECT_EQ(kStatusIoError, reader.GetFileSize(&position));
    EXPECT_EQ(kStatusIoError, reader.GetFileOffset(&position));
    EXPECT_EQ(6, position);
    EXPECT_TRUE(reader.IsOpened());
}

class FileType : public testing::TestWithParam<std::pair<const char*, uint32_t>> {};

TEST_P(FileType, IsToldByTheWholeContainerLabel) {
    const auto& [lastFour, expected] = GetParam();
    OpAtomFile file = FileWith(Hex("00"));
    file.container = Hex(Label(lastFour));
    CReadMXFBase reader;
    FaultyStream stream(file.Bytes());
    ASSERT_EQ(0, reader.Open(&stream, true));
    uint32_t type = 0;
    EXPECT_EQ(0, reader.GetFileType(&type));
    EXPECT_EQ(expected, type);

    // Any other byte, the version byte among them, makes it unknown.
    for (size_t i = 0; i < 16; ++i) {
        OpAtomFile other = file;
        other.container[i] ^= 0x80;
        FaultyStream changed(other.Bytes());
        ASSERT_EQ(0, reader.Open(&changed, true));
        EXPECT_EQ(0, reader.GetFileType(&type));
        EXPECT_EQ(0x20000u, type) << i;
        reader.Close();
    }
}

INSTANTIATE_TEST_SUITE_P(Labels, FileType,
                         testing::Values(std::pair{"02 02 40 02", 0x20001u}, std::pair{"02 02 41 02", 0x20001u},
                                         std::pair{"02 02 50 02", 0x20001u}, std::pair{"02 02 51 02", 0x20001u},
                                         std::pair{"02 02 01 02", 0x20001u}, std::pair{"02 02 02 02", 0x20001u},
                                         std::pair{"02 02 60 02", 0x20001u}, std::pair{"02 02 61 02", 0x20001u},
                                         std::pair{"02 02 62 02", 0x20001u}, std::pair{"02 02 63 02", 0x20001u},
                                         std::pair{"02 10 60 02", 0x20001u}, std::pair{"02 06 04 00", 0x20002u},
                                         std::pair{"02 06 03 00", 0x20000u},    // AES3, frame-wrapped
                                         std::pair{"02 02 40 01", 0x20000u},    // DV, frame-wrapped
                                         std::pair{"02 10 60 01", 0x20000u},    // AVC, frame-wrapped
                                         std::pair{"02 02 00 02", 0x20000u}));  // no such DV

TEST_F(ReadMXFBase, FileTypeWithoutAContainerLabelIsUnknown) {
    // After a file that had one
    Open(PlainFile());
    const Pack header{"02 04", kOpAtom, {}, 32, 0};
    const Pack body{"03 04", kOpAtom, {}};
    ASSERT_EQ(0, Open(Join({header.Bytes(), ByteVector(32), body.Bytes(), ByteVector(16), Hex("84 00 00 90 00"),
                            ByteVector(0x9000)})));
    uint32_t type = 0;
    EXPECT_EQ(0, reader.GetFileType(&type));
    EXPECT_EQ(0x20000u, type);
}

}  // namespace
}  // namespace kmxf::test
