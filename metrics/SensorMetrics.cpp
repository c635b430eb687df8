// SPDX-License-Identifier: Apache-2.0
#include "metrics/FigureFamilies.h"
#include "metrics/MetricFamilies.h"

#include <string>

namespace meridal {

namespace {

struct NamedSensor {
    std::string chip;
    std::string key;
    std::string name;

    explicit NamedSensor(const Value& sensor)
        : chip(text(sensor, "chip").value_or(""))
        , key(text(sensor, "key").value_or(""))
        , name(text(sensor, "name").value_or(""))
    {
    }
};

/// What somebody has set. Without that `low` and `high` are only what has been seen.
std::optional<double> sensorLimit(const Value& sensor, const char* limit)
{
    const Value* isSet = find(sensor, "fixed");
    const bool isRange = std::string_view(limit) != "critical";
    return !isRange || (isSet && *isSet == true) ? number(sensor, limit) : std::nullopt;
}

} // namespace

void writeSensorMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    if (!snapshot.sensors.is_array()) {
        return;
    }
    for (const SensorFamily& each : sensorFamilies) {
        const auto forEach = [&](auto write) {
            for (const Value& sensor : snapshot.sensors) {
                if (text(sensor, "kind") == each.kind) {
                    write(sensor, NamedSensor(sensor));
                }
            }
        };
        writer.family(each.family);
        forEach([&](const Value& sensor, const NamedSensor& named) {
            if (const auto value = number(sensor, "value")) {
                writer.sample(
                    {{"chip", named.chip}, {"sensor", named.key}, {"label", named.name}}, *value / each.divisor);
            }
        });
        if (each.limit.name.empty()) {
            continue;
        }
        writer.family(each.limit);
        forEach([&](const Value& sensor, const NamedSensor& named) {
            for (const char* limit : {"low", "high", "critical"}) {
                writer.sample({{"chip", named.chip}, {"sensor", named.key}, {"label", named.name}, {"limit", limit}},
                    sensorLimit(sensor, limit));
            }
        });
    }
    writer.family(
        {.name = "sensor_alarm", .help = "Sensors that are broken or beyond a limit; of others there is none."});
    for (const Value& sensor : snapshot.sensors) {
        if (const auto alarm = text(sensor, "alarm")) {
            const NamedSensor named(sensor);
            writer.sample({{"chip", named.chip}, {"sensor", named.key}, {"label", named.name}, {"alarm", *alarm}}, 1);
        }
    }
}

} // namespace meridal
