#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Op1bRecording.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// One stream operation of a recording, and what its failure comes to.
struct Operation {
    std::string call;
    const char* last;                // the writer's operation that ends the recording
    int32_t status;                  // or count that it returns
    const char* message;             // null: nothing comes of it
    const char* function = nullptr;  // where the message comes from, when not from `last`
    bool isOfInnerFrame = false;     // those of a hundred frames do not differ
};

// The recording: three groups of 48 frames, the last one of 2, with two channels.
const Op1bClip kClip = {0x02000058, 0x1000C100, 2, 2, 98};

// All its operations in order, sizes included.
std::vector<Operation> Operations() {
    std::vector<Operation> operations;
    // A piece of the writer's own: two operations in front of its write, one in its completion.
    const auto own = [&](uint32_t size, int tag, const char* last, const char* message) {
        const bool closing = std::string_view(last) == "Close";
        operations.push_back({"GetPieceAllocator", last, closing ? kStatusNoMemory : -1, message});
        operations.push_back({"Allocate " + std::to_string(size), last, closing ? kStatusNoMemory : -1, message});
        operations.push_back({"Write " + std::to_string(size) + " tag " + std::to_string(tag), last,
                              closing ? kStatusIoError : -1, message});
        operations.push_back({"GetPieceAllocator", "Close", kStatusOk, nullptr});
    };
    operations.push_back({"Open clip.mxf 0x102", "Open", kStatusIoError, "Open Error."});
    operations.push_back({"RegisterCallback", "Open", kStatusIoError, "RegisterCallback Error."});
    uint32_t footer = 156;
    for (uint32_t first = 0; first < 98; first += 48) {
        const uint32_t frames = std::min(48u, 98 - first);
        for (uint32_t i = first; i < first + frames; ++i) {
            if (i == 0) own(131072, 1, "WriteVideo", "Write Header Error.");
            if (i == first) own(156, 1, "WriteVideo", "Write VideoPartition Error.");
            const size_t start = operations.size();
            own(20, 1, "WriteVideo", "Write KLData Error.");
            const auto size = static_cast<uint32_t>(kClip.Frame(i).size());
            operations.push_back({"Write " + std::to_string(size) + " tag 4", "WriteVideo", -1, "Write Video Error."});
            if (size % 4 != 0) own(4 - size % 4, 1, "WriteVideo", "Write Video Error.");
            const bool inner = i > first + 1 && i + 1 < first + frames;
            for (size_t j = start; j < operations.size(); ++j) operations[j].isOfInnerFrame = inner;
        }
        // A short group ends with its sound.
        const char* const last = frames == 48 ? "WriteVideo" : "WriteAudio";
        // Segments of 130 + 11 x 48 = 658 and 130 + 11 x 2 = 152 bytes; behind 156 the first has a fill item of 22.
        own(frames == 48 ? 836 : 308, 1, last, "Write VideoPartition Error.");
        own(412 + 512 * frames, 1, last, "Write ANCPartition Error.");
        for (int c = 0; c < 2; ++c) {
            own(156, 1, "WriteAudio", "Write AudioPartition Error.");
            own(24, 1, "WriteAudio", "Write KLData Error.");
            // 48 frames are 12 x 8008 samples, 2 are 4004.
            operations.push_back(
                {frames == 48 ? "Write 192192 tag 4" : "Write 8008 tag 4", "WriteAudio", -1, "Write Audio Error."});
            own(256, 1, "WriteAudio", "Write AudioPartition Error.");
        }
        footer += (frames == 48 ? 658 : 152) + 300;
    }
    own(footer, 2, "Close", "Write Footer Error.");
    own(24 + 12 * 26, 2, "Close", "Write RIP Error.");
    for (const char* call : {"GetPieceAllocator", "Allocate 131072", "Seek 0 0", "Read 131072"}) {
        operations.push_back({call, "Close", kStatusIoError, "Read First Cluster Error."});
    }
    for (const char* call : {"Seek 0 0", "Write 131072 tag 1"}) {
        operations.push_back({call, "Close", kStatusIoError, "Write Header Error."});
    }
    operations.push_back({"GetPieceAllocator", "Close", kStatusOk, nullptr});
    operations.push_back({"Close", "Close", kStatusOk, "FileClose Error.", "CCreateMXFOp1b::FileClose"});
    return operations;
}

// Makes the recording and ends it with the first operation of the writer that fails.
class Recording {
public:
    Recording() {
        for (uint32_t i = 0; i < kClip.frames; ++i) frames_.push_back(pieces_.Piece(kClip.Frame(i)));
        for (const uint32_t frames : {48u, 2u}) sounds_.push_back(pieces_.Piece(kClip.Sound(0, frames, 0)));
    }
    // Returns what the last operation returned, and names it.
    int32_t Run(CCreateMXFOp1b& writer, FaultyStream& stream, std::string* last) {
        SetFormat(writer, kClip);
        *last = "Open";
        if (const int32_t status = writer.Open("clip.mxf", &stream); status != kStatusOk) return status;
        for (uint32_t i = 0; i < kClip.frames; ++i) {
            *last = "WriteVideo";
            if (const int32_t count = writer.WriteVideo(frames_[i], 0, 0, 0); count < 0) return count;
            if (i % 48 != 47 && i != 97) continue;
            *last = "WriteAudio";
            for (uint8_t c = 0; c < 2; ++c) {
                if (const int32_t count = writer.WriteAudio(sounds_[i == 97], c); count < 0) return count;
            }
        }
        *last = "Close";
        return writer.Close();
    }

private:
    KeptPieces pieces_;
    std::vector<StreamPiece*> frames_, sounds_;
};

class EveryOp1bOperation : public testing::Test {
protected:
    // The operation of a call; nothing for one that the stream's own thread makes as well.
    static std::optional<Op> OpOf(std::string_view call) {
        constexpr std::pair<std::string_view, Op> kOps[] = {
            {"Open", Op::kOpen},         {"RegisterCallback", Op::kRegisterCallback},
            {"Allocate", Op::kAllocate}, {"Write", Op::kWrite},
            {"Seek", Op::kSeek},         {"Read", Op::kRead},
            {"Close", Op::kClose}};
        for (const auto& [name, op] : kOps) {
            if (call.starts_with(name)) return op;
        }
        return std::nullopt;
    }
    void FailEach(Fault fault, bool asynchronous) {
        const auto operations = Operations();
        for (size_t i = 0; i < operations.size(); ++i) {
            const Operation& each = operations[i];
            const bool isWrite = each.call.starts_with("Write");
            if ((fault != Fault::kFail && !isWrite) || each.isOfInnerFrame) continue;
            SCOPED_TRACE(each.call + ", operation " + std::to_string(i + 1));
            FaultyStream stream;
            if (asynchronous) {
                // Completions come when they like: only calls of the client's thread can be numbered.
                const auto op = OpOf(each.call);
                if (!op) continue;
                const auto n =
                    std::count_if(operations.begin(), operations.begin() + static_cast<std::ptrdiff_t>(i + 1),
                                  [&](const Operation& other) { return OpOf(other.call) == op; });
                stream.CompleteAsynchronously();
                stream.FailNth(*op, static_cast<int>(n), fault);
            } else {
                stream.FailNthOfAll(static_cast<int>(i) + 1, fault);
            }
            log.Clear();
            std::string last;
            const int32_t result = recording.Run(writer, stream, &last);
            const bool accepted = fault == Fault::kBadCompletion;
            EXPECT_EQ(last, accepted ? "Close" : each.last);
            EXPECT_EQ(result, accepted ? kStatusOk : each.status);
            if (!asynchronous) {
                EXPECT_EQ(stream.Calls().at(i), each.call);
            }
            std::vector<std::string> lines;
            if (isWrite && fault != Fault::kFail) {
                lines.push_back("CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error.");
            }
            if (each.message != nullptr && !accepted) {
                const auto function = each.function ? each.function : "CCreateMXFOp1b::" + std::string(each.last);
                lines.push_back(function + ": " + each.message);
            }
            EXPECT_THAT(log.Lines(), testing::UnorderedElementsAreArray(lines));
            EXPECT_FALSE(writer.IsOpened());
            ExpectClosedAndNothingHeld(stream);
            if (HasFailure()) return;
        }
    }

    LogRecorder log;
    Recording recording;
    CCreateMXFOp1b writer;  // one for all: a failure does not spoil it
};

TEST_F(EveryOp1bOperation, WithoutFailureIsAsListed) {
    for (const bool asynchronous : {false, true}) {
        FaultyStream stream;
        if (asynchronous) stream.CompleteAsynchronously();
        std::string last;
        EXPECT_EQ(recording.Run(writer, stream, &last), kStatusOk);
        EXPECT_EQ(last, "Close");
        EXPECT_EQ(stream.LivePieces(), 0);
        if (asynchronous) continue;
        std::vector<std::string> calls;
        for (const Operation& each : Operations()) calls.push_back(each.call);
        EXPECT_EQ(stream.Calls(), calls);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(EveryOp1bOperation, FailingIsReportedAndLeavesNothing) { FailEach(Fault::kFail, false); }
TEST_F(EveryOp1bOperation, FailingWithACompletionIsReportedAndLeavesNothing) { FailEach(Fault::kFailCompleted, false); }
TEST_F(EveryOp1bOperation, ShortWritesAreFailures) { FailEach(Fault::kShort, false); }
TEST_F(EveryOp1bOperation, AcceptedWritesThatFailLaterAreLogged) { FailEach(Fault::kBadCompletion, false); }
TEST_F(EveryOp1bOperation, FailingOnAnAsynchronousStreamIsReportedAndLeavesNothing) {
    for (const Fault fault : {Fault::kFail, Fault::kFailCompleted, Fault::kShort, Fault::kBadCompletion}) {
        FailEach(fault, true);
    }
}

TEST_F(EveryOp1bOperation, AnAllocatorThatIsMissingOnceLeavesNothing) {
    for (int n = 1; n <= 60; ++n) {
        SCOPED_TRACE(n);
        FaultyStream stream;
        stream.CompleteAsynchronously();
        stream.FailNth(Op::kGetPieceAllocator, n);
        std::string last;
        recording.Run(writer, stream, &last);  // whether the client or a completion asked for it decides what comes
        EXPECT_FALSE(writer.IsOpened());
        ExpectNothingHeld(stream);
    }
}

TEST_F(EveryOp1bOperation, AFailingCloseIsLoggedInFrontOfTheFailure) {
    FaultyStream stream;
    stream.FailNth(Op::kWrite, 3);
    stream.FailAll(Op::kClose);
    std::string last;
    EXPECT_EQ(recording.Run(writer, stream, &last), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::FileClose: FileClose Error.",
                                         "CCreateMXFOp1b::WriteVideo: Write KLData Error."));
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(EveryOp1bOperation, AStreamWithoutAllocatorEndsTheRecording) {
    FaultyStream stream;
    stream.FailAll(Op::kGetPieceAllocator);
    std::string last;
    EXPECT_EQ(recording.Run(writer, stream, &last), -1);
    EXPECT_EQ(last, "WriteVideo");
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Write Header Error."));
    EXPECT_FALSE(writer.IsOpened());
}

}  // namespace
}  // namespace kmxf::test
