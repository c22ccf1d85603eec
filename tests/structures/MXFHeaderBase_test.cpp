#include "kmxf/structures/MXFHeaderBase.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "core/Bytes.h"
#include "kmxf/core/Status.h"
#include "structures/FilledRecords.h"
#include "structures/Serialised.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

constexpr uint16_t kNumber = 0x0101, kOptional = 0x0102, kText = 0x0103, kBatch = 0x0104, kVariable = 0x8105;

// A set with an item of every kind.
class Set : public CMXFHeaderBase {
public:
    Set() : CMXFHeaderBase(KeyOf(0xAB)) {
        Declare({{kNumber, Encoded(uint32_t{7})}, {kOptional, Encoded(uint8_t{1}), false}});
        Declare({{kText, std::vector<uint8_t>(6)},
                 {kBatch, Batch({})},
                 {.tag = kVariable, .value = {}, .written = true, .capacity = 4}});
    }
    using CMXFHeaderBase::AppendToArray;
    using CMXFHeaderBase::AppendToBatch;
    using CMXFHeaderBase::Batch;
    using CMXFHeaderBase::Declares;
    using CMXFHeaderBase::OtherItems;
    using CMXFHeaderBase::Parse;
    using CMXFHeaderBase::Store;
    using CMXFHeaderBase::StoreLength;
    using CMXFHeaderBase::StoreRaw;
    using CMXFHeaderBase::StoreText;
    using CMXFHeaderBase::StoreWritten;
    using CMXFHeaderBase::Value;
};

uint16_t SameTag(uint16_t tag) { return tag; }

int32_t Parse(Set& set, const std::vector<uint8_t>& bytes) { return set.Parse(bytes.data(), bytes.size(), SameTag); }

TEST(MXFHeaderBase, SetIsKeyLengthInstanceUIDAndItemsInTheOrderOfTheirDeclaration) {
    const FixedEnvironment environment;
    Set set;
    EXPECT_EQ(set.GetKey(), KeyOf(0xAB));
    EXPECT_EQ(set.GetLength(), 74u);
    EXPECT_TRUE(SameBytes(Hex(R"(
        AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  83 00 00 36
        3C 0A 00 10  00 00 00 00 00 00 40 00 80 00 00 00 00 00 00 01
        01 01 00 04  00 00 00 07
        01 03 00 06  00 00 00 00 00 00
        01 04 00 08  00 00 00 00 00 00 00 10
        81 05 00 00)"),
                          Serialised(set)));
}

TEST(MXFHeaderBase, EverySetHasAnInstanceUIDOfItsOwn) {
    const FixedEnvironment environment;
    const Set first, second;
    EXPECT_EQ(first.GetInstanceUID(), FixedEnvironment::UUID(1));
    EXPECT_EQ(second.GetInstanceUID(), FixedEnvironment::UUID(2));
}

TEST(MXFHeaderBase, NullPointerIsRefused) { EXPECT_EQ(Set().GetData(nullptr), kStatusInvalidArgument); }

TEST(MXFHeaderBase, OptionalItemIsLeftOutWithTagAndLength) {
    Set set;
    EXPECT_EQ(set.StoreWritten(kOptional, true), kStatusOk);
    EXPECT_EQ(set.GetLength(), 79u);
    auto bytes = Serialised(set);
    ASSERT_EQ(bytes.size(), 79u);
    EXPECT_TRUE(SameBytes(Hex("01 02 00 01 01"), std::span(bytes).subspan(48, 5)));
    set.StoreWritten(kOptional, false);
    EXPECT_EQ(set.GetLength(), 74u);
    EXPECT_EQ(Serialised(set).size(), 74u);
}

TEST(MXFHeaderBase, StoredValueReplacesTheDefaultAndKeepsTheLengthCurrent) {
    Set set;
    EXPECT_EQ(set.Store(kNumber, Encoded(uint32_t{0x01020304})), kStatusOk);
    EXPECT_EQ(set.Value(kNumber), Hex("01 02 03 04"));
    EXPECT_EQ(set.GetLength(), 74u);
    EXPECT_EQ(set.Store(kVariable, Hex("AA BB CC")), kStatusOk);
    EXPECT_EQ(set.GetLength(), 77u);
}

TEST(MXFHeaderBase, BatchCountsItsElements) {
    Set set;
    EXPECT_EQ(set.AppendToBatch(kBatch, KeyOf(1)), kStatusOk);
    EXPECT_EQ(set.AppendToBatch(kBatch, KeyOf(2)), kStatusOk);
    EXPECT_EQ(set.GetLength(), 106u);
    EXPECT_EQ(set.Value(kBatch), Hex(R"(
        00 00 00 02 00 00 00 10
        01 01 01 01 01 01 01 01 01 01 01 01 01 01 01 01
        02 02 02 02 02 02 02 02 02 02 02 02 02 02 02 02)"));
    EXPECT_EQ(Set::Batch({KeyOf(1), KeyOf(2)}), set.Value(kBatch));
}

TEST(MXFHeaderBase, CountOfABatchWrapsAt256) {
    Set set;
    for (int i = 0; i < 255; ++i) set.AppendToBatch(kBatch, KeyOf(3));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 FF 00 00 00 10"), std::span(set.Value(kBatch)).first(8)));
    for (int i = 0; i < 2; ++i) set.AppendToBatch(kBatch, KeyOf(3));
    EXPECT_EQ(set.GetLength(), 74u + 257 * 16);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 01 00 00 00 10"), std::span(set.Value(kBatch)).first(8)));
}

TEST(MXFHeaderBase, ArrayOfOtherElementsCountsWithoutWrapping) {
    Set set;
    for (int i = 0; i < 257; ++i) EXPECT_EQ(set.AppendToArray(kBatch, Hex("AA BB CC")), kStatusOk);
    EXPECT_EQ(set.GetLength(), 74u + 257 * 3);
    EXPECT_TRUE(SameBytes(Hex("00 00 01 01 00 00 00 03 AA BB CC AA"), std::span(set.Value(kBatch)).first(12)));
}

TEST(MXFHeaderBase, SetKnowsWhichItemsItDeclares) {
    const Set set;
    EXPECT_TRUE(set.Declares(0x3C0A));
    EXPECT_TRUE(set.Declares(kOptional));
    EXPECT_FALSE(set.Declares(0x0105));
    EXPECT_FALSE(set.Declares(0));
}

TEST(MXFHeaderBase, ItemBeyondItsLengthFieldLosesWhatDoesNotFit) {
    Set set;
    set.Store(kVariable, std::vector<uint8_t>(0xFFFF, 0xEE));
    EXPECT_EQ(set.GetLength(), 74u + 0xFFFF);
    EXPECT_EQ(Serialised(set).size(), 74u + 0xFFFF);
    set.Store(kVariable, std::vector<uint8_t>(0x10002, 0xEE));
    EXPECT_EQ(set.GetLength(), 76u);
    const auto bytes = Serialised(set);
    EXPECT_TRUE(SameBytes(Hex("81 05 00 02 EE EE"), std::span(bytes).last(6)));
}

TEST(MXFHeaderBase, TextIsBigEndianUTF16PaddedWithZeros) {
    Set set;
    EXPECT_TRUE(set.StoreText(kText, "A\xC3\xA9"));
    EXPECT_EQ(set.Value(kText), Hex("00 41 00 E9 00 00"));
    EXPECT_TRUE(set.StoreText(kText, "\xE2\x82\xAC"));
    EXPECT_EQ(set.Value(kText), Hex("20 AC 00 00 00 00"));
    EXPECT_TRUE(set.StoreText(kText, "abc"));
    EXPECT_EQ(set.Value(kText), Hex("00 61 00 62 00 63"));
    EXPECT_TRUE(set.StoreText(kText, ""));
    EXPECT_EQ(set.Value(kText), Hex("00 00 00 00 00 00"));
    EXPECT_EQ(set.GetLength(), 74u);
}

TEST(MXFHeaderBase, TextThatIsTooLongOrMalformedLeavesTheFieldZero) {
    Set set;
    for (const char* text : {"abcd", "a\xFF", "\xC3", "ab\xE2\x82"}) {
        ASSERT_TRUE(set.StoreText(kText, "xyz"));
        EXPECT_FALSE(set.StoreText(kText, text));
        EXPECT_EQ(set.Value(kText), Hex("00 00 00 00 00 00"));
    }
}

TEST(MXFHeaderBase, RawBytesArePaddedWithZerosAndMayFillTheField) {
    Set set;
    EXPECT_TRUE(set.StoreRaw(kText, "ab"));
    EXPECT_EQ(set.Value(kText), Hex("61 62 00 00 00 00"));
    EXPECT_TRUE(set.StoreRaw(kText, "abcdef"));
    EXPECT_EQ(set.Value(kText), Hex("61 62 63 64 65 66"));
    EXPECT_FALSE(set.StoreRaw(kText, "abcdefg"));
    EXPECT_EQ(set.Value(kText), Hex("00 00 00 00 00 00"));
}

TEST(MXFHeaderBase, LengthOfAPacketWithoutItemsIsWhatItIsGiven) {
    Set set;
    set.StoreLength(20);
    EXPECT_EQ(set.GetLength(), 20u);
}

TEST(MXFHeaderBase, SizeThatItsItemsDoNotFillIsNotSerialised) {
    Set set;
    uint8_t* data = nullptr;
    set.StoreLength(73);
    EXPECT_EQ(set.GetData(&data), kStatusNoMemory);
    set.StoreLength(75);
    EXPECT_EQ(set.GetData(&data), kStatusNoMemory);
    EXPECT_EQ(data, nullptr);
}

TEST(MXFHeaderBase, CopiesAreDeepAndKeepTheInstanceUID) {
    Set set;
    set.AppendToBatch(kBatch, KeyOf(1));
    const auto before = Serialised(set);
    Set copy(set);
    Set assigned;
    assigned = set;
    set.Store(kNumber, Encoded(uint32_t{8}));
    set.AppendToBatch(kBatch, KeyOf(2));
    EXPECT_TRUE(SameBytes(before, Serialised(copy)));
    EXPECT_TRUE(SameBytes(before, Serialised(assigned)));
    EXPECT_EQ(copy.GetInstanceUID(), set.GetInstanceUID());
    EXPECT_EQ(assigned.GetInstanceUID(), set.GetInstanceUID());
}

// Items in another order than the set's own, one unknown, each with a value of its own.
std::vector<uint8_t> ForeignSet() {
    return Hex(R"(
        AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  83 00 00 47
        81 05 00 03  AA BB CC
        77 77 00 05  01 02 03 04 05
        01 02 00 01  09
        3C 0A 00 10  C0 C1 C2 C3 C4 C5 C6 C7 C8 C9 CA CB CC CD CE CF
        01 03 00 06  00 61 00 62 00 63
        01 04 00 08  00 00 00 00 00 00 00 10
        01 01 00 04  11 22 33 44)");
}

TEST(MXFHeaderBase, ParsedSetTakesItemsInAnyOrderAndWritesThemInItsOwn) {
    Set set;
    ASSERT_EQ(Parse(set, ForeignSet()), kStatusOk);
    EXPECT_EQ(
        set.GetInstanceUID(),
        (MXFKEYTag{{0xC0, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF}}));
    EXPECT_TRUE(SameBytes(Hex(R"(
        AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  83 00 00 3E
        3C 0A 00 10  C0 C1 C2 C3 C4 C5 C6 C7 C8 C9 CA CB CC CD CE CF
        01 01 00 04  11 22 33 44
        01 02 00 01  09
        01 03 00 06  00 61 00 62 00 63
        01 04 00 08  00 00 00 00 00 00 00 10
        81 05 00 03  AA BB CC)"),
                          Serialised(set)));
}

TEST(MXFHeaderBase, ItemsThatAreMissingKeepTheirValue) {
    Set set;
    ASSERT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  08  01 01 00 04 00 00 00 09")),
              kStatusOk);
    EXPECT_EQ(set.Value(kNumber), Hex("00 00 00 09"));
    EXPECT_EQ(set.GetLength(), 74u);
    ASSERT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  00")), kStatusOk);
    EXPECT_EQ(set.Value(kNumber), Hex("00 00 00 09"));
}

TEST(MXFHeaderBase, ItemsAreFoundUnderTheTagsOfTheFile) {
    Set set;
    const auto bytes = Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  06  90 00 00 02 12 34");
    ASSERT_EQ(
        set.Parse(bytes.data(), bytes.size(), [](uint16_t tag) { return tag == kVariable ? uint16_t{0x9000} : tag; }),
        kStatusOk);
    EXPECT_EQ(set.Value(kVariable), Hex("12 34"));
}

TEST(MXFHeaderBase, ShorterValueOfAFixedFieldIsPadded) {
    Set set;
    set.StoreText(kText, "abc");
    ASSERT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  06  01 03 00 02 00 7A")), kStatusOk);
    EXPECT_EQ(set.Value(kText), Hex("00 7A 00 00 00 00"));
}

TEST(MXFHeaderBase, ValueWiderThanItsFieldIsRefused) {
    Set set;
    EXPECT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  09  01 01 00 05 00 00 00 00 09")),
              kStatusFailure);
    EXPECT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  08  81 05 00 04 01 02 03 04")),
              kStatusOk);
    EXPECT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  09  81 05 00 05 01 02 03 04 05")),
              kStatusFailure);
}

TEST(MXFHeaderBase, AnotherKeyOrALengthThatLeadsOutsideIsRefused) {
    Set set;
    auto bytes = ForeignSet();
    bytes[15] = 0xAC;
    EXPECT_EQ(Parse(set, bytes), kStatusFailure);
    bytes = ForeignSet();
    bytes[19] = 0x48;
    EXPECT_EQ(Parse(set, bytes), kStatusFailure);
    EXPECT_EQ(Parse(set, Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  05  01 01 00 04 00")), kStatusFailure);
}

TEST(MXFHeaderBase, ItemOfAnUnknownTagIsRefusedOnRequest) {
    Set set;
    const auto foreign = ForeignSet();
    EXPECT_EQ(set.Parse(foreign.data(), foreign.size(), SameTag, Set::OtherItems::kRefuse), kStatusFailure);
    const auto own = Serialised(set);
    EXPECT_EQ(set.Parse(own.data(), own.size(), SameTag, Set::OtherItems::kRefuse), kStatusOk);
}

TEST(MXFHeaderBase, ItemThatTheFileHasNoTagForIsNotFoundUnderTagZero) {
    Set set;
    const auto bytes = Hex("AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB AB  06  00 00 00 02 12 34");
    EXPECT_EQ(set.Parse(bytes.data(), bytes.size(), [](uint16_t) { return uint16_t{0}; }), kStatusOk);
    EXPECT_EQ(set.Value(kVariable), Hex(""));
}

TEST(MXFHeaderBase, NullPointerIsNotParsed) {
    Set set;
    EXPECT_EQ(set.Parse(nullptr, 100, SameTag), kStatusInvalidArgument);
}

TEST(MXFHeaderBase, SetCutAtEveryByteIsRefusedAndNothingTakenOver) {
    const auto whole = ForeignSet();
    Set set;
    const auto before = Serialised(set);
    for (size_t size = 1; size < whole.size(); ++size) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Parse(set, cut), kStatusFailure) << size;
        auto shortened = cut;
        if (size >= 20) shortened[19] = static_cast<uint8_t>(size - 20);
        Set other(set);
        if (Parse(other, shortened) == kStatusOk) continue;
        EXPECT_TRUE(SameBytes(before, Serialised(other))) << size;
    }
    EXPECT_EQ(set.Parse(whole.data(), 0, SameTag), kStatusFailure);
    EXPECT_TRUE(SameBytes(before, Serialised(set)));
}

TEST(MXFHeaderBase, RandomBytesBehindTheKeyStayWithinTheBuffer) {
    std::mt19937 random(3);
    for (int i = 0; i < 500; ++i) {
        auto bytes = ForeignSet();
        for (int hits = 0; hits < 4; ++hits)
            bytes[16 + random() % (bytes.size() - 16)] = static_cast<uint8_t>(random());
        Set set;
        Parse(set, bytes);
        EXPECT_LE(set.GetLength(), 83u);
    }
}

}  // namespace
}  // namespace kmxf::test
