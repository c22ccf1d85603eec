#pragma once

#include <map>
#include <random>
#include <set>

#include "tools/SalvageFiles.h"

// Small recordings of every family, each made once.
namespace kmxf::test {

// Sound alone: samples of every kind that recordings have.
struct SoundKind {
    uint16_t bytesPerSample;
    uint32_t samplesPerSec;
};
inline constexpr SoundKind kSoundKinds[] = {{2, 48000}, {3, 48000}, {2, 96000}, {3, 96000}};

inline AtomFile SoundFile(const SoundKind& kind) {
    return {
        .compType = 0, .clipType = 0x001, .samplesPerSec = kind.samplesPerSec, .bytesPerSample = kind.bytesPerSample};
}

// A Long-GOP clip that was cut off behind its last group: two groups of 48 frames and one of 10. Pictures differ in
// size and content, and each of them stands in the place at which it is shown.
inline constexpr uint32_t kClipFrames = 106;
inline constexpr uint32_t kClipGroupFrames = 48;
inline constexpr size_t kClipHeader = 0x20000;
inline constexpr uint32_t kClipStandard = VIDEO_STD_23_98P;

inline Bytes ClipPicture(uint32_t number) {
    Bytes picture = Noise(1400 + number % 7 * 4, 100 + number);
    picture.back() = 0x80;  // no zero that could be stuffing
    return picture;
}

inline Bytes RecordGroups(uint8_t channels, bool close = false) {
    const FixedEnvironment environment;
    CMemoryFileIO file;
    CCreateMXFOp1b writer;
    SetFormat(writer, {kClipStandard, COMP_TYPE_LONGG25_1080, channels});
    writer.SetUMID(TestUmid(0xC1));
    writer.SetPackageName("A001C007");
    EXPECT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
    for (uint32_t first = 0; first < kClipFrames; first += kClipGroupFrames) {
        const uint32_t frames = std::min(kClipGroupFrames, kClipFrames - first);
        for (uint32_t i = 0; i < frames; ++i) {
            const Bytes picture = ClipPicture(first + i);
            CMemoryPiece piece(picture.data(), static_cast<uint32_t>(picture.size()));
            EXPECT_EQ(writer.WriteVideo(&piece, 0, 0, 0x80), static_cast<int32_t>(picture.size()));
        }
        for (uint8_t channel = 0; channel < channels; ++channel) {
            const auto samples = SamplesOf(Op1bStandardOf(kClipStandard), frames);
            const Bytes sound = Noise(size_t{samples} * 2, 1000 + first + channel);
            CMemoryPiece piece(sound.data(), static_cast<uint32_t>(sound.size()));
            EXPECT_EQ(writer.WriteAudio(&piece, channel), static_cast<int32_t>(sound.size()));
        }
    }
    if (close) {
        EXPECT_EQ(writer.Close(), kStatusOk);
    }
    return file.GetContents();
}

inline const Bytes& CutClip(uint8_t channels) {
    static std::map<uint8_t, Bytes> clips;
    Bytes& clip = clips[channels];
    if (clip.empty()) clip = RecordGroups(channels);
    return clip;
}

inline Bytes Beginning(const Bytes& file, size_t size) {
    return Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
}

inline Bytes Part(const Bytes& file, const WalkedPacket& packet) {
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(packet.ValueOffset());
    return Bytes(begin, begin + static_cast<std::ptrdiff_t>(packet.length));
}

// The elements of a kind, in the order of the file.
inline std::vector<WalkedPacket> Elements(const Bytes& file, std::string_view name) {
    MemorySource source(file);
    CInspector inspector(source);
    std::vector<WalkedPacket> elements;
    while (const auto packet = inspector.Next())
        if (packet->name == name) elements.push_back({*packet});
    return elements;
}

// Salvages the only file of a plan in place, proves it, and gives it back.
inline Bytes Salvaged(const SalvagePlan& plan) {
    ExpectBalanced(plan);
    const std::string& path = plan.files.at(0).path;
    const SalvageResult result = CarryOutSalvage(plan, {path});
    EXPECT_EQ(result.failure, "");
    EXPECT_EQ(Lines(result.findings), std::vector<std::string>());
    Bytes salvaged = Clip::Get(path);
    const SalvagePlan again = ScanForSalvage({path}, {}, PlainEntries);
    EXPECT_TRUE(again.IsComplete());
    EXPECT_FALSE(again.LosesAnything());
    return salvaged;
}

}  // namespace kmxf::test
