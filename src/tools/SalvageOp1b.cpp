#include "tools/SalvageOp1b.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <utility>

#include "core/Layout.h"
#include "kmxf/collaborators/Notify.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "kmxf/writer/Op1bBase.h"
#include "reader/Op1bHeader.h"
#include "tools/FileCopy.h"
#include "tools/Op1bBody.h"
#include "tools/Op1bPlaces.h"
#include "tools/Op1bSalvage.h"
#include "tools/SalvageSheet.h"
#include "writer/OwnPieces.h"

namespace kmxf {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kLook = 8 << 20;  // bytes of pictures that tell their format

const char* const kOtherGroups = "reads back with other groups of frames than were found, and is not closed";

Op1bFormat FormatOf(const SalvagedFile& file) {
    return {file.videoStd, file.compType, static_cast<uint8_t>(file.bytesPerSample), file.channels, file.playerLayout};
}

// From the header, as far as it is not contradicted; what it does not tell from the body.
void FindFormat(SalvagedFile& file, SalvageInput& source, const SalvageHeader& header, const SalvageChoice& choice) {
    const CheckedMetadata& metadata = header.metadata;
    if (metadata.picture) {
        file.videoStd = metadata.picture->videoStd;
        file.compType = metadata.picture->compType;
    }
    file.samplesPerSec = kOp1bSamplesPerSec;
    file.channels = static_cast<uint32_t>(metadata.soundDescriptors.size());
    file.bytesPerSample = file.channels == 0 ? uint16_t{2} : static_cast<uint16_t>(metadata.bytesPerSample);
    // A finished layout of players has it; a header that is gone had it most likely.
    file.playerLayout = !metadata.Named("MultipleDescriptor").empty() || metadata.pictureDescriptor == nullptr;
    const bool soundTold = metadata.picture && metadata.material.TracksOf("SoundTrack").size() == file.channels &&
                           (file.bytesPerSample == 2 || file.bytesPerSample == 3);
    if (const auto sound = soundTold ? std::nullopt : FindOp1bSound(source)) {
        file.channels = sound->channels;
        file.bytesPerSample = sound->bytesPerSample;
        file.formatFrom = SalvageOrigin::kEssence;
    }
    if ((file.compType == 0 || file.videoStd == 0) && choice.lookAtPictures) {
        if (const auto format = choice.lookAtPictures(FirstOp1bPictures(source, kLook))) {
            file.videoStd = format->videoStd;
            file.compType = format->compType;
            file.formatFrom = SalvageOrigin::kEssence;
        }
    }
    if (choice.compType || choice.videoStd || choice.bytesPerSample) {
        file.compType = choice.compType.value_or(file.compType);
        file.videoStd = choice.videoStd.value_or(file.videoStd);
        if (file.channels > 0) file.bytesPerSample = choice.bytesPerSample.value_or(file.bytesPerSample);
        file.formatFrom = SalvageOrigin::kCaller;
    }
}

bool WriteTo(FactoryFile& file, uint64_t offset, std::span<const uint8_t> bytes) {
    return file->Seek(static_cast<int64_t>(offset), kSeekBegin) >= 0 &&
           std::cmp_equal(file->Write(bytes.data(), static_cast<uint32_t>(bytes.size())), bytes.size());
}

// A new file, of the old header and the pieces of a body.
bool CopyBody(const Op1bBody& body, const std::string& target, SalvageInput& source) {
    FileCopy copy;
    const auto append = [&](const Op1bPiece& piece) {
        return piece.made.empty() ? copy.Append(source, piece.from, piece.size) : copy.Append(piece.made);
    };
    return copy.Open(target) && copy.Append(source, 0, kOp1bHeaderSize) && std::ranges::all_of(body.pieces, append) &&
           copy.Close();
}

// What is made of a body, in the file itself or a copy. Seals come last: where a run is broken off, what may be old
// bytes yet is not taken for the sound of its place.
bool MendBody(const Op1bBody& body, const std::string& target) {
    FactoryFile file;
    if (!file.Open(target.c_str(), kOpenReadWrite)) return false;
    uint64_t at = kOp1bHeaderSize;
    std::vector<std::pair<uint64_t, std::span<const uint8_t>>> seals;
    for (const Op1bPiece& piece : body.pieces) {
        if (piece.seal) seals.emplace_back(at, piece.made);
        const bool good = piece.seal ? WriteTo(file, at, std::vector<uint8_t>(piece.made.size()))
                                     : piece.made.empty() || WriteTo(file, at, piece.made);
        if (!good) return false;
        at += piece.size;
    }
    if (seals.empty()) return file.Close();
    FactoryStream medium;  // of the same file
    const auto write = [&](const auto& seal) { return WriteTo(file, seal.first, seal.second); };
    return medium.Open(target.c_str(), kOpenReadWrite) && medium->DataSync() && std::ranges::all_of(seals, write) &&
           file.Close();
}

// A header like that of a recording that goes on, of what is left of the old one.
std::string MakeHeader(const SalvagePlan& plan, const SalvagedFile& file, const std::string& target) {
    COp1bBase builder(file.videoStd, file.compType, static_cast<uint8_t>(file.bytesPerSample), file.channels);
    builder.SetPlayerLayout(file.playerLayout);
    if (builder.Initialize() != kStatusOk) return "its header cannot be made";
    builder.SetUMID(plan.materialUMID);
    if (builder.SetPackageName(plan.packageName) != kStatusOk)
        builder.SetPackageName(fs::path(file.name).stem().string());
    const MXFTIMESTAMPTag created = plan.creationDate.year != 0 ? plan.creationDate : GetCurrentTimeMXF();
    builder.SetCreationDate(created);
    builder.SetModifiedDate(created);
    if (!plan.company.empty())
        builder.SetIdentification(plan.company, plan.product, plan.version, plan.productUID.bytes);
    builder.SetStartTimecode(plan.startTimecode, plan.startDrop);
    builder.SetDMS(plan.metadata);

    SalvageInput old(target);
    auto bytes = old.Copy(0, kOp1bHeaderSize);
    bytes.resize(kOp1bHeaderSize);
    Op1bHeader side;
    GetMetadata(bytes, side);
    const auto there = [&](const SideData& data) { return data.size > 0 && data.offset + data.size <= bytes.size(); };
    if (side.xml && there(*side.xml) && side.xml->size <= 0xFFFF)
        builder.SetXMLData(bytes.data() + side.xml->offset, static_cast<uint16_t>(side.xml->size));
    if (side.thumbnail && there(side.thumbnail->picture) && HasOp1bThumbnailRoom(side.thumbnail->picture.size)) {
        const Thumbnail& thumbnail = *side.thumbnail;
        builder.SetThumbnailData(bytes.data() + thumbnail.picture.offset, static_cast<uint16_t>(thumbnail.picture.size),
                                 thumbnail.width, thumbnail.height, thumbnail.format);
    }
    BuiltBytes header;
    if (builder.GetHeaderData(&header.data) != kStatusOk) return "its header cannot be made";
    FactoryFile out;
    const bool written = out.Open(target.c_str(), kOpenReadWrite) &&
                         WriteTo(out, 0, {header.data, builder.GetHeaderSize()}) && out.Close();
    return written ? "" : "its header cannot be written";
}

}  // namespace

bool IsOp1bClip(const SalvageHeader& header, SalvageInput& source) {
    if (header.layout == kOp1b) return true;
    if (header.layout != kOther || header.otherPattern) return false;
    const auto pack = BodyPackAt(source, kOp1bHeaderSize);
    return pack && pack->GetBodySID() == kPictureSID;
}

void ScanOp1bFile(SalvagedFile& file, SalvageInput& source, const SalvageHeader& header, const SalvageChoice& choice,
                  const SalvageIndexer& indexer) {
    FindFormat(file, source, header, choice);
    const bool known = VideoStandardToPartitionFrame(file.videoStd) != 0 && IsAVCGOP(file.compType) &&
                       (file.bytesPerSample == 2 || file.bytesPerSample == 3);
    if (!known) {
        Lose(file, 0, file.fileSize, "nothing can be told of it");
        return GiveUpUntold(file, "neither its header nor its essence tells its format, which can be named");
    }
    file.body = std::make_shared<const Op1bBody>(ReadOp1bBody(file.path, FormatOf(file), indexer));
    const Op1bBody& body = *file.body;
    if (!body.failure.empty()) return GiveUp(file, body.failure);
    file.framesFound = body.framesFound;
    file.framesKept = body.framesKept;
    file.framesDamaged = body.framesDamaged;
    file.keptSize = body.keptSize;
    file.rebuiltSize = std::min<uint64_t>(file.fileSize, kOp1bHeaderSize) + body.rebuiltSize;
    file.moves = body.moves;
    for (const SalvageLoss& loss : body.losses) Lose(file, loss.offset, loss.size, loss.why);
    file.lastFrameHash = HashOf(source, body.lastPicture.offset, body.lastPicture.size);
    // What cannot be read now may be another time: such a file is never written to.
    file.moves = file.moves || source.Unreadable();
    file.rebuilt = body.rebuilt;
    if (file.framesKept == 0) GiveUp(file, "it holds no whole group of frames, nor the sound of one");
}

std::string MendOp1bFile(const SalvagePlan& plan, const SalvagedFile& file, const std::string& target,
                         std::string& note) {
    const Op1bBody& body = *file.body;
    SalvageInput source(file.path);
    if (source.GetSize() != file.fileSize) return "is no longer what it was when it was looked at";
    if (!(file.moves ? CopyBody(body, target, source) : MendBody(body, target)))
        return source.Unreadable() ? CannotRead(*source.Unreadable()) : "its groups of frames cannot be written";
    // Behind the groups of the plan nothing is cut off before they are found again as they are in it.
    const std::atomic<bool> cancel{false};
    const std::function<void(int32_t)> progress = [](int32_t) {};
    const auto finish = [&](const char* otherwise) -> std::string {
        Op1bSalvage run(target, cancel, progress, Op1bExpected{body.framesKept, body.end});
        if (run.Execute() == kSalvageCompleted) return "";
        return run.IsOtherThanExpected() ? kOtherGroups : otherwise;
    };
    std::string failure = finish("its header is damaged");
    if (failure.empty() || failure == kOtherGroups) return failure;
    // What is damaged in the old header can be in its way.
    if (std::string made = MakeHeader(plan, file, target); !made.empty()) return made;
    note = "the header was damaged, and is made of what could still be read of it";
    return finish("its header and footer cannot be written");
}

}  // namespace kmxf
