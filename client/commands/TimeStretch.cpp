// SPDX-License-Identifier: Apache-2.0
#include "client/commands/TimeStretch.h"

#include "client/screen/Moments.h"
#include "client/screen/WallClock.h"

#include <algorithm>
#include <vector>

namespace meridal {

namespace {

std::string dateTitle(double time, double now)
{
    const bool isThisYear = formatTime(time, "%Y") == formatTime(now, "%Y");
    return formatTime(time, isThisYear ? "%d %b %H:%M" : "%d %b %Y %H:%M");
}

} // namespace

void addTimeOptions(Syntax& syntax, TimeWords& words, std::span<const NamedRange> ranges)
{
    std::vector<std::string> names;
    for (const NamedRange& range : ranges) {
        names.emplace_back(range.name);
    }
    syntax.choice("--range", words.range, names, "How far back");
    syntax.text("--from", words.from, "TIME", "From then on instead: \"Tue 03:00\", \"-2h\", \"2026-11-20 18:30\"");
    syntax.text("--until", words.until, "TIME", "Until then, not now");
    syntax.exclude("--from", "--range");
}

Result<TimeStretch> timeStretchFrom(const TimeWords& words, std::span<const NamedRange> ranges, double now)
{
    for (const std::string& word : {words.from, words.until}) {
        if (!word.empty() && !momentFrom(word, now)) {
            return unexpected(ErrorCode::InvalidArgument, momentComplaint(word));
        }
    }
    const double until = words.until.empty() ? now : std::min(*momentFrom(words.until, now), now);
    if (words.from.empty()) {
        const auto found = std::find_if(
            ranges.begin(), ranges.end(), [&](const NamedRange& range) { return range.name == words.range; });
        const NamedRange& range = found != ranges.end() ? *found : ranges.front();
        const bool isNow = words.until.empty();
        return TimeStretch{.from = range.span > 0 ? until - range.span : 0,
            .until = until,
            .title = std::string(range.title) + (isNow ? "" : " until " + dateTitle(until, now)),
            .name = isNow ? range.name : std::string_view()};
    }
    const double from = *momentFrom(words.from, now);
    if (from >= now) {
        return unexpected(ErrorCode::InvalidArgument, "\"" + words.from + "\" is yet to come");
    }
    if (from >= until) {
        return unexpected(ErrorCode::InvalidArgument, "\"" + words.from + "\" is not before \"" + words.until + "\"");
    }
    return TimeStretch{.from = from,
        .until = until,
        .title = words.until.empty() ? "since " + dateTitle(from, now)
                                     : dateTitle(from, now) + " to " + dateTitle(until, now),
        .name = {}};
}

} // namespace meridal
