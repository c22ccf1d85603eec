#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(MXFExtractMetaData, PartitionSizeIsThatOfAnyPacket) {
    const auto sized = [&](std::string_view length) {
        auto bytes = Join({Hex(kFillItemKey), Hex(length)});
        bytes.resize(25, 0xEE);
        return extractor.GetPartitionSize(bytes.data());
    };
    EXPECT_EQ(sized("00"), 17u);
    EXPECT_EQ(sized("7F"), 144u);
    EXPECT_EQ(sized("80"), 17u);
    EXPECT_EQ(sized("81 80"), 146u);
    EXPECT_EQ(sized("83 00 00 68"), 124u);
    EXPECT_EQ(sized("87 00 00 00 00 01 00 00"), 65560u);
    EXPECT_EQ(sized("88 00 00 00 00 FF FF FF E6"), 0xFFFFFFFFu);
    EXPECT_EQ(sized("88 00 00 00 00 FF FF FF E7"), 0u);
    EXPECT_EQ(sized("88 FF FF FF FF FF FF FF FF"), 0u);
    EXPECT_EQ(sized("89 00 00 00 00 00 00 00 00"), 0u);
    EXPECT_EQ(extractor.GetPartitionSize(nullptr), 0u);
}

TEST_F(MXFExtractMetaData, EssenceIsFoundBehindPacksOfTheirOwnSizes) {
    OpAtomFile file;
    file.essence = ByteVector(500, 0x55);
    EXPECT_EQ(extractor.GetDataOffset(Opened(file)), 32768u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(open->file), 500);
    // A body pack without essence container is 16 bytes shorter; what it counts lies in front of the element.
    const auto header = Pack{.headerByteCount = 10, .indexByteCount = 20}.Bytes();
    const auto body = Pack{.kind = "03 04", .container = {}, .headerByteCount = 3, .indexByteCount = 4}.Bytes();
    const auto bytes = Join({header, ByteVector(30), body, ByteVector(7),
                             Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01 83 00 01 02"), ByteVector(258)});
    EXPECT_EQ(extractor.GetDataOffset(Opened(bytes)), 124u + 30 + 108 + 7 + 20);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(open->file), 258);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, ShortFormOfTheEssenceLengthGivesSizeZero) {
    const auto packs = Join({Pack{}.Bytes(), Pack{.kind = "03 04"}.Bytes()});
    const auto element = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01");
    const auto with = [&](std::string_view length) {
        return Opened(Join({packs, element, Hex(length), ByteVector(9)}));
    };
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("09")), 0);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 265u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("80")), 0);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 265u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("81 09")), 9);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 266u);
    // More than 8 bytes: the last 8 count. The value itself need not be there.
    EXPECT_EQ(extractor.GetMXFBodyDataSize(with("89 01 00 00 00 00 00 00 01 02")), 258);
    EXPECT_EQ(extractor.GetDataOffset(open->file), 274u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, EssenceThatIsNotFoundIsReportedByItsSizeAlone) {
    const auto expect = [&](const ByteVector& bytes, const char* message) {
        EXPECT_EQ(extractor.GetDataOffset(Opened(bytes)), 0u);
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_EQ(extractor.GetMXFBodyDataSize(open->file), 0);
        EXPECT_THAT(log.Lines(), ElementsAre(std::string("CMXFExtractMetaData::GetMXFBodyDataSize: ") + message));
        log.Clear();
    };
    EXPECT_EQ(extractor.GetDataOffset(nullptr), 0u);
    EXPECT_EQ(extractor.GetMXFBodyDataSize(nullptr), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("CMXFExtractMetaData::GetMXFBodyDataSize: Invalid argument."));
    log.Clear();

    OpAtomFile file;
    file.essence = ByteVector(5);
    const auto bytes = file.Bytes();
    for (const ptrdiff_t size : {0, 24, 25, 123, 124, 32619, 32620, 32743, 32744, 32760, 32767})
        expect({bytes.begin(), bytes.begin() + size}, "Read Error.");
    auto changed = bytes;
    changed[kBodyPackAt + 5] = 0x53;
    expect(changed, "SetData Error.");
    expect(ByteVector(40000), "SetData Error.");
    // Counts that are negative, absurd or run in a circle
    for (const size_t pack : {size_t{0}, kBodyPackAt}) {
        for (const size_t at : {kHeaderByteCountAt, kIndexByteCountAt}) {
            for (const std::string_view count : {"FF FF FF FF FF FF FF FF", "FF FF FF FF FF FF FF 84",
                                                 "7F FF FF FF FF FF FF FF", "00 00 00 00 7F FF FF FF"}) {
                changed = bytes;
                Patch(changed, pack + at, Hex(count));
                expect(changed, "Read Error.");
            }
        }
    }
    // A pack that states more than the file has
    changed = bytes;
    Patch(changed, 17, Hex("FF FF FF"));
    expect(changed, "Read Error.");
    changed = bytes;
    Patch(changed, 16, Hex("88 FF FF FF FF FF FF FF E8"));
    expect(changed, "Read Error.");
}

TEST_F(MXFExtractMetaData, ItemsAreFoundByKeyAndTag) {
    OpAtomFile file;
    file.sets = Join({Packet(kTrackSetKey, LocalItem("48 01", "00 00 00 01")),
                      Packet(kMaterialKey, Join({LocalItem("3C 0A", "01 02 03"), LocalItem("44 05", "0A 0B 0C 0D")}))});
    IFileIO* opened = Opened(file);
    int64_t offset = -1;
    uint32_t length = 0;
    MXFKEYTag key = Key(kMaterialKey);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, &offset, &length), kStatusOk);
    EXPECT_EQ(offset, OpAtomFile::kSetsAt + 28 + 20 + 7 + 4);
    EXPECT_EQ(length, 4u);
    uint8_t buffer[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 5), kStatusOk);
    EXPECT_THAT(buffer, ElementsAre(0x0A, 0x0B, 0x0C, 0x0D, 9));
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x3C0A, buffer, 3), kStatusOk);
    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 0x0D, 9));

    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 3), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 0), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, nullptr, 5), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(nullptr, key, 0x4405, buffer, 5), kStatusInvalidArgument);
    EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4406, buffer, 5), kStatusFailure);
    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 0x0D, 9));

    EXPECT_EQ(extractor.GetKeyInfo(nullptr, key, 0x4405, &offset, &length), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, nullptr, &length), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, &offset, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4406, &offset, &length), kStatusFailure);
    key.bytes[7] = 2;
    EXPECT_EQ(extractor.GetKeyInfo(opened, key, 0x4405, &offset, &length), kStatusFailure);
    EXPECT_EQ(extractor.GetKeyInfo(Opened(ByteVector(200)), key, 0x4405, &offset, &length), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, ItemsOfHeadersCutShortAreNotFound) {
    MetadataFile metadata{.primer = {}, .sets = Packet(kMaterialKey, LocalItem("44 05", "0A 0B 0C 0D"))};
    const auto bytes = metadata.Bytes();
    MXFKEYTag key = Key(kMaterialKey);
    uint8_t buffer[8];
    for (size_t size = 0; size < bytes.size(); ++size) {
        IFileIO* opened = Opened(ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)));
        EXPECT_EQ(extractor.ReadMetadata(opened, key, 0x4405, buffer, 8), kStatusIoError) << size;
    }
    EXPECT_EQ(extractor.ReadMetadata(Opened(bytes), key, 0x4405, buffer, 8), kStatusOk);
    // The item states more than the file has.
    auto lying = bytes;
    Patch(lying, bytes.size() - 6, Hex("00 05"));
    EXPECT_EQ(extractor.ReadMetadata(Opened(lying), key, 0x4405, buffer, 8), kStatusIoError);
    // It may run on behind the header metadata, as long as there is a file.
    lying.push_back(0x0E);
    EXPECT_EQ(extractor.ReadMetadata(Opened(lying), key, 0x4405, buffer, 8), kStatusOk);
    EXPECT_THAT(std::vector<int>(buffer, buffer + 5), ElementsAre(0x0A, 0x0B, 0x0C, 0x0D, 0x0E));
}

constexpr std::string_view kLabelA = "06 0E 2B 34 01 01 01 03 02 30 05 01 01 00 00 00";
constexpr std::string_view kLabelB = "06 0E 2B 34 01 01 01 03 02 30 06 03 01 01 01 00";

TEST_F(MXFExtractMetaData, PrimerGivesItsEntriesInOrder) {
    MetadataFile metadata{.primer = {{"80 07", kLabelA}, {"80 0A", kLabelB}, {"90 00", kLabelA}}, .sets = {}};
    std::vector<MXFLOCALTAGENTRYTag> entries(1);
    ASSERT_EQ(extractor.GetPrimerPackData(Opened(metadata.Bytes()), entries), kStatusOk);
    MXFKEYTag a = Key(kLabelA);
    const MXFKEYTag b = Key(kLabelB);
    EXPECT_THAT(entries, ElementsAre(MXFLOCALTAGENTRYTag{0x8007, a}, MXFLOCALTAGENTRYTag{0x800A, b},
                                     MXFLOCALTAGENTRYTag{0x9000, a}));
    EXPECT_EQ(extractor.GetLocalTag(entries, a), 0x8007);
    EXPECT_EQ(extractor.GetLocalTag(entries, b), 0x800A);
    a.bytes[7] = 9;
    EXPECT_EQ(extractor.GetLocalTag(entries, a), 0);
    EXPECT_EQ(extractor.GetLocalTag({}, b), 0);
}

TEST_F(MXFExtractMetaData, PrimerIsFoundBehindPacketsOfEveryForm) {
    const auto primer = Packet(kPrimerKey, Join({Hex("00 00 00 01 00 00 00 12 80 07"), Hex(kLabelA)}));
    std::vector<MXFLOCALTAGENTRYTag> entries;
    for (const std::string_view length : {"05", "81 05", "83 00 00 05", "88 00 00 00 00 00 00 00 05"}) {
        const auto bytes = Join({Hex(kFillItemKey), Hex(length), ByteVector(5), primer});
        EXPECT_EQ(extractor.GetPrimerPackData(Opened(bytes), entries), kStatusOk) << length;
        EXPECT_EQ(entries.size(), 1u);
    }
    // The first of two counts, and no more entries than the packet holds.
    const auto lying = Packet(kPrimerKey, Join({Hex("FF FF FF FF 00 00 00 12 80 07"), Hex(kLabelB), ByteVector(17)}));
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(Join({lying, primer})), entries), kStatusOk);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(std::ranges::equal(entries[0].ul.bytes, Hex(kLabelB)));
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(Packet(kPrimerKey, Hex("00 00 00 00 00 00 00 12"))), entries),
              kStatusOk);
    EXPECT_THAT(entries, IsEmpty());
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(Packet(kPrimerKey, Hex("00 00 00 01"))), entries),
              kStatusNoMemory);  // no 25 bytes
}

TEST_F(MXFExtractMetaData, FileWithoutAWholePrimerHasNone) {
    MetadataFile metadata{.primer = {{"80 07", kLabelA}, {"80 0A", kLabelB}}, .sets = {}};
    const auto bytes = metadata.Bytes();
    std::vector<MXFLOCALTAGENTRYTag> entries;
    for (size_t size = 0; size < bytes.size(); ++size) {
        IFileIO* opened = Opened(ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)));
        EXPECT_EQ(extractor.GetPrimerPackData(opened, entries), kStatusNoMemory) << size;
        EXPECT_THAT(entries, IsEmpty());
    }
    EXPECT_EQ(extractor.GetPrimerPackData(nullptr, entries), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPrimerPackData(Opened(ByteVector(100000)), entries), kStatusNoMemory);
    // Lengths that lead outside or would run in a circle
    for (const std::string_view length :
         {"83 FF FF FF", "88 FF FF FF FF FF FF FF FF", "88 FF FF FF FF FF FF FF E7", "89 00 00 00 00 00 00 00 00"}) {
        const auto lying = Join({Hex(kFillItemKey), Hex(length), ByteVector(50)});
        EXPECT_EQ(extractor.GetPrimerPackData(Opened(lying), entries), kStatusNoMemory) << length;
    }
}

}  // namespace
}  // namespace kmxf::test
