#include "kmxf/tools/SalvageMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kmxf/core/Status.h"
#include "support/TestData.h"
#include "tools/ClipSalvage.h"
#include "tools/StreamFactory.h"

// Failures of the stream, slow streams and files on disk.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXFOp1b, EveryFailureOfTheStreamIsReportedAndLeavesNothingBehind) {
    const RecordedClip clip{.channels = 1, .frames = 2};
    const Bytes file = Record(clip, false);
    ASSERT_EQ(Run(file), kCompleted);
    const auto calls = stream->Calls();
    const std::string open = "Open " + name;
    const auto writes = static_cast<size_t>(std::ranges::find(calls, open + " 0x2") - calls.begin());
    const std::vector<std::string> end(calls.begin() + At(writes), calls.end());
    const auto footer = std::to_string(GroupStarts(Record(clip, true), 1).back());
    ASSERT_EQ(end.size(), 12u);
    EXPECT_TRUE(end[1].starts_with("Allocate ") && end[2].starts_with("Allocate ")) << "everything before it writes";
    EXPECT_EQ(end[3], "Seek 0 0");
    EXPECT_EQ(end[4], "Write 131072 tag 0");
    EXPECT_EQ(end[6], "Seek " + footer + " 0");

    using Lines = std::vector<std::string>;
    const auto linesOf = [&](size_t call) -> Lines {
        const std::string run = "CSalvageMXFOp1b::Salvage: ", header = "CSalvageMXFOp1b::GetHeaderParam: ";
        const std::string body = "CSalvageMXFOp1b::GetFileParam: ";
        if (call == 0 || call == writes) return {run + "Open Error."};
        if (call == 1) return {run + "Seek Error."};
        if (call <= 5) return {header + "Read Error."};
        if (call + 4 >= writes && call + 1 < writes) return {"CSalvageMXFOp1b::GetStartSEIParam: Read Error."};
        if (call + 1 == writes) return {};  // closed after reading
        if (calls[call].starts_with("Allocate ")) return {run + "Allocate Error."};
        if (call < writes) return {body + "Read Error."};
        if (call < writes + 6) return {run + "Write Header Error."};
        if (call < writes + 9) return {run + "Write Footer Error."};
        return {run + (call < writes + 11 ? "Seek Error." : "Close Error.")};
    };
    for (const Fault fault : {Fault::kFail, Fault::kShort}) {
        for (size_t call = 0; call < calls.size(); ++call) {
            SCOPED_TRACE(testing::Message() << call << " " << calls[call]);
            auto failing = std::make_unique<FaultyStream>(file);
            failing->FailNthOfAll(static_cast<int>(call + 1), fault);
            const Lines lines = linesOf(call);
            const bool goesOn = lines.empty() || lines[0].find("GetStartSEIParam") != std::string::npos;
            EXPECT_EQ(RunOn(std::move(failing)), goesOn ? kCompleted : kFailed);
            EXPECT_EQ(log.Lines(), lines);
            if (call < writes + 4 && !goesOn) {
                EXPECT_TRUE(SameBytes(file, After()));
            }
            EXPECT_TRUE(SameBytes(std::span(file).subspan(kClipHeader),
                                  std::span(After()).subspan(kClipHeader, file.size() - kClipHeader)));
        }
    }
}

TEST_F(SalvageMXFOp1b, WithoutAStreamNothingIsOpened) {
    CSalvageMXFOp1b asked;
    asked.SetFilename("clip.mxf");
    const auto run = [&] {
        Notes told;
        EXPECT_EQ(asked.Salvage(&told), kStatusOk);
        EXPECT_THAT(told.UntilTheEnd(), ElementsAre(kFailed));
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: Open Error."));
        log.Clear();
    };
    {
        const StreamFactory factory(nullptr);
        run();
        EXPECT_EQ(factory.Live(), 0);
    }
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) { return nullptr; });
    run();
    CFileIOMain::SetFactoryProvider({});
}

TEST_F(SalvageMXFOp1b, CutThatFailsIsReported) {
    const RecordedClip clip{.frames = 100};
    Bytes file = Record(clip, false);
    file.resize(file.size() - 3);
    FaultyStream reading(file);
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b asked;
    asked.SetFilename(folder.File("no such file").c_str());
    Notes told;
    ASSERT_EQ(asked.Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: Truncate Error."));
}

TEST_F(SalvageMXFOp1b, WaitsForAStreamThatWritesLater) {
    const RecordedClip clip{.frames = 50};
    auto slow = std::make_unique<FaultyStream>(Record(clip, false));
    slow->CompleteAsynchronously(std::chrono::milliseconds(20));
    ASSERT_EQ(RunOn(std::move(slow)), kCompleted);
    ExpectFrames(clip, 50);
}

TEST_F(SalvageMXFOp1b, SalvagesAndCutsAFileOnDisk) {
    const RecordedClip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    const Bytes cut = First(closed, starts[2] - 5000);
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(cut.data()), static_cast<std::streamsize>(cut.size()));
    salvager = std::make_unique<CSalvageMXFOp1b>();
    ASSERT_TRUE(salvager->SetFilename(name.c_str()));
    Notes told;
    ASSERT_EQ(salvager->Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_TRUE(salvager->IsCompletedFile());
    const Bytes after = LoadFile(name);
    EXPECT_LT(after.size(), cut.size());
    EXPECT_EQ(NumberAt(after, 44, 8), starts[1]);
    const size_t overall = NumberAt(after, after.size() - 4, 4);
    EXPECT_EQ(overall, 24u + 12 * (2 + 8));
    stream = std::make_unique<FaultyStream>(after);
    ExpectFrames(clip, 50);

    Notes again;
    ASSERT_TRUE(salvager->SetFilename(folder.File("no such file").c_str()));
    ASSERT_EQ(salvager->Salvage(&again), kStatusOk);
    EXPECT_EQ(again.UntilTheEnd().back(), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: Open Error."));
    EXPECT_EQ(salvager->GetDuration(), 0) << "of the last run";
}

}  // namespace
}  // namespace kmxf::test
