#include "kmxf/core/Environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/EnvironmentSources.h"

namespace kmxf {
namespace {

constexpr MXFKEYTag kGiven{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};

LocalTime Year(int year) {
    LocalTime time;
    time.calendar.tm_year = year - 1900;
    time.fraction = 250;
    return time;
}

TEST(NowSource, GivesTheTimeUntilItIsTakenAway) {
    SetNowSource([] { return Year(1999); });
    EXPECT_EQ(Now().calendar.tm_year, 99);
    EXPECT_EQ(Now().fraction, 250);
    SetNowSource([] { return Year(1998); });
    EXPECT_EQ(Now().calendar.tm_year, 98);
    SetNowSource({});
    EXPECT_GE(Now().calendar.tm_year, 120);
}

TEST(NowSource, IsTheSystemsLocalTimeByDefault) {
    const std::time_t before = std::time(nullptr);
    const LocalTime now = Now();
    const std::time_t after = std::time(nullptr);
    std::tm calendar = now.calendar;
    const std::time_t seconds = std::mktime(&calendar);
    EXPECT_GE(seconds, before - 1);
    EXPECT_LE(seconds, after + 1);
    EXPECT_GE(now.fraction, 0);
    EXPECT_LE(now.fraction, 999);
}

TEST(UUIDSource, GivesUUIDsAsTheyComeUntilItIsTakenAway) {
    SetUUIDSource([] { return kGiven; });
    EXPECT_EQ(NewUUID(), kGiven);
    EXPECT_EQ(NewUUID(), kGiven);
    SetUUIDSource({});
    EXPECT_NE(NewUUID(), kGiven);
}

TEST(UUIDSource, IsRandomByDefaultButForVersionAndVariant) {
    std::vector<std::string> seen;
    seen.reserve(1000);
    uint8_t everSet[16]{}, alwaysSet[16];
    std::memset(alwaysSet, 0xFF, sizeof alwaysSet);
    for (int i = 0; i < 1000; ++i) {
        const MXFKEYTag uuid = NewUUID();
        seen.emplace_back(uuid.bytes, uuid.bytes + 16);
        for (size_t k = 0; k < 16; ++k) {
            everSet[k] = static_cast<uint8_t>(everSet[k] | uuid.bytes[k]);
            alwaysSet[k] = static_cast<uint8_t>(alwaysSet[k] & uuid.bytes[k]);
        }
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end()) << "no two alike";
    for (size_t k = 0; k < 16; ++k) {
        EXPECT_EQ(everSet[k], k == 6 ? 0x4F : k == 8 ? 0xBF : 0xFF) << k;
        EXPECT_EQ(alwaysSet[k], k == 6 ? 0x40 : k == 8 ? 0x80 : 0x00) << k;
    }
}

TEST(ThreadStarter, RunsOnAThreadOfItsOwnByDefault) {
    std::promise<std::thread::id> ran;
    ASSERT_EQ(StartThread([&] { ran.set_value(std::this_thread::get_id()); }), 0);
    EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
}

TEST(ThreadStarter, MayRunOrRefuse) {
    bool ran = false;
    SetThreadStarter([](const std::function<void()>& run) {
        run();
        return 0;
    });
    EXPECT_EQ(StartThread([&] { ran = true; }), 0);
    EXPECT_TRUE(ran);

    ran = false;
    SetThreadStarter([](const std::function<void()>&) { return 1; });
    EXPECT_EQ(StartThread([&] { ran = true; }), 1);
    EXPECT_FALSE(ran);

    SetThreadStarter({});
    std::promise<void> again;
    EXPECT_EQ(StartThread([&] { again.set_value(); }), 0);
    again.get_future().wait();
}

TEST(Sources, MayReplaceThemselvesAndAskEachOther) {
    SetUUIDSource([] {
        SetUUIDSource({});
        SetNowSource([] { return Year(2001); });
        MXFKEYTag uuid;
        uuid.bytes[0] = static_cast<uint8_t>(Now().calendar.tm_year);
        return uuid;
    });
    EXPECT_EQ(NewUUID().bytes[0], 101);
    SetNowSource({});
}

TEST(Sources, AreLeftUsableByASourceThatThrows) {
    SetUUIDSource([]() -> MXFKEYTag { throw std::runtime_error("none"); });
    EXPECT_THROW(NewUUID(), std::runtime_error);
    SetUUIDSource({});
    EXPECT_NE(NewUUID(), MXFKEYTag{});
}

TEST(Sources, MayBeSetAndAskedFromManyThreadsAtOnce) {
    std::atomic<int> strange{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                if (t % 2 == 0) {
                    SetUUIDSource([] { return kGiven; });
                    SetNowSource([] { return Year(1999); });
                    SetUUIDSource({});
                    SetNowSource({});
                }
                const MXFKEYTag uuid = NewUUID();
                const int year = Now().calendar.tm_year;
                if (uuid != kGiven && (uuid.bytes[6] & 0xF0) != 0x40) ++strange;
                if (year != 99 && year < 120) ++strange;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(strange, 0);
}

}  // namespace
}  // namespace kmxf
