#pragma once

#include "platform/host/SensorServices.h"

namespace meridal {

/// Sensors that drivers publish through the HID event system, as on Apple silicon. Each reading makes a client of its own
/// and lets it go.
class HIDSensorServices final : public SensorServices {
public:
    std::vector<SensorServiceReading> read(const SensorServiceQuery& query) override;
};

} // namespace meridal
