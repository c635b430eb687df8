#include "collectors/sensors/SensorsARMController.h"

#include "base/Text.h"
#include "base/Value.h"
#include "collectors/sensors/SensorKind.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint32_t vendorTemperaturePage = 0xFF00;
constexpr std::uint32_t temperatureUsage = 5;
constexpr std::int64_t temperatureEvent = 15;
constexpr std::int64_t powerEvent = 25;           // in thousandths of its unit
constexpr std::int64_t largestEventType = 0x7FFF; // beyond it the field's number would not fit

/// The number of an event type's first field.
std::uint32_t baseField(std::int64_t eventType) { return static_cast<std::uint32_t>(eventType) << 16U; }

double meanOf(const Value& readings, std::string_view prefix)
{
    double sum = 0;
    int count = 0;
    for (const Value& reading : readings) {
        if (text(reading, "key").value_or("").starts_with(prefix)) {
            sum += number(reading, "value").value_or(0);
            ++count;
        }
    }
    return count > 0 ? sum / count : 0;
}

} // namespace

Dictionary armSensorsMatching(std::uint32_t usagePage, std::uint32_t usage)
{
    return {{"PrimaryUsagePage", usagePage}, {"PrimaryUsage", usage}};
}

bool isEmptyAverage(std::string_view key, double value)
{
    return value == 0 && std::any_of(armAverages.begin(), armAverages.end(), [key](const ARMAverage& average) {
        return average.key == key;
    });
}

SensorsARMController::SensorsARMController(Context& context) : services_(*context.host.sensorServices) { }

SensorsARMController& SensorsARMController::sharedARM()
{
    // Never destroyed: at exit the context may go first.
    static auto& instance = *new SensorsARMController(Context::shared());
    return instance;
}

Value SensorsARMController::sensors(const Dictionary& matching, std::int64_t eventType)
{
    Value readings = Value::array();
    const auto page = number(matching, "PrimaryUsagePage");
    const auto usage = number(matching, "PrimaryUsage");
    if (!page || !usage || eventType < 0 || eventType > largestEventType) {
        return readings;
    }
    const SensorServiceQuery query{.usagePage = static_cast<std::uint32_t>(*page),
        .usage = static_cast<std::uint32_t>(*usage),
        .eventType = eventType,
        .field = baseField(eventType)};
    for (const SensorServiceReading& service : services_.read(query)) {
        if (service.product && service.value && std::isfinite(*service.value)) {
            const double value = eventType == powerEvent ? *service.value / 1000 : *service.value;
            readings.push_back({{"key", validUtf8(*service.product)}, {"value", value}});
        }
    }
    return readings;
}

Value SensorsARMController::addTypeToSensors(std::int64_t kind, Value sensors)
{
    for (Value& reading : sensors) {
        reading["type"] = std::to_string(kind);
    }
    return sensors;
}

Value SensorsARMController::sensors()
{
    Value readings = addTypeToSensors(sensorKind::temperature,
        sensors(armSensorsMatching(vendorTemperaturePage, temperatureUsage), temperatureEvent));
    Value averages = Value::array();
    for (const ARMAverage& average : armAverages) {
        averages.push_back({{"key", average.key}, {"name", average.name}, {"type", sensorKind::temperature},
            {"value", meanOf(readings, average.name)}});
    }
    readings.insert(readings.end(), averages.begin(), averages.end());
    return readings;
}

} // namespace meridal
