// SPDX-License-Identifier: Apache-2.0
#include "base/LocalTime.h"

#include <algorithm>
#include <mutex>

namespace meridal {

namespace {

/// The C library keeps its time zone by a lock of its own, which ThreadSanitizer does not see.
std::mutex zone;

/// A moment of the years that four digits can write, with a year's room for stamps that run ahead of the clock.
std::time_t wholeSeconds(double wallTime)
{
    constexpr double endOf9998 = 253'370'764'799;
    return wallTime > 0 ? static_cast<std::time_t>(std::min(wallTime, endOf9998)) : 0;
}

} // namespace

std::tm localTime(double wallTime)
{
    const std::time_t moment = wholeSeconds(wallTime);
    std::tm local{};
    const std::lock_guard lock(zone);
    ::localtime_r(&moment, &local);
    return local;
}

std::int64_t civilSeconds(double wallTime)
{
    std::tm local = localTime(wallTime);
    return std::max<std::int64_t>(0, ::timegm(&local));
}

double wallTimeOfCivil(std::int64_t civil)
{
    const std::time_t asIfUTC = civil;
    std::tm local{};
    ::gmtime_r(&asIfUTC, &local);
    local.tm_isdst = -1;
    const std::lock_guard lock(zone);
    return static_cast<double>(std::mktime(&local));
}

} // namespace meridal
