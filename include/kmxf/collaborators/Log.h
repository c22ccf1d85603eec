#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>

#include "kmxf/core/Export.h"

namespace kmxf {

// Levels of a log record: a failure, and an informational dump.
inline constexpr int32_t kLogError = 0, kLogInfo = 1;

struct LogRecord {
    std::string module;      // empty for the library's own records
    std::string function;    // "CCreateMXFBase::Write"
    std::string sourceFile;  // "CreateMXFBase"
    int32_t line{};
    int32_t level{};
    std::string message;  // without a newline
};

using LogSink = std::function<void(const LogRecord&)>;

// Puts `sink` in place of the one that takes the log records of the whole process. An empty sink restores the default,
// which writes errors to standard error, one line each, and drops the rest.
// The sink is called on the thread that made the record, by one thread at a time; what it throws is swallowed, and
// records made inside it are dropped. Once SetLogSink has returned, the former sink is not called any more; so it must
// not be called from inside a sink.
KMXF_API void SetLogSink(LogSink sink);

}  // namespace kmxf

namespace jq_middle_common {

// One log record. It is handed to the sink when the object is destroyed, provided that it was given a message. An
// object belongs to one thread.
class KMXF_API Log {
public:
    // All texts are copied; a null pointer counts as an empty text.
    Log(const char* module, const char* function, const char* sourceFile, int32_t line, int32_t level);
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    // Delivers the record; without a message it is dropped.
    ~Log();

    // Sets the message from a printf format and its arguments; a later message replaces it. A null format, or one that
    // cannot be formatted, changes nothing.
    [[gnu::format(printf, 2, 3)]] void SetMessage(const char* format, ...);

private:
    kmxf::LogRecord record_;
    bool hasMessage_ = false;
};

// A thread could not be started: the only exception that the library throws of itself.
class KMXF_API ThreadException : public std::exception {
public:
    explicit ThreadException(int32_t value = 0);

    int32_t GetValue() const;
    const char* what() const noexcept override;

private:
    int32_t value_;
};

}  // namespace jq_middle_common
