#pragma once

#include "base/ValueFwd.h"

#include <chrono>
#include <optional>

namespace meridal {

/// The day on which a Mac's battery was made, from the properties of its driver: the written date of its "BatteryData" where
/// there is a good one, else the packed one. Absent for a day that the calendar does not have.
std::optional<std::chrono::year_month_day> manufactureDate(const Dictionary& battery);

} // namespace meridal
