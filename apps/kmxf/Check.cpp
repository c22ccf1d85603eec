#include "kmxf/tools/Check.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "Clip.h"
#include "Commands.h"

namespace kmxf::program {

namespace {

struct CheckOptions {
    std::vector<std::string> files;
    bool json = false, only = false;
};

using Paths = std::vector<std::string>;

// Finds what is to be checked: the files of clips together, and by themselves those that do not even tell what they
// are, which have the most to be told about.
class Finder {
public:
    explicit Finder(bool only) : only_(only) {}

    std::vector<Paths> Find(const Paths& paths) {
        std::vector<Clip> clips;
        try {
            clips = FindAll(paths);
        } catch (const ClipError&) {
            clips = FindAll(Known(paths));
        }
        std::vector<Paths> found;
        for (const Clip& clip : clips) {
            Paths files;
            for (const FileInfo& file : clip.files) files.push_back(file.path);
            found.push_back(std::move(files));
        }
        for (const std::string& path : strange_) found.push_back({path});
        return found;
    }
    // kInput when a folder cannot be looked through.
    ExitStatus Status() const { return status_; }

private:
    std::vector<Clip> FindAll(const Paths& paths) {
        opened_.clear();
        const auto open = [this](const std::string& path) {
            opened_ = path;
            return OpenSource(path);
        };
        return kmxf::FindClips(paths, only_, open, [this](const ClipError&) { AddStrange(opened_); });
    }

    // The paths that lead to clips.
    Paths Known(const Paths& paths) {
        Paths known;
        for (const std::string& path : paths) {
            try {
                FindAll({path});
                known.push_back(path);
            } catch (const ClipError& error) {
                std::error_code ignored;
                if (opened_.empty()) {  // a folder
                    Say(error.what());
                    status_ = ExitStatus::kInput;
                    continue;
                }
                AddStrange(opened_);
                // It may be another one of its clip that cannot be read.
                if (!std::filesystem::is_directory(path, ignored)) AddStrange(path);
            }
        }
        return known;
    }

    void AddStrange(const std::string& path) {
        if (std::ranges::find(strange_, path) == strange_.end()) strange_.push_back(path);
    }

    bool only_;
    std::string opened_;  // the last one
    Paths strange_;
    ExitStatus status_ = ExitStatus::kDone;
};

std::vector<CheckFinding> CheckPaths(const Paths& paths, bool apart) {
    std::vector<std::unique_ptr<IByteSource>> files;
    std::vector<IByteSource*> sources;
    for (const std::string& path : paths) sources.push_back(files.emplace_back(OpenSource(path)).get());
    return apart ? CheckFiles(sources) : CheckClip(sources);
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

// The findings of one clip after the other: printed at once, or gathered for JSON.
class Findings {
public:
    explicit Findings(const CheckOptions& options) : options_(options) {}

    void Add(const Paths& clip) try {
        std::vector<bool> isMXF(clip.size(), true);
        for (const CheckFinding& finding : CheckPaths(clip, options_.only)) {
            if (finding.rule == kCheckRuleNoMXF) {
                isMXF[finding.file] = false;
                Fail(clip[finding.file] + ": is not an MXF file (offset 0)");
            } else {
                Add(clip[finding.file], finding);
            }
        }
        for (size_t i = 0; i < clip.size(); ++i)
            if (isMXF[i]) files_.push_back(clip[i]);
    } catch (const ClipError& error) {
        Fail(error.what());
    }

    // Prints what was gathered.
    ExitStatus End() const {
        if (options_.json) {
            const nlohmann::ordered_json out{{"schema", "kmxf/1"}, {"files", files_}, {"findings", list_}};
            std::printf("%s\n", out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
        }
        return status_;
    }

private:
    void Add(const std::string& path, const CheckFinding& finding) {
        if (status_ == ExitStatus::kDone) status_ = ExitStatus::kFindings;
        if (options_.json) {
            list_.push_back(Json(path, finding));
        } else {
            Print(path, finding);
        }
    }
    void Fail(const std::string& text) {
        Say(text);
        status_ = ExitStatus::kInput;
    }

    const CheckOptions& options_;
    nlohmann::ordered_json files_ = nlohmann::ordered_json::array(), list_ = files_;
    ExitStatus status_ = ExitStatus::kDone;
};

ExitStatus Check(const CheckOptions& o) {
    Finder finder(o.only);
    Findings findings(o);
    for (const Paths& clip : finder.Find(o.files)) findings.Add(clip);
    const ExitStatus status = findings.End();
    return finder.Status() == ExitStatus::kDone ? status : finder.Status();
}

}  // namespace

Run AddCheck(CLI::App& app) {
    auto options = std::make_shared<CheckOptions>();
    CheckOptions& o = *options;
    CLI::App* check =
        app.add_subcommand("check", "Holds files against the rules of their layout, and against each other");
    check->add_option("FILE", o.files, "A file of the clip, or its folder")->required();
    check->add_flag("--json", o.json, "One JSON document");
    check->add_flag("--only", o.only, "Only the files named, each by itself");
    return [options] { return Check(*options); };
}

}  // namespace kmxf::program
