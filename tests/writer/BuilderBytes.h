#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "kmxf/core/Records.h"
#include "kmxf/core/Status.h"

namespace kmxf::test {

// What a builder hands out, which is the caller's to free.
inline std::vector<uint8_t> Take(uint8_t* data, uint32_t size) {
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    return {data, data + size};
}

// `size` bytes that `get` makes.
template <class Get>
std::vector<uint8_t> Made(uint32_t size, Get get) {
    uint8_t* data = nullptr;
    EXPECT_EQ(get(&data), kStatusOk);
    return data == nullptr ? std::vector<uint8_t>{} : Take(data, size);
}

inline std::vector<uint8_t> BytesOf(const MXFUMIDTag& umid) { return {umid.bytes, umid.bytes + 32}; }

}  // namespace kmxf::test
