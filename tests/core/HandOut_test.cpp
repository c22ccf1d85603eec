#include "core/HandOut.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

namespace kmxf {
namespace {

TEST(HandOut, GivesABufferThatTheCallerFrees) {
    uint8_t* data = nullptr;
    ASSERT_EQ(HandOut(3, &data, [](ByteWriter& w) { w.Bytes(std::vector<uint8_t>{1, 2, 3}); }), kStatusOk);
    EXPECT_EQ(std::vector<uint8_t>(data, data + 3), (std::vector<uint8_t>{1, 2, 3}));
    std::free(data);
}

TEST(HandOut, GivesABufferOfNoBytesToo) {
    uint8_t* data = nullptr;
    ASSERT_EQ(HandOut(0, &data, [](ByteWriter&) {}), kStatusOk);
    EXPECT_NE(data, nullptr);
    std::free(data);
}

TEST(HandOut, RefusesANullPointer) {
    EXPECT_EQ(HandOut(1, nullptr, [](ByteWriter& w) { w.U8(1); }), kStatusInvalidArgument);
}

TEST(HandOut, RefusesAStructureThatIsNotOfThePromisedSize) {
    uint8_t untouched = 0;
    uint8_t* data = &untouched;
    EXPECT_EQ(HandOut(4, &data, [](ByteWriter& w) { w.Zeros(3); }), kStatusNoMemory);
    EXPECT_EQ(HandOut(4, &data, [](ByteWriter& w) { w.Zeros(5); }), kStatusNoMemory);
    EXPECT_EQ(data, &untouched);
}

TEST(HandOut, GivesNothingWhenTheStructureFindsNoMemory) {
    uint8_t untouched = 0;
    uint8_t* data = &untouched;
    EXPECT_EQ(HandOut(4, &data, [](ByteWriter&) { throw std::bad_alloc(); }), kStatusNoMemory);
    EXPECT_EQ(data, &untouched);
}

}  // namespace
}  // namespace kmxf
