#include "kmxf/tools/Check.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "Clip.h"
#include "Commands.h"

namespace kmxf::program {

namespace {

struct Options {
    std::vector<std::string> files;
    bool json = false, only = false;
};

using Paths = std::vector<std::string>;

struct ClipsToCheck {
    std::vector<Paths> clips;
    ExitStatus status = ExitStatus::kDone;
};

bool IsRecognised(const std::string& path) try {
    ReadClipFile(*OpenSource(path), path);
    return true;
} catch (const ClipError&) {
    return false;
}

ClipsToCheck PathsOf(const FoundClips& found) {
    ClipsToCheck result{{}, found.status};
    for (const Clip& clip : found.clips) {
        Paths& paths = result.clips.emplace_back();
        for (const FileInfo& file : clip.files) paths.push_back(file.path);
    }
    return result;
}

ClipsToCheck FindClipsToCheck(const Options& o) {
    try {
        return PathsOf(FindClips(o.files, o.only));
    } catch (const Failure& failure) {
        if (failure.Status() != ExitStatus::kInput) throw;
    }
    // Files that do not even tell what they are have the most to be told about: they are looked at one by one.
    Paths known, strange;
    for (const std::string& path : o.files) {
        std::error_code error;
        const bool isKnown = std::filesystem::is_directory(path, error) || IsRecognised(path);
        (isKnown ? known : strange).push_back(path);
    }
    ClipsToCheck result = PathsOf(FindClips(known, o.only));
    for (const std::string& path : strange) result.clips.push_back({path});
    return result;
}

std::vector<CheckFinding> CheckFiles(const Paths& paths, bool apart) {
    std::vector<std::unique_ptr<IByteSource>> files;
    std::vector<IByteSource*> sources;
    for (const std::string& path : paths) sources.push_back(files.emplace_back(OpenSource(path)).get());
    if (!apart) return CheckClip(sources);
    std::vector<CheckFinding> all;
    for (size_t i = 0; i < sources.size(); ++i) {
        for (CheckFinding& finding : CheckFile(*sources[i])) {
            finding.file = i;
            all.push_back(std::move(finding));
        }
    }
    return all;
}

std::string_view TextOf(std::string_view rule) {
    return std::ranges::find(GetCheckRules(), rule, &CheckRule::id)->text;
}

nlohmann::ordered_json Json(const std::string& path, const CheckFinding& finding) {
    return {{"path", path},
            {"offset", finding.offset},
            {"rule", finding.rule},
            {"text", TextOf(finding.rule)},
            {"expected", finding.expected},
            {"found", finding.found}};
}

void Print(const std::string& path, const CheckFinding& finding) {
    std::printf("%s: %llu: %s: expected %s, found %s\n", path.c_str(), static_cast<unsigned long long>(finding.offset),
                std::string(finding.rule).c_str(), finding.expected.c_str(), finding.found.c_str());
}

ExitStatus Check(const Options& o) try {
    auto [clips, status] = FindClipsToCheck(o);
    nlohmann::ordered_json files = nlohmann::ordered_json::array(), list = files;
    bool clean = true;
    for (const Paths& paths : clips) {
        std::vector<bool> isMXF(paths.size(), true);
        for (const CheckFinding& finding : CheckFiles(paths, o.only)) {
            const std::string& path = paths[finding.file];
            if (finding.rule == kCheckRuleNoMXF) {
                isMXF[finding.file] = false;
                Say(path + ": is not an MXF file (offset 0)");
                status = ExitStatus::kInput;
                continue;
            }
            clean = false;
            if (o.json) {
                list.push_back(Json(path, finding));
            } else {
                Print(path, finding);
            }
        }
        for (size_t i = 0; i < paths.size(); ++i)
            if (isMXF[i]) files.push_back(paths[i]);
    }
    if (o.json) {
        const nlohmann::ordered_json out{{"schema", "kmxf/1"}, {"files", files}, {"findings", list}};
        std::printf("%s\n", out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    }
    return clean || status != ExitStatus::kDone ? status : ExitStatus::kFindings;
} catch (const ClipError& error) {
    throw Failure(ExitStatus::kInput, error.what());
}

}  // namespace

Run AddCheck(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    CLI::App* check =
        app.add_subcommand("check", "Holds files against the rules of their layout, and against each other");
    check->add_option("FILE", o.files, "A file of the clip, or its folder")->required();
    check->add_flag("--json", o.json, "One JSON document");
    check->add_flag("--only", o.only, "Only the files named, each by itself");
    return [options] { return Check(*options); };
}

}  // namespace kmxf::program
