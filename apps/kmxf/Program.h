#pragma once

#include <atomic>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

// What all commands share: exit statuses, failures, settings, counts.
namespace kmxf::program {

enum class ExitStatus : int {
    kDone = 0,
    kFindings = 1,  // done, with findings
    kUsage = 2,     // wrong usage
    kInput = 3,     // an input could not be opened, read or recognised
    kOutput = 4,    // an output could not be written
    kInternal = 5,  // a fault of ours
    kInterrupted = 130
};

// Ends a command: one line for the user and the exit status.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& message) : std::runtime_error(message), status_(status) {}
    ExitStatus Status() const { return status_; }

private:
    ExitStatus status_;
};

[[noreturn]] inline void Fail(ExitStatus status, const std::string& file, const std::string& what) {
    throw Failure(status, file + ": " + what);
}

// Bytes and calls, for --stats.
struct Statistics {
    std::atomic<uint64_t> bytesRead{0}, bytesWritten{0}, reads{0}, writes{0};
};

// Options that every command takes.
struct Settings {
    bool quiet = false;
    bool verbose = false;
    bool progress = false;
    bool stats = false;
    std::string logFile;
    std::string color = "auto";
};

inline Settings settings;
inline Statistics statistics;

// Set by Ctrl-C; the loops that move essence look at it.
inline std::atomic<bool> interrupted{false};

// A line for the user on standard error, "kmxf: ...". Said even with --quiet: it tells of something done to the
// essence.
void Say(const std::string& message);

}  // namespace kmxf::program
