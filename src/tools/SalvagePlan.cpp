#include "kmxf/tools/SalvagePlan.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/NewUMID.h"
#include "tools/ClipGroups.h"
#include "tools/MemberName.h"
#include "tools/SalvageHeader.h"
#include "tools/SalvageInput.h"
#include "tools/SalvageOp1b.h"
#include "tools/SalvageOpAtom.h"
#include "tools/SalvageSheet.h"

namespace kmxf {

namespace {

bool IsPack(SalvageInput& source, uint64_t offset) {
    const auto key = source.Copy(offset, kPackKindByte);
    return key.size() == kPackKindByte && BeginsLikePack(key);
}

void SayRebuilt(const ScannedFile& scanned, SalvagedFile& file) {
    std::vector<std::string> all{scanned.header.found ? "the header area" : "the header area, which was gone"};
    if (file.content == SalvageContent::kClip) {
        all.front() = scanned.header.found ? "the header" : "the header, which was gone";
        all.insert(all.end(), {"the footer with the index", "the random index"});
    } else {
        all.emplace_back("the footer");
    }
    file.rebuilt.insert(file.rebuilt.begin(), all.begin(), all.end());
}

void TakeIdentity(SalvagePlan& plan, const SalvageHeader& known) {
    plan.materialUMID = known.materialUMID;
    plan.packageName = known.packageName;
    plan.startTimecode = known.startTimecode;
    plan.startDrop = known.startDrop;
    plan.creationDate = known.creationDate;
    plan.company = known.company;
    plan.product = known.product;
    plan.version = known.version;
    plan.productUID = known.productUID;
    plan.metadata = known.descriptive;
}

void Complete(SalvagePlan& plan, const SalvageHeader& other) {
    if (plan.packageName.empty()) plan.packageName = other.packageName;
    if (plan.startTimecode == 0) {
        plan.startTimecode = other.startTimecode;
        plan.startDrop = plan.startDrop || other.startDrop;
    }
    if (plan.creationDate.year == 0) plan.creationDate = other.creationDate;
    if (plan.company.empty()) {
        plan.company = other.company;
        plan.product = other.product;
        plan.version = other.version;
        plan.productUID = other.productUID;
    }
}

// Of a clip whose footer is there: nothing when what the footer and the random index tell is not there or cut.
std::optional<int64_t> FramesOfClosedClip(ScannedFile& scanned) try {
    SalvageInput& input = *scanned.source;
    const ClipFile clip = ReadClipFileAtOnce(input, scanned.file.path);
    uint64_t damage = 0;
    const auto partitions = ListedPartitions(ClipSource(input, scanned.file.path), *scanned.header.footer, damage);
    const bool whole =
        clip.verdict.kind == ClipVerdict::Kind::kClosed && partitions &&
        std::ranges::all_of(*partitions, [&](const ClipPartition& each) { return IsPack(input, each.place.begin); });
    return whole ? std::optional(clip.frames) : std::nullopt;
} catch (const ClipError&) {
    return std::nullopt;
}

void ScanClip(ScannedFile& scanned, const SalvageChoice& choice, const SalvageIndexer& indexer) {
    SalvagedFile& file = scanned.file;
    if (const auto frames = scanned.IsClosed() ? FramesOfClosedClip(scanned) : std::nullopt) {
        file.action = SalvageAction::kLeave;
        file.reason = "it is complete";
        file.keptSize = file.fileSize;
        file.framesFound = file.framesKept = *frames;
        file.videoStd = scanned.header.metadata.picture->videoStd;
        file.compType = scanned.header.metadata.picture->compType;
        return;
    }
    ScanOp1bFile(file, *scanned.source, scanned.header, choice, indexer);
    if (!scanned.IsGivenUp()) SayRebuilt(scanned, file);
}

// What is the same in all files of the clip, from the headers that were finished.
void Identify(SalvagePlan& plan, const std::vector<ScannedFile>& all) {
    const ScannedFile* final = nullptr;
    const ScannedFile* header = nullptr;
    uint32_t pictures = 0, sounds = 0, lastSound = 0, announced = 0;
    for (const ScannedFile& each : all) {
        if (each.IsGivenUp()) continue;
        if (each.file.content == SalvageContent::kPicture) ++pictures;
        if (each.file.content == SalvageContent::kSound) ++sounds;
        if (each.file.content == SalvageContent::kSound) lastSound = std::max(lastSound, each.file.channel + 1);
        const uint32_t type = each.header.clipType;  // of a damaged header, with fewer tracks
        announced = std::max(announced & 0xFF00, type & 0xFF00) | std::max(announced & 0xFF, type & 0xFF);
        if (header == nullptr && type != 0) header = &each;
        if (final == nullptr && each.header.IsFinal()) final = &each;
    }
    // Pictures of which nothing came to the medium are no part of what is left.
    if (pictures == 0 && std::ranges::any_of(all, HoldsNoPicture)) announced &= 0xFF;
    // A recording that was cut off early may not have begun all files that it announced.
    const bool complete = pictures > 0 && lastSound == sounds;
    const bool asFound = header == nullptr || (final == nullptr && complete);
    plan.clipType = asFound ? pictures << 8 | sounds : announced;
    plan.packageName = NameOf(all.front().file.path).clip;
    if (all.front().file.content != SalvageContent::kSound && !all.front().file.path.empty())
        plan.packageName = StemOf(all.front().file.path);
    if (header != nullptr) plan.creationDate = header->header.creationDate;
    if (final != nullptr) {
        TakeIdentity(plan, final->header);
        // What a damaged header no longer tells, another does.
        for (const ScannedFile& each : all)
            if (!each.IsGivenUp() && each.header.materialUMID == plan.materialUMID) Complete(plan, each.header);
        return;
    }
    plan.newMaterialUMID = true;
    plan.materialUMID = NewUMID();
    for (const ScannedFile& each : all) {
        if (each.file.content != SalvageContent::kPicture || each.IsGivenUp()) continue;
        if (const auto timecode = FirstTimecode(each)) {
            plan.startTimecode = timecode->GetTotalFrame();
            plan.startDrop = timecode->IsDrop();
        }
        return;
    }
}

void NumberTracks(std::vector<ScannedFile>& all) {
    uint32_t pictures = 0;
    std::vector<bool> taken(256);
    for (ScannedFile& each : all) {
        SalvagedFile& file = each.file;
        if (file.content == SalvageContent::kPicture) file.channel = each.header.channel.value_or(pictures++);
        if (file.content != SalvageContent::kSound) continue;
        const auto named = NameOf(file.path).channel;
        file.channel = each.header.channel ? *each.header.channel : named.value_or(0);
        while (file.channel < taken.size() && taken[file.channel] && !each.header.channel) ++file.channel;
        if (file.channel < taken.size()) taken[file.channel] = true;
    }
}

int Order(const SalvagedFile& file) { return file.content == SalvageContent::kSound ? 1 : 0; }

void ScanAtoms(SalvagePlan& plan, std::vector<ScannedFile>& all, const SalvageChoice& choice) {
    if (std::ranges::all_of(all, &ScannedFile::isWhole)) {
        for (ScannedFile& each : all) each.file.action = SalvageAction::kLeave;
    }
    int64_t pictures = -1, sounds = 0;
    uint32_t videoStd = 0;
    for (ScannedFile& each : all) {
        if (each.file.content != SalvageContent::kPicture || each.IsGivenUp()) continue;
        ScanPictures(each, choice);
        if (videoStd == 0) videoStd = each.file.videoStd;
        if (!each.IsGivenUp())
            pictures = pictures < 0 ? each.file.framesKept : std::min(pictures, each.file.framesKept);
    }
    for (const ScannedFile& each : all)
        if (videoStd == 0) videoStd = each.header.videoStd;
    for (ScannedFile& each : all) {
        if (each.file.content != SalvageContent::kSound || each.IsGivenUp()) continue;
        ScanSound(each, choice, all, pictures, videoStd);
        if (!each.IsGivenUp()) sounds = std::max(sounds, each.file.framesFound);
    }
    // The one length of all files: that of the shortest picture. Sound is cut to it or filled up with silence, so that
    // no frame is lost for a file of sound that is behind, or gone.
    plan.duration = pictures >= 0 ? pictures : sounds;
    for (ScannedFile& each : all) {
        SalvagedFile& file = each.file;
        if (each.IsGivenUp()) continue;
        const int64_t length = file.content == SalvageContent::kSound ? file.framesFound : file.framesKept;
        // Whatever became of the others, complete pictures stay; complete sound comes to be as long, unless it is the
        // only copy.
        const bool fits = file.content != SalvageContent::kSound || length == plan.duration || plan.duration == 0 ||
                          choice.keepComplete;
        if (file.action == SalvageAction::kLeave || (each.isWhole && fits)) {
            file.action = SalvageAction::kLeave;
            file.reason = "it is complete";
            file.framesKept = length;
            file.keptSize = file.fileSize;
            file.rebuiltSize = 0;
            file.losses.clear();
            file.lostSize = 0;
            continue;
        }
        if (plan.duration == 0) {
            Lose(file, kOpAtomHeaderSize, each.EssenceSize(), kWritten);
            GiveUp(file, "it holds no whole frame");
            continue;
        }
        FitOpAtom(each, plan.duration);
        SayRebuilt(each, file);
    }
}

// What cannot be read is not missing: such a file is not touched, and not judged by what could be read of it.
void GiveUpUnreadable(const ScannedFile& each) {
    const auto offset = each.source ? each.source->Unreadable() : std::nullopt;
    if (!offset) return;
    GiveUp(each.file, CannotRead(*offset));
    each.file.losses.clear();
    each.file.lostSize = 0;
}

// Of a file that was given up before all of it was told.
void Balance(SalvagedFile& file) {
    if (file.keptSize + file.lostSize + file.rebuiltSize == file.fileSize) return;
    file.keptSize = file.rebuiltSize = file.lostSize = file.cutSize = file.silenceSize = 0;
    file.framesKept = 0;
    file.losses.clear();
    Lose(file, 0, file.fileSize, "nothing can be told of it");
}

}  // namespace

bool SalvagePlan::IsComplete() const {
    return std::ranges::all_of(files, [](const SalvagedFile& file) { return file.action == SalvageAction::kLeave; });
}
bool SalvagePlan::IsHopeless() const {
    return std::ranges::all_of(files, [](const SalvagedFile& file) { return file.action == SalvageAction::kGiveUp; });
}
bool SalvagePlan::LosesAnything() const {
    return std::ranges::any_of(files, [](const SalvagedFile& file) {
        return file.action == SalvageAction::kGiveUp || file.lostSize != 0 || file.silenceSize != 0 ||
               file.framesDamaged != 0;
    });
}

const SalvagedFile* SalvagePlan::Unreadable() const {
    const auto file =
        std::ranges::find_if(files, [](const SalvagedFile& each) { return each.reason.starts_with(kUnreadable); });
    return file == files.end() ? nullptr : &*file;
}

SalvagePlan ScanForSalvage(const std::vector<std::string>& paths, const SalvageChoice& choice,
                           const SalvageIndexer& indexer) {
    SalvagePlan plan;
    plan.alone = choice.alone;
    if (paths.empty()) return plan;
    std::vector<SalvagedFile> files(paths.size());
    std::vector<ScannedFile> all;
    for (size_t i = 0; i < paths.size(); ++i) {
        files[i].path = paths[i];
        files[i].name = FinalName(paths[i]);
        ScannedFile& scanned = all.emplace_back(ScannedFile{files[i], std::make_unique<SalvageInput>(paths[i]), {}});
        files[i].fileSize = scanned.source->GetSize();
        if (!scanned.source->IsOpened()) {
            GiveUp(files[i], "it cannot be opened");
            continue;
        }
        scanned.header = ReadSalvageHeader(*scanned.source);
        const std::string clip = NameOf(paths[i]).clip;
        files[i].wide = scanned.header.wide;
        if (IsOp1bClip(scanned.header, *scanned.source)) {
            files[i].content = SalvageContent::kClip;
            files[i].action = SalvageAction::kMend;
        } else {
            RecogniseOpAtom(scanned, choice, std::ranges::any_of(paths, [&](const std::string& other) {
                                return other != paths[i] && StemOf(other) == clip;
                            }));
        }
        if (scanned.IsGivenUp() && files[i].content != SalvageContent::kClip)
            Lose(files[i], 0, files[i].fileSize, "nothing can be told of it");
    }
    std::vector<ScannedFile> atoms;
    for (ScannedFile& each : all) {
        if (each.file.content != SalvageContent::kClip) {
            atoms.push_back(std::move(each));
            continue;
        }
        if (each.IsGivenUp()) continue;
        ScanClip(each, choice, indexer);
        plan.duration = std::max(plan.duration, each.file.framesKept);
        plan.clipType = 0x100 | each.file.channels;
        TakeIdentity(plan, each.header);
        plan.newMaterialUMID = plan.materialUMID == MXFUMIDTag();
        if (plan.newMaterialUMID) plan.materialUMID = NewUMID();
        if (plan.packageName.empty()) plan.packageName = StemOf(each.file.path);
    }
    if (!atoms.empty()) {
        ScanAtoms(plan, atoms, choice);
        NumberTracks(atoms);
        Identify(plan, atoms);
    }
    for (const ScannedFile& each : all) GiveUpUnreadable(each);
    for (const ScannedFile& each : atoms) GiveUpUnreadable(each);
    for (SalvagedFile& file : files) {
        if (file.action == SalvageAction::kGiveUp) Balance(file);
    }
    std::ranges::stable_sort(files, [](const SalvagedFile& a, const SalvagedFile& b) {
        return std::pair(Order(a), a.channel) < std::pair(Order(b), b.channel);
    });
    plan.files = std::move(files);
    return plan;
}

}  // namespace kmxf
