#include "core/FieldText.h"

#include <gtest/gtest.h>

#include "support/Hex.h"

namespace kmxf::test {
namespace {

TEST(FieldText, UTF16EndsAtTheFirstZeroUnitOrWithTheField) {
    EXPECT_EQ(UTF16FieldText(Hex("00 41 00 E9 4E 2D 00 00 00 42")), "Aé中");
    EXPECT_EQ(UTF16FieldText(Hex("00 41 00 42")), "AB");
    EXPECT_EQ(UTF16FieldText(Hex("00 41 00")), "A");  // half a unit counts for nothing
    EXPECT_EQ(UTF16FieldText(Hex("00 00 00 41")), "");
    EXPECT_EQ(UTF16FieldText({}), "");
}

TEST(FieldText, SurrogateAtTheEndOfTheFieldIsPairedWithZero) {
    EXPECT_EQ(UTF16FieldText(Hex("00 41 D8 3D")), "A\xF0\x9F\x90\x80");
}

TEST(FieldText, BytesEndAtTheFirstZeroOrWithTheField) {
    EXPECT_EQ(RawFieldText(Hex("41 FF 00 42")), "A\xFF");
    EXPECT_EQ(RawFieldText(Hex("41 42")), "AB");
    EXPECT_EQ(RawFieldText(Hex("00 41")), "");
    EXPECT_EQ(RawFieldText({}), "");
}

}  // namespace
}  // namespace kmxf::test
