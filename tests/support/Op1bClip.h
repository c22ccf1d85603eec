#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/writer/CreateMXFOp1b.h"

namespace kmxf::test {

// What the published figures say of a video standard: the library is not asked.
struct Op1bStandard {
    uint32_t code;
    uint32_t groupFrames;
    uint32_t rate[2], timecodeRate[2];
    bool halfTimecode;              // a timecode frame spans two pictures
    std::vector<uint32_t> samples;  // of 48 kHz in each frame of a cycle
};
inline const std::vector<Op1bStandard>& Op1bStandards() {
    static const std::vector<Op1bStandard> kStandards = {
        {0x0100007C, 60, {30000, 1001}, {30000, 1001}, false, {1600, 1604, 1600, 1604, 1600}},
        {0x010000B2, 50, {25, 1}, {25, 1}, false, {1920}},
        {0x02000058, 48, {24000, 1001}, {24000, 1001}, false, {2004, 2000, 2004, 2000}},
        {0x0200005E, 60, {30000, 1001}, {30000, 1001}, false, {1600, 1604, 1600, 1604, 1600}},
        {0x0200007C, 120, {60000, 1001}, {30000, 1001}, true, {800, 800, 804, 800, 800, 800, 804, 800, 800, 800}},
        {0x02000099, 50, {25, 1}, {25, 1}, false, {1920}},
        {0x020000B2, 100, {50, 1}, {25, 1}, true, {960}},
    };
    return kStandards;
}
inline const Op1bStandard& Op1bStandardOf(uint32_t code) {
    for (const Op1bStandard& each : Op1bStandards()) {
        if (each.code == code) return each;
    }
    throw std::invalid_argument("no such standard");
}
inline uint32_t SamplesOf(const Op1bStandard& standard, uint32_t frames) {
    uint32_t samples = 0;
    for (uint32_t i = 0; i < frames; ++i) samples += standard.samples[i % standard.samples.size()];
    return samples;
}

// A clip of made-up essence: small frames of all lengths modulo 4 that end in no zero byte, and sound of the length
// that belongs to its frames.
struct Op1bClip {
    uint32_t videoStd;
    uint32_t compType;
    uint8_t channels = 0;
    uint8_t bytesPerSample = 2;
    uint32_t frames = 1;
    bool players = false;
    uint32_t hidden = 0;  // frames behind the first that cannot be shown

    const Op1bStandard& Standard() const { return Op1bStandardOf(videoStd); }

    std::vector<uint8_t> Frame(uint32_t number) const {
        return std::vector<uint8_t>(1 + number % 9, static_cast<uint8_t>(0x80 | number));
    }
    int8_t TemporalOffset(uint32_t number) const { return static_cast<int8_t>(2 - static_cast<int>(number % 4)); }
    int8_t KeyFrameOffset(uint32_t number) const { return static_cast<int8_t>(-static_cast<int>(number % 12)); }
    uint8_t Flags(uint32_t number) const {
        if (number % 12 == 0) return 0xC0;
        return number <= hidden ? 0x3B : 0x22;
    }
    std::vector<uint8_t> Sound(uint32_t group, uint32_t groupFrames, uint32_t channel) const {
        return std::vector<uint8_t>(size_t{SamplesOf(Standard(), groupFrames)} * bytesPerSample,
                                    static_cast<uint8_t>(0x40 + 16 * group + channel));
    }
};

// Settings of the clip's format alone.
inline void SetFormat(CCreateMXFOp1b& writer, const Op1bClip& clip) {
    writer.SetVideoStandard(clip.videoStd);
    writer.SetCompType(clip.compType);
    writer.SetBytesPerSample(clip.bytesPerSample);
    writer.SetClipType(0x100u | clip.channels);
    writer.SetPlayerLayout(clip.players);
}

inline int32_t WriteFrame(CCreateMXFOp1b& writer, const Op1bClip& clip, uint32_t number) {
    const auto bytes = clip.Frame(number);
    CMemoryPiece piece(bytes.data(), static_cast<uint32_t>(bytes.size()));
    return writer.WriteVideo(&piece, clip.TemporalOffset(number), clip.KeyFrameOffset(number), clip.Flags(number));
}
inline int32_t WriteSound(CCreateMXFOp1b& writer, const Op1bClip& clip, uint32_t group, uint32_t frames,
                          uint32_t channel) {
    const auto bytes = clip.Sound(group, frames, channel);
    CMemoryPiece piece(bytes.data(), static_cast<uint32_t>(bytes.size()));
    return writer.WriteAudio(&piece, static_cast<uint8_t>(channel));
}

// Everything between Open and Close, for streams that complete inside Write.
inline void WriteClip(CCreateMXFOp1b& writer, const Op1bClip& clip) {
    const uint32_t most = clip.Standard().groupFrames;
    for (uint32_t first = 0, group = 0; first < clip.frames; first += most, ++group) {
        const uint32_t frames = std::min(most, clip.frames - first);
        for (uint32_t i = 0; i < frames; ++i) {
            const auto size = static_cast<int32_t>(clip.Frame(first + i).size());
            ASSERT_EQ(WriteFrame(writer, clip, first + i), (size + 3) / 4 * 4);
        }
        for (uint32_t c = 0; c < clip.channels; ++c) {
            const auto size = static_cast<int32_t>(SamplesOf(clip.Standard(), frames) * clip.bytesPerSample);
            ASSERT_EQ(WriteSound(writer, clip, group, frames, c), size);
        }
    }
}

inline std::vector<uint8_t> RecordClip(const Op1bClip& clip) {
    CMemoryFileIO file;
    CCreateMXFOp1b writer;
    SetFormat(writer, clip);
    EXPECT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.Close(), kStatusOk);
    return file.GetContents();
}

}  // namespace kmxf::test
