// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/SensorsARMController.h"

#include "base/Text.h"

#include <cmath>

namespace meridal {

namespace {

constexpr std::uint32_t vendorTemperaturePage = 0xFF00;
constexpr std::uint32_t temperatureUsage = 5;
constexpr std::int64_t temperatureEvent = 15;
constexpr std::int64_t powerEvent = 25; // in thousandths of its unit

/// The number of an event type's first field.
std::uint32_t baseField(std::int64_t eventType) { return static_cast<std::uint32_t>(eventType) << 16U; }

std::optional<double> meanOf(const std::vector<ARMSensor>& sensors, std::string_view prefix)
{
    double sum = 0;
    int count = 0;
    for (const ARMSensor& sensor : sensors) {
        if (sensor.value && sensor.key.starts_with(prefix)) {
            sum += *sensor.value;
            ++count;
        }
    }
    return count > 0 ? std::optional(sum / count) : std::nullopt;
}

} // namespace

std::vector<ARMSensor> SensorsARMController::sensors(
    std::uint32_t usagePage, std::uint32_t usage, std::int64_t eventType)
{
    std::vector<ARMSensor> sensors;
    for (const SensorServiceReading& service : services_.read(
             {.usagePage = usagePage, .usage = usage, .eventType = eventType, .field = baseField(eventType)})) {
        if (service.product && service.value && std::isfinite(*service.value)) {
            sensors.push_back({.key = validUtf8(*service.product),
                .value = eventType == powerEvent ? *service.value / 1000 : *service.value});
        }
    }
    return sensors;
}

std::vector<ARMSensor> SensorsARMController::sensors()
{
    std::vector<ARMSensor> all = sensors(vendorTemperaturePage, temperatureUsage, temperatureEvent);
    std::vector<ARMSensor> averages;
    for (const ARMAverage& average : armAverages) {
        averages.push_back({.key = std::string(average.key), .value = meanOf(all, average.name), .average = &average});
    }
    all.insert(all.end(), averages.begin(), averages.end());
    return all;
}

} // namespace meridal
