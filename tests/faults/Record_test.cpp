#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "faults/Left.h"
#include "faults/Recordings.h"
#include "faults/StreamFaults.h"

namespace kmxf::test {
namespace {

using Make = std::function<std::unique_ptr<Recording>()>;

// What is logged, and told to whom it concerns, while the recording goes on.
bool IsOnlyTold(const std::string& line) {
    return line.find("Write Callback Error.") != line.npos ||
           line.find("CallbackForWriteComplete Error.") != line.npos || line.find("FileClose Error.") != line.npos;
}

constexpr uint32_t kCluster = 65536;  // more than a header: its first unit is read before it is written anew

using Lines = std::map<std::string, std::set<std::string>>;

// What the log says when an operation fails, word for word. The sound writer adds a record for Open, the video writer
// none; `Memory` may fail anywhere.
const Lines kAtomLines = {
    {"Allocate", {"CCreateMXFBase::Close: Allocate Error.", "CCreateMXFBase::Write: Allocate Error."}},
    {"Close", {"CCreateMXFBase::FileClose: FileClose Error."}},
    {"DataSync", {"CCreateMXFBase::DataSync: DataSync Error."}},
    {"GetPieceAllocator", {"CCreateMXFBase::Close: Allocate Error.", "CCreateMXFBase::Write: Allocate Error."}},
    {"Memory",
     {"CCreateMXFAudio::Open: Allocate Error.", "CCreateMXFVideo::Open: Allocate Error.",
      "CCreateMXFBase::Write: Allocate Error.", "CCreateMXFBase::Write: GetHeaderData Error.",
      "CCreateMXFBase::Close: Allocate Error.", "CCreateMXFBase::Close: GetFooterData Error.",
      "CCreateMXFBase::Close: GetHeaderData Error."}},
    {"Open", {"CCreateMXFAudio::Open: Open Error.", "CCreateMXFBase::Open: Open Error."}},
    {"Read", {}},
    {"RegisterCallback", {"CCreateMXFAudio::Open: Open Error.", "CCreateMXFBase::Open: RegisterCallback Error."}},
    {"Seek", {"CCreateMXFBase::Close: Seek Error."}},
    {"Write",
     {"CCreateMXFBase::CallbackForWriteComplete: Write Callback Error. Status:-5.",
      "CCreateMXFBase::WriteStreamPiece: Write Error."}},
};

// The same of a clip: what could not be written, whyever.
const std::set<std::string> kClipWriteLines = {
    "CCreateMXFOp1b::Close: Read First Cluster Error.",
    "CCreateMXFOp1b::Close: Write Footer Error.",
    "CCreateMXFOp1b::Close: Write Header Error.",
    "CCreateMXFOp1b::Close: Write RIP Error.",
    "CCreateMXFOp1b::WriteAudio: Write Audio Error.",
    "CCreateMXFOp1b::WriteAudio: Write AudioPartition Error.",
    "CCreateMXFOp1b::WriteAudio: Write KLData Error.",
    "CCreateMXFOp1b::WriteAudio: Write ANCPartition Error.",
    "CCreateMXFOp1b::WriteAudio: Write VideoPartition Error.",
    "CCreateMXFOp1b::WriteVideo: Write ANCPartition Error.",
    "CCreateMXFOp1b::WriteVideo: Write Header Error.",
    "CCreateMXFOp1b::WriteVideo: Write KLData Error.",
    "CCreateMXFOp1b::WriteVideo: Write Video Error.",
    "CCreateMXFOp1b::WriteVideo: Write VideoPartition Error.",
    "CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error.",
};
const Lines kClipLines = {
    {"Allocate", kClipWriteLines},
    {"Close", {"CCreateMXFOp1b::FileClose: FileClose Error."}},
    {"GetPieceAllocator", kClipWriteLines},
    {"Memory",
     {"CCreateMXFOp1b::Open: Allocate Error.", "CCreateMXFOp1b::WriteVideo: Allocate Error.",
      "CCreateMXFOp1b::WriteAudio: Allocate Error.", "CCreateMXFOp1b::Close: Allocate Error.",
      "CCreateMXFOp1b::WriteVideo: Write Header Error.", "CCreateMXFOp1b::WriteVideo: Write VideoPartition Error.",
      "CCreateMXFOp1b::WriteVideo: Write ANCPartition Error.", "CCreateMXFOp1b::WriteAudio: Write ANCPartition Error.",
      "CCreateMXFOp1b::WriteAudio: Write AudioPartition Error.",
      "CCreateMXFOp1b::WriteAudio: Write VideoPartition Error.", "CCreateMXFOp1b::Close: GetFooterData Error.",
      "CCreateMXFOp1b::Close: GetRandomIndexData Error.", "CCreateMXFOp1b::Close: GetHeaderData Error."}},
    {"Open", {"CCreateMXFOp1b::Open: Open Error."}},
    {"Read", {"CCreateMXFOp1b::Close: Read First Cluster Error."}},
    {"RegisterCallback", {"CCreateMXFOp1b::Open: RegisterCallback Error."}},
    {"Seek", {"CCreateMXFOp1b::Close: Read First Cluster Error.", "CCreateMXFOp1b::Close: Write Header Error."}},
    {"Write", kClipWriteLines},
};

void ExpectLines(const Sweep& sweep, const Lines& expected) {
    for (const auto& [kind, lines] : sweep.Notes()) {
        if (kind.empty()) continue;
        const auto found = expected.find(kind);
        for (const auto& line : lines) {
            EXPECT_TRUE(found != expected.end() && found->second.contains(line)) << kind << ": " << line;
        }
    }
}

struct Clean {
    std::vector<Answer> answers;
    std::vector<std::string> calls;
    Bytes bytes;
};

Clean PlayClean(const Make& make) {
    FaultyStream stream;
    stream.SetClusterSize(kCluster);
    const auto recording = make();
    Play play;
    recording->Record(play, stream);
    EXPECT_THAT(play.Faults(), testing::IsEmpty());
    EXPECT_THAT(play.Log(), testing::IsEmpty());
    for (const Answer& answer : play.Answers()) EXPECT_GE(answer.status, 0) << answer.call;
    return {play.Answers(), stream.Calls(), stream.Bytes()};
}

// One recording with a failure, and one more without by the same writer.
std::vector<std::string> RecordTwice(Sweep& sweep, const std::string& kind, const Make& make, const Clean& clean,
                                     const std::function<void(FaultyStream&)>& fail,
                                     const std::function<std::unique_ptr<FailingMemory>()>& failMemory) {
    std::vector<std::string> faults;
    const auto recording = make();
    FaultyStream stream;
    stream.SetClusterSize(kCluster);
    fail(stream);
    uint32_t confirmed = 0;
    bool lost = false;
    {
        Play play(clean.answers);
        auto memory = failMemory();
        recording->Record(play, stream);
        memory.reset();
        faults = play.Faults();
        const auto lines = play.Log();
        sweep.Note(kind, lines);
        confirmed = recording->FramesConfirmed();
        lost = std::ranges::any_of(lines, [](const auto& line) { return line.find("Callback") != line.npos; });
        const bool told = !lines.empty() && std::ranges::all_of(lines, IsOnlyTold);
        if (!play.Failed() && !told) {
            if (!lines.empty()) faults.push_back("the log has a failure that nobody was told: " + lines.front());
            if (stream.Bytes() != clean.bytes) faults.push_back("all went well, but the file is another one");
        }
    }
    ExpectGivenBack(stream, faults);
    {
        FaultyStream again;
        again.SetClusterSize(kCluster);
        Play play(clean.answers);
        recording->Record(play, again);
        if (play.Failed()) faults.push_back("the writer does not record again: " + play.FailedCall());
        if (again.Bytes() != clean.bytes) faults.push_back("the writer records something else the next time");
    }
    const bool holes = lost && !stream.HasLost();
    for (const auto& fault : SalvageWhatIsLeft(stream.Bytes(), confirmed, holes)) faults.push_back(fault);
    return faults;
}

void SweepStreamOf(const std::string& name, const Make& make, int most, const Lines& lines = kAtomLines) {
    const Clean clean = PlayClean(make);
    Sweep sweep(name + " recording, stream");
    SweepStream(sweep, clean.calls, most, true, [&](const std::string& kind, const auto& set) {
        return RecordTwice(sweep, kind, make, clean, set, [] { return nullptr; });
    });
    ExpectLines(sweep, lines);
}

void SweepMemoryOf(const std::string& name, const Make& make, int most, const Lines& lines = kAtomLines) {
    const Clean clean = PlayClean(make);
    int requests = 0;
    {
        const FailingMemory counting;
        PlayClean(make);
        requests = FailingMemory::Requests();
    }
    Sweep sweep(name + " recording, memory");
    SweepMemory(sweep, requests, most, [&](int n, FailingMemory::Way way) {
        return RecordTwice(
            sweep, "Memory", make, clean, [](FaultyStream&) {},
            [&] { return std::make_unique<FailingMemory>(n, way); });
    });
    ExpectLines(sweep, lines);
}

template <class Kind>
Make Maker() {
    return [] { return std::make_unique<Kind>(); };
}

TEST(RecordFaults, EveryOperationOfTheStreamOfDV) { SweepStreamOf("DV", Maker<DVRecording>(), 1000); }
TEST(RecordFaults, EveryOperationOfTheStreamOfAVCIntra) {
    SweepStreamOf("AVC-Intra", Maker<AVCIntraRecording>(), 1000);
}
TEST(RecordFaults, EveryOperationOfTheStreamOfSound) { SweepStreamOf("sound", Maker<SoundRecording>(), 1000); }
TEST(RecordFaults, EveryOperationOfTheStreamOfAClip) { SweepStreamOf("OP-1b", Maker<ClipRecording>(), 40, kClipLines); }

TEST(RecordFaults, EveryRequestForMemoryOfDV) { SweepMemoryOf("DV", Maker<DVRecording>(), 60); }
TEST(RecordFaults, EveryRequestForMemoryOfAVCIntra) { SweepMemoryOf("AVC-Intra", Maker<AVCIntraRecording>(), 60); }
TEST(RecordFaults, EveryRequestForMemoryOfSound) { SweepMemoryOf("sound", Maker<SoundRecording>(), 60); }
TEST(RecordFaults, EveryRequestForMemoryOfAClip) { SweepMemoryOf("OP-1b", Maker<ClipRecording>(), 50, kClipLines); }

}  // namespace
}  // namespace kmxf::test
