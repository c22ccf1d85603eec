#pragma once

#include <cstdint>
#include <ctime>
#include <functional>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

// The one seam to what differs from run to run: clock, random numbers and threads. With sources of its own a program
// gets the same file for the same input, byte for byte.
//
// A source holds for the whole process from the call on; an empty function restores the system's own. Sources may be
// set from any thread at any time, and are called from any thread, possibly several at once.
namespace kmxf {

struct LocalTime {
    std::tm calendar{};  // local time as std::localtime fills it
    int32_t fraction{};  // milliseconds within the second
};

// The clock of GetCurrentTimeMXF and CDateTime.
KMXF_API void SetNowSource(std::function<LocalTime()> source);

// The UUIDs of CreateUUID and of every set's InstanceUID, in network byte order. They are used as they come.
KMXF_API void SetUUIDSource(std::function<MXFKEYTag()> source);

// How the library starts a thread: the function runs `run` once on a thread of its own, does not wait for it, and
// returns 0, or 1 when the thread could not be started.
KMXF_API void SetThreadStarter(std::function<int32_t(std::function<void()> run)> starter);

}  // namespace kmxf
