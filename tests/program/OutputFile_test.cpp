#include "OutputFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Program.h"
#include "support/TemporaryFolder.h"

namespace kmxf::program {
namespace {

std::string Content(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}
void Put(const std::filesystem::path& path, const std::string& content) { std::ofstream(path) << content; }

class OutputFiles : public testing::Test {
protected:
    OutputFile& Add(const std::string& name, bool force, bool written) {
        auto& file = *files_.emplace_back(std::make_unique<OutputFile>((folder_.Path() / name).string(), force));
        if (written) Put(file.WorkPath(), "new " + name);
        return file;
    }
    size_t Entries() const {
        const std::filesystem::directory_iterator entries(folder_.Path());
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }

    test::TemporaryFolder folder_;
    std::vector<std::unique_ptr<OutputFile>> files_;
};

TEST_F(OutputFiles, AppearTogetherAndLeaveNothingElse) {
    Put(folder_.Path() / "a", "old a");
    Add("a", true, true);
    Add("b", true, true);
    PublishAll(files_);
    files_.clear();
    EXPECT_EQ(Content(folder_.Path() / "a"), "new a");
    EXPECT_EQ(Content(folder_.Path() / "b"), "new b");
    EXPECT_EQ(Entries(), 2u);
}

TEST_F(OutputFiles, AFailureBringsBackWhatTheyReplaced) {
    Put(folder_.Path() / "a", "old a");
    Put(folder_.Path() / "c", "old c");
    Add("a", true, true);
    Add("b", true, true);
    Add("c", true, false);  // it was never written
    EXPECT_THROW(PublishAll(files_), Failure);
    files_.clear();
    EXPECT_EQ(Content(folder_.Path() / "a"), "old a");
    EXPECT_EQ(Content(folder_.Path() / "c"), "old c");
    EXPECT_EQ(Entries(), 2u);
}

TEST_F(OutputFiles, AFileThatCameUpMeanwhileIsNotOverwritten) {
    Add("a", false, true);
    Put(folder_.Path() / "a", "somebody else's");
    try {
        PublishAll(files_);
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), ExitStatus::kOutput);
        EXPECT_EQ(failure.what(), (folder_.Path() / "a").string() + ": exists; --force overwrites it");
    }
    files_.clear();
    EXPECT_EQ(Content(folder_.Path() / "a"), "somebody else's");
    EXPECT_EQ(Entries(), 1u);
}

}  // namespace
}  // namespace kmxf::program
