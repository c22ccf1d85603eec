#include "StreamBytes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AccessUnits.h"
#include "Program.h"
#include "program/CodedPictures.h"
#include "support/TemporaryFolder.h"

namespace kmxf::program {
namespace {

using namespace coded;
using testing::HasSubstr;

class Mapping : public testing::Test {
protected:
    ~Mapping() override {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    std::unique_ptr<StreamBytes> Map(const Stream& stream) {
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(stream.data()), static_cast<std::streamsize>(stream.size()));
        descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        return MappedStream(descriptor_, stream.size(), path_);
    }

    test::TemporaryFolder folder_;
    std::string path_ = (folder_.Path() / "in.h264").string();
    int descriptor_ = -1;
};

// Pictures of a megabyte and more, so that windows move within them.
Stream LargePictures() {
    Stream stream;
    for (int i = 0; i < 8; ++i) {
        stream = stream + Pictures(i == 0 ? "K0" : "P" + std::to_string(i)) +
                 Stream(1000003 * static_cast<size_t>(i == 3 ? 9 : 1), 0x77);
    }
    return stream;
}

TEST_F(Mapping, GivesTheBytesOfTheFile) {
    const Stream stream = LargePictures();
    AccessUnits units(Map(stream), path_);
    std::vector<AccessUnit> all;
    while (auto unit = units.Next()) all.push_back(std::move(*unit));
    ASSERT_EQ(all.size(), 8u);
    uint64_t end = 0;
    for (const AccessUnit& unit : all) {  // pieces live on behind the window
        EXPECT_EQ(unit.offset, end);
        end += unit.piece->GetSize();
        EXPECT_TRUE(std::equal(unit.piece->GetBuffer(), unit.piece->GetBuffer() + unit.piece->GetSize(),
                               stream.begin() + static_cast<std::ptrdiff_t>(unit.offset)));
    }
    EXPECT_EQ(end, stream.size());
}

TEST_F(Mapping, OfAnEmptyFileHasNoFrames) {
    AccessUnits units(Map({}), path_);
    EXPECT_FALSE(units.Next());
}

TEST_F(Mapping, OfAFileThatBecomesShorterFails) {
    const Stream stream = LargePictures();
    AccessUnits units(Map(stream), path_);
    ASSERT_EQ(::truncate(path_.c_str(), 2000000), 0);
    try {
        while (units.Next()) continue;
        FAIL() << "the bytes are not there";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), ExitStatus::kInput);
        EXPECT_THAT(failure.what(), HasSubstr("cannot be read"));
    }
}

TEST_F(Mapping, OfWhatIsNoFileIsNotThere) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    EXPECT_EQ(MappedStream(ends[0], 100, "pipe"), nullptr);
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
}  // namespace kmxf::program
