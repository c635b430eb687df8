// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/PowerAverages.h"

#include <cmath>

namespace meridal {

void PowerAverages::note(const std::string& identity, double watts, double now)
{
    std::deque<Reading>& readings = readings_[identity];
    if (!readings.empty() && now - readings.back().time > longestGap) {
        readings.clear();
    }
    readings.push_back({.time = now, .watts = watts});
    while (readings.size() > 2 && now - readings[1].time >= span) {
        readings.pop_front(); // what is left spans enough without it
    }
}

std::optional<double> PowerAverages::average(const std::string& identity, double now) const
{
    const auto found = readings_.find(identity);
    if (found == readings_.end() || found->second.empty()) {
        return std::nullopt;
    }
    const std::deque<Reading>& readings = found->second;
    if (readings.back().time - readings.front().time < span || now - readings.back().time > longestGap) {
        return std::nullopt;
    }
    double sum = 0;
    for (const Reading& reading : readings) {
        sum += reading.watts;
    }
    return sum / static_cast<double>(readings.size());
}

std::optional<double> PowerAverages::notedAt(const std::string& identity) const
{
    const auto found = readings_.find(identity);
    return found != readings_.end() && !found->second.empty() ? std::optional(found->second.back().time) : std::nullopt;
}

void PowerAverages::forgetOld(double now)
{
    std::erase_if(readings_,
        [now](const auto& entry) { return entry.second.empty() || now - entry.second.back().time > longestGap; });
}

double roundedPower(double watts) { return std::round(watts / powerStep) / 10; }

} // namespace meridal
