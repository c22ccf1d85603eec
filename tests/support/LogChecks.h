#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/LogRecorder.h"

namespace kmxf::test {

// The one record of the log is an error of the library's own, and says where it comes from.
inline void ExpectOneError(const LogRecorder& log, const std::string& function, const std::string& sourceFile,
                           const std::string& message) {
    const auto records = log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].module, "");
    EXPECT_EQ(records[0].function, function);
    EXPECT_EQ(records[0].sourceFile, sourceFile);
    EXPECT_EQ(records[0].level, kLogError);
    EXPECT_GT(records[0].line, 0);
    EXPECT_EQ(records[0].message, message);
}

}  // namespace kmxf::test
