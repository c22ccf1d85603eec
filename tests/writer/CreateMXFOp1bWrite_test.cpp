#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Op1bRecording.h"
#include "support/Hex.h"
#include "support/Op1bLayout.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CreateMXFOp1b, TheHeaderComesWithTheFirstFrame) {
    Open(Clip(1));
    EXPECT_EQ(writer.GetCurrentOffset(), 0);
    EXPECT_EQ(WriteVideo(1001), 1004);
    EXPECT_EQ(writer.GetDuration(), 1u);
    EXPECT_EQ(writer.GetCurrentOffset(), 131072 + 140 + 20 + 1004);
    EXPECT_EQ(stream.Bytes().size(), 131072u + 140 + 20 + 1004);
    EXPECT_THAT(stream.Calls(),
                ElementsAre("Open clip.mxf 0x102", "RegisterCallback",  //
                            "GetPieceAllocator", "Allocate 131072", "Write 131072 tag 1", "GetPieceAllocator",
                            "GetPieceAllocator", "Allocate 140", "Write 140 tag 1", "GetPieceAllocator",
                            "GetPieceAllocator", "Allocate 20", "Write 20 tag 1", "GetPieceAllocator",
                            "Write 1001 tag 4",  //
                            "GetPieceAllocator", "Allocate 3", "Write 3 tag 1", "GetPieceAllocator"));
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFOp1b, FramesArePaddedToFourBytes) {
    Open(Clip(5));
    const std::pair<uint32_t, uint32_t> rows[] = {{1001, 1004}, {1002, 1004}, {1003, 1004}, {1004, 1004}, {5, 8}};
    for (const auto& [size, stored] : rows) EXPECT_EQ(WriteVideo(size), static_cast<int32_t>(stored));
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = BodyOf(stream.Bytes());
    for (size_t i = 0; i < 5; ++i) {
        std::vector<uint8_t> expected(rows[i].first, 0xA5);
        expected.resize(rows[i].second);
        EXPECT_TRUE(SameBytes(expected, packets[1 + i].value));
    }
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01  83 00 03 EC"),
                          std::span(stream.Bytes()).subspan(packets[1].offset, 20)));
}

TEST_F(CreateMXFOp1b, AClipOf130FramesHasGroupsOf60And60And10) {
    const Op1bClip clip = Clip(130, 2);
    Open(clip);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.GetDuration(), 130u);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.GetDuration(), 130u);
    Op1bLayout(stream.Bytes(), clip).Check();
    std::vector<uint64_t> durations;
    for (const Packet& packet : BodyOf(stream.Bytes())) {
        if (packet.key == Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00")) break;  // repeated behind the footer
        if (packet.key != Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00")) continue;
        durations.push_back(BigEndian(packet.Item(0x3F0D)));
    }
    EXPECT_THAT(durations, ElementsAre(60, 60, 96096, 96096, 60, 60, 96096, 96096, 10, 10, 16016, 16016));
    EXPECT_EQ(writer.GetCurrentOffset(), static_cast<int64_t>(stream.Bytes().size()));
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, FramesThatCannotBeShownMakeTheOrigin) {
    Op1bClip clip = Clip(130, 1);
    clip.hidden = 3;
    Open(clip);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = HeaderOf(stream.Bytes());
    const auto sequences = SetsOfKind(packets, 0x0F);
    const auto tracks = SetsOfKind(packets, 0x3B);
    ASSERT_EQ(tracks.size(), 8u);  // timecode, picture, ANC, sound in both packages
    constexpr uint64_t kMaterial[] = {130, 130, 130, 208208}, kFile[] = {127, 127, 127, 203404};
    constexpr uint64_t kOrigins[] = {3, 3, 3, 4804};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(BigEndian(sequences[i].Item(0x0202)), kMaterial[i]);
        EXPECT_EQ(BigEndian(sequences[4 + i].Item(0x0202)), kFile[i]);
        EXPECT_EQ(BigEndian(tracks[i].Item(0x4B02)), 0u);
        EXPECT_EQ(BigEndian(tracks[4 + i].Item(0x4B02)), kOrigins[i]);
    }
    EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x28).front().Item(0x3002)), 130u);
}

TEST_F(CreateMXFOp1b, HiddenFramesCountWhereverTheyAre) {
    Open(Clip(4));
    for (const uint8_t flags : {uint8_t{0xC0}, uint8_t{0x3B}, uint8_t{0x33}, uint8_t{0x3B}}) WriteVideo(4, flags);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(BigEndian(SetsOfKind(HeaderOf(stream.Bytes()), 0x3B).back().Item(0x4B02)), 2u);
}

TEST_F(CreateMXFOp1b, FramesNeedAnOpenFileAndAPiece) {
    EXPECT_EQ(WriteVideo(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
    log.Clear();
    Open(Clip(1));
    EXPECT_EQ(writer.WriteVideo(nullptr, 0, 0, 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, AFrameIsAsLongAsItsLengthCanSay) {
    // A piece that is refused for its size: nobody looks at its bytes.
    struct Huge final : StreamPiece {
        explicit Huge(uint32_t s) : size(s) {}
        uint32_t GetSize() override { return size; }
        uint8_t* GetBuffer() override { return nullptr; }
        void CopyIn(uint32_t, const void*, uint32_t) override {}
        uint32_t size;
    };
    for (const uint32_t size : {0xFFFFFDu, 0x1000000u, 0xFFFFFFFFu}) {
        log.Clear();
        Open(Clip(1));
        Huge piece(size);
        EXPECT_EQ(writer.WriteVideo(&piece, 0, 0, 0), -1) << size;
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
        EXPECT_TRUE(stream.Bytes().empty());
        ExpectClosed();
    }
    Open(Clip(1));
    EXPECT_EQ(WriteVideo(0xFFFFFC), 0xFFFFFC);
    EXPECT_TRUE(SameBytes(Hex("83 FF FF FC"), std::span(stream.Bytes()).subspan(131072 + 140 + 16, 4)));
}

TEST_F(CreateMXFOp1b, AnEmptyFrameIsAFrame) {
    Open(Clip(1));
    EXPECT_EQ(WriteVideo(0), 0);
    EXPECT_EQ(writer.GetDuration(), 1u);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(BodyOf(stream.Bytes())[1].value.size(), 0u);
}

TEST_F(CreateMXFOp1b, SoundNeedsAFrameAChannelAndAPiece) {
    struct Row {
        uint8_t channels;
        int frames;
        bool piece;
        uint8_t channel;
    };
    for (const Row& row :
         {Row{0, 1, true, 0}, Row{2, 1, true, 2}, Row{2, 1, true, 255}, Row{2, 0, true, 0}, Row{2, 1, false, 0}}) {
        log.Clear();
        Open(Clip(2, row.channels));
        for (int i = 0; i < row.frames; ++i) WriteVideo();
        EXPECT_EQ(writer.WriteAudio(row.piece ? client.Piece(4) : nullptr, row.channel), -1);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteAudio: Error."));
        ExpectClosed();
    }
    log.Clear();
    EXPECT_EQ(WriteAudio(4, 0), -1);  // not open
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteAudio: Error."));
}

TEST_F(CreateMXFOp1b, AllChannelsOfAGroupHaveOneBodyOffset) {
    const Op1bClip clip = Clip(61, 3);
    Open(clip);
    WriteClip(writer, clip);
    writer.Close();
    std::vector<std::pair<uint64_t, uint64_t>> offsets;  // BodySID, BodyOffset
    for (const Packet& packet : BodyOf(stream.Bytes())) {
        if (packet.key != Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00")) continue;
        const uint64_t sid = BigEndian(std::span(packet.value).subspan(60, 4));
        if (sid >= 3) offsets.push_back({sid, BigEndian(std::span(packet.value).subspan(52, 8))});
    }
    using P = std::pair<uint64_t, uint64_t>;
    // 60 frames have 96096 samples of 2 bytes; keys and lengths do not count.
    EXPECT_THAT(offsets, ElementsAre(P{3, 0}, P{4, 0}, P{5, 0}, P{3, 192192}, P{4, 192192}, P{5, 192192}));
}

TEST_F(CreateMXFOp1b, SoundOfAnotherLengthIsAWarning) {
    const std::pair<uint32_t, const char*> rows[] = {
        {3200 - 8, "CCreateMXFOp1b::SetMXFParam: Audio data size differs from an expected value. Diff = 8."},
        {3200 + 2, "CCreateMXFOp1b::SetMXFParam: Audio data size differs from an expected value. Diff = -2."}};
    for (const auto& [size, line] : rows) {
        log.Clear();
        Open(Clip(1, 2));
        WriteVideo();
        WriteAudio(size, 0);
        WriteAudio(size, 1);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_THAT(log.Lines(), ElementsAre(line));
    }
}

TEST_F(CreateMXFOp1b, ALastGroupWithoutSoundStillHasItsIndex) {
    Open(Clip(61, 1));
    for (int i = 0; i < 60; ++i) WriteVideo();
    WriteAudio(96096 * 2, 0);
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("CCreateMXFOp1b::SetMXFParam: Audio data size differs from an expected value. Diff = 3200."));
    std::vector<uint64_t> sids;
    for (const Packet& packet : BodyOf(stream.Bytes())) {
        if (packet.key == Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00")) {
            sids.push_back(BigEndian(std::span(packet.value).subspan(60, 4)));
        }
    }
    EXPECT_THAT(sids, ElementsAre(1, 0, 2, 0, 3, 0, 1, 0, 2, 0));
    EXPECT_EQ(BigEndian(std::span(BodyOf(stream.Bytes()).back().value).last(4)), 24u + 12 * 12);
}

TEST_F(CreateMXFOp1b, AFullGroupWithoutSoundIsWrittenOnce) {
    Open(Clip(60, 1));
    for (int i = 0; i < 60; ++i) WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(BigEndian(std::span(BodyOf(stream.Bytes()).back().value).last(4)), 24u + 12 * 6);
}

TEST_F(CreateMXFOp1b, NoFrameFollowsAShortGroupThatHasEnded) {
    Open(Clip(2, 1));
    WriteVideo();
    WriteAudio(3200, 0);
    const int64_t offset = writer.GetCurrentOffset();
    EXPECT_EQ(WriteVideo(8, 0x3B), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_EQ(writer.GetCurrentOffset(), offset);
    log.Clear();
    EXPECT_EQ(writer.Close(), kStatusOk);  // and the file is whole
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(BigEndian(SetsOfKind(HeaderOf(stream.Bytes()), 0x3B).back().Item(0x4B02)), 0u);  // the origin
}

}  // namespace
}  // namespace kmxf::test
