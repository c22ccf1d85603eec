#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "reader/BaseReading.h"
#include "reader/FailingAllocation.h"
#include "reader/ReadFailures.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFBase, ReadHeaderOfAReaderThatWasNeverOpenedDoesNothing) {
    EXPECT_EQ(0, reader.ReadHeader());
    EXPECT_FALSE(reader.IsReadHeader());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFBase, FindsTheEssence) {
    ASSERT_EQ(0, Open(PlainFile()));
    ExpectEssence(32768u, 10);
    EXPECT_EQ(32768, stream->Position());
}

TEST_F(ReadMXFBase, FindsAnEssenceThatBeginsInsideTheHeaderArea) {
    // Header pack, body pack, element: no metadata, no index, short lengths.
    auto bytes = Join({Pack{}.Bytes(), Pack{"03 04"}.Bytes(), Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 04 01"),
                       Hex("82 90 00"), ByteVector(0x9000, 0x55)});
    ASSERT_EQ(0, Open(bytes));
    ExpectEssence(124u + 124 + 16 + 3, 0x9000);
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
    ExpectEssence(32764u, 10);
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
    ExpectEssence(32768u, 0x1234);

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
    const auto expectClosed = [&](const char* name, Op op, int nth, Fault fault, const char* message) {
        SCOPED_TRACE(name);
        log.Clear();
        stream = std::make_unique<FaultyStream>(PlainFile());
        stream->FailNth(op, nth, fault);
        ExpectClosedWith(kStatusIoError, reader.Open(stream.get(), true), message);
    };
    for (const auto& [name, op, fault, message] : kAreaReadFailures) expectClosed(name, op, 1, fault, message);
    expectClosed("a failing seek to the essence", Op::kSeek, 2, Fault::kFail, "Read Error.");
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

}  // namespace
}  // namespace kmxf::test
