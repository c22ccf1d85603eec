#include "Clip.h"

#include <algorithm>
#include <numeric>

namespace kmxf::program {

nlohmann::ordered_json AgreedValues(const Clip& clip) {
    nlohmann::ordered_json agreed = nlohmann::ordered_json::object();
    const auto disputed = clip.Disagreements();
    const nlohmann::ordered_json first = Json(clip.files.front());
    for (const std::string_view key : GetSharedProperties())
        if (first.contains(key) && std::ranges::find(disputed, key) == disputed.end())
            agreed[std::string(key)] = first[std::string(key)];
    if (const FileInfo* video = clip.Video(); video != nullptr) {
        const nlohmann::ordered_json json = Json(*video);
        for (const char* key : {"codec", "raster", "standard"})
            if (json.contains(key)) agreed[key] = json[key];
    }
    if (clip.IsByName()) agreed["together_by_name"] = true;
    agreed["channels"] = std::accumulate(clip.files.begin(), clip.files.end(), uint32_t{0},
                                         [](uint32_t sum, const FileInfo& file) { return sum + file.channels; });
    return agreed;
}

std::vector<Disagreement> Disagreements(const Clip& clip) {
    std::vector<Disagreement> disagreements;
    for (const std::string_view name : clip.Disagreements()) disagreements.push_back({std::string(name), {}});
    for (const FileInfo& file : clip.files) {
        const nlohmann::ordered_json json = Json(file);
        for (Disagreement& each : disagreements) each.values.push_back(json.value(each.key, nlohmann::ordered_json()));
    }
    return disagreements;
}

FoundClips FindClips(const std::vector<std::string>& paths, bool only) try {
    FoundClips found;
    found.clips = kmxf::FindClips(paths, only, OpenSource, [&](const ClipError& error) {
        Say(error.what());
        found.status = ExitStatus::kInput;
    });
    return found;
} catch (const ClipError& error) {
    throw Failure(ExitStatus::kInput, error.what());
}

}  // namespace kmxf::program
