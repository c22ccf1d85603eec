#include "Essence.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Program.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"

namespace kmxf::program {
namespace {

constexpr size_t kFrame = 120000;  // of DV 25 at 59.94i
constexpr uint64_t kFrames = 30;   // more than what is looked at first

class EssenceFile : public testing::Test {
protected:
    EssenceFile() { Append(kFrames); }
    void Append(uint64_t frames) {
        const auto bytes = test::LoadTestData("essence/dv25-5994i.dif");
        std::ofstream file(path_, std::ios::binary | std::ios::app);
        for (uint64_t i = 0; i < frames; ++i) {
            file.write(reinterpret_cast<const char*>(bytes.data()), kFrame);
        }
    }

    test::TemporaryFolder folder_;
    std::string path_ = (folder_.Path() / "in.dv").string();
};

TEST_F(EssenceFile, ThatGrowsGivesTheFramesItHadWhenItWasOpened) {
    EssenceInput input(path_, {});
    Append(2);
    std::vector<uint8_t> room((kFrames + 2) * kFrame);
    EXPECT_EQ(input.Read(room), kFrames * kFrame);
    EXPECT_EQ(input.Read(room), 0u);
}

TEST_F(EssenceFile, ThatBecomesShorterFails) {
    EssenceInput input(path_, {});
    std::filesystem::resize_file(path_, 25 * kFrame);
    std::vector<uint8_t> room(kFrames * kFrame);
    try {
        input.Read(room);
        FAIL() << "the bytes are not there";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), ExitStatus::kInput);
        EXPECT_EQ(std::string(failure.what()), path_ + ": became shorter meanwhile (offset 3000000)");
    }
}

}  // namespace
}  // namespace kmxf::program
