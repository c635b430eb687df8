#pragma once

#include "base/ValueFwd.h"

#include <cstdint>
#include <optional>

namespace meridal {

/// The day on which a battery was made, in the ways in which batteries keep it: s since 1970 at its beginning in UTC.
/// Absent for a day that the calendar does not have.

/// Day in bits 0 to 4, month in bits 5 to 8, years since 1980 in bits 9 to 15.
std::optional<double> packedManufactureDate(std::int64_t packed);

/// Six digits YYMMDD that count years from 1992, as text or as the bytes of a number.
std::optional<double> writtenManufactureDate(const Value& date);

/// What the battery's entry says: the written date of its "BatteryData" where there is a good one, else the packed one.
std::optional<double> manufactureDate(const Dictionary& battery);

} // namespace meridal
