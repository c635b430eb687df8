// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorKind.h"

namespace meridal {

std::int64_t sensorKindOfKey(std::string_view key)
{
    switch (key.empty() ? '\0' : key.front()) {
    case 'm':
    case 'M':
        return 9;
    case 'c':
    case 'C':
        return 8;
    case 'a':
    case 'A':
        return 7;
    case 'v':
    case 'V':
        return sensorKind::voltage;
    case 'p':
    case 'P':
        return sensorKind::power;
    case 'i':
    case 'I':
        return sensorKind::current;
    default:
        return sensorKind::temperature;
    }
}

std::string_view sensorUnit(std::int64_t kind)
{
    switch (kind) {
    case sensorKind::temperature:
        return "°C";
    case sensorKind::fan:
        return "rpm";
    case sensorKind::voltage:
        return "V";
    case sensorKind::current:
        return "A";
    case sensorKind::power:
        return "W";
    case sensorKind::humidity:
        return "%";
    default:
        return "";
    }
}

std::string_view sensorKindName(std::int64_t kind)
{
    switch (kind) {
    case sensorKind::temperature:
        return "temperature";
    case sensorKind::fan:
        return "fan";
    case sensorKind::voltage:
        return "voltage";
    case sensorKind::current:
        return "current";
    case sensorKind::power:
        return "power";
    case sensorKind::humidity:
        return "humidity";
    default:
        return "other";
    }
}

} // namespace meridal
