#include "kmxf/collaborators/Common.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <type_traits>
#include <vector>

#include "collaborators/Guards.h"
#include "kmxf/core/Status.h"
#include "support/FixedEnvironment.h"

namespace kmxf {
namespace {

TEST(Mutex, LetsOneThreadInAtATime) {
    Mutex mutex;
    int count = 0;
    {
        std::vector<std::jthread> threads;
        threads.reserve(4);
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 1000; ++i) {
                    mutex.Lock();
                    ++count;
                    mutex.Unlock();
                }
            });
        }
    }
    EXPECT_EQ(count, 4000);
    EXPECT_TRUE(std::has_virtual_destructor_v<Mutex>);
    EXPECT_FALSE(std::is_copy_constructible_v<Mutex>);
}

TEST(Mutex, ScopedLockHoldsItToTheEndOfTheScope) {
    Mutex mutex;
    bool released = false;
    std::future<bool> other;
    {
        const ScopedLock lock(mutex);
        other = std::async(std::launch::async, [&] {
            const ScopedLock wait(mutex);
            return released;
        });
        EXPECT_EQ(other.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        released = true;
    }
    EXPECT_TRUE(other.get());
}

TEST(DateTime, CapturesTheClocksTime) {
    const test::FixedEnvironment environment;
    CDateTime dateTime;
    EXPECT_EQ(dateTime.SetCurrentTime(), kStatusOk);
    std::tm local{};
    int32_t fraction = -1;
    EXPECT_EQ(dateTime.GetLocalTime(&local, &fraction), kStatusOk);
    EXPECT_EQ(local.tm_year, 126);
    EXPECT_EQ(local.tm_mon, 0);
    EXPECT_EQ(local.tm_mday, 2);
    EXPECT_EQ(local.tm_hour, 3);
    EXPECT_EQ(local.tm_min, 4);
    EXPECT_EQ(local.tm_sec, 5);
    EXPECT_EQ(local.tm_wday, 5);
    EXPECT_EQ(local.tm_yday, 1);
    EXPECT_EQ(fraction, 0);
}

TEST(DateTime, KeepsTheMomentUntilTheNextCapture) {
    int second = 7;
    SetNowSource([&] {
        LocalTime now;
        now.calendar.tm_sec = second;
        now.fraction = 250;
        return now;
    });
    CDateTime dateTime;
    dateTime.SetCurrentTime();
    second = 8;
    std::tm local{};
    int32_t fraction = -1;
    EXPECT_EQ(dateTime.GetLocalTime(&local, &fraction), kStatusOk);
    EXPECT_EQ(local.tm_sec, 7);
    EXPECT_EQ(fraction, 250);
    dateTime.SetCurrentTime();
    EXPECT_EQ(dateTime.GetLocalTime(&local, nullptr), kStatusOk);
    EXPECT_EQ(local.tm_sec, 8);
    SetNowSource({});
}

TEST(DateTime, RefusesANullCalendarTime) {
    CDateTime dateTime;
    int32_t fraction = -1;
    EXPECT_EQ(dateTime.GetLocalTime(nullptr, &fraction), kStatusInvalidArgument);
    EXPECT_EQ(fraction, -1);
    EXPECT_TRUE(std::has_virtual_destructor_v<CDateTime>);
}

TEST(DateTime, TheSystemsClockIsLocalTime) {
    CDateTime dateTime;
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(dateTime.SetCurrentTime(), kStatusOk);
    const std::time_t after = std::time(nullptr);
    std::tm local{};
    int32_t fraction = -1;
    EXPECT_EQ(dateTime.GetLocalTime(&local, &fraction), kStatusOk);
    const std::time_t captured = std::mktime(&local);
    EXPECT_GE(captured, before);
    EXPECT_LE(captured, after);
    EXPECT_GE(fraction, 0);
    EXPECT_LT(fraction, 1000);
}

}  // namespace
}  // namespace kmxf
