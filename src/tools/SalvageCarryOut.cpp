#include <algorithm>
#include <filesystem>
#include <memory>

#include "collaborators/Guards.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "kmxf/tools/SalvageMXF.h"
#include "kmxf/tools/SalvagePlan.h"
#include "kmxf/writer/OpAtomBase.h"
#include "tools/EssenceFrames.h"
#include "tools/FileCopy.h"
#include "tools/SalvageHeader.h"
#include "tools/SalvageInput.h"
#include "tools/SalvageOp1b.h"
#include "tools/SalvageSheet.h"

namespace kmxf {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kEssenceOffset = kOpAtomHeaderSize;
constexpr uint32_t kMostWrite = 1 << 30;
constexpr size_t kMostPath = 255;  // bytes that a reader takes

// The salvager with the settings that a plan has and a client of it cannot make.
class PlannedSalvage final : public CSalvageMXF {
public:
    PlannedSalvage(const SalvagePlan& plan, const SalvagedFile& file, const std::string& target)
        : CSalvageMXF(true), plan_(plan), isDV_(file.content == SalvageContent::kPicture && IsDV(file.compType)) {
        fileName_ = target;  // of any length
        SetFileType(file.content == SalvageContent::kPicture ? kFileTypeVideo : kFileTypeAudio);
        SetVideoStandard(file.videoStd);
        SetCompType(file.compType);
        SetClipType(plan.clipType);
        SetChannel(file.channel);
        SetWide(file.wide);
        SetBytesPerSample(file.bytesPerSample);
        SetSamplesPerSec(file.samplesPerSec);
        SetUMID(file.umid);
        SetShotUMID(plan.materialUMID);
        SetStartTimecode(plan.startTimecode, plan.startDrop);
        SetPackageName(plan.packageName);
        SetDescriptiveMetadata(plan.metadata);
        if (!plan.company.empty()) SetIdentification(plan.company, plan.product, plan.version, plan.productUID.bytes);
    }

    int32_t SetMXFParam() override {
        // Opening has set it to the present.
        if (plan_.creationDate.year != 0) SetCreationDate(plan_.creationDate);
        const int32_t status = CSalvageMXF::SetMXFParam();
        // The writer of DV has whole pairs of frames in its header, whatever the standard, and readers go by the size.
        if (status != kStatusOk || !isDV_) return status;
        return builder_->SetDuration(plan_.duration - plan_.duration % 2);
    }

private:
    const SalvagePlan& plan_;
    const bool isDV_;
};

bool IsInPlace(const SalvagedFile& file, const std::string& target) {
    std::error_code error;
    return fs::equivalent(file.path, target, error);
}

bool WriteAt(const std::string& path, uint64_t offset, std::span<const uint8_t> bytes) {
    FactoryFile file;
    if (bytes.size() > kMostWrite || !file.Open(path.c_str(), kOpenReadWrite) ||
        file->Seek(static_cast<int64_t>(offset), kSeekBegin) < 0) {
        return false;
    }
    return std::cmp_equal(file->Write(bytes.data(), static_cast<uint32_t>(bytes.size())), bytes.size()) && file.Close();
}

// In what follows an empty text is success.
using Outcome = std::string;

Outcome MendAtom(const SalvagePlan& plan, const SalvagedFile& file, const std::string& target) {
    uint64_t end = kEssenceOffset + file.keptSize;
    const bool newSets = std::ranges::find(file.rebuilt, kParameterSets) != file.rebuilt.end();
    if (newSets) end += SizeInFront(file.compType);
    if (!TruncatePelmard(target.c_str(), static_cast<int64_t>(end))) return "cannot be cut to its whole frames";
    if (file.content == SalvageContent::kSound) {
        const int64_t samples = DurationToAudioSample(file.videoStd, plan.duration, file.samplesPerSec);
        // At 96 kHz the salvager can count a frame less; the samples that prevent it come to lie under the footer.
        int64_t counted = samples;
        while (AudioSampleToDuration(file.videoStd, counted, file.samplesPerSec) < plan.duration) ++counted;
        end = kEssenceOffset + static_cast<uint64_t>(counted) * file.bytesPerSample;
        if (!TruncatePelmard(target.c_str(), static_cast<int64_t>(end))) return "cannot be filled with silence";
    } else if (const uint32_t inFront = SizeInFront(file.compType)) {
        std::vector<uint8_t> block(inFront);
        if (newSets &&
            (!GetAVCIHeader(file.videoStd, file.compType, block.data()) || !WriteAt(target, kEssenceOffset, block))) {
            return "its parameter sets cannot be written";
        }
    }
    PlannedSalvage salvage(plan, file, target);
    const int32_t status = salvage.Salvage();
    if (status != kStatusOk) return "its header and footer cannot be written";
    return salvage.GetDuration() == plan.duration ? "" : "came out shorter than it should";
}

// By the library's own files, which a client may watch. The target must not exist.
Outcome CopyFile(const std::string& from, const std::string& to) {
    std::error_code error;
    if (fs::exists(fs::symlink_status(to, error))) return "cannot be copied: File exists";
    SalvageInput source(from);
    FileCopy copy;
    if (!source.IsOpened()) return "cannot be read";
    if (copy.Open(to) && copy.Append(source, 0, source.GetSize()) && copy.Close()) return "";
    return source.Unreadable() ? CannotRead(*source.Unreadable()) : "cannot be copied";
}

Outcome Mend(const SalvagePlan& plan, const SalvagedFile& file, const std::string& target, std::string& note) {
    const bool isClip = file.action == SalvageAction::kMend && file.content == SalvageContent::kClip;
    if (!IsInPlace(file, target) && !(isClip && file.moves)) {
        if (Outcome outcome = CopyFile(file.path, target); !outcome.empty()) return outcome;
    }
    if (isClip) return MendOp1bFile(plan, file, target, note);
    return file.action == SalvageAction::kMend ? MendAtom(plan, file, target) : "";
}

constexpr const char* kDifferent = "its last frame reads back differently";

// The samples of the last frame that has some, up to the silence.
Outcome ProveSound(const SalvagedFile& file, const std::string& target) {
    const int64_t first = DurationToAudioSample(file.videoStd, file.framesKept - 1, file.samplesPerSec);
    const int64_t end = static_cast<int64_t>(file.keptSize / file.bytesPerSample);
    FactoryStream stream;
    CReadMXFAudio reader;
    uint32_t dataOffset = 0;
    if (reader.SetFilename(target.c_str()) != kStatusOk || reader.Open(stream.get(), true) != kStatusOk ||
        reader.GetDataOffset(&dataOffset) != kStatusOk ||
        reader.Seek(dataOffset + first * file.bytesPerSample, kSeekBegin) < 0) {
        return kDifferent;
    }
    const OwnedPiece piece(stream.Allocator(), static_cast<uint32_t>(end - first) * file.bytesPerSample);
    const bool same = piece && std::cmp_equal(reader.Read(piece.get()), piece->GetSize()) &&
                      HashOf(piece.Bytes()) == file.lastFrameHash;
    reader.Close();
    return same ? "" : kDifferent;
}

// Reads the last frame back as a reader does, and compares it with what was found.
Outcome ProveLastFrame(const SalvagedFile& file, const std::string& target) {
    if (file.action == SalvageAction::kLeave || file.framesKept == 0) return "";
    uint64_t offset = 0, size = 0;
    SalvageInput source(target);
    FactoryStream stream;
    if (file.content == SalvageContent::kClip) {
        CReadMXFOp1b reader;
        VIDEOFRAMEINFOTag info;
        if (reader.Open(target.c_str(), stream.get()) != kStatusOk ||
            reader.GetVideoInfoFiller(static_cast<uint32_t>(file.framesKept - 1), info) != kStatusOk) {
            return kDifferent;
        }
        offset = info.offset;
        size = info.size;
    } else if (file.content == SalvageContent::kPicture) {
        CReadMXFVideo reader;
        if (reader.SetFilename(target.c_str()) != kStatusOk) return kDifferent;
        uint32_t dataOffset = 0;
        if (reader.Open(stream.get(), true) != kStatusOk ||
            reader.GetDuration() != static_cast<uint32_t>(file.framesKept) ||
            reader.GetDataOffset(&dataOffset) != kStatusOk) {
            return kDifferent;
        }
        size = reader.GetFrameDataSize();
        offset = dataOffset + SizeInFront(file.compType) + static_cast<uint64_t>(file.framesKept - 1) * size;
    } else {
        return ProveSound(file, target);
    }
    return HashOf(source, offset, size) == file.lastFrameHash ? "" : kDifferent;
}

}  // namespace

SalvageResult CarryOutSalvage(const SalvagePlan& plan, const std::vector<std::string>& targets) {
    SalvageResult result;
    if (targets.size() != plan.files.size()) {
        result.failure = "a target is needed for each file";
        return result;
    }
    const auto fail = [&](size_t i, const Outcome& outcome) {
        result.failure = plan.files[i].path + ": " + outcome;
        result.unreadable = outcome.starts_with(kUnreadable);
        return result;
    };
    // All that can be refused without having written anything.
    for (size_t i = 0; i < plan.files.size(); ++i) {
        if (plan.files[i].action == SalvageAction::kGiveUp) continue;
        if (targets[i].size() > kMostPath) return fail(i, "its path is too long for a reader");
        if (plan.files[i].moves && IsInPlace(plan.files[i], targets[i]))
            return fail(i, "has groups of frames that have to move, which can be done in a copy only");
    }
    std::vector<size_t> written;
    for (size_t i = 0; i < plan.files.size(); ++i) {
        if (plan.files[i].action == SalvageAction::kGiveUp) continue;
        std::string note;
        if (const Outcome outcome = Mend(plan, plan.files[i], targets[i], note); !outcome.empty())
            return fail(i, outcome);
        if (!note.empty()) result.notes.push_back(plan.files[i].name + ": " + note);
        written.push_back(i);
    }
    std::vector<std::unique_ptr<SalvageInput>> sources;
    std::vector<IByteSource*> pointers;
    for (const size_t i : written) {
        if (const Outcome outcome = ProveLastFrame(plan.files[i], targets[i]); !outcome.empty())
            return fail(i, outcome);
        sources.push_back(std::make_unique<SalvageInput>(targets[i]));
        pointers.push_back(sources.back().get());
    }
    result.findings = plan.alone ? CheckFiles(pointers) : CheckClip(pointers);
    for (CheckFinding& finding : result.findings) finding.file = written[finding.file];
    result.done = true;
    return result;
}

}  // namespace kmxf
