#pragma once

#include "platform/host/PowerSources.h"

namespace meridal {

/// IOPS snapshots, the AppleSmartBattery service, and the dynamic store's keys of power sources.
class MacPowerSources final : public PowerSources {
public:
    std::vector<Dictionary> descriptions() override;
    /// As the driver has it, but with capacities always in mAh. There is one at most.
    std::vector<Dictionary> smartBatteries() override;
    std::optional<bool> adapterConnected() override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;
};

} // namespace meridal
