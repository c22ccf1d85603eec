#include "kmxf/tools/MXFExtractMetaData.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/FieldText.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/EssenceFormats.h"
#include "tools/ClipMetadata.h"
#include "tools/HeaderItems.h"

namespace kmxf {

namespace {

constexpr uint32_t kAnySequence = 0xFFFFFFFF;
constexpr uint32_t kPackageNameSize = 400;
constexpr uint32_t kNameSize = 120;
constexpr const char* kKnownClipKind = "moving pictures and sound";

int32_t Fail(LogPlace place, const char* message, int32_t status) {
    return Failed(place, "MXFExtractMetaData", message, status);
}

template <class... Pointer>
bool AnyNull(Pointer*... pointers) {
    return ((pointers == nullptr) || ...);
}

// The name of the video file is one of six characters with an extension of four: those four go, whatever they are.
std::string ClipName(const std::string& path) {
    std::string name = path.substr(path.find_last_of("\\/") + 1);
    if (name.size() > 6) name.erase(6, 4);
    return name;
}

struct Essence {
    uint32_t offset = 0;
    int64_t size = 0, fileSize = 0;
};

// The value of the element behind the header and body partitions; it may have any key.
int32_t FindEssence(IFileIO& file, Essence& essence) {
    const FileBytes bytes(file);
    uint64_t offset = 0;
    for (int partition = 0; partition < 2; ++partition) {
        CPartition pack;
        if (const int32_t status = bytes.ReadPack(offset, pack); status != kStatusOk) return status;
        int64_t headerBytes = 0;
        pack.GetHeaderByteCount(headerBytes);
        // A negative count leads out of the file too.
        if (!bytes.StepOver(offset,
                            {static_cast<uint64_t>(headerBytes), static_cast<uint64_t>(pack.GetIndexByteCount())}))
            return kStatusIoError;
    }
    constexpr uint64_t kShortHeadSize = 17, kLongestHead = kShortHeadSize + 127;
    std::vector<uint8_t> start;
    const int32_t status = bytes.Read(offset, std::min(kLongestHead, bytes.Size() - offset), start);
    if (status != kStatusOk) return status;
    const auto head = ReadKLVHead(start);
    if (!head || !std::in_range<uint32_t>(offset + head->size)) return kStatusIoError;
    essence.offset = static_cast<uint32_t>(offset + head->size);
    // Deliberately, a length in the short form counts as none.
    essence.size = head->size == kShortHeadSize ? 0 : static_cast<int64_t>(head->length);
    essence.fileSize = static_cast<int64_t>(bytes.Size());
    return kStatusOk;
}
// The same, with the failure logged.
int32_t FindEssenceOrReport(IFileIO* file, Essence& essence) {
    const LogPlace place("CMXFExtractMetaData::GetMXFBodyDataSize");
    if (file == nullptr) return Fail(place, "Invalid argument.", kStatusInvalidArgument);
    const int32_t status = FindEssence(*file, essence);
    if (status == kStatusOk) return status;
    return Fail(place,
                status == kStatusIoError    ? "Read Error."
                : status == kStatusNoMemory ? "Error."
                                            : "SetData Error.",
                status);
}

// DIF units; the progressive 720-line formats have two frames in one.
struct DIFUnit {
    uint32_t compType;
    bool interlacedOnly;
    uint32_t size30, size25;  // bytes, by the family of the standard
};
constexpr DIFUnit kDIFUnits[] = {
    {COMP_TYPE_DV25, true, 120000, 144000},
    {COMP_TYPE_DV50, true, 240000, 288000},
    {COMP_TYPE_DV100_1080I, false, 480000, 576000},
    {COMP_TYPE_DV100_720P, false, 480000, 576000},
};

// The item's label, by the tag that this library's own primer gives it.
const MXFKEYTag& LabelOf(uint16_t tag) { return FindRow(kPrimerRows, &PrimerRow::tag, tag)->ul; }

// --- accessors ---

// What every accessor looks at first.
template <class Value>
int32_t Admit(const ClipMetadata& clip, const Value* out) {
    if (!clip.extracted) return kStatusNotFound;
    return out == nullptr ? kStatusInvalidArgument : kStatusOk;
}

// A text takes memory.
template <class Value>
int32_t Store(const Value& value, Value* out) try {
    *out = value;
    return kStatusOk;
} catch (const std::bad_alloc&) {
    return kStatusNoMemory;
}

template <class Owner, class Value>
int32_t OfVideo(const ClipMetadata& clip, Value Owner::*field, Value* out) {
    const int32_t status = Admit(clip, out);
    return status == kStatusOk ? Store(clip.video.*field, out) : status;
}

template <class Value>
int32_t OfDIF(const ClipMetadata& clip, std::optional<Value> DIFMetadata::*field, Value* out) {
    if (const int32_t status = Admit(clip, out); status != kStatusOk) return status;
    const auto& value = clip.video.dif.*field;
    if (!value) return kStatusNotFound;
    *out = *value;
    return kStatusOk;
}

template <class Owner, class Value>
int32_t OfAudio(const ClipMetadata& clip, uint32_t channel, Value Owner::*field, Value* out) {
    if (const int32_t status = Admit(clip, out); status != kStatusOk) return status;
    if (channel >= clip.audio.size()) return kStatusInvalidArgument;
    return Store(clip.audio[channel].*field, out);
}

bool Same(const CTimecode& a, const CTimecode& b) {
    return a.GetTotalFrame() == b.GetTotalFrame() && a.IsDrop() == b.IsDrop();
}
template <class Value>
bool Same(const Value& a, const Value& b) {
    return a == b;
}

// The video file's value if every sound file has the same.
template <class Value>
int32_t OfAll(const ClipMetadata& clip, Value FileMetadata::*field, Value* out) {
    if (const int32_t status = Admit(clip, out); status != kStatusOk) return status;
    const Value& wanted = clip.video.*field;
    if (!std::ranges::all_of(clip.audio, [&](const AudioMetadata& audio) { return Same(audio.*field, wanted); }))
        return kStatusDisagree;
    return Store(wanted, out);
}
// The same; where files differ, an empty value is stored.
template <class Value>
int32_t OfAllOrEmpty(const ClipMetadata& clip, Value FileMetadata::*field, Value* out) {
    const int32_t status = OfAll(clip, field, out);
    if (status == kStatusDisagree) *out = {};
    return status;
}

uint32_t Frames(const ClipMetadata& clip, const AudioMetadata& audio) {
    return AudioSampleToDuration(clip.video.videoStd, static_cast<int64_t>(audio.samples), audio.samplingRate);
}

// --- DIF units ---

template <class Value, class Get>
void Take(std::optional<Value>& to, Get get) {
    Value value{};
    if (get(value) == kStatusOk) to = value;
}
// A timecode or user bits out of the 4 bytes that the frame has for it.
template <class Value, class Get>
int32_t Load(Value& value, Get get) {
    uint8_t bytes[4]{};
    const int32_t status = get(bytes);
    return status == kStatusOk ? value.SetData(bytes) : status;
}

DIFMetadata ReadDIF(const std::vector<uint8_t>& unit, uint32_t videoStd) {
    CDIFFrame frame;
    frame.SetDIFData(unit.data(), static_cast<uint32_t>(unit.size()));
    DIFMetadata dif;
    Take(dif.videoStd, [&](uint32_t& value) { return frame.GetVideoSystem(&value); });
    Take(dif.compType, [&](uint32_t& value) { return frame.GetCompType(&value); });
    Take(dif.consumerDV, [&](bool& value) { return frame.GetConsumerDVFlag(&value); });
    Take(dif.pulldown2332, [&](bool& value) { return frame.Get2332PulldownFlag(&value); });
    Take(dif.pulldownFrameRate, [&](uint8_t& value) { return frame.GetPulldownFrameRate(&value); });
    Take(dif.umid, [&](MXFUMIDEXTag& value) { return frame.GetUMID(value.bytes); });
    Take(dif.timecode, [&](CTimecode& value) {
        value.SetVideoStd(ConvertTCVideoStd(videoStd));
        return Load(value, [&](uint8_t* bytes) { return frame.GetTimecode(bytes, kAnySequence); });
    });
    Take(dif.usersBit, [&](CUsersBit& value) {
        return Load(value, [&](uint8_t* bytes) { return frame.GetUsersBit(bytes, SEI_DATA_TYPE1, kAnySequence); });
    });
    return dif;
}

}  // namespace

struct CMXFExtractMetaData::HeldFile : FactoryFile {};

CMXFExtractMetaData::CMXFExtractMetaData() : clip_(std::make_unique<ClipMetadata>()) {}
CMXFExtractMetaData::~CMXFExtractMetaData() = default;

int32_t CMXFExtractMetaData::ExtractMetaData(const std::string& videoFile,
                                             const std::vector<std::string>& audioFiles) try {
    const auto giveUp = [this](const LogPlace& place, const char* message, int32_t status) {
        ResetParam();
        return Fail(place, message, status);
    };
    ResetParam();
    if (const int32_t status = GetVideoInformation(videoFile); status != kStatusOk)
        return giveUp("CMXFExtractMetaData::ExtractMetaData", "GetVideoInformation Error.", status);
    for (const std::string& audioFile : audioFiles) {
        if (const int32_t status = GetAudioInformation(audioFile); status != kStatusOk)
            return giveUp("CMXFExtractMetaData::ExtractMetaData", "GetAudioInformation Error.", status);
    }
    clip_->extracted = true;
    return kStatusOk;
} catch (const std::bad_alloc&) {
    ResetParam();
    return Fail("CMXFExtractMetaData::ExtractMetaData", "Allocate Error.", kStatusNoMemory);
}

void CMXFExtractMetaData::ResetParam() { *clip_ = {}; }

template <class Use>
int32_t CMXFExtractMetaData::WithFile(const std::string& path, Use use) {
    if (!file_ || !*file_) file_ = std::make_unique<HeldFile>();
    if (!file_->Open(path.c_str(), kOpenRead)) return kStatusIoError;
    // Also when memory runs out on the way.
    const std::unique_ptr<HeldFile, void (*)(HeldFile*)> closer(file_.get(), [](HeldFile* held) { held->Close(); });
    return use(*file_->get());
}

int32_t CMXFExtractMetaData::GetVideoInformation(const std::string& path) {
    clip_->videoPath = path;
    clip_->name = ClipName(path);
    VideoMetadata video;
    if (WithFile(path, [&](IFileIO& file) { return ReadVideo(file, video); }) != kStatusOk) return kStatusIoError;
    clip_->video = std::move(video);
    return kStatusOk;
}

int32_t CMXFExtractMetaData::GetAudioInformation(const std::string& path) {
    AudioMetadata audio;
    const int32_t status = WithFile(path, [&](IFileIO& file) { return ReadAudio(file, audio); });
    if (status == kStatusOk) clip_->audio.push_back(std::move(audio));
    return status;
}

int32_t CMXFExtractMetaData::ReadVideo(IFileIO& file, VideoMetadata& video) {
    uint32_t fileType = 0;
    int32_t status = GetPelmardFormat(&file, &fileType, &video.videoStd, &video.compType, &video.consumerDV,
                                      &video.wide, &video.avcIntra);
    if (status != kStatusOk) return status;

    HeaderItems items(file);
    const MXFKEYTag& descriptor = video.avcIntra ? kMPEGDescriptorKey : kCDCIDescriptorKey;
    video.duration = static_cast<uint32_t>(items.Field(descriptor, kTagContainerDuration, 8).U64());
    const uint32_t timecodeStd = ConvertTCVideoStd(video.videoStd);
    status = ReadCommon(file, items, &timecodeStd, video);
    video.creationDate = items.Field(kMaterialPackageKey, kTagPackageCreationDate, 8).Timestamp();
    if (status == kStatusOk) status = items.Status();
    if (status != kStatusOk) return status;

    // Only DV has units.
    if (const uint32_t size = GetDIFSize(video.videoStd, video.compType)) {
        std::vector<uint8_t> unit;
        status = FileBytes(file).Read(video.dataOffset, size, unit);
        if (status != kStatusOk) return status;
        video.dif = ReadDIF(unit, video.videoStd);
    }
    return ReadDescriptive(file, video);
}

int32_t CMXFExtractMetaData::ReadAudio(IFileIO& file, AudioMetadata& audio) {
    HeaderItems items(file);
    audio.samples = items.Field(kAES3DescriptorKey, kTagContainerDuration, 8).U64();
    if (const int32_t status = ReadCommon(file, items, nullptr, audio); status != kStatusOk) return status;
    audio.bitsPerSample = items.Field(kAES3DescriptorKey, kTagQuantizationBits, 4).U32();
    audio.samplingRate = items.Field(kAES3DescriptorKey, kTagAudioSamplingRate, 8).U32();  // the numerator
    return items.Status() == kStatusOk ? ReadDescriptive(file, audio) : items.Status();
}

// What both kinds of file say in the same way. Without a standard for the timecode its base decides.
int32_t CMXFExtractMetaData::ReadCommon(IFileIO& file, HeaderItems& items, const uint32_t* timecodeStd,
                                        FileMetadata& metadata) {
    if (items.Status() != kStatusOk) return items.Status();
    Essence essence;
    if (const int32_t status = FindEssenceOrReport(&file, essence); status != kStatusOk) return status;
    metadata.dataOffset = essence.offset;
    metadata.dataSize = essence.size;
    metadata.fileSize = essence.fileSize;
    metadata.packageName = items.Text(kMaterialPackageKey, kTagPackageName, kPackageNameSize);

    const uint16_t base = items.Field(kTimecodeComponentKey, kTagRoundedTimecodeBase, 2).U16();
    const uint64_t start = items.Field(kTimecodeComponentKey, kTagStartTimecode, 8).U64();
    const uint8_t drop = items.Field(kTimecodeComponentKey, kTagDropFrame, 1).U8();
    const uint32_t stdOfBase = base == 24 ? VIDEO_STD_23_98P : base == 25 ? VIDEO_STD_50I : VIDEO_STD_59_94I;
    metadata.startTimecode.SetVideoStd(timecodeStd != nullptr ? *timecodeStd : stdOfBase);
    metadata.startTimecode.SetDropFlag(drop, false);
    metadata.startTimecode.SetTotalFrame(static_cast<uint32_t>(start));

    metadata.fileUMID = items.Field(kFilePackageKey, kTagPackageUID, 32).Umid();
    metadata.materialUMID = items.Field(kMaterialPackageKey, kTagPackageUID, 32).Umid();
    return items.Status();
}

int32_t CMXFExtractMetaData::ReadDescriptive(IFileIO& file, FileMetadata& metadata) {
    return GetDMSData(&file, &metadata.jobFunction, &metadata.familyName, &metadata.firstGivenName,
                      &metadata.projectNumber, &metadata.projectName, &metadata.takeNumber, &metadata.clipKind,
                      &metadata.sceneNumber);
}

// --- the clip ---

int32_t CMXFExtractMetaData::GetClipDuration(uint32_t* frames) {
    if (const int32_t status = OfVideo(*clip_, &VideoMetadata::duration, frames); status != kStatusOk) return status;
    for (const AudioMetadata& audio : clip_->audio) *frames = std::min(*frames, Frames(*clip_, audio));
    if (clip_->video.compType == COMP_TYPE_DV100_720P) *frames -= *frames % 2;
    return kStatusOk;
}

int32_t CMXFExtractMetaData::GetClipName(std::string* name) {
    const int32_t status = Admit(*clip_, name);
    return status == kStatusOk ? Store(clip_->name, name) : status;
}

int32_t CMXFExtractMetaData::GetPackageName(std::string* name) {
    return OfAllOrEmpty(*clip_, &FileMetadata::packageName, name);
}
int32_t CMXFExtractMetaData::GetMXFStartTimecode(CTimecode* timecode) {
    return OfAll(*clip_, &FileMetadata::startTimecode, timecode);
}
int32_t CMXFExtractMetaData::GetMaterialUMID(MXFUMIDTag* umid) {
    return OfAll(*clip_, &FileMetadata::materialUMID, umid);
}
int32_t CMXFExtractMetaData::GetJobFunction(std::string* text) {
    return OfAllOrEmpty(*clip_, &FileMetadata::jobFunction, text);
}
int32_t CMXFExtractMetaData::GetFamilyName(std::string* text) {
    return OfAllOrEmpty(*clip_, &FileMetadata::familyName, text);
}
int32_t CMXFExtractMetaData::GetFirstGivenName(std::string* text) {
    return OfAllOrEmpty(*clip_, &FileMetadata::firstGivenName, text);
}
int32_t CMXFExtractMetaData::GetProjectName(std::string* text) {
    return OfAllOrEmpty(*clip_, &FileMetadata::projectName, text);
}
int32_t CMXFExtractMetaData::GetProjectNumber(std::string* text) {
    return OfAllOrEmpty(*clip_, &FileMetadata::projectNumber, text);
}
int32_t CMXFExtractMetaData::GetSceneNumber(std::string* text) {
    return OfAllOrEmpty(*clip_, &FileMetadata::sceneNumber, text);
}
int32_t CMXFExtractMetaData::GetTakeNumber(uint16_t* takeNumber) {
    return OfAllOrEmpty(*clip_, &FileMetadata::takeNumber, takeNumber);
}
int32_t CMXFExtractMetaData::GetClipKind(std::string* text) {
    const int32_t status = OfAllOrEmpty(*clip_, &FileMetadata::clipKind, text);
    if (status != kStatusOk || text->empty() || *text == kKnownClipKind) return status;
    text->clear();
    return kStatusDisagree;
}

// --- the video file ---

int32_t CMXFExtractMetaData::GetWideFlag(bool* wide) { return OfVideo(*clip_, &VideoMetadata::wide, wide); }
int32_t CMXFExtractMetaData::GetConsumerDVFlag(bool* consumerDV) {
    return OfVideo(*clip_, &VideoMetadata::consumerDV, consumerDV);
}
int32_t CMXFExtractMetaData::GetVideoDuration(uint32_t* frames) {
    return OfVideo(*clip_, &VideoMetadata::duration, frames);
}
int32_t CMXFExtractMetaData::GetVideoDataOffset(uint32_t* offset) {
    const int32_t status = OfVideo(*clip_, &VideoMetadata::dataOffset, offset);
    return status == kStatusOk && *offset % 4 != 0 ? kStatusInvalidArgument : status;
}
int32_t CMXFExtractMetaData::GetVideoDataSize(int64_t* size) { return OfVideo(*clip_, &VideoMetadata::dataSize, size); }
int32_t CMXFExtractMetaData::GetVideoFileSize(int64_t* size) { return OfVideo(*clip_, &VideoMetadata::fileSize, size); }
int32_t CMXFExtractMetaData::GetVideoCreationDate(MXFTIMESTAMPTag* date) {
    return OfVideo(*clip_, &VideoMetadata::creationDate, date);
}
int32_t CMXFExtractMetaData::GetVideoFileUMID(MXFUMIDTag* umid) {
    return OfVideo(*clip_, &VideoMetadata::fileUMID, umid);
}
int32_t CMXFExtractMetaData::GetVideoMaterialUMID(MXFUMIDTag* umid) {
    return OfVideo(*clip_, &VideoMetadata::materialUMID, umid);
}
int32_t CMXFExtractMetaData::GetVideoStartTimecode(CTimecode* timecode) {
    return OfVideo(*clip_, &VideoMetadata::startTimecode, timecode);
}
int32_t CMXFExtractMetaData::GetVideoClipName(std::string* name) {
    return OfVideo(*clip_, &VideoMetadata::packageName, name);
}
int32_t CMXFExtractMetaData::GetVideoStandard(uint32_t* videoStd) {
    return OfVideo(*clip_, &VideoMetadata::videoStd, videoStd);
}
int32_t CMXFExtractMetaData::GetDVType(uint32_t* compType) {
    return OfVideo(*clip_, &VideoMetadata::compType, compType);
}

int32_t CMXFExtractMetaData::GetDIFStartTimecode(CTimecode* timecode) {
    return OfDIF(*clip_, &DIFMetadata::timecode, timecode);
}
int32_t CMXFExtractMetaData::GetDIFStartUsersBit(CUsersBit* usersBit) {
    return OfDIF(*clip_, &DIFMetadata::usersBit, usersBit);
}
int32_t CMXFExtractMetaData::GetDIFStartUMID(MXFUMIDEXTag* umid) { return OfDIF(*clip_, &DIFMetadata::umid, umid); }
int32_t CMXFExtractMetaData::GetDIFVideoStandard(uint32_t* videoStd) {
    return OfDIF(*clip_, &DIFMetadata::videoStd, videoStd);
}
int32_t CMXFExtractMetaData::GetDIFDVType(uint32_t* compType) {
    return OfDIF(*clip_, &DIFMetadata::compType, compType);
}
int32_t CMXFExtractMetaData::GetDIFConsumerDVFlag(bool* consumerDV) {
    return OfDIF(*clip_, &DIFMetadata::consumerDV, consumerDV);
}
int32_t CMXFExtractMetaData::GetDIF2332PulldownFlag(bool* flag) {
    return OfDIF(*clip_, &DIFMetadata::pulldown2332, flag);
}
int32_t CMXFExtractMetaData::GetDIFPulldownFrameRate(uint8_t* rate) {
    return OfDIF(*clip_, &DIFMetadata::pulldownFrameRate, rate);
}

int32_t CMXFExtractMetaData::GetDIFEndUMID(MXFUMIDEXTag* umid) try {
    if (const int32_t status = Admit(*clip_, umid); status != kStatusOk) return status;
    const VideoMetadata& video = clip_->video;
    uint32_t frames = 0;
    GetClipDuration(&frames);
    // Of the 720-line formats a unit holds two frames, and the duration is even.
    const uint32_t units = video.compType == COMP_TYPE_DV100_720P ? frames / 2 : frames;
    const uint32_t size = GetDIFSize(video.videoStd, video.compType);
    if (units == 0 || size == 0) return -1;

    std::vector<uint8_t> unit;
    const int32_t status = WithFile(clip_->videoPath, [&](IFileIO& file) {
        return FileBytes(file).Read(video.dataOffset + uint64_t{units - 1} * size, size, unit);
    });
    if (status != kStatusOk) return -1;
    CDIFFrame frame;
    frame.SetDIFData(unit.data(), size);
    return frame.GetUMID(umid->bytes);
} catch (const std::bad_alloc&) {
    return -1;
}

// --- one sound file ---

int32_t CMXFExtractMetaData::GetAudioDuration(uint32_t channel, uint32_t* frames) {
    if (const int32_t status = Admit(*clip_, frames); status != kStatusOk) return status;
    if (channel >= clip_->audio.size()) return kStatusInvalidArgument;
    *frames = Frames(*clip_, clip_->audio[channel]);
    return kStatusOk;
}
int32_t CMXFExtractMetaData::GetAudioDataOffset(uint32_t channel, uint32_t* offset) {
    return OfAudio(*clip_, channel, &AudioMetadata::dataOffset, offset);
}
int32_t CMXFExtractMetaData::GetAudioDataSize(uint32_t channel, int64_t* size) {
    return OfAudio(*clip_, channel, &AudioMetadata::dataSize, size);
}
int32_t CMXFExtractMetaData::GetAudioFileSize(uint32_t channel, int64_t* size) {
    return OfAudio(*clip_, channel, &AudioMetadata::fileSize, size);
}
int32_t CMXFExtractMetaData::GetAudioFileUMID(uint32_t channel, MXFUMIDTag* umid) {
    return OfAudio(*clip_, channel, &AudioMetadata::fileUMID, umid);
}
int32_t CMXFExtractMetaData::GetAudioMaterialUMID(uint32_t channel, MXFUMIDTag* umid) {
    return OfAudio(*clip_, channel, &AudioMetadata::materialUMID, umid);
}
int32_t CMXFExtractMetaData::GetAudioBitsPerSample(uint32_t channel, uint32_t* bits) {
    return OfAudio(*clip_, channel, &AudioMetadata::bitsPerSample, bits);
}
int32_t CMXFExtractMetaData::GetAudioSamplingRate(uint32_t channel, uint32_t* rate) {
    return OfAudio(*clip_, channel, &AudioMetadata::samplingRate, rate);
}
int32_t CMXFExtractMetaData::GetAudioClipName(uint32_t channel, std::string* name) {
    return OfAudio(*clip_, channel, &AudioMetadata::packageName, name);
}
int32_t CMXFExtractMetaData::GetAudioStartTimecode(uint32_t channel, CTimecode* timecode) {
    return OfAudio(*clip_, channel, &AudioMetadata::startTimecode, timecode);
}

// --- one file ---

uint32_t CMXFExtractMetaData::GetPartitionSize(const uint8_t* buffer) {
    if (buffer == nullptr) return 0;
    const auto head = ReadKLVHead({buffer, kPacketHeadSize});
    if (!head || head->length > std::numeric_limits<uint32_t>::max() - head->size) return 0;
    return head->size + static_cast<uint32_t>(head->length);
}

uint32_t CMXFExtractMetaData::GetDataOffset(IFileIO* file) {
    Essence essence;
    return file != nullptr && FindEssence(*file, essence) == kStatusOk ? essence.offset : 0;
}

int64_t CMXFExtractMetaData::GetMXFBodyDataSize(IFileIO* file) {
    Essence essence;
    return FindEssenceOrReport(file, essence) == kStatusOk ? essence.size : 0;
}

int32_t CMXFExtractMetaData::GetKeyInfo(IFileIO* file, MXFKEYTag key, uint16_t localTag, int64_t* offset,
                                        uint32_t* length) {
    if (AnyNull(file, offset, length)) return kStatusInvalidArgument;
    return HeaderItems(*file).Find(key, localTag, *offset, *length);
}

int32_t CMXFExtractMetaData::ReadMetadata(IFileIO* file, MXFKEYTag key, uint16_t localTag, void* buffer,
                                          uint32_t bufferSize) {
    if (file == nullptr || buffer == nullptr || bufferSize == 0) return kStatusInvalidArgument;
    return HeaderItems(*file).Copy(key, localTag, {static_cast<uint8_t*>(buffer), bufferSize});
}

int32_t CMXFExtractMetaData::GetPrimerPackData(IFileIO* file, std::vector<MXFLOCALTAGENTRYTag>& entries) {
    if (file == nullptr) return kStatusInvalidArgument;
    entries.clear();
    const FileBytes bytes(*file);
    std::vector<uint8_t> packet;
    for (uint64_t offset = 0;;) {
        // A file that ends before there was a primer gives the status of a missing buffer.
        if (bytes.Read(offset, kPacketHeadSize, packet) != kStatusOk) return kStatusNoMemory;
        const auto head = ReadKLVHead(packet);
        if (!head || !bytes.StepOver(offset, {head->size, head->length})) return kStatusNoMemory;
        if (head->key != kPrimerPackKey) continue;

        if (bytes.Read(offset - head->length, head->length, packet) != kStatusOk) return kStatusNoMemory;
        ByteReader reader(packet);
        uint32_t count = reader.U32();
        reader.Skip(4);  // the length of an entry, always 18
        for (; count > 0; --count) {
            const MXFLOCALTAGENTRYTag entry{reader.U16(), reader.Key()};
            if (!reader.Ok()) break;
            entries.push_back(entry);
        }
        return kStatusOk;
    }
}

uint16_t CMXFExtractMetaData::GetLocalTag(const std::vector<MXFLOCALTAGENTRYTag>& entries, MXFKEYTag ul) {
    const auto entry = std::ranges::find(entries, ul, &MXFLOCALTAGENTRYTag::ul);
    return entry == entries.end() ? uint16_t{0} : entry->localTag;
}

int32_t CMXFExtractMetaData::GetPelmardFormat(IFileIO* file, uint32_t* fileType, uint32_t* videoStd, uint32_t* compType,
                                              bool* consumerDV, bool* wide, bool* avci) {
    if (AnyNull(file, fileType, videoStd, compType, consumerDV, wide, avci)) return kStatusInvalidArgument;
    CPartition pack;
    uint64_t end = 0;
    if (const int32_t status = FileBytes(*file).ReadPack(end, pack); status != kStatusOk) return status;
    MXFKEYTag container;
    pack.GetEssenceContainer(&container, 0);

    struct Format {
        uint32_t fileType = kFileTypeVideo, videoStd = 0, compType = 0;
        bool consumerDV = false, wide = true, avcIntra = false;
    } format;
    if (container == kAES3ClipContainerLabel) {
        format.fileType = kFileTypeAudio;
        format.wide = false;
    } else if (container != kAVCLongGOPContainerLabel) {
        // Of this one the last byte does not count.
        constexpr MXFKEYTag kDV1080At60 = DVContainer(0x60);
        if (std::equal(container.bytes, container.bytes + 15, kDV1080At60.bytes)) container = kDV1080At60;
        const LabelledFormat* row = FindRow(kContainerFormats, &LabelledFormat::label, container);
        if (row == nullptr) return kStatusFailure;
        format.videoStd = row->videoStd;
        format.compType = row->compType;
        format.consumerDV = row->consumerDV;
        format.avcIntra = row->label == kAVCIntraContainerLabel;
        int32_t status = kStatusOk;
        if (format.avcIntra) {
            status = GetAVCIFormat(file, &format.videoStd, &format.compType);
        } else if (format.compType == COMP_TYPE_DV100_720P) {
            status = Get720PFormat(file, &format.videoStd);
        } else if (format.compType != COMP_TYPE_DV100_1080I) {
            status = GetDVWideFlag(file, &format.wide);
        }
        if (status != kStatusOk) return status;
    }
    *fileType = format.fileType;
    *videoStd = format.videoStd;
    *compType = format.compType;
    *consumerDV = format.consumerDV;
    *wide = format.wide;
    *avci = format.avcIntra;
    return kStatusOk;
}

int32_t CMXFExtractMetaData::GetDVWideFlag(IFileIO* file, bool* wide) {
    if (AnyNull(file, wide)) return kStatusInvalidArgument;
    HeaderItems items(*file);
    const MXFRATIONALTag ratio = items.Field(kCDCIDescriptorKey, kTagAspectRatio, 8).Rational();
    if (items.Status() == kStatusOk) *wide = ratio == MXFRATIONALTag{16, 9};
    return items.Status();
}

int32_t CMXFExtractMetaData::Get720PFormat(IFileIO* file, uint32_t* videoStd) {
    if (AnyNull(file, videoStd)) return kStatusInvalidArgument;
    HeaderItems items(*file);
    const MXFRATIONALTag rate = items.Field(kCDCIDescriptorKey, kTagSampleRate, 8).Rational();
    if (items.Status() == kStatusOk) *videoStd = EditRateToVideoStd(rate, 0);
    return items.Status();
}

int32_t CMXFExtractMetaData::GetAVCIFormat(IFileIO* file, uint32_t* videoStd, uint32_t* compType) {
    if (AnyNull(file, videoStd, compType)) return kStatusInvalidArgument;
    HeaderItems items(*file);
    const MXFKEYTag coding = items.Field(kMPEGDescriptorKey, kTagPictureEssenceCoding, 16).Key();
    // The rate is needed even where the coding label names the standard.
    const MXFRATIONALTag rate = items.Field(kMPEGDescriptorKey, kTagSampleRate, 8).Rational();
    if (items.Status() != kStatusOk) return items.Status();
    const LabelledFormat* row = FindRow(kAVCIntraFormats, &LabelledFormat::label, coding);
    if (row == nullptr) return kStatusFailure;
    *videoStd = row->videoStd != kByRate ? row->videoStd : EditRateToVideoStd(rate, 0);
    *compType = row->compType;
    return kStatusOk;
}

uint32_t CMXFExtractMetaData::GetDIFSize(uint32_t videoStd, uint32_t compType) {
    const DIFUnit* unit = FindRow(kDIFUnits, &DIFUnit::compType, compType);
    const int32_t rate = GetTimecodeEditRate(videoStd).numerator;
    if (unit == nullptr || rate == 0 || (unit->interlacedOnly && IsProgressive(videoStd))) return 0;
    return rate == 25 ? unit->size25 : unit->size30;
}

int32_t CMXFExtractMetaData::GetDMSData(IFileIO* file, std::string* jobFunction, std::string* familyName,
                                        std::string* firstGivenName, std::string* projectNumber,
                                        std::string* projectName, uint16_t* takeNumber, std::string* clipKind,
                                        std::string* sceneNumber) {
    if (AnyNull(file, jobFunction, familyName, firstGivenName, projectNumber, projectName, takeNumber, clipKind,
                sceneNumber))
        return kStatusInvalidArgument;
    struct Text {
        uint16_t ownTag;
        const MXFKEYTag& set;
        uint32_t limit;
        std::string (*decode)(std::span<const uint8_t>);
        std::string* out;
    };
    const Text texts[] = {
        {kTagJobFunction, kParticipantKey, kNameSize, UTF16FieldText, jobFunction},
        {kTagFamilyName, kPersonKey, kNameSize, UTF16FieldText, familyName},
        {kTagFirstGivenName, kPersonKey, kNameSize, UTF16FieldText, firstGivenName},
        {kTagProjectNumber, kProjectKey, kLongestItem, RawFieldText, projectNumber},
        {kTagProjectName, kProjectKey, kLongestItem, UTF16FieldText, projectName},
        {kTagClipKind, kClipFrameworkKey, kLongestItem, UTF16FieldText, clipKind},
        {kTagSceneNumber, kSceneFrameworkKey, kLongestItem, RawFieldText, sceneNumber},
    };
    for (const Text& text : texts) text.out->clear();
    *takeNumber = 0;

    std::vector<MXFLOCALTAGENTRYTag> primer;
    if (const int32_t status = GetPrimerPackData(file, primer); status != kStatusOk) return status;
    HeaderItems items(*file);
    // An item or a set that is not there leaves its value empty; anything else that goes wrong is a failure.
    std::vector<uint8_t> value;
    const auto read = [&](uint16_t ownTag, const MXFKEYTag& set, uint32_t limit) {
        value.clear();
        const uint16_t tag = GetLocalTag(primer, LabelOf(ownTag));
        const int32_t status = tag == 0 ? kStatusFailure : items.Read(set, tag, limit, value);
        return status == kStatusFailure ? kStatusOk : status;
    };
    for (const Text& text : texts) {
        if (const int32_t status = read(text.ownTag, text.set, text.limit); status != kStatusOk) return status;
        *text.out = text.decode(value);
    }
    if (const int32_t status = read(kTagTakeNumber, kClipFrameworkKey, sizeof *takeNumber); status != kStatusOk)
        return status;
    *takeNumber = ByteReader(value).U16();
    return kStatusOk;
}

}  // namespace kmxf
