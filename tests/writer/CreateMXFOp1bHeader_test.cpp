#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Op1bRecording.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/Op1bLayout.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
    const std::vector<uint8_t> first(stream.Bytes().begin(), stream.Bytes().begin() + kOp1bHeaderSize);
    WriteVideo();
    WriteAudio(3204 * 2, 0);
    EXPECT_EQ(writer.Close(), kStatusOk);
    const std::vector<uint8_t> last(stream.Bytes().begin(), stream.Bytes().begin() + kOp1bHeaderSize);

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
        const auto timecodes = SetsOfKind(packets, 0x14), clips = SetsOfKind(packets, 0x11);
        EXPECT_EQ(timecodes.size(), 2u);
        EXPECT_EQ(clips.size(), 6u);  // picture, ANC and sound in both packages
        for (const Packet& timecode : timecodes) {
            EXPECT_EQ(BigEndian(timecode.Item(0x1501)), 1800u);
            EXPECT_EQ(timecode.Item(0x1503), Hex("01"));
        }
        const auto sequences = SetsOfKind(packets, 0x0F);
        EXPECT_EQ(BigEndian(sequences[1].Item(0x0202)), finished ? 2u : 0);
        for (const Packet& each : clips) {
            if (!finished) {
                EXPECT_EQ(BigEndian(each.Item(0x0202)), 0u);
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

TEST_F(CreateMXFOp1b, PlayersLayoutIsTakenAtOpen) {
    Op1bClip clip = Clip(3, 2);
    clip.players = true;
    Open(clip);
    WriteClip(writer, clip);
    EXPECT_EQ(writer.Close(), kStatusOk);
    Op1bLayout(stream.Bytes(), clip).Check();
    EXPECT_EQ(SetsOfKind(HeaderOf(stream.Bytes()), 0x37).size(), 3u);
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

}  // namespace
}  // namespace kmxf::test
