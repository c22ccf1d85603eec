#include "OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

namespace {

void SyncFolderOf(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fsync(descriptor);
    ::close(descriptor);
}

}  // namespace

OutputFile::OutputFile(std::string finalPath, bool force) : finalPath_(std::move(finalPath)), force_(force) {
    const std::filesystem::path path(finalPath_);
    workPath_ = (path.parent_path() / ("." + path.filename().string() + ".part" + std::to_string(::getpid()))).string();
    std::error_code error;
    if (force_ && std::filesystem::is_directory(path, error)) Fail(ExitStatus::kOutput, finalPath_, "is a folder");
    if (!force_ && std::filesystem::exists(std::filesystem::symlink_status(path, error))) {
        Fail(ExitStatus::kOutput, finalPath_, "exists; --force overwrites it");
    }
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (!published_) ::unlink(workPath_.c_str());
}

int OutputFile::Descriptor() {
    if (descriptor_ < 0) {
        descriptor_ = ::open(workPath_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (descriptor_ < 0) Fail(ExitStatus::kOutput, finalPath_, "cannot be created: " + ErrorText(errno));
    }
    return descriptor_;
}

void OutputFile::Publish() {
    if (descriptor_ < 0) descriptor_ = ::open(workPath_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0 || ::fdatasync(descriptor_) != 0) {
        Fail(ExitStatus::kOutput, finalPath_, "cannot be written: " + ErrorText(errno));
    }
    const std::string aside = workPath_ + ".old";
    if (force_ && ::rename(finalPath_.c_str(), aside.c_str()) == 0) asidePath_ = aside;
    // A file that came up meanwhile is not overwritten.
    if (RenameNew(workPath_, finalPath_) != 0) {
        const int error = errno;
        if (!asidePath_.empty()) ::rename(asidePath_.c_str(), finalPath_.c_str());
        asidePath_.clear();
        errno = error;
        Fail(ExitStatus::kOutput, finalPath_,
             errno == EEXIST ? "exists; --force overwrites it" : "cannot be named: " + ErrorText(errno));
    }
    published_ = true;
    SyncFolderOf(finalPath_);
}

void OutputFile::Withdraw() {
    ::unlink(finalPath_.c_str());
    if (!asidePath_.empty()) ::rename(asidePath_.c_str(), finalPath_.c_str());
    asidePath_.clear();
}

void PublishAll(std::vector<std::unique_ptr<OutputFile>>& files) {
    size_t published = 0;
    try {
        for (; published < files.size(); ++published) files[published]->Publish();
    } catch (const Failure&) {
        while (published > 0) files[--published]->Withdraw();
        throw;
    }
    for (const auto& file : files) {
        if (!file->asidePath_.empty()) ::unlink(file->asidePath_.c_str());
    }
}

int RenameNew(const std::string& from, const std::string& to) {
    const int failed = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (failed == 0 || (errno != EINVAL && errno != ENOSYS)) return failed;
    // Network file systems have no such operation: a look must do.
    if (::access(to.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return -1;
    }
    return ::rename(from.c_str(), to.c_str());
}

OutputFolder::OutputFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::path part;
    for (const auto& name : std::filesystem::path(folder)) {
        part /= name;
        if (std::filesystem::create_directory(part, error)) made_.push_back(part);
        if (error) break;
    }
    if (error || !std::filesystem::is_directory(folder, error)) {
        Fail(ExitStatus::kOutput, folder, "cannot be made a folder: " + (error ? error.message() : "it is a file"));
    }
}
OutputFolder::~OutputFolder() {
    std::error_code error;
    while (!made_.empty() && std::filesystem::remove(made_.back(), error)) made_.pop_back();
}

}  // namespace kmxf::program
