// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Log.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Writes lines to a file that gives way to a new one when it is old or large enough; only the newest files are kept.
/// Each file bears the moment of its first line, in local time like the lines in it: "meridald-20261121T074500.log". That
/// name is all that a restart goes by: it continues the newest file as long as that is young and small enough. Stamps grow
/// from file to file even when the clock does not, so their order is the order of writing and no name comes twice.
/// A disk that is full or gone costs lines, never an exception. Not thread-safe, but for droppedLines().
class RollingFileSink {
public:
    RollingFileSink(std::filesystem::path folder, std::string baseName, LogPolicy policy);

    /// Writes one line, its end included, as of a moment of the wall clock (s since 1970).
    void write(std::string_view line, double wallTime);
    /// Lines that could not be written. Any thread may ask.
    std::uint64_t droppedLines() const { return droppedLines_; }

private:
    struct LogFile {
        std::filesystem::path path;
        std::int64_t stamp = 0; ///< of its first line, civil seconds
    };
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void makeReady(std::size_t bytes, double now);
    bool isDue(std::size_t bytes, double now) const;
    void measure();
    void continueNewest();
    void startNew(double now);
    void removeOldest() const;
    std::vector<LogFile> filesByAge() const;
    std::filesystem::path pathFor(std::int64_t stamp) const;

    const std::filesystem::path folder_;
    const std::string baseName_;
    const LogPolicy policy_;
    std::unique_ptr<std::FILE, CloseFile> file_;
    std::filesystem::path path_;
    double start_ = 0; ///< from where the age of the open file counts, s since 1970
    std::uint64_t size_ = 0;
    bool torn_ = false; ///< the last write stopped inside its line
    std::atomic<std::uint64_t> droppedLines_ = 0;
};

} // namespace meridal
