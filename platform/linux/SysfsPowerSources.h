#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/PowerSources.h"
#include "platform/linux/PowerSupplies.h"
#include "platform/linux/RootFolder.h"
#include "platform/linux/Uevents.h"

#include <filesystem>
#include <list>
#include <memory>

namespace meridal {

class Runtime;

/// Batteries, UPSs and adapters from /sys/class/power_supply, with its uevents as the sign that something changed.
/// Batteries of devices that are connected to the machine are not its power sources and left out.
class SysfsPowerSources final : public PowerSources {
public:
    SysfsPowerSources(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations);

    std::vector<Dictionary> descriptions() override;
    std::vector<Dictionary> smartBatteries() override;
    std::optional<bool> adapterConnected() override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;

private:
    using Observers = std::list<std::shared_ptr<const std::function<void()>>>;
    class Entry;
    void changed();

    RootFolder root_;
    std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
    std::unique_ptr<Uevents> uevents_;
};

} // namespace meridal
