#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "kmxf/tools/SalvageMXF.h"
#include "roundtrip/Recording.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/Packets.h"
#include "tools/CheckFiles.h"
#include "tools/StreamFactory.h"

// OP-Atom recordings that were cut off, and runs of CSalvageMXF over them.
namespace kmxf::test {

inline constexpr size_t kHeaderArea = 32768;
inline constexpr size_t kVideoCut = 4194304;

struct AtomFormat {
    uint32_t fileType = kFileTypeVideo;
    uint32_t videoStd = VIDEO_STD_59_94I;
    uint32_t compType = COMP_TYPE_DV25;
    uint32_t clipType = 0x102;
    uint32_t rate = 48000;
    uint16_t bytesPerSample = 2;

    bool IsAVCI() const { return (compType & 0xC000) == 0xC000; }
    size_t InFront() const { return fileType == kFileTypeVideo && IsAVCI() ? 512 : 0; }
    size_t FooterSize() const { return InFront() > 0 ? 324 : 224; }
    size_t FrameSize() const { return GetFrameDataSize(videoStd, compType); }
    size_t SoundSize(int64_t frames) const {
        return static_cast<size_t>(DurationToAudioSample(videoStd, frames, rate)) * bytesPerSample;
    }
};
inline AtomFormat Video(uint32_t videoStd, uint32_t compType) { return {.videoStd = videoStd, .compType = compType}; }
inline AtomFormat Sound(uint32_t videoStd, uint32_t rate = 48000, uint16_t bytesPerSample = 2,
                        uint32_t clipType = 0x101) {
    return {kFileTypeAudio, videoStd, 0, clipType, rate, bytesPerSample};
}

inline MXFUMIDTag FilledUMID(uint8_t fill) {
    MXFUMIDTag umid;
    std::ranges::fill(umid.bytes, fill);
    return umid;
}

// What writer and salvager are told alike.
inline void Describe(CCreateMXFBase& file, const AtomFormat& format) {
    const Bytes product(16, 0x77);
    file.SetFilename("cut.mxf");
    file.SetVideoStandard(format.videoStd);
    file.SetClipType(format.clipType);
    file.SetSamplesPerSec(format.rate);
    file.SetUMID(FilledUMID(0xA1));
    file.SetShotUMID(FilledUMID(0xB2));
    file.SetStartTimecode(107892, true);
    file.SetPackageName("A001C007");
    file.SetIdentification("Company", "Product", "9.87", product.data());
}
inline void Describe(CSalvageMXF& salvager, const AtomFormat& format) {
    Describe(static_cast<CCreateMXFBase&>(salvager), format);
    salvager.SetFileType(format.fileType);
    salvager.SetCompType(format.compType);
    salvager.SetBytesPerSample(format.bytesPerSample);
    salvager.SetSamplesPerSec(format.rate);
}

// The file that a recording of this essence leaves behind: whole, or as it is when the writer goes away.
inline Bytes Record(const AtomFormat& format, std::span<const uint8_t> essence, bool close) {
    const AtomFile atom{.videoStd = format.videoStd,
                        .compType = format.fileType == kFileTypeVideo ? format.compType : 0,
                        .bytesPerSample = format.bytesPerSample,
                        .with = [&](CCreateMXFBase& writer) { Describe(writer, format); },
                        .close = close};
    return Record(atom, essence);
}
inline Bytes CutOff(const AtomFormat& format, std::span<const uint8_t> essence) {
    return Record(format, essence, false);
}

inline Bytes VideoEssence(const AtomFormat& format, size_t frames) {
    return Noise(format.FrameSize() * frames, format.compType ^ format.videoStd);
}

class SalvageMXF : public testing::Test {
protected:
    // Salvages `file` with the settings of the format; the result is what `stream` holds then, which must have been
    // given back whole.
    int32_t Salvage(const AtomFormat& format, Bytes file, bool completed) {
        stream = std::make_unique<FaultyStream>(std::move(file));
        salvager = std::make_unique<CSalvageMXF>(completed);
        Describe(*salvager, format);
        return Run();
    }
    int32_t Run() {
        log.Clear();
        const StreamFactory factory(stream.get());
        const int32_t status = salvager->Salvage();
        EXPECT_FALSE(salvager->IsOpened());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_TRUE(stream->Released());
        EXPECT_EQ(stream->LivePieces(), 0);
        EXPECT_EQ(stream->LiveAllocators(), 0);
        EXPECT_EQ(factory.Live(), 0);
        return status;
    }
    // A run that fails, leaves the file alone and has nothing to show.
    void ExpectRefused(const AtomFormat& format, const Bytes& file, bool completed, int32_t status,
                       const std::vector<std::string>& lines) {
        EXPECT_EQ(Salvage(format, file, completed), status);
        EXPECT_EQ(log.Lines(), lines);
        EXPECT_TRUE(SameBytes(file, stream->Bytes()));
        EXPECT_EQ(salvager->GetDuration(), 0u);
        EXPECT_EQ(salvager->GetDataSize(), 0);
    }

    // The salvaged file is whole, and its essence the first `size` bytes of what was behind the header area.
    void ExpectWhole(const AtomFormat& format, const Bytes& before, uint32_t frames, size_t size) {
        const Bytes& after = stream->Bytes();
        EXPECT_THAT(log.Lines(), testing::IsEmpty());
        EXPECT_EQ(salvager->GetDuration(), frames);
        EXPECT_EQ(salvager->GetDataSize(), static_cast<int64_t>(size));
        const size_t footer = kHeaderArea + size;
        ASSERT_EQ(after.size(), std::max(before.size(), footer + format.FooterSize()));
        EXPECT_EQ(BigEndian(std::span(after).subspan(44, 8)), footer) << "FooterPartition";
        EXPECT_TRUE(
            SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00"), std::span(after).subspan(footer, 16)));
        EXPECT_TRUE(
            SameBytes(std::span(before).subspan(kHeaderArea, size), std::span(after).subspan(kHeaderArea, size)));
        const size_t behind = footer + format.FooterSize();
        if (behind < before.size()) {
            EXPECT_TRUE(SameBytes(std::span(before).subspan(behind), std::span(after).subspan(behind)))
                << "what stands behind the footer stays there";
        }
        CMemoryFileIO reading(after);
        if (format.fileType == kFileTypeVideo) {
            ExpectFrames(format, reading, before, frames);
        } else {
            ExpectSound(format, reading, size);
        }
    }
    void ExpectFrames(const AtomFormat& format, IStreamFileIO& reading, const Bytes& before, uint32_t frames) {
        CReadMXFVideo reader;
        reader.SetFilename("cut.mxf");
        ASSERT_EQ(reader.Open(&reading, true), kStatusOk);
        EXPECT_EQ(reader.GetVideoStandard(), format.videoStd);
        EXPECT_EQ(reader.GetCompType(), format.compType);
        ASSERT_EQ(reader.GetDuration(), frames);
        for (uint32_t frame = 0; frame < frames; ++frame) {
            uint8_t* data = nullptr;
            ASSERT_EQ(reader.GetFrameData(frame, &data), kStatusOk);
            const size_t at = kHeaderArea + format.InFront() + frame * format.FrameSize();
            EXPECT_TRUE(SameBytes(std::span(before).subspan(at, format.FrameSize()), {data, format.FrameSize()}));
            reader.ReleaseFrameData(data);
        }
    }
    void ExpectSound(const AtomFormat& format, IStreamFileIO& reading, size_t size) {
        CReadMXFAudio reader;
        reader.SetFilename("cut.mxf");
        ASSERT_EQ(reader.Open(&reading, true), kStatusOk);
        EXPECT_EQ(reader.GetSamplingRate(), format.rate);
        EXPECT_EQ(reader.GetBitsPerSample(), format.bytesPerSample * 8u);
        int64_t dataSize = 0;
        EXPECT_EQ(reader.GetDataSize(&dataSize), kStatusOk);
        EXPECT_EQ(dataSize, static_cast<int64_t>(size));
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    std::unique_ptr<CSalvageMXF> salvager;
};

}  // namespace kmxf::test
