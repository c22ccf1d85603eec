#include <algorithm>
#include <vector>

#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "tools/ClipHeader.h"

namespace kmxf {

namespace {

// Notes where the partition of the essence should begin and does not.
void LookForBody(std::span<const uint8_t> bytes, HeaderArea& area) {
    int64_t metadataSize = 0;
    area.pack.GetHeaderByteCount(metadataSize);
    const auto room = static_cast<int64_t>(bytes.size());
    const auto packSize = static_cast<int64_t>(area.pack.GetLength());
    const int64_t indexSize = area.pack.GetIndexByteCount();
    if (metadataSize < 0 || metadataSize > room - packSize) return;  // is noted already
    const int64_t metadataEnd = packSize + metadataSize;
    if (indexSize < 0 || indexSize > room - metadataEnd) {
        area.damage = area.damage.value_or(0);
        return;
    }
    const int64_t body = metadataEnd + indexSize;
    CPartition bodyPack;
    if (bodyPack.SetData(bytes.data() + body, static_cast<uint32_t>(room - body)) != 0) {
        area.damage = area.damage.value_or(static_cast<uint64_t>(body));
    }
}

// The frame rate of the clip's picture tracks, else of its timecode.
MXFRATIONALTag ClipFrameRate(const ClipSets& sets) {
    for (const ClipSet* track : sets.All("Track")) {
        for (const MXFKEYTag& sequence : track->Keys("Sequence")) {
            const auto definition = sets.Find(sequence).Keys("DataDefinition");
            if (!definition.empty() && definition.front() == kPictureDataDefinition) return track->Rational("EditRate");
        }
    }
    return sets.First("Track").Rational("EditRate");
}

// Frames of the essence that lies in the file, however the file ended.
int64_t FramesIn(const ClipFile& file, int64_t bytes) {
    const int64_t there = std::clamp<int64_t>(bytes, 0, static_cast<int64_t>(file.fileSize));
    if (file.isVideo) {
        return file.frameSize == 0 ? 0 : std::max<int64_t>(there - file.LeadSize(), 0) / file.frameSize;
    }
    const int64_t bytesPerSample = file.bitsPerSample / 8;
    if (bytesPerSample == 0 || file.rateStandard == 0) return 0;
    const int64_t most = DurationToAudioSample(file.rateStandard, kMostSoundFrames, file.samplingRate);
    // A few samples short of a frame still count as that frame, as the writer counts them.
    return AudioSampleToDuration(file.rateStandard, std::min(there / bytesPerSample, most) + 4, file.samplingRate);
}

// The whole frames, or samples, among the bytes that are there.
int64_t WholeBytes(const ClipFile& file, int64_t bytes) {
    const int64_t unit = file.isVideo ? file.frameSize : file.bitsPerSample / 8;
    const int64_t lead = file.LeadSize();
    return unit == 0 || bytes < lead ? bytes : bytes - (bytes - lead) % unit;
}

// Decides what became of the file, and takes into `file` the essence that is there and not what the header promises.
ClipVerdict Judge(const ClipSource& source, ClipFile& file, const HeaderArea& area) {
    const auto footer = static_cast<uint64_t>(area.pack.GetFooterPartition());
    const bool hasFooter = !area.damage && FooterAt(source, footer, file.fileSize);
    if (hasFooter && footer == file.dataOffset + static_cast<uint64_t>(file.dataSize)) return {};

    const auto there = static_cast<int64_t>(file.fileSize - std::min<uint64_t>(file.fileSize, file.dataOffset));
    file.dataSize = WholeBytes(file, footer == 0 ? there : std::clamp<int64_t>(file.dataSize, 0, there));
    file.duration = FramesIn(file, file.dataSize);
    if (area.damage) return {ClipVerdict::Kind::kDamaged, *area.damage};
    if (hasFooter)
        return {ClipVerdict::Kind::kDamaged, file.dataOffset - 8};  // the essence length tells of another place
    return {ClipVerdict::Kind::kCutOff, static_cast<uint64_t>(file.duration)};
}

}  // namespace

void ReadOpAtom(const ClipSource& source, std::span<const uint8_t> start, ClipFile& file) {
    HeaderArea area = TakeApart(start);
    LookForBody(start, area);
    if (area.damage) area.damage = std::min(*area.damage, file.fileSize);

    // The library's own readers tell what they make of the header area; it is in memory already.
    CMemoryFileIO stream(std::vector<uint8_t>(start.begin(), start.end()));
    CReadMXFVideo video;
    video.SetFilename("header");
    video.Open(&stream, true);
    uint32_t fileType = kFileTypeUnknown, dataOffset = 0;
    video.GetFileType(&fileType);
    file.isVideo = fileType == kFileTypeVideo;
    if (file.isVideo) {
        file.format = ClipPictureFormat{video.GetVideoStandard(), video.GetCompType(), video.IsConsumerDV()};
        file.frameSize = video.GetFrameDataSize();
        file.frameRate = GetVideoEditRate(file.format->videoStd);
        file.rateStandard = file.format->videoStd;
        video.GetDataOffset(&dataOffset);
        video.GetDataSize(&file.dataSize);
        const char* descriptor = IsAVCI(file.format->compType) ? "MPEGDescriptor" : "CDCIDescriptor";
        file.wide = area.sets.First(descriptor).Rational("AspectRatio") == MXFRATIONALTag{16, 9};
        // What is there counts, as in the readers: the header tells of whole pairs of frames in every DV file.
        file.duration = FramesIn(file, file.dataSize);
    } else {
        CReadMXFAudio audio;
        audio.SetFilename("header");
        audio.Open(&stream, true);
        audio.GetFileType(&fileType);
        audio.GetDataOffset(&dataOffset);
        audio.GetDataSize(&file.dataSize);
        file.samplingRate = audio.GetSamplingRate();
        file.bitsPerSample = audio.GetBitsPerSample();
        file.frameRate = ClipFrameRate(area.sets);
        file.rateStandard = EditRateToVideoStd(file.frameRate, 0);
        file.isAudio = fileType == kFileTypeAudio;
        file.channels = file.isAudio ? 1 : 0;
        const bool described = file.samplingRate != 0 && (file.bitsPerSample == 16 || file.bitsPerSample == 24);
        if (file.isAudio && !described && !area.damage) area.damage = area.pack.GetLength();
        if (!area.damage && !file.isAudio) {
            source.Fail("holds essence of a kind not known here (offset 108)");
        }
        file.duration = FramesIn(file, file.dataSize);
    }
    file.dataOffset = dataOffset;
    ReadIdentity(file, area.sets);
    file.verdict = Judge(source, file, area);
    file.frames = file.duration;
    if (!file.isVideo && file.bitsPerSample >= 8) file.samples = file.dataSize / (file.bitsPerSample / 8);
}

}  // namespace kmxf
