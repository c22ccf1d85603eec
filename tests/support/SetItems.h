#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <utility>

#include "support/Hex.h"
#include "support/Packets.h"

namespace kmxf::test {

// Items of a local set, by tag, with their values in hex.
inline void ExpectItems(const Packet& set, std::initializer_list<std::pair<uint16_t, const char*>> items) {
    const auto found = set.Items();
    for (const auto& [tag, value] : items) {
        const auto item = found.find(tag);
        ASSERT_NE(item, found.end()) << "no item " << std::hex << tag;
        EXPECT_EQ(item->second, Hex(value)) << "item " << std::hex << tag;
    }
}

}  // namespace kmxf::test
