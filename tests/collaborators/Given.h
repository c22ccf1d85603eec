#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"
#include "support/TestData.h"

namespace kmxf::test {

using Bytes = std::vector<uint8_t>;

// The `size` bytes that a getter of a frame parser gives; none where it finds nothing, which must leave the output
// alone. The output has no byte to spare, so that the sanitizers see one too many.
template <class Get>
Bytes Given(size_t size, Get get) {
    Bytes output(size, 0xA5);
    const int32_t status = get(output.data());
    if (status == kStatusOk) return output;
    EXPECT_EQ(status, kStatusFrameNoInfo);
    EXPECT_EQ(output, Bytes(size, 0xA5));
    return {};
}

// A file of tests/data/essence, read once for all tests.
inline const Bytes& Essence(const std::string& name) {
    static std::map<std::string, Bytes> files;
    const auto [at, isNew] = files.try_emplace(name);
    if (isNew) at->second = LoadTestData("essence/" + name);
    return at->second;
}

// A part of the bytes in a buffer of its own, so that the sanitizers see a read past its end.
inline Bytes Part(std::span<const uint8_t> bytes, size_t offset, size_t size) {
    const auto part = bytes.subspan(offset, size);
    return {part.begin(), part.end()};
}

inline void Put(Bytes& bytes, size_t offset, const Bytes& what) {
    ASSERT_LE(offset + what.size(), bytes.size());
    std::copy(what.begin(), what.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

// The same "random" bytes in every run.
inline Bytes Noise(std::mt19937& random, size_t size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
}

}  // namespace kmxf::test
