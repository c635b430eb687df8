// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// The moment that a person means, in seconds since 1970, read at the moment `now`. Case does not matter.
///
///     now   today   yesterday 18:30   Tue 03:00   last Friday   noon   3 pm   20 Nov 18:30   Nov 20 2026
///     2026-11-20   2026-11   2026-11-20 18:30:05   2026-11-20T18:30+01:00   2026-11-20T17:30Z   @1795250400
///     -2h   -1d12h   90 min ago   2 weeks ago
///
/// A day without a time is its first moment. What leaves the day, the week or the year open is the latest that is not to
/// come. Without a zone it is local time: days, weeks, months and years go by the calendar, so that -1d is the same time of
/// the day before even where that day has 23 or 25 hours. Of a time that a change of the clocks shows twice it is the
/// first; one that it leaves out counts on from the time before the change. Nothing for anything else, and before 1970.
std::optional<double> momentFrom(std::string_view text, double now);

/// What to tell a person about text that is no moment.
std::string momentComplaint(std::string_view text);

} // namespace meridal
