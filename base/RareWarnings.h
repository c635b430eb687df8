// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace meridal {

class Log;
class Runtime;

/// Warnings about what may go on for days: of each subject the first goes to the log, and then one an hour, with how many
/// there were since. On one queue.
class RareWarnings {
public:
    static constexpr double interval = 3600; ///< s
    /// More subjects than this within an hour are not told.
    static constexpr std::size_t mostSubjects = 1024;

    RareWarnings(Log& log, const Runtime& runtime) : log_(log), runtime_(runtime) { }

    void tell(const std::string& subject, std::string_view line);

private:
    struct Told {
        double at = 0; ///< s of the clock that cannot step
        std::uint64_t withheld = 0;
    };

    Log& log_;
    const Runtime& runtime_;
    std::map<std::string, Told> told_;
};

} // namespace meridal
