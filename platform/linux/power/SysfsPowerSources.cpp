// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/SysfsPowerSources.h"

#include "platform/linux/power/PowerSupplies.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

/// Drivers may tell anything: what is beyond every real figure is left out.
std::optional<std::int64_t> whole(const std::optional<double>& figure)
{
    constexpr double largest = 1e12;
    return figure && std::abs(*figure) < largest ? std::optional(static_cast<std::int64_t>(*figure)) : std::nullopt;
}

/// s after an announcement: a battery learns later than its adapter that it is unplugged, and may not announce it.
constexpr std::array secondLooks = {1.0, 3.0};

/// Firmware that does not know says 0.
std::optional<std::int64_t> aboveZero(const std::optional<double>& figure)
{
    return figure && *figure >= 1 ? whole(figure) : std::nullopt;
}

std::optional<bool> externalPower(const std::vector<PowerSupply>& supplies)
{
    bool adapters = false;
    for (const PowerSupply& supply : supplies) {
        adapters = adapters || supply.isExternal();
        if (supply.isExternal() && supply.isOnline()) {
            return true;
        }
    }
    return adapters ? std::optional(false) : std::nullopt;
}

bool anyInternal(const std::vector<PowerSupply>& supplies, std::string_view status)
{
    return std::any_of(supplies.begin(), supplies.end(),
        [status](const PowerSupply& supply) { return supply.isInternalBattery() && supply.status() == status; });
}

/// Whether the machine runs on its batteries: no adapter gives power and, as some adapters have no driver, none of the
/// batteries is being charged either. Without any adapter known it takes a battery that is being drained.
bool onBattery(const std::vector<PowerSupply>& supplies)
{
    const auto external = externalPower(supplies);
    if (external.value_or(false)) {
        return false;
    }
    return !anyInternal(supplies, "Charging") && (anyInternal(supplies, "Discharging") || external.has_value());
}

std::optional<BatteryVerdict> verdictOf(const PowerSupply& supply)
{
    const auto health = supply.text("health");
    if (health == "Good" || health == "Cool" || health == "Warm") {
        return BatteryVerdict::Good;
    }
    return health == "Dead"               ? std::optional(BatteryVerdict::Poor)
        : health == "Unspecified failure" ? std::optional(BatteryVerdict::CheckBattery)
                                          : std::nullopt;
}

/// No battery lasts as long as would not fit.
TimeEstimate estimate(const std::optional<double>& minutes)
{
    constexpr double longest = std::numeric_limits<int>::max();
    return {minutes ? std::optional(static_cast<int>(std::min(*minutes, longest))) : std::nullopt};
}

std::optional<std::chrono::year_month_day> dayOfManufacture(const PowerSupply& supply)
{
    const auto year = supply.figure("manufacture_year");
    const auto month = supply.figure("manufacture_month");
    const auto day = supply.figure("manufacture_day");
    if (!year || !month || !day || *year < 1980 || *year > 2107 || *month < 1 || *month > 12 || *day < 1 || *day > 31) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date = std::chrono::year(static_cast<int>(*year))
        / std::chrono::month(static_cast<unsigned>(*month)) / std::chrono::day(static_cast<unsigned>(*day));
    return date.ok() ? std::optional(date) : std::nullopt;
}

/// What the battery's own controller counts.
BatteryControllerRecord controllerOf(const PowerSupply& supply)
{
    const auto now = supply.milliampereHours("now");
    const auto energy = supply.milliwattHours("now");
    return {.chargeNowMah = now && *now >= 0 ? whole(now) : std::nullopt,
        .chargeFullMah = aboveZero(supply.milliampereHours("full")),
        .chargeDesignMah = aboveZero(supply.milliampereHours("full_design")),
        .energyNowMwh = energy && *energy >= 0 ? whole(energy) : std::nullopt,
        .cycles = aboveZero(supply.figure("cycle_count")), // controllers that do not count say 0
        .voltageMv = whole(supply.millivolts()),
        .currentMa = whole(supply.milliamperes()),
        .manufactured = dayOfManufacture(supply)};
}

PowerSourceRecord recordOf(const PowerSupply& supply, bool onBattery)
{
    const bool isDrained = supply.status() == "Discharging"; // also from a weak adapter
    const bool isSupplying = supply.isUPS() ? isDrained : onBattery;
    PowerSourceRecord source{.kind = supply.isUPS() ? PowerSourceKind::UPS : PowerSourceKind::InternalBattery,
        .name = supply.text("model_name").value_or(supply.name()),
        .serial = supply.text("serial_number").value_or(""),
        .supply = isSupplying ? PowerSupplyState::Battery : PowerSupplyState::AC,
        .charging = supply.status() == "Charging",
        .charged = supply.status() == "Full",
        .voltageMv = whole(supply.millivolts()),
        .currentMa = whole(supply.milliamperes()),
        .verdict = verdictOf(supply)};
    if (const auto percent = supply.percent()) {
        source.chargePercent = static_cast<int>(*percent);
    }
    if (isSupplying || isDrained) {
        source.toEmpty = estimate(supply.minutesToEmpty());
    } else if (source.charging) {
        source.toFull = estimate(supply.minutesToFull());
    }
    if (!supply.isUPS()) {
        source.controller = controllerOf(supply);
    }
    return source;
}

} // namespace

SysfsPowerSources::SysfsPowerSources(
    Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations)
    : runtime_(runtime)
    , root_(root)
    , uevents_(std::make_unique<Uevents>(
          runtime, root, std::initializer_list<const char*>{"power_supply"}, [this] { changed(); }))
    , ups_(runtime, root, limitations, [this] { observers_.tell(); })
{
    if (!uevents_->isOpen()) {
        limitations->set("power-source-changes", "changes of the power source are not announced: no uevents here");
    }
}

std::vector<PowerSourceRecord> SysfsPowerSources::sources()
{
    const std::vector<PowerSupply> supplies = powerSupplies(root_, SuppliesOf::Machine);
    const bool battery = onBattery(supplies);
    std::vector<PowerSourceRecord> sources;
    for (const PowerSupply& supply : supplies) {
        if (supply.isInternalBattery() || supply.isUPS()) {
            sources.push_back(recordOf(supply, battery));
        }
    }
    for (PowerSourceRecord& ups : ups_.sources()) {
        sources.push_back(std::move(ups));
    }
    return sources;
}

void SysfsPowerSources::changed()
{
    again_.clear();
    if (isDoubtful()) {
        for (const double seconds : secondLooks) {
            again_.push_back(
                runtime_.startTimer(runtime_.mainQueue(), {.first = seconds}, [this] { observers_.tell(); }));
        }
    }
    observers_.tell();
}

/// A battery that is being charged while all adapters are off: a dock without a driver, or a battery that lags behind.
bool SysfsPowerSources::isDoubtful()
{
    const std::vector<PowerSupply> supplies = powerSupplies(root_, SuppliesOf::Machine);
    return externalPower(supplies) == false && anyInternal(supplies, "Charging");
}

} // namespace meridal
