#pragma once

#include "platform/host/SensorServices.h"
#include "platform/linux/sensors/HwmonSensors.h"

#include <memory>
#include <vector>

namespace meridal {

/// Temperatures, voltages, currents and powers of hwmon chips by label, as sensor services. Where several channels of a
/// kind have one label, the chip's name follows it. Main queue only.
class HwmonSensorServices final : public SensorServices {
public:
    explicit HwmonSensorServices(std::shared_ptr<HwmonSensors> sensors) : sensors_(std::move(sensors)) { }
    std::vector<SensorServiceReading> read(const SensorServiceQuery& query) override;

private:
    std::shared_ptr<HwmonSensors> sensors_;
};

} // namespace meridal
