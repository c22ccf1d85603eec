#pragma once

#include <cstdint>

// What operations return. Failures are negative.
namespace kmxf {

inline constexpr int32_t kStatusOk = 0;

// Something could not be built, parsed or found, or sizes disagree.
inline constexpr int32_t kStatusFailure = static_cast<int32_t>(0xFFF8FFFFu);
// Null pointer, value out of range, wrong length, wrong key.
inline constexpr int32_t kStatusInvalidArgument = static_cast<int32_t>(0xFFF8FFFEu);
// Memory could not be had, or a structure not be serialised.
inline constexpr int32_t kStatusNoMemory = static_cast<int32_t>(0xFFF8FFFDu);
// Not opened, not initialised, header not read.
inline constexpr int32_t kStatusWrongState = static_cast<int32_t>(0xFFF8FFFCu);
// Open, read, write, seek or sync failed.
inline constexpr int32_t kStatusIoError = static_cast<int32_t>(0xFFF8FFFBu);
// The value is of an unexpected kind and was kept all the same.
inline constexpr int32_t kStatusUnexpectedKind = static_cast<int32_t>(0xFFF8FFFAu);
// Not found, empty, nothing to extract, not supported.
inline constexpr int32_t kStatusNotFound = static_cast<int32_t>(0xFFF8FFF9u);
// The files of one clip disagree.
inline constexpr int32_t kStatusDisagree = static_cast<int32_t>(0xFFF8FFF8u);

// Of the frame parsers: the frame does not carry the information.
inline constexpr int32_t kStatusFrameNoInfo = static_cast<int32_t>(0xFFF2FFFBu);

// Of operations that return a count of bytes: it failed.
inline constexpr int32_t kCountFailed = -1;

}  // namespace kmxf
