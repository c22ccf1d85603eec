#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kmxf/core/Records.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/structures/Inspect.h"
#include "tools/CheckModel.h"

namespace kmxf {

// What the header area of a recording still tells, however much of it is left.
struct SalvageHeader {
    bool found = false;  // the file begins with a header partition pack
    CheckScope layout = kOther;
    std::optional<uint64_t> elsewhere;  // where OP-Atom essence begins that is surely not in its place
    bool otherPattern = false;          // the operational pattern of neither layout, and not for damage
    std::optional<uint64_t> footer;     // offset of the footer partition, where the header names one and it is there
    CheckedMetadata metadata;
    uint32_t videoStd = 0;  // one with the clip's picture rate; 0: nobody tells
    uint32_t clipType = 0;
    std::optional<uint32_t> channel;  // OP-Atom: which track of its kind the file holds
    bool consumerDV = false, wide = false;
    MXFUMIDTag materialUMID, fileUMID;  // zero while a recording goes on
    std::string packageName;
    int64_t startTimecode = 0;
    bool startDrop = false;
    MXFTIMESTAMPTag creationDate;
    std::string company, product, version;
    MXFKEYTag productUID;
    CDescriptiveMetadata descriptive;

    SalvageHeader() = default;
    SalvageHeader(const SalvageHeader&) = delete;  // the metadata points into itself
    SalvageHeader(SalvageHeader&&) = default;
    SalvageHeader& operator=(const SalvageHeader&) = delete;
    SalvageHeader& operator=(SalvageHeader&&) = default;

    // A header that was finished tells everything.
    bool IsFinal() const;
    bool IsPicture() const { return metadata.picture.has_value(); }
    bool IsSound() const { return metadata.pictureDescriptor == nullptr && !metadata.soundDescriptors.empty(); }
};

SalvageHeader ReadSalvageHeader(IByteSource& file);

// The groups of clip and scene metadata in a header (SMPTE ST 380), as far as they are there.
CDescriptiveMetadata DescriptiveMetadataOf(std::span<const uint8_t> header, uint32_t videoStd);

}  // namespace kmxf
