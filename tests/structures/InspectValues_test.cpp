#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "core/LocalTags.h"
#include "kmxf/structures/Inspect.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

InspectedItem Item(ValueKind kind, const std::string& hex) {
    InspectedItem item;
    item.kind = kind;
    item.value = Hex(hex);
    item.length = item.value.size();
    return item;
}
std::string Text(ValueKind kind, const std::string& hex) { return Item(kind, hex).Text(); }

TEST(InspectValues, NumbersOfAnyWidthArePrintedInDecimal) {
    EXPECT_EQ(Text(ValueKind::kUnsigned, "FF"), "255");
    EXPECT_EQ(Text(ValueKind::kUnsigned, "0102"), "258");
    EXPECT_EQ(Text(ValueKind::kUnsigned, "FFFFFFFF"), "4294967295");
    EXPECT_EQ(Text(ValueKind::kUnsigned, "FFFFFFFFFFFFFFFF"), "18446744073709551615");
    EXPECT_EQ(Text(ValueKind::kSigned, "FF"), "-1");
    EXPECT_EQ(Text(ValueKind::kSigned, "8000000000000000"), "-9223372036854775808");
    EXPECT_EQ(Text(ValueKind::kSigned, "0000000000000064"), "100");
    EXPECT_EQ(Text(ValueKind::kBoolean, "00"), "false");
    EXPECT_EQ(Text(ValueKind::kBoolean, "02"), "true");
    EXPECT_EQ(Text(ValueKind::kVersion, "0103"), "1.3");
}

TEST(InspectValues, RationalsAndTimesHaveTheirUsualForms) {
    EXPECT_EQ(Text(ValueKind::kRational, "00007530 000003E9"), "30000/1001");
    EXPECT_EQ(Text(ValueKind::kRational, "FFFFFFFF 80000000"), "-1/-2147483648");
    EXPECT_EQ(Text(ValueKind::kTimestamp, "07DD 0C 1F 17 3B 3A 00"), "2013-12-31T23:59:58");
    EXPECT_EQ(Text(ValueKind::kTimestamp, "07DD 0C 1F 17 3B 3A 03"), "2013-12-31T23:59:58.012");
    EXPECT_EQ(Text(ValueKind::kTimestamp, "0000 00 00 00 00 00 00"), "0000-00-00T00:00:00");
    EXPECT_EQ(Text(ValueKind::kTimestamp, "FFFF FF FF FF FF FF FF"), "65535-255-255T255:255:255.1020");
}

TEST(InspectValues, IdentifiersArePrintedInUpperCaseHex) {
    EXPECT_EQ(Text(ValueKind::kKey, "060E2B34 abcdef01 02030405 06070809"), "060E2B34ABCDEF010203040506070809");
    const std::string umid = "060A2B340101010501010F2013000000000102030405060708090A0B0C0D0E0F";
    EXPECT_EQ(Text(ValueKind::kUMID, umid), umid);
}

TEST(InspectValues, UTF16BecomesUTF8UpToItsFirstZero) {
    EXPECT_EQ(Text(ValueKind::kUTF16, "0041 00E9 3042 0000 0042"), "A\xC3\xA9\xE3\x81\x82");
    EXPECT_EQ(Text(ValueKind::kUTF16, "D83D DE00"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(Text(ValueKind::kUTF16, "0041"), "A");
    EXPECT_EQ(Text(ValueKind::kUTF16, ""), "");
    EXPECT_EQ(Text(ValueKind::kUTF16, "0000"), "");
    EXPECT_EQ(Text(ValueKind::kUTF16, "0041 00"), "004100");
}

TEST(InspectValues, SingleByteTextIsPrintedWhenItIsASCII) {
    EXPECT_EQ(Text(ValueKind::kText, "656E00"), "en");
    EXPECT_EQ(Text(ValueKind::kText, "3C783E0A"), "<x>\n");
    EXPECT_EQ(Text(ValueKind::kText, "41E942"), "41E942");
    EXPECT_EQ(Text(ValueKind::kText, "411B"), "411B");
    EXPECT_EQ(Text(ValueKind::kText, "41 00 FF"), "A");
}

TEST(InspectValues, ArraysArePrintedAsLists) {
    EXPECT_EQ(Text(ValueKind::kNumbers, "00000002 00000004 00000017 FFFFFFFF"), "[23, -1]");
    EXPECT_EQ(Text(ValueKind::kKeys, "00000001 00000010 000102030405060708090A0B0C0D0E0F"),
              "[000102030405060708090A0B0C0D0E0F]");
    EXPECT_EQ(Text(ValueKind::kKeys, "00000000 00000000"), "[]");
    EXPECT_EQ(Text(ValueKind::kKeys, "00000001 00000004 AABBCCDD"), "[AABBCCDD]");
    EXPECT_EQ(Text(ValueKind::kDeltaEntries, "00000002 00000006 FF 00 00000000 01 02 FFFFFFFF"),
              "[(-1, 0, 0), (1, 2, 4294967295)]");
    EXPECT_EQ(Text(ValueKind::kIndexEntries, "00000001 0000000B FF 01 C0 0000000000000010"), "[(-1, 1, 0xC0, 16)]");
    EXPECT_EQ(Text(ValueKind::kIndexEntries, "00000001 00000003 FF 01 C0"), "[FF01C0]");
}

TEST(InspectValues, ArrayOfAbsurdCountHasTheElementsThatAreThere) {
    EXPECT_THAT(Item(ValueKind::kKeys, "FFFFFFFF 00000010 000102030405060708090A0B0C0D0E0F AA").Elements(), SizeIs(1));
    EXPECT_THAT(Item(ValueKind::kNumbers, "FFFFFFFF 00000000 00000001").Elements(), IsEmpty());
    EXPECT_THAT(Item(ValueKind::kNumbers, "FFFFFFFF FFFFFFFF 00000001").Elements(), IsEmpty());
    EXPECT_THAT(Item(ValueKind::kNumbers, "00000002 00000001 01 02 03").Elements(), SizeIs(2));
    EXPECT_EQ(Text(ValueKind::kKeys, "00000001 000000"), "00000001000000");
    EXPECT_THAT(Item(ValueKind::kKeys, "00000001 000000").Elements(), IsEmpty());
    EXPECT_THAT(Item(ValueKind::kUnsigned, "00000001 00000001").Elements(), IsEmpty());
}

TEST(InspectValues, ValueOfAnotherWidthIsPrintedInHex) {
    EXPECT_EQ(Text(ValueKind::kUnsigned, ""), "");
    EXPECT_EQ(Text(ValueKind::kUnsigned, "000102030405060708"), "000102030405060708");
    EXPECT_EQ(Text(ValueKind::kBoolean, "0001"), "0001");
    EXPECT_EQ(Text(ValueKind::kVersion, "01"), "01");
    EXPECT_EQ(Text(ValueKind::kRational, "00007530"), "00007530");
    EXPECT_EQ(Text(ValueKind::kTimestamp, "07DD"), "07DD");
    EXPECT_EQ(Text(ValueKind::kPartitionStatus, "05"), "05");
    EXPECT_EQ(Text(ValueKind::kPartitionStatus, "00"), "00");
    EXPECT_EQ(Text(ValueKind::kBytes, "0AFF"), "0AFF");
}

TEST(InspectValues, PartitionStatusIsTold) {
    EXPECT_EQ(Text(ValueKind::kPartitionStatus, "01"), "open, incomplete");
    EXPECT_EQ(Text(ValueKind::kPartitionStatus, "02"), "closed, incomplete");
    EXPECT_EQ(Text(ValueKind::kPartitionStatus, "03"), "open, complete");
    EXPECT_EQ(Text(ValueKind::kPartitionStatus, "04"), "closed, complete");
}

TEST(InspectValues, ComeTypedWhenKindAndWidthFit) {
    EXPECT_EQ(Item(ValueKind::kUnsigned, "FFFFFFFE").Unsigned(), 0xFFFFFFFEu);
    EXPECT_EQ(Item(ValueKind::kUnsigned, "FFFFFFFE").Signed(), -2);
    EXPECT_EQ(Item(ValueKind::kSigned, "8000000000000000").Signed(), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(Item(ValueKind::kBoolean, "01").Unsigned(), 1u);
    EXPECT_EQ(Item(ValueKind::kVersion, "0103").Unsigned(), 0x0103u);
    EXPECT_EQ(Item(ValueKind::kPartitionStatus, "04").Unsigned(), 4u);
    EXPECT_FALSE(Item(ValueKind::kUnsigned, "").Unsigned());
    EXPECT_FALSE(Item(ValueKind::kUnsigned, "000000000000000001").Unsigned());
    EXPECT_FALSE(Item(ValueKind::kSigned, "").Signed());
    EXPECT_FALSE(Item(ValueKind::kBytes, "01").Unsigned());
    EXPECT_FALSE(Item(ValueKind::kKey, "01").Signed());

    EXPECT_EQ(Item(ValueKind::kRational, "00000019 00000001").Rational(), (MXFRATIONALTag{25, 1}));
    EXPECT_FALSE(Item(ValueKind::kRational, "00000019").Rational());
    EXPECT_FALSE(Item(ValueKind::kSigned, "00000019 00000001").Rational());
    EXPECT_EQ(Item(ValueKind::kTimestamp, "07DD 01 02 03 04 05 06").Timestamp(),
              (MXFTIMESTAMPTag{2013, 1, 2, 3, 4, 5, 6}));
    EXPECT_FALSE(Item(ValueKind::kTimestamp, "07DD").Timestamp());
    EXPECT_FALSE(Item(ValueKind::kSigned, "07DD 01 02 03 04 05 06").Timestamp());

    const std::string umid = "060A2B340101010501010F2013000000000102030405060708090A0B0C0D0E0F";
    EXPECT_TRUE(SameBytes(Hex(umid), Item(ValueKind::kUMID, umid).Umid()->bytes));
    EXPECT_FALSE(Item(ValueKind::kUMID, umid + "00").Umid());
    EXPECT_FALSE(Item(ValueKind::kBytes, umid).Umid());
}

TEST(InspectValues, KeysAreListed) {
    const std::string a = "000102030405060708090A0B0C0D0E0F", b = "F0F1F2F3F4F5F6F7F8F9FAFBFCFDFEFF";
    const auto both = Item(ValueKind::kKeys, "00000002 00000010" + a + b).Keys();
    ASSERT_THAT(both, SizeIs(2));
    EXPECT_TRUE(SameBytes(Hex(a), both[0].bytes));
    EXPECT_TRUE(SameBytes(Hex(b), both[1].bytes));
    EXPECT_EQ(Item(ValueKind::kKey, b).Keys(), (std::vector<MXFKEYTag>{both[1]}));
    EXPECT_THAT(Item(ValueKind::kKey, "0001").Keys(), IsEmpty());
    EXPECT_THAT(Item(ValueKind::kKeys, "00000001 00000008" + a).Keys(), IsEmpty());
    EXPECT_THAT(Item(ValueKind::kUMID, a).Keys(), IsEmpty());
}

}  // namespace
}  // namespace kmxf::test
