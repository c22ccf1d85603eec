#pragma once

#include <algorithm>
#include <iterator>

#include "core/Labels.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// A basic UMID of its own, with a new UUID for the material number (SMPTE ST 330).
inline MXFUMIDTag NewUMID() {
    MXFKEYTag material;
    CreateUUID(&material);
    MXFUMIDTag umid;
    std::copy(std::begin(kNewUMIDPrefix.bytes), std::end(kNewUMIDPrefix.bytes), umid.bytes);
    std::copy(std::begin(material.bytes), std::end(material.bytes), umid.bytes + sizeof kNewUMIDPrefix.bytes);
    return umid;
}

}  // namespace kmxf
