#include "kmxf/reader/ReadMXFBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/FailingAllocation.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

MXFKEYTag Key(std::string_view text) {
    MXFKEYTag key;
    std::ranges::copy(Hex(text), key.bytes);
    return key;
}

OpAtomFile FileWith(ByteVector essence, ByteVector sets = {}) {
    OpAtomFile file;
    file.sets = std::move(sets);
    file.essence = std::move(essence);
    return file;
}

// 10 bytes of essence behind a header without sets.
ByteVector PlainFile() { return FileWith(Hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9")).Bytes(); }

class ReadMXFBase : public testing::Test {
protected:
    // Opens `bytes` with its header and returns what Open returned.
    int32_t Open(ByteVector bytes) {
        reader.Close();
        stream = std::make_unique<FaultyStream>(std::move(bytes));
        return reader.Open(stream.get(), true);
    }
    // Opens the plain file with bytes of its header replaced.
    int32_t OpenPatched(size_t offset, std::string_view patch) {
        auto bytes = PlainFile();
        Patch(bytes, offset, Hex(patch));
        return Open(std::move(bytes));
    }
    void ExpectClosedWith(int32_t expected, int32_t status, std::string_view message) {
        EXPECT_EQ(expected, status);
        EXPECT_FALSE(reader.IsOpened());
        EXPECT_FALSE(reader.IsReadHeader());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadHeader: " + std::string(message),
                                             "CReadMXFBase::Open: ReadHeader Error."));
        ExpectNothingHeld();
    }
    void ExpectNothingHeld() {
        EXPECT_EQ(0, stream->LivePieces());
        EXPECT_EQ(0, stream->LiveAllocators());
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    CReadMXFBase reader;
};

// --- opening and closing ---

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
    EXPECT_EQ(0, file.LivePieces());
    EXPECT_EQ(0, file.LiveAllocators());
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
    const auto record = log.Records().at(0);
    EXPECT_EQ("", record.module);
    EXPECT_EQ("CReadMXFBase::Open", record.function);
    EXPECT_EQ("ReadMXFBase", record.sourceFile);
    EXPECT_EQ(kLogError, record.level);
    EXPECT_GT(record.line, 0);
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

// --- the header ---

TEST_F(ReadMXFBase, ReadHeaderOfAReaderThatWasNeverOpenedDoesNothing) {
    EXPECT_EQ(0, reader.ReadHeader());
    EXPECT_FALSE(reader.IsReadHeader());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFBase, FindsTheEssence) {
    ASSERT_EQ(0, Open(PlainFile()));
    uint32_t offset = 0;
    int64_t size = 0;
    EXPECT_EQ(0, reader.GetDataOffset(&offset));
    EXPECT_EQ(0, reader.GetDataSize(&size));
    EXPECT_EQ(32768u, offset);
    EXPECT_EQ(10, size);
    EXPECT_EQ(32768, stream->Position());
}

TEST_F(ReadMXFBase, FindsAnEssenceThatBeginsInsideTheHeaderArea) {
    // Header pack, body pack, element: no metadata, no index, short lengths.
    auto bytes = Join({Pack{}.Bytes(), Pack{"03 04"}.Bytes(), Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 04 01"),
                       Hex("82 90 00"), ByteVector(0x9000, 0x55)});
    ASSERT_EQ(0, Open(bytes));
    uint32_t offset = 0;
    int64_t size = 0;
    reader.GetDataOffset(&offset);
    reader.GetDataSize(&size);
    EXPECT_EQ(124u + 124 + 16 + 3, offset);
    EXPECT_EQ(0x9000, size);
}

TEST_F(ReadMXFBase, AcceptsBothOpAtomLabels) {
    EXPECT_EQ(0, OpenPatched(84, "06 0E 2B 34 04 01 01 02 0D 01 02 01 10 03 00 00"));
    EXPECT_TRUE(reader.IsReadHeader());
}

TEST_F(ReadMXFBase, FileThatIsNotOpAtomIsClosedWithoutAFailure) {
    OpAtomFile file = FileWith(Hex("00"));
    file.pattern = kOp1b;
    EXPECT_EQ(0, Open(file.Bytes()));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_FALSE(reader.IsReadHeader());
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadHeader: No OpAtom."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFBase, FileThatBeginsWithNoPartitionPackIsRefused) {
    ExpectClosedWith(kStatusInvalidArgument, OpenPatched(12, "02"), "No OpAtom.");
}

TEST_F(ReadMXFBase, FileShorterThanTheHeaderAreaIsRefused) {
    auto bytes = PlainFile();
    bytes.resize(32767);
    ExpectClosedWith(kStatusIoError, Open(bytes), "Read Error.");
}

TEST_F(ReadMXFBase, HeaderAreaIsEnoughForAFileThatIsStillBeingWritten) {
    auto bytes = PlainFile();
    bytes.resize(32768);
    EXPECT_EQ(0, Open(bytes));
    int64_t size = 0;
    EXPECT_EQ(0, reader.GetDataSize(&size));
    EXPECT_EQ(10, size);
}

TEST_F(ReadMXFBase, FileCutAnywhereInTheHeaderAreaIsRefused) {
    stream = std::make_unique<FaultyStream>(FileWith(Hex("00")).HeaderArea());
    for (auto& bytes = stream->Bytes(); !bytes.empty();) {
        bytes.pop_back();
        log.Clear();
        ASSERT_EQ(kStatusIoError, reader.Open(stream.get(), true)) << bytes.size();
        ASSERT_FALSE(reader.IsOpened());
    }
}

TEST_F(ReadMXFBase, EmptyEssenceStaysOpen) {
    EXPECT_EQ(kStatusNotFound, Open(FileWith({}).Bytes()));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_TRUE(reader.IsReadHeader());
    int64_t size = -1;
    EXPECT_EQ(0, reader.GetDataSize(&size));
    EXPECT_EQ(0, size);
    EXPECT_EQ(32768, stream->Position());
    EXPECT_EQ(0, reader.ReadHeader()) << "already read";
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(0, reader.ReadMetadata(Key(kPrimerKey), 0x0000, nullptr, nullptr, nullptr)) << "lookups work";
}

TEST_F(ReadMXFBase, LengthFieldOfTheElementIsTakenForTheLongForm) {
    // 03 says "three bytes follow", as 83 does.
    ASSERT_EQ(0, OpenPatched(kElementLengthAt, "03 00 00 0A"));
    uint32_t offset = 0;
    int64_t size = 0;
    reader.GetDataOffset(&offset);
    reader.GetDataSize(&size);
    EXPECT_EQ(32764u, offset);
    EXPECT_EQ(10, size);
    EXPECT_EQ(32764, stream->Position());
}

TEST_F(ReadMXFBase, LengthFieldWithoutBytesIsAnEmptyEssence) {
    for (const auto* first : {"00", "80"}) {
        EXPECT_EQ(kStatusNotFound, OpenPatched(kElementLengthAt, first));
        uint32_t offset = 0;
        EXPECT_EQ(0, reader.GetDataOffset(&offset));
        EXPECT_EQ(32761u, offset);
    }
}

TEST_F(ReadMXFBase, KeyOfTheElementIsNotLookedAt) {
    EXPECT_EQ(0, OpenPatched(kElementAt, "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF"));
}

TEST_F(ReadMXFBase, LengthFieldOf127BytesCountsByItsLowestEight) {
    // A body pack earlier in the area, so that 1 + 127 bytes of length end with it.
    const auto area = [](size_t elementAt) {
        const Pack header{"02 04", kOpAtom, Hex(kAES3Clip), elementAt - 248, 0};
        return Join({header.Bytes(), ByteVector(elementAt - 248), Pack{"03 04"}.Bytes(), ByteVector(16, 0xEE),
                     ByteVector(120, 0xFF), Hex("00 00 00 00 00 00 12 34"), ByteVector(32, 0xCC)});
    };
    ASSERT_EQ(0, Open(area(32768 - 144)));
    uint32_t offset = 0;
    int64_t size = 0;
    reader.GetDataOffset(&offset);
    reader.GetDataSize(&size);
    EXPECT_EQ(32768u, offset);
    EXPECT_EQ(0x1234, size);

    ExpectClosedWith(kStatusInvalidArgument, Open(area(32768 - 143)), "SetData Error.");
}

TEST_F(ReadMXFBase, EssenceOfMoreThan63BitsIsRefused) {
    EXPECT_EQ(0, OpenPatched(kElementLengthAt, "87 FF FF FF FF FF FF FF")) << "2^56 - 1 is a length";
    auto bytes = PlainFile();
    // With everything from the body pack on one byte earlier there is room for eight bytes of length.
    Patch(bytes, kHeaderByteCountAt, BigEndian(kBodyPackAt - 1 - 124, 8));
    Patch(bytes, kIndexByteCountAt, BigEndian(0, 8));
    const ByteVector moved(bytes.begin() + kBodyPackAt, bytes.begin() + kElementLengthAt);
    Patch(bytes, kBodyPackAt - 1, moved);
    Patch(bytes, kElementLengthAt - 1, Hex("88 7F FF FF FF FF FF FF FF"));
    ASSERT_EQ(0, Open(bytes));
    int64_t size = 0;
    reader.GetDataSize(&size);
    EXPECT_EQ(0x7FFFFFFFFFFFFFFF, size);
    Patch(bytes, kElementLengthAt - 1, Hex("88 80 00 00 00 00 00 00 00"));
    log.Clear();
    ExpectClosedWith(kStatusInvalidArgument, Open(bytes), "SetData Error.");
}

TEST_F(ReadMXFBase, BodyPackIsTakenToBeAsLongAsTheHeaderPack) {
    // A body pack without a container is 108 bytes long, but the element is looked for 124 bytes behind its start.
    auto bytes = PlainFile();
    Pack body{"03 04"};
    body.container.clear();
    Patch(bytes, kBodyPackAt, body.Bytes());
    EXPECT_EQ(0, Open(bytes));
    int64_t size = 0;
    reader.GetDataSize(&size);
    EXPECT_EQ(10, size);
}

TEST_F(ReadMXFBase, ByteCountsOfTheBodyPackLeadToTheElement) {
    const Pack header{"02 04", kOpAtom, Hex(kAES3Clip), 5, 6};
    const Pack body{"03 04", kOpAtom, Hex(kAES3Clip), 7, 8};
    ASSERT_EQ(0, Open(Join({header.Bytes(), ByteVector(11, 0x11), body.Bytes(), ByteVector(15, 0x22), ByteVector(16),
                            Hex("84 00 00 80 00"), ByteVector(0x8000)})));
    uint32_t offset = 0;
    reader.GetDataOffset(&offset);
    EXPECT_EQ(124u + 11 + 124 + 15 + 21, offset);
}

TEST_F(ReadMXFBase, CountsThatLeadOutOfTheHeaderAreaAreRefused) {
    constexpr std::string_view kLies[] = {
        "00 00 00 00 00 00 7F 85",  // one byte past the area, behind the pack of 124
        "00 00 00 00 00 00 80 00", "00 00 00 00 FF FF FF FF", "00 00 00 01 00 00 00 00", "7F FF FF FF FF FF FF FF",
        "80 00 00 00 00 00 00 00", "FF FF FF FF FF FF FF FF", "FF FF FF FF FF FF FF 84",
    };
    for (const size_t pack : {size_t{0}, kBodyPackAt}) {
        for (const size_t count : {kHeaderByteCountAt, kIndexByteCountAt}) {
            for (const auto lie : kLies) {
                log.Clear();
                ExpectClosedWith(kStatusInvalidArgument, OpenPatched(pack + count, lie), "SetData Error.");
            }
        }
    }
}

TEST_F(ReadMXFBase, CountsThatCancelEachOtherOutAreRefused) {
    auto bytes = PlainFile();
    Patch(bytes, kHeaderByteCountAt, BigEndian(kBodyPackAt - 124 + 16, 8));
    Patch(bytes, kIndexByteCountAt, Hex("FF FF FF FF FF FF FF F0"));
    ExpectClosedWith(kStatusInvalidArgument, Open(bytes), "SetData Error.");
}

TEST_F(ReadMXFBase, PackLengthThatLeadsOutOfTheHeaderAreaIsRefused) {
    ExpectClosedWith(kStatusInvalidArgument, OpenPatched(16, "83 FF FF FF"), "SetData Error.");
}

TEST_F(ReadMXFBase, BodyPackThatIsNoneIsRefused) {
    ExpectClosedWith(kStatusInvalidArgument, OpenPatched(kBodyPackAt, "07"), "SetData Error.");
}

TEST_F(ReadMXFBase, BodyPackAndElementCutAnywhereByTheEndOfTheAreaAreRefused) {
    const auto tail = Join({Pack{"03 04"}.Bytes(), ByteVector(16, 0xEE), Hex("87 00 00 00 00 00 00 0A")});
    for (size_t kept = 0; kept < tail.size(); ++kept) {
        const size_t at = kEssenceAt - kept;
        const Pack header{"02 04", kOpAtom, Hex(kAES3Clip), at - 124, 0};
        auto bytes = Join({header.Bytes(), ByteVector(at - 124), tail});
        log.Clear();
        ExpectClosedWith(kStatusInvalidArgument, Open(std::move(bytes)), "SetData Error.");
    }
}

TEST_F(ReadMXFBase, HeaderOfAllOnesIsNoOpAtom) {
    auto bytes = PlainFile();
    std::fill(bytes.begin() + 16, bytes.begin() + 32768, uint8_t{0xFF});
    EXPECT_EQ(0, Open(bytes)) << "a partition pack, of some other operational pattern";
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadHeader: No OpAtom."));
}

TEST_F(ReadMXFBase, AnyByteOfTheHeaderMayLie) {
    stream = std::make_unique<FaultyStream>(PlainFile());
    for (size_t at = 0; at < 32768; at = at == 180 ? 32600 : at + 1) {
        const uint8_t kept = stream->Bytes()[at];
        for (const uint8_t lie : Hex("00 7F 80 FF")) {
            stream->Bytes()[at] = lie;
            reader.Open(stream.get(), true);
            uint32_t offset = 0;
            if (reader.GetDataOffset(&offset) == 0) {
                ASSERT_LE(offset, 32768u);
            }
            reader.IsValidDMS();
            reader.Close();
        }
        stream->Bytes()[at] = kept;
    }
    ExpectNothingHeld();
}

TEST_F(ReadMXFBase, FailingOperationsWhileReadingTheHeaderCloseTheFile) {
    struct Case {
        Op op;
        int nth;
        Fault fault;
        const char* message;
    };
    for (const auto& [op, nth, fault, message] : {
             Case{Op::kGetPieceAllocator, 1, Fault::kFail, "Allocate Error."},
             Case{Op::kAllocate, 1, Fault::kFail, "Allocate Error."},
             Case{Op::kSeek, 1, Fault::kFail, "Read Error."},
             Case{Op::kRead, 1, Fault::kFail, "Read Error."},
             Case{Op::kRead, 1, Fault::kShort, "Read Error."},
             Case{Op::kRead, 1, Fault::kEndOfFile, "Read Error."},
             Case{Op::kSeek, 2, Fault::kFail, "Read Error."},
         }) {
        log.Clear();
        stream = std::make_unique<FaultyStream>(PlainFile());
        stream->FailNth(op, nth, fault);
        ExpectClosedWith(kStatusIoError, reader.Open(stream.get(), true), message);
    }
}

TEST_F(ReadMXFBase, HeaderFailureIsLoggedBeforeTheCloseThatItCauses) {
    FaultyStream file(ByteVector(10));
    file.FailNth(Op::kClose, 1);
    EXPECT_EQ(kStatusIoError, reader.Open(&file, true));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::ReadHeader: Read Error.", "CReadMXFBase::FileClose: FileClose Error.",
                            "CReadMXFBase::Open: ReadHeader Error."));
}

TEST_F(ReadMXFBase, RunningOutOfMemoryForAPackIsAStatus) {
    // 200 essence containers; their list grows through 128 x 16 bytes.
    Pack header;
    header.container.clear();
    for (int i = 0; i < 200; ++i) header.container = Join({header.container, Hex(kAES3Clip)});
    auto bytes = header.Bytes();
    Patch(bytes, 16, BigEndian(0x83000000u + static_cast<uint32_t>(bytes.size() - 20), 4));
    bytes.resize(40000);
    stream = std::make_unique<FaultyStream>(bytes);
    int32_t status = 0;
    {
        const FailingAllocation noMemory(FailingAllocation::By::kNew, 128 * 16);
        status = reader.Open(stream.get(), true);
    }
    ExpectClosedWith(kStatusNoMemory, status, "Error.");
}

// --- reading ---

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

// --- accessors ---

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

// --- metadata ---

class ReadMetadata : public ReadMXFBase {
protected:
    void OpenWith(ByteVector sets) {
        ASSERT_EQ(0, Open(FileWith(Hex("00 00"), std::move(sets)).Bytes()));
        log.Clear();
    }
    // The item's "offset+length", or the status.
    std::string Find(std::string_view key, uint16_t tag) {
        uint32_t size = 0;
        int64_t offset = 0;
        const int32_t status = reader.ReadMetadata(Key(key), tag, nullptr, &size, &offset);
        return status == 0 ? std::to_string(offset) + "+" + std::to_string(size) : "status " + std::to_string(status);
    }
    const std::string kNotFound = "status -458759";
};

TEST_F(ReadMetadata, NeedsTheHeader) {
    EXPECT_EQ(kStatusWrongState, reader.ReadMetadata(Key(kTrackSetKey), 0x4801, nullptr, nullptr, nullptr));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadMetadata: Header is not read."));
    FaultyStream file(PlainFile());
    reader.Open(&file, false);
    EXPECT_EQ(kStatusWrongState, reader.ReadMetadata(Key(kTrackSetKey), 0x4801, nullptr, nullptr, nullptr));
    reader.Close();
}

TEST_F(ReadMetadata, TellsLengthAndFileOffset) {
    OpenWith(Packet(kTrackSetKey, Join({LocalItem("48 01", "00 00 00 02"), LocalItem("48 04", "AA BB CC")})));
    const int64_t value = OpAtomFile::kSetsAt + 20;
    EXPECT_EQ(std::to_string(value + 4) + "+4", Find(kTrackSetKey, 0x4801));
    EXPECT_EQ(std::to_string(value + 4 + 4 + 4) + "+3", Find(kTrackSetKey, 0x4804));

    uint32_t size = 99;
    int64_t offset = 99;
    EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4804, nullptr, &size, nullptr));
    EXPECT_EQ(3u, size);
    EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4804, nullptr, nullptr, &offset));
    EXPECT_EQ(value + 12, offset);
    EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4804, nullptr, nullptr, nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMetadata, CopiesTheValueAndNothingElse) {
    OpenWith(Packet(kTrackSetKey, Join({LocalItem("48 01", "00 00 00 02"), LocalItem("48 04", "AA BB CC")})));
    ByteVector buffer(5, 0x77);
    uint32_t size = 99;
    int64_t offset = 99;
    EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4804, buffer.data(), &size, &offset));
    EXPECT_TRUE(SameBytes(Hex("AA BB CC 77 77"), buffer));
    EXPECT_EQ(99u, size);
    EXPECT_EQ(99, offset);
}

TEST_F(ReadMetadata, ValueMayBeEmpty) {
    OpenWith(Packet(kTrackSetKey, Join({LocalItem("48 01", ""), LocalItem("48 04", "01")})));
    uint8_t buffer = 0x77;
    EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4801, &buffer, nullptr, nullptr));
    EXPECT_EQ(0x77, buffer);
    EXPECT_EQ(std::to_string(OpAtomFile::kSetsAt + 24) + "+0", Find(kTrackSetKey, 0x4801));
}

TEST_F(ReadMetadata, LeavesTheStreamAtTheEssenceAfterOneRead) {
    OpenWith(Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 02")));
    CMemoryPiece piece(1);
    reader.Read(&piece);
    const auto before = static_cast<ptrdiff_t>(stream->CountOfAll());
    Find(kTrackSetKey, 0x4801);
    const auto calls = stream->Calls();
    EXPECT_THAT(std::vector(calls.begin() + before, calls.end()),
                ElementsAre("GetPieceAllocator", "Allocate 32768", "Seek 0 0", "Read 32768"));
    EXPECT_EQ(32768, stream->Position());
    ExpectNothingHeld();
}

TEST_F(ReadMetadata, AbsentKeyOrTagIsNotFoundAndNotLogged) {
    OpenWith(Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 02")));
    ByteVector buffer(4, 0x77);
    uint32_t size = 99;
    EXPECT_EQ(kStatusNotFound, reader.ReadMetadata(Key(kAES3Key), 0x4801, buffer.data(), &size, nullptr));
    EXPECT_EQ(kStatusNotFound, reader.ReadMetadata(Key(kTrackSetKey), 0x4802, buffer.data(), &size, nullptr));
    EXPECT_TRUE(SameBytes(Hex("77 77 77 77"), buffer));
    EXPECT_EQ(99u, size);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_TRUE(reader.IsOpened());
    ExpectNothingHeld();
}

TEST_F(ReadMetadata, KeysDifferByAnyByte) {
    OpenWith(Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 02")));
    for (size_t i = 0; i < 16; ++i) {
        MXFKEYTag key = Key(kTrackSetKey);
        key.bytes[i] ^= 1;
        EXPECT_EQ(kStatusNotFound, reader.ReadMetadata(key, 0x4801, nullptr, nullptr, nullptr)) << i;
    }
}

TEST_F(ReadMetadata, SearchesTheFirstSetWithTheKey) {
    OpenWith(Join({Packet(kCDCIKey, LocalItem("48 01", "09")), Packet(kTrackSetKey, LocalItem("48 01", "01")),
                   Packet(kTrackSetKey, LocalItem("48 01", "02"))}));
    uint8_t value = 0;
    EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4801, &value, nullptr, nullptr));
    EXPECT_EQ(1, value);
}

TEST_F(ReadMetadata, PacksAreSetsLikeAnyOther) {
    // Header pack: version 1.3 reads as an item 0001 of 3 bytes. Primer: an item 0000 of 0 bytes.
    OpenWith({});
    EXPECT_EQ("24+3", Find("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00", 0x0001));
    EXPECT_EQ("148+0", Find(kPrimerKey, 0x0000));
    EXPECT_EQ(std::to_string(kBodyPackAt + 24) + "+3", Find("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00", 0x0001));
}

TEST_F(ReadMetadata, TagTheSetLacksIsLookedForInTheBytesBehindIt) {
    // Behind the track set, "06 0E 2B 34" of the next key is an item 060E of 2B34 bytes, which leads into the fill
    // item: at its end lies an item AB CD.
    const auto track = Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 02"));
    auto bytes = FileWith(Hex("00"), Join({track, Packet(kCDCIKey, LocalItem("30 01", "01"))})).Bytes();
    const size_t behind = OpAtomFile::kSetsAt + track.size() + 4 + 0x2B34;
    Patch(bytes, behind, Hex("AB CD 00 02 12 34"));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(std::to_string(behind + 4) + "+2", Find(kTrackSetKey, 0xABCD));
    EXPECT_EQ(kNotFound, Find(kTrackSetKey, 0x3001)) << "the next set's items are stepped over as bytes";
}

TEST_F(ReadMetadata, ShortLengthsOfPacketsAreTakenForTheLongForm) {
    // A value of 6 zero bytes: they are taken for a length of 0 in six bytes, and the walk goes on behind them.
    OpenWith(Join({Hex(kAES3Key), Hex("06 00 00 00 00 00 00"), Packet(kTrackSetKey, LocalItem("48 01", "02"))}));
    EXPECT_EQ(std::to_string(OpAtomFile::kSetsAt + 23 + 24) + "+1", Find(kTrackSetKey, 0x4801));
    // A value of other bytes makes a length that leads out.
    OpenWith(Join({Hex(kAES3Key), Hex("04 11 22 33 44"), Packet(kTrackSetKey, LocalItem("48 01", "02"))}));
    EXPECT_EQ(kNotFound, Find(kTrackSetKey, 0x4801));
    // An empty value is the same in both forms.
    OpenWith(Join({Hex(kAES3Key), Hex("00"), Packet(kTrackSetKey, LocalItem("48 01", "02"))}));
    EXPECT_EQ(std::to_string(OpAtomFile::kSetsAt + 17 + 24) + "+1", Find(kTrackSetKey, 0x4801));
}

TEST_F(ReadMetadata, ValueThatRunsPastTheEssenceIsNotFound) {
    auto bytes = FileWith(Hex("00"), Packet(kTrackSetKey, Hex("48 01 00 04 00 00 00 02"))).Bytes();
    const auto value = static_cast<uint64_t>(OpAtomFile::kSetsAt + 24);
    Patch(bytes, value - 2, BigEndian(32768 - value, 2));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(std::to_string(value) + "+" + std::to_string(32768 - value), Find(kTrackSetKey, 0x4801));
    Patch(bytes, value - 2, BigEndian(32768 - value + 1, 2));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(kNotFound, Find(kTrackSetKey, 0x4801));
    Patch(bytes, value - 2, Hex("FF FF"));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(kNotFound, Find(kTrackSetKey, 0x4801));
}

TEST_F(ReadMetadata, PacketLengthsThatLieEndTheSearch) {
    for (const auto* lie : {"83 FF FF FF", "83 00 80 00", "88 FF FF FF FF FF FF FF FF", "88 80 00 00 00 00 00 00 00",
                            "88 FF FF FF FF FF FF FF E0", "FF"}) {
        OpenWith(Join({Hex(kAES3Key), Hex(lie), Packet(kTrackSetKey, LocalItem("48 01", "02"))}));
        EXPECT_EQ(kNotFound, Find(kTrackSetKey, 0x4801)) << lie;
        EXPECT_EQ(kNotFound, Find(kAES3Key, 0x4801)) << lie;
    }
}

TEST_F(ReadMetadata, MetadataOverwrittenFromAnywhereOnGivesTheItemOrNotFound) {
    OpenWith(Join({Packet(kCDCIKey, LocalItem("30 01", "00 00 00 19 00 00 00 01")),
                   Packet(kTrackSetKey, Join({LocalItem("48 04", "01 02"), LocalItem("48 01", "AA BB CC DD")}))}));
    const ByteVector kept = stream->Bytes();
    ASSERT_EQ("214+4", Find(kTrackSetKey, 0x4801));
    for (const uint8_t filler : Hex("00 FF")) {
        stream->Bytes() = kept;
        for (size_t at = kBodyPackAt; at-- > 124;) {
            stream->Bytes()[at] = filler;
            if (at > 230) continue;
            const std::string expected = at >= 214              ? "214+4"
                                         : at == 213            ? filler == 0 ? "214+0" : "214+255"
                                         : at == 212 && !filler ? "214+0"
                                                                : kNotFound;
            ASSERT_EQ(expected, Find(kTrackSetKey, 0x4801)) << at;
        }
    }
}

TEST_F(ReadMetadata, ItemsAndPacketsThatTheEssenceCutsOffAreNotFound) {
    // A file without metadata. Once it is open, its first packet says that it ends where the start of a set begins,
    // which the essence cuts off.
    const auto set = Packet(kTrackSetKey, LocalItem("48 01", "AA BB CC DD"));
    for (size_t kept = 0; kept <= set.size(); ++kept) {
        const ByteVector cut(set.begin(), set.begin() + static_cast<ptrdiff_t>(kept));
        const Pack header;
        const Pack body{"03 04"};
        auto bytes =
            Join({header.Bytes(), body.Bytes(), ByteVector(16, 0x01), Hex("84 00 00 90 00"), ByteVector(0x9000)});
        ASSERT_EQ(0, Open(bytes));
        const size_t essence = 124 + 124 + 21;
        uint32_t offset = 0;
        reader.GetDataOffset(&offset);
        ASSERT_EQ(essence, offset);
        Patch(stream->Bytes(), essence - kept, cut);
        Patch(stream->Bytes(), 16, Join({{0x83}, BigEndian(essence - kept - 20, 3)}));
        const auto found = Find(kTrackSetKey, 0x4801);
        EXPECT_EQ(kept == set.size() ? std::to_string(essence - 4) + "+4" : kNotFound, found) << kept;
    }
}

TEST_F(ReadMetadata, FailingOperationsLeaveTheFileOpen) {
    struct Case {
        Op op;
        int nth;
        Fault fault;
        const char* message;
    };
    for (const auto& [op, nth, fault, message] : {
             Case{Op::kGetPieceAllocator, 2, Fault::kFail, "Allocate Error."},
             Case{Op::kAllocate, 2, Fault::kFail, "Allocate Error."},
             Case{Op::kSeek, 3, Fault::kFail, "Read Error."},
             Case{Op::kRead, 2, Fault::kFail, "Read Error."},
             Case{Op::kRead, 2, Fault::kShort, "Read Error."},
             Case{Op::kRead, 2, Fault::kEndOfFile, "Read Error."},
         }) {
        OpenWith(Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 02")));
        stream->FailNth(op, nth, fault);
        EXPECT_EQ(kStatusIoError, reader.ReadMetadata(Key(kTrackSetKey), 0x4801, nullptr, nullptr, nullptr));
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadMetadata: " + std::string(message)));
        EXPECT_TRUE(reader.IsOpened());
        ExpectNothingHeld();
        EXPECT_EQ(0, reader.ReadMetadata(Key(kTrackSetKey), 0x4801, nullptr, nullptr, nullptr)) << "and the next works";
    }
}

TEST_F(ReadMetadata, DescriptiveMetadataIsAClipOrASceneFramework) {
    constexpr std::string_view kClip = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 02 00";
    constexpr std::string_view kScene = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00";
    const auto items =
        Join({LocalItem("3C 0A", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"), LocalItem("80 01", "65 6E 00")});
    for (const auto key : {kClip, kScene}) {
        OpenWith(Packet(key, items));
        EXPECT_TRUE(reader.IsValidDMS());
        OpenWith(Packet(key, LocalItem("3C 0A", "00")));
        EXPECT_FALSE(reader.IsValidDMS()) << "without its language item";
    }
    OpenWith(Packet(kTrackSetKey, items));
    EXPECT_FALSE(reader.IsValidDMS());
    EXPECT_THAT(log.Lines(), IsEmpty());

    reader.Close();
    EXPECT_FALSE(reader.IsValidDMS());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadMetadata: Header is not read.",
                                         "CReadMXFBase::ReadMetadata: Header is not read."));
}

}  // namespace
}  // namespace kmxf::test
