#include "FileInfo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <span>
#include <string_view>
#include <thread>
#include <vector>

#include "Program.h"
#include "Text.h"
#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "kmxf/structures/Partition.h"

namespace kmxf::program {

namespace {

constexpr size_t kHeaderAreaSize = 32768;
constexpr size_t kPartitionPackSize = 124;  // with one essence container label

class File {
public:
    // Without waiting: a pipe has no writer yet, and is refused.
    explicit File(const std::string& path) : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    bool IsOpen() const { return descriptor_ >= 0; }
    // Zero bytes stand for what lies behind the end of the file.
    std::vector<uint8_t> Read(uint64_t offset, size_t size) const {
        std::vector<uint8_t> bytes(size);
        const ssize_t count = ::pread(descriptor_, bytes.data(), size, static_cast<off_t>(offset));
        if (count < 0) return {};
        ++statistics.reads;
        statistics.bytesRead += static_cast<uint64_t>(count);
        return bytes;
    }
    std::optional<uint64_t> Size() const {
        struct stat status {};
        if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
        return static_cast<uint64_t>(status.st_size);
    }

private:
    int descriptor_;
};

using Bytes = std::span<const uint8_t>;

uint64_t Number(Bytes bytes) {
    return static_cast<uint64_t>(BERtoSize(bytes.data(), static_cast<uint8_t>(bytes.size())));
}

// Header metadata as a list of packets, to look at one set at a time.
class HeaderSets {
public:
    explicit HeaderSets(Bytes metadata) {
        const size_t size = metadata.size();
        while (!metadata.empty()) {
            broken_ = size - metadata.size();
            if (metadata.size() < 20) return;
            const uint8_t form = metadata[16];
            const size_t head = 17 + ((form & 0x80) != 0 ? form & 0x7F : 0);
            if (head > metadata.size() || head > 25) return;
            const uint64_t length = head == 17 ? form : Number(metadata.subspan(17, head - 17));
            if (length > metadata.size() - head) return;
            sets_.push_back(metadata.first(head + static_cast<size_t>(length)));
            metadata = metadata.subspan(head + static_cast<size_t>(length));
        }
        broken_.reset();
    }

    // Where no packet follows that fits.
    std::optional<size_t> Broken() const { return broken_; }

    std::vector<Bytes> All(const MXFKEYTag& key) const {
        std::vector<Bytes> found;
        for (const Bytes set : sets_) {
            if (std::equal(std::begin(key.bytes), std::end(key.bytes), set.begin())) found.push_back(set);
        }
        return found;
    }

    // The value of an item in one set.
    static Bytes Item(Bytes set, uint16_t tag) {
        MXFKEYTag key;
        std::copy_n(set.begin(), sizeof key.bytes, key.bytes);
        int64_t offset = 0;
        uint32_t length = 0;
        if (!GetKeyParam(set.data(), static_cast<uint32_t>(set.size()), key, tag, &offset, &length)) return {};
        const auto start = static_cast<uint64_t>(offset);
        if (start > set.size() || length > set.size() - start) return {};
        return set.subspan(static_cast<size_t>(start), length);
    }
    // The value of an item in the first set with this key.
    Bytes Item(const MXFKEYTag& key, uint16_t tag) const {
        const auto found = All(key);
        return found.empty() ? Bytes{} : Item(found.front(), tag);
    }

private:
    std::vector<Bytes> sets_;
    std::optional<size_t> broken_;
};

std::string Utf16Text(Bytes field) {
    std::vector<uint16_t> units;
    for (ByteReader reader(field); reader.Remaining() >= 2;) units.push_back(reader.U16());
    units.push_back(0);
    std::string text(units.size() * 4, '\0');
    const int32_t size = UTF16ToUTF8(units.data(), text.data());
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
}

std::string RawText(Bytes field) {
    const auto end = std::find(field.begin(), field.end(), uint8_t{0});
    return {field.begin(), end};
}

MXFRATIONALTag Rational(Bytes value) { return ByteReader(value).Rational(); }
MXFUMIDTag Umid(Bytes value) { return ByteReader(value).Umid(); }
MXFTIMESTAMPTag Timestamp(Bytes value) { return ByteReader(value).Timestamp(); }

// The header area taken apart: pack, sets, essence place.
struct HeaderArea {
    CPartition pack;
    HeaderSets sets{Bytes{}};
    std::optional<uint64_t> damage;  // offset where the layout breaks
};

HeaderArea TakeApart(Bytes bytes) {
    HeaderArea area;
    area.pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
    int64_t metadataSize = 0;
    area.pack.GetHeaderByteCount(metadataSize);
    const int64_t indexSize = area.pack.GetIndexByteCount();
    const auto packSize = static_cast<int64_t>(area.pack.GetLength());
    const auto room = static_cast<int64_t>(bytes.size());
    if (metadataSize < 0 || metadataSize > room - packSize) {
        area.damage = 0;
        return area;
    }
    const Bytes metadata = bytes.subspan(static_cast<size_t>(packSize), static_cast<size_t>(metadataSize));
    area.sets = HeaderSets(metadata);
    if (const auto broken = area.sets.Broken()) area.damage = static_cast<uint64_t>(packSize) + *broken;
    if (area.sets.All(kPrimerPackKey).empty()) area.damage = static_cast<uint64_t>(packSize);
    const int64_t body = packSize + metadataSize + indexSize;
    CPartition bodyPack;
    if (indexSize < 0 || body > room ||
        bodyPack.SetData(bytes.data() + body, static_cast<uint32_t>(room - body)) != 0) {
        area.damage = area.damage.value_or(static_cast<uint64_t>(indexSize < 0 || body > room ? 0 : body));
    }
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
}

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

// The frame rate of the clip's picture tracks, else of its timecode.
MXFRATIONALTag ClipFrameRate(const HeaderSets& sets) {
    const auto tracks = sets.All(kTrackKey);
    const auto sequences = sets.All(kSequenceKey);
    for (const Bytes track : tracks) {
        const Bytes reference = HeaderSets::Item(track, kTagSequence);
        for (const Bytes sequence : sequences) {
            const Bytes uid = HeaderSets::Item(sequence, kTagInstanceUID);
            const Bytes definition = HeaderSets::Item(sequence, kTagDataDefinition);
            if (std::ranges::equal(reference, uid) && std::ranges::equal(definition, kPictureDataDefinition.bytes)) {
                return Rational(HeaderSets::Item(track, kTagEditRate));
            }
        }
    }
    return tracks.empty() ? MXFRATIONALTag{} : Rational(HeaderSets::Item(tracks.front(), kTagEditRate));
}

// Frames of the essence that lies in the file, however the file ended.
int64_t FramesIn(const FileInfo& info, int64_t bytes) {
    if (info.isVideo) {
        const int64_t lead = info.format && info.format->IsAVCIntra() ? 512 : 0;
        return info.frameSize == 0 ? 0 : std::max<int64_t>(bytes - lead, 0) / info.frameSize;
    }
    const int64_t bytesPerSample = info.bitsPerSample / 8;
    if (bytesPerSample == 0 || info.rateStandard == 0) return 0;
    // A few samples short of a frame still count as that frame, as the writer counts them.
    return AudioSampleToDuration(info.rateStandard, bytes / bytesPerSample + 4, info.samplingRate);
}

// Slow recordings write a piece a few times a second.
bool IsGrowing(const File& file, uint64_t size) {
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        if (file.Size().value_or(size) != size) return true;
    }
    return false;
}

bool IsFooterAt(const File& file, uint64_t offset, uint64_t fileSize) {
    if (offset == 0 || offset > fileSize || fileSize - offset < kPartitionPackSize) return false;
    const auto bytes = file.Read(offset, kPartitionPackSize);
    CPartition pack;
    return !bytes.empty() && pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) == 0 &&
           pack.GetKey().bytes[13] == 0x04;
}

// The whole frames, or samples, among the bytes that are there.
int64_t WholeBytes(const FileInfo& info, int64_t bytes) {
    const int64_t unit = info.isVideo ? info.frameSize : info.bitsPerSample / 8;
    const int64_t lead = info.format && info.format->IsAVCIntra() ? 512 : 0;
    return unit == 0 || bytes < lead ? bytes : bytes - (bytes - lead) % unit;
}

// Decides what became of the file, and takes into `info` the essence that is there and not what the header promises.
Verdict Judge(const File& file, FileInfo& info, const HeaderArea& area) {
    const auto footer = static_cast<uint64_t>(area.pack.GetFooterPartition());
    const bool hasFooter = !area.damage && IsFooterAt(file, footer, info.fileSize);
    if (hasFooter && footer == info.dataOffset + static_cast<uint64_t>(info.dataSize)) return {};

    const auto there = static_cast<int64_t>(info.fileSize - std::min<uint64_t>(info.fileSize, info.dataOffset));
    info.dataSize = WholeBytes(info, footer == 0 ? there : std::clamp<int64_t>(info.dataSize, 0, there));
    info.duration = FramesIn(info, info.dataSize);
    if (area.damage) return {Verdict::Kind::kDamaged, *area.damage};
    if (hasFooter) return {Verdict::Kind::kDamaged, info.dataOffset - 8};  // the essence length tells of another place
    if (IsGrowing(file, info.fileSize)) return {Verdict::Kind::kGrowing, 0};
    return {Verdict::Kind::kCutOff, static_cast<uint64_t>(info.duration)};
}

}  // namespace

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

nlohmann::ordered_json FileInfo::Json() const {
    nlohmann::ordered_json json;
    json["path"] = path;
    json["verdict"] = verdict.Text();
    json["pattern"] = "OP-Atom";
    if (isVideo || isAudio) json["kind"] = isVideo ? "video" : "audio";
    if (format) {
        json["codec"] = format->Codec();
        json["raster"] = format->Raster();
        json["standard"] = format->Standard();
        json["video_standard_code"] = HexCode(format->videoStd);
        json["compression_code"] = HexCode(format->compType);
        json["frame_size"] = frameSize;
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
    if (isVideo) {
        json["wide"] = wide;
        json["consumer_dv"] = format && format->consumerDV;
    } else if (isAudio) {
        json["sampling_rate"] = samplingRate;
        json["bits_per_sample"] = bitsPerSample;
        json["samples"] = samples;
        json["channels"] = 1;
    }
    json["company"] = company;
    json["product"] = product;
    json["product_version"] = productVersion;
    if (!descriptiveMetadata.empty()) json["descriptive_metadata"] = descriptiveMetadata;
    return json;
}

FileInfo ReadFileInfo(const std::string& path) {
    const File file(path);
    if (!file.IsOpen()) Fail(ExitStatus::kInput, path, "cannot be opened: " + ErrorText(errno));
    const auto size = file.Size();
    if (!size) Fail(ExitStatus::kInput, path, "is not a file");
    const auto bytes = file.Read(0, kHeaderAreaSize);
    if (bytes.empty()) Fail(ExitStatus::kInput, path, "cannot be read: " + ErrorText(errno) + " (offset 0)");

    FileInfo info;
    info.path = path;
    info.fileSize = *size;
    CPartition pack;
    if (*size < 20 || pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != 0) {
        Fail(ExitStatus::kInput, path, "is not an MXF file: it does not begin with a partition pack (offset 0)");
    }
    if (*size < kPartitionPackSize) {
        Fail(ExitStatus::kInput, path, "ends within its first partition pack (offset " + std::to_string(*size) + ")");
    }
    if (!pack.IsOpAtom()) {
        Fail(ExitStatus::kInput, path,
             pack.IsOp1b() ? "is an OP-1b file, which this version does not read (offset 84)"
                           : "is an MXF file of another operational pattern than OP-Atom (offset 84)");
    }
    HeaderArea area = TakeApart(bytes);
    if (area.damage) area.damage = std::min(*area.damage, *size);

    // The library's own readers tell what they make of the header area; it is in memory already.
    CMemoryFileIO stream(bytes);
    CReadMXFVideo video;
    video.SetFilename("header");
    video.Open(&stream, true);
    uint32_t fileType = kFileTypeUnknown;
    video.GetFileType(&fileType);
    info.isVideo = fileType == kFileTypeVideo;
    if (info.isVideo) {
        info.format = VideoFormat{video.GetVideoStandard(), video.GetCompType(), video.IsConsumerDV()};
        info.frameSize = video.GetFrameDataSize();
        info.frameRate = GetVideoEditRate(info.format->videoStd);
        info.rateStandard = info.format->videoStd;
        video.GetDataOffset(&info.dataOffset);
        video.GetDataSize(&info.dataSize);
        const MXFKEYTag descriptor = info.format->IsAVCIntra() ? kMPEGDescriptorKey : kCDCIDescriptorKey;
        info.wide = Rational(area.sets.Item(descriptor, kTagAspectRatio)) == MXFRATIONALTag{16, 9};
        // What is there counts, as in the readers: the header tells of whole pairs of frames in every DV file.
        info.duration = FramesIn(info, info.dataSize);
    } else {
        CReadMXFAudio audio;
        audio.SetFilename("header");
        audio.Open(&stream, true);
        audio.GetFileType(&fileType);
        audio.GetDataOffset(&info.dataOffset);
        audio.GetDataSize(&info.dataSize);
        info.samplingRate = audio.GetSamplingRate();
        info.bitsPerSample = audio.GetBitsPerSample();
        info.frameRate = ClipFrameRate(area.sets);
        info.rateStandard = EditRateToVideoStd(info.frameRate, 0);
        info.isAudio = fileType == kFileTypeAudio;
        const bool described = info.samplingRate != 0 && (info.bitsPerSample == 16 || info.bitsPerSample == 24);
        if (info.isAudio && !described && !area.damage) area.damage = area.pack.GetLength();
        if (!area.damage && !info.isAudio) {
            Fail(ExitStatus::kInput, path, "holds essence of a kind not known here (offset 108)");
        }
        info.duration = FramesIn(info, info.dataSize);
    }
    ReadIdentity(info, area.sets);
    ReadDescriptiveMetadata(info, area.sets);
    info.verdict = Judge(file, info, area);
    if (!info.isVideo && info.bitsPerSample >= 8) info.samples = info.dataSize / (info.bitsPerSample / 8);
    return info;
}

std::optional<MXFUMIDTag> ReadMaterialUmid(const std::string& path) {
    // The material package comes early: half a header area is enough to tell files apart.
    constexpr size_t kLook = kHeaderAreaSize / 2;
    const File file(path);
    if (!file.IsOpen() || file.Size().value_or(0) < 20) return std::nullopt;
    const auto bytes = file.Read(0, kLook);
    CPartition pack;
    if (bytes.empty() || pack.SetData(bytes.data(), kLook) != 0 || pack.GetLength() > kLook) return std::nullopt;
    const auto umid = HeaderSets(Bytes(bytes).subspan(pack.GetLength())).Item(kMaterialPackageKey, kTagPackageUID);
    return umid.empty() ? std::nullopt : std::optional(Umid(umid));
}

}  // namespace kmxf::program
