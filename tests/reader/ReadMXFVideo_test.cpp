#include "kmxf/reader/ReadMXFVideo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "reader/FailingAllocation.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view kDV25At5994i = "02 02 40 02", kDV25At50i = "02 02 41 02", kIECAt50i = "02 02 02 02";
constexpr std::string_view kDV720At60 = "02 02 62 02", kDV720At50 = "02 02 63 02", kAVCIntra = "02 10 60 02";
constexpr std::string_view kRate5994 = "00 00 EA 60 00 00 03 E9";  // 60000/1001
constexpr std::string_view kRate2997 = "00 00 75 30 00 00 03 E9";  // 30000/1001
constexpr std::string_view kCodingStart = "06 0E 2B 34 04 01 01 0A 04 01 02 02 01 32";

ByteVector CodingItem(std::string_view lastTwo) {
    return LocalItem("32 01", std::string(kCodingStart) + " " + std::string(lastTwo));
}

// A video file with this container label, descriptor sets and essence.
OpAtomFile VideoFile(std::string_view lastFour, ByteVector sets = {}, ByteVector essence = ByteVector(1)) {
    OpAtomFile file;
    file.container = Hex(Label(lastFour));
    file.sets = std::move(sets);
    file.essence = std::move(essence);
    return file;
}
OpAtomFile DV720File(std::string_view lastFour, std::string_view rate, ByteVector essence = ByteVector(1)) {
    return VideoFile(lastFour, Packet(kCDCIKey, LocalItem("30 01", rate)), std::move(essence));
}
OpAtomFile AVCIFile(std::string_view coding, std::string_view rate, ByteVector essence = ByteVector(1)) {
    return VideoFile(kAVCIntra, Packet(kMPEGKey, Join({LocalItem("30 01", rate), CodingItem(coding)})),
                     std::move(essence));
}
// The header area alone, stating an essence of `size` bytes that nobody wrote.
ByteVector Stating(const OpAtomFile& file, uint64_t size) {
    auto area = file.HeaderArea();
    Patch(area, kElementLengthAt + 1, BigEndian(size, 7));
    return area;
}

// Frames of `size` bytes whose bytes are the frame's number from 1, behind `lead` zero bytes.
ByteVector NumberedFrames(size_t count, size_t size, size_t lead = 0) {
    ByteVector essence(lead);
    for (size_t i = 1; i <= count; ++i) essence.resize(lead + i * size, static_cast<uint8_t>(i));
    return essence;
}

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

class ReadMXFVideo : public testing::Test {
protected:
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
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::ReadHeader: SetVideoFormat Error.",
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
    void ExpectNothingHeld() {
        EXPECT_EQ(0, stream->LivePieces());
        EXPECT_EQ(0, stream->LiveAllocators());
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

// --- the format ---

TEST_F(ReadMXFVideo, StartsWithoutAFormat) {
    EXPECT_EQ(0u, reader.GetVideoStandard());
    EXPECT_EQ(0u, reader.GetCompType());
    EXPECT_EQ(0u, reader.GetFrameDataSize());
    EXPECT_EQ(0u, reader.GetDuration());
    EXPECT_FALSE(reader.IsConsumerDV());
    EXPECT_FALSE(reader.IsAVCI());
    EXPECT_EQ(kStatusWrongState, reader.SetVideoFormat());
}

TEST_F(ReadMXFVideo, ContainerLabelTellsTheFormatOfDV) {
    struct Row {
        std::string_view label;
        uint32_t frameSize, videoStd, compType;
        bool consumer;
    };
    for (const auto& row : {
             Row{"02 02 40 02", 120000, 0x0100007C, 0x0400, false},
             Row{"02 02 41 02", 144000, 0x010000B2, 0x0400, false},
             Row{"02 02 50 02", 240000, 0x0100007C, 0x4800, false},
             Row{"02 02 51 02", 288000, 0x010000B2, 0x4800, false},
             Row{"02 02 01 02", 120000, 0x0100007C, 0x0400, true},
             Row{"02 02 02 02", 144000, 0x010000B2, 0x0400, true},
             Row{"02 02 60 02", 480000, 0x0100007C, 0x4D00, false},
             Row{"02 02 61 02", 576000, 0x010000B2, 0x4D00, false},
         }) {
        ASSERT_EQ(0, Open(Stating(VideoFile(row.label), 7ull * row.frameSize + 1))) << row.label;
        ExpectFormat(row.videoStd, row.compType, row.frameSize);
        ExpectTotal(7);
        EXPECT_EQ(row.consumer, reader.IsConsumerDV());
        EXPECT_FALSE(reader.IsAVCI());
        uint32_t size = 0;
        EXPECT_EQ(0, reader.GetDIFDataSize(&size));
        EXPECT_EQ(row.frameSize, size);
        EXPECT_EQ(0, reader.GetAVCIHeaderSize(&size));
        EXPECT_EQ(0u, size);
        EXPECT_EQ(1, stream->Count(Op::kRead)) << "the descriptor is not asked";
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

struct RateRow {
    const char* rate;
    uint32_t videoStd;
};
constexpr RateRow kRates[] = {
    {"00 00 00 18 00 00 00 01", 0x02000058},
    {"00 00 5D C0 00 00 03 E9", 0x02000058},  // 24, 24000
    {"00 00 00 19 00 00 00 01", 0x02000099},  // 25
    {"00 00 00 1E 00 00 00 01", 0x0200005E},
    {"00 00 75 30 00 00 03 E9", 0x0200005E},  // 30, 30000
    {"00 00 00 32 00 00 00 01", 0x020000B2},  // 50
    {"00 00 00 3C 00 00 00 01", 0x0200007C},
    {"00 00 EA 60 00 00 03 E9", 0x0200007C},              // 60, 60000
    {"00 00 EA 60", 0x0200007C},                          // the numerator is enough
    {"00 00 EA 60 00 00 03 E9 FF FF FF FF", 0x0200007C},  // and the rest is left alone
    {"00 00 00 00 00 00 00 00", 0},
    {"00 00 00 30 00 00 00 01", 0},  // 0, 48
    {"00 00 61 A8 00 00 03 E8", 0},
    {"FF FF FF FF 00 00 00 01", 0},  // 25000, -1
    {"", 0},
};

TEST_F(ReadMXFVideo, SampleRateTellsTheStandardOfDV720) {
    for (const auto& [label, frameSize] : {std::pair{kDV720At60, 240000u}, std::pair{kDV720At50, 288000u}}) {
        for (const auto& [rate, videoStd] : kRates) {
            ASSERT_EQ(0, Open(Stating(DV720File(label, rate), 5ull * frameSize))) << rate;
            ExpectFormat(videoStd, 0x4E00, frameSize);
            ExpectTotal(5);
            uint32_t size = 0;
            EXPECT_EQ(0, reader.GetDIFDataSize(&size));
            EXPECT_EQ(videoStd != 0 ? 2 * frameSize : frameSize, size) << "a unit of two frames, or of an unknown one";
            EXPECT_EQ(32768, stream->Position());
        }
    }
}

TEST_F(ReadMXFVideo, DV720NeedsTheSampleRateOfACDCIDescriptor) {
    ExpectRefused(kStatusFailure, Stating(VideoFile(kDV720At60), 480000));
    ExpectRefused(kStatusFailure,
                  Stating(VideoFile(kDV720At60, Packet(kMPEGKey, LocalItem("30 01", kRate5994))), 480000));
    auto file = DV720File(kDV720At60, kRate5994);
    file.sets[21] = 0x02;  // item 3002
    ExpectRefused(kStatusFailure, Stating(file, 480000));
}

TEST_F(ReadMXFVideo, CodingLabelTellsTheFormatOfAVCIntra) {
    struct Row {
        const char* coding;
        uint32_t frameSize, compType;
        uint32_t videoStd;  // 0: by the sample rate
    };
    for (const auto& row : {
             Row{"21 08", 116224, 0xCA00, 0},
             Row{"21 09", 140288, 0xCA00, 0},
             Row{"21 01", 232448, 0xC900, 0x0100007C},
             Row{"21 02", 280576, 0xC900, 0x010000B2},
             Row{"21 03", 232448, 0xC900, 0},
             Row{"21 04", 280576, 0xC900, 0},
             Row{"31 08", 236032, 0xCE00, 0},
             Row{"31 09", 284160, 0xCE00, 0},
             Row{"31 01", 472064, 0xCD00, 0x0100007C},
             Row{"31 02", 568320, 0xCD00, 0x010000B2},
             Row{"31 03", 472064, 0xCD00, 0},
             Row{"31 04", 568320, 0xCD00, 0},
             Row{"32 08", 476160, 0xD200, 0},
             Row{"32 09", 571904, 0xD200, 0},
             Row{"32 01", 952320, 0xD100, 0x0100007C},
             Row{"32 02", 1143808, 0xD100, 0x010000B2},
             Row{"32 03", 952320, 0xD100, 0},
             Row{"32 04", 1143808, 0xD100, 0},
         }) {
        for (const auto& [rate, videoStd] : kRates) {
            ASSERT_EQ(0, Open(Stating(AVCIFile(row.coding, rate), 512 + 6ull * row.frameSize))) << row.coding;
            ExpectFormat(row.videoStd != 0 ? row.videoStd : videoStd, row.compType, row.frameSize);
            ExpectTotal(6);
            EXPECT_TRUE(reader.IsAVCI());
            EXPECT_FALSE(reader.IsConsumerDV());
            uint32_t size = 0;
            EXPECT_EQ(kStatusFailure, reader.GetDIFDataSize(&size));
            EXPECT_EQ(0, reader.GetAVCIHeaderSize(&size));
            EXPECT_EQ(512u, size);
        }
    }
}

TEST_F(ReadMXFVideo, AVCIntraNeedsAKnownCodingLabel) {
    for (const auto* coding : {"21 00", "21 05", "21 07", "21 0A", "22 01", "33 01", "00 00"}) {
        ExpectRefused(kStatusFailure, Stating(AVCIFile(coding, kRate2997), 4720640));
        EXPECT_EQ(0u, reader.GetFrameDataSize());
        EXPECT_EQ(0u, reader.GetDuration());
    }
    // Another version byte; no such item; an item of the other descriptor
    auto file = AVCIFile("31 01", kRate2997);
    file.sets[20 + 12 + 4 + 7] = 0x0D;
    ExpectRefused(kStatusFailure, Stating(file, 4720640));
    ExpectRefused(kStatusFailure,
                  Stating(VideoFile(kAVCIntra, Packet(kMPEGKey, LocalItem("30 01", kRate2997))), 4720640));
    ExpectRefused(
        kStatusFailure,
        Stating(VideoFile(kAVCIntra, Packet(kCDCIKey, Join({LocalItem("30 01", kRate2997), CodingItem("31 01")}))),
                4720640));
    EXPECT_EQ(kStatusFailure, Open(Stating(VideoFile(kAVCIntra), 4720640)));
}

TEST_F(ReadMXFVideo, AVCIntraNeedsASampleRateEvenWhereTheLabelNamesTheStandard) {
    ExpectRefused(kStatusFailure, Stating(VideoFile(kAVCIntra, Packet(kMPEGKey, CodingItem("31 01"))), 4720640));
}

TEST_F(ReadMXFVideo, CodingLabelThatIsTooLongOrShortIsNotOverrun) {
    const std::string whole = std::string(kCodingStart) + " 31 01";
    const auto file = [](const std::string& coding) {
        return VideoFile(kAVCIntra,
                         Packet(kMPEGKey, Join({LocalItem("30 01", kRate2997), LocalItem("32 01", coding)})));
    };
    EXPECT_EQ(0, Open(Stating(file(whole + " FF FF FF FF FF FF FF FF"), 4720640)));
    ExpectRefused(kStatusFailure, Stating(file(whole.substr(0, whole.size() - 3)), 4720640));
}

TEST_F(ReadMXFVideo, OtherContainersAreRefused) {
    for (const auto* label : {"02 06 04 00", "02 02 40 01", "02 10 60 01", "02 02 64 02", "00 00 00 00"})
        ExpectRefused(kStatusFailure, Stating(VideoFile(label), 480000));
    auto file = VideoFile(kDV25At5994i);
    file.container[7] = 0x02;  // version
    ExpectRefused(kStatusFailure, Stating(file, 480000));
}

TEST_F(ReadMXFVideo, FileThatIsNotOpAtomIsRefusedHere) {
    auto file = VideoFile(kDV25At5994i);
    file.pattern = kOp1b;
    EXPECT_EQ(kStatusWrongState, Open(file.Bytes()));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::ReadHeader: No OpAtom.", "CReadMXFVideo::ReadHeader: SetVideoFormat Error.",
                            "CReadMXFBase::Open: ReadHeader Error."));
}

TEST_F(ReadMXFVideo, FailureOfTheHeaderComesOutAsHeaderNotRead) {
    EXPECT_EQ(kStatusWrongState, Open(ByteVector(32767)));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFBase::ReadHeader: Read Error.", "CReadMXFVideo::ReadHeader: SetVideoFormat Error.",
                            "CReadMXFBase::Open: ReadHeader Error."));
    EXPECT_EQ("ReadMXFVideo", log.Records().at(1).sourceFile);
    EXPECT_EQ("", log.Records().at(1).module);
    EXPECT_EQ(kLogError, log.Records().at(1).level);
}

TEST_F(ReadMXFVideo, ReadHeaderNeedsAnOpenFile) {
    EXPECT_EQ(kStatusWrongState, reader.ReadHeader());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::ReadHeader: SetVideoFormat Error."));
}

TEST_F(ReadMXFVideo, FailingOperationsWhileTheFormatIsReadAreStatuses) {
    const auto bytes = Stating(AVCIFile("31 01", kRate2997), 4720640);
    ASSERT_EQ(0, Open(bytes));
    const int operations = stream->CountOfAll();
    for (const auto fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile}) {
        for (int n = 1; n <= operations; ++n) {
            reader.Close();
            stream = std::make_unique<FaultyStream>(bytes);
            stream->FailNthOfAll(n, fault);
            const int32_t status = reader.Open(stream.get(), true);
            EXPECT_TRUE(status == kStatusIoError || status == kStatusWrongState || status == kStatusFailure)
                << n << ": " << status;
            EXPECT_FALSE(reader.IsOpened());
            EXPECT_FALSE(stream->IsOpened());
            ExpectNothingHeld();
        }
    }
}

TEST_F(ReadMXFVideo, EmptyEssenceStaysOpenWithItsFormat) {
    EXPECT_EQ(kStatusNotFound, Open(Stating(VideoFile(kDV25At50i), 0)));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectFormat(0x010000B2, 0x0400, 144000);
    ExpectTotal(0);
    // Even one of no known format
    EXPECT_EQ(kStatusNotFound, Open(Stating(AVCIFile("00 00", kRate2997), 0)));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_EQ(kStatusNotFound, Open(Stating(VideoFile("02 06 04 00"), 0)));
    EXPECT_TRUE(reader.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, FrameSizeSetFromOutsideStandsWhereTheDescriptorSaysNothing) {
    FaultyStream file(Stating(AVCIFile("00 00", kRate2997), 10000));
    ASSERT_EQ(0, reader.Open(&file, false));
    reader.SetFrameDataSize(1000);
    EXPECT_EQ(0, reader.ReadHeader());
    ExpectTotal(10);
    reader.Close();
}

TEST_F(ReadMXFVideo, OpensFilesOfDifferentKindsOneAfterTheOther) {
    ASSERT_EQ(0, Open(Stating(VideoFile(kIECAt50i), 288000)));
    EXPECT_TRUE(reader.IsConsumerDV());
    ASSERT_EQ(0, Open(Stating(AVCIFile("31 01", kRate2997), 944640)));
    EXPECT_FALSE(reader.IsConsumerDV());
    EXPECT_TRUE(reader.IsAVCI());
    ASSERT_EQ(0, Open(Stating(VideoFile(kDV25At5994i), 360000)));
    EXPECT_FALSE(reader.IsAVCI());
    ExpectFormat(0x0100007C, 0x0400, 120000);
    ExpectTotal(3);
    EXPECT_EQ(0, reader.ReadHeader()) << "again";
    ExpectTotal(3);
    ASSERT_EQ(0, Open(Stating(VideoFile(kIECAt50i), 288000)));
    EXPECT_EQ(kStatusFailure, Open(Stating(VideoFile("02 06 04 00"), 288000)));
    EXPECT_FALSE(reader.IsConsumerDV()) << "an unknown format is neither";
    ASSERT_EQ(0, Open(Stating(AVCIFile("31 01", kRate2997), 944640)));
    EXPECT_EQ(kStatusFailure, Open(Stating(VideoFile("02 06 04 00"), 288000)));
    EXPECT_FALSE(reader.IsAVCI());
}

TEST_F(ReadMXFVideo, GettersTestTheHeaderBeforeThePointer) {
    uint32_t value = 9;
    using Getter = int32_t (CReadMXFVideo::*)(uint32_t*) const;
    constexpr Getter getters[] = {&CReadMXFVideo::GetVideoStandard, &CReadMXFVideo::GetCompType,
                                  &CReadMXFVideo::GetFrameDataSize, &CReadMXFVideo::GetTotalFrame,
                                  &CReadMXFVideo::GetDIFDataSize};
    for (const auto getter : getters) {
        EXPECT_EQ(kStatusWrongState, (reader.*getter)(nullptr));
        EXPECT_EQ(kStatusWrongState, (reader.*getter)(&value));
    }
    EXPECT_EQ(9u, value);
    MustOpen(VideoFile(kDV25At5994i));
    for (const auto getter : getters) EXPECT_EQ(kStatusInvalidArgument, (reader.*getter)(nullptr));
    ASSERT_EQ(0, Open(Stating(AVCIFile("31 01", kRate2997), 944640)));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetDIFDataSize(nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, HeaderSizeOfAVCIntraNeedsNoHeader) {
    uint32_t size = 9;
    EXPECT_EQ(kStatusInvalidArgument, reader.GetAVCIHeaderSize(nullptr));
    EXPECT_EQ(0, reader.GetAVCIHeaderSize(&size));
    EXPECT_EQ(0u, size);
}

// --- positions ---

TEST_F(ReadMXFVideo, SeeksToTheStartOfAFrame) {
    MustOpen(VideoFile(kDV25At5994i));
    EXPECT_EQ(0, reader.Seek(0));
    EXPECT_EQ(32768, stream->Position());
    EXPECT_EQ(0, reader.Seek(35792));
    EXPECT_EQ(32768 + 4295040000, stream->Position()) << "beyond 32 bits";
    EXPECT_EQ(0, reader.Seek(0xFFFFFFFF));
    EXPECT_EQ(32768 + 515396075400000, stream->Position());

    ASSERT_EQ(0, Open(Stating(AVCIFile("31 01", kRate2997), 944640)));
    EXPECT_EQ(0, reader.Seek(2));
    EXPECT_EQ(32768 + 512 + 944128, stream->Position());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, OffsetAndSizeCanBeReplaced) {
    MustOpen(VideoFile(kDV25At5994i));
    EXPECT_EQ(0, reader.SetDataOffset(100));
    EXPECT_EQ(0, reader.SetFrameDataSize(7));
    EXPECT_EQ(7u, reader.GetFrameDataSize());
    EXPECT_EQ(0, reader.Seek(3));
    EXPECT_EQ(121, stream->Position());
}

TEST_F(ReadMXFVideo, SeekNeedsOffsetAndFrameSize) {
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init."));
    for (const auto set : {&CReadMXFVideo::SetDataOffset, &CReadMXFVideo::SetFrameDataSize}) {
        MustOpen(VideoFile(kDV25At5994i));
        (reader.*set)(0);
        EXPECT_EQ(kStatusWrongState, reader.Seek(0));
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_FALSE(reader.IsReadHeader());
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init."));
    }
}

TEST_F(ReadMXFVideo, SeekWithoutAStreamIsNotInit) {
    reader.SetDataOffset(32768);
    reader.SetFrameDataSize(120000);
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
}

TEST_F(ReadMXFVideo, FailingSeekCloses) {
    MustOpen(VideoFile(kDV25At5994i));
    stream->FailAll(Op::kSeek);
    EXPECT_EQ(kStatusIoError, reader.Seek(0));
    EXPECT_FALSE(reader.IsOpened());
    EXPECT_FALSE(stream->IsOpened());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error."));
}

TEST_F(ReadMXFVideo, PositionThatNoFileHasIsASeekError) {
    MustOpen(VideoFile(kDV25At5994i));
    reader.SetDataOffset(0xFFFFFFFF);
    reader.SetFrameDataSize(0xFFFFFFFF);
    EXPECT_EQ(kStatusIoError, reader.Seek(0xFFFFFFFF));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error."));
}

TEST_F(ReadMXFVideo, CloseForgetsFrameSizeAndOffsetAndKeepsTheRest) {
    ASSERT_EQ(0, Open(Stating(VideoFile(kIECAt50i), 288000)));
    EXPECT_EQ(0, reader.Close());
    EXPECT_EQ(0u, reader.GetFrameDataSize());
    EXPECT_EQ(0x010000B2u, reader.GetVideoStandard());
    EXPECT_EQ(0x0400u, reader.GetCompType());
    EXPECT_EQ(2u, reader.GetDuration());
    EXPECT_TRUE(reader.IsConsumerDV());
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init."));
}

TEST_F(ReadMXFVideo, CloseAtTheEndOfTheFileKeepsTheFrameSize) {
    ASSERT_EQ(0, Open(Stating(VideoFile(kIECAt50i), 288000)));
    CMemoryPiece piece(1);
    EXPECT_EQ(-1, reader.Read(&piece));
    EXPECT_EQ(144000u, reader.GetFrameDataSize());
    EXPECT_EQ(kStatusWrongState, reader.Seek(0));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::Read: End of file.", "CReadMXFVideo::Seek: Not Init."));
}

// --- frames, units and SEI areas ---

TEST_F(ReadMXFVideo, HandsOutFramesInAnyOrder) {
    const auto essence = NumberedFrames(5, 120000);
    MustOpen(VideoFile(kDV25At5994i, {}, essence));
    ExpectTotal(5);
    for (const uint32_t frame : {0u, 1u, 2u, 3u, 4u, 3u, 0u, 4u}) {
        EXPECT_TRUE(SameBytes(ByteVector(120000, static_cast<uint8_t>(frame + 1)),
                              Take(&CReadMXFVideo::GetFrameData, frame, 120000)));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, FramesOfAVCIntraStandBehindTheirHeader) {
    MustOpen(AVCIFile("21 08", kRate5994, NumberedFrames(3, 116224, 512)));
    ExpectTotal(3);
    for (const uint32_t frame : {2u, 0u, 1u}) {
        const auto expected = static_cast<uint8_t>(frame + 1);
        EXPECT_TRUE(SameBytes(ByteVector(116224, expected), Take(&CReadMXFVideo::GetFrameData, frame, 116224)));
        EXPECT_TRUE(SameBytes(ByteVector(512, expected), Take(&CReadMXFVideo::GetSEIData, frame, 512)));
    }
}

TEST_F(ReadMXFVideo, EachGetterSeeksOnceAndReadsOnce) {
    MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(2, 120000)));
    int before = stream->CountOfAll();
    Take(&CReadMXFVideo::GetFrameData, 1, 120000);
    EXPECT_THAT(CallsSince(before),
                ElementsAre("Seek 152768 0", "GetPieceAllocator", "Allocate 120000", "Read 120000"));
    before = stream->CountOfAll();
    Take(&CReadMXFVideo::GetDIFData, 1, 576000);
    EXPECT_THAT(CallsSince(before),
                ElementsAre("Seek 152768 0", "GetPieceAllocator", "Allocate 120000", "Read 120000"));
    before = stream->CountOfAll();
    Take(&CReadMXFVideo::GetSEIData, 1, 512);
    EXPECT_THAT(CallsSince(before), ElementsAre("Seek 152768 0", "GetPieceAllocator", "Allocate 512", "Read 512"));
}

TEST_F(ReadMXFVideo, DIFUnitIsTheStartOfALargeBuffer) {
    MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(2, 120000)));
    auto expected = ByteVector(120000, 2);
    expected.resize(576000);
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 1, 576000)));
}

TEST_F(ReadMXFVideo, LargestDIFUnitFillsTheBuffer) {
    MustOpen(VideoFile("02 02 61 02", {}, NumberedFrames(2, 576000)));
    EXPECT_TRUE(SameBytes(ByteVector(576000, 2), Take(&CReadMXFVideo::GetDIFData, 1, 576000)));
    MustOpen(DV720File(kDV720At50, "00 00 00 32 00 00 00 01", NumberedFrames(2, 288000)));
    EXPECT_TRUE(SameBytes(NumberedFrames(2, 288000), Take(&CReadMXFVideo::GetDIFData, 1, 576000)));
}

TEST_F(ReadMXFVideo, DIFUnitOf720LinesIsAPairOfFrames) {
    MustOpen(DV720File(kDV720At60, kRate5994, NumberedFrames(6, 240000)));
    ExpectFormat(0x0200007C, 0x4E00, 240000);
    uint32_t unit = 0;
    EXPECT_EQ(reader.GetDIFDataSize(&unit), kStatusOk);
    EXPECT_EQ(unit, 480000u);
    auto expected = ByteVector(240000, 5);
    expected.resize(480000, 6);
    expected.resize(576000);
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 5, 576000)));
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 4, 576000)));
    EXPECT_TRUE(SameBytes(ByteVector(240000, 6), Take(&CReadMXFVideo::GetFrameData, 5, 240000))) << "but one frame";
}

TEST_F(ReadMXFVideo, DIFUnitOf720LinesAtAnUnknownRateIsTheEvenFrame) {
    MustOpen(DV720File(kDV720At60, "00 00 00 00 00 00 00 00", NumberedFrames(4, 240000)));
    auto expected = ByteVector(240000, 3);
    expected.resize(576000);
    EXPECT_TRUE(SameBytes(expected, Take(&CReadMXFVideo::GetDIFData, 3, 576000)));
}

TEST_F(ReadMXFVideo, LastUnitOfAnOddCountRunsIntoWhatFollowsTheEssence) {
    auto bytes = DV720File(kDV720At60, kRate5994, NumberedFrames(3, 240000)).Bytes();
    ASSERT_EQ(0, Open(bytes));
    ExpectTotal(3);
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusIoError, reader.GetDIFData(2, &data)) << "a footer of 124 bytes is too short";
    EXPECT_EQ(nullptr, data);
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFData: Read Error."));
    EXPECT_TRUE(reader.IsOpened());
    bytes.resize(bytes.size() + 239876, 0xAB);
    ASSERT_EQ(0, Open(bytes));
    const auto unit = Take(&CReadMXFVideo::GetDIFData, 2, 576000);
    EXPECT_EQ(3, unit.at(239999));
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05"), std::span(unit).subspan(240000, 6)));
    EXPECT_EQ(0xAB, unit.at(479999));
}

TEST_F(ReadMXFVideo, FramePastTheLastOneIsWhatFollowsTheEssence) {
    auto bytes = VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)).Bytes();
    ASSERT_EQ(0, Open(bytes));
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusIoError, reader.GetFrameData(1, &data));
    EXPECT_EQ(kStatusIoError, reader.GetFrameData(0xFFFFFFFF, &data));
    EXPECT_EQ(nullptr, data);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetFrameData: Read Error.", "CReadMXFVideo::GetFrameData: Read Error."));
    EXPECT_TRUE(reader.IsOpened()) << "the data getters close nothing";
    bytes.resize(bytes.size() + 120000);
    ASSERT_EQ(0, Open(bytes));
    const auto footer = Take(&CReadMXFVideo::GetFrameData, 1, 120000);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34"), std::span(footer).first(4)));
}

struct DataGetter {
    const char* name;
    int32_t (CReadMXFVideo::*get)(uint32_t, uint8_t**);
    const char* noPiece;
    size_t bufferSize;
};
constexpr DataGetter kDataGetters[] = {
    {"CReadMXFVideo::GetFrameData", &CReadMXFVideo::GetFrameData, "Allocate Error.", 120000},
    {"CReadMXFVideo::GetDIFData", &CReadMXFVideo::GetDIFData, "Allocte Error.", 576000},
    {"CReadMXFVideo::GetSEIData", &CReadMXFVideo::GetSEIData, "Allocate Error.", 512},
};

TEST_F(ReadMXFVideo, DataGettersNeedTheHeaderAndAPointer) {
    for (const auto& getter : kDataGetters) {
        const std::string error = std::string(getter.name) + ": Error.";
        reader.Close();
        log.Clear();
        uint8_t kept = 0, *data = &kept;
        EXPECT_EQ(kStatusFailure, (reader.*getter.get)(0, &data));
        EXPECT_EQ(&kept, data);
        EXPECT_THAT(log.Lines(), ElementsAre(error));
        MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
        EXPECT_EQ(kStatusFailure, (reader.*getter.get)(0, nullptr));
        EXPECT_THAT(log.Lines(), ElementsAre(error));
        EXPECT_TRUE(reader.IsOpened());
    }
}

TEST_F(ReadMXFVideo, FailingOperationsOfTheDataGettersLeaveTheFileOpen) {
    struct Case {
        Op op;
        Fault fault;
        int32_t status;
        const char* message;  // null: the getter's own
    };
    for (const auto& getter : kDataGetters) {
        for (const auto& [op, fault, status, message] : {
                 Case{Op::kGetPieceAllocator, Fault::kFail, kStatusNoMemory, nullptr},
                 Case{Op::kAllocate, Fault::kFail, kStatusNoMemory, nullptr},
                 Case{Op::kRead, Fault::kFail, kStatusIoError, "Read Error."},
                 Case{Op::kRead, Fault::kShort, kStatusIoError, "Read Error."},
                 Case{Op::kRead, Fault::kEndOfFile, kStatusIoError, "Read Error."},
             }) {
            MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
            stream->FailAll(op, fault);
            uint8_t kept = 0, *data = &kept;
            EXPECT_EQ(status, (reader.*getter.get)(0, &data));
            EXPECT_EQ(&kept, data);
            EXPECT_THAT(log.Lines(),
                        ElementsAre(std::string(getter.name) + ": " + (message ? message : getter.noPiece)));
            EXPECT_EQ("ReadMXFVideo", log.Records().at(0).sourceFile);
            EXPECT_TRUE(reader.IsOpened());
            ExpectNothingHeld();
        }
    }
}

TEST_F(ReadMXFVideo, FailingSeekOfADataGetterIsLoggedTwiceAndCloses) {
    for (const auto& getter : kDataGetters) {
        const std::string error = std::string(getter.name) + ": Seek Error.";
        MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
        stream->FailAll(Op::kSeek);
        uint8_t* data = nullptr;
        EXPECT_EQ(kStatusIoError, (reader.*getter.get)(0, &data));
        EXPECT_EQ(nullptr, data);
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error.", error));
        EXPECT_FALSE(reader.IsOpened());
        ExpectNothingHeld();

        MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
        reader.SetFrameDataSize(0);
        EXPECT_EQ(kStatusWrongState, (reader.*getter.get)(0, &data));
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Not Init.", error));
        EXPECT_FALSE(reader.IsOpened());
    }
}

TEST_F(ReadMXFVideo, RunningOutOfMemoryForTheBufferIsAStatus) {
    for (const auto& getter : kDataGetters) {
        MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
        uint8_t* data = nullptr;
        int32_t status = 0;
        {
            const FailingAllocation noMemory(FailingAllocation::By::kMalloc, getter.bufferSize);
            status = (reader.*getter.get)(0, &data);
        }
        EXPECT_EQ(kStatusNoMemory, status);
        EXPECT_EQ(nullptr, data);
        EXPECT_THAT(log.Lines(), ElementsAre(std::string(getter.name) + ": Error."));
        EXPECT_TRUE(reader.IsOpened());
        ExpectNothingHeld();
    }
}

TEST_F(ReadMXFVideo, AVCIntraHasNoDIFUnits) {
    MustOpen(AVCIFile("21 08", kRate5994, NumberedFrames(1, 116224, 512)));
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusFailure, reader.GetDIFData(0, &data));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFData: Error."));
}

TEST_F(ReadMXFVideo, DIFUnitThatTheBufferCannotHoldIsRefused) {
    MustOpen(DV720File(kDV720At60, kRate5994, NumberedFrames(4, 240000)));
    reader.SetFrameDataSize(288001);
    uint8_t* data = nullptr;
    EXPECT_EQ(kStatusFailure, reader.GetDIFData(0, &data));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFData: Error."));
    reader.SetFrameDataSize(288000);
    EXPECT_EQ(576000u, Take(&CReadMXFVideo::GetDIFData, 0, 576000).size());
}

TEST_F(ReadMXFVideo, ReleasingNothingIsAllowed) {
    EXPECT_EQ(0, reader.ReleaseFrameData(nullptr));
    EXPECT_EQ(0, reader.ReleaseDIFData(nullptr));
    EXPECT_EQ(0, reader.ReleaseSEIData(nullptr));
}

TEST_F(ReadMXFVideo, AnyReleaseFreesAnyBuffer) {
    MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
    uint8_t *frame = nullptr, *unit = nullptr, *area = nullptr;
    ASSERT_EQ(0, reader.GetFrameData(0, &frame));
    ASSERT_EQ(0, reader.GetDIFData(0, &unit));
    ASSERT_EQ(0, reader.GetSEIData(0, &area));
    reader.Close();
    EXPECT_EQ(0, reader.ReleaseDIFData(frame));
    EXPECT_EQ(0, reader.ReleaseSEIData(unit));
    EXPECT_EQ(0, reader.ReleaseFrameData(area));
}

// --- timecode of DV, straight from the file ---

// Ten DV25 frames at 59.94i whose timecode packs hold these bytes from 108 on.
OpAtomFile DVWithTimecode(std::string_view from108, uint32_t frame = 0) {
    auto essence = NumberedFrames(2, 120000);
    Patch(essence, frame * 120000 + 108, Hex(from108));
    return VideoFile(kDV25At5994i, {}, essence);
}

TEST_F(ReadMXFVideo, TimecodeComesFromAFewBytesOfTheFrame) {
    MustOpen(DVWithTimecode("F0 FF 13 44 03 02 01", 1));
    const int before = stream->CountOfAll();
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetTimecode(1, &timecode));
    EXPECT_EQ("01:02:03;04", timecode.GetText());
    EXPECT_EQ(0x0100007Cu, timecode.GetVideoStd());
    EXPECT_THAT(CallsSince(before), ElementsAre("GetPieceAllocator", "Allocate 8", "Seek 152876 0", "Read 8"));
    ExpectNothingHeld();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, TimecodeTakesTheStandardOfTheFile) {
    auto essence = NumberedFrames(1, 144000);
    Patch(essence, 108, Hex("F0 FF 13 20 59 59 23"));
    MustOpen(VideoFile(kDV25At50i, {}, essence));
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
    EXPECT_EQ(0x010000B2u, timecode.GetVideoStd());
    EXPECT_EQ("23:59:59:20", timecode.GetText());
    EXPECT_EQ(25u * 86400 - 5, timecode.GetTotalFrame());
}

TEST_F(ReadMXFVideo, TimecodeAtAnUnknownRateKeepsTheStandardOfItsObject) {
    auto essence = NumberedFrames(1, 240000);
    Patch(essence, 108, Hex("F0 FF 13 20 59 59 23"));
    MustOpen(DV720File(kDV720At60, "00 00 00 00 00 00 00 00", essence));
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
    EXPECT_EQ(0x0100007Cu, timecode.GetVideoStd());
    EXPECT_EQ("23:59:59:20", timecode.GetText());
}

TEST_F(ReadMXFVideo, AlignedByteInFrontOfThePackTellsThatThereIsNone) {
    CTimecode timecode;
    MustOpen(DVWithTimecode("FF FF 13 04 03 02 01"));
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(0, &timecode));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusNotFound, reader.GetStartTimecode(&timecode));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error."));
    ExpectNothingHeld();
    // The pack's own head does not.
    MustOpen(DVWithTimecode("F0 FF FF 04 03 02 01"));
    EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
    EXPECT_EQ("01:02:03:04", timecode.GetText());
}

TEST_F(ReadMXFVideo, BytesThatAreNoTimecodeAreTheTimecodesOwnFailure) {
    CTimecode timecode;
    MustOpen(DVWithTimecode("F0 FF 13 FF FF FF FF"));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetTimecode(0, &timecode));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusInvalidArgument, reader.GetStartTimecode(&timecode));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error."));
}

TEST_F(ReadMXFVideo, TimecodeIsReadInWordsAtAnyDataOffset) {
    struct Case {
        uint32_t shift;
        const char* allocate;
        const char* seek;
    };
    // The pack lies at 32878 + shift.
    for (const auto& [shift, allocate, seek] : {
             Case{0, "Allocate 8", "Seek 32876 0"},
             Case{1, "Allocate 12", "Seek 32876 0"},
             Case{2, "Allocate 8", "Seek 32880 0"},
             Case{3, "Allocate 8", "Seek 32880 0"},
         }) {
        auto essence = NumberedFrames(1, 120010);
        Patch(essence, 110 + shift, Hex("13 04 03 02 01"));
        MustOpen(VideoFile(kDV25At5994i, {}, essence));
        reader.SetDataOffset(32768 + shift);
        const int before = stream->CountOfAll();
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetTimecode(0, &timecode));
        EXPECT_EQ("01:02:03:04", timecode.GetText()) << shift;
        EXPECT_EQ(allocate, CallsSince(before).at(1));
        EXPECT_EQ(seek, CallsSince(before).at(2));
    }
}

TEST_F(ReadMXFVideo, TimecodeNeedsTheHeaderThenAPointer) {
    CTimecode timecode;
    EXPECT_EQ(kStatusWrongState, reader.GetTimecode(0, nullptr));
    EXPECT_EQ(kStatusWrongState, reader.GetTimecode(0, &timecode));
    MustOpen(DVWithTimecode("F0 FF 13 04 03 02 01"));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetTimecode(0, nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, FailingOperationsOfTheTimecodeLeaveTheFileOpen) {
    struct Case {
        Op op;
        Fault fault;
        const char* message;
    };
    for (const auto& [op, fault, message] : {
             Case{Op::kGetPieceAllocator, Fault::kFail, "Allocate Error."},
             Case{Op::kAllocate, Fault::kFail, "Allocate Error."},
             Case{Op::kSeek, Fault::kFail, "Read Error."},
             Case{Op::kRead, Fault::kFail, "Read Error."},
             Case{Op::kRead, Fault::kShort, "Read Error."},
             Case{Op::kRead, Fault::kEndOfFile, "Read Error."},
         }) {
        MustOpen(DVWithTimecode("F0 FF 13 04 03 02 01"));
        stream->FailAll(op, fault);
        CTimecode timecode;
        EXPECT_EQ(kStatusIoError, reader.GetStartTimecode(&timecode));
        EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetTimecode: " + std::string(message),
                                             "CReadMXFVideo::GetStartTimecode: GetTimecode Error."));
        EXPECT_TRUE(reader.IsOpened());
        ExpectNothingHeld();
    }
}

// --- what the pictures carry ---

std::string UsersBitText(const CUsersBit& usersBit) {
    uint8_t bytes[4]{};
    usersBit.GetData(bytes);
    return HexLine(bytes, 0);
}

constexpr std::string_view kBasicUMID =
    "06 0A 2B 34 01 01 01 05 01 01 0D 20 13 00 00 00 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF";

TEST_F(ReadMXFVideo, RealDV25Tells) {
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    ExpectTotal(2);
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
    EXPECT_EQ("01:02:03;04", timecode.GetText());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;05", timecode.GetText());
    EXPECT_EQ(0, reader.GetTimecode(1, &timecode));
    EXPECT_EQ("01:02:03;05", timecode.GetText());
    for (const uint32_t frame : {0u, 1u}) {
        CTimecode fromUnit;
        EXPECT_EQ(0, reader.GetDIFTimecode(frame, &fromUnit));
        EXPECT_EQ(frame == 0 ? "01:02:03;04" : "01:02:03;05", fromUnit.GetText());
        EXPECT_EQ(0x0100007Cu, fromUnit.GetVideoStd());
    }
    ExpectNothingHeld();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, RealDV25CarriesNoUserBitsUMIDOrColourFrame) {
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    uint8_t clf = 9;
    EXPECT_EQ(kStatusNotFound, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ(kStatusNotFound, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2));
    EXPECT_EQ(kStatusNotFound, reader.GetStartUMID(&umid));
    EXPECT_EQ(kStatusNotFound, reader.GetEndUMID(&umid));
    EXPECT_EQ(kStatusNotFound, reader.GetEndCLF(&clf));
    EXPECT_EQ(9, clf);
    EXPECT_EQ(MXFUMIDEXTag{}, umid);
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetStartUsersBit: GetUsersBit Error.",
                            "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error.",
                            "CReadMXFVideo::GetStartUMID: GetUMID Error.", "CReadMXFVideo::GetEndUMID: GetUMID Error."))
        << "an absent colour frame is not logged";
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, DV25WithEverythingTellsItOfFirstAndLastFrame) {
    auto essence = LoadTestData("essence/dv25-5994i.dif");
    for (const size_t frame : {0u, 1u}) {
        const auto at = [&](size_t offset) { return frame * 120000 + offset; };
        const auto n = static_cast<uint8_t>(frame);
        Patch(essence, at(94), Join({Hex("14 12 34 56"), {n}}));           // user bits in the subcode
        Patch(essence, at(268), Join({Hex("64 AB CD EF"), {n}}));          // and in VAUX
        Patch(essence, at(245), {static_cast<uint8_t>(0x9F + 0x10 * n)});  // colour frame 1 and 2, valid
        Patch(essence, at(323), Hex(kBasicUMID));
        Patch(essence, at(323 + 31), {n});
    }
    MustOpen(VideoFile(kDV25At5994i, {}, essence));
    CUsersBit usersBit;
    EXPECT_EQ(0, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 00 ", UsersBitText(usersBit));
    EXPECT_EQ(0, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 01 ", UsersBitText(usersBit));
    EXPECT_EQ(0, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2));
    EXPECT_EQ("AB CD EF 01 ", UsersBitText(usersBit));
    uint8_t clf = 0;
    EXPECT_EQ(0, reader.GetEndCLF(&clf));
    EXPECT_EQ(2, clf);
    EXPECT_EQ(0, reader.GetDIFCLF(0, &clf));
    EXPECT_EQ(1, clf);
    for (const auto& [get, last] :
         {std::pair{&CReadMXFVideo::GetStartUMID, 0}, std::pair{&CReadMXFVideo::GetEndUMID, 1}}) {
        MXFUMIDEXTag umid;
        std::ranges::fill(umid.bytes, uint8_t{0x77});
        EXPECT_EQ(0, (reader.*get)(&umid));
        auto expected = Hex(kBasicUMID);
        expected[31] = static_cast<uint8_t>(last);
        expected.resize(64);
        EXPECT_TRUE(SameBytes(expected, umid.bytes));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, RealIECDVTells) {
    auto essence = LoadTestData("essence/dv25-50i-iec.dif");
    Patch(essence, 323, Hex(kBasicUMID));
    MustOpen(VideoFile(kIECAt50i, {}, essence));
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
    EXPECT_EQ("23:59:59:20", timecode.GetText());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("23:59:59:21", timecode.GetText());
    // The UMID of consumer DV is not looked for.
    const int before = stream->CountOfAll();
    MXFUMIDEXTag umid;
    std::ranges::fill(umid.bytes, uint8_t{0x77});
    EXPECT_EQ(0, reader.GetStartUMID(&umid));
    EXPECT_EQ(0, reader.GetEndUMID(&umid));
    EXPECT_TRUE(SameBytes(ByteVector(64, 0x77), umid.bytes));
    EXPECT_EQ(before, stream->CountOfAll());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusFailure, reader.GetStartUMID(nullptr));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetDIFUMID: Error.", "CReadMXFVideo::GetStartUMID: GetUMID Error."));
}

TEST_F(ReadMXFVideo, OddFramesOf720LinesAreTheSecondOfTheirUnit) {
    auto essence = LoadTestData("essence/dv100-720-5994p.dif");
    // The real pair has one timecode twice. The first pack of the second frame says 28 now, and the one that is read
    // without the unit 29.
    Patch(essence, 240000 + 86, Hex("13 68"));
    Patch(essence, 240000 + 110, Hex("13 69"));
    Patch(essence, 94, Hex("14 01 02 03 04"));
    Patch(essence, 240000 + 94, Hex("14 05 06 07 08"));
    Patch(essence, 245, {0x8F});           // colour frame 0
    Patch(essence, 240000 + 245, {0xBF});  // colour frame 3
    MustOpen(DV720File(kDV720At60, kRate5994, Join({essence, essence})));
    ExpectTotal(4);
    for (const uint32_t pair : {0u, 2u}) {
        CTimecode timecode;
        EXPECT_EQ(0, reader.GetDIFTimecode(pair, &timecode));
        EXPECT_EQ("00:08:59;27", timecode.GetText());
        EXPECT_EQ(0x0200007Cu, timecode.GetVideoStd());
        EXPECT_EQ(0, reader.GetDIFTimecode(pair + 1, &timecode));
        EXPECT_EQ("00:08:59;28", timecode.GetText());
        EXPECT_EQ(0, reader.GetTimecode(pair, &timecode));
        EXPECT_EQ("00:08:59;27", timecode.GetText());
        EXPECT_EQ(0, reader.GetTimecode(pair + 1, &timecode));
        EXPECT_EQ("00:08:59;29", timecode.GetText()) << "of the odd frame's own bytes";
        CUsersBit usersBit;
        EXPECT_EQ(0, reader.GetDIFUsersBit(pair, &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ("01 02 03 04 ", UsersBitText(usersBit));
        EXPECT_EQ(0, reader.GetDIFUsersBit(pair + 1, &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ("05 06 07 08 ", UsersBitText(usersBit));
        uint8_t clf = 9;
        EXPECT_EQ(0, reader.GetDIFCLF(pair, &clf));
        EXPECT_EQ(0, clf);
        EXPECT_EQ(0, reader.GetDIFCLF(pair + 1, &clf));
        EXPECT_EQ(3, clf);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, UMIDOf720LinesIsThatOfTheUnit) {
    auto essence = LoadTestData("essence/dv100-720-5994p.dif");
    Patch(essence, 240000 + 323, Hex(kBasicUMID));
    MustOpen(DV720File(kDV720At60, kRate5994, essence));
    auto expected = Hex(kBasicUMID);
    expected.resize(64);
    MXFUMIDEXTag umid;
    EXPECT_EQ(0, reader.GetStartUMID(&umid));
    EXPECT_TRUE(SameBytes(expected, umid.bytes));
    umid = {};
    EXPECT_EQ(0, reader.GetEndUMID(&umid));
    EXPECT_TRUE(SameBytes(expected, umid.bytes));
}

TEST_F(ReadMXFVideo, RealAVCIntraTells) {
    MustOpen(AVCIFile("31 01", kRate2997, Join({ByteVector(512), LoadTestData("essence/avci100-1080-5994i.raw")})));
    ExpectTotal(2);
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
    EXPECT_EQ("02:03:59;25", timecode.GetText());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("02:03:59;26", timecode.GetText());
    EXPECT_EQ(0, reader.GetTimecode(1, &timecode));
    EXPECT_EQ("02:03:59;26", timecode.GetText());
    CUsersBit usersBit;
    EXPECT_EQ(0, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 78 ", UsersBitText(usersBit));
    EXPECT_EQ(0, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ("12 34 56 78 ", UsersBitText(usersBit));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kStatusNotFound, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE2));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetEndUsersBit: GetUsersBit Error."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, TimecodeOfAVCIntraReadsTheSEIAreaAlone) {
    MustOpen(AVCIFile("31 01", kRate2997, Join({ByteVector(512), LoadTestData("essence/avci100-1080-5994i.raw")})));
    const int before = stream->CountOfAll();
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_THAT(CallsSince(before), ElementsAre("Seek 505344 0", "GetPieceAllocator", "Allocate 512", "Read 512"));
}

TEST_F(ReadMXFVideo, TimecodeOfAVCIntraTakesTheStandardOfTheFile) {
    auto essence = LoadTestData("essence/avci50-720-5994p-header.raw");
    Patch(essence, 512 + 34, Hex("13 FF 24 59 FF 58 23 FF"));
    MustOpen(AVCIFile("21 08", "00 00 00 19 00 00 00 01", essence));
    ExpectTotal(3);
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
    EXPECT_EQ(0x02000099u, timecode.GetVideoStd());
    EXPECT_EQ(((23u * 60 + 58) * 60 + 59) * 25 + 24, timecode.GetTotalFrame());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode)) << "a pack of zeros";
    EXPECT_EQ("00:00:00:00", timecode.GetText());
}

TEST_F(ReadMXFVideo, UMIDOfAVCIntraIsNotAFailureWhenAbsent) {
    auto essence = Join({ByteVector(512), LoadTestData("essence/avci100-1080-5994i.raw")});
    Patch(essence, 512 + 472064 + 66, Hex(kBasicUMID));
    MustOpen(AVCIFile("31 01", kRate2997, essence));
    MXFUMIDEXTag umid;
    std::ranges::fill(umid.bytes, uint8_t{0x77});
    EXPECT_EQ(0, reader.GetStartUMID(&umid));
    EXPECT_TRUE(SameBytes(ByteVector(64, 0x77), umid.bytes));
    EXPECT_EQ(0, reader.GetEndUMID(&umid));
    auto expected = Hex(kBasicUMID);
    expected.resize(64);
    EXPECT_TRUE(SameBytes(expected, umid.bytes));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, AVCIntraWithoutSEICarriesNothing) {
    MustOpen(AVCIFile("21 08", kRate5994, NumberedFrames(1, 116224, 512)));
    CTimecode timecode;
    CUsersBit usersBit;
    EXPECT_EQ(kStatusNotFound, reader.GetStartTimecode(&timecode));
    EXPECT_EQ(kStatusNotFound, reader.GetTimecode(0, &timecode));
    EXPECT_EQ(kStatusNotFound, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error.",
                                         "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error."));
}

TEST_F(ReadMXFVideo, ColourFrameOfAVCIntraIsNotFoundWithoutALog) {
    MustOpen(AVCIFile("21 08", kRate5994, NumberedFrames(1, 116224, 512)));
    uint8_t clf = 9;
    EXPECT_EQ(kStatusNotFound, reader.GetEndCLF(&clf));
    EXPECT_EQ(kStatusNotFound, reader.GetEndCLF(nullptr));
    EXPECT_EQ(9, clf);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFVideo, TimecodeThatTheStandardCannotCountIsAFailure) {
    auto essence = LoadTestData("essence/dv25-50i-iec.dif");
    Patch(essence, 86, Hex("13 27 59 59 23"));  // frame 27 of 25
    MustOpen(VideoFile(kIECAt50i, {}, essence));
    CTimecode timecode;
    EXPECT_EQ(kStatusInvalidArgument, reader.GetDIFTimecode(0, &timecode));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetDIFTimecode: GetTimecode Error."));
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, EndPositionMovesTheLastFrame) {
    EXPECT_EQ(kStatusWrongState, reader.SetEndPosition(1));
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    CTimecode timecode;
    EXPECT_EQ(0, reader.SetEndPosition(1));
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;04", timecode.GetText());
    EXPECT_EQ(0, reader.SetEndPosition(99));
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;05", timecode.GetText()) << "no further than the total";
    ExpectTotal(2);
    reader.SetEndPosition(1);
    EXPECT_EQ(0, reader.ReadHeader());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("01:02:03;05", timecode.GetText()) << "the header sets it back";
}

TEST_F(ReadMXFVideo, EndPositionOfZeroLeadsPastTheFile) {
    MustOpen(VideoFile(kDV25At5994i, {}, LoadTestData("essence/dv25-5994i.dif")));
    reader.SetEndPosition(0);
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    uint8_t clf = 0;
    EXPECT_EQ(kStatusIoError, reader.GetEndTimecode(&timecode));
    EXPECT_EQ(kStatusIoError, reader.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_EQ(kStatusIoError, reader.GetEndUMID(&umid));
    EXPECT_EQ(kStatusIoError, reader.GetEndCLF(&clf));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("CReadMXFVideo::GetTimecode: Read Error.", "CReadMXFVideo::GetEndTimecode: GetTimecode Error.",
                    "CReadMXFVideo::GetDIFData: Read Error.", "CReadMXFVideo::GetDIFUsersBit: GetDIFData Error.",
                    "CReadMXFVideo::GetEndUsersBit: GetUsersBit Error.", "CReadMXFVideo::GetDIFData: Read Error.",
                    "CReadMXFVideo::GetDIFUMID: GetDIFData Error.", "CReadMXFVideo::GetEndUMID: GetUMID Error.",
                    "CReadMXFVideo::GetDIFData: Read Error.", "CReadMXFVideo::GetDIFCLF: GetDIFData Error.",
                    "CReadMXFVideo::GetEndCLF: GetCLF Error."));
    ExpectNothingHeld();

    MustOpen(AVCIFile("21 08", kRate5994, NumberedFrames(1, 116224, 512)));
    reader.SetEndPosition(0);
    EXPECT_EQ(kStatusIoError, reader.GetEndTimecode(&timecode));
    EXPECT_EQ(kStatusIoError, reader.GetEndUMID(&umid));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("CReadMXFVideo::GetSEIData: Read Error.", "CReadMXFVideo::GetAVCITimecode: GetSEIData Error.",
                    "CReadMXFVideo::GetEndTimecode: GetTimecode Error.", "CReadMXFVideo::GetSEIData: Read Error.",
                    "CReadMXFVideo::GetAVCIUMID: GetSEIData Error.", "CReadMXFVideo::GetEndUMID: GetUMID Error."));
}

TEST_F(ReadMXFVideo, FrameReadersNeedTheHeaderAnOutputAndTheirKindOfPicture) {
    CTimecode timecode;
    CUsersBit usersBit;
    MXFUMIDEXTag umid;
    uint8_t clf = 0;
    const auto dif = [&](bool null) {
        EXPECT_EQ(kStatusFailure, reader.GetDIFTimecode(0, null ? nullptr : &timecode));
        EXPECT_EQ(kStatusFailure, reader.GetDIFUsersBit(0, null ? nullptr : &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ(kStatusFailure, reader.GetDIFUMID(0, null ? nullptr : &umid));
        EXPECT_EQ(kStatusFailure, reader.GetDIFCLF(0, null ? nullptr : &clf));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("CReadMXFVideo::GetDIFTimecode: Error.", "CReadMXFVideo::GetDIFUsersBit: Error.",
                                "CReadMXFVideo::GetDIFUMID: Error.", "CReadMXFVideo::GetDIFCLF: Error."));
        log.Clear();
    };
    const auto avci = [&](bool null) {
        EXPECT_EQ(kStatusFailure, reader.GetAVCITimecode(0, null ? nullptr : &timecode));
        EXPECT_EQ(kStatusFailure, reader.GetAVCIUsersBit(0, null ? nullptr : &usersBit, SEI_DATA_TYPE1));
        EXPECT_EQ(kStatusFailure, reader.GetAVCIUMID(0, null ? nullptr : &umid));
        EXPECT_THAT(log.Lines(),
                    ElementsAre("CReadMXFVideo::GetAVCITimecode: Error.", "CReadMXFVideo::GetAVCIUsersBit: Error.",
                                "CReadMXFVideo::GetAVCIUMID: Error."));
        log.Clear();
    };
    dif(false);
    avci(false);
    MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
    dif(true);
    avci(false);
    MustOpen(AVCIFile("21 08", kRate5994, NumberedFrames(1, 116224, 512)));
    dif(false);
    avci(true);
    EXPECT_TRUE(reader.IsOpened());
}

TEST_F(ReadMXFVideo, EndsOfTheClipLogWhatTheirFrameReadersReport) {
    MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetStartTimecode(nullptr));
    EXPECT_EQ(kStatusInvalidArgument, reader.GetEndTimecode(nullptr));
    EXPECT_EQ(kStatusFailure, reader.GetEndCLF(nullptr));
    EXPECT_THAT(log.Lines(),
                ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error.",
                            "CReadMXFVideo::GetEndTimecode: GetTimecode Error.", "CReadMXFVideo::GetDIFCLF: Error.",
                            "CReadMXFVideo::GetEndCLF: GetCLF Error."));
    reader.Close();
    log.Clear();
    CTimecode timecode;
    CUsersBit usersBit;
    EXPECT_EQ(kStatusWrongState, reader.GetStartTimecode(&timecode));
    EXPECT_EQ(kStatusFailure, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::GetStartTimecode: GetTimecode Error.",
                                         "CReadMXFVideo::GetDIFUsersBit: Error.",
                                         "CReadMXFVideo::GetStartUsersBit: GetUsersBit Error."));
}

TEST_F(ReadMXFVideo, FailingSeekOfAFrameReaderGivesEverythingBack) {
    MustOpen(VideoFile(kDV25At5994i, {}, NumberedFrames(1, 120000)));
    stream->FailAll(Op::kSeek);
    CUsersBit usersBit;
    EXPECT_EQ(kStatusIoError, reader.GetStartUsersBit(&usersBit, SEI_DATA_TYPE1));
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFVideo::Seek: Seek Error.", "CReadMXFVideo::GetDIFData: Seek Error.",
                                         "CReadMXFVideo::GetDIFUsersBit: GetDIFData Error.",
                                         "CReadMXFVideo::GetStartUsersBit: GetUsersBit Error."));
    EXPECT_FALSE(reader.IsOpened());
    ExpectNothingHeld();
}

TEST_F(ReadMXFVideo, RealFramesComeOutAsTheyWentIn) {
    const auto essence = LoadTestData("essence/dv50-50i.dif");
    MustOpen(VideoFile("02 02 51 02", {}, essence));
    ExpectTotal(2);
    EXPECT_TRUE(SameBytes(
        essence, Join({Take(&CReadMXFVideo::GetFrameData, 0, 288000), Take(&CReadMXFVideo::GetFrameData, 1, 288000)})));
    CTimecode timecode;
    EXPECT_EQ(0, reader.GetStartTimecode(&timecode));
    EXPECT_EQ("12:34:56:18", timecode.GetText());
    EXPECT_EQ(0, reader.GetEndTimecode(&timecode));
    EXPECT_EQ("12:34:56:19", timecode.GetText());
}

}  // namespace
}  // namespace kmxf::test
