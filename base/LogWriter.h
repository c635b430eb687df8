// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Log.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace meridal {

/// A line on its way to the files.
struct LogLine {
    double time = 0; ///< wall clock, s since 1970
    LogLevel level = LogLevel::Info;
    std::string text;
};

/// The thread that writes a log. Lines wait for it in a bounded queue, whose oldest line gives way when it is full. It
/// sleeps as long as there is nothing to write; spdlog's own writer wakes up every few seconds to look. Thread-safe.
class LogWriter {
public:
    using Batch = std::vector<LogLine>;

    /// The function gets the waiting lines, oldest first, on the writer's thread.
    LogWriter(std::size_t capacity, std::function<void(const Batch&)> write);
    /// Writes what waits.
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    void push(LogLine line);
    /// Waits until everything pushed so far has been written or has given way.
    void flush();
    std::uint64_t lostLines() const;

private:
    void serve();

    const std::size_t capacity_;
    const std::function<void(const Batch&)> write_;
    mutable std::mutex mutex_; ///< guards all below but the thread
    std::condition_variable work_;
    std::condition_variable progress_;
    std::vector<LogLine> ring_; ///< at most capacity_ lines; the oldest at first_ once it is full
    std::size_t first_ = 0;
    std::uint64_t pushed_ = 0;
    std::uint64_t finished_ = 0; ///< of those pushed, how many have left
    std::uint64_t lost_ = 0;
    bool ending_ = false;
    std::thread thread_;
};

} // namespace meridal
