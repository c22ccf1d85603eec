#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "reader/Op1bFixture.h"
#include "support/FaultyStream.h"
#include "support/LogRecorder.h"
#include "support/StreamChecks.h"

namespace kmxf::test {

inline constexpr std::string_view kXMLKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00";
inline constexpr std::string_view kThumbnailKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00";

inline ByteVector XMLGroup(const ByteVector& xml) {
    return Packet(kXMLKey, Join({LocalItem("3C 0A", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"),
                                 LocalItem("A0 01", "00"), Hex("A0 02"), BigEndian(xml.size(), 2), xml}));
}
inline ByteVector ThumbnailGroup(const ByteVector& picture) {
    return Packet(kThumbnailKey, Join({LocalItem("A0 12", "00 50"), LocalItem("A0 13", "00 2D"),
                                       LocalItem("A0 11", "01"), Hex("A0 14"), BigEndian(picture.size(), 2), picture}));
}

// An SEI message with a timecode pack and a user bits pack (ITU-T H.264, D.1.6), and the start of a slice.
inline ByteVector PictureWithPacks() {
    return Hex(
        "00 00 00 01 06 05 24 F7 49 3E B3 D4 00 47 96 86 86 C9 70 7B 64 37 2A 55 4D 49 44"
        "13 FF 12 34 FF 56 08 FF 14 FF A1 A2 FF A3 A4 FF 80 00 00 01 65 88 84 00");
}

class ReadMXFOp1b : public testing::Test {
protected:
    struct Reader : CReadMXFOp1b {
        using CReadMXFOp1b::GetFrameworkOffset;
    };

    int32_t Open(ByteVector bytes) {
        reader.Close();
        log.Clear();
        stream = std::make_unique<FaultyStream>(std::move(bytes));
        return reader.Open("clip.mxf", stream.get());
    }
    // 106 frames, in groups of 48, 48 and 10.
    void OpenClip() {
        clip.AddPictures(106);
        ASSERT_EQ(0, Open(clip.Bytes()));
    }
    void ExpectRefused(int32_t expected, ByteVector bytes, const std::vector<std::string>& lines) {
        EXPECT_EQ(expected, Open(std::move(bytes)));
        EXPECT_THAT(log.Lines(), testing::ElementsAreArray(lines));
        ExpectClosed();
    }
    void ExpectRefused(int32_t expected, ByteVector bytes, const char* message) {
        ExpectRefused(expected, std::move(bytes), {std::string("CReadMXFOp1b::Open: ") + message});
    }
    void ExpectClosed() {
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_EQ(stream->Count(Op::kOpen), stream->Count(Op::kClose));
        ExpectNothingHeld();
        EXPECT_EQ(0u, reader.GetHeaderSize());
        EXPECT_EQ(0, reader.GetDuration());
        VIDEOFRAMEINFOTag info;
        EXPECT_EQ(kStatusWrongState, reader.GetVideoInfo(0, info));
    }
    void ExpectTimecode(uint32_t frame, const char* text) {
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetTimecode(frame, timecode, SEI_DATA_TYPE1)) << frame;
        EXPECT_EQ(text, timecode.GetText()) << frame;
    }
    void ExpectNothingHeld() { test::ExpectNothingHeld(*stream); }
    // The clip's file with the offset of a random index entry replaced.
    ByteVector WithPartition(size_t entry, uint64_t offset) {
        auto bytes = clip.Bytes();
        Patch(bytes, bytes.size() - 4 - 12 * clip.partitions.size() + 12 * entry + 4, BigEndian(offset, 8));
        return bytes;
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    Reader reader;
    Op1bClip clip;
    VIDEOFRAMEINFOTag video;
    AUDIODATAINFOTag audio;
    ANCDATAINFOTag anc;
};

}  // namespace kmxf::test
