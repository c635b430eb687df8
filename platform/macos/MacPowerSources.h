#pragma once

#include "platform/host/PowerSources.h"

namespace meridal {

/// IOPS snapshots, the AppleSmartBattery service, and the dynamic store's keys of power sources.
class MacPowerSources final : public PowerSources {
public:
    std::vector<Dictionary> descriptions() override;
    /// As the driver has it, but "MaxCapacity" is always in mAh: on Apple silicon the driver's own is a percentage.
    std::optional<Dictionary> smartBattery() override;
    std::optional<bool> adapterConnected() override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;
};

} // namespace meridal
