#include "platform/linux/HwmonSensorChannels.h"

#include <cstddef>
#include <optional>

namespace meridal {

std::vector<SensorChannel> HwmonSensorChannels::channels()
{
    std::vector<SensorChannel> channels;
    bool isComplete = true;
    const auto limit = [&](const HwmonSensor& sensor, const std::optional<std::size_t>& file) {
        const auto figure = sensors_->limit(sensor, file);
        isComplete = isComplete && (!file || figure);
        return figure;
    };
    for (const HwmonSensor& sensor : sensors_->sensors()) {
        channels.push_back({.key = sensor.key,
            .chip = sensor.chip,
            .label = sensor.label,
            .kind = sensor.kind,
            .low = limit(sensor, sensor.low),
            .high = limit(sensor, sensor.high),
            .critical = limit(sensor, sensor.critical)});
    }
    lookAgainAt_ = isComplete ? std::numeric_limits<double>::infinity() : sensors_->now() + lookAgainAfter;
    latest_ = channels;
    return channels;
}

std::uint64_t HwmonSensorChannels::generation()
{
    if (sensors_->now() >= lookAgainAt_) {
        const std::vector<SensorChannel> before = latest_;
        if (channels() != before) {
            ++limitChanges_;
        }
    }
    return sensors_->generation() + limitChanges_; // neither ever falls
}

} // namespace meridal
