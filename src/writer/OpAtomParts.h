#pragma once

#include <vector>

#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/writer/OpAtomBase.h"
#include "writer/HeaderMetadata.h"

namespace kmxf {

// Everything one OP-Atom file is built from.
struct COpAtomBase::Parts {
    explicit Parts(const ClipFormat& format) : metadata(format) {}

    // What the file holds: its essence element, the one track of its file package, descriptor and container label.
    void SetEssence(const ClipFormat& format, const MXFKEYTag& elementKey, uint32_t trackCode,
                    const MXFKEYTag& container, EssenceDescriptor descriptor);
    // A segment of constant edit units; the first is repeated in the header area.
    CIndexCommon& AddIndexSegment(CIndexCommon segment, const MXFRATIONALTag& editRate, int64_t start, uint32_t bytes);

    // What the header area leaves for the fill item, in bytes; negative when the metadata does not fit.
    int64_t Room();

    EssenceDescriptor& Descriptor() { return metadata.descriptors.front(); }

    HeaderMetadata metadata;
    CPartition headerPartition{1};
    CPartition bodyPartition{2};
    CPartition footerPartition{3};
    std::vector<CIndexCommon> index;
    MXFKEYTag elementKey;
    int64_t dataSize = 0;
    bool ownMaterialUMID = false;
};

// The file package has one track.
inline constexpr uint32_t kFileTrackID = 1;

}  // namespace kmxf
