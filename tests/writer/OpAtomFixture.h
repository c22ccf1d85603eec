#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/writer/OpAtomBase.h"
#include "support/Packets.h"

namespace kmxf::test {

inline std::vector<uint8_t> HeaderOf(COpAtomBase& builder) {
    uint8_t* data = nullptr;
    EXPECT_EQ(builder.GetHeaderData(&data), kStatusOk);
    if (data == nullptr) return {};
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    return {data, data + builder.GetHeaderSize()};
}

inline std::vector<uint8_t> FooterOf(COpAtomBase& builder) {
    uint8_t* data = nullptr;
    EXPECT_EQ(builder.GetFooterData(&data), kStatusOk);
    if (data == nullptr) return {};
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    return {data, data + builder.GetFooterSize()};
}

// The packets of a header area, from the header pack to the body pack.
inline std::vector<Packet> PacketsOf(COpAtomBase& builder) {
    const auto header = HeaderOf(builder);
    return header.empty() ? std::vector<Packet>{} : Packets(header, 0, 32744);
}

inline MXFUMIDTag UmidOf(uint8_t fill) {
    MXFUMIDTag umid;
    for (uint8_t& byte : umid.bytes) byte = fill;
    return umid;
}
inline std::vector<uint8_t> BytesOf(const MXFUMIDTag& umid) { return {umid.bytes, umid.bytes + 32}; }
inline std::vector<uint8_t> Bytes64(int64_t number) {
    std::vector<uint8_t> bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(number >> shift));
    return bytes;
}

}  // namespace kmxf::test
