#include "platform/linux/HwmonSensorChannels.h"

namespace meridal {

std::vector<SensorChannel> HwmonSensorChannels::channels()
{
    std::vector<SensorChannel> channels;
    for (const HwmonSensor& sensor : sensors_->sensors()) {
        channels.push_back({.key = sensor.key,
            .chip = sensor.chip,
            .label = sensor.label,
            .kind = sensor.kind,
            .low = sensors_->limit(sensor, sensor.low),
            .high = sensors_->limit(sensor, sensor.high),
            .critical = sensors_->limit(sensor, sensor.critical)});
    }
    return channels;
}

} // namespace meridal
