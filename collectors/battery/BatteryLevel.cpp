// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryLevel.h"

#include "collectors/battery/BatteryStatCollectorItem.h"

#include <algorithm>

namespace meridal {

namespace {

using BatteryFigureOf = std::optional<double> (*)(const BatteryStatCollectorItem&);

std::optional<double> sumOf(const std::vector<const BatteryStatCollectorItem*>& batteries, BatteryFigureOf figure)
{
    std::optional<double> sum = 0;
    for (const auto* battery : batteries) {
        const auto one = figure(*battery);
        sum = sum && one ? std::optional(*sum + *one) : std::nullopt;
    }
    return sum;
}

/// Energy when full; packs differ in voltage.
std::optional<double> sizeWhenFull(const BatteryStatCollectorItem& battery)
{
    const auto capacity = battery.maximumCapacity();
    const auto voltage = battery.voltage();
    return capacity && voltage ? std::optional(*capacity * *voltage) : std::nullopt;
}

std::optional<double> countedShare(const BatteryStatCollectorItem& battery)
{
    const auto full = battery.maximumCapacity();
    const auto now = battery.currentCapacity();
    return full && now && *full > 0 ? std::optional(std::clamp(*now / *full * 100, 0.0, 100.0)) : battery.percentage();
}

std::optional<double> weighed(const std::vector<const BatteryStatCollectorItem*>& batteries, BatteryFigureOf share)
{
    const bool sized = sumOf(batteries, sizeWhenFull).value_or(0) > 0; // else they count alike
    double full = 0;
    double left = 0;
    for (const auto* battery : batteries) {
        const auto one = share(*battery);
        if (!one) {
            return std::nullopt;
        }
        const double size = sized ? *sizeWhenFull(*battery) : 1;
        full += size;
        left += size * *one;
    }
    return full > 0 ? std::optional(left / full) : std::nullopt;
}

} // namespace

std::optional<BatteryLevel> batteryLevel(const std::vector<const BatteryStatCollectorItem*>& batteries)
{
    if (batteries.empty()) {
        return std::nullopt;
    }
    BatteryLevel level;
    for (const auto* battery : batteries) {
        const bool isDrained = battery->state() == BatteryState::Draining;
        level.keys.insert(battery->key().value_or(""));
        level.onBattery = level.onBattery || isDrained || battery->source() == BatterySource::Battery;
        level.moves = level.moves || isDrained || battery->state() == BatteryState::Charging;
    }
    level.charge = weighed(batteries, [](const auto& battery) { return battery.percentage(); });
    level.exactCharge = weighed(batteries, countedShare);
    level.energy = sumOf(batteries, [](const auto& battery) { return battery.energy(); });
    level.power = sumOf(batteries, [](const auto& battery) { return battery.power(); });
    return level;
}

} // namespace meridal
