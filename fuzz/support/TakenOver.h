#pragma once

#include <cstdlib>
#include <memory>
#include <vector>

#include "kmxf/core/Status.h"
#include "support/Target.h"

namespace kmxf::fuzz {

struct Freer {
    void operator()(uint8_t* bytes) const { std::free(bytes); }
};

template <class Structure>
std::vector<uint8_t> Serialised(Structure& structure) {
    uint8_t* bytes = nullptr;
    if (structure.GetData(&bytes) != kStatusOk) return {};
    const std::unique_ptr<uint8_t, Freer> owned(bytes);
    return {bytes, bytes + structure.GetLength()};
}

// What was taken over from outside is written out; what was written is taken over in full, and written the same.
template <class Structure>
void WriteAndReadAgain(Structure& taken, Structure& other) {
    const auto written = Serialised(taken);
    if (written.empty()) return;
    Require(other.SetData(written.data(), static_cast<uint32_t>(written.size())) == kStatusOk,
            "what was written is read");
    Require(Serialised(other) == written, "what was read is written the same");
}

}  // namespace kmxf::fuzz
