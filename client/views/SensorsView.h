// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/RecentCourses.h"
#include "client/screen/StyledText.h"

#include <string>

namespace meridal {

/// A figure in its unit, with the decimals that the unit deserves, bytes in their multiples; "-" where there is none.
std::string formatReading(const Value& figure, const std::string& unit);

/// The daemon's list of sensors for people: by chip, each with value, what is wrong with it, a bar of its range, limits,
/// lowest and highest ever seen; then the fans in a table of their own. One line when there are none. `room` is the width that
/// there is, 0 for any. With courses, by the sensors' keys, those take the place of the range.
Lines sensorLines(const Value& sensors, int room = 0, const RecentCourses* courses = nullptr);

/// The fans among them.
Lines fanLines(const Value& sensors, int room = 0);

/// Those sensors that are fans.
Value fansOf(const Value& sensors);

} // namespace meridal
