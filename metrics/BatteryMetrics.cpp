// SPDX-License-Identifier: Apache-2.0
#include "metrics/FigureFamilies.h"
#include "metrics/MetricFamilies.h"
#include "wire/BatteryCodes.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace meridal {

namespace {

struct BatteryFigure {
    MetricFamily family;
    const char* entry;
    double divisor = 1;
};

constexpr BatteryFigure batteryFigures[] = {
    {batteryChargeFamily, "percentage", fromPercent},
    {{"battery_health_ratio", MetricType::Gauge, "ratio", "Capacity of what a battery was designed for."}, "health",
        fromPercent},
    {{"battery_cycles", MetricType::Counter, "", "Charge cycles of a battery's life."}, "cycles"},
    {{"battery_volts", MetricType::Gauge, "volts", "Voltage of a battery."}, "voltage", 1000},
    {batteryWattsFamily, "power"},
};

const char* wordForState(std::int64_t state)
{
    switch (static_cast<BatteryState>(state)) {
    case BatteryState::Charged:
        return "charged";
    case BatteryState::Charging:
        return "charging";
    case BatteryState::Draining:
        return "draining";
    case BatteryState::NotCharging:
        return "idle";
    case BatteryState::Optimized:
        return "held";
    }
    return "";
}

using BatteryWriter = std::function<void(const Value& battery, const std::string& key)>;

void forEachBattery(const Value& state, const BatteryWriter& write)
{
    const Value* batteries = find(state, "batteries");
    for (const Value& battery : batteries && batteries->is_array() ? *batteries : Value::array()) {
        if (const auto key = text(battery, "key")) {
            write(battery, *key);
        }
    }
}

/// By the battery that speaks for the machine.
std::optional<double> isOnAC(const Value& state)
{
    std::optional<double> onAC;
    const auto primary = text(state, "primary");
    forEachBattery(state, [&](const Value& battery, const std::string& key) {
        const auto source = integer(battery, "source");
        if (key == primary && source && *source >= 0) {
            onAC = *source == static_cast<int>(BatterySource::AC) ? 1 : 0;
        }
    });
    return onAC;
}

} // namespace

void writeBatteryMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    const Value& state = snapshot.battery;
    writer.family({.name = "battery", .type = MetricType::Info, .help = "What a battery is."});
    forEachBattery(state, [&](const Value& battery, const std::string& key) {
        const bool isUPS = integer(battery, "type") == static_cast<int>(BatteryType::UPS);
        writer.sample(
            {{"battery", key}, {"name", text(battery, "name").value_or("")}, {"type", isUPS ? "ups" : "internal"}}, 1);
    });
    for (const BatteryFigure& figure : batteryFigures) {
        writer.family(figure.family);
        forEachBattery(state, [&](const Value& battery, const std::string& key) {
            if (const auto value = number(battery, figure.entry)) {
                writer.sample({{"battery", key}}, *value / figure.divisor);
            }
        });
    }
    writer.family({.name = "battery_state", .help = "What a battery does."});
    forEachBattery(state, [&](const Value& battery, const std::string& key) {
        if (const auto code = integer(battery, "state")) {
            writer.sample({{"battery", key}, {"state", wordForState(*code)}}, 1);
        }
    });
    writer.family({.name = "battery_remaining_seconds",
        .unit = "seconds",
        .help = "Until a battery that drains is empty, or one that is charged full."});
    forEachBattery(state, [&](const Value& battery, const std::string& key) {
        const auto minutes = number(battery, "time");
        if (minutes && *minutes >= 0) {
            writer.sample({{"battery", key}}, *minutes * 60);
        }
    });
    writer.family({.name = "battery_on_ac", .help = "Whether the machine is on external power."});
    writer.sample({}, isOnAC(state));
}

} // namespace meridal
