#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "BuilderBytes.h"
#include "kmxf/core/Status.h"
#include "kmxf/writer/OpAtomBase.h"
#include "structures/FilledRecords.h"
#include "support/Packets.h"

namespace kmxf::test {

inline std::vector<uint8_t> HeaderOf(COpAtomBase& builder) {
    return Made(builder.GetHeaderSize(), [&](uint8_t** data) { return builder.GetHeaderData(data); });
}
inline std::vector<uint8_t> FooterOf(COpAtomBase& builder) {
    return Made(builder.GetFooterSize(), [&](uint8_t** data) { return builder.GetFooterData(data); });
}

// The packets of a header area, from the header pack to the body pack.
inline std::vector<Packet> PacketsOf(COpAtomBase& builder) {
    const auto header = HeaderOf(builder);
    return header.empty() ? std::vector<Packet>{} : Packets(header, 0, 32744);
}

inline std::vector<uint8_t> Bytes64(int64_t number) {
    std::vector<uint8_t> bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(number >> shift));
    return bytes;
}

}  // namespace kmxf::test
