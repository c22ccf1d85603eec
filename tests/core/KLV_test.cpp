#include "kmxf/core/KLV.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "core/KLVPacket.h"

namespace kmxf {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr MXFKEYTag kPrimer{{0x06, 0x0E, 0x2B, 0x34, 0x02, 0x05, 0x01, 0x01, 0x0D, 0x01, 0x02, 0x01, 0x01, 0x05, 1, 0}};
constexpr MXFKEYTag kTrack{{0x06, 0x0E, 0x2B, 0x34, 0x02, 0x53, 0x01, 0x01, 0x0D, 0x01, 0x01, 0x01, 0x01, 1, 0x3B, 0}};
constexpr MXFKEYTag kOtherTrack{
    {0x06, 0x0E, 0x2B, 0x34, 0x02, 0x53, 0x01, 0x02, 0x0D, 0x01, 0x01, 0x01, 0x01, 1, 0x3B, 0}};  // other version
constexpr MXFKEYTag kPreface{{0x06, 0x0E, 0x2B, 0x34, 0x02, 0x53, 0x01, 0x01, 0x0D, 1, 0x01, 0x01, 0x01, 1, 0x2F, 0}};
constexpr MXFKEYTag kUL{{0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 9, 10}};
constexpr MXFKEYTag kOtherUL{{0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x09, 3, 0x04, 0x05, 0x06, 0x07, 0x08, 9, 10}};

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes KeyBytes(const MXFKEYTag& key) { return {key.bytes, key.bytes + 16}; }

// A packet from its key and the bytes behind it: length and value as they stand in the test.
Bytes Packet(const MXFKEYTag& key, const Bytes& rest) { return Join({KeyBytes(key), rest}); }

uint32_t Size(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

struct Found {
    bool found;
    int64_t offset;
    uint32_t length;
    bool operator==(const Found&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Found& f) {
    return out << (f.found ? "found " : "not found ") << f.offset << " " << f.length;
}
constexpr Found kNotFound{false, -7, 77};

Found Find(const Bytes& buffer, const MXFKEYTag& key, uint16_t tag) {
    Found result = kNotFound;
    result.found = GetKeyParam(buffer.data(), Size(buffer), key, tag, &result.offset, &result.length);
    return result;
}
uint32_t Count(const Bytes& buffer, const MXFKEYTag& key) { return GetKeyNum(buffer.data(), Size(buffer), key); }
uint16_t Tag(const Bytes& buffer, const MXFKEYTag& ul) { return GetLocalTag(buffer.data(), Size(buffer), ul); }

// Lengths that lead outside any buffer, or in a circle when added with a sign.
const std::vector<Bytes> kLyingLengths{
    {0x83, 0xFF, 0xFF, 0xFF},
    {0x84, 0xFF, 0xFF, 0xFF, 0xFF},
    {0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
    {0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xE7},  // -25: back to the packet's own key
    {0x88, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
    {0x88, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
    Bytes(1 + 127, 0xFF),  // n = 127, all of it there
    {0xFF, 0xFF, 0xFF},    // n = 127, cut short
    {0x7F},
    {0x8F, 0x00},
};

// ---- BERtoSize

TEST(BERtoSize, IsABigEndianNumber) {
    const Bytes bytes{0x00, 0x01, 0x00, 0x12, 0x34, 0x56, 0x78, 0x9A};
    EXPECT_EQ(BERtoSize(bytes.data(), 1), 0);
    EXPECT_EQ(BERtoSize(bytes.data(), 2), 1);
    EXPECT_EQ(BERtoSize(bytes.data(), 3), 256);
    EXPECT_EQ(BERtoSize(bytes.data() + 3, 3), 0x123456);
    EXPECT_EQ(BERtoSize(bytes.data(), 8), 0x000100123456789A);
}

TEST(BERtoSize, OfNothingIsZero) {
    const uint8_t byte = 0xFF;
    EXPECT_EQ(BERtoSize(&byte, 0), 0);
    EXPECT_EQ(BERtoSize(nullptr, 3), 0);
    EXPECT_EQ(BERtoSize(nullptr, 0), 0);
}

TEST(BERtoSize, EightBytesWithTheTopBitAreNegative) {
    const Bytes all(8, 0xFF);
    EXPECT_EQ(BERtoSize(all.data(), 8), -1);
    const Bytes top{0x80, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(BERtoSize(top.data(), 8), INT64_MIN);
}

TEST(BERtoSize, OfMoreThanEightBytesTheLastEightCount) {
    Bytes bytes(127, 0xFF);
    EXPECT_EQ(BERtoSize(bytes.data(), 127), -1);
    for (size_t i = 119; i < 126; ++i) bytes[i] = 0;
    bytes[126] = 5;
    EXPECT_EQ(BERtoSize(bytes.data(), 127), 5);
    const Bytes nine{0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03};
    EXPECT_EQ(BERtoSize(nine.data(), 9), 0x203);
}

// ---- packet heads

TEST(KLVHead, ReadsShortAndLongForms) {
    struct Row {
        Bytes length;
        uint32_t size;
        uint64_t value;
    };
    const std::vector<Row> rows{
        {{0x00}, 17, 0},
        {{0x7F}, 17, 127},
        {{0x80}, 17, 0},
        {{0x81, 0xFF}, 18, 255},
        {{0x83, 0x00, 0x00, 0x5C}, 20, 92},
        {{0x84, 0x01, 0x02, 0x03, 0x04}, 21, 0x01020304},
        {{0x87, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}, 24, 0x100000000},
        {{0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}, 25, 0xFFFFFFFFFFFFFFFE},
    };
    for (const Row& row : rows) {
        const auto head = ReadKLVHead(Packet(kTrack, row.length));
        ASSERT_TRUE(head) << row.size;
        EXPECT_EQ(head->key, kTrack);
        EXPECT_EQ(head->size, row.size);
        EXPECT_EQ(head->length, row.value);
    }
}

TEST(KLVHead, IsReadAsLongFormOnRequest) {
    const Bytes packet = Packet(kTrack, {0x02, 0x01, 0x03, 0x44});
    const auto head = ReadKLVHead(packet, BERForm::kLongOnly);
    ASSERT_TRUE(head);
    EXPECT_EQ(head->size, 19u);
    EXPECT_EQ(head->length, 0x103u);
    const auto none = ReadKLVHead(Packet(kTrack, {0x00}), BERForm::kLongOnly);
    ASSERT_TRUE(none);
    EXPECT_EQ(none->size, 17u);
    EXPECT_EQ(none->length, 0u);
}

TEST(KLVHead, DoesNotExistInABufferThatIsCutShort) {
    for (const Bytes& length : {Bytes{0x05}, Bytes{0x83, 0x00, 0x00, 0x05}, Bytes(1 + 127, 0xFF)}) {
        const Bytes whole = Packet(kTrack, length);
        for (size_t cut = 0; cut < whole.size(); ++cut)
            EXPECT_FALSE(ReadKLVHead(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut)))) << cut;
        EXPECT_TRUE(ReadKLVHead(whole));
    }
}

TEST(KLVHead, ASetOfLength5CHas92BytesOfValueAnd112InAll) {
    Bytes packet(112);
    ByteWriter writer(packet);
    WriteKLVHead(writer, kTrack, 112);
    EXPECT_EQ(writer.Position(), 20u);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 20), Packet(kTrack, {0x83, 0x00, 0x00, 0x5C}));
    const auto head = ReadKLVHead(packet);
    ASSERT_TRUE(head);
    EXPECT_EQ(head->length, 92u);
    const auto value = KLVValue(packet, *head);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->data(), packet.data() + 20);
    EXPECT_EQ(value->size(), 92u);
}

TEST(KLVValue, IsTheValueAloneAndNotWhatFollows) {
    const Bytes packet = Packet(kTrack, {0x02, 0xAA, 0xBB, 0xCC});
    const auto value = KLVValue(packet, *ReadKLVHead(packet));
    ASSERT_TRUE(value);
    EXPECT_EQ(Bytes(value->begin(), value->end()), (Bytes{0xAA, 0xBB}));
}

TEST(KLVValue, MayBeEmptyAtTheEndOfTheBuffer) {
    const Bytes packet = Packet(kTrack, {0x83, 0x00, 0x00, 0x00});
    const auto value = KLVValue(packet, *ReadKLVHead(packet));
    ASSERT_TRUE(value);
    EXPECT_TRUE(value->empty());
}

TEST(KLVValue, DoesNotExistUnlessTheWholePacketLiesInside) {
    const Bytes packet = Packet(kTrack, {0x83, 0x00, 0x00, 0x03, 0xAA, 0xBB});
    EXPECT_FALSE(KLVValue(packet, *ReadKLVHead(packet)));
    for (const Bytes& length : kLyingLengths) {
        const Bytes lying = Packet(kTrack, length);
        if (const auto head = ReadKLVHead(lying)) {
            EXPECT_FALSE(KLVValue(lying, *head));
        }
    }
}

// ---- GetKeyParam

// Two items: 4801 of 4 bytes, 4804 of 2.
const Bytes kItems{0x48, 0x01, 0x00, 0x04, 0x01, 0x02, 0x03, 0x04, 0x48, 0x04, 0x00, 0x02, 0xAA, 0xBB};
const Bytes kTrackSet = Packet(kTrack, Join({{0x83, 0x00, 0x00, 0x0E}, kItems}));  // 34 bytes

TEST(GetKeyParam, FindsItemsOfTheFirstPacket) {
    EXPECT_EQ(Find(kTrackSet, kTrack, 0x4801), (Found{true, 24, 4}));
    EXPECT_EQ(Find(kTrackSet, kTrack, 0x4804), (Found{true, 32, 2}));
}

TEST(GetKeyParam, FindsItemsBehindPacketsOfShortFormLength) {
    const Bytes buffer = Join({Packet(kPreface, {0x03, 1, 2, 3}), Packet(kPrimer, {0x00}), Packet(kPreface, {0x80}),
                               Packet(kOtherTrack, Join({{0x0E}, kItems})), kTrackSet});
    // 20 + 17 + 17 + 31 bytes in front; the offset counts from the start of the buffer.
    EXPECT_EQ(Find(buffer, kTrack, 0x4801), (Found{true, 85 + 24, 4}));
    EXPECT_EQ(Find(buffer, kTrack, 0x4804), (Found{true, 85 + 32, 2}));
}

TEST(GetKeyParam, FindsItemsOfASetWithShortOrLongFormLength) {
    EXPECT_EQ(Find(Packet(kTrack, Join({{0x0E}, kItems})), kTrack, 0x4804), (Found{true, 29, 2}));
    EXPECT_EQ(Find(Packet(kTrack, Join({{0x88, 0, 0, 0, 0, 0, 0, 0, 0x0E}, kItems})), kTrack, 0x4804),
              (Found{true, 37, 2}));
}

TEST(GetKeyParam, LooksInTheFirstSetOfTheKey) {
    const Bytes first = Packet(kTrack, {0x83, 0x00, 0x00, 0x05, 0x48, 0x01, 0x00, 0x01, 0x11});
    EXPECT_EQ(Find(Join({first, kTrackSet}), kTrack, 0x4801), (Found{true, 24, 1}));
}

TEST(GetKeyParam, FindsAnEmptyItemAtTheVeryEnd) {
    const Bytes set = Packet(kTrack, {0x83, 0x00, 0x00, 0x04, 0x48, 0x01, 0x00, 0x00});
    EXPECT_EQ(Find(set, kTrack, 0x4801), (Found{true, 24, 0}));
}

TEST(GetKeyParam, WalksOnIntoTheBytesBehindTheSet) {
    // The track lacks 3C0A. The next packet's bytes pair up as items: 060E with 2B34 bytes would lead outside, so the
    // following packet is made of a key that reads as items.
    constexpr MXFKEYTag tame{
        {0x11, 0x11, 0x00, 0x00, 0x22, 0x22, 0x00, 0x00, 0x33, 0x33, 0x00, 0x00, 0x44, 0x44, 0, 1}};
    const Bytes buffer = Join({kTrackSet, Packet(tame, {0x06, 0x3C, 0x0A, 0x00, 0x02, 0x55, 0x66})});
    EXPECT_EQ(Find(buffer, kTrack, 0x2222), (Found{true, 34 + 8, 0}));
    EXPECT_EQ(Find(buffer, kTrack, 0x3C0A), (Found{true, 34 + 21, 2}));
    EXPECT_EQ(Find(buffer, kTrack, 0x4444), (Found{true, 34 + 16, 1})) << "its value is the next packet's length byte";
}

TEST(GetKeyParam, MissesAnAbsentTagAndAnAbsentKey) {
    EXPECT_EQ(Find(kTrackSet, kTrack, 0x4802), kNotFound);
    EXPECT_EQ(Find(kTrackSet, kPreface, 0x4801), kNotFound);
    EXPECT_EQ(Find(kTrackSet, kOtherTrack, 0x4801), kNotFound);
}

TEST(GetKeyParam, ReturnsAFoundItemThatRunsOutOfTheBuffer) {
    const Bytes set = Packet(kTrack, {0x83, 0x00, 0x00, 0x06, 0x48, 0x01, 0xFF, 0xFF, 0xAA, 0xBB});
    EXPECT_EQ(Find(set, kTrack, 0x4801), (Found{true, 24, 0xFFFF}));
    EXPECT_EQ(Find(set, kTrack, 0x4804), kNotFound);
}

TEST(GetKeyParam, DoesNotMindTheLengthOfTheSetItFound) {
    for (const Bytes& length : kLyingLengths) {
        const Bytes set = Packet(kTrack, Join({length, kItems}));
        const auto head = ReadKLVHead(set);
        if (!head || head->size + kItems.size() != set.size()) continue;
        EXPECT_EQ(Find(set, kTrack, 0x4801), (Found{true, head->size + 4, 4}));
    }
}

TEST(GetKeyParam, EndsAtAPacketWhoseLengthLeadsOutside) {
    for (const Bytes& length : kLyingLengths) {
        EXPECT_EQ(Find(Packet(kPreface, length), kTrack, 0x4801), kNotFound);
        EXPECT_EQ(Find(Join({Packet(kPreface, length), kTrackSet}), kTrack, 0x4801), kNotFound);
    }
}

TEST(GetKeyParam, WalksZerosBehindTheHeaderAsPacketsUntilTheyEnd) {
    Bytes buffer = kTrackSet;
    buffer.resize(buffer.size() + 100);
    EXPECT_EQ(Find(buffer, kPreface, 0x3C0A), kNotFound);
    EXPECT_EQ(Find(buffer, MXFKEYTag{}, 0x3C0A), kNotFound);
    EXPECT_EQ(Find(buffer, MXFKEYTag{}, 0x0000), (Found{true, 34 + 17 + 4, 0}));
}

TEST(GetKeyParam, IsRightOnABufferCutAtEveryByte) {
    const Bytes whole = Join({Packet(kPreface, {0x03, 1, 2, 3}), kTrackSet});  // 20 + 34
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        const Bytes part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut));
        EXPECT_EQ(Find(part, kTrack, 0x4801), cut >= 44 ? (Found{true, 44, 4}) : kNotFound) << cut;
        EXPECT_EQ(Find(part, kTrack, 0x4804), cut >= 52 ? (Found{true, 52, 2}) : kNotFound) << cut;
        EXPECT_EQ(Find(part, kTrack, 0x7777), kNotFound) << cut;
    }
}

TEST(GetKeyParam, RefusesNullPointers) {
    int64_t offset = -7;
    uint32_t length = 77;
    EXPECT_FALSE(GetKeyParam(nullptr, 34, kTrack, 0x4801, &offset, &length));
    EXPECT_FALSE(GetKeyParam(kTrackSet.data(), 34, kTrack, 0x4801, nullptr, &length));
    EXPECT_FALSE(GetKeyParam(kTrackSet.data(), 34, kTrack, 0x4801, &offset, nullptr));
    EXPECT_FALSE(GetKeyParam(kTrackSet.data(), 0, kTrack, 0x4801, &offset, &length));
    EXPECT_EQ(offset, -7);
    EXPECT_EQ(length, 77u);
}

// ---- GetKeyNum

TEST(GetKeyNum, CountsThreeTracksAmongOtherSets) {
    const Bytes buffer = Join({Packet(kPrimer, {0x83, 0x00, 0x00, 0x08, 0, 0, 0, 0, 0, 0, 0, 0x12}), kTrackSet,
                               Packet(kPreface, {0x02, 1, 2}), kTrackSet, Packet(kOtherTrack, {0x00}), kTrackSet});
    EXPECT_EQ(Count(buffer, kTrack), 3u);
    EXPECT_EQ(Count(buffer, kOtherTrack), 1u) << "another version byte makes another key";
    EXPECT_EQ(Count(buffer, kPrimer), 1u);
    EXPECT_EQ(Count(buffer, kUL), 0u);
}

TEST(GetKeyNum, DoesNotCountKeysInsideAValue) {
    EXPECT_EQ(Count(Packet(kPreface, Join({{0x10}, KeyBytes(kTrack)})), kTrack), 0u);
}

TEST(GetKeyNum, ExaminesTheFirstPacketOfABufferOfSizeZero) {
    EXPECT_EQ(GetKeyNum(kTrackSet.data(), 0, kTrack), 1u);
    EXPECT_EQ(GetKeyNum(kTrackSet.data(), 0, kPreface), 0u);
    const Bytes key = KeyBytes(kTrack);
    EXPECT_EQ(GetKeyNum(key.data(), 0, kTrack), 1u) << "nothing behind the 16 bytes is read";
    EXPECT_EQ(GetKeyNum(nullptr, 0, kTrack), 0u);
    EXPECT_EQ(GetKeyNum(nullptr, 34, kTrack), 0u);
}

TEST(GetKeyNum, CountsAPacketWhoseLengthLeadsOutsideAndEndsThere) {
    for (const Bytes& length : kLyingLengths) {
        EXPECT_EQ(Count(Packet(kTrack, length), kTrack), 1u);
        EXPECT_EQ(Count(Join({kTrackSet, Packet(kTrack, length)}), kTrack), 2u);
    }
    const Bytes lying = Packet(kTrack, {0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xE7});
    EXPECT_EQ(Count(Join({lying, kTrackSet}), kTrack), 1u);
}

TEST(GetKeyNum, IsRightOnABufferCutAtEveryByte) {
    const Bytes whole = Join({kTrackSet, Packet(kPreface, {0x01, 0xAA}), kTrackSet});  // 34, 18, 34 bytes
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        const Bytes part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut));
        EXPECT_EQ(Count(part, kTrack), cut >= 68 ? 2u : cut >= 16 ? 1u : 0u) << cut;
    }
}

// ---- GetLocalTag

// Two entries: 8001 for kUL, 8002 for kOtherUL.
const Bytes kEntries = Join({{0, 0, 0, 2, 0, 0, 0, 0x12}, {0x80, 1}, KeyBytes(kUL), {0x80, 2}, KeyBytes(kOtherUL)});
const Bytes kPrimerPack = Packet(kPrimer, Join({{0x83, 0x00, 0x00, 0x2C}, kEntries}));  // 64 bytes

TEST(GetLocalTag, FindsTheTagOfAUL) {
    EXPECT_EQ(Tag(kPrimerPack, kUL), 0x8001);
    EXPECT_EQ(Tag(kPrimerPack, kOtherUL), 0x8002);
    EXPECT_EQ(Tag(Join({kTrackSet, kPrimerPack}), kOtherUL), 0x8002);
}

TEST(GetLocalTag, IsZeroForAnAbsentUL) {
    EXPECT_EQ(Tag(kPrimerPack, kTrack), 0);
    EXPECT_EQ(Tag(kPrimerPack, MXFKEYTag{}), 0);
}

TEST(GetLocalTag, IsZeroWithoutEntriesAndWithoutAPrimer) {
    EXPECT_EQ(Tag(Packet(kPrimer, {0x83, 0x00, 0x00, 0x08, 0, 0, 0, 0, 0, 0, 0, 0x12}), kUL), 0);
    EXPECT_EQ(Tag(kTrackSet, kUL), 0);
    EXPECT_EQ(GetLocalTag(nullptr, 64, kUL), 0);
    EXPECT_EQ(GetLocalTag(kPrimerPack.data(), 0, kUL), 0);
}

TEST(GetLocalTag, ReturnsTheFirstOfTwoEntries) {
    const Bytes primer = Packet(
        kPrimer,
        Join(
            {{0x83, 0x00, 0x00, 0x2C, 0, 0, 0, 2, 0, 0, 0, 0x12}, {0x90, 1}, KeyBytes(kUL), {0x90, 2}, KeyBytes(kUL)}));
    EXPECT_EQ(Tag(primer, kUL), 0x9001);
}

TEST(GetLocalTag, LooksInTheFirstPrimerPackOnly) {
    const Bytes empty = Packet(kPrimer, {0x83, 0x00, 0x00, 0x08, 0, 0, 0, 0, 0, 0, 0, 0x12});
    EXPECT_EQ(Tag(Join({empty, kPrimerPack}), kUL), 0);
}

TEST(GetLocalTag, DoesNotLookAtTheStatedLengthOfAnEntry) {
    Bytes primer = kPrimerPack;
    for (size_t i = 24; i < 28; ++i) primer[i] = 0xFF;
    EXPECT_EQ(Tag(primer, kOtherUL), 0x8002);
}

TEST(GetLocalTag, TakesEveryLengthForTheLongForm) {
    // Preface of 3 bytes in the short form: its value is read as 3 bytes of length, here 0, so the walk goes on at the
    // value's end and finds the primer.
    EXPECT_EQ(Tag(Join({Packet(kPreface, {0x03, 0, 0, 0}), kPrimerPack}), kUL), 0x8001);
    // With other bytes the same packet leads elsewhere.
    EXPECT_EQ(Tag(Join({Packet(kPreface, {0x03, 0, 0, 1}), kPrimerPack}), kUL), 0);
    // The primer's own short-form length 2C is read as 44 bytes of length, which swallows the entries.
    EXPECT_EQ(Tag(Packet(kPrimer, Join({{0x2C}, kEntries})), kUL), 0);
}

TEST(GetLocalTag, StopsAtTheEndOfTheBufferWhateverTheCountSays) {
    Bytes primer = kPrimerPack;
    for (size_t i = 20; i < 24; ++i) primer[i] = 0xFF;  // 2^32 - 1 entries
    EXPECT_EQ(Tag(primer, kOtherUL), 0x8002);
    EXPECT_EQ(Tag(primer, kTrack), 0);
    EXPECT_EQ(Tag(primer, MXFKEYTag{}), 0) << "what is not there equals no UL, not even the zero one";
}

TEST(GetLocalTag, EndsAtAPacketWhoseLengthLeadsOutside) {
    for (const Bytes& length : kLyingLengths) EXPECT_EQ(Tag(Join({Packet(kPreface, length), kPrimerPack}), kUL), 0);
}

TEST(GetLocalTag, IsRightOnABufferCutAtEveryByte) {
    for (size_t cut = 0; cut <= kPrimerPack.size(); ++cut) {
        const Bytes part(kPrimerPack.begin(), kPrimerPack.begin() + static_cast<ptrdiff_t>(cut));
        EXPECT_EQ(Tag(part, kUL), cut >= 46 ? 0x8001 : 0) << cut;
        EXPECT_EQ(Tag(part, kOtherUL), cut >= 64 ? 0x8002 : 0) << cut;
        EXPECT_EQ(Tag(part, MXFKEYTag{}), 0) << cut;
    }
}

// ---- all of them

TEST(Scanners, SurviveABufferOfAnyOneByte) {
    for (int byte = 0; byte < 256; ++byte) {
        for (const size_t size : {1u, 16u, 17u, 18u, 20u, 145u, 1000u}) {
            const Bytes buffer(size, static_cast<uint8_t>(byte));
            MXFKEYTag key;
            for (uint8_t& b : key.bytes) b = static_cast<uint8_t>(byte);
            for (const MXFKEYTag& wanted : {key, kPrimer}) {
                Find(buffer, wanted, 0x4801);
                Count(buffer, wanted);
                Tag(buffer, wanted);
            }
            EXPECT_EQ(Count(buffer, key) > 0, size >= 16) << byte << " " << size;
            Bytes primer = Join({KeyBytes(kPrimer), buffer});
            EXPECT_EQ(Tag(primer, kUL), 0);
        }
    }
}

}  // namespace
}  // namespace kmxf
