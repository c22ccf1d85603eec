#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "roundtrip/Op1bFormats.h"
#include "roundtrip/Op1bRecording.h"
#include "support/Hex.h"

// What a reader says of a clip, and what went into it.
namespace kmxf::test {

// Bytes of the file that a reader has open.
inline std::vector<uint8_t> BytesAt(IStreamFileIO& stream, uint64_t offset, size_t size) {
    CMemoryPiece piece(static_cast<uint32_t>(size));
    EXPECT_EQ(stream.Seek(static_cast<int64_t>(offset), kSeekBegin), static_cast<int64_t>(offset));
    EXPECT_EQ(stream.Read(&piece, 0), static_cast<int32_t>(size));
    return {piece.GetBuffer(), piece.GetBuffer() + size};
}

inline std::vector<uint8_t> Aligned(std::vector<uint8_t> bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

// The value of an ANC element without data, and the fill item behind it.
inline const std::vector<uint8_t>& EmptyANC() {
    static const auto kBytes = [] {
        auto bytes = Hex("00 00  06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
        bytes.resize(492);
        return bytes;
    }();
    return kBytes;
}

// At the high frame rates half of the origin is stored, rounded up.
inline uint32_t OriginRead(const Op1bClip& clip) {
    return clip.Standard().halfTimecode ? (clip.hidden + 1) / 2 * 2 : clip.hidden;
}

inline void ExpectProperties(CReadMXFOp1b& reader, const Op1bClip& clip) {
    const uint32_t duration = clip.frames - clip.hidden;
    EXPECT_EQ(reader.GetDuration(), duration);
    EXPECT_EQ(reader.GetOrigin(), OriginRead(clip));
    EXPECT_EQ(reader.GetPartitionFrame(), clip.Standard().groupFrames);
    EXPECT_EQ(reader.GetVideoStandard(), clip.videoStd);
    EXPECT_EQ(reader.GetCompressionType(), clip.compType);
    EXPECT_EQ(reader.GetAudioCh(), clip.channels);
    EXPECT_EQ(reader.GetSamplingRate(), clip.channels == 0 ? 0u : 48000u);
    EXPECT_EQ(reader.GetBytesPerSample(), clip.channels == 0 ? 0 : clip.bytesPerSample);
    const uint32_t samples = SamplesOf(clip.Standard(), duration);
    EXPECT_EQ(reader.GetAudioDataSize(), clip.channels == 0 ? 0 : samples * clip.bytesPerSample);
    EXPECT_FALSE(reader.IsValidDMS());
}

inline void ExpectPictures(CReadMXFOp1b& reader, IStreamFileIO& stream, const Op1bClip& clip) {
    uint64_t streamOffset = 0;
    for (uint32_t i = 0; i < clip.frames; ++i) {
        const auto picture = Aligned(clip.Frame(i));
        VIDEOFRAMEINFOTag info, filler;
        MXFINDEXENTRYTag entry;
        ASSERT_EQ(reader.GetVideoInfo(i, info), kStatusOk) << i;
        ASSERT_EQ(info.size, picture.size()) << i;
        ASSERT_TRUE(SameBytes(picture, BytesAt(stream, info.offset, info.size))) << i;
        ASSERT_EQ(info.temporalOffset, clip.TemporalOffset(i)) << i;
        ASSERT_EQ(info.keyFrameOffset, clip.KeyFrameOffset(i)) << i;
        ASSERT_EQ(info.flags, clip.Flags(i)) << i;
        ASSERT_EQ(reader.GetVideoInfoFiller(i, filler), kStatusOk) << i;
        ASSERT_EQ(filler, info) << i;
        ASSERT_EQ(reader.GetVideoIndexEntry(i, entry), kStatusOk) << i;
        ASSERT_EQ(entry.streamOffset, streamOffset) << i;
        ASSERT_EQ(reader.GetCodingPosition(i), int64_t{i} + clip.TemporalOffset(i)) << i;
        streamOffset += 20 + picture.size();

        ANCDATAINFOTag anc;
        ASSERT_EQ(reader.GetANCInfo(i, anc), kStatusOk) << i;
        ASSERT_EQ(anc.size, 2u) << i;
        ASSERT_EQ(anc.hasData, 0) << i;
        ASSERT_TRUE(SameBytes(EmptyANC(), BytesAt(stream, anc.offset, 492))) << i;
    }
    VIDEOFRAMEINFOTag info;
    EXPECT_EQ(reader.GetVideoInfo(clip.frames, info), kStatusNotFound);
}

inline void ExpectSound(CReadMXFOp1b& reader, IStreamFileIO& stream, const Op1bClip& clip) {
    const uint32_t most = clip.Standard().groupFrames;
    for (uint32_t i = 0; i < clip.frames - clip.hidden; ++i) {
        const uint32_t first = i / most * most, frames = std::min(most, clip.frames - first);
        for (uint32_t c = 0; c < clip.channels; ++c) {
            AUDIODATAINFOTag info;
            ASSERT_EQ(reader.GetAudioInfo(i, c, info), kStatusOk) << i << ", channel " << c;
            const auto sound = SoundOf(clip, c, i, 1);
            ASSERT_TRUE(SameBytes(sound, BytesAt(stream, info.offset + info.position, sound.size())))
                << i << ", channel " << c;
            ASSERT_EQ(info.size, SoundOf(clip, c, first, frames).size()) << i << ", channel " << c;
        }
    }
    AUDIODATAINFOTag info;
    const int32_t beyond = clip.channels == 0 ? kStatusFailure : kStatusInvalidArgument;
    EXPECT_EQ(reader.GetAudioInfo(0, clip.channels, info), beyond);
    EXPECT_EQ(reader.GetAudioInfo(clip.frames - clip.hidden, 0, info), beyond);
}

}  // namespace kmxf::test
