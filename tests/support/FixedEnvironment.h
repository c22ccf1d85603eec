#pragma once

#include <atomic>
#include <cstdint>

#include "kmxf/core/Environment.h"

namespace kmxf::test {

// While it lives it is Friday 2026-01-02 03:04:05, and UUID number n (from 1, or behind another number) is
// 00 00 00 00 00 00 40 00 80 00 00 00 and n in four bytes, big-endian. Then the system's own come back.
class FixedEnvironment {
public:
    explicit FixedEnvironment(uint32_t behind = 0) : count_(behind) {
        SetNowSource([] {
            LocalTime now;
            now.calendar.tm_year = 2026 - 1900;
            now.calendar.tm_mon = 0;
            now.calendar.tm_mday = 2;
            now.calendar.tm_hour = 3;
            now.calendar.tm_min = 4;
            now.calendar.tm_sec = 5;
            now.calendar.tm_wday = 5;
            now.calendar.tm_yday = 1;
            return now;
        });
        SetUUIDSource([this] { return UUID(++count_); });
    }
    FixedEnvironment(const FixedEnvironment&) = delete;
    FixedEnvironment& operator=(const FixedEnvironment&) = delete;
    ~FixedEnvironment() {
        SetNowSource({});
        SetUUIDSource({});
    }

    static MXFKEYTag UUID(uint32_t number) {
        MXFKEYTag uuid{};
        uuid.bytes[6] = 0x40;  // version 4
        uuid.bytes[8] = 0x80;  // variant of RFC 4122
        for (size_t i = 0; i < 4; ++i) uuid.bytes[15 - i] = static_cast<uint8_t>(number >> (8 * i));
        return uuid;
    }

private:
    std::atomic<uint32_t> count_;
};

}  // namespace kmxf::test
