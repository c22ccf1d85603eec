#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "FileInfo.h"
#include "Program.h"

// The library's clips, for the user.
namespace kmxf::program {

struct FoundClips {
    std::vector<Clip> clips;
    // kInput when a folder holds MXF files that cannot be read or recognised: they are said, and the others are here.
    ExitStatus status = ExitStatus::kDone;
};

// All clips that the paths name, see kmxf::FindClips. Throws Failure when a file that was named cannot be read or
// recognised, or when a folder has no other.
FoundClips FindClips(const std::vector<std::string>& paths, bool only);

// What the files of a clip say alike, and what follows from them together.
nlohmann::ordered_json AgreedValues(const Clip& clip);
// A value that the files do not say alike: one for each file, in their order; null where it is absent.
struct Disagreement {
    std::string key;
    std::vector<nlohmann::ordered_json> values;
};
std::vector<Disagreement> Disagreements(const Clip& clip);

}  // namespace kmxf::program
