#include "FileInfo.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "HeaderArea.h"
#include "Program.h"
#include "Text.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

constexpr size_t kPartitionPackSize = 124;  // with one essence container label

void ReadDescriptiveMetadata(FileInfo& info, const HeaderSets& sets) {
    const auto put = [&](const char* name, const std::string& text) {
        if (!text.empty()) info.descriptiveMetadata[name] = text;
    };
    put("job_function", Utf16Text(sets.Item(kParticipantKey, kTagJobFunction)));
    put("family_name", Utf16Text(sets.Item(kPersonKey, kTagFamilyName)));
    put("first_given_name", Utf16Text(sets.Item(kPersonKey, kTagFirstGivenName)));
    put("project_number", RawText(sets.Item(kProjectKey, kTagProjectNumber)));
    put("project_name", Utf16Text(sets.Item(kProjectKey, kTagProjectName)));
    const Bytes take = sets.Item(kClipFrameworkKey, kTagTakeNumber);
    if (!take.empty()) info.descriptiveMetadata["take_number"] = Number(take);
    put("clip_kind", Utf16Text(sets.Item(kClipFrameworkKey, kTagClipKind)));
    put("scene_number", RawText(sets.Item(kSceneFrameworkKey, kTagSceneNumber)));
}

}  // namespace

HeaderArea TakeApart(Bytes bytes) {
    HeaderArea area;
    area.pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
    int64_t metadataSize = 0;
    area.pack.GetHeaderByteCount(metadataSize);
    const size_t packSize = area.pack.GetLength();
    if (metadataSize < 0 || packSize > bytes.size() || static_cast<uint64_t>(metadataSize) > bytes.size() - packSize) {
        area.damage = 0;
        return area;
    }
    area.sets = HeaderSets(bytes.subspan(packSize, static_cast<size_t>(metadataSize)));
    if (const auto broken = area.sets.Broken()) area.damage = packSize + *broken;
    if (area.sets.All(kPrimerPackKey).empty()) area.damage = packSize;
    return area;
}

void ReadIdentity(FileInfo& info, const HeaderSets& sets) {
    const Bytes materialPackage =
        sets.All(kMaterialPackageKey).empty() ? Bytes{} : sets.All(kMaterialPackageKey).front();
    if (!materialPackage.empty()) {
        info.materialUmid = Umid(HeaderSets::Item(materialPackage, kTagPackageUID));
        info.packageName = Utf16Text(HeaderSets::Item(materialPackage, kTagPackageName));
        info.creationDate = Timestamp(HeaderSets::Item(materialPackage, kTagPackageCreationDate));
    }
    info.fileUmid = Umid(sets.Item(kFilePackageKey, kTagPackageUID));
    info.company = Utf16Text(sets.Item(kIdentificationKey, kTagCompanyName));
    info.product = Utf16Text(sets.Item(kIdentificationKey, kTagProductName));
    info.productVersion = Utf16Text(sets.Item(kIdentificationKey, kTagVersionString));
    info.startTimecode = static_cast<int64_t>(Number(sets.Item(kTimecodeComponentKey, kTagStartTimecode)));
    info.timecodeBase = static_cast<uint32_t>(Number(sets.Item(kTimecodeComponentKey, kTagRoundedTimecodeBase)));
    info.dropFrame = Number(sets.Item(kTimecodeComponentKey, kTagDropFrame)) != 0;
    ReadDescriptiveMetadata(info, sets);
}

std::optional<CPartition> FooterAt(const InputFile& file, uint64_t offset, uint64_t fileSize) {
    if (offset == 0 || offset > fileSize || fileSize - offset < kPartitionPackSize) return std::nullopt;
    const auto bytes = file.Look(offset, kPartitionPackSize);
    CPartition pack;
    const bool parsed = pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) == 0;
    return parsed && pack.GetKey().bytes[13] == 0x04 ? std::optional(pack) : std::nullopt;
}

bool IsGrowing(const InputFile& file, uint64_t size) {
    // Slow recordings write a piece a few times a second.
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        if (file.Size() != size) return true;
    }
    return false;
}

std::string Verdict::Text() const {
    switch (kind) {
        case Kind::kClosed:
            return "closed";
        case Kind::kCutOff:
            return "cut off at frame " + std::to_string(at);
        case Kind::kDamaged:
            return "damaged at offset " + std::to_string(at);
        case Kind::kGrowing:
            return "growing";
    }
    return "";
}

std::string FileInfo::StartTimecodeText() const {
    CTimecode timecode(static_cast<uint32_t>(startTimecode), false);
    timecode.SetVideoStd(timecodeBase == 25 ? VIDEO_STD_50I : timecodeBase == 24 ? VIDEO_STD_23_98P : VIDEO_STD_59_94I);
    timecode.SetDropFlag(dropFrame ? 1 : 0, false);
    return timecode.GetText();
}

uint64_t FileInfo::FrameOffset(uint64_t frame) const {
    return dataOffset + (format && format->IsAVCIntra() ? 512 : 0) + frame * frameSize;
}

int64_t FileInfo::FirstSample(uint64_t frame) const {
    return std::min(DurationToAudioSample(rateStandard, static_cast<int64_t>(frame), samplingRate), samples);
}

ByteRange FileInfo::SoundOf(const Op1bGroup& group, const ByteRange& samplesOfGroup, uint32_t first,
                            uint32_t end) const {
    const auto before = [&](uint32_t frame) {
        const auto sample = static_cast<uint64_t>(DurationToAudioSample(rateStandard, frame, samplingRate));
        return std::min(samplesOfGroup.begin + sample * (bitsPerSample / 8), samplesOfGroup.end);
    };
    return {before(first), end == group.frames ? samplesOfGroup.end : before(end)};
}

nlohmann::ordered_json FileInfo::Json() const {
    nlohmann::ordered_json json;
    json["path"] = path;
    json["verdict"] = verdict.Text();
    json["pattern"] = isOp1b ? "OP-1b" : "OP-Atom";
    if (isVideo || isAudio) json["kind"] = isOp1b ? "clip" : isVideo ? "video" : "audio";
    if (format) {
        json["codec"] = format->Codec();
        json["raster"] = format->Raster();
        json["standard"] = format->Standard();
        json["video_standard_code"] = HexCode(format->videoStd);
        json["compression_code"] = HexCode(format->compType);
        if (frameSize != 0) json["frame_size"] = frameSize;
    } else if (isAudio) {
        json["codec"] = "pcm" + std::to_string(bitsPerSample);
    }
    if (frameRate.denominator != 0) json["frame_rate"] = RateText(frameRate);
    json["duration"] = duration;
    json["data_offset"] = dataOffset;
    json["data_size"] = dataSize;
    json["file_size"] = fileSize;
    if (timecodeBase != 0) {
        json["start_timecode"] = StartTimecodeText();
        json["drop_frame"] = dropFrame;
    }
    json["material_umid"] = Hex(materialUmid);
    json["file_umid"] = Hex(fileUmid);
    json["package_name"] = packageName;
    if (creationDate.year != 0) json["creation_date"] = IsoDate(creationDate);
    if (isVideo) json["wide"] = wide;
    if (isVideo && !isOp1b) json["consumer_dv"] = format && format->consumerDV;
    if (channels != 0) {
        json["sampling_rate"] = samplingRate;
        json["bits_per_sample"] = bitsPerSample;
        json["samples"] = samples;
    }
    if (isAudio || isOp1b) json["channels"] = channels;
    if (isOp1b) {
        json["origin"] = origin;
        json["partition_frames"] = partitionFrames;
    }
    json["company"] = company;
    json["product"] = product;
    json["product_version"] = productVersion;
    if (!descriptiveMetadata.empty()) json["descriptive_metadata"] = descriptiveMetadata;
    if (xml) json["xml_size"] = xml->place.Size();
    if (thumbnail) {
        json["thumbnail"] = {{"width", thumbnail->width},
                             {"height", thumbnail->height},
                             {"format", thumbnail->format},
                             {"size", thumbnail->picture.place.Size()}};
    }
    return json;
}

FileInfo ReadFileInfo(const std::string& path) {
    const InputFile file(path);
    const auto start = file.Look(0, kHeaderAreaSize);
    FileInfo info;
    info.path = path;
    info.fileSize = file.Size();
    CPartition pack;
    if (info.fileSize < 20 || pack.SetData(start.data(), static_cast<uint32_t>(start.size())) != 0) {
        Fail(ExitStatus::kInput, path, "is not an MXF file: it does not begin with a partition pack (offset 0)");
    }
    if (info.fileSize < kPartitionPackSize) {
        Fail(ExitStatus::kInput, path,
             "ends within its first partition pack (offset " + std::to_string(info.fileSize) + ")");
    }
    info.isOp1b = pack.IsOp1b();
    if (!pack.IsOpAtom() && !info.isOp1b) {
        Fail(ExitStatus::kInput, path,
             "is an MXF file of another operational pattern than OP-Atom and OP-1b (offset 84)");
    }
    (info.isOp1b ? ReadOp1b : ReadOpAtom)(file, start, info);
    return info;
}

std::optional<MXFUMIDTag> ReadMaterialUmid(const std::string& path) try {
    // The material package comes early: half a header area is enough to tell files apart.
    constexpr size_t kLook = kHeaderAreaSize / 2;
    const auto bytes = InputFile(path).Look(0, kLook);
    CPartition pack;
    if (pack.SetData(bytes.data(), kLook) != 0 || !pack.IsOpAtom() || pack.GetLength() > kLook) return std::nullopt;
    const auto umid = HeaderSets(Bytes(bytes).subspan(pack.GetLength())).Item(kMaterialPackageKey, kTagPackageUID);
    return umid.empty() ? std::nullopt : std::optional(Umid(umid));
} catch (const Failure&) {
    return std::nullopt;
}

}  // namespace kmxf::program
