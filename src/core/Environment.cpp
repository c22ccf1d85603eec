#include "kmxf/core/Environment.h"

#include <chrono>
#include <exception>
#include <mutex>
#include <random>
#include <thread>
#include <utility>

#include "core/EnvironmentSources.h"

namespace kmxf {

namespace {

LocalTime SystemNow() {
    using std::chrono::system_clock;
    const auto now = std::chrono::floor<std::chrono::milliseconds>(system_clock::now());
    const std::time_t seconds = system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(now));
    LocalTime local;
#ifdef _WIN32
    localtime_s(&local.calendar, &seconds);
#else
    localtime_r(&seconds, &local.calendar);
#endif
    local.fraction = static_cast<int32_t>(now.time_since_epoch().count() % 1000);
    return local;
}

// RFC 4122, version 4: all bits random but the version in byte 6 and the variant in byte 8.
MXFKEYTag SystemUUID() {
    thread_local std::random_device random;
    MXFKEYTag uuid;
    uint32_t bits = 0;
    for (size_t i = 0; i < sizeof uuid.bytes; ++i, bits >>= 8) {
        if (i % 4 == 0) bits = random();
        uuid.bytes[i] = static_cast<uint8_t>(bits);
    }
    uuid.bytes[6] = static_cast<uint8_t>(0x40 | (uuid.bytes[6] & 0x0F));
    uuid.bytes[8] = static_cast<uint8_t>(0x80 | (uuid.bytes[8] & 0x3F));
    return uuid;
}

int32_t SystemThread(std::function<void()> run) try {
    std::thread(std::move(run)).detach();
    return 0;
} catch (const std::exception&) {
    return 1;
}

// One thing from the surroundings: the system's own, unless a replacement is set. A call runs outside the lock, so a
// replacement may call the library, or be replaced, meanwhile.
template <class Result, class... Arguments>
class Source {
public:
    using Function = std::function<Result(Arguments...)>;

    explicit Source(Result (*system)(Arguments...)) : system_(system), current_(system) {}

    void Set(Function source) {
        const std::lock_guard lock(mutex_);
        current_ = source ? std::move(source) : system_;
    }
    Result operator()(Arguments... arguments) {
        std::unique_lock lock(mutex_);
        const Function current = current_;
        lock.unlock();
        return current(std::move(arguments)...);
    }

private:
    const Function system_;
    std::mutex mutex_;
    Function current_;
};

// Made at the first use and never destroyed, so that they also serve constructors and destructors of global objects.
auto& NowSource() {
    static auto& source = *new Source(SystemNow);
    return source;
}
auto& UUIDSource() {
    static auto& source = *new Source(SystemUUID);
    return source;
}
auto& ThreadStarter() {
    static auto& source = *new Source(SystemThread);
    return source;
}

}  // namespace

LocalTime Now() { return NowSource()(); }
MXFKEYTag NewUUID() { return UUIDSource()(); }
int32_t StartThread(std::function<void()> run) { return ThreadStarter()(std::move(run)); }

void SetNowSource(std::function<LocalTime()> source) { NowSource().Set(std::move(source)); }
void SetUUIDSource(std::function<MXFKEYTag()> source) { UUIDSource().Set(std::move(source)); }
void SetThreadStarter(std::function<int32_t(std::function<void()> run)> starter) {
    ThreadStarter().Set(std::move(starter));
}

}  // namespace kmxf
