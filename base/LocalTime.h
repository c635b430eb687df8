// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>

namespace meridal {

/// A moment of the wall clock (s since 1970) by the clock on this machine's wall: what names of files and lines of logs
/// are dated by. A clock far from our years counts as 1970 or as the end of 9998, so that a date always has its length.
std::tm localTime(double wallTime);
/// The same as seconds since 1970 would be if that were UTC: a number that orders and parts local dates.
std::int64_t civilSeconds(double wallTime);
/// The moment of which that is the local date, to an hour where the clock is set back and it is two.
double wallTimeOfCivil(std::int64_t civil);

} // namespace meridal
