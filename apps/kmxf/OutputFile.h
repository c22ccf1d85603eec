#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// Files that appear under their final name only when they are complete.
namespace kmxf::program {

// A file being written beside its final name. It is removed again unless it is published.
class OutputFile {
public:
    // Throws Failure when the final name is taken and `force` is not set.
    OutputFile(std::string finalPath, bool force);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    const std::string& FinalPath() const { return finalPath_; }
    const std::string& WorkPath() const { return workPath_; }

    // Creates the work file for plain writing; the descriptor is closed with this object.
    int Descriptor();

private:
    friend void PublishAll(std::vector<std::unique_ptr<OutputFile>>& files);
    // Brings the file to the medium and gives it its final name; a file it replaces is set aside.
    void Publish();
    // Takes a published file away again, and puts back what it replaced.
    void Withdraw();

    std::string finalPath_;
    std::string workPath_;
    std::string asidePath_;  // what the final name stood for before; empty: nothing
    bool force_;
    int descriptor_ = -1;
    bool published_ = false;
};

// Gives all files their final names, or none.
void PublishAll(std::vector<std::unique_ptr<OutputFile>>& files);

// Gives a file a name that is not taken yet: 0, or -1 and errno.
int RenameNew(const std::string& from, const std::string& to);

// A folder for outputs. It is made, and those above it, where it is not there; what was made and stays empty goes
// again.
class OutputFolder {
public:
    explicit OutputFolder(const std::string& folder);
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;
    ~OutputFolder();

private:
    std::vector<std::filesystem::path> made_;  // the outermost first
};

}  // namespace kmxf::program
