#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "Op1bRecording.h"
#include "WriterChecks.h"
#include "support/Completions.h"
#include "support/Op1bLayout.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

TEST_F(CreateMXFOp1b, OnlyTheClientsPiecesReachTheClient) {
    Completions completions;
    EXPECT_EQ(writer.RegisterCallback(&completions), kStatusOk);  // before Open, too
    Open(Clip(2, 1));
    WriteVideo(8);
    WriteVideo(5);
    WriteAudio(3204 * 2, 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    // 1 header, 2 pack, 3 KL, 4 frame, 5 KL, 6 frame, 7 padding, 8 index, 9 ANC, 10 pack, 11 KL, 12 sound.
    EXPECT_THAT(completions.All(), ElementsAre(Completion{4, 0, 4}, Completion{6, 0, 4}, Completion{12, 0, 4}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, AFailedCompletionIsLoggedAndPassedOn) {
    Completions completions;
    Open(Clip(1));
    writer.RegisterCallback(&completions);
    writer.CallbackForWriteComplete(77, -3, 4);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error."));
    writer.CallbackForWriteComplete(78, -4, 1);
    writer.CallbackForWriteComplete(79, 0, 2);
    writer.CallbackForWriteComplete(80, 0, 9);
    EXPECT_THAT(completions.All(), ElementsAre(Completion{77, -3, 4}, Completion{80, 0, 9}));
    EXPECT_EQ(log.Lines().size(), 2u);
    writer.RegisterCallback(nullptr);
    writer.CallbackForWriteComplete(81, 0, 4);
    EXPECT_EQ(completions.All().size(), 2u);
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFOp1b, AClientMayFreeItsPieceInTheCompletion) {
    FreeingClient owner;
    Open(Clip(1, 1));
    writer.RegisterCallback(&owner);
    owner.piece = std::make_unique<CMemoryPiece>(101u);
    EXPECT_EQ(writer.WriteVideo(owner.piece.get(), 0, 0, 0), 104);
    EXPECT_EQ(owner.piece, nullptr);
    owner.piece = std::make_unique<CMemoryPiece>(3200u);
    EXPECT_EQ(writer.WriteAudio(owner.piece.get(), 0), 3200);
    EXPECT_EQ(owner.piece, nullptr);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// Writes the clip through pieces that live until the end of the test.
void WriteKept(CCreateMXFOp1b& writer, const Op1bClip& clip, KeptPieces& pieces) {
    const uint32_t most = clip.Standard().groupFrames;
    for (uint32_t first = 0, group = 0; first < clip.frames; first += most, ++group) {
        const uint32_t frames = std::min(most, clip.frames - first);
        for (uint32_t i = first; i < first + frames; ++i) {
            ASSERT_GE(writer.WriteVideo(pieces.Piece(clip.Frame(i)), clip.TemporalOffset(i), clip.KeyFrameOffset(i),
                                        clip.Flags(i)),
                      0);
        }
        for (uint32_t c = 0; c < clip.channels; ++c) {
            ASSERT_GE(writer.WriteAudio(pieces.Piece(clip.Sound(group, frames, c)), static_cast<uint8_t>(c)), 0);
        }
    }
}

TEST_F(CreateMXFOp1b, AsynchronousCompletionsRunBesideTheClient) {
    Completions completions;
    FaultyStream file;
    file.CompleteAsynchronously();
    const Op1bClip clip = Clip(130, 2);
    SetFormat(writer, clip);
    ASSERT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
    writer.RegisterCallback(&completions);
    WriteKept(writer, clip, client);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(completions.All().size(), 136u);
    Op1bLayout(file.Bytes(), clip).Check();
    ExpectNothingHeld(file);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, DestructionWaitsForAsynchronousCompletions) {
    FaultyStream file;
    file.CompleteAsynchronously(2ms);
    {
        CCreateMXFOp1b other;
        SetFormat(other, Clip(3));
        other.Open("clip.mxf", &file);
        WriteKept(other, Clip(3), client);
    }
    EXPECT_FALSE(file.IsOpened());
    EXPECT_EQ(file.LivePieces(), 0);
    EXPECT_EQ(file.Bytes().size(), 131072u + 140 + 3 * 24);
}

TEST_F(CreateMXFOp1b, StreamOperationsHoldTheLockAndSettersDoNot) {
    // The stream calls back inside Write, so all this happens while a WriteVideo runs.
    LockWatcher watcher(writer, [this] { return writer.Close(); });
    Open(Clip(1));
    writer.RegisterCallback(&watcher);
    EXPECT_EQ(WriteVideo(), 8);
    watcher.ExpectDone();
    ExpectClosed();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
