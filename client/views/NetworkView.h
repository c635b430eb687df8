// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/RecentCourses.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The daemon's list of network interfaces for people ("interfaces" and "primary" of network.interfaces): the primary one
/// first, then those that are up; with rates, totals, errors and addresses. `room` is the width that there is, 0 for any.
/// With courses of both rates together, by the interfaces' names, those are shown where there is room.
Lines networkLines(const Value& answer, int room = 0, const RecentCourses* courses = nullptr);

} // namespace meridal
