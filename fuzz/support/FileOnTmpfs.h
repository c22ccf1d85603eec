#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/Target.h"

namespace kmxf::fuzz {

// An input as a file, in a folder where nothing else is, for what opens files by itself; both go away with this object.
class FileOnTmpfs {
public:
    FileOnTmpfs(Bytes input, const std::string& name) : path_(Place() / name) {
        std::filesystem::create_directories(path_.parent_path());
        std::ofstream file(path_, std::ios::binary);
        file.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
        Require(file.good(), "a file can be written");
    }
    FileOnTmpfs(const FileOnTmpfs&) = delete;
    FileOnTmpfs& operator=(const FileOnTmpfs&) = delete;
    ~FileOnTmpfs() {
        std::error_code error;
        std::filesystem::remove_all(Place(), error);
    }

    std::string Path() const { return path_.string(); }
    std::string Folder() const { return path_.parent_path().string(); }

private:
    static std::filesystem::path Place() {
        const std::filesystem::path memory = "/dev/shm";
        const auto top = std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path();
        return top / ("kmxf-fuzz-" + std::to_string(getpid()));
    }

    std::filesystem::path path_;
};

}  // namespace kmxf::fuzz
