#include "kmxf/core/Status.h"

#include <gtest/gtest.h>

namespace kmxf::test {
namespace {

TEST(Status, CodesAreTheNumbersThatClientsKnow) {
    EXPECT_EQ(kStatusOk, 0);
    EXPECT_EQ(kStatusFailure, -458753);          // 0xFFF8FFFF
    EXPECT_EQ(kStatusInvalidArgument, -458754);  // 0xFFF8FFFE
    EXPECT_EQ(kStatusNoMemory, -458755);         // 0xFFF8FFFD
    EXPECT_EQ(kStatusWrongState, -458756);       // 0xFFF8FFFC
    EXPECT_EQ(kStatusIoError, -458757);          // 0xFFF8FFFB
    EXPECT_EQ(kStatusUnexpectedKind, -458758);   // 0xFFF8FFFA
    EXPECT_EQ(kStatusNotFound, -458759);         // 0xFFF8FFF9
    EXPECT_EQ(kStatusDisagree, -458760);         // 0xFFF8FFF8
    EXPECT_EQ(kStatusFrameNoInfo, -851973);      // 0xFFF2FFFB
    EXPECT_EQ(kCountFailed, -1);
}

}  // namespace
}  // namespace kmxf::test
