// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace meridal {

class Runtime;

/// When a log file is closed and the next one begun, and how many are kept.
struct LogPolicy {
    double maximumAge = 2'592'000;             ///< s; 30 days
    std::uint64_t maximumFileSize = 5'242'880; ///< bytes
    int maximumFiles = 7;                      ///< newest kept, the current one included
};

enum class LogLevel { Info, Warning, Error };

/// The daemon's log. Writing never blocks on the disk: lines go through a bounded queue to one writer thread, and the
/// oldest waiting line gives way when it is full. Text is made printable. Lines, and the names of files, bear local time.
/// Thread-safe.
class Log {
public:
    /// Lines go nowhere yet: the first of them are kept for the first sink.
    Log();
    ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /// Adds rolling files in a folder, which is made when missing. Failure leaves the log as it was.
    /// Ages are measured on the wall clock of the runtime, which must outlive the log.
    void addFiles(const Runtime& runtime, const std::filesystem::path& folder, LogPolicy policy = {});
    /// Adds a stream that a system journal reads: lines begin with their level as it wants them, "<4>", and have no time,
    /// which it adds. The stream must outlive the log.
    void addJournal(const Runtime& runtime, std::FILE* stream);
    /// Whether lines go to a journal, which keeps them: no files are needed then.
    bool hasJournal() const;
    /// Adds a function that gets every line at once, on the writing thread; for tests.
    void addListener(std::function<void(LogLevel, std::string_view)> listener);

    void info(std::string_view line);
    void warning(std::string_view line);
    void error(std::string_view line);

    /// Waits until everything written so far is in the files.
    void flush();
    /// Lines lost so far: those that gave way in the queue and those that the disk would not take.
    std::uint64_t droppedLines() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace meridal
