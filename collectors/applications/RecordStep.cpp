// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/RecordStep.h"

#include "base/LocalTime.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr double daySeconds = 86'400;

/// A clock that skips midnight has none: the first moment after it stands for that.
double localMidnight(std::int64_t civilDay, double notAfter)
{
    return std::min(wallTimeOfCivil(civilDay), std::floor(notAfter));
}

} // namespace

std::optional<RecordStep> recordStepNamed(std::string_view name)
{
    const auto found = std::find_if(
        recordSteps.begin(), recordSteps.end(), [name](RecordStep step) { return traitsOf(step).name == name; });
    return found != recordSteps.end() ? std::optional(*found) : std::nullopt;
}

double startOf(RecordStep step, double time)
{
    if (step < RecordStep::Day) {
        return std::floor(time / traitsOf(step).seconds) * traitsOf(step).seconds;
    }
    const std::int64_t civil = civilSeconds(time);
    std::int64_t day = civil - civil % static_cast<std::int64_t>(daySeconds);
    if (step == RecordStep::Month) {
        day -= (localTime(time).tm_mday - 1) * static_cast<std::int64_t>(daySeconds);
    }
    return localMidnight(day, time);
}

double endOf(RecordStep step, double start)
{
    switch (step) {
    case RecordStep::Day:
        return startOf(step, start + 1.5 * daySeconds); // about noon of the next one, also where the clock is set
    case RecordStep::Month:
        return startOf(step, start + 45 * daySeconds);
    default:
        return start + traitsOf(step).seconds;
    }
}

} // namespace meridal
