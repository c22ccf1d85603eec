#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"

namespace kmxf::test {

// The bytes that GetData hands out; as many as GetLength promises, or a sanitizer complains.
template <class Structure>
std::vector<uint8_t> Serialised(Structure& structure) {
    uint8_t* data = nullptr;
    EXPECT_EQ(structure.GetData(&data), kStatusOk);
    if (data == nullptr) return {};
    std::vector<uint8_t> bytes(data, data + structure.GetLength());
    std::free(data);
    return bytes;
}

// `count` of those bytes, from `offset` on.
template <class Structure>
std::vector<uint8_t> Part(Structure& structure, size_t offset, size_t count) {
    const auto bytes = Serialised(structure);
    if (offset + count > bytes.size()) return {};
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

// Hex text of `count` zero bytes, and of UUID number n of the fixed environment.
inline std::string Zeros(size_t count) { return std::string(2 * count, '0'); }
inline std::string UID(unsigned n) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    return std::string("000000000000400080000000000000") + kDigits[n / 16] + kDigits[n % 16];
}

}  // namespace kmxf::test
