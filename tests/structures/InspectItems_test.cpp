#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "core/LocalTags.h"
#include "kmxf/structures/Inspect.h"
#include "structures/InspectFixture.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A file of one packet: key, 4-byte length, value; as many bytes of it as there are.
std::vector<uint8_t> OnePacket(const std::string& key, const std::string& value) {
    const auto bytes = Hex(value);
    char length[16];
    std::snprintf(length, sizeof length, "83 %06zX ", bytes.size());
    auto packet = Hex(key + length);
    packet.insert(packet.end(), bytes.begin(), bytes.end());
    return packet;
}
// A set behind a primer pack with these entries of 18 bytes.
std::vector<uint8_t> SetBehindPrimer(const std::string& entries, const std::string& items) {
    char head[32];
    std::snprintf(head, sizeof head, "%08zX 00000012 ", Hex(entries).size() / 18);
    auto file = OnePacket(kPrimerKey, head + entries);
    const auto set = OnePacket(kSetKey + "2F 00 ", items);
    file.insert(file.end(), set.begin(), set.end());
    return file;
}

const std::string kProfileLabel = "06 0E 2B 34 01 01 01 0E 04 01 06 06 01 0A 00 00 ";
const std::string kUnknownLabel = "06 0E 2B 34 01 01 01 0E 7A 7A 7A 7A 7A 7A 7A 7A ";

TEST(InspectItems, PartitionPackIsDecodedFieldByField) {
    EXPECT_THAT(ItemLines(SmallFile(), 0),
                ElementsAre("Status = closed, complete", "MajorVersion = 1", "MinorVersion = 3", "KAGSize = 1",
                            "ThisPartition = 0", "PreviousPartition = 0", "FooterPartition = 489",
                            "HeaderByteCount = 134", "IndexByteCount = 66", "IndexSID = 101", "BodyOffset = 0",
                            "BodySID = 0", "OperationalPattern = 060E2B34040101010D01020101020900",
                            "EssenceContainers = [060E2B340401010A0D01030102106001]"));
    const auto items = Walk(SmallFile())[5].items;
    const uint64_t offsets[] = {334, 340, 342, 344, 348, 356, 364, 372, 380, 388, 392, 400, 404, 420};
    ASSERT_THAT(items, SizeIs(std::size(offsets)));
    for (size_t i = 0; i < items.size(); ++i) EXPECT_EQ(items[i].offset, offsets[i]) << items[i].name;
    EXPECT_EQ(items[4].Unsigned(), 320u);
    EXPECT_EQ(items[13].Text(), "[]");
}

TEST(InspectItems, PrimerPackIsDecodedEntryByEntry) {
    EXPECT_THAT(ItemLines(SmallFile(), 1),
                ElementsAre("EntryCount = 3", "EntrySize = 18", "InstanceUID = 060E2B34010101010101150200000000",
                            "LastModifiedDate = 060E2B34010101020702011002040000",
                            "AVCProfile = 060E2B340101010E04010606010A0000"));
    const auto entry = Walk(SmallFile())[1].items[4];
    EXPECT_EQ(entry.tag, 0x8077);
    EXPECT_EQ(entry.offset, 190u);
    EXPECT_EQ(entry.length, 16u);
    EXPECT_THAT(entry.Keys(), ElementsAre(entry.label));
}

TEST(InspectItems, SetIsDecodedItemByItem) {
    EXPECT_THAT(ItemLines(SmallFile(), 2), ElementsAre("InstanceUID = A0A1A2A3A4A5A6A7A8A9AAABACADAEAF",
                                                       "LastModifiedDate = 2013-05-06T07:08:09", "AVCProfile = 122"));
    const auto items = Walk(SmallFile())[2].items;
    EXPECT_EQ(items[1].tag, 0x3B02);
    EXPECT_EQ(items[1].offset, 250u);
    EXPECT_EQ(items[2].tag, 0x8077);
    EXPECT_EQ(items[2].offset, 262u);
    EXPECT_TRUE(SameBytes(Hex(kProfileLabel), items[2].label.bytes));
}

TEST(InspectItems, IndexSegmentIsDecodedItemByItem) {
    EXPECT_THAT(ItemLines(SmallFile(), 3), ElementsAre("IndexEditRate = 30000/1001", "IndexSID = 101"));
    const std::string key = "06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00 ";
    EXPECT_THAT(
        ItemLines(OnePacket(key,
                            "3F 0C 0008 FFFFFFFFFFFFFFFE  3F 08 0001 01"
                            "3F 09 000E 00000001 00000006 FF 00 00000007"
                            "3F 0A 0026 00000002 0000000F  02 FF 80 0000000000001000 00000005"
                            "                              FE 00 33 FFFFFFFFFFFFFFFF 00000006"
                            "3F 0E 0001 09"),
                  0),
        ElementsAre("IndexStartPosition = -2", "SliceCount = 1", "DeltaEntryArray = [(-1, 0, 7)]",
                    "IndexEntryArray = [(2, -1, 0x80, 4096, 5), (-2, 0, 0x33, 18446744073709551615, 6)]", "3F0E = 09"));
}

TEST(InspectItems, RandomIndexPackIsDecodedEntryByEntry) {
    EXPECT_THAT(ItemLines(SmallFile(), 9),
                ElementsAre("BodySID = 0", "ByteOffset = 0", "BodySID = 1", "ByteOffset = 320", "BodySID = 0",
                            "ByteOffset = 489", "OverallLength = 60"));
    const std::string key = kPackKey + "11 01 00 ";
    EXPECT_THAT(ItemLines(OnePacket(key, "0000001C"), 0), ElementsAre("OverallLength = 28"));
    EXPECT_THAT(ItemLines(OnePacket(key, ""), 0), IsEmpty());
    EXPECT_THAT(ItemLines(OnePacket(key, "0102"), 0), ElementsAre("0000 = 0102"));
    EXPECT_THAT(ItemLines(OnePacket(key, "00000001 0000000000000002 00000020 AABB"), 0),
                ElementsAre("BodySID = 1", "ByteOffset = 2", "OverallLength = 32", "0000 = AABB"));
}

TEST(InspectItems, UnknownPacketKeepsItsBytes) { EXPECT_THAT(ItemLines(SmallFile(), 7), ElementsAre("0000 = D1D2D3")); }

TEST(InspectItems, OfAnUnknownPacketThe64KiBInFrontAreKept) {
    auto file = Hex(kUnknownKey + "83 02 00 00");
    file.resize(20 + 0x20000, 0x5A);
    const auto walked = Walk(file);
    ASSERT_THAT(walked[0].items, SizeIs(1));
    EXPECT_EQ(walked[0].items[0].value, std::vector<uint8_t>(65536, 0x5A));
}

TEST(InspectItems, FillAndEssenceHaveNone) {
    EXPECT_THAT(ItemLines(SmallFile(), 4), IsEmpty());
    EXPECT_THAT(ItemLines(SmallFile(), 6), IsEmpty());
    EXPECT_THAT(ItemLines(std::vector<uint8_t>(50), 0), IsEmpty());
}

TEST(InspectItems, UnknownSetIsDecodedToo) {
    const auto file = OnePacket(kSetKey + "7F 00 ", "3C 0A 0002 ABCD  7A 7A 0001 EE");
    EXPECT_EQ(Walk(file)[0].kind, PacketKind::kSet);
    EXPECT_THAT(ItemLines(file, 0), ElementsAre("InstanceUID = ABCD", "7A7A = EE"));
}

TEST(InspectItems, PrivateFrameworksAreSets) {
    EXPECT_THAT(ItemLines(OnePacket("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00 ",
                                    "A0 11 0001 01  A0 12 0002 0050  A0 14 0003 424D36"),
                          0),
                ElementsAre("ThumbnailFormat = 1", "ThumbnailWidth = 80", "ThumbnailData = 424D36"));
}

TEST(InspectItems, DynamicTagsMeanWhatTheFilesOwnPrimerSays) {
    const std::string items = "81 23 0001 7A  90 09 0001 05";
    // Profile under another tag; under our tag for it the level.
    EXPECT_THAT(ItemLines(SetBehindPrimer(
                              "81 23" + kProfileLabel + "90 09 06 0E 2B 34 01 01 01 0E 04 01 06 06 01 0D 00 00", items),
                          1),
                ElementsAre("AVCProfile = 122", "AVCLevel = 5"));
    // A label that nobody knows, and a tag that the primer lacks
    EXPECT_THAT(ItemLines(SetBehindPrimer("81 23" + kUnknownLabel, items), 1), ElementsAre("8123 = 7A", "9009 = 05"));
    EXPECT_TRUE(
        SameBytes(Hex(kUnknownLabel), Walk(SetBehindPrimer("81 23" + kUnknownLabel, items))[1].items[0].label.bytes));
    // The first entry for a tag counts, and the version of a label does not.
    EXPECT_THAT(ItemLines(SetBehindPrimer("81 23 06 0E 2B 34 01 01 01 7F 04 01 06 06 01 0A 00 00 81 23" + kUnknownLabel,
                                          "81 23 0001 7A"),
                          1),
                ElementsAre("AVCProfile = 122"));
}

TEST(InspectItems, StaticTagsNeedNoPrimer) {
    EXPECT_THAT(ItemLines(SetBehindPrimer("81 23" + kProfileLabel, "3B 05 0002 0103"), 1),
                ElementsAre("Version = 1.3"));
    EXPECT_THAT(ItemLines(SetBehindPrimer("3B 05" + kUnknownLabel, "3B 05 0002 0103"), 1), ElementsAre("3B05 = 0103"));
}

TEST(InspectItems, WithoutAPrimerTagsAreThisLibrarysOwn) {
    EXPECT_THAT(ItemLines(OnePacket(kSetKey + "6E 00 ", "90 09 0001 7A  81 23 0001 7A"), 0),
                ElementsAre("AVCProfile = 122", "8123 = 7A"));
}

TEST(InspectItems, PrimerHoldsForItsPartitionOnly) {
    auto file = SetBehindPrimer("90 09" + kUnknownLabel, "90 09 0001 7A");
    EXPECT_THAT(ItemLines(file, 1), ElementsAre("9009 = 7A"));
    const auto pack = Hex(Head("03 04 00") + PackFields("0000000000000000", "00000000"));
    const auto set = OnePacket(kSetKey + "6E 00 ", "90 09 0001 7A");
    file.insert(file.end(), pack.begin(), pack.end());
    file.insert(file.end(), set.begin(), set.end());
    EXPECT_THAT(ItemLines(file, 3), ElementsAre("AVCProfile = 122"));
    // Asked again in any order
    MemorySource source(file);
    CInspector inspector(source);
    std::vector<InspectedPacket> packets;
    while (const auto packet = inspector.Next()) packets.push_back(*packet);
    EXPECT_EQ(inspector.Items(packets[3])[0].name, "AVCProfile");
    EXPECT_EQ(inspector.Items(packets[1])[0].name, "");
    EXPECT_EQ(inspector.Items(packets[3])[0].name, "AVCProfile");
    EXPECT_EQ(packets[1].primer, 0u);
    EXPECT_FALSE(packets[3].primer);
}

TEST(InspectItems, AbsurdCountsOfThePrimerEndWithItsBytes) {
    const std::string entry = "81 23" + kProfileLabel;
    const struct {
        const char* head;
        size_t items;
    } kCases[] = {
        {"FFFFFFFF 00000012 ", 3}, {"00000000 00000012 ", 3}, {"00000001 00000000 ", 3}, {"00000001 00000011 ", 3},
        {"00000001 FFFFFFFF ", 3}, {"00000001 00000013 ", 3}, {"FFFFFFFF FFFFFFFF ", 3},
    };
    for (const auto& c : kCases) {
        const auto file = OnePacket(kPrimerKey, c.head + entry);
        EXPECT_THAT(Walk(file)[0].items, SizeIs(c.items)) << c.head;
    }
    // Wider entries than known: what is known of them
    const auto wide = OnePacket(kPrimerKey, "00000002 00000014 " + entry + "AA BB" + entry + "CC DD");
    EXPECT_THAT(ItemLines(wide, 0),
                ElementsAre("EntryCount = 2", "EntrySize = 20", "AVCProfile = 060E2B340101010E04010606010A0000",
                            "AVCProfile = 060E2B340101010E04010606010A0000"));
}

TEST(InspectItems, ItemThatLeadsOutOfItsSetKeepsWhatThereIs) {
    const auto items = Walk(OnePacket(kSetKey + "2F 00 ", "3C 0A FFFF A1 A2"))[0].items;
    ASSERT_THAT(items, SizeIs(1));
    EXPECT_EQ(items[0].length, 65535u);
    EXPECT_EQ(items[0].value, Hex("A1 A2"));
    EXPECT_EQ(items[0].Text(), "A1A2");
}

TEST(InspectItems, BytesThatMakeNoItemComeLast) {
    EXPECT_THAT(ItemLines(OnePacket(kSetKey + "2F 00 ", "3B 05 0002 0103 AA BB CC"), 0),
                ElementsAre("Version = 1.3", "0000 = AABBCC"));
    EXPECT_THAT(ItemLines(OnePacket(kSetKey + "2F 00 ", ""), 0), IsEmpty());
}

TEST(InspectItems, PacketsCutAtEveryByteGiveTheItemsThatAreThere) {
    const auto file = SmallFile();
    const auto whole = Walk(file);
    for (size_t size = 0; size < file.size(); ++size) {
        const auto walked = Walk(std::span(file).first(size));
        for (size_t packet = 0; packet < walked.size(); ++packet) {
            if (walked[packet].kind == PacketKind::kDamage) continue;
            for (size_t i = 0; i < walked[packet].items.size(); ++i) {
                const InspectedItem& item = walked[packet].items[i];
                EXPECT_LE(item.offset + item.value.size(), size);
                if (item.name.empty() || item.value.size() < item.length) continue;
                EXPECT_EQ(item.name, whole[packet].items[i].name);
                if (item.name != "EssenceContainers") {
                    EXPECT_EQ(item.Text(), whole[packet].items[i].Text());
                }
            }
        }
    }
}

TEST(InspectItems, AreFoundByName) {
    const auto items = Walk(SmallFile())[9].items;
    EXPECT_EQ(FindItem(items, "ByteOffset"), &items[1]);
    EXPECT_EQ(FindItem(items, "Nothing"), nullptr);
}

TEST(InspectItems, EveryRowOfThePrimerHasANameOfItsOwn) {
    std::set<std::string> names;
    for (const PrimerRow& row : kPrimerRows) names.insert(row.name);
    EXPECT_EQ(names.size(), std::size(kPrimerRows));
}

}  // namespace
}  // namespace kmxf::test
