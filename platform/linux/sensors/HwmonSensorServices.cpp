#include "platform/linux/sensors/HwmonSensorServices.h"

#include <map>
#include <optional>
#include <string>

namespace meridal {

namespace {

/// What a usage is about, and by how much its event's figure is larger than ours.
struct Usage {
    SensorChannelKind kind;
    double factor;
};

std::optional<Usage> usageOf(const SensorServiceQuery& query)
{
    constexpr std::uint32_t vendorPage = 0xFF00;
    constexpr std::uint32_t powerPage = 0xFF08;
    constexpr std::int64_t temperatureEvent = 15;
    constexpr std::int64_t powerEvent = 25;
    if (query.field != static_cast<std::uint32_t>(query.eventType) << 16) {
        return std::nullopt; // only the base field of an event holds a figure here
    }
    if (query.usagePage == vendorPage && query.usage == 5 && query.eventType == temperatureEvent) {
        return Usage{SensorChannelKind::Temperature, 1};
    }
    if (query.usagePage == powerPage && query.eventType == powerEvent) {
        switch (query.usage) {
        case 1:
            return Usage{SensorChannelKind::Power, 1e3};
        case 2:
            return Usage{SensorChannelKind::Current, 1e3};
        case 3:
            return Usage{SensorChannelKind::Voltage, 1e3};
        default:
            break;
        }
    }
    return std::nullopt;
}

} // namespace

std::vector<SensorServiceReading> HwmonSensorServices::read(const SensorServiceQuery& query)
{
    const auto usage = usageOf(query);
    if (!usage) {
        return {};
    }
    const std::vector<HwmonSensor>& sensors = sensors_->sensors();
    std::map<std::string, int> labels;
    for (const HwmonSensor& sensor : sensors) {
        labels[sensor.label] += sensor.kind == usage->kind ? 1 : 0;
    }
    std::vector<SensorServiceReading> readings;
    for (const HwmonSensor& sensor : sensors) {
        if (sensor.kind == usage->kind) {
            const auto value = sensors_->value(sensor);
            readings.push_back(
                {.product = labels[sensor.label] > 1 ? sensor.label + " (" + sensor.chip + ")" : sensor.label,
                    .value = value ? std::optional(*value * usage->factor) : std::nullopt});
        }
    }
    return readings;
}

} // namespace meridal
