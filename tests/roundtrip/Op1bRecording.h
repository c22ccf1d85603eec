#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <span>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "roundtrip/Recording.h"
#include "support/Op1bClip.h"

namespace kmxf::test {

// The samples of a channel for some frames: noise, so that no frame's can pass for another's, and none of another
// channel.
inline std::span<const uint8_t> SoundOf(const Op1bClip& clip, uint32_t channel, uint32_t first, uint32_t frames) {
    static const auto kNoise = Noise(720000, 1);
    const size_t begin = size_t{SamplesOf(clip.Standard(), first)} * clip.bytesPerSample;
    const size_t end = size_t{SamplesOf(clip.Standard(), first + frames)} * clip.bytesPerSample;
    return std::span(kNoise).subspan(977 * channel + begin, end - begin);
}

// A client with a clip to record. It keeps its pieces as long as it lives, for streams that complete later.
class Op1bClient final {
public:
    explicit Op1bClient(const Op1bClip& clip) : clip_(clip) {}
    void LeaveOutLastSound() { lastSound_ = false; }

    // Hands all pictures and sound to an open writer, up to the first that it refuses.
    bool Feed(CCreateMXFOp1b& writer) {
        const uint32_t most = clip_.Standard().groupFrames;
        for (uint32_t first = 0; first < clip_.frames; first += most) {
            const uint32_t frames = std::min(most, clip_.frames - first);
            for (uint32_t i = first; i < first + frames; ++i) {
                const auto size = static_cast<int32_t>(clip_.Frame(i).size());
                if (writer.WriteVideo(Keep(clip_.Frame(i)), clip_.TemporalOffset(i), clip_.KeyFrameOffset(i),
                                      clip_.Flags(i)) != (size + 3) / 4 * 4)
                    return false;
            }
            if (!lastSound_ && first + frames == clip_.frames) break;
            for (uint8_t c = 0; c < clip_.channels; ++c) {
                const auto sound = SoundOf(clip_, c, first, frames);
                if (writer.WriteAudio(Keep(sound), c) != static_cast<int32_t>(sound.size())) return false;
            }
        }
        return true;
    }
    size_t Pieces() const { return pieces_.size(); }

private:
    StreamPiece* Keep(std::span<const uint8_t> bytes) {
        return &pieces_.emplace_back(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }

    Op1bClip clip_;
    bool lastSound_ = true;
    std::deque<CMemoryPiece> pieces_;
};

// Numbers and bytes in the order in which they were asked for.
struct Answers {
    std::vector<int64_t> numbers;

    template <std::integral Number>
    Answers& operator<<(Number number) {
        numbers.push_back(static_cast<int64_t>(number));
        return *this;
    }
    Answers& operator<<(std::span<const uint8_t> bytes) {
        numbers.insert(numbers.end(), bytes.begin(), bytes.end());
        return *this;
    }
};

// What a reader says to every question about a clip and some of its frames, failures included; only not the bytes of
// the header.
inline std::vector<int64_t> AskEverything(CReadMXFOp1b& reader, std::initializer_list<uint32_t> frames) {
    Answers answers;
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDTag umid;
    answers << reader.GetDuration() << reader.GetOrigin() << reader.GetPartitionFrame() << reader.GetVideoStandard()
            << reader.GetCompressionType() << reader.GetAudioCh() << reader.GetAudioDataSize()
            << reader.GetSamplingRate() << reader.GetBytesPerSample() << reader.IsValidDMS() << reader.GetHeaderSize();
    answers << reader.GetStartTimecode(timecode) << timecode.GetTotalFrame() << timecode.IsDrop();
    answers << reader.GetMaterialUID(umid) << umid.bytes;

    std::vector<uint8_t> data(reader.GetXMLDataSize() + 1u);
    answers << reader.GetXMLDataSize() << reader.GetXMLOffset() << reader.GetXMLData(data.data()) << data;
    data.assign(reader.GetThumbnailDataSize() + 1u, 0);
    answers << reader.GetThumbnailType() << reader.GetThumbnailWidth() << reader.GetThumbnailHeight()
            << reader.GetThumbnailDataSize() << reader.GetThumbnailData(data.data()) << data;

    for (const uint32_t frame : frames) {
        VIDEOFRAMEINFOTag video, filler;
        MXFINDEXENTRYTag entry;
        ANCDATAINFOTag anc;
        answers << reader.GetVideoInfo(frame, video) << video.offset << video.size << video.temporalOffset
                << video.keyFrameOffset << video.flags;
        answers << reader.GetVideoInfoFiller(frame, filler) << filler.offset << filler.size;
        answers << reader.GetVideoIndexEntry(frame, entry) << entry.temporalOffset << entry.keyFrameOffset
                << entry.flags << entry.streamOffset << reader.GetCodingPosition(frame);
        answers << reader.GetANCInfo(frame, anc) << anc.offset << anc.size << anc.hasData;
        for (uint32_t c = 0; c <= std::min(reader.GetAudioCh(), 32u); ++c) {
            AUDIODATAINFOTag sound;
            answers << reader.GetAudioInfo(frame, c, sound) << sound.offset << sound.size << sound.position;
        }
        uint8_t area[512] = {}, bits[4] = {};
        answers << reader.GetSEIType1(frame, area) << area;
        for (const eSEIDataType type : {SEI_DATA_TYPE1, SEI_DATA_TYPE2}) {
            answers << reader.GetTimecode(frame, timecode, type) << timecode.GetTotalFrame();
            answers << reader.GetUsersBit(frame, usersBit, type) << usersBit.GetData(bits) << bits;
        }
    }
    return answers.numbers;
}

}  // namespace kmxf::test
