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
#include "kmxf/reader/ReadMXFVideo.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/StreamChecks.h"

namespace kmxf::test {

inline constexpr std::string_view kDV25At5994i = "02 02 40 02", kDV25At50i = "02 02 41 02", kIECAt50i = "02 02 02 02";
inline constexpr std::string_view kDV720At60 = "02 02 62 02", kDV720At50 = "02 02 63 02", kAVCIntra = "02 10 60 02";
inline constexpr std::string_view kRate5994 = "00 00 EA 60 00 00 03 E9";  // 60000/1001
inline constexpr std::string_view kRate2997 = "00 00 75 30 00 00 03 E9";  // 30000/1001
inline constexpr std::string_view kCodingStart = "06 0E 2B 34 04 01 01 0A 04 01 02 02 01 32";

inline ByteVector CodingItem(std::string_view lastTwo) {
    return LocalItem("32 01", std::string(kCodingStart) + " " + std::string(lastTwo));
}

// A video file with this container label, descriptor sets and essence.
inline OpAtomFile VideoFile(std::string_view lastFour, ByteVector sets = {}, ByteVector essence = ByteVector(1)) {
    OpAtomFile file;
    file.container = Hex(Label(lastFour));
    file.sets = std::move(sets);
    file.essence = std::move(essence);
    return file;
}
inline OpAtomFile DV720File(std::string_view lastFour, std::string_view rate, ByteVector essence = ByteVector(1)) {
    return VideoFile(lastFour, Packet(kCDCIKey, LocalItem("30 01", rate)), std::move(essence));
}
inline OpAtomFile AVCIFile(std::string_view coding, std::string_view rate, ByteVector essence = ByteVector(1)) {
    return VideoFile(kAVCIntra, Packet(kMPEGKey, Join({LocalItem("30 01", rate), CodingItem(coding)})),
                     std::move(essence));
}
// The header area alone, stating an essence of `size` bytes that nobody wrote.
inline ByteVector Stating(const OpAtomFile& file, uint64_t size) {
    auto area = file.HeaderArea();
    Patch(area, kElementLengthAt + 1, BigEndian(size, 7));
    return area;
}

// Frames of `size` bytes whose bytes are the frame's number from 1, behind `lead` zero bytes.
inline ByteVector NumberedFrames(size_t count, size_t size, size_t lead = 0) {
    ByteVector essence(lead);
    for (size_t i = 1; i <= count; ++i) essence.resize(lead + i * size, static_cast<uint8_t>(i));
    return essence;
}
inline OpAtomFile DV25File(size_t frames) { return VideoFile(kDV25At5994i, {}, NumberedFrames(frames, 120000)); }
inline OpAtomFile AVCI50File(size_t frames) {
    return AVCIFile("21 08", kRate5994, NumberedFrames(frames, 116224, 512));
}

class ReadMXFVideo : public testing::Test {
protected:
    struct Reader : CReadMXFVideo {
        using CReadMXFVideo::GetAVCITimecode;
        using CReadMXFVideo::GetAVCIUMID;
        using CReadMXFVideo::GetAVCIUsersBit;
        using CReadMXFVideo::GetDIFCLF;
        using CReadMXFVideo::GetDIFTimecode;
        using CReadMXFVideo::GetDIFUMID;
        using CReadMXFVideo::GetDIFUsersBit;
        using CReadMXFVideo::SetVideoFormat;
    };

    int32_t Open(ByteVector bytes) {
        reader.Close();
        log.Clear();
        stream = std::make_unique<FaultyStream>(std::move(bytes));
        return reader.Open(stream.get(), true);
    }
    void MustOpen(const OpAtomFile& file) { ASSERT_EQ(0, Open(file.Bytes())); }
    void ExpectRefused(int32_t expected, ByteVector bytes) {
        EXPECT_EQ(expected, Open(std::move(bytes)));
        EXPECT_FALSE(reader.IsOpened());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_THAT(log.Lines(), testing::ElementsAre("CReadMXFVideo::ReadHeader: SetVideoFormat Error.",
                                                      "CReadMXFBase::Open: ReadHeader Error."));
        ExpectNothingHeld();
    }
    void ExpectFormat(uint32_t videoStd, uint32_t compType, uint32_t frameSize) {
        uint32_t value = 0;
        EXPECT_EQ(0, reader.GetVideoStandard(&value));
        EXPECT_EQ(videoStd, value);
        EXPECT_EQ(0, reader.GetCompType(&value));
        EXPECT_EQ(compType, value);
        EXPECT_EQ(0, reader.GetFrameDataSize(&value));
        EXPECT_EQ(frameSize, value);
        EXPECT_EQ(videoStd, reader.GetVideoStandard());
        EXPECT_EQ(compType, reader.GetCompType());
        EXPECT_EQ(frameSize, reader.GetFrameDataSize());
    }
    void ExpectTotal(uint32_t frames) {
        uint32_t value = 0;
        EXPECT_EQ(0, reader.GetTotalFrame(&value));
        EXPECT_EQ(frames, value);
        EXPECT_EQ(frames, reader.GetDuration());
    }
    void ExpectNothingHeld() { test::ExpectNothingHeld(*stream); }
    void ExpectTimecode(uint32_t frame, const char* text) {
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetTimecode(frame, &timecode)) << frame;
        EXPECT_EQ(text, timecode.GetText()) << frame;
    }
    void ExpectStartAndEnd(const char* start, const char* end) {
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
        EXPECT_EQ(start, timecode.GetText());
        EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
        EXPECT_EQ(end, timecode.GetText());
    }
    // The bytes a getter hands out, `size` of them.
    ByteVector Take(int32_t (CReadMXFVideo::*get)(uint32_t, uint8_t**), uint32_t frame, size_t size) {
        uint8_t* data = nullptr;
        EXPECT_EQ(0, (reader.*get)(frame, &data)) << frame;
        if (data == nullptr) return {};
        const ByteVector taken(data, data + size);
        EXPECT_EQ(0, reader.ReleaseFrameData(data));
        ExpectNothingHeld();
        return taken;
    }
    // The stream's calls since `before` of them.
    std::vector<std::string> CallsSince(int before) {
        const auto calls = stream->Calls();
        return {calls.begin() + before, calls.end()};
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    Reader reader;
};

}  // namespace kmxf::test
