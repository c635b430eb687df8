// SPDX-License-Identifier: Apache-2.0
#include "base/DeadlineTable.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace meridal {

void DeadlineTable::add(Id id, double deadline, double leeway)
{
    const Entry entry{.deadline = deadline, .latest = deadline + std::max(leeway, 0.0)};
    if (entries_.emplace(id, entry).second) {
        byDeadline_.emplace(entry.deadline, id);
        byLatest_.emplace(entry.latest, id);
    }
}

void DeadlineTable::remove(Id id)
{
    const auto found = entries_.find(id);
    if (found == entries_.end()) {
        return;
    }
    byDeadline_.erase({found->second.deadline, id});
    byLatest_.erase({found->second.latest, id});
    entries_.erase(found);
}

std::optional<double> DeadlineTable::wakeTime() const
{
    if (byLatest_.empty()) {
        return std::nullopt;
    }
    // Whoever may wait least names the end; of what falls due until then the last is the moment that serves all of it.
    const double end = byLatest_.begin()->first;
    return std::prev(byDeadline_.upper_bound({end, std::numeric_limits<Id>::max()}))->first;
}

std::vector<std::pair<DeadlineTable::Id, double>> DeadlineTable::takeDue(double now)
{
    std::vector<std::pair<Id, double>> due;
    while (!byDeadline_.empty() && byDeadline_.begin()->first <= now) {
        const auto [deadline, id] = *byDeadline_.begin();
        due.emplace_back(id, deadline);
        remove(id);
    }
    return due;
}

double nextInRhythm(double deadline, double interval, double now)
{
    constexpr double hair = 1e-6; // of an interval: a moment that rounding put just ahead has passed as well
    const double beats = now < deadline ? 1 : std::floor((now - deadline) / interval + hair) + 1;
    const double next = deadline + beats * interval;
    if (next > now) {
        return next;
    }
    // An interval too short for the clock: never give a moment that is due already.
    return std::max(next + interval, std::nextafter(now, std::numeric_limits<double>::infinity()));
}

} // namespace meridal
