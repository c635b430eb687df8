#pragma once

#include "platform/host/SensorChannels.h"
#include "platform/linux/sensors/HwmonSensors.h"

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// Chips, labels and limits of the keys that HwmonSMCService publishes. Main queue only.
class HwmonSensorChannels final : public SensorChannels {
public:
    explicit HwmonSensorChannels(std::shared_ptr<HwmonSensors> sensors) : sensors_(std::move(sensors)) { }
    std::vector<SensorChannel> channels() override;
    std::uint64_t generation() override;
    std::map<std::string, SensorFlags> flags() override { return sensors_->flags(); }

private:
    static constexpr double lookAgainAfter = 60; ///< s

    std::shared_ptr<HwmonSensors> sensors_;
    std::vector<SensorChannel> latest_;
    /// When to look whether limits that a chip did not tell have come, monotonic s; never when it told all that it has.
    double lookAgainAt_ = std::numeric_limits<double>::infinity();
    std::uint64_t limitChanges_ = 0;
};

} // namespace meridal
