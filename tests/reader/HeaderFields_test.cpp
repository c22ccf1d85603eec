#include "reader/HeaderFields.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <span>
#include <vector>

#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFHeader.h"
#include "reader/Op1bFixture.h"

namespace kmxf::test {
namespace {

constexpr size_t kBufferSize = 131072;

// A header of these sets in a buffer as the getters want it: exactly 131072 bytes.
ByteVector Header(const ByteVector& sets, std::string_view pattern = kOp1b) {
    ByteVector header = Join({Pack{"02 04", pattern}.Bytes(), Packet(kPrimerKey, Hex(kBitRatePrimer)), sets});
    header.resize(kBufferSize);
    return header;
}

ByteVector VideoDescriptor(std::string_view rate, std::string_view layout) {
    return StructuralSet("28", {LocalItem("30 01", rate), LocalItem("32 0C", layout)});
}
uint32_t StandardOf(std::string_view rate, std::string_view layout) {
    return GetVideoStandardFromHeader(Header(VideoDescriptor(rate, layout)).data());
}
uint32_t CompTypeOf(uint64_t height, uint64_t bitRate, std::string_view rate = "00 00 75 30 00 00 03 E9") {
    return GetCompTypeLongGFromHeader(
        Header(Join({StructuralSet(
                         "28", {LocalItem("30 01", rate), LocalItem("32 0C", "00"), NumberItem("32 02", height, 4)}),
                     StructuralSet("6E", {NumberItem("90 14", bitRate, 4)})}))
            .data());
}
ByteVector AES3(std::string_view rate, std::string_view bits) {
    return StructuralSet("47", {LocalItem("3D 03", rate), LocalItem("3D 01", bits)});
}
ByteVector Timecode(std::string_view base, std::string_view start, std::string_view drop) {
    return StructuralSet("14", {LocalItem("15 02", base), LocalItem("15 01", start), LocalItem("15 03", drop)});
}

TEST(HeaderFields, OperationPatternByTwoBytesOfTheLabel) {
    const struct {
        std::string_view label;
        int32_t code;
    } rows[] = {
        {"06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00", 0},
        {"06 0E 2B 34 04 01 01 02 0D 01 02 01 10 03 00 00", 0},
        {"06 0E 2B 34 04 01 01 02 0D 01 02 01 10 01 00 00", 0},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 01 09 00", 1},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00", 2},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 03 09 00", -1},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 02 01 09 00", -1},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 00 09 00", -1},
    };
    for (const auto& row : rows) EXPECT_EQ(row.code, GetOperationPattern(Header({}, row.label).data())) << row.label;
}

TEST(HeaderFields, VideoStandardByRateAndLayout) {
    EXPECT_EQ(0x0100007Cu, StandardOf("00 00 75 30 00 00 03 E9", "01"));
    EXPECT_EQ(0x0200005Eu, StandardOf("00 00 75 30 00 00 03 E9", "00"));
    EXPECT_EQ(0x010000B2u, StandardOf("00 00 00 19 00 00 00 01", "01"));
    EXPECT_EQ(0x010000B2u, StandardOf("00 00 00 19 00 00 00 01", "03")) << "any layout but 0 is interlaced";
    EXPECT_EQ(0x02000099u, StandardOf("00 00 00 19 00 00 00 01", "00"));
    EXPECT_EQ(0x02000058u, StandardOf("00 00 5D C0 00 00 03 E9", "00"));
    EXPECT_EQ(0x0200007Cu, StandardOf("00 00 EA 60 00 00 03 E9", "00"));
    EXPECT_EQ(0x020000B2u, StandardOf("00 00 00 32 00 00 00 01", "00"));
    EXPECT_EQ(0u, StandardOf("00 00 00 48 00 00 00 01", "00"));
}

TEST(HeaderFields, ValuesOfAnotherWidthCountAsAbsent) {
    EXPECT_EQ(0u, StandardOf("00 00 75 30", "01"));
    EXPECT_EQ(0u, StandardOf("00 00 75 30 00 00 03 E9", "00 01"));
    EXPECT_EQ(0u, GetSamplingRateFromHeader(Header(AES3("00 00 BB 80", "00 00 00 10")).data()));
    EXPECT_EQ(0, GetBytesPerSampleFromHeader(Header(AES3("00 00 BB 80 00 00 00 01", "00 10")).data()));
    const auto timecode = Header(Timecode("18", "00 00 00 05", "00 01"));
    EXPECT_EQ(-1, GetStartTimecodeFromHeader(timecode.data()));
    EXPECT_EQ(0, GetRoundedTCBaseFromHeader(timecode.data()));
    EXPECT_FALSE(GetDropFlagFromHeader(timecode.data()));
    const auto package = Header(StructuralSet("36", {LocalItem("44 01", "06 0A 2B 34 01 01 01 05 01 01 0F 20")}));
    EXPECT_EQ(MXFUMIDTag{}, GetMaterialUIDFromHeader(package.data()));
}

TEST(HeaderFields, AVCIntraHeadersHaveNoVideoStandard) {
    EXPECT_EQ(0u, GetVideoStandardFromHeader(Header(StructuralSet("51", {LocalItem("30 01", "00 00 75 30 00 00 03 E9"),
                                                                         LocalItem("32 0C", "01")}))
                                                 .data()));
}

TEST(HeaderFields, CompressionTypeByHeightAndBitRate) {
    EXPECT_EQ(0x0400C100u, CompTypeOf(540, 6000000));
    EXPECT_EQ(0x0C00C100u, CompTypeOf(544, 12000000));
    EXPECT_EQ(0x1000C200u, CompTypeOf(720, 25000000));
    EXPECT_EQ(0x2000C100u, CompTypeOf(1080, 50000000));
    EXPECT_EQ(0x1000C100u, CompTypeOf(1088, 25000000));
    EXPECT_EQ(0u, CompTypeOf(576, 25000000)) << "height";
    EXPECT_EQ(0u, CompTypeOf(1080, 25000001)) << "bit rate";
    EXPECT_EQ(0u, CompTypeOf(1080, 0));
}

TEST(HeaderFields, BitRateStandsDoubledAt1080LinesOfTheHighFrameRatesOnly) {
    constexpr std::string_view k5994 = "00 00 EA 60 00 00 03 E9", k50 = "00 00 00 32 00 00 00 01";
    EXPECT_EQ(0x1000C100u, CompTypeOf(1080, 50000000, k5994));
    EXPECT_EQ(0x1000C100u, CompTypeOf(1088, 50000000, k50));
    EXPECT_EQ(0x2000C100u, CompTypeOf(1080, 100000000, k50));
    EXPECT_EQ(0u, CompTypeOf(1080, 25000000, k5994));
    EXPECT_EQ(0x2000C200u, CompTypeOf(720, 50000000, k5994));
    EXPECT_EQ(0x2000C100u, CompTypeOf(540, 50000000, k50));
}

TEST(HeaderFields, BitRateIsFoundUnderTheTagOfThePrimer) {
    const auto sets = [](std::string_view primer) {
        return Join({Pack{"02 04", kOp1b}.Bytes(), Packet(kPrimerKey, Hex(primer)),
                     StructuralSet("28", {NumberItem("32 02", 720, 4)}),
                     StructuralSet("6E", {NumberItem("88 77", 25000000, 4)}), ByteVector(kBufferSize)});
    };
    EXPECT_EQ(0x1000C200u,
              GetCompTypeLongGFromHeader(
                  sets("00 00 00 01 00 00 00 12 88 77 06 0E 2B 34 01 01 01 0E 04 01 06 06 01 14 00 00").data()));
    EXPECT_EQ(0u, GetCompTypeLongGFromHeader(sets("00 00 00 00 00 00 00 12").data())) << "no tag, no bit rate";
}

TEST(HeaderFields, SampleNumIsThatOfTheFirstSoundClipWithoutASource) {
    const auto header = Header(Join({
        SourceClip(kSoundDefinition, kSomeUMID, 11),
        SourceClip(kPictureDefinition, kNoUMID, 12),
        StructuralSet("0F", {}),
        SourceClip(kSoundDefinition, kNoUMID, 0x123456789A),
        SourceClip(kSoundDefinition, kNoUMID, 14),
    }));
    EXPECT_EQ(0x123456789A, GetSampleNumFromHeader(header.data()));
}

TEST(HeaderFields, SampleNumIsZeroWithoutSuchAClip) {
    EXPECT_EQ(0, GetSampleNumFromHeader(Header({}).data()));
    EXPECT_EQ(0, GetSampleNumFromHeader(Header(SourceClip(kSoundDefinition, kSomeUMID, 11)).data()));
    const ByteVector lacking[] = {
        StructuralSet("11", {NumberItem("02 02", 5, 8), LocalItem("11 01", kNoUMID)}),
        StructuralSet("11", {LocalItem("02 01", kSoundDefinition), NumberItem("02 02", 5, 8)}),
        StructuralSet("11", {LocalItem("02 01", kSoundDefinition), LocalItem("11 01", kNoUMID)}),
    };
    for (const auto& set : lacking)
        EXPECT_EQ(0, GetSampleNumFromHeader(Header(Join({set, SourceClip(kSoundDefinition, kNoUMID, 9)})).data()));
}

TEST(HeaderFields, SampleNumDoesNotBelieveAClipThatLeadsOutside) {
    // Its set would begin before the header, and end behind it.
    ByteVector first = SourceClip(kSoundDefinition, kNoUMID, 9);
    ByteVector header = Join({Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 11 00 10 3C 0A 00 00"), ByteVector(100)});
    header.resize(kBufferSize);
    EXPECT_EQ(0, GetSampleNumFromHeader(header.data()));
    Patch(first, 17, Hex("FF FF FF"));
    EXPECT_EQ(0, GetSampleNumFromHeader(Header(first).data()));
}

TEST(HeaderFields, SoundFormatOfTheAES3Descriptor) {
    const auto rateOf = [](std::string_view rate) {
        return GetSamplingRateFromHeader(Header(AES3(rate, "00 00 00 10")).data());
    };
    EXPECT_EQ(48000u, rateOf("00 00 BB 80 00 00 00 01"));
    EXPECT_EQ(96000u, rateOf("00 01 77 00 00 00 00 01"));
    EXPECT_EQ(0u, rateOf("00 00 AC 44 00 00 00 01")) << "44100";
    const auto bytesOf = [](std::string_view bits) {
        return GetBytesPerSampleFromHeader(Header(AES3("00 00 BB 80 00 00 00 01", bits)).data());
    };
    EXPECT_EQ(2, bytesOf("00 00 00 10"));
    EXPECT_EQ(3, bytesOf("00 00 00 18"));
    EXPECT_EQ(0, bytesOf("00 00 00 14")) << "20 bits";
}

TEST(HeaderFields, TimecodeOfTheFirstComponent) {
    const auto header = Header(
        Join({Timecode("00 1E", "00 00 00 01 00 00 00 02", "05"), Timecode("00 19", "00 00 00 00 00 00 00 07", "00")}));
    EXPECT_EQ(0x100000002, GetStartTimecodeFromHeader(header.data()));
    EXPECT_EQ(30, GetRoundedTCBaseFromHeader(header.data()));
    EXPECT_TRUE(GetDropFlagFromHeader(header.data())) << "any value but 0";
    EXPECT_FALSE(GetDropFlagFromHeader(Header(Timecode("00 19", "00 00 00 00 00 00 00 07", "00")).data()));
}

TEST(HeaderFields, HeaderWithoutTimecode) {
    const auto header = Header({});
    EXPECT_EQ(-1, GetStartTimecodeFromHeader(header.data()));
    EXPECT_EQ(0, GetRoundedTCBaseFromHeader(header.data()));
    EXPECT_FALSE(GetDropFlagFromHeader(header.data()));
}

TEST(HeaderFields, MaterialUMID) {
    MXFUMIDTag umid;
    std::ranges::copy(Hex(kSomeUMID), umid.bytes);
    const auto header = Header(Join(
        {StructuralSet("37", {LocalItem("44 01", kNoUMID)}), StructuralSet("36", {LocalItem("44 01", kSomeUMID)})}));
    EXPECT_EQ(umid, GetMaterialUIDFromHeader(header.data()));
    EXPECT_EQ(MXFUMIDTag{}, GetMaterialUIDFromHeader(Header({}).data()));
}

TEST(HeaderFields, NullIsAHeaderWithoutAnyValue) {
    const uint8_t* const none = nullptr;
    EXPECT_EQ(-1, GetOperationPattern(none));
    EXPECT_EQ(0u, GetVideoStandardFromHeader(none));
    EXPECT_EQ(0u, GetCompTypeLongGFromHeader(none));
    EXPECT_EQ(0, GetSampleNumFromHeader(none));
    EXPECT_EQ(0u, GetSamplingRateFromHeader(none));
    EXPECT_EQ(0, GetBytesPerSampleFromHeader(none));
    EXPECT_EQ(-1, GetStartTimecodeFromHeader(none));
    EXPECT_EQ(0, GetRoundedTCBaseFromHeader(none));
    EXPECT_FALSE(GetDropFlagFromHeader(none));
    EXPECT_EQ(MXFUMIDTag{}, GetMaterialUIDFromHeader(none));
}

TEST(HeaderFields, FindsPacketsAndItemsWithinTheBytes) {
    const auto bytes =
        Join({Packet(kPrimerKey, Hex("00 00 00 00 00 00 00 12")), AES3("00 00 BB 80 00 00 00 01", "00 00 00 10")});
    MXFKEYTag key = Key(kAES3Key);
    EXPECT_EQ(28u, FindPacket(bytes, key));
    for (size_t size = 0; size < bytes.size(); ++size) {
        const ByteVector cut(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(size >= 28 + 17 + 3, FindPacket(cut, key).has_value()) << size;
        EXPECT_FALSE(FindItem(cut, key, 0x3D01, 4)) << size;
    }
    EXPECT_TRUE(FindItem(bytes, key, 0x3D01, 4));
    EXPECT_FALSE(FindItem(bytes, key, 0x3D01, 2)) << "width";
    EXPECT_FALSE(FindItem(bytes, key, 0x3D02, 4));
}

// What all getters say of a header.
std::vector<int64_t> Answers(HeaderBytes header) {
    return {GetVideoStandardFromHeader(header),
            GetCompTypeLongGFromHeader(header),
            GetSampleNumFromHeader(header),
            GetSamplingRateFromHeader(header),
            GetBytesPerSampleFromHeader(header),
            GetStartTimecodeFromHeader(header),
            GetRoundedTCBaseFromHeader(header),
            GetDropFlagFromHeader(header),
            GetMaterialUIDFromHeader(header).bytes[31],
            HasDescriptiveMetadata(header)};
}

TEST(HeaderFields, OfAHeaderCutAtAnyByteOrOfLengthsThatLieEachGetterTellsTheTruthOrNothing) {
    Op1bClip clip;
    clip.AddPictures(1);
    clip.headerSize = 3000;
    clip.moreSets = Packet("06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00", LocalItem("80 01", "65 6E 00"));
    const ByteVector file = clip.Bytes();
    const auto header = std::span(file).first(clip.headerSize);
    const auto truth = Answers(header), nothing = Answers({});
    for (size_t i = 0; i < truth.size(); ++i) ASSERT_NE(truth[i], nothing[i]) << "getter " << i;
    const auto expectTruthOrNothing = [&](HeaderBytes damaged) {
        const auto answers = Answers(damaged);
        for (size_t i = 0; i < truth.size(); ++i)
            EXPECT_TRUE(answers[i] == truth[i] || answers[i] == nothing[i]) << "getter " << i << ": " << answers[i];
    };
    for (size_t size = 0; size < header.size(); ++size) {
        SCOPED_TRACE(size);
        expectTruthOrNothing(ByteVector(header.begin(), header.begin() + static_cast<ptrdiff_t>(size)));
    }
    EXPECT_EQ(nothing, Answers(ByteVector(5000, 0xFF)));
    // Every length field behind the pack becomes as large as can be.
    for (size_t at = clip.packSize; at + 20 < header.size(); ++at) {
        if (file[at] != 0x06 || file[at + 1] != 0x0E || file[at + 16] != 0x83) continue;
        SCOPED_TRACE(at);
        ByteVector lying(header.begin(), header.end());
        Patch(lying, at + 17, Hex("FF FF FF"));
        expectTruthOrNothing(lying);
        Patch(lying, at + 16, Hex("FF FF FF FF"));
        expectTruthOrNothing(lying);
    }
}

}  // namespace
}  // namespace kmxf::test
