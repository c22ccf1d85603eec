#pragma once

#include <algorithm>
#include <cstdint>

#include "kmxf/core/Records.h"

namespace kmxf::test {

// Records all of whose bytes are the same.
inline MXFKEYTag KeyOf(uint8_t byte) {
    MXFKEYTag key;
    std::fill_n(key.bytes, sizeof key.bytes, byte);
    return key;
}
inline MXFUMIDTag UmidOf(uint8_t byte) {
    MXFUMIDTag umid;
    std::fill_n(umid.bytes, sizeof umid.bytes, byte);
    return umid;
}

}  // namespace kmxf::test
