#pragma once

#include "kmxf/core/VideoStandard.h"

namespace kmxf {

// H.264, intra and Long-GOP: told by two bits, so codes that have no row in any table belong to it too.
constexpr bool IsAVCFamily(CompType compType) { return (compType & 0xC000) == 0xC000; }

}  // namespace kmxf
