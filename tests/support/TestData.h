#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kmxf::test {

inline std::vector<uint8_t> LoadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot open " + path.string());
    std::vector<uint8_t> bytes(std::filesystem::file_size(path));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

// A file of tests/data.
inline std::filesystem::path TestDataPath(const std::string& name) {
    return std::filesystem::path(KMXF_TEST_DATA) / name;
}
inline std::vector<uint8_t> LoadTestData(const std::string& name) { return LoadFile(TestDataPath(name)); }

}  // namespace kmxf::test
