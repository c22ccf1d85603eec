#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "reader/BaseReading.h"
#include "reader/ReadFailures.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
    for (const auto& [name, op, fault, message] : kAreaReadFailures) {
        SCOPED_TRACE(name);
        OpenWith(Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 02")));
        stream->FailNth(op, stream->Count(op) + 1, fault);
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
