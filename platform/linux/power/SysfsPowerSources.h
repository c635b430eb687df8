// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Observers.h"
#include "base/Runtime.h"
#include "platform/host/Limitations.h"
#include "platform/host/PowerSources.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/kernel/Uevents.h"
#include "platform/linux/power/HidPowerDevices.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace meridal {

/// Batteries, UPSs and adapters from /sys/class/power_supply, with its uevents as the sign that something changed.
/// Batteries of devices that are connected to the machine are not its power sources and left out. UPSs without a driver
/// that publishes them are asked over USB HID.
class SysfsPowerSources final : public PowerSources {
public:
    SysfsPowerSources(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations);

    std::vector<PowerSourceRecord> sources() override;
    void refresh(std::function<void()> done) override { ups_.refresh(std::move(done)); }
    std::unique_ptr<Observation> observe(std::function<void()> changed) override
    {
        return observers_.add(std::move(changed));
    }

    /// A supply was announced as changed: tells the observers. Nobody announces anything for a recorded tree.
    void changed();

private:
    bool isDoubtful();

    Runtime& runtime_;
    RootFolder root_;
    Observers<Observation> observers_;
    std::vector<std::unique_ptr<Timer>> again_; ///< further looks that are due after a change
    std::unique_ptr<Uevents> uevents_;
    HidPowerDevices ups_;
};

} // namespace meridal
