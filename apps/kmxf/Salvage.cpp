#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>

#include <nlohmann/json.hpp>

#include "AccessUnits.h"
#include "Commands.h"
#include "CountedLibrary.h"
#include "Formats.h"
#include "LongGOP.h"
#include "OutputFile.h"
#include "Progress.h"
#include "ReadAhead.h"
#include "Text.h"
#include "Wrap.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/tools/SalvagePlan.h"

namespace kmxf::program {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::vector<std::string> files;
    std::optional<std::string> folder, codec, raster, standard;
    bool inPlace = false, trustTail = false, dryRun = false, json = false, force = false, only = false;
};

SalvageChoice ChoiceOf(const Options& o) {
    SalvageChoice choice;
    choice.trustTail = o.trustTail;
    choice.keepComplete = o.inPlace;
    choice.alone = o.only;
    if (o.standard) choice.videoStd = StandardFromName(*o.standard);
    if (o.codec == "pcm16") choice.bytesPerSample = uint16_t{2};
    if (o.codec == "pcm24") choice.bytesPerSample = uint16_t{3};
    choice.lookAtPictures = [codec = o.codec](std::span<const uint8_t> pictures) -> std::optional<ClipPictureFormat> {
        const Candidates found = FindLongGOPFormats(pictures, codec);
        const auto format = found.preferred || found.formats.size() != 1 ? found.preferred : found.formats.front();
        if (!format) return std::nullopt;
        return ClipPictureFormat{format->videoStd, format->compType, false};
    };
    if (o.raster && !o.codec) Usage("--raster goes with --codec");
    if (!o.codec || choice.bytesPerSample) return choice;
    std::set<uint32_t> types;
    for (const auto* const formats : {&AllVideoFormats(), &AllLongGOPFormats()}) {
        for (const VideoFormat& format : *formats) {
            if (format.Codec() == *o.codec && (!o.raster || format.Raster() == *o.raster) &&
                (!o.standard || format.Standard() == *o.standard)) {
                types.insert(format.compType);
            }
        }
    }
    if (types.empty()) Usage("there is no " + *o.codec + " of this raster and standard");
    if (types.size() > 1) Usage("--codec " + *o.codec + " goes with --raster");
    choice.compType = *types.begin();
    return choice;
}

// The index entries of the last pictures, from the pictures themselves.
std::vector<MXFINDEXENTRYTag> IndexPictures(std::span<const uint8_t> pictures, size_t count) try {
    AccessUnits units(PipedStream([&](std::span<uint8_t> room) {
                          const auto part = pictures.first(std::min(room.size(), pictures.size()));
                          std::copy(part.begin(), part.end(), room.begin());
                          pictures = pictures.subspan(part.size());
                          return part.size();
                      }),
                      "the last pictures");
    std::vector<MXFINDEXENTRYTag> entries;
    while (const auto unit = units.Next()) {
        MXFINDEXENTRYTag& entry = entries.emplace_back();
        entry.temporalOffset = unit->temporalOffset;
        entry.keyFrameOffset = unit->keyFrameOffset;
        entry.flags = unit->flags;
    }
    if (entries.size() < count) return {};
    entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(count));
    return entries;
} catch (const Failure&) {
    return {};  // they are given up then
}

const char* ContentWord(SalvageContent content) {
    switch (content) {
        case SalvageContent::kPicture:
            return "video";
        case SalvageContent::kSound:
            return "audio";
        case SalvageContent::kClip:
            return "clip";
        case SalvageContent::kUnknown:
            break;
    }
    return "unknown";
}
const char* OriginWord(SalvageOrigin origin) {
    switch (origin) {
        case SalvageOrigin::kHeader:
            return "header";
        case SalvageOrigin::kEssence:
            return "essence";
        case SalvageOrigin::kSiblings:
            return "siblings";
        case SalvageOrigin::kCaller:
            break;
    }
    return "options";
}

std::string FormatText(const SalvagedFile& file) {
    std::string text;
    if (file.content != SalvageContent::kSound && file.compType != 0)
        text = VideoFormat{file.videoStd, file.compType, false}.Text();
    if (file.channels != 0)
        text += (text.empty() ? "" : ", ") + ("pcm" + std::to_string(file.bytesPerSample * 8)) +
                (file.channels > 1 ? " x " + std::to_string(file.channels) : "");
    return text;
}

double Seconds(const SalvagedFile& file, int64_t frames) {
    const MXFRATIONALTag rate = GetVideoEditRate(file.videoStd);
    return rate.numerator == 0 ? 0 : static_cast<double>(frames) * rate.denominator / rate.numerator;
}

// One clip: its plan, where it goes, and how that went.
struct Salvaged {
    SalvagePlan plan;
    std::vector<std::string> written;  // final names, empty for what is not written
    SalvageResult result;
};

// What became of a file; `planned` is the word where nothing was written.
const char* OutcomeWord(const Salvaged& clip, const SalvagedFile& file, const char* planned) {
    if (file.action != SalvageAction::kMend) return file.action == SalvageAction::kLeave ? "complete" : "given up";
    return clip.written.empty() ? planned : "salvaged";
}

nlohmann::ordered_json FileJson(const Salvaged& clip, size_t number) {
    const SalvagedFile& file = clip.plan.files[number];
    nlohmann::ordered_json json{
        {"path", file.path}, {"kind", ContentWord(file.content)}, {"outcome", OutcomeWord(clip, file, "planned")}};
    if (!clip.written.empty() && !clip.written[number].empty()) json["written"] = clip.written[number];
    if (!file.reason.empty()) json["reason"] = file.reason;
    if (const std::string format = FormatText(file); !format.empty()) {
        json["format"] = format;
        json["format_from"] = OriginWord(file.formatFrom);
    }
    json["file_size"] = file.fileSize;
    json["kept_size"] = file.keptSize;
    json["lost_size"] = file.lostSize;
    json["rebuilt_size"] = file.rebuiltSize;
    json["frames_found"] = file.framesFound;
    json["frames_kept"] = file.framesKept;
    json["frames_lost"] = file.framesFound - file.framesKept;
    json["frames_damaged"] = file.framesDamaged;
    json["seconds_kept"] = Seconds(file, file.framesKept);
    json["seconds_lost"] = Seconds(file, file.framesFound - file.framesKept);
    json["losses"] = nlohmann::ordered_json::array();
    for (const SalvageLoss& loss : file.losses)
        json["losses"].push_back({{"offset", loss.offset}, {"size", loss.size}, {"why", loss.why}});
    json["cut_size"] = file.cutSize;
    json["silence_size"] = file.silenceSize;
    json["rebuilt"] = file.rebuilt;
    json["moves"] = file.moves;
    return json;
}

nlohmann::ordered_json ClipJson(const Salvaged& clip, const Options& o) {
    const SalvagePlan& plan = clip.plan;
    nlohmann::ordered_json json{{"outcome", plan.IsComplete()   ? "complete"
                                            : plan.IsHopeless() ? "given up"
                                            : o.dryRun          ? "planned"
                                                                : "salvaged"},
                                {"duration", plan.duration},
                                {"material_umid", Hex(plan.materialUMID)},
                                {"new_material_umid", plan.newMaterialUMID},
                                {"package_name", plan.packageName}};
    json["files"] = nlohmann::ordered_json::array();
    for (size_t i = 0; i < plan.files.size(); ++i) json["files"].push_back(FileJson(clip, i));
    json["notes"] = clip.result.notes;
    json["findings"] = nlohmann::ordered_json::array();
    for (const CheckFinding& finding : clip.result.findings) {
        json["findings"].push_back({{"path", plan.files[finding.file].path},
                                    {"rule", finding.rule},
                                    {"offset", finding.offset},
                                    {"expected", finding.expected},
                                    {"found", finding.found}});
    }
    return json;
}

void PrintFile(const Salvaged& clip, size_t number) {
    const SalvagedFile& file = clip.plan.files[number];
    const auto bytes = [](uint64_t count) { return WithSeparators(count) + " bytes"; };
    const auto line = [](const char* what, const std::string& text) { std::printf("  %-8s %s\n", what, text.c_str()); };
    std::printf("%s: %s%s%s\n", file.path.c_str(), OutcomeWord(clip, file, "can be salvaged"),
                file.reason.empty() ? "" : ", ", file.reason.c_str());
    if (file.action == SalvageAction::kLeave) return;
    if (file.wantsFormat) line("hint", "--codec, --raster and --standard name the format, if it is known");
    if (const std::string format = FormatText(file); !format.empty())
        line("format", format + ", from the " + OriginWord(file.formatFrom));
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.2f s", Seconds(file, file.framesKept));
    line("kept", std::to_string(file.framesKept) + " of " + std::to_string(file.framesFound) + " frames, " + seconds +
                     ", " + bytes(file.keptSize));
    if (const int64_t frames = file.framesFound - file.framesKept; frames > 0) {
        std::snprintf(seconds, sizeof seconds, "%.2f s", Seconds(file, frames));
        line("lost",
             std::to_string(frames) + (frames == 1 ? " frame, " : " frames, ") + seconds + ", " + bytes(file.lostSize));
    }
    for (const SalvageLoss& loss : file.losses)
        line("lost", bytes(loss.size) + " at offset " + std::to_string(loss.offset) + ": " + loss.why);
    if (file.framesDamaged != 0)
        line("damaged", std::to_string(file.framesDamaged) + " frames, kept for those behind them");
    if (file.silenceSize != 0) line("silence", bytes(file.silenceSize) + " added at the end of the sound");
    std::string rebuilt;
    for (const std::string& each : file.rebuilt) rebuilt += (rebuilt.empty() ? "" : ", ") + each;
    if (!rebuilt.empty()) line("rebuilt", rebuilt);
    if (!clip.written.empty() && clip.written[number] != file.path && !clip.written[number].empty())
        line("written", clip.written[number]);
}

void PrintClip(const Salvaged& clip, const Options& o) {
    const SalvagePlan& plan = clip.plan;
    const char* const what = plan.IsComplete()         ? "complete: nothing is to be done"
                             : plan.IsHopeless()       ? "nothing can be kept"
                             : o.dryRun                ? "can be salvaged"
                             : !clip.result.IsProven() ? "salvaged, with faults left"
                                                       : "salvaged and proven";
    std::printf("clip of %zu file%s: %s, %lld frames\n", plan.files.size(), plan.files.size() == 1 ? "" : "s", what,
                static_cast<long long>(plan.duration));
    for (size_t i = 0; i < plan.files.size(); ++i) PrintFile(clip, i);
    for (const std::string& note : clip.result.notes) std::printf("  %s\n", note.c_str());
    if (plan.newMaterialUMID && !plan.IsHopeless())
        std::printf("  no header held the clip's UMID any more: it is now %s\n", Hex(plan.materialUMID).c_str());
    for (const CheckFinding& finding : clip.result.findings) {
        std::printf("%s: offset %llu: %s: expected %s, found %s\n", plan.files[finding.file].path.c_str(),
                    static_cast<unsigned long long>(finding.offset), std::string(finding.rule).c_str(),
                    finding.expected.c_str(), finding.found.c_str());
    }
}

std::string DefaultFolder(const SalvagePlan& plan) {
    const SalvagedFile& first = plan.files.front();
    std::string name = fs::path(first.name).stem().string();
    if (first.content == SalvageContent::kSound && name.size() > 2) name.resize(name.size() - 2);
    return (fs::path(first.path).parent_path() / (name + ".salvaged")).string();
}

// The first names under which all files of a clip can be put there: those of the clip, or of "CLIP-2", "CLIP-3" and so
// on, where another clip of this run or, of a writer that was killed, a complete one has them.
std::vector<std::string> FreePaths(const SalvagePlan& plan, const std::optional<std::string>& folder, const Options& o,
                                   const std::set<std::string>& taken) {
    const auto isLeftover = [](const SalvagedFile& file) { return fs::path(file.path).filename() != file.name; };
    const auto isTaken = [&](const SalvagedFile& file, const std::string& path) {
        if (taken.contains(path)) return true;
        std::error_code error;
        return (o.inPlace || !o.force) && isLeftover(file) && fs::exists(fs::symlink_status(path, error));
    };
    for (int number = 1;; ++number) {
        std::vector<std::string> paths;
        bool free = true;
        for (const SalvagedFile& file : plan.files) {
            std::string name = file.name;
            const size_t stem = fs::path(name).stem().string().size();
            const size_t channel = file.content == SalvageContent::kSound && stem > 2 ? 2 : 0;
            if (number > 1) name.insert(stem - channel, "-" + std::to_string(number));
            const fs::path own = fs::path(file.path).parent_path();
            const bool stays = o.inPlace && !isLeftover(file);
            paths.push_back(stays ? file.path : (folder ? fs::path(*folder) / name : own / name).string());
            free = free && (stays || !isTaken(file, paths.back()));
        }
        if (free) return paths;
    }
}

void Carry(Salvaged& clip, const Options& o, std::set<std::string>& taken, std::optional<Progress>& progress) {
    const SalvagePlan& plan = clip.plan;
    std::optional<OutputFolder> made;
    std::vector<std::unique_ptr<OutputFile>> outputs;
    std::vector<std::string> targets;
    const auto folder = o.inPlace ? std::nullopt : std::optional(o.folder.value_or(DefaultFolder(plan)));
    for (const SalvagedFile& file : plan.files) {
        if (o.inPlace && file.moves) {
            Fail(ExitStatus::kUsage, file.path,
                 "has groups of frames that have to move; without --in-place a copy is made of it");
        }
    }
    const std::vector<std::string> paths = FreePaths(plan, folder, o, taken);
    for (size_t i = 0; folder && i < paths.size(); ++i) {
        for (const SalvagedFile& input : plan.files) {
            std::error_code error;
            if (fs::equivalent(paths[i], input.path, error))
                Fail(ExitStatus::kUsage, paths[i], "is an input, which is only read without --in-place");
        }
    }
    if (folder) made.emplace(*folder);
    uint64_t total = 0;
    for (size_t i = 0; i < paths.size(); ++i) {
        const SalvagedFile& file = plan.files[i];
        targets.push_back(file.path);
        clip.written.push_back(file.action == SalvageAction::kGiveUp ? "" : paths[i]);
        if (file.action == SalvageAction::kGiveUp) continue;
        taken.insert(paths[i]);
        if (o.inPlace) continue;
        outputs.push_back(std::make_unique<OutputFile>(paths[i], o.force));
        targets.back() = outputs.back()->WorkPath();
        total += file.fileSize;
    }
    if (!o.inPlace) progress.emplace("salvage", total);
    clip.result = CarryOutSalvage(plan, targets);
    progress.reset();
    // What is done in place is done whole; a copy can be left.
    if (interrupted && !o.inPlace) throw Failure(ExitStatus::kInterrupted, "interrupted");
    if (!clip.result.done)
        throw Failure(clip.result.unreadable ? ExitStatus::kInput : ExitStatus::kOutput, clip.result.failure);
    PublishAll(outputs);
    for (size_t i = 0; o.inPlace && i < paths.size(); ++i) {
        if (clip.written[i].empty() || paths[i] == targets[i] || RenameNew(targets[i], paths[i]) == 0) continue;
        Fail(ExitStatus::kOutput, targets[i], "is salvaged, but cannot be named " + paths[i] + ": " + ErrorText(errno));
    }
}

// The files that the paths name, clip by clip.
std::vector<std::vector<std::string>> FindClipsOf(const Options& o) {
    std::vector<std::vector<std::string>> clips;
    std::set<std::string> taken;
    for (const std::string& path : o.files) {
        std::error_code error;
        const bool folder = fs::is_directory(path, error);
        const bool there = fs::exists(path, error);
        if (!there) Fail(ExitStatus::kInput, path, "cannot be opened: " + (error ? error.message() : "no such file"));
        if (!folder && !fs::is_regular_file(path, error)) Fail(ExitStatus::kInput, path, "is not a file");
        std::vector<std::vector<std::string>> found{{path}};
        if (folder) {
            if (const fs::directory_iterator look(path, error); error)
                Fail(ExitStatus::kInput, path, "cannot be opened: " + error.message());
            found = GroupSalvageFiles(ListSalvageFiles(path));
            if (found.empty()) Fail(ExitStatus::kInput, path, "holds no MXF files");
        } else if (!o.only) {
            found = {FindSalvageFiles(path)};
        }
        for (const auto& members : found) {
            std::vector<std::string> clip;
            for (const std::string& member : members)
                if (taken.insert(fs::weakly_canonical(member, error).string()).second) clip.push_back(member);
            if (!clip.empty()) clips.push_back(std::move(clip));
        }
    }
    return clips;
}

// A file that nothing is known of, of a clip of which nothing can be kept.
const SalvagedFile* NotRecognised(const SalvagePlan& plan) {
    const auto file = std::ranges::find(plan.files, SalvageContent::kUnknown, &SalvagedFile::content);
    return plan.IsHopeless() && file != plan.files.end() ? &*file : nullptr;
}

SalvagePlan Scan(const std::vector<std::string>& files, const SalvageChoice& choice, const Options& o) {
    std::optional<ReadAhead> ahead;
    if (!o.inPlace && !o.dryRun) ahead.emplace(files);
    return ScanForSalvage(files, choice, IndexPictures);
}

ExitStatus SalvageClips(const Options& o) {
    if (o.inPlace && o.folder) Usage("--in-place and --output exclude each other");
    std::optional<Progress> progress;
    bool stoppable = true;
    const CountedLibrary watched({[&](uint64_t bytes) {
                                      if (progress) progress->Advance(bytes);
                                  },
                                  [&] { return stoppable && interrupted; }});
    const SalvageChoice choice = ChoiceOf(o);
    ExitStatus status = ExitStatus::kDone;
    nlohmann::ordered_json documents = nlohmann::ordered_json::array();
    std::set<std::string> taken;
    for (const auto& files : FindClipsOf(o)) {
        stoppable = true;
        Salvaged clip{Scan(files, choice, o), {}, {}};
        if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
        const SalvagePlan& plan = clip.plan;
        if (const SalvagedFile* const file = plan.Unreadable()) {
            Say(file->path + ": " + file->reason);
            status = ExitStatus::kInput;
            continue;
        }
        stoppable = !o.inPlace;
        try {
            if (!plan.IsComplete() && !plan.IsHopeless() && !o.dryRun) Carry(clip, o, taken, progress);
        } catch (const Failure& failure) {  // the other clips can still be salvaged
            progress.reset();
            if (failure.Status() == ExitStatus::kInterrupted) throw;
            Say(failure.what());
            status = failure.Status();
            continue;
        }
        if (const auto strange = NotRecognised(plan)) {
            Say(strange->path + ": " + strange->reason + " (offset 0)");
            status = ExitStatus::kInput;
        } else if (status == ExitStatus::kDone && (plan.LosesAnything() || !clip.result.findings.empty())) {
            status = ExitStatus::kFindings;
        }
        if (o.json) {
            documents.push_back(ClipJson(clip, o));
        } else {
            PrintClip(clip, o);
        }
    }
    if (o.json && !documents.empty()) {
        nlohmann::ordered_json out{{"schema", "kmxf/1"}};
        if (documents.size() == 1) {
            out.update(nlohmann::ordered_json{{"salvage", documents.front()}});
        } else {
            out["salvages"] = std::move(documents);
        }
        std::printf("%s\n", out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    }
    return status;
}

}  // namespace

Run AddSalvage(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    CLI::App* salvage = app.add_subcommand("salvage", "Makes valid files of a recording that was cut off");
    salvage->add_option("FILE", o.files, "A file of the clip, or its folder")->required();
    salvage->add_flag("--in-place", o.inPlace, "Mend the files themselves instead of copies");
    salvage->add_option("-o,--output", o.folder, "Folder for the copies; otherwise CLIP.salvaged beside the clip");
    salvage->add_flag("--trust-tail", o.trustTail, "Keep all frames that are there in full length");
    std::vector<std::string> codecs = CodecNames();
    codecs.insert(codecs.end(), {"pcm16", "pcm24"});
    salvage->add_option("--codec", o.codec, "The codec, if the file does not tell")->check(CLI::IsMember(codecs));
    salvage->add_option("--raster", o.raster, "The raster, if the file does not tell")
        ->check(CLI::IsMember({"525", "625", "720", "1080"}));
    salvage->add_option("--standard", o.standard, "The video standard, if the file does not tell")
        ->check(CLI::IsMember(StandardNames()));
    salvage->add_flag("--dry-run", o.dryRun, "Only say what would be kept and lost");
    salvage->add_flag("--force", o.force, "Overwrite files in the folder");
    salvage->add_flag("--only", o.only, "Only the files named, not their clips");
    salvage->add_flag("--json", o.json, "One JSON document");
    return [options] { return SalvageClips(*options); };
}

}  // namespace kmxf::program
