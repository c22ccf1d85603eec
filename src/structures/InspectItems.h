#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "kmxf/structures/Inspect.h"

namespace kmxf {

// What a primer pack binds its local tags to.
using PrimerLabels = std::map<uint16_t, MXFKEYTag>;

// The contents of a packet whose value begins with these bytes; `primer` is null where none is in force.
std::vector<InspectedItem> DecodeItems(const InspectedPacket& packet, std::span<const uint8_t> value,
                                       const PrimerLabels* primer);

}  // namespace kmxf
