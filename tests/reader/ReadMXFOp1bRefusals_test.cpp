#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "reader/FailingAllocation.h"
#include "reader/Op1bReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReadMXFOp1b, RefusesFilesTooShortToTellTheirHeader) {
    ExpectRefused(kStatusFailure, {}, "GetHeaderSize Error.");
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    bytes.resize(79);
    ExpectRefused(kStatusFailure, bytes, "GetHeaderSize Error.");
    // 24 bytes of length leave no room for the byte count within 80 bytes.
    ByteVector longLength(200);
    longLength[16] = 0x98;
    ExpectRefused(kStatusFailure, longLength, "GetHeaderSize Error.");
}

TEST_F(ReadMXFOp1b, RefusesHeadersThatTheFileDoesNotHold) {
    clip.AddPictures(1);
    for (const std::string_view count :
         {"00 00 00 00 7F FF 00 00", "00 00 00 01 00 00 00 00", "7F FF FF FF FF FF FF FF", "80 00 00 00 00 00 00 00",
          "FF FF FF FF FF FF FF FF"}) {
        auto bytes = clip.Bytes();
        Patch(bytes, 52, Hex(count));
        ExpectRefused(kStatusIoError, bytes, "Read Error.");
    }
    auto bytes = clip.Bytes();
    Patch(bytes, 16, Hex("88 FF FF FF FF FF FF FF"));
    ExpectRefused(kStatusIoError, bytes, "Read Error.");
}

TEST_F(ReadMXFOp1b, DumpsWhatIsNoPartitionPack) {
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    bytes[12] = 0x77;
    ExpectRefused(kStatusInvalidArgument, bytes,
                  {"CReadMXFOp1b::Open: HeaderData Error. HeaderSize: 131072.",
                   "CReadMXFOp1b::DebugDump: *** CReadMXFOp1b Debug Info ***",
                   "CReadMXFOp1b::DebugDump: 0x06 0x0e 0x2b 0x34 0x02 0x05 0x01 0x01",
                   "CReadMXFOp1b::DebugDump: 0x0d 0x01 0x02 0x01 0x77 0x02 0x04 0x00"});
    EXPECT_EQ(kLogError, log.Records().at(0).level);
    EXPECT_EQ(kLogInfo, log.Records().at(1).level);
    EXPECT_EQ("ReadMXFOp1b", log.Records().at(3).sourceFile);
}

TEST_F(ReadMXFOp1b, RefusesOtherOperationalPatterns) {
    clip.AddPictures(1);
    clip.pattern = kOpAtom;
    ExpectRefused(
        kStatusFailure, clip.Bytes(),
        {"CReadMXFOp1b::Open: No Op1b. HeaderSize: 131072.", "CReadMXFOp1b::DebugDump: *** CReadMXFOp1b Debug Info ***",
         "CReadMXFOp1b::DebugDump: 0x06 0x0e 0x2b 0x34 0x02 0x05 0x01 0x01",
         "CReadMXFOp1b::DebugDump: 0x0d 0x01 0x02 0x01 0x01 0x02 0x04 0x00"});
}

TEST_F(ReadMXFOp1b, DebugDumpOfNothingLogsNothing) {
    reader.DebugDump(nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFOp1b, RefusesFormatsThatAreNotItsOwn) {
    clip.AddPictures(1);
    clip.rate = "00 00 00 48 00 00 00 01";
    ExpectRefused(
        kStatusFailure, clip.Bytes(),
        {"CReadMXFOp1b::GetHeaderParam: Invalid VideoStandard.", "CReadMXFOp1b::Open: GetHeaderParam Error."});
    EXPECT_EQ("ReadMXFOp1b", log.Records().at(0).sourceFile);
    clip.rate = "00 00 5D C0 00 00 03 E9";
    clip.bitRate = 1;
    ExpectRefused(
        kStatusFailure, clip.Bytes(),
        {"CReadMXFOp1b::GetHeaderParam: Invalid CompressionType.", "CReadMXFOp1b::Open: GetHeaderParam Error."});
}

TEST_F(ReadMXFOp1b, NeedsFilePackageOriginDurationAndSoundFormat) {
    clip.AddPictures(1);
    const auto bytes = clip.Bytes();
    const auto refusedWithout = [&](std::string_view what, size_t offset, std::string_view with, size_t count) {
        auto changed = bytes;
        const auto pattern = Hex(what);
        size_t seen = 0;
        for (auto at = changed.begin();; ++at) {
            at = std::search(at, changed.end(), pattern.begin(), pattern.end());
            ASSERT_NE(changed.end(), at) << what;
            if (++seen != count) continue;
            Patch(changed, static_cast<size_t>(at - changed.begin()) + offset, Hex(with));
            break;
        }
        ExpectRefused(kStatusFailure, changed, "GetHeaderParam Error.");
    };
    constexpr std::string_view kSet = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 ";
    refusedWithout(std::string(kSet) + "37 00", 14, "77", 1);  // file package
    refusedWithout("4B 02 00 08", 4, "FF", 2);                 // a negative origin
    refusedWithout("02 02 00 08", 4, "80", 3);                 // a negative duration
    refusedWithout("4B 02 00 08", 2, "00 04", 2);              // an origin of 4 bytes
    refusedWithout("02 02 00 08", 2, "00 04", 3);              // a duration of 4 bytes
    refusedWithout("3D 03 00 08", 4, "00 00 AC 44", 1);        // 44100
    refusedWithout("3D 01 00 04", 4, "00 00 00 14", 1);        // 20 bits
}

TEST_F(ReadMXFOp1b, TracksMustStandBehindTheFilePackage) {
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    // No track behind it: all keys of tracks become others, save that of the material package.
    const auto key = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3B 00");
    size_t seen = 0;
    for (size_t at = 0; at + 16 < clip.headerSize; ++at)
        if (std::equal(key.begin(), key.end(), bytes.begin() + static_cast<ptrdiff_t>(at)) && ++seen > 1)
            bytes[at + 14] = 0x3C;
    ASSERT_EQ(3u, seen);
    ExpectRefused(kStatusFailure, bytes, "GetHeaderParam Error.");
}

TEST_F(ReadMXFOp1b, ContainerDurationMayBeAbsentOrUnknown) {
    clip.AddPictures(5);
    clip.duration = 4;
    const auto original = clip.Bytes();
    ASSERT_EQ(0, Open(original));
    EXPECT_EQ(0, reader.GetVideoInfo(4, video)) << "5 frames in the file";
    const auto tag = Hex("30 02 00 08");
    const auto at =
        static_cast<size_t>(std::search(original.begin(), original.end(), tag.begin(), tag.end()) - original.begin());
    for (const std::string_view patch : {"30 FF 00 08", "30 02 00 08 FF FF FF FF FF FF FF FF"}) {
        auto bytes = original;
        Patch(bytes, at, Hex(patch));
        ASSERT_EQ(0, Open(bytes)) << patch;
        EXPECT_EQ(0, reader.GetVideoInfo(3, video));
        EXPECT_EQ(kStatusNotFound, reader.GetVideoInfo(4, video)) << "as many as the duration";
    }
}

TEST_F(ReadMXFOp1b, HeaderWithoutTimecodeIsNoFailure) {
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    const auto key = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 14 00");
    for (size_t at = 0; at + 16 < clip.headerSize; ++at)
        if (std::equal(key.begin(), key.end(), bytes.begin() + static_cast<ptrdiff_t>(at))) bytes[at + 14] = 0x3C;
    ASSERT_EQ(0, Open(bytes));
    CTimecode timecode;
    EXPECT_EQ(kStatusNotFound, reader.GetStartTimecode(timecode));
}

TEST_F(ReadMXFOp1b, InterruptedRecordingHasNoDuration) {
    // As it stands before Close: no durations, no random index.
    clip.AddPictures(1);
    clip.duration = 0;
    auto bytes = clip.Bytes();
    bytes.resize(bytes.size() - clip.RandomIndex().size());
    ExpectRefused(kStatusNotFound, bytes, "Duration is 0.");
}

TEST_F(ReadMXFOp1b, NeedsARandomIndexAtTheEnd) {
    clip.AddPictures(1);
    const auto original = clip.Bytes();
    const auto withSize = [&](std::string_view size) {
        auto bytes = original;
        Patch(bytes, bytes.size() - 4, Hex(size));
        return bytes;
    };
    for (const std::string_view size : {"00 00 00 00", "00 00 00 17", "00 00 00 18", "00 0F FF FF", "FF FF FF FF"})
        ExpectRefused(kStatusFailure, withSize(size), "GetRandomIndex Error.");
    auto cut = original;
    cut.resize(cut.size() - 1);
    ExpectRefused(kStatusFailure, cut, "GetRandomIndex Error.");
    auto otherKey = original;
    otherKey[original.size() - clip.RandomIndex().size() + 7] ^= 1;
    ExpectRefused(kStatusFailure, otherKey, "GetRandomIndex Error.");
}

TEST_F(ReadMXFOp1b, NeedsTheIndexOfTheFirstGroup) {
    clip.AddPictures(3);
    clip.Bytes();
    const size_t body = clip.partitions[1].offset, index = clip.partitions[2].offset;
    // Bodies and indexes in places where they cannot be
    for (const uint64_t offset : {uint64_t{0}, uint64_t{body}, uint64_t{body + 155}, uint64_t{index - 1},
                                  uint64_t{0x7FFFFFFFFFFFFFFF}, ~uint64_t{0}, uint64_t{clip.partitions.back().offset}})
        ExpectRefused(kStatusFailure, WithPartition(2, offset), "GetStartVideoIndex Error.");
    for (const uint64_t offset : {uint64_t{index}, uint64_t{index - 155}, ~uint64_t{0}})
        ExpectRefused(kStatusFailure, WithPartition(1, offset), "GetStartVideoIndex Error.");

    // An index partition that is none, of a size that the file does not have, with another segment
    const auto patched = [&](size_t offset, std::string_view patch) {
        auto bytes = clip.Bytes();
        Patch(bytes, index + offset, Hex(patch));
        return bytes;
    };
    ExpectRefused(kStatusFailure, patched(0, "07"), "GetStartVideoIndex Error.");
    ExpectRefused(kStatusFailure, patched(60, "00 00 00 00 00 00 00 00"), "GetStartVideoIndex Error.");
    ExpectRefused(kStatusFailure, patched(60, "00 00 00 00 7F 00 00 00"), "GetStartVideoIndex Error.");
    ExpectRefused(kStatusFailure, patched(60, "FF FF FF FF FF FF FF FF"), "GetStartVideoIndex Error.");
    ExpectRefused(kStatusFailure, patched(clip.packSize, "07"), "GetStartVideoIndex Error.");
    ExpectRefused(kStatusFailure, patched(clip.packSize + 17, "FF FF FF"), "GetStartVideoIndex Error.");
    // No entries: count and array of 3F0A
    ExpectRefused(kStatusFailure, patched(clip.packSize + 20 + 80 + 18 + 4, "00 00 00 00"),
                  "GetStartVideoIndex Error.");
}

TEST_F(ReadMXFOp1b, NeedsTheRightKindOfPartition) {
    clip.AddPictures(1);
    for (const size_t entry : {1u, 2u}) {
        auto bytes = clip.Bytes();
        Patch(bytes, bytes.size() - 4 - 12 * clip.partitions.size() + 12 * entry, Hex("00 00 00 07"));
        ExpectRefused(kStatusFailure, bytes, "GetStartVideoIndex Error.");
    }
}

TEST_F(ReadMXFOp1b, ReportsMissingMemory) {
    clip.AddPictures(1);
    const auto bytes = clip.Bytes();
    CMemoryFileIO file(bytes);
    {
        const FailingAllocation none(FailingAllocation::By::kNew, 131072);
        EXPECT_EQ(kStatusIoError, reader.Open("a", &file));
    }
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Open: Allocate Error."));
    EXPECT_FALSE(file.IsOpened());
    EXPECT_EQ(0, Open(bytes));
}

TEST_F(ReadMXFOp1b, ReportsStreamsWithoutPieces) {
    clip.AddPictures(1);
    FaultyStream file(clip.Bytes());
    file.FailNth(Op::kAllocate, 2);
    EXPECT_EQ(kStatusIoError, reader.Open("a", &file));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Open: Allocate Error."));
    EXPECT_FALSE(file.IsOpened());
}

}  // namespace
}  // namespace kmxf::test
