#include "platform/linux/sensors/HwmonSensorChannels.h"

#include <cstddef>
#include <optional>
#include <utility>

namespace meridal {

std::vector<SensorChannel> HwmonSensorChannels::channels()
{
    std::vector<SensorChannel> channels;
    bool isComplete = true;
    const auto limit = [&](const HwmonSensor& sensor, HwmonFile which) {
        const auto figure = sensors_->limit(sensor, which);
        isComplete = isComplete && (!sensor.file(which) || figure);
        return figure;
    };
    for (const HwmonSensor& sensor : sensors_->sensors()) {
        SensorChannel channel{.key = sensor.key,
            .chip = sensor.chip,
            .label = sensor.label,
            .kind = sensor.kind,
            .low = limit(sensor, HwmonFile::Low),
            .high = limit(sensor, HwmonFile::High),
            .critical = limit(sensor, HwmonFile::Critical),
            .lowCritical = limit(sensor, HwmonFile::LowCritical),
            .tellsCritical = sensor.file(HwmonFile::CriticalAlarm).has_value(),
            .mayStandStill = sensor.isSMCs,
            .disturbs = sensor.disturbs};
        if (channel.low && channel.high && sensor.formula && *channel.low > *channel.high) {
            std::swap(channel.low, channel.high); // a divider that inverts
        }
        channels.push_back(std::move(channel));
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
