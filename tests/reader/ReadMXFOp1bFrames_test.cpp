#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "reader/Op1bReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
}  // namespace kmxf::test
