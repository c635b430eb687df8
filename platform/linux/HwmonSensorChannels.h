#pragma once

#include "platform/host/SensorChannels.h"
#include "platform/linux/HwmonSensors.h"

#include <memory>
#include <vector>

namespace meridal {

/// Chips, labels and limits of the keys that HwmonSMCService publishes. Main queue only.
class HwmonSensorChannels final : public SensorChannels {
public:
    explicit HwmonSensorChannels(std::shared_ptr<HwmonSensors> sensors) : sensors_(std::move(sensors)) { }
    std::vector<SensorChannel> channels() override;
    std::uint64_t generation() override { return sensors_->generation(); }

private:
    std::shared_ptr<HwmonSensors> sensors_;
};

} // namespace meridal
