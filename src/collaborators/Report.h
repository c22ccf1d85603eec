#pragma once

#include <cstdint>

namespace kmxf {

// Where a log record comes from: the qualified name of the operation, and the line that names it. (Not every compiler
// we build with has std::source_location.)
struct LogPlace {
    LogPlace(const char* operation, int32_t lineNumber = __builtin_LINE()) : function(operation), line(lineNumber) {}
    const char* function;
    int32_t line;
};

// Logs one failure (level 0, empty module): Report("CCreateMXFBase::Write", "CreateMXFBase", "Not Open."). The source
// file is named without its extension; the message is a printf format with its arguments. It does not throw: a record
// that there is no memory for is lost.
[[gnu::format(printf, 3, 4)]] void Report(LogPlace place, const char* sourceFile, const char* format, ...);

// Logs a failure and passes its status on, so that a failure path is one expression.
inline int32_t Failed(const LogPlace& place, const char* sourceFile, const char* message, int32_t status) {
    Report(place, sourceFile, "%s", message);
    return status;
}

}  // namespace kmxf
