#include "core/Bytes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

namespace kmxf {
namespace {

using Vector = std::vector<uint8_t>;

Vector Counting(size_t count) {
    Vector bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
    return bytes;
}

TEST(ByteReader, TakesBigEndianNumbersInOrder) {
    const Vector bytes{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.U8(), 0x12);
    EXPECT_EQ(reader.U16(), 0x3456);
    EXPECT_EQ(reader.U32(), 0x789ABCDEu);
    EXPECT_EQ(reader.U64(), 0xF011223344556677u);
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(reader.Position(), 15u);
    EXPECT_EQ(reader.Remaining(), 0u);
}

TEST(ByteReader, TakesSignedNumbers) {
    const Vector bytes{0xFF, 0xFF, 0xFF, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.I32(), -2);
    EXPECT_EQ(reader.I64(), std::numeric_limits<int64_t>::min());
}

TEST(ByteReader, TakesRecords) {
    Vector bytes = Counting(48);
    bytes.insert(bytes.end(), {0x00, 0x00, 0x75, 0x30, 0xFF, 0xFF, 0xFF, 0xFF});
    bytes.insert(bytes.end(), {0x07, 0xDD, 0x0C, 0x1F, 0x17, 0x3B, 0x3A, 0xF9});
    ByteReader reader(bytes);
    EXPECT_EQ(reader.Key(), (MXFKEYTag{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}));
    EXPECT_EQ(reader.Umid(), (MXFUMIDTag{{17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32,
                                          33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48}}));
    EXPECT_EQ(reader.Rational(), (MXFRATIONALTag{30000, -1}));
    EXPECT_EQ(reader.Timestamp(), (MXFTIMESTAMPTag{2013, 12, 31, 23, 59, 58, 249}));
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(reader.Remaining(), 0u);
}

TEST(ByteReader, ANumberThatDoesNotFitIsZeroAndFailsForGood) {
    const Vector bytes{0xAA, 0xBB, 0xCC};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.U32(), 0u);
    EXPECT_FALSE(reader.Ok());
    EXPECT_EQ(reader.Position(), 0u);
    EXPECT_EQ(reader.U8(), 0) << "a failed reader gives nothing more, though the byte is there";
    EXPECT_TRUE(reader.Take(0).empty());
    EXPECT_FALSE(reader.Ok());
}

TEST(ByteReader, RecordsThatDoNotFitAreZero) {
    const Vector bytes = Counting(15);
    ByteReader key(bytes);
    EXPECT_EQ(key.Key(), MXFKEYTag{});
    EXPECT_FALSE(key.Ok());
    ByteReader umid(bytes);
    EXPECT_EQ(umid.Umid(), MXFUMIDTag{});
    EXPECT_FALSE(umid.Ok());
    ByteReader rational{std::span(bytes).first(7)};
    EXPECT_EQ(rational.Rational(), (MXFRATIONALTag{0x01020304, 0}));
    EXPECT_FALSE(rational.Ok());
    ByteReader timestamp{std::span(bytes).first(7)};
    EXPECT_EQ(timestamp.Timestamp().quarterMillisecond, 0);
    EXPECT_FALSE(timestamp.Ok());
}

TEST(ByteReader, ReadsUpToItsEndAndNotBeyond) {
    const Vector bytes = Counting(4);
    ByteReader reader(bytes);
    reader.Skip(3);
    EXPECT_EQ(reader.U8(), 4);
    EXPECT_TRUE(reader.Ok());
    EXPECT_TRUE(reader.Take(0).empty());
    EXPECT_TRUE(reader.Ok()) << "no bytes are there even at the end";
    EXPECT_EQ(reader.U8(), 0);
    EXPECT_FALSE(reader.Ok());
}

TEST(ByteReader, SkipsAndTakesNothingOfACountThatLeadsOutside) {
    const Vector bytes = Counting(4);
    for (const uint64_t count : {uint64_t{4}, uint64_t{0x8000000000000000}, std::numeric_limits<uint64_t>::max()}) {
        ByteReader reader(bytes);
        reader.Skip(1);
        EXPECT_TRUE(reader.Take(count).empty());
        EXPECT_FALSE(reader.Ok());
        EXPECT_EQ(reader.Position(), 1u);
        EXPECT_EQ(reader.Remaining(), 3u);
    }
}

TEST(ByteReader, AReaderOfTakenBytesEndsWithThem) {
    const Vector bytes = Counting(8);
    ByteReader outer(bytes);
    outer.Skip(2);
    ByteReader inner(outer.Take(3));
    EXPECT_EQ(inner.U16(), 0x0304);
    EXPECT_EQ(inner.U16(), 0);
    EXPECT_FALSE(inner.Ok());
    EXPECT_TRUE(outer.Ok());
    EXPECT_EQ(outer.U8(), 6);
}

TEST(ByteReader, AnEmptySpanHasNothing) {
    ByteReader reader({});
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(reader.Remaining(), 0u);
    EXPECT_EQ(reader.U64(), 0u);
    EXPECT_FALSE(reader.Ok());
}

TEST(ByteWriter, PutsBigEndianNumbersInOrder) {
    Vector bytes(27);
    ByteWriter writer(bytes);
    writer.U8(0x12);
    writer.U16(0x3456);
    writer.U32(0x789ABCDE);
    writer.U64(0xF011223344556677);
    writer.I32(-2);
    writer.I64(std::numeric_limits<int64_t>::min());
    EXPECT_TRUE(writer.Ok());
    EXPECT_EQ(writer.Position(), 27u);
    EXPECT_EQ(writer.Remaining(), 0u);
    EXPECT_EQ(bytes, (Vector{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66,
                             0x77, 0xFF, 0xFF, 0xFF, 0xFE, 0x80, 0,    0,    0,    0,    0,    0,    0}));
}

TEST(ByteWriter, PutsRecords) {
    Vector bytes(64);
    ByteWriter writer(bytes);
    const Vector source = Counting(48);
    ByteReader reader(source);
    writer.Key(reader.Key());
    writer.Umid(reader.Umid());
    writer.Rational({30000, -1});
    writer.Timestamp({2013, 12, 31, 23, 59, 58, 249});
    EXPECT_TRUE(writer.Ok());
    Vector expected = source;
    expected.insert(expected.end(), {0x00, 0x00, 0x75, 0x30, 0xFF, 0xFF, 0xFF, 0xFF});
    expected.insert(expected.end(), {0x07, 0xDD, 0x0C, 0x1F, 0x17, 0x3B, 0x3A, 0xF9});
    EXPECT_EQ(bytes, expected);
}

TEST(ByteWriter, PutsBERLengthsInTheirFixedForms) {
    Vector bytes(12);
    ByteWriter writer(bytes);
    writer.BER(92, 3);
    writer.BER(0x00123456789ABCDE, 7);
    EXPECT_TRUE(writer.Ok());
    EXPECT_EQ(bytes, (Vector{0x83, 0x00, 0x00, 0x5C, 0x87, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE}));
}

TEST(ByteWriter, PutsBytesAndZeros) {
    Vector bytes(5, 0xEE);
    ByteWriter writer(bytes);
    writer.Zeros(2);
    writer.Bytes(Vector{7, 8});
    writer.Bytes({});
    writer.Zeros(0);
    EXPECT_TRUE(writer.Ok());
    EXPECT_EQ(writer.Remaining(), 1u);
    EXPECT_EQ(bytes, (Vector{0, 0, 7, 8, 0xEE}));
}

TEST(ByteWriter, WhatDoesNotFitIsLeftOutAndFailsForGood) {
    Vector bytes(3, 0xEE);
    ByteWriter writer(bytes);
    writer.U8(1);
    writer.U32(0x22222222);
    EXPECT_FALSE(writer.Ok());
    EXPECT_EQ(writer.Position(), 1u);
    writer.U8(3);
    writer.Zeros(1);
    writer.Bytes(Vector{4});
    EXPECT_FALSE(writer.Ok());
    EXPECT_EQ(bytes, (Vector{1, 0xEE, 0xEE}));
}

TEST(ByteWriter, WritesUpToItsEndAndNotBeyond) {
    const std::array<size_t, 4> tooMany{5, 6, 1000, std::numeric_limits<size_t>::max()};
    for (const size_t count : tooMany) {
        Vector bytes(4, 0xEE);
        ByteWriter writer(bytes);
        writer.Zeros(count);
        EXPECT_FALSE(writer.Ok());
        EXPECT_EQ(bytes, Vector(4, 0xEE));
    }
    Vector bytes(4, 0xEE);
    ByteWriter writer(bytes);
    writer.U32(0x01020304);
    EXPECT_TRUE(writer.Ok());
    writer.U8(5);
    EXPECT_FALSE(writer.Ok());
    EXPECT_EQ(bytes, (Vector{1, 2, 3, 4}));
}

TEST(Encoded, HoldsOneValueAsAnItemDoes) {
    EXPECT_EQ(Encoded(uint8_t{0x12}), (Vector{0x12}));
    EXPECT_EQ(Encoded(true), (Vector{1}));
    EXPECT_EQ(Encoded(false), (Vector{0}));
    EXPECT_EQ(Encoded(uint16_t{0x1234}), (Vector{0x12, 0x34}));
    EXPECT_EQ(Encoded(uint32_t{0x12345678}), (Vector{0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(Encoded(int64_t{-2}), (Vector{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(Encoded(MXFRATIONALTag{24000, 1001}), (Vector{0x00, 0x00, 0x5D, 0xC0, 0x00, 0x00, 0x03, 0xE9}));
    EXPECT_EQ(Encoded(MXFTIMESTAMPTag{2013, 4, 5, 6, 7, 8, 0}), (Vector{0x07, 0xDD, 4, 5, 6, 7, 8, 0}));
    EXPECT_EQ(Encoded(MXFKEYTag{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}), Counting(16));
    MXFUMIDTag umid;
    for (uint8_t i = 0; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(i + 1);
    EXPECT_EQ(Encoded(umid), Counting(32));
}

}  // namespace
}  // namespace kmxf
