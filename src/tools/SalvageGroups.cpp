#include <algorithm>
#include <filesystem>
#include <utility>

#include "kmxf/tools/SalvagePlan.h"
#include "tools/MemberName.h"
#include "tools/SalvageHeader.h"
#include "tools/SalvageInput.h"
#include "tools/SalvageOp1b.h"
#include "tools/SalvageOpAtom.h"

// Which files are of one clip.
namespace kmxf {

namespace {

namespace fs = std::filesystem;

bool IsMXF(const fs::directory_entry& entry) {
    const std::string name = FinalName(entry.path().string());
    std::string extension = fs::path(name).extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::error_code error;
    return extension == ".mxf" && !name.starts_with('.') && entry.is_regular_file(error);
}

// What follows the name of a file that a killed writer left: ".part123", empty for any other.
std::string WriterOf(const std::string& path) {
    const std::string name = fs::path(path).filename().string(), final = FinalName(path);
    return name == final ? "" : name.substr(final.size() + 1);
}

}  // namespace

std::vector<std::string> ListSalvageFiles(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
        if (IsMXF(entry)) files.push_back(entry.path().string());
    std::ranges::sort(files, {}, [](const std::string& file) { return std::pair(FinalName(file), file); });
    return files;
}

std::vector<std::vector<std::string>> GroupSalvageFiles(const std::vector<std::string>& paths) {
    struct Track {
        bool picture;
        std::optional<uint32_t> channel;
        std::string name;
        // One file of them is of another clip, as a recording that was killed beside a later one of its name.
        bool Excludes(const Track& other) const {
            return name == other.name || (picture == other.picture && channel && channel == other.channel);
        }
    };
    struct Group {
        std::string name, writer;
        MXFUMIDTag umid;  // zero: no file knows it
        bool alone = false;
        std::vector<std::string> files;
        std::vector<Track> tracks;
    };
    std::vector<Group> groups;
    for (const std::string& path : paths) {
        SalvageInput input(path);
        const SalvageHeader header = ReadSalvageHeader(input);
        const bool isClip = IsOp1bClip(header, input);
        // "TAKE01" is sound of "TAKE", unless it holds pictures. A damaged header may tell neither.
        const bool picture =
            isClip || header.IsPicture() || (!header.IsSound() && FindEssenceFormat(input).has_value());
        const MemberName name = NameOf(path);
        const auto channel = header.channel || picture ? header.channel : name.channel;
        Group own{picture ? StemOf(path) : name.clip,   WriterOf(path), header.materialUMID, isClip, {path},
                  {{picture, channel, FinalName(path)}}};
        const auto fits = [&](const Group& each, bool sameWriter) {
            const bool bothKnown = each.umid != MXFUMIDTag() && own.umid != MXFUMIDTag();
            return !each.alone && !own.alone && (each.writer == own.writer || (bothKnown && !sameWriter)) &&
                   (bothKnown ? each.umid == own.umid : each.name == own.name) &&
                   std::ranges::none_of(each.tracks, [&](const Track& t) { return t.Excludes(own.tracks.front()); });
        };
        auto group = std::ranges::find_if(groups, [&](const Group& each) { return fits(each, true); });
        if (group == groups.end())
            group = std::ranges::find_if(groups, [&](const Group& each) { return fits(each, false); });
        if (group == groups.end()) {
            groups.push_back(std::move(own));
        } else {
            group->files.push_back(path);
            group->tracks.push_back(std::move(own.tracks.front()));
            if (group->umid == MXFUMIDTag()) group->umid = own.umid;
        }
    }
    std::vector<std::vector<std::string>> clips;
    clips.reserve(groups.size());
    for (Group& group : groups) clips.push_back(std::move(group.files));
    return clips;
}

std::vector<std::string> FindSalvageFiles(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    std::vector<std::string> files = ListSalvageFiles(folder.empty() ? "." : folder.string());
    const auto sameFile = [&](const std::string& file) {
        return fs::path(file).filename() == fs::path(path).filename();
    };
    // In the words of the caller.
    for (std::string& file : files) {
        if (sameFile(file)) file = path;
        if (folder.empty()) file = fs::path(file).filename().string();
    }
    if (std::ranges::find(files, path) == files.end()) files.push_back(path);
    for (auto& clip : GroupSalvageFiles(files))
        if (std::ranges::find(clip, path) != clip.end()) return std::move(clip);
    return {path};
}

}  // namespace kmxf
