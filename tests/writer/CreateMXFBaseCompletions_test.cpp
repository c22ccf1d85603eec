#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <span>
#include <vector>

#include "BaseRecording.h"
#include "WriterChecks.h"
#include "support/Completions.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

TEST_F(CreateMXFBase, CompletionsOfTheClientsPiecesGoOnToTheClient) {
    Completions client;
    writer.Open(&stream, true);
    writer.Write(Essence(10), 0);  // before there is a callback: dropped
    EXPECT_EQ(writer.RegisterCallback(&client), kStatusOk);
    stream.FailNth(Op::kWrite, 4, Fault::kBadCompletion);
    writer.Write(Essence(10), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
    writer.Write(Essence(10), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5."));
    writer.Close();
    EXPECT_THAT(client.All(), ElementsAre(Completion{3, 0, 0}, Completion{4, FaultyStream::kBadStatus, 0}));
}

TEST_F(CreateMXFBase, EveryTagButTheWritersOwnGoesToTheClient) {
    Completions client;
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    for (const int32_t tag : {0, 1, 2, 3, -1}) writer.CallbackForWriteComplete(0x123456789ABCDEF0, 0, tag);
    ASSERT_EQ(client.All().size(), 3u);
    EXPECT_EQ(client.All()[1], (Completion{0x123456789ABCDEF0, 0, 3}));
    EXPECT_EQ(client.All()[2].tag, -1);
}

TEST_F(CreateMXFBase, ALaterCallbackReplacesTheEarlierOne) {
    Completions first, second;
    writer.Open(&stream, true);
    writer.RegisterCallback(&first);
    writer.RegisterCallback(&second);
    writer.Write(Essence(10), 0);
    EXPECT_EQ(first.All().size(), 0u);
    EXPECT_EQ(second.All().size(), 1u);
}

TEST_F(CreateMXFBase, ANewRecordingBeginsWithoutACallback) {
    Completions client;
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    writer.Close();
    writer.Open(&stream, true);
    EXPECT_NE(writer.Write(Essence(10), 0), -1);
    EXPECT_TRUE(client.All().empty());
}

TEST_F(CreateMXFBase, StrayCompletionsAreHarmless) {
    writer.CallbackForWriteComplete(1, 0, 1);
    writer.CallbackForWriteComplete(1, -3, 2);
    writer.CallbackForWriteComplete(1, 0, 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-3."));
    writer.Open(&stream, true);
    writer.CallbackForWriteComplete(1, 0, 1);
    EXPECT_EQ(stream.LiveAllocators(), 0);
}

TEST_F(CreateMXFBase, AFailedCompletionFreesTheWritersPieceToo) {
    stream.FailNth(Op::kWrite, 1, Fault::kBadCompletion);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), 10);
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5."));
}

TEST_F(CreateMXFBase, APieceWithoutCompletionIsFreedByClosing) {
    stream.FailNth(Op::kWrite, 1, Fault::kFail);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::WriteStreamPiece: Write Error."));
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, AClientMayFreeItsPieceInTheCompletion) {
    FreeingClient client;
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    for (int i = 1; i <= 3; ++i) {
        client.piece = std::make_unique<CMemoryPiece>(100u);
        EXPECT_EQ(writer.Write(client.piece.get(), 0), 100);
        EXPECT_EQ(client.piece, nullptr);
        EXPECT_EQ(writer.settings_.dataSize, i * 100);
    }
}

TEST_F(CreateMXFBase, AsynchronousCompletionsRunBesideTheClient) {
    Completions client;
    std::vector<std::unique_ptr<Essence>> pieces;
    stream.CompleteAsynchronously(1ms);
    stream.SetClusterSize(65536);
    OpenForAVCIntra();
    writer.RegisterCallback(&client);
    for (int i = 0; i < 20; ++i) {
        pieces.push_back(std::make_unique<Essence>(1000u, 'a' + i));
        EXPECT_EQ(writer.Write(*pieces.back(), 0), 1000);
    }
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(client.All().size(), 20u);
    ASSERT_EQ(stream.Bytes().size(), 32768u + 512 + 20000 + 224);
    EXPECT_EQ(Runs(std::span(stream.Bytes()).first(32768)), "h*32768");
    EXPECT_EQ(Runs(std::span(stream.Bytes()).subspan(33280, 2000)), "a*1000 b*1000");
    EXPECT_EQ(Runs(std::span(stream.Bytes()).last(1224)), "t*1000 F*224");
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectGivenUp();
}

TEST_F(CreateMXFBase, DestructionWaitsForAsynchronousCompletions) {
    Essence piece(1000);
    {
        TestWriter other;
        stream.CompleteAsynchronously(5ms);
        other.Open(&stream, true);
        EXPECT_EQ(other.Write(piece, 0), 1000);
    }
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_EQ(Runs(stream.Bytes()), "H*32768 e*1000");
}

TEST_F(CreateMXFBase, StreamOperationsHoldTheLockAndSettersDoNot) {
    // The stream calls back inside Write, so all this happens while a Write runs.
    LockWatcher client(writer, [this] { return writer.DataSync(); });
    writer.Open(&stream, true);
    writer.RegisterCallback(&client);
    EXPECT_EQ(writer.Write(Essence(10), 0), 10);
    client.ExpectDone();
}

}  // namespace
}  // namespace kmxf::test
