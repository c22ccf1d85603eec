#include "kmxf/writer/CreateMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kmxf/core/VideoStandard.h"
#include "support/Completions.h"
#include "support/FaultyStream.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/Op1bClip.h"
#include "support/Op1bLayout.h"
#include "support/Packets.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr size_t kHeaderSize = 0x20000;

// 29.97p, 25 Mbit/s: groups of 60 frames.
Op1bClip Clip(uint32_t frames, uint8_t channels = 0) { return {0x0200005E, 0x1000C100, channels, 2, frames}; }

std::vector<Packet> BodyOf(const std::vector<uint8_t>& file) { return Packets(file, kHeaderSize, file.size()); }
std::vector<Packet> HeaderOf(const std::vector<uint8_t>& file) { return Packets(file, 0, kHeaderSize); }

// The pieces that a client writes, kept until the end of the test.
class Client {
public:
    StreamPiece* Piece(uint32_t size, uint8_t byte = 0xA5) {
        pieces_.push_back(std::make_unique<CMemoryPiece>(std::vector<uint8_t>(size, byte).data(), size));
        return pieces_.back().get();
    }

private:
    std::vector<std::unique_ptr<CMemoryPiece>> pieces_;
};

class CreateMXFOp1b : public testing::Test {
protected:
    void Open(const Op1bClip& clip) {
        SetFormat(writer, clip);
        ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
    }
    int32_t WriteVideo(uint32_t size = 8, uint8_t flags = 0) {
        return writer.WriteVideo(client.Piece(size), 0, 0, flags);
    }
    int32_t WriteAudio(uint32_t size, uint8_t channel) { return writer.WriteAudio(client.Piece(size), channel); }
    // Closed, and nothing left behind.
    void ExpectClosed() {
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_FALSE(stream.IsOpened());
        EXPECT_EQ(stream.LivePieces(), 0);
        EXPECT_EQ(stream.LiveAllocators(), 0);
    }

    LogRecorder log;
    Client client;  // its pieces outlive the stream
    FaultyStream stream;
    CCreateMXFOp1b writer;
};

// --- settings ---

TEST_F(CreateMXFOp1b, SettersStoreAnyCodeAndReturn0) {
    EXPECT_EQ(writer.SetVideoStandard(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetCompType(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetUMID({{1}}), kStatusOk);
    EXPECT_EQ(writer.SetPackageName(std::string(1000, 'x')), kStatusOk);
    EXPECT_EQ(writer.SetDescriptiveMetadata({}), kStatusOk);
    EXPECT_EQ(writer.SetStartTimecode(CTimecode(1800, true)), kStatusOk);
    EXPECT_EQ(writer.SetPlayerLayout(true), kStatusOk);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_EQ(writer.GetDuration(), 0u);
    EXPECT_EQ(writer.GetCurrentOffset(), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, TheStandardDecidesTheFramesOfAGroup) {
    EXPECT_EQ(writer.GetPartitionFrame(), 0u);
    const std::pair<uint32_t, uint32_t> rows[] = {
        {0x02000058, 48},  {0x0100007C, 60},  {0x0200005E, 60}, {0x010000B2, 50}, {0x02000099, 50},
        {0x020000B2, 100}, {0x0200007C, 120}, {0x0100005E, 0},  {0, 0},           {0xFFFFFFFF, 0}};
    for (const auto& [standard, frames] : rows) {
        writer.SetVideoStandard(standard);
        EXPECT_EQ(writer.GetPartitionFrame(), frames) << std::hex << standard;
    }
}

TEST_F(CreateMXFOp1b, SamplesHaveTwoOrThreeBytes) {
    EXPECT_EQ(writer.SetBytesPerSample(3), kStatusOk);
    for (const int bytes : {0, 1, 4, 255}) {
        EXPECT_EQ(writer.SetBytesPerSample(static_cast<uint8_t>(bytes)), kStatusInvalidArgument) << bytes;
    }
    SetFormat(writer, {0x02000099, 0x1000C100, 1, 3, 1});
    writer.SetBytesPerSample(4);  // the 3 stays
    writer.Open("clip.mxf", &stream);
    WriteVideo();
    WriteAudio(1920 * 3, 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x47).front().Item(0x3D01), Hex("00 00 00 18"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, ClipTypesWithoutOnePictureAreUnexpectedAndKept) {
    EXPECT_EQ(writer.SetClipType(0x101), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0x100), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0x1F1FF), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0x001), kStatusUnexpectedKind);
    EXPECT_EQ(writer.SetClipType(0x300), kStatusUnexpectedKind);
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.SetClipType(0x204), kStatusUnexpectedKind);
    writer.Open("clip.mxf", &stream);
    WriteVideo();
    for (uint8_t c = 0; c < 4; ++c) EXPECT_EQ(WriteAudio(3200, c), 3200);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x47).size(), 4u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, WithoutAClipTypeThereIsNoSound) {
    writer.SetVideoStandard(0x0200005E);
    writer.SetCompType(0x1000C100);
    writer.Open("clip.mxf", &stream);
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x47).size(), 0u);
}

TEST_F(CreateMXFOp1b, IdentificationOutOfRangeIsRefusedWhole) {
    const uint8_t uid[16] = {9};
    const std::string s16(16, 's'), s17(17, 's');
    EXPECT_EQ(writer.SetIdentification("", "p", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification(s17, "p", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "", "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", s17, "v", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "12345", uid), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetIdentification("c", "p", "v", nullptr), kStatusInvalidArgument);
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    auto set = SetsOfKind(HeaderOf(stream.Bytes()), 0x30).front();
    auto company = Hex("00 4B 00 65 00 73 00 74 00 72 00 61 00 6C 00 69 00 6E"), product = Hex("00 4A 00 71");
    company.resize(32);
    product.resize(32);
    EXPECT_EQ(set.Item(0x3C01), company);
    EXPECT_EQ(set.Item(0x3C02), product);
    EXPECT_EQ(set.Item(0x3C04), Hex("00 33 00 2E 00 30 00 00"));
    EXPECT_EQ(set.Item(0x3C05), Hex("06 0E 2B 34 04 01 01 08 0E 0E 01 01 01 01 00 01"));

    EXPECT_EQ(writer.SetIdentification(s16, s16, "1234", uid), kStatusOk);
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    set = SetsOfKind(HeaderOf(stream.Bytes()), 0x30).front();
    EXPECT_EQ(set.Item(0x3C01)[31], 's');
    EXPECT_EQ(set.Item(0x3C04), Hex("00 31 00 32 00 33 00 34"));
    EXPECT_EQ(set.Item(0x3C05)[0], 9);
}

TEST_F(CreateMXFOp1b, SideDataNeedsAnOpenFile) {
    const uint8_t bytes[1] = {};
    EXPECT_EQ(writer.SetXMLData(bytes, 1), kStatusWrongState);
    EXPECT_EQ(writer.SetXMLData(nullptr, 1), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailData(nullptr, 1, 1, 1, 9), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailPosition(1), kStatusWrongState);
    Open(Clip(1));
    EXPECT_EQ(writer.SetXMLData(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetThumbnailData(nullptr, 1, 1, 1, 1), kStatusUnexpectedKind);
    EXPECT_EQ(writer.SetThumbnailData(bytes, 1, 1, 1, 1), kStatusUnexpectedKind);
    EXPECT_EQ(writer.SetThumbnailData(nullptr, 1, 1, 1, 0), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetThumbnailData(std::vector<uint8_t>(16012).data(), 16012, 1, 1, 0), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetXMLData(bytes, 1), kStatusOk);
    EXPECT_EQ(writer.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusOk);
    EXPECT_EQ(writer.SetThumbnailPosition(1), kStatusOk);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.SetXMLData(bytes, 1), kStatusWrongState);
    EXPECT_EQ(writer.SetThumbnailPosition(1), kStatusWrongState);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(CheckFormat, Interlaced720DoesNotExist) {
    constexpr uint32_t kStandards[] = {0x0100007C, 0x010000B2, 0x02000058, 0x0200005E, 0x0200007C,
                                       0x02000099, 0x020000B2, 0,          0xFFFFFFFF};
    constexpr bool kOf720[] = {false, false, true, true, true, true, true, false, false};
    for (size_t i = 0; i < std::size(kStandards); ++i) {
        for (const uint32_t type : {0x0400C200u, 0x0C00C200u, 0x1000C200u, 0x2000C200u, 0x200u, 0xFFFFFFFFu}) {
            EXPECT_EQ(CCreateMXFOp1b::CheckFormat(kStandards[i], type), kOf720[i]) << std::hex << kStandards[i];
        }
        for (const uint32_t type : {0x0400C100u, 0x0C00C100u, 0x1000C100u, 0x2000C100u, 0u, 0xFFFFFDFFu}) {
            EXPECT_TRUE(CCreateMXFOp1b::CheckFormat(kStandards[i], type)) << std::hex << kStandards[i];
        }
    }
}

// --- Open ---

TEST_F(CreateMXFOp1b, OpenOpensTheStreamAndRegistersItself) {
    Open(Clip(1));
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_THAT(stream.Calls(), ElementsAre("Open clip.mxf 0x102", "RegisterCallback"));
    EXPECT_EQ(stream.Callback(), &writer);
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, OpenRefusesNullWithoutLog) {
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.Open(nullptr, &stream), kStatusInvalidArgument);
    EXPECT_EQ(writer.Open("clip.mxf", nullptr), kStatusInvalidArgument);
    EXPECT_EQ(stream.CountOfAll(), 0);
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, OpenOfAnOpenedWriterDoesNothing) {
    Open(Clip(2));
    WriteVideo();
    FaultyStream other;
    const int calls = stream.CountOfAll();
    EXPECT_EQ(writer.Open("other.mxf", &other), kStatusOk);
    EXPECT_EQ(writer.Open(nullptr, &other), kStatusInvalidArgument);
    EXPECT_EQ(other.CountOfAll(), 0);
    EXPECT_EQ(stream.CountOfAll(), calls);
    EXPECT_EQ(writer.GetDuration(), 1u);
}

TEST_F(CreateMXFOp1b, OpenFailsWhenTheStreamCannotBeOpened) {
    stream.FailAll(Op::kOpen);
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: Open Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 0);
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, OpenFailsWhenTheCallbackCannotBeRegistered) {
    stream.FailAll(Op::kRegisterCallback);
    SetFormat(writer, Clip(1));
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusIoError);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: RegisterCallback Error."));
    EXPECT_EQ(stream.Count(Op::kClose), 1);
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, AFormatThatIsRefusedLeavesTheStreamOpen) {
    SetFormat(writer, {0x0100007C, 0x1000C200});
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusFailure);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: CheckFormat Error."));
    EXPECT_FALSE(writer.IsOpened());
    EXPECT_TRUE(stream.IsOpened());
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(stream.Count(Op::kClose), 0);
    EXPECT_TRUE(stream.Close());
    SetFormat(writer, Clip(1));  // the writer is as good as before
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
}

TEST_F(CreateMXFOp1b, AFormatWithoutABuilderClosesTheStream) {
    const Op1bClip formats[] = {{0x0100007C, 0xC900}, {0x0100007C, 0x0400}, {0, 0x1000C100}, {0, 0}};
    for (const Op1bClip& format : formats) {
        log.Clear();
        SetFormat(writer, format);
        EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusInvalidArgument);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Open: Initialize Error."));
        ExpectClosed();
    }
}

TEST_F(CreateMXFOp1b, LogRecordsNameTheSourceFileAndAreErrors) {
    WriteVideo();
    const auto records = log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].module, "");
    EXPECT_EQ(records[0].function, "CCreateMXFOp1b::WriteVideo");
    EXPECT_EQ(records[0].sourceFile, "CreateMXFOp1b");
    EXPECT_EQ(records[0].level, kLogError);
    EXPECT_GT(records[0].line, 0);
    EXPECT_EQ(records[0].message, "Error.");
}

// --- recording ---

TEST_F(CreateMXFOp1b, TheHeaderComesWithTheFirstFrame) {
    Open(Clip(1));
    EXPECT_EQ(writer.GetCurrentOffset(), 0);
    EXPECT_EQ(WriteVideo(1001), 1004);
    EXPECT_EQ(writer.GetDuration(), 1u);
    EXPECT_EQ(writer.GetCurrentOffset(), 131072 + 140 + 20 + 1004);
    EXPECT_EQ(stream.Bytes().size(), 131072u + 140 + 20 + 1004);
    EXPECT_THAT(stream.Calls(),
                ElementsAre("Open clip.mxf 0x102", "RegisterCallback",  //
                            "GetPieceAllocator", "Allocate 131072", "Write 131072 tag 1", "GetPieceAllocator",
                            "GetPieceAllocator", "Allocate 140", "Write 140 tag 1", "GetPieceAllocator",
                            "GetPieceAllocator", "Allocate 20", "Write 20 tag 1", "GetPieceAllocator",
                            "Write 1001 tag 4",  //
                            "GetPieceAllocator", "Allocate 3", "Write 3 tag 1", "GetPieceAllocator"));
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFOp1b, FramesArePaddedToFourBytes) {
    Open(Clip(5));
    const std::pair<uint32_t, uint32_t> rows[] = {{1001, 1004}, {1002, 1004}, {1003, 1004}, {1004, 1004}, {5, 8}};
    for (const auto& [size, stored] : rows) EXPECT_EQ(WriteVideo(size), static_cast<int32_t>(stored));
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = BodyOf(stream.Bytes());
    for (size_t i = 0; i < 5; ++i) {
        std::vector<uint8_t> expected(rows[i].first, 0xA5);
        expected.resize(rows[i].second);
        EXPECT_TRUE(SameBytes(expected, packets[1 + i].value));
    }
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01  83 00 03 EC"),
                          std::span(stream.Bytes()).subspan(packets[1].offset, 20)));
}

TEST_F(CreateMXFOp1b, AClipOf130FramesHasGroupsOf60And60And10) {
    const Op1bClip clip = Clip(130, 2);
    Open(clip);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.GetDuration(), 130u);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.GetDuration(), 130u);
    Op1bLayout(stream.Bytes(), clip).Check();
    std::vector<uint64_t> durations;
    for (const Packet& packet : BodyOf(stream.Bytes())) {
        if (packet.key == Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00")) break;  // repeated behind the footer
        if (packet.key != Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00")) continue;
        durations.push_back(BigEndian(packet.Item(0x3F0D)));
    }
    EXPECT_THAT(durations, ElementsAre(60, 60, 96096, 96096, 60, 60, 96096, 96096, 10, 10, 16016, 16016));
    EXPECT_EQ(writer.GetCurrentOffset(), static_cast<int64_t>(stream.Bytes().size()));
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, FramesThatCannotBeShownMakeTheOrigin) {
    Op1bClip clip = Clip(130, 1);
    clip.hidden = 3;
    Open(clip);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = HeaderOf(stream.Bytes());
    const auto sequences = SetsOfKind(packets, 0x0F);
    const auto tracks = SetsOfKind(packets, 0x3B);
    ASSERT_EQ(tracks.size(), 8u);  // timecode, picture, ANC, sound in both packages
    constexpr uint64_t kMaterial[] = {130, 130, 130, 208208}, kFile[] = {127, 127, 127, 203404};
    constexpr uint64_t kOrigins[] = {3, 3, 3, 4804};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(BigEndian(sequences[i].Item(0x0202)), kMaterial[i]);
        EXPECT_EQ(BigEndian(sequences[4 + i].Item(0x0202)), kFile[i]);
        EXPECT_EQ(BigEndian(tracks[i].Item(0x4B02)), 0u);
        EXPECT_EQ(BigEndian(tracks[4 + i].Item(0x4B02)), kOrigins[i]);
    }
    EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x28).front().Item(0x3002)), 130u);
}

TEST_F(CreateMXFOp1b, HiddenFramesCountWhereverTheyAre) {
    Open(Clip(4));
    for (const uint8_t flags : {uint8_t{0xC0}, uint8_t{0x3B}, uint8_t{0x33}, uint8_t{0x3B}}) WriteVideo(4, flags);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(BigEndian(SetsOfKind(HeaderOf(stream.Bytes()), 0x3B).back().Item(0x4B02)), 2u);
}

TEST_F(CreateMXFOp1b, PlaceholdersAreDummyAndAZeroPicture) {
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto xml = Packets(stream.Bytes(), 32768, 114688);
    EXPECT_EQ(xml[3].Item(0xA002), Hex("44 75 6D 6D 79 00"));
    const auto thumbnail = Packets(stream.Bytes(), 114688, 131072);
    EXPECT_EQ(thumbnail[2].Item(0x0601), Hex("00 00 00 00 00 00 00 00"));
    EXPECT_EQ(thumbnail[3].Item(0xA011), Hex("00"));
    EXPECT_EQ(thumbnail[3].Item(0xA012), Hex("00 50"));
    EXPECT_EQ(thumbnail[3].Item(0xA013), Hex("00 2D"));
    EXPECT_EQ(thumbnail[3].Item(0xA014), std::vector<uint8_t>(10854));
}

TEST_F(CreateMXFOp1b, SideDataOfTheClientReplacesThePlaceholders) {
    Open(Clip(1));
    const auto xml = Hex("3C 61 2F 3E"), picture = Hex("42 4D 00 01");
    WriteVideo();
    writer.SetXMLData(xml.data(), 4);
    writer.SetThumbnailData(picture.data(), 4, 16, 9, 0);
    EXPECT_EQ(writer.SetThumbnailPosition(25), kStatusOk);
    EXPECT_EQ(Packets(stream.Bytes(), 32768, 114688)[3].Item(0xA002), Hex("44 75 6D 6D 79 00"));  // so far
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(Packets(stream.Bytes(), 32768, 114688)[3].Item(0xA002), xml);
    const auto thumbnail = Packets(stream.Bytes(), 114688, 131072);
    EXPECT_EQ(thumbnail[2].Item(0x0601), Hex("00 00 00 00 00 00 00 19"));
    EXPECT_EQ(thumbnail[3].Item(0xA012), Hex("00 10"));
    EXPECT_EQ(thumbnail[3].Item(0xA014), picture);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x2F).front().Item(0x3B0B).size(), 8u + 32);  // two schemes
}

MXFUMIDTag Umid() {
    MXFUMIDTag umid;
    for (uint8_t i = 0; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0x60 + i);
    return umid;
}

TEST_F(CreateMXFOp1b, TheFirstHeaderIsThatOfAnUnfinishedRecording) {
    const FixedEnvironment environment;
    writer.SetUMID(Umid());
    writer.SetPackageName("A");
    writer.SetStartTimecode(CTimecode(1800, true));
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(7);
    metadata.SetSceneNumber("S");
    writer.SetDescriptiveMetadata(metadata);
    Open(Clip(2, 1));
    WriteVideo();
    const std::vector<uint8_t> first(stream.Bytes().begin(), stream.Bytes().begin() + kHeaderSize);
    WriteVideo();
    WriteAudio(3204 * 2, 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const std::vector<uint8_t> last(stream.Bytes().begin(), stream.Bytes().begin() + kHeaderSize);

    const auto date = Hex("07 EA 01 02 03 04 05 00");
    for (const bool finished : {false, true}) {
        SCOPED_TRACE(finished);
        const auto& header = finished ? last : first;
        const auto packets = HeaderOf(header);
        const uint64_t footer = BigEndian(std::span(header).subspan(44, 8));
        EXPECT_EQ(footer != 0, finished);
        EXPECT_EQ(SetsOfKind(packets, 0x2F).front().Item(0x3B02), date);
        EXPECT_EQ(SetsOfKind(packets, 0x30).front().Item(0x3C06), date);
        const auto material = SetsOfKind(packets, 0x36).front(), file = SetsOfKind(packets, 0x37).front();
        auto name = Hex("00 41");
        name.resize(400);
        EXPECT_EQ(material.Item(0x4402), name);
        EXPECT_TRUE(SameBytes(Umid().bytes, material.Item(0x4401)));
        EXPECT_EQ(material.Item(0x4405), date);
        EXPECT_EQ(material.Item(0x4404), date);
        EXPECT_EQ(file.Item(0x4405), date);
        for (const Packet& timecode : SetsOfKind(packets, 0x14)) {
            EXPECT_EQ(BigEndian(timecode.Item(0x1501)), 1800u);
            EXPECT_EQ(timecode.Item(0x1503), Hex("01"));
        }
        const auto sequences = SetsOfKind(packets, 0x0F);
        EXPECT_EQ(BigEndian(sequences[1].Item(0x0202)), finished ? 2u : 0);
        for (const Packet& clip : SetsOfKind(packets, 0x11)) {
            if (!finished) {
                EXPECT_EQ(BigEndian(clip.Item(0x0202)), 0u);
            }
        }
        EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x28).front().Item(0x3002)), finished ? 2u : 0);
        // Tracks 101 and 102 come at the end, those of XML and thumbnail are there from the start.
        EXPECT_EQ(SetsOfKind(packets, 0x3A).size(), finished ? 2u : 1u);
        EXPECT_EQ(SetsOfKind(packets, 0x39).size(), finished ? 2u : 1u);
        EXPECT_EQ(material.Item(0x4403).size(), 8u + 16 * (finished ? 8 : 6));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, SettingsOfTheOpenFileReachTheFinalHeader) {
    Open(Clip(1));
    WriteVideo();
    writer.SetStartTimecode(CTimecode(17982, false));
    writer.SetPackageName("B");
    const uint8_t uid[16] = {7};
    writer.SetIdentification("c", "p", "v", uid);
    // What decides the layout of the file does not.
    writer.SetVideoStandard(0x02000099);
    writer.SetClipType(0x104);
    writer.SetBytesPerSample(3);
    writer.SetPlayerLayout(true);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = HeaderOf(stream.Bytes());
    for (const Packet& timecode : SetsOfKind(packets, 0x14)) {
        EXPECT_EQ(BigEndian(timecode.Item(0x1501)), 17982u);
        EXPECT_EQ(timecode.Item(0x1503), Hex("00"));
    }
    EXPECT_EQ(SetsOfKind(packets, 0x36).front().Item(0x4402)[1], 'B');
    EXPECT_EQ(SetsOfKind(packets, 0x30).front().Item(0x3C01)[1], 'c');
    EXPECT_TRUE(SetsOfKind(packets, 0x47).empty());
    EXPECT_TRUE(SetsOfKind(packets, 0x44).empty());
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, ANameThatDoesNotFitIsLeftOut) {
    writer.SetPackageName(std::string(201, 'n'));
    Open(Clip(1));
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x36).front().Item(0x4402), std::vector<uint8_t>(400));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, PlayersLayoutIsTakenAtOpen) {
    Op1bClip clip = Clip(3, 2);
    clip.players = true;
    Open(clip);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.Close(), kStatusOk);
    Op1bLayout(stream.Bytes(), clip).Check();
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x37).size(), 3u);
}

TEST_F(CreateMXFOp1b, AWriterMakesOneFileAfterTheOther) {
    for (const Op1bClip& clip : {Clip(61, 1), Clip(2, 4), Clip(60, 0)}) {
        Open(clip);
        EXPECT_EQ(writer.GetDuration(), 0u);
        EXPECT_EQ(writer.GetCurrentOffset(), 0);
        WriteClip(writer, clip);
        EXPECT_EQ(writer.Close(), kStatusOk);
        Op1bLayout(stream.Bytes(), clip).Check();
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, ClosingResetsTheSettings) {
    Open(Clip(1, 2));
    writer.SetPackageName("old");
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.GetPartitionFrame(), 0u);
    writer.SetVideoStandard(0x0200005E);
    writer.SetCompType(0x1000C100);
    ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    const auto packets = HeaderOf(stream.Bytes());
    EXPECT_TRUE(SetsOfKind(packets, 0x47).empty());
    EXPECT_EQ(SetsOfKind(packets, 0x36).front().Item(0x4402), std::vector<uint8_t>(400));
}

TEST_F(CreateMXFOp1b, ResetParamLeavesTheFileOpen) {
    Open(Clip(2, 1));
    WriteVideo();
    writer.ResetParam();
    EXPECT_EQ(writer.GetPartitionFrame(), 60u) << "of the open file";
    EXPECT_EQ(WriteVideo(), 8);
    EXPECT_EQ(WriteAudio(3204 * 2, 0), 6408);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// --- sound ---

TEST_F(CreateMXFOp1b, SoundNeedsAFrameAChannelAndAPiece) {
    struct Row {
        uint8_t channels;
        int frames;
        bool piece;
        uint8_t channel;
    };
    for (const Row& row :
         {Row{0, 1, true, 0}, Row{2, 1, true, 2}, Row{2, 1, true, 255}, Row{2, 0, true, 0}, Row{2, 1, false, 0}}) {
        log.Clear();
        Open(Clip(2, row.channels));
        for (int i = 0; i < row.frames; ++i) WriteVideo();
        EXPECT_EQ(writer.WriteAudio(row.piece ? client.Piece(4) : nullptr, row.channel), -1);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteAudio: Error."));
        ExpectClosed();
    }
    log.Clear();
    EXPECT_EQ(WriteAudio(4, 0), -1);  // not open
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteAudio: Error."));
}

TEST_F(CreateMXFOp1b, AllChannelsOfAGroupHaveOneBodyOffset) {
    const Op1bClip clip = Clip(61, 3);
    Open(clip);
    WriteClip(writer, clip);
    writer.Close();
    std::vector<std::pair<uint64_t, uint64_t>> offsets;  // BodySID, BodyOffset
    for (const Packet& packet : BodyOf(stream.Bytes())) {
        if (packet.key != Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00")) continue;
        const uint64_t sid = BigEndian(std::span(packet.value).subspan(60, 4));
        if (sid >= 3) offsets.push_back({sid, BigEndian(std::span(packet.value).subspan(52, 8))});
    }
    using P = std::pair<uint64_t, uint64_t>;
    // 60 frames have 96096 samples of 2 bytes; keys and lengths do not count.
    EXPECT_THAT(offsets, ElementsAre(P{3, 0}, P{4, 0}, P{5, 0}, P{3, 192192}, P{4, 192192}, P{5, 192192}));
}

TEST_F(CreateMXFOp1b, SoundOfAnotherLengthIsAWarning) {
    const std::pair<uint32_t, const char*> rows[] = {
        {3200 - 8, "CCreateMXFOp1b::SetMXFParam: Audio data size differs from an expected value. Diff = 8."},
        {3200 + 2, "CCreateMXFOp1b::SetMXFParam: Audio data size differs from an expected value. Diff = -2."}};
    for (const auto& [size, line] : rows) {
        log.Clear();
        Open(Clip(1, 2));
        WriteVideo();
        WriteAudio(size, 0);
        WriteAudio(size, 1);
        EXPECT_EQ(writer.Close(), kStatusOk);
        EXPECT_THAT(log.Lines(), ElementsAre(line));
    }
}

TEST_F(CreateMXFOp1b, ALastGroupWithoutSoundStillHasItsIndex) {
    Open(Clip(61, 1));
    for (int i = 0; i < 60; ++i) WriteVideo();
    WriteAudio(96096 * 2, 0);
    WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre("CCreateMXFOp1b::SetMXFParam: Audio data size differs from an expected value. Diff = 3200."));
    std::vector<uint64_t> sids;
    for (const Packet& packet : BodyOf(stream.Bytes())) {
        if (packet.key == Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00")) {
            sids.push_back(BigEndian(std::span(packet.value).subspan(60, 4)));
        }
    }
    EXPECT_THAT(sids, ElementsAre(1, 0, 2, 0, 3, 0, 1, 0, 2, 0));
    EXPECT_EQ(BigEndian(std::span(BodyOf(stream.Bytes()).back().value).last(4)), 24u + 12 * 12);
}

TEST_F(CreateMXFOp1b, AFullGroupWithoutSoundIsWrittenOnce) {
    Open(Clip(60, 1));
    for (int i = 0; i < 60; ++i) WriteVideo();
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(BigEndian(std::span(BodyOf(stream.Bytes()).back().value).last(4)), 24u + 12 * 6);
}

TEST_F(CreateMXFOp1b, NoFrameFollowsAShortGroupThatHasEnded) {
    Open(Clip(2, 1));
    WriteVideo();
    WriteAudio(3200, 0);
    const int64_t offset = writer.GetCurrentOffset();
    EXPECT_EQ(WriteVideo(8, 0x3B), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_EQ(writer.GetCurrentOffset(), offset);
    log.Clear();
    EXPECT_EQ(writer.Close(), kStatusOk);  // and the file is whole
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(BigEndian(SetsOfKind(HeaderOf(stream.Bytes()), 0x3B).back().Item(0x4B02)), 0u);  // the origin
}

// --- arguments and state ---

TEST_F(CreateMXFOp1b, FramesNeedAnOpenFileAndAPiece) {
    EXPECT_EQ(WriteVideo(), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
    log.Clear();
    Open(Clip(1));
    EXPECT_EQ(writer.WriteVideo(nullptr, 0, 0, 0), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, AFrameIsAsLongAsItsLengthCanSay) {
    // A piece that is refused for its size: nobody looks at its bytes.
    struct Huge final : StreamPiece {
        explicit Huge(uint32_t s) : size(s) {}
        uint32_t GetSize() override { return size; }
        uint8_t* GetBuffer() override { return nullptr; }
        void CopyIn(uint32_t, const void*, uint32_t) override {}
        uint32_t size;
    };
    for (const uint32_t size : {0xFFFFFDu, 0x1000000u, 0xFFFFFFFFu}) {
        log.Clear();
        Open(Clip(1));
        Huge piece(size);
        EXPECT_EQ(writer.WriteVideo(&piece, 0, 0, 0), -1) << size;
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Error."));
        EXPECT_TRUE(stream.Bytes().empty());
        ExpectClosed();
    }
    Open(Clip(1));
    EXPECT_EQ(WriteVideo(0xFFFFFC), 0xFFFFFC);
    EXPECT_TRUE(SameBytes(Hex("83 FF FF FC"), std::span(stream.Bytes()).subspan(131072 + 140 + 16, 4)));
}

TEST_F(CreateMXFOp1b, AnEmptyFrameIsAFrame) {
    Open(Clip(1));
    EXPECT_EQ(WriteVideo(0), 0);
    EXPECT_EQ(writer.GetDuration(), 1u);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(BodyOf(stream.Bytes())[1].value.size(), 0u);
}

TEST_F(CreateMXFOp1b, CloseOfAClosedWriterKeepsItsSettings) {
    writer.SetVideoStandard(0x0200005E);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(writer.GetPartitionFrame(), 60u);
    EXPECT_EQ(stream.CountOfAll(), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, CloseWithoutFramesWritesNothing) {
    Open(Clip(1));
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open clip.mxf 0x102", "RegisterCallback", "Close"));
    EXPECT_TRUE(stream.Bytes().empty());
    EXPECT_EQ(writer.GetPartitionFrame(), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectClosed();
}

TEST_F(CreateMXFOp1b, AFailedWriteKeepsTheSettings) {
    stream.FailNth(Op::kWrite, 1);
    Open(Clip(1));
    EXPECT_EQ(WriteVideo(), -1);
    EXPECT_EQ(writer.GetPartitionFrame(), 60u);
    ExpectClosed();
    log.Clear();
    EXPECT_EQ(writer.Open("again.mxf", &stream), kStatusOk);  // with the same format
    EXPECT_EQ(WriteVideo(), 8);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, AFileThatIsNotClosedKeepsItsFirstHeader) {
    {
        CCreateMXFOp1b other;
        SetFormat(other, Clip(1));
        other.Open("clip.mxf", &stream);
        other.WriteVideo(client.Piece(8), 0, 0, 0);
    }
    EXPECT_FALSE(stream.IsOpened());
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_EQ(stream.Bytes().size(), 131072u + 140 + 28);
    EXPECT_EQ(BigEndian(std::span(stream.Bytes()).subspan(44, 8)), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, AHeaderThatIsTooSmallForTheChannelsIsSaidBeforeAnythingIsWritten) {
    const struct {
        uint8_t channels;
        bool players, metadata;
    } rows[] = {{28, false, false}, {26, false, true}, {25, true, false}, {23, true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.channels});
        CDescriptiveMetadata metadata;
        metadata.SetTakeNumber(1);
        metadata.SetSceneNumber("1");
        for (const int fewer : {0, 1}) {
            log.Clear();
            Op1bClip clip = Clip(1, static_cast<uint8_t>(row.channels - fewer));
            clip.players = row.players;
            if (row.metadata) writer.SetDescriptiveMetadata(metadata);
            Open(clip);
            EXPECT_EQ(WriteVideo(), fewer == 0 ? -1 : 8);
            if (fewer == 0) {
                EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Write Header Error."));
                EXPECT_TRUE(stream.Bytes().empty());
                ExpectClosed();
            } else {
                for (uint8_t c = 0; c < clip.channels; ++c) WriteAudio(3200, c);
                EXPECT_EQ(writer.Close(), kStatusOk);
                EXPECT_THAT(log.Lines(), IsEmpty());
            }
        }
    }
}

TEST_F(CreateMXFOp1b, MetadataThatComesLateAndDoesNotFitFailsTheFinalHeader) {
    Open(Clip(1, 27));
    WriteVideo();
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(1);
    writer.SetDescriptiveMetadata(metadata);
    for (uint8_t c = 0; c < 27; ++c) WriteAudio(3200, c);
    EXPECT_EQ(writer.Close(), kStatusNoMemory);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Close: GetHeaderData Error."));
    ExpectClosed();
    // All the rest is there, behind the first header.
    EXPECT_EQ(BodyOf(stream.Bytes()).back().key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00"));
}

// --- rewriting the header in the medium's units ---

TEST_F(CreateMXFOp1b, TheRewrittenUnitIsTheClusterOrTheHeaderOrTheFile) {
    const Op1bClip clip = Clip(70, 1);
    for (const uint32_t cluster : {0u, 512u, 131072u, 131073u, 300000u, 1u << 30, 0xFFFFFFFFu}) {
        SCOPED_TRACE(cluster);
        FaultyStream file;
        file.SetClusterSize(cluster);
        SetFormat(writer, clip);
        ASSERT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
        WriteClip(writer, clip);
        ASSERT_EQ(writer.Close(), kStatusOk);
        Op1bLayout(file.Bytes(), clip).Check();
        const size_t unit = std::min<size_t>(std::max(cluster, 131072u), file.Bytes().size());
        const auto calls = file.Calls();
        EXPECT_THAT(std::vector(calls.end() - 8, calls.end()),
                    ElementsAre("GetPieceAllocator", "Allocate " + std::to_string(unit), "Seek 0 0",
                                "Read " + std::to_string(unit), "Seek 0 0", "Write " + std::to_string(unit) + " tag 1",
                                "GetPieceAllocator", "Close"));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, AFirstClusterThatReadsShortFails) {
    for (const Fault fault : {Fault::kShort, Fault::kEndOfFile, Fault::kFail}) {
        FaultyStream file;
        file.FailNth(Op::kRead, 1, fault);
        SetFormat(writer, Clip(1));
        log.Clear();
        writer.Open("clip.mxf", &file);
        WriteVideo();
        EXPECT_EQ(writer.Close(), kStatusIoError);
        EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::Close: Read First Cluster Error."));
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_EQ(file.LivePieces(), 0);
        EXPECT_EQ(writer.GetPartitionFrame(), 60u);  // not reset
    }
}

// --- completions ---

TEST_F(CreateMXFOp1b, OnlyTheClientsPiecesReachTheClient) {
    Completions completions;
    EXPECT_EQ(writer.RegisterCallback(&completions), kStatusOk);  // before Open, too
    Open(Clip(2, 1));
    WriteVideo(8);
    WriteVideo(5);
    WriteAudio(3204 * 2, 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    // 1 header, 2 pack, 3 KL, 4 frame, 5 KL, 6 frame, 7 padding, 8 index, 9 ANC, 10 pack, 11 KL, 12 sound.
    EXPECT_THAT(completions.All(), ElementsAre(Completion{4, 0, 4}, Completion{6, 0, 4}, Completion{12, 0, 4}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, AFailedCompletionIsLoggedAndPassedOn) {
    Completions completions;
    Open(Clip(1));
    writer.RegisterCallback(&completions);
    writer.CallbackForWriteComplete(77, -3, 4);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error."));
    writer.CallbackForWriteComplete(78, -4, 1);
    writer.CallbackForWriteComplete(79, 0, 2);
    writer.CallbackForWriteComplete(80, 0, 9);
    EXPECT_THAT(completions.All(), ElementsAre(Completion{77, -3, 4}, Completion{80, 0, 9}));
    EXPECT_EQ(log.Lines().size(), 2u);
    writer.RegisterCallback(nullptr);
    writer.CallbackForWriteComplete(81, 0, 4);
    EXPECT_EQ(completions.All().size(), 2u);
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(CreateMXFOp1b, AClientMayFreeItsPieceInTheCompletion) {
    struct Owner final : IFileIOCallback {
        void CallbackForWriteComplete(uint64_t, int32_t, int32_t) override { piece.reset(); }
        std::unique_ptr<CMemoryPiece> piece;
    } owner;
    Open(Clip(1, 1));
    writer.RegisterCallback(&owner);
    owner.piece = std::make_unique<CMemoryPiece>(101u);
    EXPECT_EQ(writer.WriteVideo(owner.piece.get(), 0, 0, 0), 104);
    EXPECT_EQ(owner.piece, nullptr);
    owner.piece = std::make_unique<CMemoryPiece>(3200u);
    EXPECT_EQ(writer.WriteAudio(owner.piece.get(), 0), 3200);
    EXPECT_EQ(owner.piece, nullptr);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// Writes the clip through pieces that live until the end of the test.
void WriteKept(CCreateMXFOp1b& writer, const Op1bClip& clip, std::vector<std::unique_ptr<CMemoryPiece>>& pieces) {
    const auto keep = [&](const std::vector<uint8_t>& bytes) {
        pieces.push_back(std::make_unique<CMemoryPiece>(bytes.data(), static_cast<uint32_t>(bytes.size())));
        return pieces.back().get();
    };
    const uint32_t most = clip.Standard().groupFrames;
    for (uint32_t first = 0, group = 0; first < clip.frames; first += most, ++group) {
        const uint32_t frames = std::min(most, clip.frames - first);
        for (uint32_t i = first; i < first + frames; ++i) {
            ASSERT_GE(
                writer.WriteVideo(keep(clip.Frame(i)), clip.TemporalOffset(i), clip.KeyFrameOffset(i), clip.Flags(i)),
                0);
        }
        for (uint32_t c = 0; c < clip.channels; ++c) {
            ASSERT_GE(writer.WriteAudio(keep(clip.Sound(group, frames, c)), static_cast<uint8_t>(c)), 0);
        }
    }
}

TEST_F(CreateMXFOp1b, AsynchronousCompletionsRunBesideTheClient) {
    Completions completions;
    std::vector<std::unique_ptr<CMemoryPiece>> pieces;
    FaultyStream file;
    file.CompleteAsynchronously();
    const Op1bClip clip = Clip(130, 2);
    SetFormat(writer, clip);
    ASSERT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
    writer.RegisterCallback(&completions);
    WriteKept(writer, clip, pieces);
    EXPECT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(completions.All().size(), 136u);
    Op1bLayout(file.Bytes(), clip).Check();
    EXPECT_EQ(file.LivePieces(), 0);
    EXPECT_EQ(file.LiveAllocators(), 0);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFOp1b, DestructionWaitsForAsynchronousCompletions) {
    std::vector<std::unique_ptr<CMemoryPiece>> pieces;
    FaultyStream file;
    file.CompleteAsynchronously(2ms);
    {
        CCreateMXFOp1b other;
        SetFormat(other, Clip(3));
        other.Open("clip.mxf", &file);
        WriteKept(other, Clip(3), pieces);
    }
    EXPECT_FALSE(file.IsOpened());
    EXPECT_EQ(file.LivePieces(), 0);
    EXPECT_EQ(file.Bytes().size(), 131072u + 140 + 3 * 24);
}

TEST_F(CreateMXFOp1b, StreamOperationsHoldTheLockAndSettersDoNot) {
    // The stream calls back inside Write, so all this happens while a WriteVideo runs.
    struct Watcher final : IFileIOCallback {
        explicit Watcher(CCreateMXFOp1b& w) : writer(w) {}
        void CallbackForWriteComplete(uint64_t, int32_t, int32_t) override {
            if (other.joinable()) return;
            EXPECT_EQ(writer.SetPackageName("set while writing"), kStatusOk);
            EXPECT_TRUE(writer.IsOpened());
            other = std::thread([this] {
                EXPECT_EQ(writer.Close(), kStatusOk);
                closed = true;
            });
            std::this_thread::sleep_for(30ms);
            EXPECT_FALSE(closed);
        }
        CCreateMXFOp1b& writer;
        std::thread other;
        std::atomic<bool> closed{false};
    } watcher(writer);
    Open(Clip(1));
    writer.RegisterCallback(&watcher);
    EXPECT_EQ(WriteVideo(), 8);
    watcher.other.join();
    EXPECT_TRUE(watcher.closed);
    ExpectClosed();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// --- every operation fails once ---

// One stream operation of a recording, and what its failure comes to.
struct Operation {
    std::string call;
    const char* last;                // the writer's operation that ends the recording
    int32_t status;                  // or count that it returns
    const char* message;             // null: nothing comes of it
    const char* function = nullptr;  // where the message comes from, when not from `last`
    bool isOfInnerFrame = false;     // those of a hundred frames do not differ
};

// The recording: three groups of 48 frames, the last one of 2, with two channels.
const Op1bClip kClip = {0x02000058, 0x1000C100, 2, 2, 98};

// All its operations in order, sizes included.
std::vector<Operation> Operations() {
    std::vector<Operation> operations;
    // A piece of the writer's own: two operations in front of its write, one in its completion.
    const auto own = [&](uint32_t size, int tag, const char* last, const char* message) {
        const bool closing = std::string_view(last) == "Close";
        operations.push_back({"GetPieceAllocator", last, closing ? kStatusNoMemory : -1, message});
        operations.push_back({"Allocate " + std::to_string(size), last, closing ? kStatusNoMemory : -1, message});
        operations.push_back({"Write " + std::to_string(size) + " tag " + std::to_string(tag), last,
                              closing ? kStatusIoError : -1, message});
        operations.push_back({"GetPieceAllocator", "Close", kStatusOk, nullptr});
    };
    operations.push_back({"Open clip.mxf 0x102", "Open", kStatusIoError, "Open Error."});
    operations.push_back({"RegisterCallback", "Open", kStatusIoError, "RegisterCallback Error."});
    uint32_t footer = 156;
    for (uint32_t first = 0; first < 98; first += 48) {
        const uint32_t frames = std::min(48u, 98 - first);
        for (uint32_t i = first; i < first + frames; ++i) {
            if (i == 0) own(131072, 1, "WriteVideo", "Write Header Error.");
            if (i == first) own(156, 1, "WriteVideo", "Write VideoPartition Error.");
            const size_t start = operations.size();
            own(20, 1, "WriteVideo", "Write KLData Error.");
            const auto size = static_cast<uint32_t>(kClip.Frame(i).size());
            operations.push_back({"Write " + std::to_string(size) + " tag 4", "WriteVideo", -1, "Write Video Error."});
            if (size % 4 != 0) own(4 - size % 4, 1, "WriteVideo", "Write Video Error.");
            const bool inner = i > first + 1 && i + 1 < first + frames;
            for (size_t j = start; j < operations.size(); ++j) operations[j].isOfInnerFrame = inner;
        }
        // A short group ends with its sound.
        const char* const last = frames == 48 ? "WriteVideo" : "WriteAudio";
        // Segments of 130 + 11 x 48 = 658 and 130 + 11 x 2 = 152 bytes; behind 156 the first has a fill item of 22.
        own(frames == 48 ? 836 : 308, 1, last, "Write VideoPartition Error.");
        own(412 + 512 * frames, 1, last, "Write ANCPartition Error.");
        for (int c = 0; c < 2; ++c) {
            own(156, 1, "WriteAudio", "Write AudioPartition Error.");
            own(24, 1, "WriteAudio", "Write KLData Error.");
            // 48 frames are 12 x 8008 samples, 2 are 4004.
            operations.push_back(
                {frames == 48 ? "Write 192192 tag 4" : "Write 8008 tag 4", "WriteAudio", -1, "Write Audio Error."});
            own(256, 1, "WriteAudio", "Write AudioPartition Error.");
        }
        footer += (frames == 48 ? 658 : 152) + 300;
    }
    own(footer, 2, "Close", "Write Footer Error.");
    own(24 + 12 * 26, 2, "Close", "Write RIP Error.");
    for (const char* call : {"GetPieceAllocator", "Allocate 131072", "Seek 0 0", "Read 131072"}) {
        operations.push_back({call, "Close", kStatusIoError, "Read First Cluster Error."});
    }
    for (const char* call : {"Seek 0 0", "Write 131072 tag 1"}) {
        operations.push_back({call, "Close", kStatusIoError, "Write Header Error."});
    }
    operations.push_back({"GetPieceAllocator", "Close", kStatusOk, nullptr});
    operations.push_back({"Close", "Close", kStatusOk, "FileClose Error.", "CCreateMXFOp1b::FileClose"});
    return operations;
}

// Makes the recording and ends it with the first operation of the writer that fails.
class Recording {
public:
    Recording() {
        for (uint32_t i = 0; i < kClip.frames; ++i) frames_.push_back(Piece(kClip.Frame(i)));
        for (const uint32_t frames : {48u, 2u}) sounds_.push_back(Piece(kClip.Sound(0, frames, 0)));
    }
    // Returns what the last operation returned, and names it.
    int32_t Run(CCreateMXFOp1b& writer, FaultyStream& stream, std::string* last) {
        SetFormat(writer, kClip);
        *last = "Open";
        if (const int32_t status = writer.Open("clip.mxf", &stream); status != kStatusOk) return status;
        for (uint32_t i = 0; i < kClip.frames; ++i) {
            *last = "WriteVideo";
            if (const int32_t count = writer.WriteVideo(frames_[i].get(), 0, 0, 0); count < 0) return count;
            if (i % 48 != 47 && i != 97) continue;
            *last = "WriteAudio";
            for (uint8_t c = 0; c < 2; ++c) {
                if (const int32_t count = writer.WriteAudio(sounds_[i == 97].get(), c); count < 0) return count;
            }
        }
        *last = "Close";
        return writer.Close();
    }

private:
    static std::unique_ptr<CMemoryPiece> Piece(const std::vector<uint8_t>& bytes) {
        return std::make_unique<CMemoryPiece>(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    std::vector<std::unique_ptr<CMemoryPiece>> frames_, sounds_;
};

class EveryOp1bOperation : public testing::Test {
protected:
    // The operation of a call; nothing for one that the stream's own thread makes as well.
    static std::optional<Op> OpOf(std::string_view call) {
        constexpr std::pair<std::string_view, Op> kOps[] = {
            {"Open", Op::kOpen},         {"RegisterCallback", Op::kRegisterCallback},
            {"Allocate", Op::kAllocate}, {"Write", Op::kWrite},
            {"Seek", Op::kSeek},         {"Read", Op::kRead},
            {"Close", Op::kClose}};
        for (const auto& [name, op] : kOps) {
            if (call.starts_with(name)) return op;
        }
        return std::nullopt;
    }
    void FailEach(Fault fault, bool asynchronous) {
        const auto operations = Operations();
        for (size_t i = 0; i < operations.size(); ++i) {
            const Operation& each = operations[i];
            const bool isWrite = each.call.starts_with("Write");
            if ((fault != Fault::kFail && !isWrite) || each.isOfInnerFrame) continue;
            SCOPED_TRACE(each.call + ", operation " + std::to_string(i + 1));
            FaultyStream stream;
            if (asynchronous) {
                // Completions come when they like: only calls of the client's thread can be numbered.
                const auto op = OpOf(each.call);
                if (!op) continue;
                const auto n =
                    std::count_if(operations.begin(), operations.begin() + static_cast<std::ptrdiff_t>(i + 1),
                                  [&](const Operation& other) { return OpOf(other.call) == op; });
                stream.CompleteAsynchronously();
                stream.FailNth(*op, static_cast<int>(n), fault);
            } else {
                stream.FailNthOfAll(static_cast<int>(i) + 1, fault);
            }
            log.Clear();
            std::string last;
            const int32_t result = recording.Run(writer, stream, &last);
            const bool accepted = fault == Fault::kBadCompletion;
            EXPECT_EQ(last, accepted ? "Close" : each.last);
            EXPECT_EQ(result, accepted ? kStatusOk : each.status);
            if (!asynchronous) {
                EXPECT_EQ(stream.Calls().at(i), each.call);
            }
            std::vector<std::string> lines;
            if (isWrite && fault != Fault::kFail) {
                lines.push_back("CCreateMXFOp1b::CallbackForWriteComplete: CallbackForWriteComplete Error.");
            }
            if (each.message != nullptr && !accepted) {
                const auto function = each.function ? each.function : "CCreateMXFOp1b::" + std::string(each.last);
                lines.push_back(function + ": " + each.message);
            }
            EXPECT_THAT(log.Lines(), testing::UnorderedElementsAreArray(lines));
            EXPECT_FALSE(writer.IsOpened());
            EXPECT_FALSE(stream.IsOpened());
            EXPECT_EQ(stream.LivePieces(), 0);
            EXPECT_EQ(stream.LiveAllocators(), 0);
            if (HasFailure()) return;
        }
    }

    LogRecorder log;
    Recording recording;
    CCreateMXFOp1b writer;  // one for all: a failure does not spoil it
};

TEST_F(EveryOp1bOperation, WithoutFailureIsAsListed) {
    for (const bool asynchronous : {false, true}) {
        FaultyStream stream;
        if (asynchronous) stream.CompleteAsynchronously();
        std::string last;
        EXPECT_EQ(recording.Run(writer, stream, &last), kStatusOk);
        EXPECT_EQ(last, "Close");
        EXPECT_EQ(stream.LivePieces(), 0);
        if (asynchronous) continue;
        std::vector<std::string> calls;
        for (const Operation& each : Operations()) calls.push_back(each.call);
        EXPECT_EQ(stream.Calls(), calls);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(EveryOp1bOperation, FailingIsReportedAndLeavesNothing) { FailEach(Fault::kFail, false); }
TEST_F(EveryOp1bOperation, FailingWithACompletionIsReportedAndLeavesNothing) { FailEach(Fault::kFailCompleted, false); }
TEST_F(EveryOp1bOperation, ShortWritesAreFailures) { FailEach(Fault::kShort, false); }
TEST_F(EveryOp1bOperation, AcceptedWritesThatFailLaterAreLogged) { FailEach(Fault::kBadCompletion, false); }
TEST_F(EveryOp1bOperation, FailingOnAnAsynchronousStreamIsReportedAndLeavesNothing) {
    for (const Fault fault : {Fault::kFail, Fault::kFailCompleted, Fault::kShort, Fault::kBadCompletion}) {
        FailEach(fault, true);
    }
}

TEST_F(EveryOp1bOperation, AnAllocatorThatIsMissingOnceLeavesNothing) {
    for (int n = 1; n <= 60; ++n) {
        SCOPED_TRACE(n);
        FaultyStream stream;
        stream.CompleteAsynchronously();
        stream.FailNth(Op::kGetPieceAllocator, n);
        std::string last;
        recording.Run(writer, stream, &last);  // whether the client or a completion asked for it decides what comes
        EXPECT_FALSE(writer.IsOpened());
        EXPECT_EQ(stream.LivePieces(), 0);
        EXPECT_EQ(stream.LiveAllocators(), 0);
    }
}

TEST_F(EveryOp1bOperation, AFailingCloseIsLoggedInFrontOfTheFailure) {
    FaultyStream stream;
    stream.FailNth(Op::kWrite, 3);
    stream.FailAll(Op::kClose);
    std::string last;
    EXPECT_EQ(recording.Run(writer, stream, &last), -1);
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::FileClose: FileClose Error.",
                                         "CCreateMXFOp1b::WriteVideo: Write KLData Error."));
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST_F(EveryOp1bOperation, AStreamWithoutAllocatorEndsTheRecording) {
    FaultyStream stream;
    stream.FailAll(Op::kGetPieceAllocator);
    std::string last;
    EXPECT_EQ(recording.Run(writer, stream, &last), -1);
    EXPECT_EQ(last, "WriteVideo");
    EXPECT_THAT(log.Lines(), ElementsAre("CCreateMXFOp1b::WriteVideo: Write Header Error."));
    EXPECT_FALSE(writer.IsOpened());
}

}  // namespace
}  // namespace kmxf::test
