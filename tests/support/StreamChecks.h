#pragma once

#include <gtest/gtest.h>

#include "support/FaultyStream.h"

namespace kmxf::test {

// All pieces and allocators that the stream handed out are given back.
inline void ExpectNothingHeld(const FaultyStream& stream) {
    EXPECT_EQ(stream.LivePieces(), 0);
    EXPECT_EQ(stream.LiveAllocators(), 0);
}

inline void ExpectClosedAndNothingHeld(const FaultyStream& stream) {
    EXPECT_FALSE(stream.IsOpened());
    ExpectNothingHeld(stream);
}

}  // namespace kmxf::test
