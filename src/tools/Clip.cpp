#include "kmxf/tools/Clip.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>
#include <tuple>
#include <utility>

#include "kmxf/tools/SalvagePlan.h"
#include "tools/ClipHeader.h"

namespace kmxf {

namespace {

namespace fs = std::filesystem;

template <auto... kMembers>
bool SameIn(const ClipFile& a, const ClipFile& b) {
    return std::tie(a.*kMembers...) == std::tie(b.*kMembers...);
}

struct SharedProperty {
    std::string_view name;
    bool (*same)(const ClipFile&, const ClipFile&);
};
constexpr SharedProperty kSharedProperties[] = {
    {"material_umid", SameIn<&ClipFile::materialUmid>},
    {"package_name", SameIn<&ClipFile::packageName>},
    {"creation_date", SameIn<&ClipFile::creationDate>},
    {"start_timecode", SameIn<&ClipFile::startTimecode, &ClipFile::timecodeBase, &ClipFile::dropFrame>},
    {"drop_frame",
     [](const ClipFile& a, const ClipFile& b) {
         return a.dropFrame == b.dropFrame && (a.timecodeBase == 0) == (b.timecodeBase == 0);
     }},
    {"frame_rate", SameIn<&ClipFile::frameRate>},
    {"duration", SameIn<&ClipFile::duration>},
    {"company", SameIn<&ClipFile::company>},
    {"product", SameIn<&ClipFile::product>},
    {"product_version", SameIn<&ClipFile::productVersion>},
    {"verdict", SameIn<&ClipFile::verdict>},
    {"descriptive_metadata", SameIn<&ClipFile::description>},
};

std::vector<std::string> MxfFilesIn(const fs::path& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        std::string extension = entry.path().extension().string();
        std::ranges::transform(extension, extension.begin(),
                               [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const bool hidden = entry.path().filename().string().starts_with('.');
        std::error_code other;
        if (extension == ".mxf" && !hidden && entry.is_regular_file(other)) files.push_back(entry.path().string());
    }
    if (error) throw ClipError(folder.string() + ": cannot be listed: " + error.message());
    std::ranges::sort(files);
    return files;
}

// Puts files together, in the order of the first of each clip.
std::vector<Clip> Group(std::vector<ClipFile> files) {
    std::vector<Clip> clips;
    for (ClipFile& file : files) {
        const auto clip =
            std::ranges::find(clips, file.recording, [](const Clip& each) { return each.files.front().recording; });
        (clip == clips.end() ? clips.emplace_back() : *clip).files.push_back(std::move(file));
    }
    for (Clip& clip : clips) std::ranges::stable_sort(clip.files, std::ranges::greater(), &ClipFile::isVideo);
    return clips;
}

std::optional<std::string> RecordingOf(const std::string& path, const OpenByteSource& open) try {
    return ReadRecording(*open(path), path);
} catch (const ClipError&) {
    return std::nullopt;
}

// The file itself and those beside it that belong to its clip.
std::vector<std::string> MembersBeside(const std::string& path, const OpenByteSource& open) {
    std::vector<std::string> members{path};
    const auto recording = RecordingOf(path, open);
    if (!recording) return members;
    const fs::path folder = fs::path(path).parent_path();
    for (const std::string& file : MxfFilesIn(folder.empty() ? fs::path(".") : folder))
        if (CanonicalPath(file) != CanonicalPath(path) && RecordingOf(file, open) == recording) members.push_back(file);
    std::ranges::sort(members);
    return members;
}

// The TrackIDs among those of the material packages that as many files hold as `wanted` says.
template <class Wanted>
std::vector<uint32_t> TracksHeld(const std::vector<ClipFile>& files, Wanted wanted) {
    std::set<uint32_t> all;
    std::multiset<uint32_t> held;
    for (const ClipFile& file : files) {
        all.insert(file.tracks.begin(), file.tracks.end());
        held.insert(file.heldTracks.begin(), file.heldTracks.end());
    }
    std::vector<uint32_t> found;
    std::ranges::copy_if(all, std::back_inserter(found), [&](uint32_t track) { return wanted(held.count(track)); });
    return found;
}

}  // namespace

std::span<const std::string_view> GetSharedProperties() {
    static constexpr auto kNames = [] {
        std::array<std::string_view, std::size(kSharedProperties)> names;
        std::ranges::transform(kSharedProperties, names.begin(), &SharedProperty::name);
        return names;
    }();
    return kNames;
}

const ClipFile* Clip::Video() const {
    const auto video = std::ranges::find(files, true, &ClipFile::isVideo);
    return video == files.end() ? nullptr : &*video;
}

std::vector<std::string_view> Clip::Disagreements() const {
    std::vector<std::string_view> names;
    for (const auto& [name, same] : kSharedProperties)
        if (!std::ranges::all_of(files, [&, same = same](const ClipFile& file) { return same(files.front(), file); }))
            names.push_back(name);
    return names;
}

bool Clip::IsByName() const { return files.size() > 1 && files.front().materialUmid == MXFUMIDTag{}; }

std::vector<uint32_t> Clip::MissingTracks() const {
    return TracksHeld(files, [](size_t count) { return count == 0; });
}
std::vector<uint32_t> Clip::DoubleTracks() const {
    return TracksHeld(files, [](size_t count) { return count > 1; });
}

std::vector<Clip> FindClips(std::span<const std::string> paths, bool only, const OpenByteSource& open,
                            const std::function<void(const ClipError&)>& report) {
    std::vector<ClipFile> files;
    std::vector<std::unique_ptr<IByteSource>> sources;
    std::set<std::string> taken;
    const auto isNew = [&](const std::string& path) { return taken.insert(CanonicalPath(path)).second; };
    const auto read = [&](const std::string& path) {
        auto source = open(path);
        files.push_back(ReadClipFileAtOnce(*source, path));
        // Only those that have to be watched stay open.
        if (files.back().verdict.kind != ClipVerdict::Kind::kCutOff) source.reset();
        sources.push_back(std::move(source));
    };
    for (const std::string& path : paths) {
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            for (const std::string& member : only ? std::vector{path} : MembersBeside(path, open))
                if (isNew(member)) read(member);
            continue;
        }
        auto inFolder = MxfFilesIn(path);
        if (inFolder.empty()) inFolder = ListSalvageFiles(path);  // what a writer has left that was stopped
        if (inFolder.empty()) throw ClipError(path + ": holds no MXF files");
        size_t unreadable = 0;
        for (const std::string& file : inFolder) {
            if (!isNew(file)) continue;
            try {
                read(file);
            } catch (const ClipError& problem) {
                if (++unreadable == inFolder.size()) throw;
                report(problem);
            }
        }
    }
    std::vector<WatchedFile> watched;
    for (size_t i = 0; i < files.size(); ++i)
        if (sources[i]) watched.push_back({&files[i], sources[i].get()});
    WatchGrowth(watched);
    return Group(std::move(files));
}

}  // namespace kmxf
