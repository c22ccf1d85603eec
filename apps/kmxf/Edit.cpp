#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "Clip.h"
#include "Commands.h"
#include "HeaderEdit.h"
#include "SideFiles.h"
#include "Text.h"
#include "UndoFile.h"
#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/Inspect.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "kmxf/tools/SalvagePlan.h"

namespace kmxf::program {

namespace {

namespace fs = std::filesystem;

constexpr size_t kPrinted = 32;  // bytes of a range, in text

struct EditOptions {
    std::string file;
    std::optional<std::string> shotUmid, xml, thumbnail;
    std::optional<uint32_t> thumbnailPosition;
    bool only = false, dryRun = false, noUndo = false, undo = false, json = false;
};

// What to change, read and proven to be what it should.
struct Wanted {
    std::optional<MXFUMIDTag> shotUmid;
    std::vector<uint8_t> xml;
    ThumbnailFile thumbnail;
    std::optional<uint32_t> thumbnailPosition;
};

[[noreturn]] void Refuse(const std::string& what) { throw Failure(ExitStatus::kUsage, what); }

Wanted Read(const EditOptions& o) {
    Wanted wanted;
    if (o.shotUmid) {
        wanted.shotUmid = ParseUmid(*o.shotUmid);
        if (!wanted.shotUmid) Refuse("--shot-umid: is no UMID; 64 hexadecimal digits are needed");
        if (*wanted.shotUmid == MXFUMIDTag{}) Refuse("--shot-umid: is all zero, by which no clip is found");
    }
    if (o.xml) wanted.xml = ReadSideFile("--xml", *o.xml);
    if (o.thumbnail) wanted.thumbnail = ReadThumbnailFile(*o.thumbnail);
    wanted.thumbnailPosition = o.thumbnailPosition;
    return wanted;
}

// The library's editors say by a status what stands against a change; here it is known what that can be.
void RequireDone(int32_t status, const std::string& path, const std::string& what) {
    if (status == kStatusOk) return;
    if (status == kStatusFailure) Fail(ExitStatus::kInput, path, what);
    Fail(ExitStatus::kInternal, path, "the edit failed, status " + std::to_string(status));
}

void RequireFitting(const Wanted& wanted, const FileInfo& file) {
    const auto refuse = [&](const std::string& what) { Fail(ExitStatus::kInput, file.path, what); };
    if (!wanted.xml.empty() && !file.xml) refuse("has no room for XML");
    if (wanted.thumbnail.bytes.empty()) return;
    if (!file.thumbnail) refuse("has no room for a thumbnail");
    const ThumbnailFile& picture = wanted.thumbnail;
    if (picture.width != file.thumbnail->width || picture.height != file.thumbnail->height) {
        refuse("has a thumbnail of " + std::to_string(file.thumbnail->width) + " x " +
               std::to_string(file.thumbnail->height) + " pixels; the new one has " + std::to_string(picture.width) +
               " x " + std::to_string(picture.height));
    }
    if (std::cmp_greater_equal(wanted.thumbnailPosition.value_or(0), std::max<int64_t>(file.frames, 1))) {
        Refuse("--thumbnail-position: the clip has " + std::to_string(file.frames) + " frames");
    }
}

// The frame that the thumbnail shows now.
int64_t ThumbnailPosition(const std::vector<uint8_t>& header) {
    int64_t offset = 0;
    uint32_t length = 0;
    if (header.size() < kOp1bXMLEnd) return 0;
    const auto room = std::span(header).subspan(kOp1bXMLEnd);
    const bool found = GetKeyParam(room.data(), static_cast<uint32_t>(room.size()), kDMSegmentKey,
                                   kTagEventStartPosition, &offset, &length);
    if (!found || std::cmp_greater(offset, room.size())) return 0;
    return ByteReader(room.subspan(static_cast<size_t>(offset))).I64();
}

// Why the set of XML or of a thumbnail, whose items begin with this name, was not written anew for what is new.
std::string Obstacle(const std::string& path, const std::string& name, const std::string& fresh) {
    const auto source = OpenSource(path);
    CInspector inspector(*source);
    for (auto packet = inspector.Next(); packet && packet->partition < 2; packet = inspector.Next()) {
        if (packet->name != name + "Framework") continue;
        for (const InspectedItem& item : inspector.Items(*packet)) {
            if (item.name == "InstanceUID" || item.name.starts_with(name)) continue;
            char tag[8];
            std::snprintf(tag, sizeof tag, "%04X", unsigned{item.tag});
            return "has an item " + std::string(tag) + " in its " + std::string(packet->name) +
                   " that is not known here and would be lost (offset " + std::to_string(item.offset - 4) + ")";
        }
    }
    return "has no room for " + fresh;
}

void RequireRewritten(int32_t status, const std::string& path, const std::string& name, const std::string& fresh) {
    RequireDone(status, path, status == kStatusFailure ? Obstacle(path, name, fresh) : "");
}

HeaderEdit PlanOf(const Wanted& wanted, const FileInfo& file) {
    RequireFitting(wanted, file);
    const HeaderBytes header = ReadHeaderBytes(file.path);
    return EditCopy(header, [&](const char* copy) {
        CModifyMXFHeaderData editor;
        if (wanted.shotUmid) {
            editor.SetShotUMID(*wanted.shotUmid);
            RequireDone(editor.Save(copy), file.path, "has no material UMID in its header");
        }
        if (const auto& xml = wanted.xml; !xml.empty()) {
            RequireRewritten(editor.ModifyXMLData(copy, xml.data(), static_cast<uint16_t>(xml.size())), file.path,
                             "XML", std::to_string(xml.size()) + " bytes of XML");
        }
        if (const auto& picture = wanted.thumbnail.bytes; !picture.empty()) {
            const int64_t position = wanted.thumbnailPosition.value_or(0);
            const int32_t status = editor.ModifyThumbnailData(
                copy, picture.data(), wanted.thumbnailPosition ? position : ThumbnailPosition(header.bytes),
                static_cast<uint16_t>(picture.size()));
            if (status == kStatusInvalidArgument) {
                Refuse("--thumbnail: has " + std::to_string(picture.size()) +
                       " bytes; a bitmap of 80 x 45 pixels of 24 bits, which has " +
                       std::to_string(kOp1bThumbnailSize) + ", fits");
            }
            RequireRewritten(status, file.path, "Thumbnail", "the thumbnail");
        }
    });
}

// An undo file and the file beside it.
struct Undoable {
    std::string path;
    UndoFile undo;
};

// The undo files of these files, and of all that were edited together with them.
std::vector<Undoable> UndoFilesOf(std::vector<std::string> paths, bool only) {
    std::vector<Undoable> found;
    std::set<fs::path> seen;
    for (size_t i = 0; i < paths.size(); ++i) {
        const std::string path = paths[i];
        if (!seen.insert(fs::weakly_canonical(path)).second) continue;
        const auto undo = ReadUndoFile(path);
        if (!undo) continue;
        found.push_back({path, *undo});
        for (const std::string& name : undo->clip) {
            if (!only) paths.push_back((fs::path(path).parent_path() / name).string());
        }
    }
    return found;
}

Clip OneClip(const EditOptions& o) {
    auto [clips, status] = FindClips({o.file}, o.only);
    if (clips.size() != 1) Fail(ExitStatus::kUsage, o.file, "holds several clips; name a file of the one to edit");
    if (status != ExitStatus::kDone)
        Fail(status, o.file,
             "holds a file that may be of the clip and cannot be edited with it; --only edits one file");
    const auto& files = clips.front().files;
    for (const std::string& path : o.only ? std::vector<std::string>() : FindSalvageFiles(files.front().path)) {
        const fs::path name = fs::path(path).filename();
        const auto isIt = [&](const FileInfo& file) { return fs::path(file.path).filename() == name; };
        if (std::ranges::none_of(files, isIt))
            Fail(ExitStatus::kInput, path, "may be of the clip and cannot be edited with it; --only edits one file");
    }
    for (const FileInfo& file : files) {
        if (file.verdict.kind != Verdict::Kind::kClosed) {
            Fail(ExitStatus::kInput, file.path, "is " + file.verdict.Text() + "; only closed files are edited");
        }
    }
    return std::move(clips.front());
}

void Print(const EditOptions& o, const std::vector<HeaderEdit>& edits) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const HeaderEdit& edit : edits) {
        nlohmann::ordered_json changes = nlohmann::ordered_json::array();
        for (const ByteRange& range : edit.Ranges()) {
            const auto hex = [&](const std::vector<uint8_t>& bytes, size_t most) {
                const auto size = static_cast<size_t>(range.Size());
                return Hex(bytes.data() + range.begin, std::min(size, most)) + (size > most ? "..." : "");
            };
            if (o.json) {
                changes.push_back({{"offset", range.begin},
                                   {"size", range.Size()},
                                   {"old", hex(edit.now.bytes, SIZE_MAX)},
                                   {"new", hex(edit.after, SIZE_MAX)}});
            } else if (o.dryRun) {
                std::printf("%s: offset %llu, %llu bytes: %s -> %s\n", edit.now.path.c_str(),
                            static_cast<unsigned long long>(range.begin), static_cast<unsigned long long>(range.Size()),
                            hex(edit.now.bytes, kPrinted).c_str(), hex(edit.after, kPrinted).c_str());
            }
        }
        list.push_back({{"path", edit.now.path}, {"changes", std::move(changes)}});
    }
    if (!o.json) return;
    const nlohmann::ordered_json document{{"schema", "kmxf/1"}, {"dry_run", o.dryRun}, {"edits", std::move(list)}};
    std::printf("%s\n", document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

// An edit of a clip from here to its end.
class Editing {
public:
    explicit Editing(const EditOptions& options) : o_(options), wanted_(Read(options)), clip_(OneClip(options)) {}
    ExitStatus Run();

private:
    void RequireNoEditUnderWay();
    void WriteUndo();
    void TakeUndoBack() const;
    void Prove(const HeaderEdit& edit) const;

    const EditOptions& o_;
    const Wanted wanted_;
    const Clip clip_;
    std::vector<Undoable> earlier_;
    std::vector<HeaderEdit> edits_;  // of all files; those that change nothing are left out when it comes to writing
};

// What was broken off is put back first: with it, files that belong together may not be found as such.
void Editing::RequireNoEditUnderWay() {
    std::vector<std::string> paths;
    for (const FileInfo& file : clip_.files) paths.push_back(file.path);
    earlier_ = UndoFilesOf(paths, o_.only);
    for (const auto& [path, undo] : earlier_) {
        const std::string undoPath = UndoPath(path);
        if (!undo.IsComplete(ReadHeaderBytes(path))) {
            Fail(ExitStatus::kInput, path,
                 "was not edited to the end, or was changed since; --undo puts it back by " + undoPath);
        }
        if (o_.noUndo)
            Fail(ExitStatus::kInput, undoPath, "leads back before an earlier edit; --no-undo would break it");
    }
}

void Editing::WriteUndo() {
    std::vector<std::string> names;
    for (const HeaderEdit& edit : edits_) names.push_back(fs::path(edit.now.path).filename().string());
    std::vector<NewUndoFile> files;
    for (const HeaderEdit& edit : edits_) {
        std::optional<UndoFile> before;
        for (const auto& [path, undo] : earlier_) {
            if (path == edit.now.path) before = undo;
        }
        files.push_back({edit.now.path, MakeUndoFile(edit, before, names)});
    }
    WriteUndoFiles(files);
}

void Editing::TakeUndoBack() const {
    for (const HeaderEdit& edit : edits_) RemoveUndoFile(edit.now.path);
    std::vector<NewUndoFile> files;
    for (const auto& [path, undo] : earlier_) files.push_back({path, undo});
    WriteUndoFiles(files);
}

// Its structure leads to the same essence.
void Editing::Prove(const HeaderEdit& edit) const {
    const auto& path = edit.now.path;
    const auto before =
        std::find_if(clip_.files.begin(), clip_.files.end(), [&](const FileInfo& file) { return file.path == path; });
    const FileInfo after = ReadFileInfo(path);
    const auto essence = [](const FileInfo& file) {
        return std::tuple(file.verdict.kind, file.fileSize, file.dataOffset, file.dataSize, file.frames, file.samples);
    };
    if (essence(after) != essence(*before)) {
        Fail(ExitStatus::kInternal, path, "is not the same any more after the edit, which is taken back");
    }
}

ExitStatus Editing::Run() {
    RequireNoEditUnderWay();
    for (const FileInfo& file : clip_.files) edits_.push_back(PlanOf(wanted_, file));
    const std::vector<HeaderEdit> all = edits_;
    std::erase_if(edits_, [](const HeaderEdit& edit) { return edit.Ranges().empty(); });
    if (!o_.dryRun) {
        if (!o_.noUndo) WriteUndo();
        try {
            ApplyAll(edits_, [&](const HeaderEdit& edit) { Prove(edit); });
        } catch (const NotPutBack&) {
            throw;
        } catch (const Failure&) {
            if (!o_.noUndo) TakeUndoBack();
            throw;
        }
    }
    Print(o_, all);
    return ExitStatus::kDone;
}

// The files that a path leads to when they are to be put back: an edit that was broken off may have left a clip that is
// not found as one, or files that cannot be read.
std::vector<std::string> FilesToPutBack(const EditOptions& o) {
    std::vector<std::string> paths;
    std::error_code error;
    if (!fs::is_directory(o.file, error)) {
        paths.push_back(o.file);
        if (o.only) return paths;
        try {
            for (const Clip& clip : FindClips({o.file}, false).clips) {
                for (const FileInfo& file : clip.files) paths.push_back(file.path);
            }
        } catch (const Failure&) {
            return paths;
        }
        return paths;
    }
    for (const auto& entry : fs::directory_iterator(o.file, error)) {
        const std::string path = entry.path().string();
        const std::string stem = path.substr(0, path.size() - std::min(path.size(), UndoPath("").size()));
        if (UndoPath(stem) == path) paths.push_back(stem);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

ExitStatus Undo(const EditOptions& o) {
    auto paths = FilesToPutBack(o);
    const auto found = UndoFilesOf(paths, o.only);
    if (found.empty()) Fail(ExitStatus::kInput, o.file, "has no undo file");
    std::error_code error;
    if (fs::is_directory(o.file, error) && UndoFilesOf({paths.front()}, false).size() != found.size()) {
        Fail(ExitStatus::kUsage, o.file, "holds several edited clips; name a file of the one to put back");
    }
    const bool areBack = std::ranges::all_of(
        found, [](const Undoable& each) { return Fingerprint(ReadHeaderBytes(each.path).bytes) == each.undo.before; });
    for (const auto& [path, undo] : found) {
        for (const std::string& name : undo.clip) {
            const auto isIt = [&](const Undoable& each) { return fs::path(each.path).filename() == name; };
            // An undo may have been broken off when only undo files were left to be removed.
            if (o.only || areBack || std::ranges::any_of(found, isIt)) continue;
            Fail(ExitStatus::kInput, path,
                 "was edited together with " + name + ", which has no undo file any more; --only puts back one file");
        }
    }
    std::vector<HeaderEdit> edits;
    for (const auto& [path, undo] : found) {
        HeaderBytes now = ReadHeaderBytes(path);
        auto before = undo.PutBack(now);
        if (!before) {
            Fail(ExitStatus::kInput, path,
                 "was changed by others since, or its undo file is damaged; it stays as it is");
        }
        edits.push_back({std::move(now), std::move(*before)});
    }
    if (!o.dryRun) {
        ApplyAll(edits, [](const HeaderEdit&) {});
        for (const HeaderEdit& edit : edits) RemoveUndoFile(edit.now.path);
    }
    Print(o, edits);
    return ExitStatus::kDone;
}

ExitStatus Edit(const EditOptions& o) {
    if (o.undo) return Undo(o);
    if (!o.shotUmid && !o.xml && !o.thumbnail) {
        Refuse("nothing to change: give --shot-umid, --xml or --thumbnail, or --undo");
    }
    return Editing(o).Run();
}

}  // namespace

Run AddEdit(CLI::App& app) {
    auto options = std::make_shared<EditOptions>();
    EditOptions& o = *options;
    CLI::App* edit = app.add_subcommand("edit", "Changes the headers of a clip in place");
    edit->add_option("FILE", o.file, "A file of the clip, or its folder")->required();
    auto* const umid = edit->add_option("--shot-umid", o.shotUmid, "Material UMID of the clip");
    auto* const xml = edit->add_option("--xml", o.xml, "OP-1b: XML of the clip");
    auto* const thumbnail =
        edit->add_option("--thumbnail", o.thumbnail, "OP-1b: picture of the clip, a BMP of 80 x 45 pixels of 24 bits");
    edit->add_option("--thumbnail-position", o.thumbnailPosition, "Frame that the thumbnail shows; else as it was")
        ->needs(thumbnail);
    auto* const noUndo = edit->add_flag("--no-undo", o.noUndo, "Keep no undo file");
    edit->add_flag("--undo", o.undo, "Put back what was there before the clip was edited")
        ->excludes(umid)
        ->excludes(xml)
        ->excludes(thumbnail)
        ->excludes(noUndo);
    edit->add_flag("--dry-run", o.dryRun, "Only list the byte ranges, old and new");
    edit->add_flag("--json", o.json, "One JSON document");
    edit->add_flag("--only", o.only, "Only the file named, not its clip");
    return [options] { return Edit(*options); };
}

}  // namespace kmxf::program
