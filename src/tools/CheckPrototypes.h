#pragma once

#include <optional>
#include <string_view>

#include "kmxf/structures/MXFHeaderBase.h"
#include "tools/CheckModel.h"

// What sets look like in files of this library, told by the sets themselves.
namespace kmxf {

// The items of a set as it writes them.
InspectedItems ItemsOf(CMXFHeaderBase& set);

// An item that a set of this kind has, with the value of a new set.
struct PrototypeItem {
    InspectedItem item;
    bool optional = false;
    bool variable = false;  // in its length
};
// The items of the sets of this name, in their order; null for other sets.
const std::vector<PrototypeItem>* PrototypeOf(std::string_view setName);

// The format whose descriptor has this coding and rate, and most else in common with these; none when there is no such
// format.
std::optional<CheckedPicture> FindPicture(const CheckedSet& descriptor, const CheckedSet* subDescriptor);

// The descriptor of a channel of sound; rate and sample size are those of the file, if they can be.
InspectedItems SoundDescriptorItems(const CheckedMetadata& metadata, bool clipWrapped);
InspectedItems ANCDescriptorItems(const MXFRATIONALTag& rate);
InspectedItems MultipleDescriptorItems(const MXFRATIONALTag& rate);

}  // namespace kmxf
