#pragma once

#include <cstdint>

#include "kmxf/structures/Descriptors.h"

namespace kmxf {

// Describes AVC-Intra pictures, which CCDCIEssenceDescriptor::SetVideoFormat leaves to their builder. Returns 0, or
// kStatusInvalidArgument and leaves the descriptor as it is: another compression type, or a video standard at which it
// has no frame size.
int32_t DescribeAVCIntraPicture(CMPEGEssenceDescriptor& descriptor, uint32_t videoStd, uint32_t compType);

}  // namespace kmxf
