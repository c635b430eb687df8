// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

constexpr double day = 86'400; ///< s, of a plain day without a change of the clocks

/// Now, in seconds since 1970.
double wallTime();

enum class TimeZone : std::uint8_t { Local, Utc };

/// A moment in seconds since 1970 as strftime(3) writes it; "-" where there is none, or one that no clock shows.
std::string formatTime(std::optional<double> time, const char* format, TimeZone zone = TimeZone::Local);
/// "2026-10-25T02:30:00.250+02:00": ISO 8601, local, with as much of a second as there is, to the millisecond; UTC as "Z".
std::string isoTime(double time);
/// "Sun 2026-10-25 02:30:00 CEST (UTC+02:00)": local, with the zone, which tells the two hours apart that a change of the
/// clocks makes of one.
std::string formatWithZone(double time);

} // namespace meridal
