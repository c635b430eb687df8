// SPDX-License-Identifier: Apache-2.0
#include "base/Log.h"

#include "base/LogWriter.h"
#include "base/RollingFileSink.h"
#include "base/Runtime.h"
#include "base/Text.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/dist_sink.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace meridal {

namespace {

/// Lines that may wait for the writer, and bytes that each may have.
constexpr std::size_t waitingLines = 1024;
constexpr std::size_t lineBytes = 4096;
/// Lines that are kept until there is somewhere to write them; the oldest stay, for they tell of the start.
constexpr std::size_t earlyLines = 128;

using Seconds = std::chrono::duration<double>;

spdlog::log_clock::time_point logTimePoint(double wallTime)
{
    return spdlog::log_clock::time_point(std::chrono::duration_cast<spdlog::log_clock::duration>(Seconds(wallTime)));
}

spdlog::level::level_enum spdlogLevel(LogLevel level)
{
    switch (level) {
    case LogLevel::Warning:
        return spdlog::level::warn;
    case LogLevel::Error:
        return spdlog::level::err;
    case LogLevel::Info:
        break;
    }
    return spdlog::level::info;
}

/// spdlog's formatting in front of our rolling files. On the writer's thread only.
class FileSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    FileSink(const std::filesystem::path& folder, LogPolicy policy) : files_(folder, "meridald", policy) { }

    std::uint64_t droppedLines() const { return files_.droppedLines(); }

private:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        files_.write({line.data(), line.size()}, Seconds(message.time.time_since_epoch()).count());
    }
    void flush_() override { } // every line is written at once

    RollingFileSink files_;
};

/// Lines as systemd's journal reads them from a stream: sd-daemon(3). On the writer's thread only.
class JournalSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    explicit JournalSink(std::FILE* stream) : stream_(stream) { }

    std::uint64_t droppedLines() const { return droppedLines_; }

private:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        const char* level = message.level == spdlog::level::err ? "<3>"
            : message.level == spdlog::level::warn              ? "<4>"
                                                                : "<6>";
        const std::string line = level + std::string(message.payload.begin(), message.payload.end()) + '\n';
        if (std::fwrite(line.data(), 1, line.size(), stream_) != line.size() || std::fflush(stream_) != 0) {
            ++droppedLines_;
            std::clearerr(stream_);
        }
    }
    void flush_() override { } // every line is written at once

    std::FILE* const stream_;
    std::atomic<std::uint64_t> droppedLines_ = 0;
};

} // namespace

struct Log::State {
    using Listener = std::function<void(LogLevel, std::string_view)>;
    using Listeners = std::vector<Listener>;

    void write(LogLevel level, std::string_view line)
    {
        const std::string text = printable(line.substr(0, lineBytes));
        std::shared_ptr<const Listeners> current;
        {
            const std::lock_guard lock(mutex);
            current = listeners;
        }
        for (const auto& listener : *current) {
            listener(level, text);
        }
        const std::lock_guard lock(mutex);
        if (writer) {
            writer->push({.time = now(), .level = level, .text = text});
        } else if (early.size() < earlyLines) {
            early.push_back({.time = now(), .level = level, .text = text});
        }
    }

    /// With the mutex held.
    void addSink(spdlog::sink_ptr sink)
    {
        sinks->add_sink(std::move(sink));
        if (!writer) {
            writer =
                std::make_unique<LogWriter>(waitingLines, [this](const LogWriter::Batch& batch) { writeBatch(batch); });
            for (LogLine& line : std::exchange(early, {})) {
                writer->push(std::move(line));
            }
        }
    }

    /// On the writer's thread.
    void writeBatch(const LogWriter::Batch& batch)
    {
        for (const auto& line : batch) {
            logger.log(logTimePoint(line.time), spdlog::source_loc{}, spdlogLevel(line.level), line.text);
        }
        logger.flush();
    }

    double now() const
    {
        return clock != nullptr ? clock->wallTime() : Seconds(spdlog::log_clock::now().time_since_epoch()).count();
    }

    const std::shared_ptr<spdlog::sinks::dist_sink_mt> sinks = std::make_shared<spdlog::sinks::dist_sink_mt>();
    spdlog::logger logger{"", sinks}; ///< writer's thread only
    std::mutex mutex;                 ///< guards all below
    const Runtime* clock = nullptr;   ///< of lines and ages; the system's own until files are added
    std::shared_ptr<const Listeners> listeners = std::make_shared<Listeners>();
    std::vector<LogLine> early; ///< from before the first sink
    std::shared_ptr<FileSink> files;
    std::shared_ptr<JournalSink> journal;
    std::unique_ptr<LogWriter> writer; ///< made with the first sink; goes first
};

Log::Log() : state_(std::make_unique<State>()) { }

Log::~Log() = default;

void Log::addFiles(const Runtime& runtime, const std::filesystem::path& folder, LogPolicy policy)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder, error)) {
        warning("No log files: the folder " + folder.string() + " cannot be made");
        return;
    }
    auto files = std::make_shared<FileSink>(folder, policy);
    const std::lock_guard lock(state_->mutex);
    state_->clock = &runtime;
    state_->files = files;
    state_->addSink(std::move(files));
}

void Log::addJournal(const Runtime& runtime, std::FILE* stream)
{
    auto journal = std::make_shared<JournalSink>(stream);
    const std::lock_guard lock(state_->mutex);
    state_->clock = &runtime;
    state_->journal = journal;
    state_->addSink(std::move(journal));
}

bool Log::hasJournal() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->journal != nullptr;
}

void Log::addListener(std::function<void(LogLevel, std::string_view)> listener)
{
    const std::lock_guard lock(state_->mutex);
    auto listeners = std::make_shared<State::Listeners>(*state_->listeners);
    listeners->push_back(std::move(listener));
    state_->listeners = std::move(listeners);
}

void Log::info(std::string_view line) { state_->write(LogLevel::Info, line); }

void Log::warning(std::string_view line) { state_->write(LogLevel::Warning, line); }

void Log::error(std::string_view line) { state_->write(LogLevel::Error, line); }

void Log::flush()
{
    LogWriter* writer = nullptr;
    {
        const std::lock_guard lock(state_->mutex);
        writer = state_->writer.get(); // stays until the log goes
    }
    if (writer != nullptr) {
        writer->flush();
    }
}

std::uint64_t Log::droppedLines() const
{
    const std::lock_guard lock(state_->mutex);
    return (state_->writer ? state_->writer->lostLines() : 0) + (state_->files ? state_->files->droppedLines() : 0)
        + (state_->journal ? state_->journal->droppedLines() : 0);
}

} // namespace meridal
