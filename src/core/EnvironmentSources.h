#pragma once

#include <functional>

#include "kmxf/core/Environment.h"

namespace kmxf {

// What the library takes from its surroundings, as the sources in kmxf/core/Environment.h say. Safe from any thread.
LocalTime Now();
MXFKEYTag NewUUID();
int32_t StartThread(std::function<void()> run);  // 0, or 1 when it could not be started

}  // namespace kmxf
