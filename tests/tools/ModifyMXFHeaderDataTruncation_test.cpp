#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "support/Hex.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/HeaderEditing.h"

// The length of a file on disk.
namespace kmxf::test {
namespace {

class TruncatePelmardTest : public testing::Test {
protected:
    TruncatePelmardTest() { std::ofstream(name) << "0123456789"; }
    ByteVector Contents() const { return LoadFile(name); }

    TemporaryFolder folder;
    const std::string name = folder.File("clip.mxf");
};

TEST_F(TruncatePelmardTest, CutsAFile) {
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 4));
    EXPECT_EQ(Contents(), Text("0123"));
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 4));
    EXPECT_EQ(Contents(), Text("0123"));
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 0));
    EXPECT_EQ(Contents(), Text(""));
}

TEST_F(TruncatePelmardTest, LengthBehindTheEndAddsZeros) {
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 12));
    EXPECT_EQ(Contents(), Join({Text("0123456789"), Hex("00 00")}));
    EXPECT_TRUE(TruncatePelmard(name.c_str(), int64_t{5} << 30));
    EXPECT_EQ(std::filesystem::file_size(name), uintmax_t{5} << 30);
}

TEST_F(TruncatePelmardTest, RefusesWhatCannotBe) {
    EXPECT_FALSE(TruncatePelmard(nullptr, 4));
    EXPECT_FALSE(TruncatePelmard("", 4));
    EXPECT_FALSE(TruncatePelmard(name.c_str(), -1));
    EXPECT_FALSE(TruncatePelmard(name.c_str(), std::numeric_limits<int64_t>::min()));
    EXPECT_FALSE(TruncatePelmard(name.c_str(), std::numeric_limits<int64_t>::max()));
    EXPECT_FALSE(TruncatePelmard(folder.Path().c_str(), 4));
    EXPECT_EQ(Contents(), Text("0123456789"));
}

TEST_F(TruncatePelmardTest, MissingFileIsNotMade) {
    const auto missing = folder.File("missing.mxf");
    EXPECT_FALSE(TruncatePelmard(missing.c_str(), 4));
    EXPECT_FALSE(std::filesystem::exists(missing));
}

}  // namespace
}  // namespace kmxf::test
