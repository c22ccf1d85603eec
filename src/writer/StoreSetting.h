#pragma once

#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "core/Bytes.h"
#include "kmxf/core/Status.h"

namespace kmxf {

// What the setters of the writers do with a value that needs memory of its own: they keep a copy and return 0, or
// kStatusNoMemory, and then everything is what it was.
template <class Setting, class Value>
int32_t StoreSetting(Setting& setting, const Value& value) try {
    Setting copy(value);
    setting = std::move(copy);
    return kStatusOk;
} catch (const std::bad_alloc&) {
    return kStatusNoMemory;
}

// The same for what made a file. kStatusInvalidArgument: a text of another length than 1 to 16 bytes, or to 4 for the
// version, or no product UID.
template <class Settings>
int32_t StoreIdentification(Settings& settings, const std::string& company, const std::string& product,
                            const std::string& version, const uint8_t* productUID) try {
    const auto hasBytes = [](const std::string& text, size_t most) { return !text.empty() && text.size() <= most; };
    if (!hasBytes(company, 16) || !hasBytes(product, 16) || !hasBytes(version, 4) || productUID == nullptr) {
        return kStatusInvalidArgument;
    }
    std::string copies[] = {company, product, version};
    settings.company = std::move(copies[0]);
    settings.product = std::move(copies[1]);
    settings.version = std::move(copies[2]);
    settings.productUID = ByteReader({productUID, sizeof(MXFKEYTag)}).Key();
    return kStatusOk;
} catch (const std::bad_alloc&) {
    return kStatusNoMemory;
}

}  // namespace kmxf
