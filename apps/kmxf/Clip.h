#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "FileInfo.h"
#include "Program.h"

namespace kmxf::program {

// The files of one recording.
struct Clip {
    std::vector<FileInfo> files;  // video first, then audio by name

    const FileInfo* Video() const;

    struct Disagreement {
        std::string key;
        std::vector<nlohmann::ordered_json> values;  // one for each file, in their order; null where it is absent
    };
    // Compares what all files of a clip should say alike.
    std::vector<Disagreement> Disagreements() const;
    nlohmann::ordered_json AgreedValues() const;
};

struct FoundClips {
    std::vector<Clip> clips;
    // kInput when a folder holds MXF files that cannot be read or recognised: they are said, and the others are here.
    ExitStatus status = ExitStatus::kDone;
};

// All clips that the paths name: a file names the whole clip it belongs to, a folder every clip in it. With `only`
// files name themselves. Files belong together by their material UMID. Each clip comes once. Throws Failure when a file
// that was named cannot be read or recognised, or when a folder has no other.
FoundClips FindClips(const std::vector<std::string>& paths, bool only);

}  // namespace kmxf::program
