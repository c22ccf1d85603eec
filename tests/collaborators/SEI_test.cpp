#include "collaborators/SEI.h"

#include <gtest/gtest.h>

#include "collaborators/Given.h"
#include "support/Hex.h"

namespace kmxf::test {

namespace {

struct Message {
    uint64_t type;
    Bytes payload;
    bool whole;
    bool operator==(const Message&) const = default;
};
void PrintTo(const Message& message, std::ostream* out) {
    *out << "type " << message.type << ", " << message.payload.size() << " bytes, whole " << message.whole;
}
std::vector<Message> Messages(const Bytes& area) {
    std::vector<Message> messages;
    for (const SEIMessage& message : ReadSEIMessages(area))
        messages.push_back({message.type, message.payload, message.whole});
    return messages;
}
using List = std::vector<Message>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

}  // namespace

TEST(SEI, MessagesOfAllUnitsComeInOrder) {
    const Bytes area = Hex(R"(
        00 00 00 01 09 10               // access unit delimiter
        00 00 00 01 06 06 01 C4 80      // one message
        00 00 01 06 01 02 AB CD 05 01 EE 80  // two, behind a short start code
        00 00 01 0C FF 80)");  // filler
    EXPECT_EQ(Messages(area), (List{{6, {0xC4}, true}, {1, {0xAB, 0xCD}, true}, {5, {0xEE}, true}}));
}

TEST(SEI, NothingBehindTheFirstSliceIsRead) {
    for (uint8_t slice = 1; slice <= 5; ++slice) {
        Bytes area = Hex("00 00 01 06 01 01 AA 80  00 00 01 65 88  00 00 01 06 01 01 BB 80");
        area[11] = static_cast<uint8_t>(0x60 | slice);
        EXPECT_EQ(Messages(area), (List{{1, {0xAA}, true}})) << int{slice};
    }
}

TEST(SEI, TypesAndSizesGoOnBehindFF) {
    // Type FF FF 02 = 512; size FF 2D = 300.
    const Bytes area = Hex("00 00 00 01 06 FF FF 02 FF 2D") + Bytes(300, 0x77) + Hex("FF 00 01 99 80");
    EXPECT_EQ(Messages(area), (List{{512, Bytes(300, 0x77), true}, {255, {0x99}, true}}));
}

TEST(SEI, EmulationPreventionIsRemoved) {
    const Bytes area = Hex("00 00 00 01 06 05 0A 00 00 03 01 00 00 03 00 00 03 03 11 03 80");
    EXPECT_EQ(Messages(area), (List{{5, Hex("00 00 01 00 00 00 00 03 11 03"), true}}));
    // Also in the middle of type and size, and at the end of a cut area.
    EXPECT_EQ(Messages(Hex("00 00 01 06 00 00 03 00 00 03 01 02 AA BB 80")),
              (List{{0, {}, true}, {0, {}, true}, {1, {0xAA, 0xBB}, true}}));
    EXPECT_EQ(Messages(Hex("00 00 01 06 05 05 00 00 03")), (List{{5, {0x00, 0x00}, false}}));
}

TEST(SEI, AreaMayBeginAtAUnitOrAMessage) {
    EXPECT_EQ(Messages(Hex("06 05 02 AA BB 80 00 00 01 06 01 01 CC 80")),
              (List{{5, {0xAA, 0xBB}, true}, {1, {0xCC}, true}}));
    EXPECT_EQ(Messages(Hex("05 02 AA BB 80 00 00 00 01 06 01 01 CC 80")),
              (List{{5, {0xAA, 0xBB}, true}, {1, {0xCC}, true}}));
}

TEST(SEI, SizeThatLiesIsCutAtTheEndOfTheUnit) {
    EXPECT_EQ(Messages(Hex("00 00 01 06 05 FF FF 10 AA BB 00 00 01 06 01 01 CC 80")),
              (List{{5, {0xAA, 0xBB}, false}, {1, {0xCC}, true}}));
}

TEST(SEI, AreaCutAtEveryByte) {
    const Bytes whole = Hex("00 00 00 01 06 05 04 AA BB CC DD 01 01 EE 80");
    const struct {
        size_t size;
        List messages;
    } kFrom[] = {{0, {}},
                 {2, {{0, {}, true}}},  // zeros without a start code read as an empty message
                 {4, {}},
                 {7, {{5, {}, false}}},
                 {8, {{5, {0xAA}, false}}},
                 {9, {{5, {0xAA, 0xBB}, false}}},
                 {10, {{5, {0xAA, 0xBB, 0xCC}, false}}},
                 {11, {{5, {0xAA, 0xBB, 0xCC, 0xDD}, true}}},
                 {13, {{5, {0xAA, 0xBB, 0xCC, 0xDD}, true}, {1, {}, false}}},
                 {14, {{5, {0xAA, 0xBB, 0xCC, 0xDD}, true}, {1, {0xEE}, true}}}};
    for (size_t size = 0; size <= whole.size(); ++size) {
        const auto* row = std::begin(kFrom);
        while (row + 1 != std::end(kFrom) && row[1].size <= size) ++row;
        EXPECT_EQ(Messages(Part(whole, 0, size)), row->messages) << size;
    }
}

TEST(SEI, AreaOfOneByteValueEnds) {
    for (const uint8_t byte : Hex("00 01 03 06 80 FF")) {
        const Bytes area(20000, byte);
        ReadSEIMessages(area);
        EXPECT_FALSE(FindSEITimecode(area, 1));
        EXPECT_FALSE(FindPicTimingLayout(area));
    }
    EXPECT_EQ(Messages({}), List());
    EXPECT_EQ(Messages(Hex("00 00 01")), List());
    EXPECT_EQ(Messages(Hex("00 00 01 06")), List());
    EXPECT_EQ(Messages(Hex("00 00 01 00 00 01 00 00 01")), List());
}

TEST(SEI, LastWholeParameterSetGivesTheLayout) {
    const Bytes withHRD =
        Hex("00 00 00 01 67 64 00 0d ac b2 02 83 f6 02 20 00 00 03 00 20 00 00 06 4c 04 00 3d 08 00 0f 42 72 61 80 7c "
            "50 a9 20");
    const Bytes without =
        Hex("00 00 00 01 67 7a 00 28 b6 cd 30 1e 01 13 f2 e0 2d 40 40 40 50 00 00 3e 90 00 0e a6 09 f1 62 d3 80");
    ASSERT_TRUE(FindPicTimingLayout(withHRD));
    EXPECT_EQ(FindPicTimingLayout(withHRD)->delayBits, 20u);
    EXPECT_EQ(FindPicTimingLayout(withHRD + without)->delayBits, 0u);
    EXPECT_EQ(FindPicTimingLayout(withHRD + Part(without, 0, 20))->delayBits, 20u);
    EXPECT_EQ(FindPicTimingLayout(Hex("00 00 01 65 88") + withHRD), std::nullopt);
    EXPECT_EQ(FindPicTimingLayout({}), std::nullopt);
}

}  // namespace kmxf::test
