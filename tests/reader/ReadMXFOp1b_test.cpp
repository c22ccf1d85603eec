#include "kmxf/reader/ReadMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/FailingAllocation.h"
#include "reader/Op1bFixture.h"
#include "support/FaultyStream.h"
#include "support/LogRecorder.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view kXMLKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00";
constexpr std::string_view kThumbnailKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00";

struct Reader : CReadMXFOp1b {
    using CReadMXFOp1b::GetFrameworkOffset;
};

class ReadMXFOp1b : public testing::Test {
protected:
    int32_t Open(ByteVector bytes) {
        reader.Close();
        log.Clear();
        stream = std::make_unique<FaultyStream>(std::move(bytes));
        return reader.Open("clip.mxf", stream.get());
    }
    // 106 frames, in groups of 48, 48 and 10.
    void OpenClip() {
        clip.AddPictures(106);
        ASSERT_EQ(0, Open(clip.Bytes()));
    }
    void ExpectRefused(int32_t expected, ByteVector bytes, const std::vector<std::string>& lines) {
        EXPECT_EQ(expected, Open(std::move(bytes)));
        EXPECT_THAT(log.Lines(), testing::ElementsAreArray(lines));
        ExpectClosed();
    }
    void ExpectRefused(int32_t expected, ByteVector bytes, const char* message) {
        ExpectRefused(expected, std::move(bytes), {std::string("CReadMXFOp1b::Open: ") + message});
    }
    void ExpectClosed() {
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_EQ(stream->Count(Op::kOpen), stream->Count(Op::kClose));
        ExpectNothingHeld();
        EXPECT_EQ(0u, reader.GetHeaderSize());
        EXPECT_EQ(0, reader.GetDuration());
        VIDEOFRAMEINFOTag info;
        EXPECT_EQ(kStatusWrongState, reader.GetVideoInfo(0, info));
    }
    void ExpectNothingHeld() {
        EXPECT_EQ(0, stream->LivePieces());
        EXPECT_EQ(0, stream->LiveAllocators());
    }
    // The clip's file with the offset of a random index entry replaced.
    ByteVector WithPartition(size_t entry, uint64_t offset) {
        auto bytes = clip.Bytes();
        Patch(bytes, bytes.size() - 4 - 12 * clip.partitions.size() + 12 * entry + 4, BigEndian(offset, 8));
        return bytes;
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    Reader reader;
    Op1bClip clip;
    VIDEOFRAMEINFOTag video;
    AUDIODATAINFOTag audio;
    ANCDATAINFOTag anc;
};

// --- opening and closing ---

TEST_F(ReadMXFOp1b, StartsClosedAndAnswersZero) {
    EXPECT_EQ(0, reader.GetDuration());
    EXPECT_EQ(0, reader.GetOrigin());
    EXPECT_EQ(0u, reader.GetPartitionFrame());
    EXPECT_EQ(0u, reader.GetVideoStandard());
    EXPECT_EQ(0u, reader.GetCompressionType());
    EXPECT_EQ(0u, reader.GetAudioCh());
    EXPECT_EQ(0, reader.GetAudioDataSize());
    EXPECT_EQ(0u, reader.GetSamplingRate());
    EXPECT_EQ(0, reader.GetBytesPerSample());
    EXPECT_FALSE(reader.IsValidDMS());
    EXPECT_EQ(0u, reader.GetXMLDataSize());
    EXPECT_EQ(0, reader.GetXMLOffset());
    EXPECT_EQ(-1, reader.GetThumbnailType());
    EXPECT_EQ(0, reader.GetThumbnailWidth());
    EXPECT_EQ(0, reader.GetThumbnailHeight());
    EXPECT_EQ(0u, reader.GetThumbnailDataSize());
    EXPECT_EQ(0u, reader.GetHeaderSize());
    uint8_t buffer[512];
    EXPECT_FALSE(reader.GetHeaderData(buffer));
    EXPECT_EQ(kStatusNotFound, reader.GetXMLData(buffer));
    EXPECT_EQ(kStatusNotFound, reader.GetThumbnailData(buffer));
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDTag umid;
    EXPECT_EQ(kStatusWrongState, reader.GetStartTimecode(timecode));
    EXPECT_EQ(kStatusWrongState, reader.GetMaterialUID(umid));
    EXPECT_EQ(0, reader.Close());
    EXPECT_THAT(log.Lines(), IsEmpty());
    MXFINDEXENTRYTag entry;
    EXPECT_EQ(kStatusWrongState, reader.GetVideoInfo(0, video));
    EXPECT_EQ(kStatusWrongState, reader.GetVideoInfoFiller(0, video));
    EXPECT_EQ(kStatusWrongState, reader.GetVideoIndexEntry(0, entry));
    EXPECT_EQ(kStatusWrongState, reader.GetAudioInfo(0, 0, audio));
    EXPECT_EQ(kStatusWrongState, reader.GetANCInfo(0, anc));
    EXPECT_EQ(-1, reader.GetCodingPosition(0));
    EXPECT_EQ(kStatusWrongState, reader.GetSEIType1(0, buffer));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusWrongState, reader.GetTimecode(0, timecode, SEI_DATA_TYPE1));
    EXPECT_EQ(kStatusWrongState, reader.GetUsersBit(0, usersBit, SEI_DATA_TYPE1));
}

TEST_F(ReadMXFOp1b, OpensForReadingWithHeaderRandomIndexAndFirstIndex) {
    OpenClip();
    const auto calls = stream->Calls();
    EXPECT_EQ("Open clip.mxf 0x0", calls.at(0));
    const std::string index = std::to_string(clip.RandomIndex().size());
    std::vector<std::string> reads;
    for (const auto& call : calls)
        if (call.starts_with("Read ")) reads.push_back(call);
    // 100 + 30 + 11 x 48 bytes of segment and 22 of fill
    EXPECT_THAT(reads,
                ElementsAre("Read 80", "Read 131072", "Read 4", "Read 24", "Read " + index, "Read 156", "Read 680"));
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectNothingHeld();
}

TEST_F(ReadMXFOp1b, TellsWhatTheHeaderSays) {
    clip.origin = 3;
    clip.duration = 103;
    OpenClip();
    EXPECT_EQ(103, reader.GetDuration());
    EXPECT_EQ(3, reader.GetOrigin());
    EXPECT_EQ(48u, reader.GetPartitionFrame());
    EXPECT_EQ(VIDEO_STD_23_98P, reader.GetVideoStandard());
    EXPECT_EQ(COMP_TYPE_LONGG25_1080, reader.GetCompressionType());
    EXPECT_EQ(2u, reader.GetAudioCh());
    EXPECT_EQ((25 * 8008 + 6008) * 2, reader.GetAudioDataSize());
    EXPECT_EQ(48000u, reader.GetSamplingRate());
    EXPECT_EQ(2, reader.GetBytesPerSample());
    EXPECT_FALSE(reader.IsValidDMS());
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(timecode));
    EXPECT_EQ("01:00:00;00", timecode.GetText()) << "of the material package, at 24 frames, flag kept";
    MXFUMIDTag umid, expected;
    std::ranges::copy(Hex(kSomeUMID), expected.bytes);
    EXPECT_EQ(0, reader.GetMaterialUID(umid));
    EXPECT_EQ(expected, umid);
}

TEST_F(ReadMXFOp1b, OriginCountsPicturesWhereATimecodeFrameSpansTwo) {
    clip.groupFrames = 100;
    clip.rate = "00 00 00 32 00 00 00 01";
    clip.bitRate = 50000000;
    clip.origin = 2;
    clip.AddPictures(3);
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_EQ(4, reader.GetOrigin());
    EXPECT_EQ(100u, reader.GetPartitionFrame());
}

TEST_F(ReadMXFOp1b, HandsOutTheHeader) {
    clip.headerSize = 3001;
    clip.AddPictures(1);
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(3004u, reader.GetHeaderSize()) << "a multiple of 4";
    ByteVector header(3004);
    EXPECT_TRUE(reader.GetHeaderData(header.data()));
    EXPECT_TRUE(SameBytes(std::span(bytes).first(3004), header));
    EXPECT_FALSE(reader.GetHeaderData(nullptr));
}

TEST_F(ReadMXFOp1b, RefusesNullAndClosesWhatWasOpen) {
    OpenClip();
    FaultyStream other(clip.Bytes());
    EXPECT_EQ(kStatusInvalidArgument, reader.Open(nullptr, &other));
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_EQ(0, other.CountOfAll());
    EXPECT_EQ(kStatusInvalidArgument, reader.Open("clip.mxf", nullptr));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFOp1b::Open: Invalid argument.", "CReadMXFOp1b::Open: Invalid argument."));
    EXPECT_EQ("ReadMXFOp1b", log.Records().at(0).sourceFile);
}

TEST_F(ReadMXFOp1b, ReportsAFileThatCannotBeOpened) {
    FaultyStream file(ByteVector{});
    file.FailNth(Op::kOpen, 1);
    EXPECT_EQ(kStatusIoError, reader.Open("clip.mxf", &file));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Open: Open Error."));
    EXPECT_EQ(0, file.Count(Op::kClose)) << "what was not opened is not closed";
}

TEST_F(ReadMXFOp1b, SecondOpenClosesTheFirstFile) {
    OpenClip();
    Op1bClip shorter;
    shorter.AddPictures(2);
    FaultyStream second(shorter.Bytes());
    EXPECT_EQ(0, reader.Open("b.mxf", &second));
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_EQ(2, reader.GetDuration());
    EXPECT_EQ(0, reader.Close());
    EXPECT_FALSE(second.IsOpened());
    EXPECT_EQ(1, second.Count(Op::kClose));
}

TEST_F(ReadMXFOp1b, DestructorCloses) {
    clip.AddPictures(1);
    FaultyStream file(clip.Bytes());
    {
        CReadMXFOp1b other;
        ASSERT_EQ(0, other.Open("a", &file));
    }
    EXPECT_FALSE(file.IsOpened());
}

TEST_F(ReadMXFOp1b, FailingCloseIsLoggedAndCountsAsClosed) {
    OpenClip();
    stream->FailAll(Op::kClose);
    EXPECT_EQ(0, reader.Close());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::Close: FileClose Error."));
    EXPECT_EQ(0, reader.GetDuration());
}

// --- files that are refused ---

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

// --- frames ---

TEST_F(ReadMXFOp1b, FindsEveryPicture) {
    OpenClip();
    for (uint32_t frame = 0; frame < 106; ++frame) {
        ASSERT_EQ(0, reader.GetVideoInfo(frame, video));
        EXPECT_EQ(clip.pictureAt[frame], video.offset);
        EXPECT_EQ((clip.pictures[frame].bytes.size() + 3) / 4 * 4, video.size) << frame;
        VIDEOFRAMEINFOTag byLength;
        ASSERT_EQ(0, reader.GetVideoInfoFiller(frame, byLength));
        EXPECT_EQ(video, byLength);
    }
    EXPECT_EQ(kStatusNotFound, reader.GetVideoInfo(106, video));
    EXPECT_EQ(kStatusNotFound, reader.GetVideoInfoFiller(106, video));
    EXPECT_EQ(kStatusNotFound, reader.GetVideoInfo(0xFFFFFFFF, video));
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectNothingHeld();
}

TEST_F(ReadMXFOp1b, ReadsNothingWhileTheGroupIsHeldAndTwiceForAnother) {
    OpenClip();
    const int opened = stream->CountOfAll();
    for (uint32_t frame = 0; frame < 48; ++frame) EXPECT_EQ(0, reader.GetVideoInfo(frame, video));
    EXPECT_EQ(opened, stream->CountOfAll());
    const int reads = stream->Count(Op::kRead);
    EXPECT_EQ(0, reader.GetVideoInfo(105, video));
    EXPECT_EQ(reads + 2, stream->Count(Op::kRead));
    uint8_t picture[512];
    EXPECT_EQ(0, reader.GetSEIType1(60, picture));
    EXPECT_EQ(reads + 5, stream->Count(Op::kRead)) << "a random frame, and its first bytes";
}

TEST_F(ReadMXFOp1b, HandsOutIndexEntriesAndCodingPositions) {
    clip.AddPictures(50);
    clip.pictures[0].entry = "00 00 C0";
    clip.pictures[1].entry = "01 FF 22";
    clip.pictures[2].entry = "FF FE 33";
    clip.pictures[49].entry = "80 81 3B";
    ASSERT_EQ(0, Open(clip.Bytes()));
    MXFINDEXENTRYTag entry;
    ASSERT_EQ(0, reader.GetVideoIndexEntry(2, entry));
    EXPECT_EQ(-1, entry.temporalOffset);
    EXPECT_EQ(-2, entry.keyFrameOffset);
    EXPECT_EQ(0x33, entry.flags);
    EXPECT_EQ(clip.pictureAt[2] - clip.pictureAt[0], entry.streamOffset);
    EXPECT_EQ(0, reader.GetCodingPosition(0));
    EXPECT_EQ(2, reader.GetCodingPosition(1));
    EXPECT_EQ(1, reader.GetCodingPosition(2));
    EXPECT_EQ(-1, reader.GetCodingPosition(49)) << "128 places before frame 49";
    EXPECT_EQ(-1, reader.GetCodingPosition(50));
    EXPECT_EQ(kStatusNotFound, reader.GetVideoIndexEntry(50, entry));
    ASSERT_EQ(0, reader.GetVideoInfo(49, video));
    EXPECT_EQ(-128, video.temporalOffset);
    EXPECT_EQ(-127, video.keyFrameOffset);
    EXPECT_EQ(0x3B, video.flags);
}

TEST_F(ReadMXFOp1b, FindsTheSoundOfEveryFrame) {
    clip.bytesPerSample = 3;
    OpenClip();
    for (uint32_t frame = 0; frame < 106; ++frame) {
        for (uint32_t channel = 0; channel < 2; ++channel) {
            ASSERT_EQ(0, reader.GetAudioInfo(frame, channel, audio));
            EXPECT_EQ(clip.soundAt[frame / 48][channel], audio.offset);
            EXPECT_EQ(clip.BlockSize(frame / 48), audio.size) << frame;
            EXPECT_EQ(Op1bClip::SampleOf(frame % 48) * 3, audio.position) << frame;
        }
    }
    EXPECT_EQ(96096u * 3, clip.BlockSize(0));
    EXPECT_EQ(20020u * 3, clip.BlockSize(2)) << "10 frames";
    EXPECT_EQ(kStatusInvalidArgument, reader.GetAudioInfo(0, 2, audio));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetAudioInfo(106, 0, audio));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFOp1b, SoundOfFullLastGroupsKeepsItsOwnSize) {
    clip.AddPictures(96);
    ASSERT_EQ(0, Open(clip.Bytes()));
    ASSERT_EQ(0, reader.GetAudioInfo(95, 1, audio));
    EXPECT_EQ(96096u * 2, audio.size);
}

TEST_F(ReadMXFOp1b, SoundEndsWithTheDurationAndPicturesWithTheFile) {
    clip.duration = 90;
    clip.origin = 3;
    clip.AddPictures(98);
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_EQ(0, reader.GetVideoInfo(97, video));
    EXPECT_EQ(0, reader.GetANCInfo(97, anc));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetAudioInfo(90, 0, audio));
    ASSERT_EQ(0, reader.GetAudioInfo(89, 0, audio));
    EXPECT_EQ(clip.soundAt[1][0], audio.offset);
    EXPECT_EQ(clip.BlockSize(1), audio.size);
}

TEST_F(ReadMXFOp1b, ClipWithoutSound) {
    clip.channels = 0;
    OpenClip();
    EXPECT_EQ(0u, reader.GetAudioCh());
    EXPECT_EQ(0, reader.GetAudioDataSize());
    EXPECT_EQ(0u, reader.GetSamplingRate());
    EXPECT_EQ(kStatusFailure, reader.GetAudioInfo(0, 0, audio));
    ASSERT_EQ(0, reader.GetVideoInfo(105, video));
    EXPECT_EQ(clip.pictureAt[105], video.offset);
    ASSERT_EQ(0, reader.GetANCInfo(105, anc));
    EXPECT_EQ(clip.ancAt[105], anc.offset);
}

TEST_F(ReadMXFOp1b, LastGroupMayLackItsSound) {
    clip.soundInLastGroup = false;
    OpenClip();
    EXPECT_EQ(0, reader.GetAudioInfo(95, 1, audio));
    EXPECT_EQ(kStatusFailure, reader.GetAudioInfo(96, 0, audio)) << "the footer is no sound";
    EXPECT_EQ(kStatusFailure, reader.GetAudioInfo(96, 1, audio));
    EXPECT_EQ(0, reader.GetVideoInfo(96, video));
}

TEST_F(ReadMXFOp1b, FindsAncillaryData) {
    OpenClip();
    for (uint32_t frame = 0; frame < 106; ++frame) {
        ASSERT_EQ(0, reader.GetANCInfo(frame, anc));
        const size_t payload = Op1bClip::ANCPayload(frame).size();
        EXPECT_EQ(clip.ancAt[frame], anc.offset);
        EXPECT_EQ(2 + payload, anc.size) << frame;
        EXPECT_EQ(payload > 6 ? 1 : 0, anc.hasData) << frame;
    }
    ASSERT_EQ(0, reader.GetANCInfo(0, anc));
    EXPECT_EQ(2u, anc.size) << "the dummy";
    EXPECT_EQ(0, anc.hasData);
    EXPECT_EQ(kStatusInvalidArgument, reader.GetANCInfo(106, anc));
    ExpectNothingHeld();
}

TEST_F(ReadMXFOp1b, ShortAncillaryPayloadsCountAsNone) {
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    for (const uint8_t size : {uint8_t{8}, uint8_t{9}}) {
        bytes[clip.ancAt[0] - 1] = size;
        ASSERT_EQ(0, Open(bytes));
        ASSERT_EQ(0, reader.GetANCInfo(0, anc));
        EXPECT_EQ(size, anc.size);
        EXPECT_EQ(size - 8, anc.hasData);
    }
}

TEST_F(ReadMXFOp1b, AncillaryLengthsThatCannotBeAreRefused) {
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    Patch(bytes, clip.ancAt[0] - 4, Hex("83 00 01 EC"));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(0, reader.GetANCInfo(0, anc)) << "492 bytes fill the element";
    Patch(bytes, clip.ancAt[0] - 4, Hex("83 00 01 ED"));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(kStatusFailure, reader.GetANCInfo(0, anc));
    Patch(bytes, clip.ancAt[0] - 4, Hex("84 00 00 02"));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(kStatusIoError, reader.GetANCInfo(0, anc));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::GetANCInfo: BERLength Read Error."));
}

TEST_F(ReadMXFOp1b, FillerLengthIsThatOfTheFile) {
    clip.AddPictures(2);
    auto bytes = clip.Bytes();
    Patch(bytes, clip.pictureAt[1] - 4, Hex("83 00 00 11"));
    ASSERT_EQ(0, Open(bytes));
    ASSERT_EQ(0, reader.GetVideoInfoFiller(1, video));
    EXPECT_EQ(17u, video.size);
    const VIDEOFRAMEINFOTag before = video;
    for (const std::string_view field : {"82 00 00 11", "83 FF FF FF"}) {
        Patch(bytes, clip.pictureAt[1] - 4, Hex(field));
        ASSERT_EQ(0, Open(bytes));
        EXPECT_EQ(kStatusIoError, reader.GetVideoInfoFiller(1, video));
        EXPECT_EQ(before, video);
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::GetVideoInfoFiller: BERLength Read Error."));
    }
}

TEST_F(ReadMXFOp1b, IndexEntriesThatLieAreRefused) {
    clip.AddPictures(3);
    const auto original = clip.Bytes();
    const size_t entries = clip.partitions[2].offset + clip.packSize + 20 + 80 + 18 + 12;
    const struct {
        size_t entry;
        std::string_view offset;
        std::vector<uint32_t> bad;
    } rows[] = {
        {1, "00 00 00 00 00 0F FF FF", {0, 1}},                                       // past the group
        {1, "FF FF FF FF FF FF FF FF", {0, 1}}, {1, "00 00 00 00 00 00 00 13", {0}},  // no room for key and length
        {2, "00 00 00 00 00 00 00 00", {1}},                                          // backwards
        {0, "00 00 00 00 00 0F FF FF", {0}},
    };
    for (const auto& row : rows) {
        auto bytes = original;
        Patch(bytes, entries + 11 * row.entry + 3, Hex(row.offset));
        ASSERT_EQ(0, Open(bytes));
        for (const uint32_t frame : row.bad) {
            EXPECT_EQ(kStatusFailure, reader.GetVideoInfo(frame, video)) << row.offset;
            EXPECT_EQ(kStatusFailure, reader.GetVideoInfoFiller(frame, video));
        }
    }
}

TEST_F(ReadMXFOp1b, GroupWithFewerEntriesThanFrames) {
    clip.AddPictures(3);
    auto bytes = clip.Bytes();
    Patch(bytes, clip.partitions[2].offset + clip.packSize + 20 + 80 + 18 + 4, Hex("00 00 00 02"));
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(0, reader.GetVideoInfo(1, video));
    EXPECT_EQ(kStatusFailure, reader.GetVideoInfo(2, video));
    MXFINDEXENTRYTag entry;
    EXPECT_EQ(kStatusFailure, reader.GetVideoIndexEntry(2, entry));
    EXPECT_EQ(-1, reader.GetCodingPosition(2));
}

TEST_F(ReadMXFOp1b, SegmentsWithOddItemsAreRefused) {
    // Slice counts over 16; the first item after the seven fixed ones becomes one.
    clip.AddPictures(1);
    auto bytes = clip.Bytes();
    Patch(bytes, clip.partitions[2].offset + clip.packSize + 20 + 80, Hex("3F 08 00 01 11"));
    ExpectRefused(kStatusFailure, bytes, "GetStartVideoIndex Error.");
}

TEST_F(ReadMXFOp1b, RandomIndexThatLiesInALaterGroup) {
    clip.AddPictures(60);
    const size_t second = 1 + 2 * 4;  // entries: header, then 8 partitions
    for (size_t entry = second; entry < second + 8; ++entry) {
        ASSERT_EQ(0, Open(WithPartition(entry, ~uint64_t{0})));
        const bool ofVideo = entry < second + 2, ofANC = !ofVideo && entry < second + 4;
        EXPECT_EQ(ofVideo ? kStatusFailure : 0, reader.GetVideoInfo(48, video)) << entry;
        EXPECT_EQ(ofANC ? kStatusFailure : 0, reader.GetANCInfo(48, anc)) << entry;
        for (uint32_t channel = 0; channel < 2; ++channel) {
            const bool ofSound = (entry - second) / 2 == 2 + channel;
            EXPECT_EQ(ofSound ? kStatusFailure : 0, reader.GetAudioInfo(48, channel, audio)) << entry;
        }
        EXPECT_EQ(0, reader.GetVideoInfo(47, video)) << "the other group is not hurt";
    }
    ASSERT_EQ(0, Open(WithPartition(second + 1, ~uint64_t{0})));
    EXPECT_EQ(kStatusFailure, reader.GetVideoInfo(48, video));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::GetVideoInfo: GetVideoIndex Error."));
}

TEST_F(ReadMXFOp1b, RandomIndexWithTooFewEntries) {
    clip.AddPictures(60);
    auto bytes = clip.Bytes();
    bytes.resize(bytes.size() - clip.RandomIndex().size());
    clip.partitions.resize(9);
    const auto index = clip.RandomIndex();
    bytes.insert(bytes.end(), index.begin(), index.end());
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(0, reader.GetVideoInfo(47, video));
    EXPECT_EQ(0, reader.GetAudioInfo(47, 1, audio));
    EXPECT_EQ(kStatusFailure, reader.GetVideoInfo(48, video));
    EXPECT_EQ(kStatusFailure, reader.GetANCInfo(48, anc));
    EXPECT_EQ(kStatusFailure, reader.GetAudioInfo(48, 0, audio));
}

TEST_F(ReadMXFOp1b, ReadsThePlayersLayoutAsWell) {
    clip.players = true;
    clip.origin = 2;
    clip.duration = 104;
    OpenClip();
    EXPECT_EQ(104, reader.GetDuration());
    EXPECT_EQ(2, reader.GetOrigin());
    EXPECT_EQ(2u, reader.GetAudioCh());
    EXPECT_EQ(26 * 8008 * 2, reader.GetAudioDataSize());
    EXPECT_EQ(0, reader.GetVideoInfo(105, video));
    EXPECT_EQ(kStatusNotFound, reader.GetVideoInfo(106, video)) << "not the count of the multiple descriptor";
    EXPECT_EQ(0, reader.GetAudioInfo(103, 1, audio));
}

TEST_F(ReadMXFOp1b, OpensTenHoursInAFewReads) {
    // 10 hours at 59.94p; all groups but the first are said to be where the first one is.
    clip.rate = "00 00 EA 60 00 00 03 E9";
    clip.groupFrames = 120;
    clip.bitRate = 50000000;
    clip.channels = 1;
    clip.AddPictures(120);
    clip.duration = 2157840;
    auto bytes = clip.Bytes();
    bytes.resize(bytes.size() - clip.RandomIndex().size());
    const std::vector<Op1bClip::Entry> group(clip.partitions.begin() + 1, clip.partitions.end() - 1);
    const auto footer = clip.partitions.back();
    clip.partitions.pop_back();
    for (size_t i = 1; i < 17982; ++i) clip.partitions.insert(clip.partitions.end(), group.begin(), group.end());
    clip.partitions.push_back(footer);
    ByteVector entries;
    for (const auto& entry : clip.partitions) {
        const auto one = Join({BigEndian(entry.bodySID, 4), BigEndian(entry.offset, 8)});
        entries.insert(entries.end(), one.begin(), one.end());
    }
    const auto index = Packet(kRandomIndexKey, Join({entries, BigEndian(entries.size() + 24, 4)}));
    bytes.insert(bytes.end(), index.begin(), index.end());
    const auto frames = Hex("30 02 00 08");
    const auto at = std::search(bytes.begin(), bytes.end(), frames.begin(), frames.end()) - bytes.begin();
    Patch(bytes, static_cast<size_t>(at) + 4, BigEndian(2157840, 8));

    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(7, stream->Count(Op::kRead));
    EXPECT_EQ(0, reader.GetVideoInfo(2157839, video));
    EXPECT_EQ(clip.pictureAt[119], video.offset);
    EXPECT_EQ(0, reader.GetAudioInfo(2157839, 0, audio));
    EXPECT_EQ(9, stream->Count(Op::kRead));
}

// --- timecode and user bits ---

// An SEI message with a timecode pack and a user bits pack (ITU-T H.264, D.1.6), and the start of a slice.
ByteVector PictureWithPacks() {
    return Hex(
        "00 00 00 01 06 05 24 F7 49 3E B3 D4 00 47 96 86 86 C9 70 7B 64 37 2A 55 4D 49 44"
        "13 FF 12 34 FF 56 08 FF 14 FF A1 A2 FF A3 A4 FF 80 00 00 01 65 88 84 00");
}

TEST_F(ReadMXFOp1b, ReadsTheStartOfAPicture) {
    clip.AddPictures(1);
    clip.pictures.push_back({Hex("01 02 03 04 05"), "00 00 80"});
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    ByteVector area(512, 0x77);
    EXPECT_EQ(0, reader.GetSEIType1(0, area.data()));
    EXPECT_TRUE(SameBytes(std::span(bytes).subspan(clip.pictureAt[0], 512), area));
    EXPECT_EQ(0, reader.GetSEIType1(1, area.data()));
    auto expected = Hex("01 02 03 04 05");
    expected.resize(512);
    EXPECT_TRUE(SameBytes(expected, area));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetSEIType1(0, nullptr));
    EXPECT_EQ(kStatusNotFound, reader.GetSEIType1(2, area.data()));
    stream->FailAll(Op::kRead);
    EXPECT_EQ(kStatusIoError, reader.GetSEIType1(0, area.data()));
    stream->FailAll(Op::kAllocate);
    EXPECT_EQ(kStatusIoError, reader.GetSEIType1(0, area.data()));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFOp1b::GetSEIType1: Read Error.", "CReadMXFOp1b::GetSEIType1: Allocate Error."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFOp1b, ReadsTimecodeAndUserBitsOfThePicture) {
    clip.pictures.push_back({PictureWithPacks()});
    ASSERT_EQ(0, Open(clip.Bytes()));
    CTimecode timecode;
    ASSERT_EQ(0, reader.GetTimecode(0, timecode, SEI_DATA_TYPE1));
    EXPECT_EQ("08:56:34:12", timecode.GetText());
    EXPECT_EQ(VIDEO_STD_23_98P, timecode.GetVideoStd());
    CUsersBit usersBit;
    ASSERT_EQ(0, reader.GetUsersBit(0, usersBit, SEI_DATA_TYPE1));
    uint8_t bits[4];
    usersBit.GetData(bits);
    EXPECT_THAT(bits, ElementsAre(0xA1, 0xA2, 0xA3, 0xA4));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(0, timecode, SEI_DATA_TYPE2));
    EXPECT_EQ(kStatusNotFound, reader.GetUsersBit(0, usersBit, SEI_DATA_TYPE2));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFOp1b::GetTimecode: GetTimecode Error.",
                                         "CReadMXFOp1b::GetUsersBit: GetUsersBit Error."));
    EXPECT_EQ("08:56:34:12", timecode.GetText()) << "a failure leaves it";
}

TEST_F(ReadMXFOp1b, PicturesWithoutTimecode) {
    clip.AddPictures(3);
    clip.pictures[1].entry = "00 FE 22";  // a key frame before the first
    clip.pictures[2].entry = "00 05 22";  // one behind the last
    ASSERT_EQ(0, Open(clip.Bytes()));
    CTimecode timecode;
    CUsersBit usersBit;
    for (uint32_t frame = 0; frame < 4; ++frame) {
        EXPECT_EQ(kStatusNotFound, reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1)) << frame;
        EXPECT_EQ(kStatusNotFound, reader.GetUsersBit(frame, usersBit, SEI_DATA_TYPE1)) << frame;
    }
}

TEST_F(ReadMXFOp1b, PictureTimingIsReadByTheParameterSetOfTheKeyFrame) {
    // A parameter set with HRD parameters (delays of 13 and 7 bits), and picture timing that needs it: 10:09:08;07.
    const auto key =
        Hex("00 00 00 01 67 64 00 0d ac b2 02 83 f6 02 20 00 00 03 00 20 00 00 06 4c 04 00 3d 08 00 0f"
            "42 72 61 80 7c 50 a9 20 00 00 01 65 88 84 00");
    const auto picture = Hex("00 00 00 01 06 01 08 00 28 20 b2 40 72 09 54 80 00 00 01 41 9A 00 00");
    clip.AddPictures(50);
    clip.pictures[2].bytes = key;
    clip.pictures[3] = {picture, "00 FF 22"};
    clip.pictures[4] = {picture, "00 FF 22"};   // its key frame has none
    clip.pictures[49] = {picture, "00 D1 22"};  // 47 frames on, in another group
    ASSERT_EQ(0, Open(clip.Bytes()));
    CTimecode timecode;
    for (const uint32_t frame : {3u, 49u}) {
        timecode = {};
        ASSERT_EQ(0, reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1)) << frame;
        EXPECT_EQ("10:09:08;07", timecode.GetText());
    }
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(4, timecode, SEI_DATA_TYPE1));
    ASSERT_EQ(0, reader.GetVideoInfo(3, video));
    stream->FailNth(Op::kRead, stream->Count(Op::kRead) + 2);
    log.Clear();
    EXPECT_EQ(kStatusIoError, reader.GetTimecode(3, timecode, SEI_DATA_TYPE1)) << "the key frame cannot be read";
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFOp1b::GetSEIType1: Read Error.", "CReadMXFOp1b::GetTimecode: GetTimecode Error."));
}

TEST_F(ReadMXFOp1b, TheKeyFramesParameterSetComesBeforeAGuess) {
    // Delays and offset of 8 bits each; without the parameter set the payload reads as 00:00:01:10.
    const auto key =
        Hex("00 00 00 01 67 64 00 0D AC E8 2C 46 83 44 03 28 19 57 39 D0 50 00 00 00 01 "
            "65 88 84 00 ");
    const auto picture = Hex("00 00 00 01 06 01 09 08 04 08 04 00 20 95 00 40 80 00 00 00 01 41 9A 00 00 ");
    clip.AddPictures(4);
    clip.pictures[0].bytes = key;
    clip.pictures[1] = {picture, "00 FF 22"};
    ASSERT_EQ(0, Open(clip.Bytes()));
    CTimecode timecode;
    ASSERT_EQ(0, reader.GetTimecode(1, timecode, SEI_DATA_TYPE1));
    EXPECT_EQ("10:09:08:00", timecode.GetText());
}

TEST_F(ReadMXFOp1b, TimecodeOfRealPicturesInStoredOrderAndAsShown) {
    const auto essence = LoadTestData("essence/longg25-1080-5994i.264");
    constexpr size_t kStarts[] = {0, 22482, 39040, 51973, 61947};
    clip.rate = "00 00 75 30 00 00 03 E9";
    clip.layout = "01";
    clip.storedHeight = 540;
    clip.groupFrames = 60;
    clip.channels = 0;
    constexpr std::string_view kEntries[] = {"00 00 C0", "01 FF 22", "01 FE 33", "FE FD 33"};
    for (size_t i = 0; i < 4; ++i)
        clip.pictures.push_back({ByteVector(essence.begin() + static_cast<ptrdiff_t>(kStarts[i]),
                                            essence.begin() + static_cast<ptrdiff_t>(kStarts[i + 1])),
                                 kEntries[i]});
    ASSERT_EQ(0, Open(clip.Bytes()));
    constexpr const char* kTimecodes[] = {"03:04:59;25", "03:04:59;28", "03:04:59;26", "03:04:59;27"};
    for (const uint32_t frame : {3u, 2u, 1u, 0u}) {
        CTimecode timecode;
        ASSERT_EQ(0, reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1)) << frame;
        EXPECT_EQ(kTimecodes[frame], timecode.GetText());
    }
    // In the order in which they are shown
    std::vector<std::string> shown;
    for (uint32_t frame = 0; frame < 4; ++frame) {
        CTimecode timecode;
        ASSERT_EQ(0,
                  reader.GetTimecode(static_cast<uint32_t>(reader.GetCodingPosition(frame)), timecode, SEI_DATA_TYPE1));
        shown.push_back(timecode.GetText());
    }
    EXPECT_THAT(shown, ElementsAre("03:04:59;25", "03:04:59;26", "03:04:59;27", "03:04:59;28"));
}

// --- what the header carries ---

ByteVector XMLGroup(const ByteVector& xml) {
    return Packet(kXMLKey, Join({LocalItem("3C 0A", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"),
                                 LocalItem("A0 01", "00"), Hex("A0 02"), BigEndian(xml.size(), 2), xml}));
}
ByteVector ThumbnailGroup(const ByteVector& picture) {
    return Packet(kThumbnailKey, Join({LocalItem("A0 12", "00 50"), LocalItem("A0 13", "00 2D"),
                                       LocalItem("A0 11", "01"), Hex("A0 14"), BigEndian(picture.size(), 2), picture}));
}

TEST_F(ReadMXFOp1b, HandsOutXMLAndThumbnail) {
    const ByteVector xml(300, 'x'), picture(1000, 0x7C);
    clip.AddPictures(1);
    clip.moreSets = Join({Fill(44), XMLGroup(xml), Fill(20), ThumbnailGroup(picture)});
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    const size_t at = clip.moreSetsAt[0] + 44;
    EXPECT_EQ(300u, reader.GetXMLDataSize());
    EXPECT_EQ(static_cast<int64_t>(at + 20 + 20 + 5 + 4), reader.GetXMLOffset());
    ByteVector given(300);
    EXPECT_EQ(0, reader.GetXMLData(given.data()));
    EXPECT_EQ(xml, given);
    EXPECT_EQ(1, reader.GetThumbnailType());
    EXPECT_EQ(80, reader.GetThumbnailWidth());
    EXPECT_EQ(45, reader.GetThumbnailHeight());
    EXPECT_EQ(1000u, reader.GetThumbnailDataSize());
    given.resize(1000);
    EXPECT_EQ(0, reader.GetThumbnailData(given.data()));
    EXPECT_EQ(picture, given);
    EXPECT_EQ(kStatusInvalidArgument, reader.GetXMLData(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetThumbnailData(nullptr));

    MXFKEYTag key;
    std::ranges::copy(Hex(kXMLKey), key.bytes);
    EXPECT_EQ(static_cast<int64_t>(at), reader.GetFrameworkOffset(bytes.data(), key));
    EXPECT_EQ(-1, reader.GetFrameworkOffset(nullptr, key));
    key.bytes[7] = 0x10;
    EXPECT_EQ(-1, reader.GetFrameworkOffset(bytes.data(), key));
}

TEST_F(ReadMXFOp1b, HeaderWithoutXMLAndThumbnail) {
    clip.AddPictures(1);
    const auto bytes = clip.Bytes();
    ASSERT_EQ(0, Open(bytes));
    EXPECT_EQ(0u, reader.GetXMLDataSize());
    EXPECT_EQ(0, reader.GetXMLOffset());
    EXPECT_EQ(-1, reader.GetThumbnailType());
    EXPECT_EQ(0, reader.GetThumbnailWidth());
    uint8_t buffer[1];
    EXPECT_EQ(kStatusNotFound, reader.GetXMLData(buffer));
    EXPECT_EQ(kStatusNotFound, reader.GetThumbnailData(buffer));
}

TEST_F(ReadMXFOp1b, GroupsMayBeEmpty) {
    clip.AddPictures(1);
    clip.moreSets = Join({XMLGroup({}), Packet(kThumbnailKey, {})});
    ASSERT_EQ(0, Open(clip.Bytes()));
    uint8_t buffer[1] = {0x55};
    EXPECT_EQ(0u, reader.GetXMLDataSize());
    EXPECT_EQ(0, reader.GetXMLData(buffer));
    EXPECT_EQ(0, reader.GetThumbnailType());
    EXPECT_EQ(80, reader.GetThumbnailWidth());
    EXPECT_EQ(45, reader.GetThumbnailHeight());
    EXPECT_EQ(0, reader.GetThumbnailData(buffer));
    EXPECT_EQ(0x55, buffer[0]);
}

TEST_F(ReadMXFOp1b, MalformedGroupsAreRefused) {
    clip.AddPictures(1);
    auto leadsOut = XMLGroup(ByteVector(30));
    Patch(leadsOut, 17, Hex("7F FF FF"));
    auto itemLeadsOut = XMLGroup(ByteVector(30));
    Patch(itemLeadsOut, 20 + 20 + 5 + 2, Hex("00 1F"));
    const ByteVector bad[] = {
        leadsOut,
        itemLeadsOut,
        Packet(kXMLKey, Hex("A0 01 00")),
        ThumbnailGroup(ByteVector(16385)),
        Packet(kThumbnailKey, LocalItem("A0 11", "00 01")),
        Packet(kThumbnailKey, LocalItem("A0 12", "50")),
        Packet(kThumbnailKey, LocalItem("A0 13", "00 00 00 2D")),
    };
    for (const auto& group : bad) {
        clip.moreSets = group;
        ExpectRefused(kStatusFailure, clip.Bytes(), "GetMetadata Error.");
    }
}

TEST_F(ReadMXFOp1b, ThumbnailOfTheGreatestSize) {
    clip.AddPictures(1);
    clip.moreSets = ThumbnailGroup(ByteVector(16384));
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_EQ(16384u, reader.GetThumbnailDataSize());
}

TEST_F(ReadMXFOp1b, KnowsDescriptiveMetadata) {
    clip.AddPictures(1);
    clip.moreSets = Packet("06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00", LocalItem("80 01", "65 6E 00"));
    ASSERT_EQ(0, Open(clip.Bytes()));
    EXPECT_TRUE(reader.IsValidDMS());
}

// --- everything that can go wrong ---

TEST_F(ReadMXFOp1b, EveryStreamFailureAtEveryOperationIsReported) {
    clip.channels = 1;
    clip.AddPictures(60);
    clip.pictures[50] = {PictureWithPacks()};
    const auto bytes = clip.Bytes();
    // What a run does; the statuses it got.
    const auto run = [&](FaultyStream& file) {
        std::vector<int32_t> statuses{reader.Open("a", &file)};
        if (statuses[0] != 0) return statuses;
        CTimecode timecode;
        statuses.push_back(reader.GetVideoInfo(47, video));
        statuses.push_back(reader.GetVideoInfoFiller(47, video));
        statuses.push_back(reader.GetANCInfo(47, anc));
        statuses.push_back(reader.GetVideoInfo(48, video));
        statuses.push_back(reader.GetTimecode(50, timecode, SEI_DATA_TYPE1));
        return statuses;
    };
    FaultyStream good(bytes);
    EXPECT_THAT(run(good), testing::Each(0));
    const int calls = good.CountOfAll();
    reader.Close();
    EXPECT_THAT(log.Lines(), IsEmpty());

    for (const Fault fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile}) {
        for (int n = 1; n <= calls + 1; ++n) {
            log.Clear();
            FaultyStream file(bytes);
            file.FailNthOfAll(n, fault);
            const auto statuses = run(file);
            const auto failed = std::ranges::count_if(statuses, [](int32_t status) { return status != 0; });
            EXPECT_EQ(statuses[0] == 0, file.IsOpened()) << n;
            EXPECT_EQ(0, file.LivePieces()) << n;
            EXPECT_EQ(0, file.LiveAllocators()) << n;
            reader.Close();
            // Not every operation can be short, and the end of the file is nothing to a seek.
            EXPECT_EQ(n <= calls, failed > 0) << n << ", fault " << static_cast<int>(fault);
            EXPECT_EQ(n <= calls + 1, !log.Lines().empty()) << n << ": the last is Close";
            EXPECT_FALSE(file.IsOpened()) << n;
        }
    }
    FaultyStream again(bytes);
    EXPECT_THAT(run(again), testing::Each(0)) << "the reader is as good as new";
    reader.Close();
}

TEST_F(ReadMXFOp1b, EveryCutOfAFileEnds) {
    clip.AddPictures(2);
    clip.channels = 1;
    clip.headerSize = 2400;
    for (auto& picture : clip.pictures) picture.bytes.resize(8);
    clip.moreSets = Join({XMLGroup(ByteVector(9)), ThumbnailGroup(ByteVector(9))});
    const auto whole = clip.Bytes();
    ASSERT_EQ(0, Open(whole));
    for (size_t size = 0; size < whole.size(); size += size < clip.headerSize || size + 300 > whole.size() ? 1u : 97u) {
        EXPECT_NE(0, Open(ByteVector(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)))) << size;
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_FALSE(log.Lines().empty());
    }
}

TEST_F(ReadMXFOp1b, EveryByteMayBeWrong) {
    clip.AddPictures(2);
    clip.channels = 1;
    clip.headerSize = 2400;
    for (auto& picture : clip.pictures) picture.bytes = PictureWithPacks();
    clip.moreSets = Join({XMLGroup(ByteVector(9)), ThumbnailGroup(ByteVector(9))});
    const auto whole = clip.Bytes();
    const size_t sound = clip.soundAt[0][0];
    CTimecode timecode;
    for (size_t at = 0; at < whole.size(); ++at) {
        if (at > sound && at + 400 < whole.size()) continue;                                 // samples
        if (at > 0 && whole[at - 1] == 0 && whole[at] == 0 && whole[at + 1] == 0) continue;  // fill
        auto bytes = whole;
        bytes[at] = static_cast<uint8_t>(~bytes[at]);
        if (Open(std::move(bytes)) != 0) continue;
        for (uint32_t frame = 0; frame < 3; ++frame) {
            reader.GetVideoInfoFiller(frame, video);
            reader.GetAudioInfo(frame, 0, audio);
            reader.GetANCInfo(frame, anc);
            reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1);
        }
        ExpectNothingHeld();
    }
}

}  // namespace
}  // namespace kmxf::test
