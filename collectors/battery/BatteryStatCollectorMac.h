// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "collectors/battery/BatteryStatCollector.h"
#include "collectors/battery/BatteryStatCollectorItemMac.h"
#include "platform/host/PeripheralBatteries.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// The battery collector of both hosts: reads PowerSources, and PeripheralBatteries where that is allowed.
class BatteryStatCollectorMac final : public BatteryStatCollector {
public:
    using ItemPointer = std::shared_ptr<BatteryStatCollectorItemMac>;

    explicit BatteryStatCollectorMac(Context& context);

    /// The process-wide instance, on Context::shared(). Made anew after cleanupShared().
    static BatteryStatCollectorMac& sharedBatteryCollector();
    static void cleanupShared();

    /// Reads all power sources, and starts to read the peripherals when it is time for them. Sources that are gone are
    /// dropped; delegates are told when any came or went.
    void updateStats() override;
    /// The machine's own battery; null without one. Of several, the last.
    ItemPointer internalBattery() const;
    /// What speaks for the machine: its own battery, else its UPS; null without either.
    ItemPointer primaryBattery() const;

    /// All of a kind.
    std::vector<const BatteryStatCollectorItem*> batteriesOfType(BatteryType type) const;
    /// What the machine's own batteries come to together; absent for fewer than two.
    std::optional<Dictionary> internalTotal() const;

    /// Tells how long the machine has been asleep so far, s. Without it sources are dated as if it never slept.
    void setSleptInAll(std::function<double()> slept) { sleptInAll_ = std::move(slept); }

    /// Set, no peripheral is asked anything.
    void setDisableAllBluetooth(bool disable) { disableAllBluetooth_ = disable; }
    /// Runs the task once no answer about peripherals is outstanding; at once when none is.
    void whenPeripheralsKnown(Task task);

    static constexpr double peripheralInterval = 10; ///< s, between two readings of the peripherals

    std::shared_ptr<StatCollectorItem> makeItem() override;

    // Of the interface, and called by nothing here
    bool disableAllBluetooth() const { return disableAllBluetooth_; }
    /// When peripherals were last asked, s of the clock that cannot step; absent before the first time.
    std::optional<double> lastBluetoothTime() const { return lastBluetoothTime_; }

private:
    void batteriesIOPS();
    void updatePeripherals();
    void updateBluetooth();
    void updateLogitech();
    void fetchBluetoothItems(const std::vector<PeripheralBattery>& found);
    void finishUpdate();
    ItemPointer item(const std::string& key);
    ItemPointer lastOfType(BatteryType type) const;

    std::function<double()> sleptInAll_;
    bool disableAllBluetooth_ = false;
    std::optional<double> lastBluetoothTime_;
    bool peripheralsAsked_ = false; ///< an answer is outstanding
    std::vector<Task> waiting_;     ///< for that
    std::size_t itemsBefore_ = 0;
    Lifetime lifetime_;
};

} // namespace meridal
