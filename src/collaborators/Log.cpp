#include "kmxf/collaborators/Log.h"

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "collaborators/Report.h"

namespace kmxf {

namespace {

void WriteErrorsToStandardError(const LogRecord& record) {
    if (record.level != kLogError) return;
    std::fprintf(stderr, "%s (%s:%d): %s\n", record.function.c_str(), record.sourceFile.c_str(), int{record.line},
                 record.message.c_str());
}

// The sink and the lock under which it is called. It is never destroyed, so that destructors of global objects can log.
struct Delivery {
    std::mutex mutex;
    LogSink sink = WriteErrorsToStandardError;

    static Delivery& Instance() {
        static auto& delivery = *new Delivery;
        return delivery;
    }
};

void Deliver(const LogRecord& record) noexcept {
    thread_local bool delivering = false;
    if (delivering) return;  // made by the sink itself
    delivering = true;
    auto& delivery = Delivery::Instance();
    const std::lock_guard lock(delivery.mutex);
    try {
        delivery.sink(record);
    } catch (...) {
        // There is nobody to tell: records are delivered by destructors.
    }
    delivering = false;
}

[[gnu::format(printf, 1, 0)]] std::optional<std::string> Format(const char* format, std::va_list arguments) {
    if (format == nullptr) return {};
    std::va_list measured;
    va_copy(measured, arguments);
    const int size = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (size < 0) return {};
    std::string text(static_cast<size_t>(size), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

const char* OrEmpty(const char* text) { return text ? text : ""; }

}  // namespace

void SetLogSink(LogSink sink) {
    auto& delivery = Delivery::Instance();
    const std::lock_guard lock(delivery.mutex);
    delivery.sink = sink ? std::move(sink) : WriteErrorsToStandardError;
}

void Report(LogPlace place, const char* sourceFile, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const auto text = Format(format, arguments);
        jq_middle_common::Log log("", place.function, sourceFile, place.line, kLogError);
        if (text) log.SetMessage("%s", text->c_str());
    } catch (const std::bad_alloc&) {
        // Whoever reports a failure goes on to clean up behind it, and must get there.
    }
    va_end(arguments);
}

}  // namespace kmxf

namespace jq_middle_common {

Log::Log(const char* module, const char* function, const char* sourceFile, int32_t line, int32_t level)
    : record_{kmxf::OrEmpty(module), kmxf::OrEmpty(function), kmxf::OrEmpty(sourceFile), line, level, {}} {}

Log::~Log() {
    if (hasMessage_) kmxf::Deliver(record_);
}

void Log::SetMessage(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    auto text = kmxf::Format(format, arguments);
    va_end(arguments);
    if (!text) return;
    record_.message = std::move(*text);
    hasMessage_ = true;
}

ThreadException::ThreadException(int32_t value) : value_(value) {}

int32_t ThreadException::GetValue() const { return value_; }

const char* ThreadException::what() const noexcept { return "A thread could not be started."; }

}  // namespace jq_middle_common
