#include "tools/FileCopy.h"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/SalvageFiles.h"

namespace kmxf::test {
namespace {

constexpr size_t kPiece = 512 << 10;

class FileCopyTest : public testing::Test {
protected:
    Bytes Copied(const std::function<bool(FileCopy&, SalvageInput&)>& work) {
        SalvageInput source(clip_.Put("old", old_));
        FileCopy copy;
        EXPECT_TRUE(copy.Open(clip_.Path("new")));
        EXPECT_TRUE(work(copy, source));
        EXPECT_TRUE(copy.Close());
        return Clip::Get(clip_.Path("new"));
    }

    Clip clip_;
    Bytes old_ = Noise(6 * kPiece + 3, 1);  // more than what goes round
};

TEST_F(FileCopyTest, AFileIsCopiedWhole) {
    EXPECT_EQ(Copied([&](FileCopy& copy, SalvageInput& source) { return copy.Append(source, 0, old_.size()); }), old_);
}

TEST_F(FileCopyTest, WholePiecesLeaveNothingForTheEnd) {
    old_.resize(2 * kPiece);
    EXPECT_EQ(Copied([&](FileCopy& copy, SalvageInput& source) { return copy.Append(source, 0, old_.size()); }), old_);
}

TEST_F(FileCopyTest, NothingMakesAnEmptyFile) {
    EXPECT_EQ(Copied([](FileCopy&, SalvageInput&) { return true; }), Bytes());
}

TEST_F(FileCopyTest, StretchesAndMadeBytesFollowEachOther) {
    const Bytes made = Noise(kPiece + 7, 2);
    Bytes expected(old_.begin() + 5, old_.begin() + 5 + 700000);
    expected.insert(expected.end(), made.begin(), made.end());
    expected.insert(expected.end(), old_.begin() + 1, old_.end());
    EXPECT_EQ(Copied([&](FileCopy& copy, SalvageInput& source) {
                  return copy.Append(source, 5, 700000) && copy.Append(made) && copy.Append(source, 1, old_.size() - 1);
              }),
              expected);
}

TEST_F(FileCopyTest, BytesThatAreNotThereEndIt) {
    SalvageInput source(clip_.Put("old", old_));
    FileCopy copy;
    ASSERT_TRUE(copy.Open(clip_.Path("new")));
    EXPECT_FALSE(copy.Append(source, 0, old_.size() + 1));
    EXPECT_EQ(source.Unreadable(), std::nullopt) << "they are missing, not unreadable";
}

TEST_F(FileCopyTest, AFullMediumIsTold) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device that is always full";
    SalvageInput source(clip_.Put("old", old_));
    FileCopy copy;
    ASSERT_TRUE(copy.Open("/dev/full"));
    const bool taken = copy.Append(source, 0, old_.size());
    EXPECT_FALSE(copy.Close() && taken);
}

TEST_F(FileCopyTest, AFolderThatIsNotThereIsTold) { EXPECT_FALSE(FileCopy().Open(clip_.Path("none/new"))); }

}  // namespace
}  // namespace kmxf::test
