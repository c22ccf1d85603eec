#pragma once

#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/structures/Descriptors.h"

namespace kmxf {

// Describes a file package of several essence tracks by a list of their descriptors (SMPTE ST 377-1, annex E).
class MultipleDescriptor : public CFileDescriptor {
public:
    MultipleDescriptor() : CFileDescriptor(kMultipleDescriptorKey) {
        StoreWritten(kTagLinkedTrackID, false);  // it belongs to no track
        SetEssenceContainer(kMultipleWrappingsLabel);
        Declare({{kTagFileDescriptors, Batch({})}});
    }
    int32_t AddDescriptor(MXFKEYTag descriptor) { return AppendToBatch(kTagFileDescriptors, descriptor); }
};

}  // namespace kmxf
