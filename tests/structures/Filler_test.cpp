#include "kmxf/structures/Filler.h"

#include <gtest/gtest.h>

#include "kmxf/core/Status.h"
#include "structures/Serialised.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

TEST(Filler, SmallestItemIsKeyAndLength) {
    CFiller filler;
    EXPECT_EQ(filler.GetLength(), 20u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 00 00"), Serialised(filler)));
}

TEST(Filler, ItemIsFilledWithZeros) {
    CFiller filler;
    EXPECT_EQ(filler.SetLength(25), kStatusOk);
    EXPECT_EQ(filler.GetLength(), 25u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 00 05  00 00 00 00 00"),
                          Serialised(filler)));
}

TEST(Filler, LengthTakesThreeBytes) {
    CFiller filler;
    filler.SetLength(20 + 0x012345);
    const auto bytes = Serialised(filler);
    ASSERT_EQ(bytes.size(), 20u + 0x012345);
    EXPECT_TRUE(SameBytes(Hex("83 01 23 45 00"), std::span(bytes).subspan(16, 5)));
    EXPECT_EQ(bytes.back(), 0);
}

TEST(Filler, SizesThatAreNoItemAreKeptButNotSerialised) {
    CFiller filler;
    uint8_t* data = nullptr;
    for (const uint32_t size : {0u, 1u, 19u, 20u + 0x1000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(filler.SetLength(size), kStatusOk);
        EXPECT_EQ(filler.GetLength(), size);
        EXPECT_EQ(filler.GetData(&data), kStatusInvalidArgument) << size;
    }
    EXPECT_EQ(data, nullptr);
}

TEST(Filler, LargestItemHasALengthOfAllOnes) {
    CFiller filler;
    filler.SetLength(20 + 0xFFFFFF);
    const auto bytes = Serialised(filler);
    ASSERT_EQ(bytes.size(), 20u + 0xFFFFFF);
    EXPECT_TRUE(SameBytes(Hex("83 FF FF FF"), std::span(bytes).subspan(16, 4)));
}

TEST(Filler, NullPointerIsRefused) { EXPECT_EQ(CFiller().GetData(nullptr), kStatusInvalidArgument); }

TEST(Filler, HasAnInstanceUIDThatIsNotWritten) {
    const FixedEnvironment environment;
    CFiller filler;
    EXPECT_EQ(filler.GetInstanceUID(), FixedEnvironment::UUID(1));
    filler.SetLength(60);
    const auto bytes = Serialised(filler);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 20, bytes.end()), std::vector<uint8_t>(40, 0));
}

TEST(Filler, IsSerialisedThroughItsBase) {
    CFiller filler;
    filler.SetLength(30);
    CMXFHeaderBase& base = filler;
    EXPECT_EQ(Serialised(base).size(), 30u);
}

TEST(Filler, CopiesKeepSizeAndInstanceUID) {
    CFiller filler;
    filler.SetLength(30);
    CFiller copy(filler);
    CFiller assigned;
    assigned = filler;
    filler.SetLength(40);
    EXPECT_EQ(Serialised(copy).size(), 30u);
    EXPECT_EQ(Serialised(assigned).size(), 30u);
    EXPECT_EQ(copy.GetInstanceUID(), filler.GetInstanceUID());
    EXPECT_EQ(assigned.GetInstanceUID(), filler.GetInstanceUID());
}

}  // namespace
}  // namespace kmxf::test
