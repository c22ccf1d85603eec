#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "Clip.h"
#include "Commands.h"
#include "Text.h"
#include "core/Layout.h"
#include "kmxf/structures/Inspect.h"

namespace kmxf::program {

namespace {

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false, only = false;
};

std::string Plain(const nlohmann::ordered_json& value) {
    if (value.is_null()) return "-";
    return value.is_string() ? value.get<std::string>() : value.dump();
}

void PrintValues(const nlohmann::ordered_json& values, int indent) {
    for (const auto& [key, value] : values.items()) {
        if (value.is_object()) {
            std::printf("%*s%s\n", indent, "", key.c_str());
            PrintValues(value, indent + 2);
        } else {
            std::printf("%*s%-20s %s\n", indent, "", key.c_str(), Plain(value).c_str());
        }
    }
}

// Tracks of a clip that not exactly one file holds.
struct AmissTracks {
    const char *key, *text;
    std::vector<uint32_t> (Clip::*tracks)() const;
};
constexpr AmissTracks kAmissTracks[] = {
    {"missing_tracks", "no file holds", &Clip::MissingTracks},
    {"double_tracks", "several files hold", &Clip::DoubleTracks},
};

void PrintAmissTracks(const Clip& clip) {
    for (const AmissTracks& row : kAmissTracks) {
        const auto tracks = (clip.*row.tracks)();
        if (tracks.empty()) continue;
        std::printf("  %s track%s", row.text, tracks.size() == 1 ? "" : "s");
        for (const uint32_t track : tracks) std::printf("%s %u", track == tracks.front() ? "" : ",", track);
        std::printf("\n");
    }
}

// Bytes of a recording that was cut off behind its last whole group, which are not those of the footer.
uint64_t SizeBehindGroups(const FileInfo& file) try {
    if (!file.isOp1b || file.verdict.kind != Verdict::Kind::kCutOff) return 0;
    const uint64_t end = file.groups.empty() ? kOp1bHeaderSize : file.groups.back().end;
    MXFKEYTag key;
    if (OpenSource(file.path)->Read(end, key.bytes) < sizeof key.bytes) return 0;
    return KeyName(key) == "FooterPartitionPack" ? 0 : file.fileSize - end;
} catch (const ClipError&) {
    return 0;
}

nlohmann::ordered_json DisagreementsJson(const Clip& clip) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Disagreement& disagreement : Disagreements(clip)) {
        nlohmann::ordered_json entry{{"key", disagreement.key}, {"values", nlohmann::ordered_json::array()}};
        for (size_t i = 0; i < clip.files.size(); ++i) {
            entry["values"].push_back({{"path", clip.files[i].path}, {"value", disagreement.values[i]}});
        }
        list.push_back(std::move(entry));
    }
    return list;
}

void PrintClip(const Clip& clip, bool only) {
    std::printf("clip of %zu file%s\n", clip.files.size(), clip.files.size() == 1 ? "" : "s");
    PrintValues(AgreedValues(clip), 2);
    for (const Disagreement& disagreement : Disagreements(clip)) {
        std::printf("  the files disagree on %s\n", disagreement.key.c_str());
        for (size_t i = 0; i < clip.files.size(); ++i) {
            std::printf("    %s: %s\n", clip.files[i].path.c_str(), Plain(disagreement.values[i]).c_str());
        }
    }
    if (!only) PrintAmissTracks(clip);
    for (const FileInfo& file : clip.files) {
        nlohmann::ordered_json values = program::Json(file);
        std::printf("%s: %s\n", file.path.c_str(), file.verdict.Text().c_str());
        if (const uint64_t size = SizeBehindGroups(file); size != 0) {
            std::printf(
                "  counted are whole groups; behind them are %llu bytes of one that is not: kmxf salvage "
                "--dry-run tells what of it can be kept\n",
                static_cast<unsigned long long>(size));
        }
        values.erase("path");
        values.erase("verdict");
        PrintValues(values, 2);
    }
}

ExitStatus Info(const InfoOptions& o) {
    const auto [clips, status] = FindClips(o.files, o.only);
    bool findings = false;
    nlohmann::ordered_json documents = nlohmann::ordered_json::array();
    for (const Clip& clip : clips) {
        findings = findings || !clip.Disagreements().empty();
        for (const FileInfo& file : clip.files) findings = findings || file.verdict.kind != Verdict::Kind::kClosed;
        if (!o.json) {
            PrintClip(clip, o.only);
            continue;
        }
        nlohmann::ordered_json document{{"clip", AgreedValues(clip)}, {"files", nlohmann::ordered_json::array()}};
        for (const FileInfo& file : clip.files) document["files"].push_back(program::Json(file));
        document["disagreements"] = DisagreementsJson(clip);
        for (const AmissTracks& row : kAmissTracks) {
            if (const auto tracks = (clip.*row.tracks)(); !o.only && !tracks.empty()) document[row.key] = tracks;
        }
        documents.push_back(std::move(document));
    }
    if (o.json) {
        nlohmann::ordered_json out{{"schema", "kmxf/1"}};
        if (documents.size() == 1) {
            out.update(documents.front());
        } else {
            out["clips"] = std::move(documents);
        }
        std::printf("%s\n", out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    }
    return findings && status == ExitStatus::kDone ? ExitStatus::kFindings : status;
}

}  // namespace

Run AddInfo(CLI::App& app) {
    auto options = std::make_shared<InfoOptions>();
    InfoOptions& o = *options;
    CLI::App* info = app.add_subcommand("info", "Tells what a clip is and whether it is whole");
    info->add_option("FILE", o.files, "A file of the clip, or its folder")->required();
    info->add_flag("--json", o.json, "One JSON document");
    info->add_flag("--only", o.only, "Only the files named, not their clips");
    return [options] { return Info(*options); };
}

}  // namespace kmxf::program
