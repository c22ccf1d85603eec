#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>

#include "kmxf/core/Environment.h"
#include "kmxf/core/Export.h"

namespace kmxf {

// A plain mutual-exclusion lock, not recursive, for use from any thread.
class KMXF_API Mutex {
public:
    Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    virtual ~Mutex();

    // Waits until no thread holds the lock. A thread that holds it already must not call this.
    void Lock();
    // To be called by the thread that holds the lock.
    void Unlock();

private:
    std::mutex mutex_;
};

// A moment as local calendar time. It begins as 1900-01-00, which is no date, until SetCurrentTime is called.
class KMXF_API CDateTime {
public:
    CDateTime();
    virtual ~CDateTime();

    // Captures now. Always kStatusOk.
    int32_t SetCurrentTime();
    // The captured moment: `local` as std::localtime fills it, `fraction` in milliseconds within the second, 0 to 999.
    // A null `fraction` is allowed; a null `local` gives kStatusInvalidArgument.
    int32_t GetLocalTime(std::tm* local, int32_t* fraction) const;

private:
    LocalTime time_;
};

}  // namespace kmxf
