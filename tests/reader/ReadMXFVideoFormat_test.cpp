#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "reader/VideoReading.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
}  // namespace kmxf::test
