#include "kmxf/structures/IndexCommon.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Serialised.h"
#include "kmxf/core/Status.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

const std::string kKey = "060E2B34 02530101 0D010201 01100100";

// A segment's items, InstanceUID 1, all at their defaults.
const std::string kFixedItems = "3C0A 0010" + UID(1) + R"(
    3F0B 0008 00000000 00000000   // IndexEditRate
    3F0C 0008 0000000000000000    // IndexStartPosition
    3F0D 0008 0000000000000000    // IndexDuration
    3F05 0004 00000000            // EditUnitByteCount
    3F06 0004 00000001            // IndexSID
    3F07 0004 00000002            // BodySID
)";

// A buffer of exactly these bytes, so that a read past its end is seen.
int32_t Parse(CIndexCommon& segment, const std::vector<uint8_t>& bytes) {
    return segment.SetData(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

CIndexCommon Variable() { return CIndexCommon(1, 0, 0, 1); }
CIndexCommon Constant() { return CIndexCommon(1, 0, 0, 0); }

// Two slices, a delta entry, and two index entries.
CIndexCommon Sliced() {
    CIndexCommon segment = Variable();
    segment.SetSliceCount(2);
    segment.AddDeltaEntry(0, 0, 0);
    segment.AddIndexEntry(1, -2, 0x33, 0x100);
    segment.AddIndexEntry(-1, 0, 0xC0, 0x200);
    return segment;
}

TEST(IndexCommon, ConstantRateSegmentIs100BytesWithoutEntries) {
    FixedEnvironment fixed;
    CIndexCommon segment(1, 0, 0, 0);
    EXPECT_EQ(segment.GetLength(), 100u);
    EXPECT_TRUE(SameBytes(Hex(kKey + "83000050" + kFixedItems), Serialised(segment)));
}

TEST(IndexCommon, EveryFixedItemIsWrittenBigEndian) {
    FixedEnvironment fixed;
    CIndexCommon segment(0, 1, 0, 0);
    EXPECT_EQ(segment.SetEditRate({30000, 1001}), kStatusOk);
    EXPECT_EQ(segment.SetStartPosition(0x0102030405060708), kStatusOk);
    EXPECT_EQ(segment.SetDuration(-2), kStatusOk);
    EXPECT_EQ(segment.SetEditUnitByteCount(0x11223344), kStatusOk);
    EXPECT_EQ(segment.SetIndexSID(103), kStatusOk);
    EXPECT_EQ(segment.SetBodySID(0x80000003), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(kKey + "83000050 3C0A 0010" + UID(1) + R"(
        3F0B 0008 00007530 000003E9
        3F0C 0008 0102030405060708
        3F0D 0008 FFFFFFFFFFFFFFFE
        3F05 0004 11223344
        3F06 0004 00000067
        3F07 0004 80000003
    )"),
                          Serialised(segment)));
    EXPECT_EQ(segment.GetEditRate(), (MXFRATIONALTag{30000, 1001}));
    EXPECT_EQ(segment.GetStartPosition(), 0x0102030405060708);
    EXPECT_EQ(segment.GetDuration(), -2);
    EXPECT_EQ(segment.GetEditUnitByteCount(), 0x11223344u);
    EXPECT_EQ(segment.GetIndexSID(), 103u);
    EXPECT_EQ(segment.GetBodySID(), 0x80000003u);
}

TEST(IndexCommon, FlagOrTwoElementsMakeArrays) {
    for (const auto& [picture, sound, data, flag, length] : std::vector<std::array<uint32_t, 5>>{
             {0, 0, 0, 0, 100},
             {1, 0, 0, 0, 100},
             {0, 1, 0, 0, 100},
             {0, 0, 1, 0, 100},
             {1, 0, 0, 1, 124},
             {0, 0, 0, 1, 124},
             {1, 0, 0, 0xFF, 124},
             {1, 1, 0, 0, 124},
             {0, 0, 2, 0, 124},
             {0, 2, 0, 0, 124},
             {0xFFFFFFFF, 1, 0, 0, 124},
         }) {
        EXPECT_EQ(CIndexCommon(picture, sound, data, static_cast<uint8_t>(flag)).GetLength(), length)
            << picture << ' ' << sound << ' ' << data << ' ' << flag;
    }
}

TEST(IndexCommon, VariableSegmentWithoutEntriesHasEmptyArrays) {
    FixedEnvironment fixed;
    CIndexCommon segment = Variable();
    EXPECT_TRUE(SameBytes(Hex(kKey + "83000068" + kFixedItems + R"(
        3F09 0008 00000000 00000006
        3F0A 0008 00000000 0000000B
    )"),
                          Serialised(segment)));
}

TEST(IndexCommon, DeltaEntryIsAlwaysMinusOneZeroZero) {
    FixedEnvironment fixed;
    CIndexCommon segment = Variable();
    EXPECT_EQ(segment.AddDeltaEntry(3, 4, 5), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(kKey + "8300006E" + kFixedItems + R"(
        3F09 000E 00000001 00000006 FF 00 00000000
        3F0A 0008 00000000 0000000B
    )"),
                          Serialised(segment)));
    EXPECT_EQ(segment.AddDeltaEntry(0, 0, 0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(segment.GetLength(), 136u);
    ASSERT_EQ(segment.GetDeltaEntryNum(), 2u);
    for (uint32_t i = 0; i < 2; ++i) {
        MXFDELTAENTRYTag entry{5, 5, 5};
        EXPECT_EQ(segment.GetDeltaEntry(i, &entry), kStatusOk);
        EXPECT_EQ(entry, (MXFDELTAENTRYTag{-1, 0, 0}));
    }
}

TEST(IndexCommon, IndexEntriesAreElevenBytesEach) {
    FixedEnvironment fixed;
    CIndexCommon segment = Variable();
    segment.AddDeltaEntry(0, 0, 0);
    EXPECT_EQ(segment.AddIndexEntry(2, -3, 0x3B, 0x0102030405060708), kStatusOk);
    EXPECT_EQ(segment.AddIndexEntry(-128, 127, 0xC0, 0xFFFFFFFFFFFFFFFF), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(kKey + "83000084" + kFixedItems + R"(
        3F09 000E 00000001 00000006 FF 00 00000000
        3F0A 001E 00000002 0000000B
            02 FD 3B 0102030405060708
            80 7F C0 FFFFFFFFFFFFFFFF
    )"),
                          Serialised(segment)));
    ASSERT_EQ(segment.GetIndexEntryNum(), 2u);
    MXFINDEXENTRYTag entry;
    entry.sliceOffset[15] = 7;
    EXPECT_EQ(segment.GetIndexEntry(0, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{2, -3, 0x3B, 0x0102030405060708, {}}));
    EXPECT_EQ(segment.GetIndexEntry(1, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{-128, 127, 0xC0, 0xFFFFFFFFFFFFFFFF, {}}));
}

TEST(IndexCommon, SegmentOf60FramesIs790Bytes) {
    CIndexCommon segment = Variable();
    segment.AddDeltaEntry(0, 0, 0);
    for (uint32_t frame = 0; frame < 60; ++frame) segment.AddIndexEntry(0, 0, 0x80, uint64_t{frame} * 1000);
    const auto bytes = Serialised(segment);
    EXPECT_EQ(bytes.size(), 790u);
    EXPECT_TRUE(SameBytes(Hex("83000302"), std::span(bytes).subspan(16, 4)));
    EXPECT_TRUE(SameBytes(Hex("3F0A 029C 0000003C 0000000B"), std::span(bytes).subspan(118, 12)));
    EXPECT_TRUE(SameBytes(Hex("00 00 80 000000000000E678"), std::span(bytes).last(11)));
}

TEST(IndexCommon, SliceCountStandsBeforeTheArraysAndWidensEntries) {
    FixedEnvironment fixed;
    CIndexCommon segment = Variable();
    EXPECT_EQ(segment.SetSliceCount(1), kStatusOk);
    segment.AddDeltaEntry(0, 0, 0);
    segment.AddIndexEntry(0, 0, 0x80, 0x10);
    EXPECT_EQ(segment.GetLength(), 150u);
    EXPECT_TRUE(SameBytes(Hex(kKey + "83000082" + kFixedItems + R"(
        3F08 0001 01
        3F09 000E 00000001 00000006 FF 00 00000000
        3F0A 0017 00000001 0000000F  00 00 80 0000000000000010 00000000
    )"),
                          Serialised(segment)));
}

TEST(IndexCommon, SliceCountOfAConstantSegmentAddsFiveBytes) {
    CIndexCommon segment = Constant();
    EXPECT_EQ(segment.SetSliceCount(3), kStatusOk);
    EXPECT_EQ(segment.GetLength(), 105u);
    EXPECT_EQ(segment.GetSliceCount(), 3);
    EXPECT_EQ(segment.SetSliceCount(0), kStatusOk);
    EXPECT_EQ(segment.GetLength(), 100u);
}

TEST(IndexCommon, ChangedSliceCountKeepsEntriesAndTheirFirstOffsets) {
    const auto bytes = Hex(kKey + "83000092" + kFixedItems + R"(
        3F08 0001 02
        3F09 0008 00000000 00000006
        3F0A 002A 00000002 00000013
            01 02 03 0000000000000004 00000005 00000006
            07 08 09 000000000000000A 0000000B 0000000C
    )");
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, bytes), kStatusOk);
    MXFINDEXENTRYTag entry;

    EXPECT_EQ(segment.SetSliceCount(16), kStatusOk);
    ASSERT_EQ(segment.GetIndexEntryNum(), 2u);
    EXPECT_EQ(segment.GetIndexEntry(1, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{7, 8, 9, 10, {11, 12}}));

    EXPECT_EQ(segment.SetSliceCount(1), kStatusOk);
    ASSERT_EQ(segment.GetIndexEntryNum(), 2u);
    EXPECT_EQ(segment.GetIndexEntry(0, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{1, 2, 3, 4, {5}}));
    EXPECT_EQ(segment.GetIndexEntry(1, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{7, 8, 9, 10, {11}}));
    EXPECT_EQ(segment.GetLength(), 100u + 5 + 12 + 12 + 2 * 15);
}

TEST(IndexCommon, MoreThan16SlicesAreRefused) {
    CIndexCommon segment = Sliced();
    const auto before = Serialised(segment);
    EXPECT_EQ(segment.SetSliceCount(17), kStatusInvalidArgument);
    EXPECT_EQ(segment.SetSliceCount(255), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(before, Serialised(segment)));
}

TEST(IndexCommon, EntriesOfAConstantSegmentAreCountedAndNotWritten) {
    CIndexCommon segment = Constant();
    segment.AddDeltaEntry(0, 0, 0);
    segment.AddIndexEntry(0, 0, 0, 0);
    EXPECT_EQ(segment.GetDeltaEntryNum(), 1u);
    EXPECT_EQ(segment.GetIndexEntryNum(), 1u);
    EXPECT_EQ(Serialised(segment).size(), 100u);
}

TEST(IndexCommon, LengthOfTheIndexArrayHas16Bits) {
    CIndexCommon segment = Variable();
    for (int i = 0; i < 5957; ++i) segment.AddIndexEntry(0, 0, 0, 0);
    EXPECT_EQ(segment.GetLength(), 100u + 12 + 4 + 65535);
    EXPECT_EQ(Serialised(segment).size(), 65651u);
    segment.AddIndexEntry(0, 0, 0, 0);  // 65546 bytes: 10 are left
    EXPECT_EQ(segment.GetIndexEntryNum(), 5958u);
    EXPECT_EQ(segment.GetLength(), 100u + 12 + 4 + 10);
    const auto bytes = Serialised(segment);
    EXPECT_TRUE(SameBytes(Hex("3F0A 000A 00001746 0000000B 0000"), std::span(bytes).last(14)));
}

TEST(IndexCommon, GetDataRefusesNull) {
    CIndexCommon segment = Variable();
    EXPECT_EQ(segment.GetData(nullptr), kStatusInvalidArgument);
}

TEST(IndexCommon, EntriesOutOfRangeOrWithoutAPlaceToGoAreRefused) {
    CIndexCommon segment = Sliced();
    MXFDELTAENTRYTag delta{9, 9, 9};
    MXFINDEXENTRYTag entry{9, 9, 9, 9, {}};
    EXPECT_EQ(segment.GetDeltaEntry(0, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(segment.GetDeltaEntry(1, &delta), kStatusInvalidArgument);
    EXPECT_EQ(segment.GetDeltaEntry(0xFFFFFFFF, &delta), kStatusInvalidArgument);
    EXPECT_EQ(segment.GetIndexEntry(0, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(segment.GetIndexEntry(2, &entry), kStatusInvalidArgument);
    EXPECT_EQ(segment.GetIndexEntry(0xFFFFFFFF, &entry), kStatusInvalidArgument);
    EXPECT_EQ(delta, (MXFDELTAENTRYTag{9, 9, 9}));
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{9, 9, 9, 9, {}}));
}

TEST(IndexCommon, CopiesAreDeepAndKeepTheInstanceUID) {
    CIndexCommon original = Sliced();
    const auto bytes = Serialised(original);
    CIndexCommon copy(original);
    CIndexCommon assigned = Constant();
    assigned = original;
    original.AddIndexEntry(0, 0, 0, 0);
    original.SetSliceCount(0);
    EXPECT_TRUE(SameBytes(bytes, Serialised(copy)));
    EXPECT_TRUE(SameBytes(bytes, Serialised(assigned)));
}

TEST(IndexCommon, WhatIsParsedIsWrittenBackTheSame) {
    CIndexCommon filled = Sliced();
    filled.SetEditRate({25, 1});
    filled.SetStartPosition(1000);
    filled.SetDuration(2);
    filled.SetIndexSID(101);
    filled.SetBodySID(1);
    CIndexCommon constant = Constant(), variable = Variable();
    constant.SetEditUnitByteCount(144000);
    for (CIndexCommon* segment : {&constant, &variable, &filled}) {
        const auto bytes = Serialised(*segment);
        CIndexCommon other = Sliced();  // nothing of it must be left
        EXPECT_EQ(Parse(other, bytes), kStatusOk);
        EXPECT_EQ(other.GetInstanceUID(), segment->GetInstanceUID());
        EXPECT_TRUE(SameBytes(bytes, Serialised(other)));
        CIndexCommon unsized = Sliced();
        EXPECT_EQ(unsized.SetData(bytes.data()), kStatusOk);
        EXPECT_TRUE(SameBytes(bytes, Serialised(unsized)));
    }
}

TEST(IndexCommon, ParsingReplacesEverything) {
    CIndexCommon segment = Sliced();
    segment.SetDuration(50);
    ASSERT_EQ(Parse(segment, Hex(kKey + "83000008 3F06 0004 00000007")), kStatusOk);
    EXPECT_EQ(segment.GetIndexSID(), 7u);
    EXPECT_EQ(segment.GetBodySID(), 2u);
    EXPECT_EQ(segment.GetDuration(), 0);
    EXPECT_EQ(segment.GetSliceCount(), 0);
    EXPECT_EQ(segment.GetDeltaEntryNum(), 0u);
    EXPECT_EQ(segment.GetIndexEntryNum(), 0u);
    EXPECT_EQ(segment.GetLength(), 100u);
}

TEST(IndexCommon, NullOrAnotherKeyIsRefusedAndChangesNothing) {
    CIndexCommon segment = Sliced();
    auto bytes = Serialised(segment);
    const auto before = bytes;
    EXPECT_EQ(segment.SetData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(segment.SetData(nullptr, 100), kStatusInvalidArgument);
    for (size_t i = 0; i < 16; ++i) {
        bytes[i] ^= 1;
        EXPECT_EQ(segment.SetData(bytes.data()), kStatusInvalidArgument) << i;
        EXPECT_EQ(Parse(segment, bytes), kStatusInvalidArgument) << i;
        bytes[i] ^= 1;
    }
    EXPECT_TRUE(SameBytes(before, Serialised(segment)));
}

TEST(IndexCommon, SegmentCutAtAnyByteIsRefusedAndChangesNothing) {
    CIndexCommon whole = Sliced();
    const auto bytes = Serialised(whole);
    CIndexCommon segment = Constant();
    const auto before = Serialised(segment);
    for (size_t size = 0; size < bytes.size(); ++size) {
        const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Parse(segment, cut), kStatusInvalidArgument) << size;
    }
    EXPECT_TRUE(SameBytes(before, Serialised(segment)));
}

TEST(IndexCommon, ShortFormLengthIsRead) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + "10 3F05 0004 00000009 3F07 0004 00000008")), kStatusOk);
    EXPECT_EQ(segment.GetEditUnitByteCount(), 9u);
    EXPECT_EQ(segment.GetBodySID(), 8u);
}

// The end of the walk is 20 bytes and the length behind the start, whatever form the length has.
TEST(IndexCommon, WalkOfAShortFormSegmentGoesThreeBytesTooFar) {
    const auto bytes = Hex(kKey + "08 3F05 0004 00000009" + "3F07 0004 00000008");
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, bytes), kStatusOk);
    EXPECT_EQ(segment.GetEditUnitByteCount(), 9u);
    EXPECT_EQ(segment.GetBodySID(), 8u);  // the item behind the segment
    ASSERT_EQ(segment.SetData(bytes.data()), kStatusOk);
    EXPECT_EQ(segment.GetBodySID(), 2u);  // without a size only the segment is looked at
}

TEST(IndexCommon, WalkOfASegmentWithNineByteLengthEndsFiveBytesEarly) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + "88 0000000000000010 3F05 0004 00000009 3F07 0004 00000008")), kStatusOk);
    EXPECT_EQ(segment.GetEditUnitByteCount(), 9u);
    EXPECT_EQ(segment.GetBodySID(), 8u);  // begins before the end
    ASSERT_EQ(Parse(segment, Hex(kKey + "88 000000000000000D 3F05 0004 00000009 3F08 0001 02")), kStatusOk);
    EXPECT_EQ(segment.GetEditUnitByteCount(), 9u);
    EXPECT_EQ(segment.GetSliceCount(), 0);  // begins at the end
}

TEST(IndexCommon, ValueOfAnotherItemIsReadAsItems) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + R"(83000014
        3F0E 0008  3F06 0004 00000005    // in the value of an item of this library's none
        3F07 0004 00000006
    )")),
              kStatusOk);
    EXPECT_EQ(segment.GetIndexSID(), 5u);
    EXPECT_EQ(segment.GetBodySID(), 6u);
    // A value of two bytes leaves the walk out of step: 0000 3F07, 0004 0000, 0006 and no more.
    ASSERT_EQ(Parse(segment, Hex(kKey + "8300000E 3F0E 0002 0000 3F07 0004 00000006")), kStatusOk);
    EXPECT_EQ(segment.GetBodySID(), 2u);
}

TEST(IndexCommon, StatedItemLengthsAndEntrySizesAreNotLookedAt) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + R"(83000039
        3F05 FFFF 00000009
        3F09 0000 00000001 000000FF 01 02 00000003
        3F0A 0001 00000001 00000000 04 05 06 0000000000000007
        3F07 0000 0000000A
    )")),
              kStatusOk);
    EXPECT_EQ(segment.GetEditUnitByteCount(), 9u);
    EXPECT_EQ(segment.GetBodySID(), 10u);
    ASSERT_EQ(segment.GetDeltaEntryNum(), 1u);
    MXFDELTAENTRYTag delta;
    EXPECT_EQ(segment.GetDeltaEntry(0, &delta), kStatusOk);
    EXPECT_EQ(delta, (MXFDELTAENTRYTag{1, 2, 3}));
    ASSERT_EQ(segment.GetIndexEntryNum(), 1u);
    MXFINDEXENTRYTag entry;
    EXPECT_EQ(segment.GetIndexEntry(0, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{4, 5, 6, 7, {}}));
}

TEST(IndexCommon, ArraysAreWrittenBackOnceTheyWereRead) {
    FixedEnvironment fixed;
    CIndexCommon onlyDelta = Constant();  // UUID 1
    ASSERT_EQ(Parse(onlyDelta, Hex(kKey + "83000026 3C0A 0010" + UID(1) + "3F09 000E 00000001 00000006 010200000003")),
              kStatusOk);
    EXPECT_TRUE(SameBytes(Hex(kKey + "83000062" + kFixedItems + "3F09 000E 00000001 00000006 01 02 00000003"),
                          Serialised(onlyDelta)));
}

TEST(IndexCommon, SliceCountBehindTheEntriesDoesNotWidenWhatIsRead) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + R"(8300001C
        3F0A 0013 00000001 0000000B 04 05 06 0000000000000007
        3F08 0001 02
    )")),
              kStatusOk);
    EXPECT_EQ(segment.GetSliceCount(), 2);
    ASSERT_EQ(segment.GetIndexEntryNum(), 1u);
    MXFINDEXENTRYTag entry;
    EXPECT_EQ(segment.GetIndexEntry(0, &entry), kStatusOk);
    EXPECT_EQ(entry, (MXFINDEXENTRYTag{4, 5, 6, 7, {}}));
    EXPECT_EQ(segment.GetLength(), 100u + 5 + 12 + 19);
}

TEST(IndexCommon, SecondArrayReplacesTheFirst) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + R"(83000032
        3F0A 001E 00000002 0000000B  01 01 01 0000000000000001  02 02 02 0000000000000002
        3F08 0001 00
        3F0A 0008 00000000 0000000B
    )")),
              kStatusOk);
    EXPECT_EQ(segment.GetIndexEntryNum(), 0u);
}

TEST(IndexCommon, CountsThatLieGiveTheEntriesThatAreThere) {
    CIndexCommon segment = Constant();
    ASSERT_EQ(Parse(segment, Hex(kKey + R"(83000021
        3F0A FFFF FFFFFFFF 0000000B  01 01 01 0000000000000001  02 02 02 00000000000000  // the last one is cut
    )")),
              kStatusOk);
    EXPECT_EQ(segment.GetIndexEntryNum(), 1u);
    EXPECT_EQ(segment.GetLength(), 100u + 12 + 11);

    ASSERT_EQ(Parse(segment, Hex(kKey + "83000018 3F09 FFFF FFFFFFFF 00000006 01 02 00000003 01 02 00000004")),
              kStatusOk);
    EXPECT_EQ(segment.GetDeltaEntryNum(), 2u);
    EXPECT_EQ(segment.GetIndexEntryNum(), 0u);

    ASSERT_EQ(Parse(segment, Hex(kKey + "83000011 3F08 0001 10 3F0A 0008 FFFFFFFF 0000004B")), kStatusOk);
    EXPECT_EQ(segment.GetIndexEntryNum(), 0u);
    EXPECT_EQ(segment.GetSliceCount(), 16);
}

TEST(IndexCommon, SegmentThatEndsWithinAnItemIsReadUpToThere) {
    CIndexCommon segment = Constant();
    for (const char* rest : {"3F", "3F07", "3F0700", "3F070004", "3F070004000000", "3F09000E00000001", "3F0A0013",
                             "3C0A00100000", "3F080001"}) {
        const auto tail = Hex(rest);
        auto bytes = Hex(kKey + "83000008 3F06 0004 00000007");
        bytes.insert(bytes.end(), tail.begin(), tail.end());
        bytes[19] = static_cast<uint8_t>(8 + tail.size());
        ASSERT_EQ(Parse(segment, bytes), kStatusOk) << rest;
        EXPECT_EQ(segment.GetIndexSID(), 7u) << rest;
        EXPECT_EQ(segment.GetLength(), 100u) << rest;
    }
}

TEST(IndexCommon, MoreThan16SlicesInASegmentAreRefused) {
    CIndexCommon segment = Sliced();
    const auto before = Serialised(segment);
    EXPECT_EQ(Parse(segment, Hex(kKey + "83000005 3F08 0001 11")), kStatusInvalidArgument);
    EXPECT_EQ(Parse(segment, Hex(kKey + "83000005 3F08 0001 FF")), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(before, Serialised(segment)));
    EXPECT_EQ(Parse(segment, Hex(kKey + "83000005 3F08 0001 10")), kStatusOk);
    EXPECT_EQ(segment.GetSliceCount(), 16);
}

TEST(IndexCommon, LengthsThatLeadOutsideAreRefused) {
    CIndexCommon segment = Constant();
    for (const char* length :
         {"83FFFFFF", "8700000100000000", "88FFFFFFFFFFFFFFFF", "887FFFFFFFFFFFFFFF", "FF00", "7F"})
        EXPECT_EQ(Parse(segment, Hex((kKey + length).append(kFixedItems))), kStatusInvalidArgument) << length;
}

TEST(IndexCommon, DamagedBytesNeverLeadOutside) {
    CIndexCommon whole = Sliced();
    const auto bytes = Serialised(whole);
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        auto damaged = bytes;
        for (int i = 0; i < 3; ++i) damaged[20 + random() % (damaged.size() - 20)] = static_cast<uint8_t>(random());
        CIndexCommon segment = Constant();
        const int32_t status = Parse(segment, damaged);
        EXPECT_TRUE(status == kStatusOk || status == kStatusInvalidArgument);
        EXPECT_LE(segment.GetIndexEntryNum(), damaged.size() / 11);
        Serialised(segment);
    }
}

}  // namespace
}  // namespace kmxf::test
