#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Text.h"
#include "kmxf/collaborators/Log.h"

namespace {

using namespace kmxf;
using namespace kmxf::program;

void OnInterrupt(int) { interrupted = true; }

// The library's records go to --log-file, and with --verbose to standard error; otherwise failures are told in one
// line.
void RouteLog(std::ofstream& file) {
    if (!settings.logFile.empty()) {
        file.open(settings.logFile, std::ios::app);
        if (!file) Fail(ExitStatus::kOutput, settings.logFile, "cannot be written: " + ErrorText(errno));
    }
    SetLogSink([&file](const LogRecord& record) {
        const std::string line =
            record.function + " (" + record.sourceFile + ":" + std::to_string(record.line) + "): " + record.message;
        if (settings.verbose) std::fprintf(stderr, "kmxf: %s\n", line.c_str());
        if (file.is_open()) file << line << '\n' << std::flush;
    });
}

void PrintStatistics(std::chrono::steady_clock::time_point start) {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "read %s bytes in %s reads, wrote %s bytes in %s writes, %.3f s\n",
                 WithSeparators(statistics.bytesRead).c_str(), WithSeparators(statistics.reads).c_str(),
                 WithSeparators(statistics.bytesWritten).c_str(), WithSeparators(statistics.writes).c_str(), seconds);
}

ExitStatus RunProgram(int argc, char** argv) {
    CLI::App app{"MXF files of professional camera recordings", "kmxf"};
    app.set_version_flag("--version", "kmxf " KMXF_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("-q,--quiet", settings.quiet, "No progress");
    app.add_flag("-v,--verbose", settings.verbose, "Show the library's log records");
    app.add_flag("--progress", settings.progress, "Show progress even when standard error is no terminal");
    app.add_flag("--stats", settings.stats, "Tell bytes, reads and writes, and the time taken");
    app.add_option("--log-file", settings.logFile, "Append the library's log records to a file");
    app.add_option("--color", settings.color, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    std::vector<std::pair<std::string, Run>> commands{
        {"wrap", AddWrap(app)}, {"unwrap", AddUnwrap(app)}, {"info", AddInfo(app)}, {"frames", AddFrames(app)},
        {"dump", AddDump(app)}, {"check", AddCheck(app)},   {"edit", AddEdit(app)}, {"salvage", AddSalvage(app)}};
    for (CLI::App* command : app.get_subcommands({})) command->set_version_flag("--version", "kmxf " KMXF_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);
            return ExitStatus::kDone;
        }
        std::fprintf(stderr, "kmxf: %s\n", error.what());
        return ExitStatus::kUsage;
    }

    const auto start = std::chrono::steady_clock::now();
    std::ofstream logFile;
    ExitStatus status = ExitStatus::kInternal;
    try {
        RouteLog(logFile);
        for (const auto& [name, run] : commands) {
            if (app.got_subcommand(name)) status = run();
        }
        const bool flushed = std::fflush(stdout) == 0;
        if (!flushed || std::ferror(stdout) != 0)  // a write may have failed long ago
            Fail(ExitStatus::kOutput, "standard output",
                 "cannot be written" + (flushed ? "" : ": " + ErrorText(errno)));
    } catch (const Failure& failure) {
        std::fprintf(stderr, "kmxf: %s\n", failure.what());
        status = failure.Status();
    } catch (const std::filesystem::filesystem_error& error) {
        std::fprintf(stderr, "kmxf: %s: cannot be opened: %s\n", error.path1().c_str(), error.code().message().c_str());
        status = ExitStatus::kInput;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kmxf: internal fault: %s\n", error.what());
        status = ExitStatus::kInternal;
    }
    SetLogSink({});
    if (settings.stats) PrintStatistics(start);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a write that cannot be done says so
    std::signal(SIGXFSZ, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = OnInterrupt;  // without SA_RESTART: a read from a pipe ends
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    try {
        return static_cast<int>(RunProgram(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kmxf: %s\n", error.what());
        return static_cast<int>(ExitStatus::kInternal);
    }
}
