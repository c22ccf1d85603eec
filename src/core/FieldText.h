#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/Bytes.h"
#include "kmxf/core/Convert.h"

// Texts out of fields of fixed width, which are padded with zeros; a full field has no terminator.
namespace kmxf {

// UTF-16, big-endian, as UTF-8.
inline std::string UTF16FieldText(std::span<const uint8_t> field) {
    std::vector<uint16_t> units;
    for (ByteReader reader(field); reader.Remaining() >= 2;) units.push_back(reader.U16());
    units.push_back(0);
    std::string text(static_cast<size_t>(UTF16ToUTF8(units.data(), nullptr)), '\0');
    UTF16ToUTF8(units.data(), text.data());
    return text;
}

// Bytes as they stand.
inline std::string RawFieldText(std::span<const uint8_t> field) {
    return {field.begin(), std::find(field.begin(), field.end(), uint8_t{0})};
}

}  // namespace kmxf
