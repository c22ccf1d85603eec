#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "BaseRecording.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A short recording with every stream operation in it. Ends with the first operation that fails.
struct Recording {
    int32_t status = kStatusOk;  // or count
    const char* last = "";       // the operation that ended it

    Recording(TestWriter& writer, FaultyStream& stream, bool rewrite) {
        writer.settings_.compType = COMP_TYPE_AVCI100_1080;
        writer.SetVideoStandard(VIDEO_STD_50I);
        writer.SetRenderingDataSize(40000 - 512);
        const auto done = [&](const char* operation, int32_t result, int32_t expected) {
            last = operation;
            status = result;
            return result != expected;
        };
        if (done("Open", writer.Open(&stream, rewrite), kStatusOk)) return;
        if (done("Write", writer.Write(pieces[0], 0), 1000)) return;
        if (done("DataSync", writer.DataSync(), kStatusOk)) return;
        if (done("ReadBack", writer.ReadBack(pieces[1]), 1512)) return;
        if (done("Write", writer.Write(pieces[2], 0), 40000)) return;
        done("Close", writer.Close(), kStatusOk);
    }

    Essence pieces[3]{Essence(1000, 'a'), Essence(1512, 'b'), Essence(40000, 'c')};
};

struct Failing {
    const char* call;  // the stream operation that fails
    const char* last;
    int32_t status;
    const char* line;  // of the log; null: none
    bool isOfRewriting = false;
};

const char kWriteError[] = "CCreateMXFBase::WriteStreamPiece: Write Error.";

// Each row is one stream operation, in order.
const std::vector<Failing> kRewriting = {
    {"Open  0x102", "Open", kStatusIoError, "CCreateMXFBase::Open: Open Error."},
    {"RegisterCallback", "Open", kStatusIoError, "CCreateMXFBase::Open: RegisterCallback Error."},
    {"GetPieceAllocator", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Allocate 32768", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Write 32768 tag 1", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},  // in the completion
    {"Allocate 512", "Write", -1, "CCreateMXFBase::Write: Allocate Error."},
    {"Write 512 tag 1", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Write 1000 tag 0", "Write", -1, kWriteError},
    {"DataSync", "DataSync", kStatusIoError, "CCreateMXFBase::DataSync: DataSync Error."},
    {"Seek -1512 2", "ReadBack", -1, "CCreateMXFBase::ReadBack: Seek Error."},
    {"Read 1512", "ReadBack", -1, "CCreateMXFBase::ReadBack: Read Error."},
    {"Seek -1512 2", "ReadBack", -1, "CCreateMXFBase::ReadBack: Seek Error."},
    {"Write 40000 tag 0", "Write", -1, kWriteError},
    {"GetPieceAllocator", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Allocate 224", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error."},
    {"Write 224 tag 2", "Close", kStatusIoError, kWriteError},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr},
    {"Seek 0 0", "Close", kStatusIoError, "CCreateMXFBase::Close: Seek Error.", true},
    {"Allocate 65536", "Close", kStatusNoMemory, "CCreateMXFBase::Close: Allocate Error.", true},
    {"Read 65536", "Close", kStatusOk, nullptr, true},  // read again after a sync
    {"Seek 0 0", "Close", kStatusIoError, "CCreateMXFBase::Close: Seek Error.", true},
    {"Write 65536 tag 1", "Close", kStatusIoError, kWriteError, true},
    {"GetPieceAllocator", "Close", kStatusOk, nullptr, true},
    {"Close", "Close", kStatusOk, "CCreateMXFBase::FileClose: FileClose Error."},
};

// A header that is final from the start is not rewritten.
const std::vector<Failing> kRendering = [] {
    auto rows = kRewriting;
    std::erase_if(rows, [](const Failing& row) { return row.isOfRewriting; });
    return rows;
}();

class EveryOperation : public CreateMXFBase {
protected:
    void ExpectNothingLeft(FaultyStream& file) {
        EXPECT_FALSE(writer.IsOpened());
        ExpectClosedAndNothingHeld(file);
        EXPECT_EQ(writer.script_.built, writer.script_.destroyed);
        EXPECT_EQ(writer.settings_.videoStd, 0u);
    }
    // The same writer still makes good files.
    void ExpectUsable() {
        FaultyStream file;
        const Recording again(writer, file, true);
        EXPECT_STREQ(again.last, "Close");
        EXPECT_EQ(again.status, kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), "h*32768 c*40000 F*224");
    }
    void FailEach(const std::vector<Failing>& rows, bool rewrite, Fault fault) {
        for (size_t i = 0; i < rows.size(); ++i) {
            const Failing& row = rows[i];
            SCOPED_TRACE(std::string(row.call) + ", operation " + std::to_string(i + 1));
            const bool isWrite = std::string_view(row.call).starts_with("Write");
            const bool accepted = isWrite && fault == Fault::kBadCompletion;
            FaultyStream file;
            file.SetClusterSize(65536);
            file.FailNthOfAll(static_cast<int>(i) + 1, fault);
            log.Clear();
            const Recording recording(writer, file, rewrite);
            ASSERT_GT(file.CountOfAll(), static_cast<int>(i));
            EXPECT_EQ(file.Calls()[i], row.call);
            EXPECT_STREQ(recording.last, accepted ? "Close" : row.last);
            EXPECT_EQ(recording.status, accepted ? kStatusOk : row.status);
            std::vector<std::string> lines;
            if (isWrite && fault != Fault::kFail) {
                lines.push_back("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.");
            }
            if (row.line != nullptr && !accepted) lines.push_back(row.line);
            EXPECT_THAT(log.Lines(), testing::ElementsAreArray(lines));
            ExpectNothingLeft(file);
            ExpectUsable();
        }
    }
};

TEST_F(EveryOperation, WithoutFailureSucceeds) {
    for (const bool rewrite : {true, false}) {
        FaultyStream file;
        file.SetClusterSize(65536);
        const Recording recording(writer, file, rewrite);
        EXPECT_STREQ(recording.last, "Close");
        EXPECT_EQ(recording.status, kStatusOk);
        EXPECT_EQ(Runs(file.Bytes()), rewrite ? "h*32768 c*40000 F*224" : "H*32768 c*40000 F*224");
        EXPECT_EQ(file.CountOfAll(), static_cast<int>(rewrite ? kRewriting.size() : kRendering.size()));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(EveryOperation, FailingIsReportedAndLeavesNothing) {
    FailEach(kRewriting, true, Fault::kFail);
    FailEach(kRendering, false, Fault::kFail);
}

TEST_F(EveryOperation, FailingWithACompletionIsReportedAndLeavesNothing) {
    FailEach(kRewriting, true, Fault::kFailCompleted);
    FailEach(kRendering, false, Fault::kFailCompleted);
}

TEST_F(EveryOperation, AcceptedWritesThatFailLaterAreLogged) { FailEach(kRewriting, true, Fault::kBadCompletion); }

TEST_F(EveryOperation, ShortWritesAreFailures) {
    for (size_t i = 0; i < kRewriting.size(); ++i) {
        const Failing& row = kRewriting[i];
        if (row.line != kWriteError) continue;
        SCOPED_TRACE(row.call);
        FaultyStream file;
        file.SetClusterSize(65536);
        file.FailNthOfAll(static_cast<int>(i) + 1, Fault::kShort);
        log.Clear();
        const Recording recording(writer, file, true);
        EXPECT_STREQ(recording.last, row.last);
        EXPECT_EQ(recording.status, row.status);
        EXPECT_THAT(
            log.Lines(),
            ElementsAre("CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.", kWriteError));
        ExpectNothingLeft(file);
    }
}

TEST_F(EveryOperation, FailingOnAnAsynchronousStreamLeavesNothing) {
    for (const Fault fault : {Fault::kFail, Fault::kFailCompleted, Fault::kShort, Fault::kBadCompletion}) {
        for (int n = 1; n <= static_cast<int>(kRewriting.size()); ++n) {
            SCOPED_TRACE(n);
            FaultyStream file;
            file.CompleteAsynchronously();
            file.SetClusterSize(65536);
            file.FailNthOfAll(n, fault);
            const Recording recording(writer, file, true);
            writer.Close();  // a short ReadBack is no failure
            ExpectNothingLeft(file);
        }
    }
    ExpectUsable();
}

TEST_F(EveryOperation, AFailingCloseIsLoggedAroundTheFailure) {
    const struct {
        Op op;
        int n;
        std::vector<std::string> lines;
    } rows[] = {
        {Op::kRegisterCallback,
         1,
         {"CCreateMXFBase::Open: RegisterCallback Error.", "CCreateMXFBase::FileClose: FileClose Error."}},
        {Op::kWrite, 1, {kWriteError, "CCreateMXFBase::FileClose: FileClose Error."}},
        {Op::kDataSync,
         1,
         {"CCreateMXFBase::FileClose: FileClose Error.", "CCreateMXFBase::DataSync: DataSync Error."}},
        {Op::kRead, 1, {"CCreateMXFBase::FileClose: FileClose Error.", "CCreateMXFBase::ReadBack: Read Error."}},
        {Op::kSeek, 3, {"CCreateMXFBase::Close: Seek Error.", "CCreateMXFBase::FileClose: FileClose Error."}},
    };
    for (const auto& row : rows) {
        FaultyStream file;
        file.FailNth(row.op, row.n);
        file.FailAll(Op::kClose);
        log.Clear();
        const Recording recording(writer, file, true);
        EXPECT_EQ(log.Lines(), row.lines);
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_EQ(file.LivePieces(), 0);
    }
}

TEST_F(EveryOperation, AStreamThatRunsOutOfAllocatorsEndsTheRecording) {
    FaultyStream file;
    file.FailAll(Op::kGetPieceAllocator);
    const Recording recording(writer, file, true);
    EXPECT_STREQ(recording.last, "Write");
    EXPECT_EQ(recording.status, -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFBase::Write: Allocate Error."));
    ExpectNothingLeft(file);
}

}  // namespace
}  // namespace kmxf::test
