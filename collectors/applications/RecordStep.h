// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace meridal {

/// How long the periods of a table are. Days and months are those of the clock on this machine's wall, the others parts of
/// UTC's hours.
enum class RecordStep : int { Minute, Quarter, Hour, Day, Month };

constexpr std::array<RecordStep, 5> recordSteps = {
    RecordStep::Minute, RecordStep::Quarter, RecordStep::Hour, RecordStep::Day, RecordStep::Month};
/// Those that add minutes up.
constexpr std::array<RecordStep, 4> coarseSteps = {
    RecordStep::Quarter, RecordStep::Hour, RecordStep::Day, RecordStep::Month};
constexpr std::size_t position(RecordStep step) { return static_cast<std::size_t>(step); }

struct RecordStepTraits {
    std::string_view name; ///< to clients
    std::string_view table;
    double seconds = 0; ///< of a period; of a month the mean
    double keptFor = 0; ///< s, unless the administrator says otherwise; 0: for ever
};

constexpr std::array<RecordStepTraits, 5> recordStepTraits = {{
    {"minute", "application_minutes", 60, 2.0 * 86'400},
    {"quarter", "application_quarters", 900, 14.0 * 86'400},
    {"hour", "application_hours", 3600, 100.0 * 86'400},
    {"day", "application_days", 86'400, 1827.0 * 86'400},
    {"month", "application_months", 2'629'746, 0},
}};
constexpr const RecordStepTraits& traitsOf(RecordStep step) { return recordStepTraits[position(step)]; }
/// How long the periods of each step stay, in s; 0: for ever.
struct RecordKeep {
    std::array<double, recordSteps.size()> seconds = {recordStepTraits[0].keptFor, recordStepTraits[1].keptFor,
        recordStepTraits[2].keptFor, recordStepTraits[3].keptFor, recordStepTraits[4].keptFor};

    double of(RecordStep step) const { return seconds[position(step)]; }
    /// Whether those of then are still there, as far as age goes.
    bool reaches(RecordStep step, double time, double now) const { return of(step) <= 0 || time >= now - of(step); }
};

std::optional<RecordStep> recordStepNamed(std::string_view name);

/// The start of the period that a moment lies in; both in s since 1970.
double startOf(RecordStep step, double time);
/// When the period that starts then is over: the start of the next one.
double endOf(RecordStep step, double start);

} // namespace meridal
