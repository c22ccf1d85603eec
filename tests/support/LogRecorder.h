#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "kmxf/collaborators/Log.h"
#include "support/TestsOwn.h"

namespace kmxf::test {

// Takes all log records while it lives; then they go to standard error again.
class LogRecorder {
public:
    LogRecorder() {
        SetLogSink([this](const LogRecord& record) {
            const TestsOwn own;
            const std::lock_guard lock(mutex_);
            records_.push_back(record);
        });
    }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;
    ~LogRecorder() { SetLogSink({}); }

    std::vector<LogRecord> Records() const {
        const std::lock_guard lock(mutex_);
        return records_;
    }
    // "CCreateMXFBase::Write: Not Open.", one text a record.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (const auto& record : Records()) lines.push_back(record.function + ": " + record.message);
        return lines;
    }
    void Clear() {
        const std::lock_guard lock(mutex_);
        records_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

}  // namespace kmxf::test
