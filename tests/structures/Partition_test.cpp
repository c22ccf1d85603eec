#include "kmxf/structures/Partition.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "kmxf/core/Status.h"
#include "structures/FilledRecords.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

constexpr MXFKEYTag kOpAtom = {
    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x02, 0x0D, 0x01, 0x02, 0x01, 0x10, 0x02, 0x00, 0x00}};
constexpr MXFKEYTag kOpAtomOther = {
    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x02, 0x0D, 0x01, 0x02, 0x01, 0x10, 0x03, 0x00, 0x00}};
constexpr MXFKEYTag kOp1b = {
    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x01, 0x0D, 0x01, 0x02, 0x01, 0x01, 0x02, 0x09, 0x00}};

// A body pack, open and incomplete, in which every field has a value of its own; two essence containers.
std::vector<uint8_t> FullPack() {
    return Hex(R"(
        06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 01 00
        83 00 00 78
        00 01 00 03  00 00 00 01
        01 02 03 04 05 06 07 08             # ThisPartition
        11 12 13 14 15 16 17 18             # PreviousPartition
        21 22 23 24 25 26 27 28             # FooterPartition
        31 32 33 34 35 36 37 38             # HeaderByteCount
        41 42 43 44 45 46 47 48             # IndexByteCount
        51 52 53 54                         # IndexSID
        61 62 63 64 65 66 67 68             # BodyOffset
        71 72 73 74                         # BodySID
        06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00
        00 00 00 02 00 00 00 10
        A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1 A1
        A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2 A2)");
}

// The same pack with other bytes for key and length.
std::vector<uint8_t> WithHead(const std::vector<uint8_t>& head) {
    std::vector<uint8_t> pack = FullPack();
    pack.erase(pack.begin(), pack.begin() + 20);
    pack.insert(pack.begin(), head.begin(), head.end());
    return pack;
}

// What GetData hands out, which after parsing need not be GetLength() bytes.
std::vector<uint8_t> Serialised(const CPartition& pack) {
    uint8_t* data = nullptr;
    EXPECT_EQ(pack.GetData(&data), kStatusOk);
    if (data == nullptr) return {};
    std::vector<uint8_t> bytes(data, data + 108 + 16 * pack.GetEssenceContainerNum());
    std::free(data);
    return bytes;
}

CPartition Parsed(const std::vector<uint8_t>& bytes) {
    CPartition pack;
    EXPECT_EQ(pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
    return pack;
}

TEST(Partition, DefaultPackIs108BytesClosedAndComplete) {
    CPartition pack;
    EXPECT_EQ(pack.GetLength(), 108u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00
        83 00 00 58
        00 01 00 03 00 00 00 01
        00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00
        00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00
        00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00
        06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00
        00 00 00 00 00 00 00 10)"),
                          Serialised(pack)));
}

TEST(Partition, DefaultsAreReportedByTheGetters) {
    const CPartition pack;
    int64_t headerByteCount = -1, indexByteCount = -1;
    EXPECT_EQ(pack.GetMajorVersion(), 1);
    EXPECT_EQ(pack.GetMinorVersion(), 3);
    EXPECT_EQ(pack.GetKAGSize(), 1u);
    EXPECT_EQ(pack.GetThisPartition(), 0);
    EXPECT_EQ(pack.GetPreviousPartition(), 0);
    EXPECT_EQ(pack.GetFooterPartition(), 0);
    EXPECT_EQ(pack.GetHeaderByteCount(headerByteCount), kStatusOk);
    EXPECT_EQ(headerByteCount, 0);
    EXPECT_EQ(pack.GetIndexByteCount(indexByteCount), kStatusOk);
    EXPECT_EQ(indexByteCount, 0);
    EXPECT_EQ(pack.GetIndexSID(), 0u);
    EXPECT_EQ(pack.GetBodyOffset(), 0);
    EXPECT_EQ(pack.GetBodySID(), 0u);
    EXPECT_EQ(pack.GetOperationPattern(), kOpAtom);
    EXPECT_EQ(pack.GetEssenceContainerNum(), 0u);
}

TEST(Partition, KeyTellsKindAndStatus) {
    struct Case {
        uint32_t kind;
        bool closed, complete;
        uint8_t kindByte, statusByte;
    };
    for (const Case& c : {Case{1, false, false, 2, 1}, Case{1, true, false, 2, 2}, Case{1, false, true, 2, 3},
                          Case{1, true, true, 2, 4}, Case{2, false, false, 3, 1}, Case{2, true, false, 3, 2},
                          Case{2, false, true, 3, 3}, Case{2, true, true, 3, 4}, Case{3, false, false, 4, 1},
                          Case{3, true, false, 4, 2}, Case{3, false, true, 4, 3}, Case{3, true, true, 4, 4}}) {
        const MXFKEYTag expected = {{0x06, 0x0E, 0x2B, 0x34, 0x02, 0x05, 0x01, 0x01, 0x0D, 0x01, 0x02, 0x01, 0x01,
                                     c.kindByte, c.statusByte, 0x00}};
        EXPECT_EQ(CPartition(c.kind, c.closed, c.complete).GetKey(), expected);
    }
}

TEST(Partition, KindBeyondTheThreeLeavesTheKeyUnset) {
    EXPECT_EQ(CPartition(0).GetKey(), MXFKEYTag{});
    EXPECT_EQ(CPartition(4).GetKey(), MXFKEYTag{});
    EXPECT_EQ(CPartition(0x101).GetKey(), MXFKEYTag{});
}

TEST(Partition, SettersFillTheFieldsInDiskOrder) {
    CPartition pack(2, false, false);
    EXPECT_EQ(pack.SetThisPartition(0x0102030405060708), kStatusOk);
    EXPECT_EQ(pack.SetPreviousPartition(0x1112131415161718), kStatusOk);
    EXPECT_EQ(pack.SetFooterPartition(0x2122232425262728), kStatusOk);
    EXPECT_EQ(pack.SetHeaderByteCount(0x3132333435363738), kStatusOk);
    EXPECT_EQ(pack.SetIndexByteCount(0x4142434445464748), kStatusOk);
    EXPECT_EQ(pack.SetIndexSID(0x51525354), kStatusOk);
    EXPECT_EQ(pack.SetBodyOffset(0x6162636465666768), kStatusOk);
    EXPECT_EQ(pack.SetBodySID(0x71727374), kStatusOk);
    EXPECT_EQ(pack.SetOperationPattern(kOp1b), kStatusOk);
    EXPECT_EQ(pack.AddEssenceContainer(KeyOf(0xA1)), kStatusOk);
    EXPECT_EQ(pack.GetLength(), 124u);
    EXPECT_EQ(pack.AddEssenceContainer(KeyOf(0xA2)), kStatusOk);
    EXPECT_EQ(pack.GetLength(), 140u);
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(pack)));
}

TEST(Partition, ParsedPackReportsEveryFieldAndSerialisesToTheSameBytes) {
    CPartition pack = Parsed(FullPack());
    int64_t headerByteCount = 0, indexByteCount = 0;
    EXPECT_EQ(pack.GetLength(), 140u);
    EXPECT_EQ(pack.GetKey(), CPartition(2, false, false).GetKey());
    EXPECT_EQ(pack.GetMajorVersion(), 1);
    EXPECT_EQ(pack.GetMinorVersion(), 3);
    EXPECT_EQ(pack.GetKAGSize(), 1u);
    EXPECT_EQ(pack.GetThisPartition(), 0x0102030405060708);
    EXPECT_EQ(pack.GetPreviousPartition(), 0x1112131415161718);
    EXPECT_EQ(pack.GetFooterPartition(), 0x2122232425262728);
    EXPECT_EQ(pack.GetHeaderByteCount(headerByteCount), kStatusOk);
    EXPECT_EQ(headerByteCount, 0x3132333435363738);
    EXPECT_EQ(pack.GetIndexByteCount(indexByteCount), kStatusOk);
    EXPECT_EQ(indexByteCount, 0x4142434445464748);
    EXPECT_EQ(pack.GetIndexByteCount(), 0x4142434445464748);
    EXPECT_EQ(pack.GetIndexSID(), 0x51525354u);
    EXPECT_EQ(pack.GetBodyOffset(), 0x6162636465666768);
    EXPECT_EQ(pack.GetBodySID(), 0x71727374u);
    EXPECT_EQ(pack.GetOperationPattern(), kOp1b);
    ASSERT_EQ(pack.GetEssenceContainerNum(), 2u);
    MXFKEYTag label;
    EXPECT_EQ(pack.GetEssenceContainer(&label, 0), kStatusOk);
    EXPECT_EQ(label, KeyOf(0xA1));
    EXPECT_EQ(pack.GetEssenceContainer(&label, 1), kStatusOk);
    EXPECT_EQ(label, KeyOf(0xA2));
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(pack)));
}

TEST(Partition, ParsingReplacesTheContainersOfBefore) {
    CPartition pack;
    for (uint8_t i = 0; i < 5; ++i) pack.AddEssenceContainer(KeyOf(i));
    const std::vector<uint8_t> bytes = FullPack();
    EXPECT_EQ(pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
    EXPECT_TRUE(SameBytes(bytes, Serialised(pack)));
}

TEST(Partition, NegativeNumbersAreKept) {
    CPartition pack;
    pack.SetThisPartition(-2);
    const CPartition parsed = Parsed(Serialised(pack));
    EXPECT_EQ(parsed.GetThisPartition(), -2);
}

TEST(Partition, ContainerOutOfRangeOrNullIsRefused) {
    CPartition pack;
    pack.AddEssenceContainer(KeyOf(0xA1));
    MXFKEYTag label = KeyOf(0x55);
    EXPECT_EQ(pack.GetEssenceContainer(&label, 1), kStatusInvalidArgument);
    EXPECT_EQ(pack.GetEssenceContainer(&label, 0xFFFFFFFF), kStatusInvalidArgument);
    EXPECT_EQ(pack.GetEssenceContainer(nullptr, 0), kStatusInvalidArgument);
    EXPECT_EQ(label, KeyOf(0x55));
}

TEST(Partition, NullPointersAreRefused) {
    CPartition pack;
    EXPECT_EQ(pack.GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(pack.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(pack.SetData(nullptr, 108), kStatusInvalidArgument);
}

TEST(Partition, OperationalPatternIsToldByAllItsBytes) {
    CPartition pack;
    EXPECT_TRUE(pack.IsOpAtom());
    EXPECT_FALSE(pack.IsOp1b());
    pack.SetOperationPattern(kOpAtomOther);
    EXPECT_TRUE(pack.IsOpAtom());
    pack.SetOperationPattern(kOp1b);
    EXPECT_FALSE(pack.IsOpAtom());
    EXPECT_TRUE(pack.IsOp1b());
    for (size_t i = 0; i < 16; ++i) {
        for (MXFKEYTag label : {kOpAtom, kOp1b}) {
            label.bytes[i] ^= 0x80;
            pack.SetOperationPattern(label);
            EXPECT_FALSE(pack.IsOpAtom());
            EXPECT_FALSE(pack.IsOp1b());
        }
    }
}

TEST(Partition, AnotherKeyIsRefusedButTakenOver) {
    for (size_t i = 0; i < 13; ++i) {
        std::vector<uint8_t> bytes = FullPack();
        bytes[i] ^= 0x01;
        CPartition pack;
        EXPECT_EQ(pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusInvalidArgument);
        EXPECT_EQ(pack.SetData(bytes.data()), kStatusInvalidArgument);
        EXPECT_EQ(pack.GetKey().bytes[i], bytes[i]);
        EXPECT_EQ(pack.GetThisPartition(), 0);
        EXPECT_EQ(pack.GetLength(), 108u);
    }
}

TEST(Partition, OfAnotherPacketNothingButTheKeyIsRead) {
    const std::vector<uint8_t> key = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 2F 00");
    EXPECT_EQ(CPartition().SetData(key.data()), kStatusInvalidArgument);
    EXPECT_EQ(CPartition().SetData(key.data(), 16), kStatusInvalidArgument);
}

TEST(Partition, KindStatusAndVersionsAreNotChecked) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[13] = 0xEE;
    bytes[14] = 0xDD;
    bytes[15] = 0xCC;
    bytes[21] = 0x09;
    bytes[23] = 0x08;
    bytes[27] = 0x07;
    CPartition pack = Parsed(bytes);
    EXPECT_EQ(pack.GetMajorVersion(), 9);
    EXPECT_EQ(pack.GetMinorVersion(), 8);
    EXPECT_EQ(pack.GetKAGSize(), 7u);
    EXPECT_TRUE(SameBytes(bytes, Serialised(pack)));
}

TEST(Partition, ShortLengthFormGivesThePackItsActualSizeAndIsWrittenLong) {
    const auto bytes = WithHead(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 01 00  78"));
    CPartition pack = Parsed(bytes);
    EXPECT_EQ(pack.GetLength(), 137u);
    EXPECT_EQ(pack.GetEssenceContainerNum(), 2u);
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(pack)));
    EXPECT_EQ(pack.AddEssenceContainer(KeyOf(0xA3)), kStatusOk);
    EXPECT_EQ(pack.GetLength(), 153u);
    EXPECT_EQ(Serialised(pack).size(), 156u);
}

TEST(Partition, NineByteLengthFormGivesThePackItsActualSizeAndIsWrittenWithFour) {
    const auto bytes = WithHead(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 01 00  88 00 00 00 00 00 00 00 78"));
    CPartition pack = Parsed(bytes);
    EXPECT_EQ(pack.GetLength(), 145u);
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(pack)));
}

TEST(Partition, FormWithoutSizeTakesThePacksWordForIt) {
    for (const char* length : {"78", "83 00 00 78", "88 00 00 00 00 00 00 00 78"}) {
        auto head = Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 01 00");
        const auto ber = Hex(length);
        head.insert(head.end(), ber.begin(), ber.end());
        const auto bytes = WithHead(head);
        CPartition pack;
        EXPECT_EQ(pack.SetData(bytes.data()), kStatusOk);
        EXPECT_TRUE(SameBytes(FullPack(), Serialised(pack)));
    }
}

TEST(Partition, FormWithoutSizeStaysWithinTheStatedLength) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[103] = 0xFF;  // 255 containers in a pack of two
    CPartition pack;
    EXPECT_EQ(pack.SetData(bytes.data()), kStatusOk);
    EXPECT_EQ(pack.GetEssenceContainerNum(), 2u);
    for (const uint8_t tooShort : {uint8_t{0}, uint8_t{1}, uint8_t{0x57}}) {
        bytes[19] = tooShort;
        EXPECT_EQ(pack.SetData(bytes.data()), kStatusInvalidArgument);
    }
}

TEST(Partition, StatedLengthNeedNotAgreeWithTheBuffer) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[17] = bytes[18] = bytes[19] = 0xFF;
    EXPECT_EQ(Parsed(bytes).GetLength(), 0x1000013u);
    bytes[17] = bytes[18] = bytes[19] = 0;
    EXPECT_EQ(Parsed(bytes).GetLength(), 20u);
    EXPECT_EQ(Parsed(bytes).GetEssenceContainerNum(), 2u);
}

TEST(Partition, OnlyTheLowestByteOfTheCountIsRead) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[102] = 0x01;  // 256 + 2
    EXPECT_EQ(Parsed(bytes).GetEssenceContainerNum(), 2u);
    bytes[103] = 0x00;  // 256
    CPartition pack = Parsed(bytes);
    EXPECT_EQ(pack.GetEssenceContainerNum(), 0u);
    EXPECT_EQ(pack.GetLength(), 140u);
    EXPECT_EQ(Serialised(pack).size(), 108u);
}

TEST(Partition, StatedElementSizeIsNotReadButKept) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[107] = 0x20;
    CPartition pack = Parsed(bytes);
    EXPECT_EQ(pack.GetEssenceContainerNum(), 2u);
    EXPECT_TRUE(SameBytes(bytes, Serialised(pack)));
}

TEST(Partition, CountThatLiesIsClampedToWhatIsThere) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[103] = 0xFF;
    CPartition pack = Parsed(bytes);
    EXPECT_EQ(pack.GetEssenceContainerNum(), 2u);
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(pack)));
}

TEST(Partition, PackCutAtEveryByteIsRefusedOrLosesContainers) {
    const std::vector<uint8_t> whole = FullPack();
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        CPartition pack;
        const int32_t status = pack.SetData(size == 0 ? whole.data() : cut.data(), static_cast<uint32_t>(size));
        EXPECT_EQ(status, size < 108 ? kStatusInvalidArgument : kStatusOk) << size;
        EXPECT_EQ(pack.GetEssenceContainerNum(), size < 124 ? 0u : 1u) << size;
        EXPECT_EQ(pack.GetThisPartition(), size < 108 ? 0 : 0x0102030405060708) << size;
    }
}

TEST(Partition, LengthOfAllOnesIsRefused) {
    std::vector<uint8_t> bytes = FullPack();
    bytes[16] = 0xFF;  // 127 bytes of length
    EXPECT_EQ(CPartition().SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusInvalidArgument);
    std::fill(bytes.begin() + 16, bytes.end(), uint8_t{0xFF});
    EXPECT_EQ(CPartition().SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusInvalidArgument);
}

TEST(Partition, RandomBytesBehindTheKeyStayWithinTheBuffer) {
    std::mt19937 random(1);
    for (int i = 0; i < 500; ++i) {
        std::vector<uint8_t> bytes = FullPack();
        bytes.resize(16 + random() % 200);
        for (size_t at = 16; at < bytes.size(); ++at) bytes[at] = static_cast<uint8_t>(random());
        CPartition pack;
        if (pack.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) continue;
        EXPECT_EQ(Serialised(pack).size(), 108 + 16 * pack.GetEssenceContainerNum());
    }
}

TEST(Partition, CountOfContainersWrapsAt256) {
    CPartition pack;
    for (int i = 0; i < 257; ++i) pack.AddEssenceContainer(KeyOf(static_cast<uint8_t>(i)));
    EXPECT_EQ(pack.GetEssenceContainerNum(), 257u);
    EXPECT_EQ(pack.GetLength(), 108u + 257 * 16);
    const auto bytes = Serialised(pack);
    ASSERT_EQ(bytes.size(), 108u + 257 * 16);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 01 00 00 00 10"), std::span(bytes).subspan(100, 8)));
}

TEST(Partition, CopiesAreDeep) {
    CPartition pack = Parsed(FullPack());
    CPartition copy(pack);
    CPartition assigned;
    assigned = pack;
    pack.AddEssenceContainer(KeyOf(0xA3));
    pack.SetThisPartition(9);
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(copy)));
    EXPECT_TRUE(SameBytes(FullPack(), Serialised(assigned)));
    EXPECT_EQ(copy.GetLength(), 140u);
}

}  // namespace
}  // namespace kmxf::test
