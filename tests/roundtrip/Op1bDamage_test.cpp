// OP-1b clips whose recording failed and files that were damaged: there is a status, and nothing more happens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "roundtrip/Op1bRecording.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"

namespace kmxf::test {
namespace {

// --- streams that fail ---

// Two full groups and one frame more.
constexpr Op1bClip kClip{0x02000058, 0x1000C100, 2, 2, 97};

struct Outcome {
    int calls = 0;  // of the stream
    bool complete = false;
    std::vector<std::string> lines;
};

// Records the clip on a stream and opens what is then in the file.
Outcome RecordOn(FaultyStream& stream) {
    Outcome outcome;
    {
        Op1bClient client(kClip);
        CCreateMXFOp1b writer;
        SetFormat(writer, kClip);
        const LogRecorder log;
        const int32_t opened = writer.Open("clip.mxf", &stream);
        const bool fed = opened == kStatusOk && client.Feed(writer);
        const bool stillOpened = writer.IsOpened();
        EXPECT_TRUE(fed || !stillOpened) << "a failure closes the file";
        const int32_t closed = writer.Close();
        EXPECT_TRUE(stillOpened || closed == kStatusOk) << "there is nothing to close";
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_FALSE(stream.IsOpened());
        // A stream that could not lend an allocator lends it later: the pieces are given back at the end.
        EXPECT_EQ(stream.LivePieces(), 0);
        EXPECT_EQ(stream.LiveAllocators(), 0);
        outcome = {stream.CountOfAll(), fed && closed == kStatusOk, log.Lines()};
    }
    const LogRecorder quiet;
    FaultyStream file(stream.Bytes());
    CReadMXFOp1b reader;
    const bool readable = reader.Open("clip.mxf", &file) == kStatusOk;
    EXPECT_EQ(readable, file.IsOpened());
    AskEverything(reader, {0, 47, 48, 96, 97});
    reader.Close();
    EXPECT_EQ(file.LivePieces(), 0);
    EXPECT_EQ(file.LiveAllocators(), 0);
    return outcome;
}

// What the writer may say of a failing stream.
const std::vector<std::string>& Messages() {
    static const auto kLines = [] {
        std::vector<std::string> lines = {"CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error.",
                                          "CCreateMXFOp1b::FileClose: FileClose Error."};
        for (const char* text : {"Open Error.", "RegisterCallback Error."}) {
            lines.push_back(std::string("CCreateMXFOp1b::Open: ") + text);
        }
        for (const char* text : {"Write Header Error.", "Write VideoPartition Error.", "Write KLData Error.",
                                 "Write Video Error.", "Write ANCPartition Error."}) {
            lines.push_back(std::string("CCreateMXFOp1b::WriteVideo: ") + text);
        }
        for (const char* text : {"Write VideoPartition Error.", "Write ANCPartition Error.",
                                 "Write AudioPartition Error.", "Write KLData Error.", "Write Audio Error."}) {
            lines.push_back(std::string("CCreateMXFOp1b::WriteAudio: ") + text);
        }
        for (const char* text :
             {"Write Footer Error.", "Write RIP Error.", "Read First Cluster Error.", "Write Header Error."}) {
            lines.push_back(std::string("CCreateMXFOp1b::Close: ") + text);
        }
        return lines;
    }();
    return kLines;
}

class Op1bFailures : public testing::TestWithParam<bool> {
protected:
    static void Prepare(FaultyStream& stream) {
        if (GetParam()) stream.CompleteAsynchronously();
    }
};
INSTANTIATE_TEST_SUITE_P(SynchronousAndNot, Op1bFailures, testing::Bool());

TEST_P(Op1bFailures, AnyCallOfTheStreamMayFail) {
    FaultyStream good;
    Prepare(good);
    const Outcome whole = RecordOn(good);
    EXPECT_TRUE(whole.complete);
    EXPECT_THAT(whole.lines, testing::IsEmpty());
    // The frames of a group are alike: there one call in a few stands for the others. The numbers share no factor with
    // those of the calls for a frame.
    const int step = GetParam() ? 31 : 23;
    const auto isMiddle = [&](int n) { return n > 40 && n < whole.calls - 40; };
    for (int n = 1; n <= whole.calls; n += GetParam() || isMiddle(n) ? step : 1) {
        SCOPED_TRACE(n);
        FaultyStream stream;
        Prepare(stream);
        stream.FailNthOfAll(n);
        const Outcome outcome = RecordOn(stream);
        EXPECT_THAT(outcome.lines, testing::IsSubsetOf(Messages()));
        // An allocator that is missing for giving a piece back is asked for again later.
        EXPECT_TRUE(outcome.complete || !outcome.lines.empty());
        if (HasFailure()) return;
    }
}

TEST_P(Op1bFailures, AnyWriteMayFailInEveryWay) {
    FaultyStream good;
    Prepare(good);
    RecordOn(good);
    const int writes = good.Count(Op::kWrite);
    for (const Fault fault : {Fault::kFailCompleted, Fault::kShort, Fault::kBadCompletion}) {
        for (int n = 1; n <= writes; n += GetParam() ? 37 : 17) {
            SCOPED_TRACE(testing::Message() << "write " << n << ", fault " << static_cast<int>(fault));
            FaultyStream stream;
            Prepare(stream);
            stream.FailNth(Op::kWrite, n, fault);
            const Outcome outcome = RecordOn(stream);
            EXPECT_THAT(outcome.lines, testing::IsSubsetOf(Messages()));
            EXPECT_THAT(outcome.lines,
                        testing::Contains("CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error."));
            EXPECT_EQ(outcome.complete, fault == Fault::kBadCompletion) << "a write that was accepted is not a failure";
            if (HasFailure()) return;
        }
    }
}

TEST(Op1bFailures, TheFirstUnitOfTheFileMayBeReadShort) {
    for (const Fault fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile}) {
        FaultyStream stream;
        stream.FailNth(Op::kRead, 1, fault);
        const Outcome outcome = RecordOn(stream);
        EXPECT_FALSE(outcome.complete);
        EXPECT_THAT(outcome.lines, testing::ElementsAre("CCreateMXFOp1b::Close: Read First Cluster Error."));
    }
}

// --- files that are damaged ---

class Op1bDamage : public testing::TestWithParam<bool> {
protected:
    Op1bDamage() {
        CDescriptiveMetadata metadata;
        metadata.SetSceneNumber("1");
        CMemoryFileIO stream;
        CCreateMXFOp1b writer;
        SetFormat(writer, {0x0100007C, 0x1000C100, 1, 2, 2, GetParam()});
        writer.SetDescriptiveMetadata(metadata);
        EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
        EXPECT_EQ(writer.SetThumbnailData(reinterpret_cast<const uint8_t*>("thumb"), 5, 1, 1, 0), kStatusOk);
        // A picture with a timecode (a pack in an SEI message of user data), and one without.
        const auto key =
            Hex("00 00 00 01 06 05 24 F7 49 3E B3 D4 00 47 96 86 86 C9 70 7B 64 37 2A 55 4D 49 44"
                "13 FF 12 34 FF 56 08 FF 14 FF A1 A2 FF A3 A4 FF 80 00 00 01 65 88 00 00 01 65 88 84");
        const auto other = Hex("00 00 00 01 41 9A 00 00 01 41 9A 01");
        CMemoryPiece pictures[] = {{key.data(), static_cast<uint32_t>(key.size())},
                                   {other.data(), static_cast<uint32_t>(other.size())}};
        EXPECT_EQ(writer.WriteVideo(&pictures[0], 0, 0, 0x80), 56);
        EXPECT_EQ(writer.WriteVideo(&pictures[1], 0, -1, 0x22), 12);
        CMemoryPiece sound(3204 * 2);
        EXPECT_EQ(writer.WriteAudio(&sound, 0), 3204 * 2);
        EXPECT_EQ(writer.Close(), kStatusOk);
        file_.Bytes() = stream.GetContents();
    }
    // Opens the file as it is and asks everything; whether it opened.
    bool Ask() {
        CReadMXFOp1b reader;
        const bool opened = reader.Open("clip.mxf", &file_) == kStatusOk;
        EXPECT_EQ(opened, file_.IsOpened());
        AskEverything(reader, {0, 1, 0xFFFFFFFF});
        reader.Close();
        EXPECT_EQ(file_.LivePieces(), 0);
        return opened;
    }
    // Bytes from `begin` to `end`, one in `step`: turned over, or, every other one, set to 0. The other layout has them
    // the other way round. Of fill items only a few.
    void Damage(size_t begin, size_t end, size_t step) {
        auto& bytes = file_.Bytes();
        for (size_t at = begin, turn = GetParam(); at < end; at += step, ++turn) {
            const uint8_t original = bytes[at];
            const auto isZero = [](uint8_t byte) { return byte == 0; };
            const auto here = bytes.begin() + static_cast<std::ptrdiff_t>(at);
            if (std::all_of(here - std::min<std::ptrdiff_t>(2, here - bytes.begin()),
                            here + std::min<std::ptrdiff_t>(3, bytes.end() - here), isZero) &&
                at % 509 >= step)
                continue;
            bytes[at] = turn % 2 == 0 || original == 0 ? static_cast<uint8_t>(~original) : uint8_t{0};
            Ask();
            bytes[at] = original;
            if (HasFailure()) return;
        }
        EXPECT_TRUE(Ask()) << "the file is whole again";
    }
    // Where the file has these bytes, from the `from`th byte on.
    size_t Find(std::string_view hex, size_t from) {
        const auto wanted = Hex(hex);
        const auto& bytes = file_.Bytes();
        const auto found =
            std::search(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), wanted.begin(), wanted.end());
        EXPECT_NE(found, bytes.end());
        return static_cast<size_t>(found - bytes.begin());
    }

    const LogRecorder quiet_;
    FaultyStream file_;
};
INSTANTIATE_TEST_SUITE_P(BothLayouts, Op1bDamage, testing::Bool());

TEST_P(Op1bDamage, BytesOfTheHeaderMayBeWrong) {
    Damage(0, 156, 1);
    Damage(156, 0x20000, 29);  // sets, XML and thumbnail, fill items
}

TEST_P(Op1bDamage, BytesOfTheBodyMayBeWrong) {
    const size_t videoIndex = Find("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00", 0x20000);
    const size_t anc = Find("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01", 0x20000);
    const size_t sound = Find("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01", 0x20000);
    Damage(0x20000, videoIndex, 3);
    Damage(videoIndex, videoIndex + 152, 1);
    Damage(anc, sound + 24, 11);
    Damage(sound + 24 + 3204 * 2, file_.Bytes().size(), 11);
}

TEST_P(Op1bDamage, EveryByteOfTheRandomIndexMayBeWrong) {
    const size_t randomIndex = Find("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00", 0x20000);
    Damage(randomIndex, file_.Bytes().size(), 1);
}

// The layouts take turns: what is cut off is the same in both.
TEST_P(Op1bDamage, AFileCutAnywhereInItsLast2KiBIsRefused) {
    for (int i = 0; i < 2048; ++i) {
        file_.Bytes().pop_back();
        if (i % 2 == GetParam()) {
            EXPECT_FALSE(Ask()) << i;
        }
    }
}

}  // namespace
}  // namespace kmxf::test
