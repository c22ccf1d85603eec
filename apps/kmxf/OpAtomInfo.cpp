#include <algorithm>
#include <ranges>
#include <vector>

#include "HeaderArea.h"
#include "Program.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"

namespace kmxf::program {

namespace {

// Notes where the partition of the essence should begin and does not.
void LookForBody(Bytes bytes, HeaderArea& area) {
    int64_t metadataSize = 0;
    area.pack.GetHeaderByteCount(metadataSize);
    const auto room = static_cast<int64_t>(bytes.size());
    const auto packSize = static_cast<int64_t>(area.pack.GetLength());
    const int64_t indexSize = area.pack.GetIndexByteCount();
    if (metadataSize < 0 || metadataSize > room - packSize) return;  // is noted already
    const int64_t body = packSize + metadataSize + indexSize;
    CPartition bodyPack;
    if (indexSize < 0 || body > room) {
        area.damage = area.damage.value_or(0);
    } else if (bodyPack.SetData(bytes.data() + body, static_cast<uint32_t>(room - body)) != 0) {
        area.damage = area.damage.value_or(static_cast<uint64_t>(body));
    }
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

// The whole frames, or samples, among the bytes that are there.
int64_t WholeBytes(const FileInfo& info, int64_t bytes) {
    const int64_t unit = info.isVideo ? info.frameSize : info.bitsPerSample / 8;
    const int64_t lead = info.format && info.format->IsAVCIntra() ? 512 : 0;
    return unit == 0 || bytes < lead ? bytes : bytes - (bytes - lead) % unit;
}

// Decides what became of the file, and takes into `info` the essence that is there and not what the header promises.
Verdict Judge(const InputFile& file, FileInfo& info, const HeaderArea& area) {
    const auto footer = static_cast<uint64_t>(area.pack.GetFooterPartition());
    const bool hasFooter = !area.damage && FooterAt(file, footer, info.fileSize);
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

void ReadOpAtom(const InputFile& file, Bytes start, FileInfo& info) {
    HeaderArea area = TakeApart(start);
    LookForBody(start, area);
    if (area.damage) area.damage = std::min(*area.damage, info.fileSize);

    // The library's own readers tell what they make of the header area; it is in memory already.
    CMemoryFileIO stream(std::vector<uint8_t>(start.begin(), start.end()));
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
        info.channels = info.isAudio ? 1 : 0;
        const bool described = info.samplingRate != 0 && (info.bitsPerSample == 16 || info.bitsPerSample == 24);
        if (info.isAudio && !described && !area.damage) area.damage = area.pack.GetLength();
        if (!area.damage && !info.isAudio) {
            Fail(ExitStatus::kInput, info.path, "holds essence of a kind not known here (offset 108)");
        }
        info.duration = FramesIn(info, info.dataSize);
    }
    ReadIdentity(info, area.sets);
    info.verdict = Judge(file, info, area);
    info.frames = info.duration;
    if (!info.isVideo && info.bitsPerSample >= 8) info.samples = info.dataSize / (info.bitsPerSample / 8);
}

}  // namespace kmxf::program
