#include "FileInfo.h"

#include "InputFile.h"
#include "Program.h"
#include "Text.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

class FileSource final : public IByteSource {
public:
    FileSource(const std::string& path, bool stoppable) : file_(path), stoppable_(stoppable) {}
    uint64_t GetSize() override { return file_.Size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        if (stoppable_ && interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
        try {
            return file_.ReadSome(offset, bytes);
        } catch (const Failure& failure) {
            throw ClipError(failure.what());
        }
    }

private:
    InputFile file_;
    bool stoppable_;
};

std::string StartTimecodeText(const FileInfo& info) {
    CTimecode timecode(static_cast<uint32_t>(info.startTimecode), false);
    timecode.SetVideoStd(info.timecodeBase == 25   ? VIDEO_STD_50I
                         : info.timecodeBase == 24 ? VIDEO_STD_23_98P
                                                   : VIDEO_STD_59_94I);
    timecode.SetDropFlag(info.dropFrame ? 1 : 0, false);
    return timecode.GetText();
}

nlohmann::ordered_json Json(const ClipDescription& description) {
    nlohmann::ordered_json json;
    const auto put = [&](const char* name, const std::string& text) {
        if (!text.empty()) json[name] = text;
    };
    put("job_function", description.jobFunction);
    put("family_name", description.familyName);
    put("first_given_name", description.firstGivenName);
    put("project_number", description.projectNumber);
    put("project_name", description.projectName);
    if (description.takeNumber) json["take_number"] = *description.takeNumber;
    put("clip_kind", description.clipKind);
    put("scene_number", description.sceneNumber);
    return json;
}

}  // namespace

std::unique_ptr<IByteSource> OpenSource(const std::string& path) try {
    return std::make_unique<FileSource>(path, true);
} catch (const Failure& failure) {
    throw ClipError(failure.what());
}

FileInfo ReadFileInfo(const std::string& path) try {
    FileSource source(path, false);
    return ReadClipFile(source, path);
} catch (const ClipError& error) {
    throw Failure(ExitStatus::kInput, error.what());
}

VideoFormat FormatOf(const FileInfo& info) {
    const ClipPictureFormat format = info.format.value_or(ClipPictureFormat{});
    return {format.videoStd, format.compType, format.consumerDV};
}

nlohmann::ordered_json Json(const FileInfo& info) {
    nlohmann::ordered_json json;
    json["path"] = info.path;
    json["verdict"] = info.verdict.Text();
    json["pattern"] = info.isOp1b ? "OP-1b" : "OP-Atom";
    if (info.isVideo || info.isAudio) json["kind"] = info.isOp1b ? "clip" : info.isVideo ? "video" : "audio";
    if (info.format) {
        const VideoFormat format = FormatOf(info);
        json["codec"] = format.Codec();
        json["raster"] = format.Raster();
        json["standard"] = format.Standard();
        json["video_standard_code"] = HexCode(format.videoStd);
        json["compression_code"] = HexCode(format.compType);
        if (info.frameSize != 0) json["frame_size"] = info.frameSize;
    } else if (info.isAudio) {
        json["codec"] = "pcm" + std::to_string(info.bitsPerSample);
    }
    if (info.frameRate.denominator != 0) json["frame_rate"] = RateText(info.frameRate);
    json["duration"] = info.duration;
    json["data_offset"] = info.dataOffset;
    json["data_size"] = info.dataSize;
    json["file_size"] = info.fileSize;
    if (info.timecodeBase != 0) {
        json["start_timecode"] = StartTimecodeText(info);
        json["drop_frame"] = info.dropFrame;
    }
    // A recording that was cut off has none yet.
    const bool closed = info.verdict.kind == ClipVerdict::Kind::kClosed;
    if (closed || info.materialUmid != MXFUMIDTag()) json["material_umid"] = Hex(info.materialUmid);
    if (closed || info.fileUmid != MXFUMIDTag()) json["file_umid"] = Hex(info.fileUmid);
    if (closed || !info.packageName.empty()) json["package_name"] = info.packageName;
    if (info.creationDate.year != 0) json["creation_date"] = IsoDate(info.creationDate);
    if (info.isVideo) json["wide"] = info.wide;
    if (info.isVideo && !info.isOp1b) json["consumer_dv"] = info.format && info.format->consumerDV;
    if (info.channels != 0) {
        json["sampling_rate"] = info.samplingRate;
        json["bits_per_sample"] = info.bitsPerSample;
        json["samples"] = info.samples;
    }
    if (info.isAudio || info.isOp1b) json["channels"] = info.channels;
    if (info.isOp1b) {
        json["origin"] = info.origin;
        json["partition_frames"] = info.partitionFrames;
    }
    json["company"] = info.company;
    json["product"] = info.product;
    json["product_version"] = info.productVersion;
    if (auto description = Json(info.description); !description.empty())
        json["descriptive_metadata"] = std::move(description);
    if (info.xml) json["xml_size"] = info.xml->place.Size();
    if (info.thumbnail) {
        json["thumbnail"] = {{"width", info.thumbnail->width},
                             {"height", info.thumbnail->height},
                             {"format", info.thumbnail->format},
                             {"size", info.thumbnail->picture.place.Size()}};
    }
    return json;
}

}  // namespace kmxf::program
