#include "kmxf/structures/RandomIndex.h"

#include <gtest/gtest.h>

#include <random>

#include "kmxf/core/Status.h"
#include "structures/Serialised.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

// Partition 1 at 0, partition 2 at 0x10000.
std::vector<uint8_t> TwoEntries() {
    return Hex(R"(
        06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00
        83 00 00 1C
        00 00 00 01  00 00 00 00 00 00 00 00
        00 00 00 02  00 00 00 00 00 01 00 00
        00 00 00 30)");
}

std::vector<uint8_t> Pack(const char* lengthAndValue) {
    auto bytes = Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00");
    const auto rest = Hex(lengthAndValue);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

int32_t Parse(CRandomIndex& index, const std::vector<uint8_t>& bytes) {
    return index.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

TEST(RandomIndex, TwoEntriesAre48Bytes) {
    CRandomIndex index;
    EXPECT_EQ(index.AddPartitionInfo({.offset = 0, .bodySID = 1}), kStatusOk);
    EXPECT_EQ(index.AddPartitionInfo({.offset = 0x10000, .bodySID = 2}), kStatusOk);
    EXPECT_EQ(index.GetLength(), 48u);
    EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(index)));
}

TEST(RandomIndex, EmptyPackIs24Bytes) {
    CRandomIndex index;
    EXPECT_EQ(index.GetPartitionNum(), 0u);
    EXPECT_EQ(index.GetLength(), 24u);
    EXPECT_TRUE(
        SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 04  00 00 00 18"), Serialised(index)));
}

TEST(RandomIndex, EntriesKeepTheirOrderAndRepeat) {
    CRandomIndex index;
    for (const uint64_t offset : {uint64_t{7}, uint64_t{3}, uint64_t{7}, uint64_t{0x123456789A}})
        index.AddPartitionInfo({.offset = offset, .bodySID = 5});
    ASSERT_EQ(index.GetPartitionNum(), 4u);
    EXPECT_EQ(index.GetPartitionOffset(0), 7);
    EXPECT_EQ(index.GetPartitionOffset(1), 3);
    EXPECT_EQ(index.GetPartitionOffset(2), 7);
    EXPECT_EQ(index.GetPartitionOffset(3), 0x123456789A);
    EXPECT_EQ(index.GetBodySID(3), 5u);
}

TEST(RandomIndex, IndexAtOrBeyondTheCountHasNoEntry) {
    CRandomIndex index;
    for (uint32_t i = 0; i < 3; ++i) index.AddPartitionInfo({.offset = i, .bodySID = i});
    for (const uint32_t beyond : {3u, 4u, 5u, 0xFFFFFFFFu}) {
        EXPECT_EQ(index.GetPartitionOffset(beyond), -1);
        EXPECT_EQ(index.GetBodySID(beyond), 0xFFFFFFFFu);
    }
}

TEST(RandomIndex, ParsedPackSerialisesToTheSameBytes) {
    CRandomIndex index;
    index.AddPartitionInfo({.offset = 99, .bodySID = 99});
    ASSERT_EQ(Parse(index, TwoEntries()), kStatusOk);
    ASSERT_EQ(index.GetPartitionNum(), 2u);
    EXPECT_EQ(index.GetBodySID(0), 1u);
    EXPECT_EQ(index.GetPartitionOffset(0), 0);
    EXPECT_EQ(index.GetBodySID(1), 2u);
    EXPECT_EQ(index.GetPartitionOffset(1), 0x10000);
    EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(index)));
}

TEST(RandomIndex, EveryLengthFormIsReadAndTheFourByteFormWritten) {
    const char* const kEntries = " 00000001 0000000000000000  00000002 0000000000010000  00000030";
    for (const char* length : {"1C", "81 1C", "83 00 00 1C", "88 00 00 00 00 00 00 00 1C"}) {
        const auto bytes = Pack((std::string(length) + kEntries).c_str());
        CRandomIndex sized, unsized;
        EXPECT_EQ(Parse(sized, bytes), kStatusOk);
        EXPECT_EQ(unsized.SetData(bytes.data()), kStatusOk);
        EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(sized)));
        EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(unsized)));
    }
}

TEST(RandomIndex, OverallLengthIsNotChecked) {
    auto bytes = TwoEntries();
    bytes[47] = 0xEE;
    CRandomIndex index;
    EXPECT_EQ(Parse(index, bytes), kStatusOk);
    EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(index)));
}

TEST(RandomIndex, BytesThatMakeNoWholeEntryAreIgnored) {
    // 11 bytes over; the overall length is the four bytes behind the only entry.
    const auto bytes = Pack("83 00 00 1B  00000001 0000000000000008  00 00 00 24 00 00 00 00 00 00 00 00 00 00 00");
    CRandomIndex index;
    EXPECT_EQ(Parse(index, bytes), kStatusOk);
    EXPECT_EQ(index.GetPartitionNum(), 1u);
    EXPECT_EQ(index.GetPartitionOffset(0), 8);
    EXPECT_EQ(index.GetLength(), 36u);
}

TEST(RandomIndex, LengthUnderFourGivesNoEntries) {
    for (const char* bytes : {"83 00 00 00", "83 00 00 01 AA", "83 00 00 03 AA AA AA", "00", "03 AA AA AA"}) {
        CRandomIndex index;
        index.AddPartitionInfo({.offset = 1, .bodySID = 1});
        EXPECT_EQ(Parse(index, Pack(bytes)), kStatusOk) << bytes;
        EXPECT_EQ(index.GetPartitionNum(), 0u) << bytes;
    }
}

TEST(RandomIndex, LengthThatLeadsOutsideTheBufferIsRefusedAndNothingIsAllocatedForIt) {
    for (const char* length :
         {"83 00 00 1D", "83 FF FF FF", "84 FF FF FF FF", "88 FF FF FF FF FF FF FF FF", "88 7F FF FF FF FF FF FF FF"}) {
        CRandomIndex index;
        index.AddPartitionInfo({.offset = 1, .bodySID = 1});
        const auto bytes =
            Pack((std::string(length) + " 00000001 0000000000000000  00000002 0000000000010000  00000030").c_str());
        EXPECT_EQ(Parse(index, bytes), kStatusInvalidArgument) << length;
        EXPECT_EQ(index.GetPartitionNum(), 1u) << length;
    }
}

TEST(RandomIndex, StatedSizeOfMoreThanFourGigabytesIsRefusedWithoutASizeToo) {
    const auto bytes = Pack("88 00 00 00 01 00 00 00 00  00 00 00 00");
    EXPECT_EQ(CRandomIndex().SetData(bytes.data()), kStatusInvalidArgument);
}

TEST(RandomIndex, PackCutAtEveryByteIsRefused) {
    const auto whole = TwoEntries();
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        CRandomIndex index;
        index.AddPartitionInfo({.offset = 1, .bodySID = 1});
        EXPECT_EQ(index.SetData(size == 0 ? whole.data() : cut.data(), static_cast<uint32_t>(size)),
                  kStatusInvalidArgument)
            << size;
        EXPECT_EQ(index.GetPartitionNum(), 1u) << size;
    }
}

TEST(RandomIndex, RandomBytesBehindTheKeyStayWithinTheBuffer) {
    std::mt19937 random(2);
    for (int i = 0; i < 500; ++i) {
        auto bytes = TwoEntries();
        bytes.resize(16 + random() % 100);
        for (size_t at = 16; at < bytes.size(); ++at) bytes[at] = static_cast<uint8_t>(random());
        CRandomIndex index;
        if (Parse(index, bytes) != kStatusOk) continue;
        EXPECT_LE(index.GetLength(), bytes.size() + 24);
    }
}

TEST(RandomIndex, AnotherKeyIsRefusedInEveryByteButTakenOver) {
    for (size_t i = 0; i < 16; ++i) {
        auto bytes = TwoEntries();
        bytes[i] ^= 0x01;
        CRandomIndex index;
        EXPECT_EQ(Parse(index, bytes), kStatusInvalidArgument);
        EXPECT_EQ(index.SetData(bytes.data()), kStatusInvalidArgument);
        EXPECT_EQ(index.GetPartitionNum(), 0u);
        EXPECT_EQ(Serialised(index)[i], bytes[i]);
    }
}

TEST(RandomIndex, OfAnotherPacketNothingButTheKeyIsRead) {
    const auto key = Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00");
    EXPECT_EQ(CRandomIndex().SetData(key.data()), kStatusInvalidArgument);
    EXPECT_EQ(CRandomIndex().SetData(key.data(), 16), kStatusInvalidArgument);
}

TEST(RandomIndex, NullPointersAreRefused) {
    CRandomIndex index;
    EXPECT_EQ(index.GetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(index.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(index.SetData(nullptr, 48), kStatusInvalidArgument);
}

TEST(RandomIndex, CopiesAreDeep) {
    CRandomIndex index;
    ASSERT_EQ(Parse(index, TwoEntries()), kStatusOk);
    CRandomIndex copy(index);
    CRandomIndex assigned;
    assigned = index;
    index.AddPartitionInfo({.offset = 3, .bodySID = 3});
    EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(copy)));
    EXPECT_TRUE(SameBytes(TwoEntries(), Serialised(assigned)));
}

}  // namespace
}  // namespace kmxf::test
