#include "Clip.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <set>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

namespace {

// What the files of a clip have in common, by their JSON keys.
constexpr const char* kCommonKeys[] = {"material_umid", "package_name",    "creation_date", "start_timecode",
                                       "drop_frame",    "frame_rate",      "duration",      "company",
                                       "product",       "product_version", "verdict",       "descriptive_metadata"};

namespace fs = std::filesystem;

std::vector<std::string> MxfFilesIn(const fs::path& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        std::string extension = entry.path().extension().string();
        std::transform(extension.begin(), extension.end(), extension.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const bool hidden = entry.path().filename().string().starts_with('.');
        std::error_code other;
        if (extension == ".mxf" && !hidden && entry.is_regular_file(other)) files.push_back(entry.path().string());
    }
    if (error) Fail(ExitStatus::kInput, folder.string(), "cannot be listed: " + error.message());
    std::sort(files.begin(), files.end());
    return files;
}

// A recording that was cut off does not know its UMID yet: it is a clip of its own.
bool IsKnown(const MXFUMIDTag& umid) { return !(umid == MXFUMIDTag{}); }

std::string Canonical(const std::string& path) {
    std::error_code error;
    const fs::path whole = fs::weakly_canonical(path, error);
    return error ? path : whole.string();
}

// Puts files together that share a material UMID, in the order of the first of each clip. An OP-1b file is a clip by
// itself.
std::vector<Clip> Group(std::vector<FileInfo> files) {
    std::vector<Clip> clips;
    for (FileInfo& file : files) {
        const auto clip = std::find_if(clips.begin(), clips.end(), [&](const Clip& each) {
            const FileInfo& first = each.files.front();
            return !file.isOp1b && !first.isOp1b && IsKnown(file.materialUmid) &&
                   first.materialUmid == file.materialUmid;
        });
        (clip == clips.end() ? clips.emplace_back() : *clip).files.push_back(std::move(file));
    }
    for (Clip& clip : clips) {
        std::stable_sort(clip.files.begin(), clip.files.end(),
                         [](const FileInfo& a, const FileInfo& b) { return a.isVideo > b.isVideo; });
    }
    return clips;
}

// The file itself and those beside it that belong to its clip.
std::vector<std::string> MembersBeside(const std::string& path) {
    std::vector<std::string> members{path};
    const auto umid = ReadMaterialUmid(path);
    if (!umid || !IsKnown(*umid)) return members;
    const fs::path folder = fs::path(path).parent_path();
    for (const std::string& file : MxfFilesIn(folder.empty() ? fs::path(".") : folder)) {
        if (Canonical(file) != Canonical(path) && ReadMaterialUmid(file) == umid) members.push_back(file);
    }
    std::sort(members.begin(), members.end());
    return members;
}

}  // namespace

const FileInfo* Clip::Video() const {
    const auto video = std::find_if(files.begin(), files.end(), [](const FileInfo& file) { return file.isVideo; });
    return video == files.end() ? nullptr : &*video;
}

std::vector<Clip::Disagreement> Clip::Disagreements() const {
    std::vector<nlohmann::ordered_json> told;
    for (const FileInfo& file : files) told.push_back(file.Json());
    std::vector<Disagreement> disagreements;
    for (const char* key : kCommonKeys) {
        Disagreement found{key, {}};
        for (const auto& json : told) found.values.push_back(json.contains(key) ? json[key] : nlohmann::ordered_json());
        if (std::any_of(found.values.begin(), found.values.end(),
                        [&](const auto& v) { return v != found.values.front(); })) {
            disagreements.push_back(std::move(found));
        }
    }
    return disagreements;
}

nlohmann::ordered_json Clip::AgreedValues() const {
    nlohmann::ordered_json agreed = nlohmann::ordered_json::object();
    const auto disagreements = Disagreements();
    const nlohmann::ordered_json first = files.front().Json();
    for (const char* key : kCommonKeys) {
        const bool disputed =
            std::any_of(disagreements.begin(), disagreements.end(), [&](const auto& d) { return d.key == key; });
        if (!disputed && first.contains(key)) agreed[key] = first[key];
    }
    if (const FileInfo* video = Video(); video != nullptr) {
        const nlohmann::ordered_json json = video->Json();
        for (const char* key : {"codec", "raster", "standard"}) {
            if (json.contains(key)) agreed[key] = json[key];
        }
    }
    agreed["channels"] = std::accumulate(files.begin(), files.end(), uint32_t{0},
                                         [](uint32_t sum, const FileInfo& file) { return sum + file.channels; });
    return agreed;
}

FoundClips FindClips(const std::vector<std::string>& paths, bool only) {
    FoundClips found;
    std::vector<FileInfo> files;
    std::set<std::string> taken;
    const auto isNew = [&](const std::string& path) { return taken.insert(Canonical(path)).second; };
    const auto checkInterrupt = [] {
        if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
    };
    for (const std::string& path : paths) {
        checkInterrupt();
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            for (const std::string& member : only ? std::vector{path} : MembersBeside(path)) {
                if (isNew(member)) files.push_back(ReadFileInfo(member));
            }
            continue;
        }
        const auto inFolder = MxfFilesIn(path);
        if (inFolder.empty()) Fail(ExitStatus::kInput, path, "holds no MXF files");
        size_t unreadable = 0;
        for (const std::string& file : inFolder) {
            checkInterrupt();
            if (!isNew(file)) continue;
            try {
                files.push_back(ReadFileInfo(file));
            } catch (const Failure& failure) {
                if (++unreadable == inFolder.size()) throw;
                Say(failure.what());
                found.status = ExitStatus::kInput;
            }
        }
    }
    found.clips = Group(std::move(files));
    return found;
}

}  // namespace kmxf::program
