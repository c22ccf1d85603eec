#pragma once

#include <cctype>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

// How the files of a clip are named: CLIP.mxf, and CLIP00.mxf, CLIP01.mxf, ... for the sound of an OP-Atom clip.
namespace kmxf {

// The name that a file has, or would have had when its writer had come to the end: "CLIP.mxf" for ".CLIP.mxf.part123".
inline std::string FinalName(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    const size_t part = name.rfind(".part");
    return name.starts_with('.') && part != std::string::npos && part > 1 ? name.substr(1, part - 1) : name;
}

inline std::string StemOf(const std::string& path) { return std::filesystem::path(FinalName(path)).stem().string(); }

// "CLIP00": the name of the clip, and the channel of a file that is named as sound.
struct MemberName {
    std::string clip;
    std::optional<uint32_t> channel;
};
inline MemberName NameOf(const std::string& path) {
    const std::string stem = StemOf(path);
    const size_t size = stem.size();
    const auto digit = [&](size_t i) { return std::isdigit(static_cast<unsigned char>(stem[i])) != 0; };
    if (size < 3 || !digit(size - 1) || !digit(size - 2)) return {stem, std::nullopt};
    return {stem.substr(0, size - 2), static_cast<uint32_t>(std::stoul(stem.substr(size - 2)))};
}

}  // namespace kmxf
