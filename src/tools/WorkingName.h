#pragma once

#include <filesystem>
#include <string>

namespace kmxf {

// The name that a file has, or would have had when its writer had come to the end: "CLIP.mxf" for ".CLIP.mxf.part123".
inline std::string FinalName(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    const size_t part = name.rfind(".part");
    return name.starts_with('.') && part != std::string::npos && part > 1 ? name.substr(1, part - 1) : name;
}

}  // namespace kmxf
