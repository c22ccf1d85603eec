#include <algorithm>
#include <map>

#include "tools/CheckRule.h"

// CL: what the files of a clip must have in common.
namespace kmxf {

namespace {

using File = CheckedFile;

// What can be compared: files of a layout with their header, closed and whole.
bool IsComparable(const File* file) {
    return file != nullptr && file->layout != kOther && !file->open && file->headerWhole &&
           file->metadata.material.set != nullptr;
}
template <class Visit>
void VisitComparable(CheckedFiles files, Visit visit) {
    const auto first = std::ranges::find_if(files, IsComparable);
    for (auto file = first; file != files.end(); ++file)
        if (IsComparable(*file)) visit(**first, **file, static_cast<size_t>(file - files.begin()));
}

// The first set of a kind in the material package's part of a file.
const CheckedSet* FirstOf(const File& file, std::string_view setName) {
    if (setName == "TimecodeComponent") {
        const CheckedTrack* track = file.metadata.material.Track("TimecodeTrack");
        return track == nullptr ? nullptr : track->Component(setName);
    }
    const auto sets = file.metadata.Named(setName);
    return sets.empty() ? nullptr : sets.front();
}

struct SharedItem {
    std::string_view set, item;
};

// All files say the same here as the first.
void ExpectShared(CheckedFiles files, const ClipReport& report, std::initializer_list<SharedItem> items) {
    VisitComparable(files, [&](const File& first, const File& file, size_t number) {
        for (const auto& [set, name] : items) {
            const auto item = [&, set = set, name = name](const File& of) {
                const CheckedSet* found = FirstOf(of, set);
                return found == nullptr ? nullptr : found->Item(name);
            };
            const auto text = [name = name](const InspectedItem* found) {
                return found == nullptr ? "no " + std::string(name) : Described(*found);
            };
            const InspectedItem *expected = item(first), *found = item(file);
            if (text(found) != text(expected))
                report(number, found == nullptr ? file.metadata.material.set->offset : found->offset, text(expected),
                       text(found));
        }
    });
}

// Of an OP-Atom file: the track of the clip that it holds.
const CheckedTrack* HeldTrack(const File& file) {
    for (const CheckedTrack& track : file.metadata.material.tracks) {
        const CheckedSet* clip = track.Component("SourceClip");
        if (clip != nullptr && clip->Number("SourceTrackID").value_or(0) != 0) return &track;
    }
    return nullptr;
}

std::string Called(const CheckedTrack& track) { return std::string(track.kind) + " " + track.set->Text("TrackID"); }

constexpr Rule kRules[] = {
    {"CL-001", "Every file of a clip can be opened.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         for (size_t i = 0; i < files.size(); ++i)
             if (files[i] == nullptr) report(i, 0, "a file that can be opened", "none");
     }},
    {"CL-002", "All files of a clip have one material UMID.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         ExpectShared(files, report, {{"MaterialPackage", "PackageUID"}});
     }},
    {"CL-003", "All files of a clip have one package name.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         ExpectShared(files, report, {{"MaterialPackage", "PackageName"}});
     }},
    {"CL-004", "All files of a clip have one start timecode.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         ExpectShared(files, report,
                      {{"TimecodeComponent", "StartTimecode"},
                       {"TimecodeComponent", "RoundedTimecodeBase"},
                       {"TimecodeComponent", "DropFrame"}});
     }},
    {"CL-005", "All files of a clip have the same descriptive metadata.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         ExpectShared(files, report,
                      {{"Participant", "JobFunction"},
                       {"Person", "FamilyName"},
                       {"Person", "FirstGivenName"},
                       {"Project", "ProjectNumber"},
                       {"Project", "ProjectName"},
                       {"ClipFramework", "TakeNumber"},
                       {"SceneFramework", "SceneNumber"}});
     }},
    {"CL-006", "All files of a clip are equally long, to the frame.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         // Without a picture nobody tells the length of a frame.
         const auto length = [](const File& file) {
             if (const auto frames = file.StoredFrames()) return Counted(static_cast<uint64_t>(*frames), "frame");
             return Counted(static_cast<uint64_t>(file.StoredSamples().value_or(0)), "sample");
         };
         VisitComparable(files, [&](const File& first, const File& file, size_t number) {
             if (length(file) != length(first))
                 report(number, file.element ? file.element->offset : 0, length(first), length(file));
         });
     }},
    {"CL-007", "The clip has a file for each of its tracks.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         // A file that was cut off does not know which track it is.
         if (files.empty() || !std::ranges::all_of(files, IsComparable) || files[0]->layout != kOpAtom) return;
         for (const CheckedTrack& track : files[0]->metadata.material.tracks) {
             if (track.kind != "PictureTrack" && track.kind != "SoundTrack") continue;
             const bool there = std::ranges::any_of(files, [&](const File* file) {
                 const CheckedTrack* held = HeldTrack(*file);
                 return held != nullptr && held->set->Number("TrackID") == track.set->Number("TrackID");
             });
             if (!there) report(0, track.set->offset, "a file for " + Called(track), "none");
         }
     }},
    {"CL-008", "No track of a clip is there twice, and a file of OP-1b is a clip by itself.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         std::map<std::string, size_t> holders;
         VisitComparable(files, [&](const File&, const File& file, size_t number) {
             const CheckedTrack* held = HeldTrack(file);
             const bool apart = file.layout == kOp1b && files.size() > 1;
             if (apart) report(number, 0, "no other file in the clip", Counted(files.size() - 1, "other"));
             if (held == nullptr || file.layout == kOp1b) return;
             const auto [holder, isNew] = holders.try_emplace(Called(*held), number);
             if (!isNew)
                 report(number, held->set->offset, "a track that no other file holds",
                        holder->first + ", as file " + std::to_string(holder->second + 1));
         });
     }},
    {"CL-009", "All files of a clip have one picture rate.", kAny,
     [](CheckedFiles files, const ClipReport& report) {
         VisitComparable(files, [&](const File& first, const File& file, size_t number) {
             const std::string expected = TextOf(first.metadata.pictureRate), found = TextOf(file.metadata.pictureRate);
             if (found != expected)
                 report(number, file.metadata.material.set->offset, "pictures at " + expected, "at " + found);
         });
     }},
};

}  // namespace

std::span<const Rule> ClipRules() { return kRules; }

}  // namespace kmxf
