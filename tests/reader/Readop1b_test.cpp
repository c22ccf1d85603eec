#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <thread>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "reader/Op1bFixture.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

// A file of 10 frames, 0 to 9; 4 is shown in place of 3, its key frame is 1.
class Readop1bFunctions : public testing::Test {
protected:
    Readop1bFunctions() {
        clip.AddPictures(10);
        clip.pictures[3].entry = "01 FD 22";
        clip.pictures[4].entry = "FF FD 33";
        clip.pictures[5].entry = "05 00 33";
        clip.pictures[6].entry = "F0 00 33";
        clip.pictures[7].entry = "00 F0 33";
        Write("clip.mxf", clip);
    }
    ~Readop1bFunctions() override { Readop1b(&request, nullptr, 4); }

    void Write(const char* name, Op1bClip& content) {
        const auto bytes = content.Bytes();
        std::ofstream(folder.File(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    int32_t Open(const char* name = "clip.mxf") {
        request = {};
        std::strcpy(request.fileName, folder.File(name).c_str());
        return Readop1b(&request, nullptr, 1);
    }
    int32_t Call(int32_t command, uint32_t frame) {
        request.frame = frame;
        return Readop1b(&request, &info, command);
    }

    LogRecorder log;
    TemporaryFolder folder;
    Op1bClip clip;
    READOP1BREQUESTTag request;
    VIDEOFRAMEINFOTag info;
};

TEST_F(Readop1bFunctions, OpensLooksUpAndCloses) {
    EXPECT_EQ(1, Open());
    EXPECT_EQ(10u, request.duration);
    EXPECT_EQ(2, Call(2, 3));
    EXPECT_EQ(clip.pictureAt[4], info.offset) << "the picture shown in place of frame 3";
    EXPECT_EQ(-1, info.temporalOffset);
    EXPECT_EQ(1u, request.keyFrame);
    EXPECT_EQ(6u, request.nextAnchorFrame) << "(4 / 3 + 1) x 3";
    EXPECT_EQ(10u, request.duration);
    request.mode = 1;
    EXPECT_EQ(2, Call(2, 3));
    EXPECT_EQ(8u, request.nextAnchorFrame) << "(4 / 4 + 1) x 4";
    request.mode = 2;
    EXPECT_EQ(2, Call(2, 3));
    EXPECT_EQ(6u, request.nextAnchorFrame) << "any mode but 1";
    EXPECT_EQ(4, Call(4, 0));
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
}

TEST_F(Readop1bFunctions, GivesInfoOfOneFrame) {
    ASSERT_EQ(1, Open());
    EXPECT_EQ(3, Call(3, 3));
    EXPECT_EQ(clip.pictureAt[3], info.offset);
    EXPECT_EQ(1, info.temporalOffset);
    EXPECT_EQ(-3, info.keyFrameOffset);
    const auto before = info;
    EXPECT_EQ(-3, Call(3, 10));
    EXPECT_EQ(before, info);
    EXPECT_EQ(-3, Readop1b(&request, nullptr, 3));
    EXPECT_EQ(3, Call(3, 9)) << "and the file is still open";
}

TEST_F(Readop1bFunctions, LookingUpBeyondTheDurationClosesTheFile) {
    ASSERT_EQ(1, Open());
    EXPECT_EQ(-20, Call(2, 11));
    EXPECT_EQ(0u, Readop1bHeaderSize());
    EXPECT_EQ(-20, Call(2, 0));
    EXPECT_EQ(-3, Call(3, 0));
}

TEST_F(Readop1bFunctions, LookingUpWhatIsNotThereLeavesTheFileOpen) {
    ASSERT_EQ(1, Open());
    const auto before = info;
    EXPECT_EQ(-21, Call(2, 10)) << "just behind the last frame";
    EXPECT_EQ(-21, Readop1b(&request, nullptr, 2));
    EXPECT_EQ(-22, Call(2, 5)) << "5 + 5";
    EXPECT_EQ(-22, Call(2, 6)) << "6 - 16";
    EXPECT_EQ(-22, Call(2, 7)) << "a key frame before the first frame";
    EXPECT_EQ(-21, (request.frame = 0, Readop1b(&request, nullptr, 2)));
    EXPECT_EQ(before, info);
    EXPECT_EQ(0u, request.keyFrame);
    EXPECT_EQ(0u, request.nextAnchorFrame);
    EXPECT_EQ(2, Call(2, 0));
}

TEST_F(Readop1bFunctions, ReportsFilesThatDoNotOpen) {
    EXPECT_EQ(-1, Open("none.mxf"));
    EXPECT_THAT(log.Lines(), testing::ElementsAre("CReadMXFOp1b::Open: Open Error."));
    std::ranges::fill(request.fileName, 'a');
    EXPECT_EQ(-1, Readop1b(&request, nullptr, 1)) << "no terminating zero";
    EXPECT_EQ(-1, Readop1b(nullptr, &info, 1));
    EXPECT_EQ(-1, Readop1b(nullptr, &info, 4));
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) -> IFileIOFactory* { return nullptr; });
    EXPECT_EQ(-1, Open());
    CFileIOMain::SetFactoryProvider({});
}

TEST_F(Readop1bFunctions, FailedOpenLeavesNoFileOpen) {
    ASSERT_EQ(1, Open());
    EXPECT_EQ(-1, Open("none.mxf"));
    EXPECT_EQ(0u, Readop1bHeaderSize());
    EXPECT_EQ(-3, Call(3, 0));
}

TEST_F(Readop1bFunctions, OpeningAnotherFileClosesTheFirst) {
    Op1bClip other;
    other.AddPictures(3);
    Write("other.mxf", other);
    ASSERT_EQ(1, Open());
    ASSERT_EQ(1, Open("other.mxf"));
    EXPECT_EQ(3u, request.duration);
    EXPECT_EQ(-20, Call(2, 5));
}

TEST_F(Readop1bFunctions, OtherCommandsDoNothing) {
    ASSERT_EQ(1, Open());
    for (const int32_t command : {0, 5, 6, -1, 100}) EXPECT_EQ(5, Call(command, 0)) << command;
    EXPECT_EQ(3, Call(3, 0));
    EXPECT_EQ(4, Call(4, 0));
    EXPECT_EQ(4, Call(4, 0)) << "nothing is open";
}

TEST_F(Readop1bFunctions, HandsOutTheHeader) {
    uint8_t none = 0x77;
    EXPECT_EQ(0u, Readop1bHeaderSize());
    EXPECT_FALSE(Readop1bHeader(&none));
    ASSERT_EQ(1, Open());
    EXPECT_EQ(131072u, Readop1bHeaderSize());
    ByteVector header(131072);
    EXPECT_TRUE(Readop1bHeader(header.data()));
    const auto bytes = clip.Bytes();
    EXPECT_TRUE(SameBytes(std::span(bytes).first(131072), header));
    EXPECT_FALSE(Readop1bHeader(nullptr));
    EXPECT_EQ(4, Call(4, 0));
    EXPECT_FALSE(Readop1bHeader(&none));
    EXPECT_EQ(0x77, none);
}

TEST_F(Readop1bFunctions, ServeSeveralThreads) {
    ASSERT_EQ(1, Open());
    const auto look = [&] {
        READOP1BREQUESTTag own;
        VIDEOFRAMEINFOTag found;
        for (uint32_t i = 0; i < 50; ++i) {
            own.frame = i % 3;
            EXPECT_EQ(2, Readop1b(&own, &found, 2));
            EXPECT_EQ(131072u, Readop1bHeaderSize());
        }
    };
    std::thread other(look);
    look();
    other.join();
}

}  // namespace
}  // namespace kmxf::test
