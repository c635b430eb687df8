// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryTotal.h"

#include "collectors/battery/BatteryStatCollectorItem.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

using Batteries = std::vector<const BatteryStatCollectorItem*>;

/// What one holds, all in one unit: of energy where every battery tells its size, else they count alike.
struct Share {
    double full = 0;
    double left = 0;
};

std::optional<double> sizeOf(const BatteryStatCollectorItem& battery)
{
    const auto capacity = battery.maximumCapacity();
    const auto voltage = battery.voltage();
    return capacity && voltage && *voltage > 0 ? std::optional(*capacity * *voltage) : std::nullopt;
}

/// Empty when the charge of one of them is not known.
std::vector<Share> sharesOf(const Batteries& batteries)
{
    const bool sized =
        std::all_of(batteries.begin(), batteries.end(), [](const auto* each) { return sizeOf(*each).has_value(); });
    std::vector<Share> shares;
    for (const auto* battery : batteries) {
        if (!battery->percentage()) {
            return {};
        }
        const double full = sized ? *sizeOf(*battery) : 1;
        shares.push_back({.full = full, .left = full * *battery->percentage() / 100});
    }
    return shares;
}

BatteryState stateOf(const Batteries& batteries)
{
    const auto any = [&](BatteryState state) {
        return std::any_of(
            batteries.begin(), batteries.end(), [state](const auto* each) { return each->state() == state; });
    };
    for (const BatteryState state :
        {BatteryState::Draining, BatteryState::Charging, BatteryState::Optimized, BatteryState::NotCharging}) {
        if (any(state)) {
            return state;
        }
    }
    return BatteryState::Charged;
}

/// Minutes in which the rates of those that tell a time bring all of them to an end.
int timeOf(const Batteries& batteries, const std::vector<Share>& shares, BatteryState state)
{
    if (state != BatteryState::Draining && state != BatteryState::Charging) {
        return state == BatteryState::Charged ? batteryTime::charged : batteryTime::noFigure;
    }
    double amount = 0;
    double rate = 0; // per minute
    for (std::size_t i = 0; i < shares.size(); ++i) {
        const bool drained = state == BatteryState::Draining;
        if (drained || batteries[i]->state() == state) { // one that is not charged now may be held back for good
            const double part = drained ? shares[i].left : shares[i].full - shares[i].left;
            amount += part;
            rate += batteries[i]->state() == state && batteries[i]->time() > 0 ? part / batteries[i]->time() : 0;
        }
    }
    constexpr double longest = 30 * 24 * 60; // no battery lasts longer
    const double minutes = rate > 0 ? amount / rate : longest + 1;
    return minutes <= longest ? static_cast<int>(std::lround(minutes)) : batteryTime::unknown;
}

} // namespace

std::optional<Dictionary> batteryTotal(const Batteries& batteries)
{
    if (batteries.size() < 2) {
        return std::nullopt;
    }
    const std::vector<Share> shares = sharesOf(batteries);
    const BatteryState state = stateOf(batteries);
    Dictionary total{{"state", static_cast<int>(state)}, {"time", timeOf(batteries, shares, state)}};
    Share sum;
    for (const Share& share : shares) {
        sum.full += share.full;
        sum.left += share.left;
    }
    if (sum.full > 0) {
        total["percentage"] = std::round(sum.left / sum.full * 100);
    }
    std::optional<double> power = 0;
    for (const auto* battery : batteries) {
        power = power && battery->power() ? std::optional(*power + *battery->power()) : std::nullopt;
    }
    if (power) {
        total["power"] = *power;
    }
    return total;
}

} // namespace meridal
