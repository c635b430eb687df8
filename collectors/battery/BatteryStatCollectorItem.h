// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/StatCollectorItem.h"
#include "wire/BatteryCodes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// One power source or the battery of one peripheral. Figures that it has not told are absent. Main queue only.
class BatteryStatCollectorItem : public StatCollectorItem {
public:
    /// What the history files hold of it; absent where they hold nothing yet.
    struct Recorded {
        std::optional<std::int64_t> cycles = {};
        std::optional<double> health = {}; ///< %
        std::optional<std::int64_t> source = {};
        enum class Phase { NotAsked, Asked, Known } phase = Phase::NotAsked;
    };
    /// What may be recorded of it, as it stood at a moment.
    struct Reading {
        double time = 0; ///< s since 1970
        std::optional<std::int64_t> cycles = {};
        std::optional<double> health = {}; ///< %
        std::int64_t source = 0;
    };

    explicit BatteryStatCollectorItem(Context& context) : StatCollectorItem(context) { }

    const std::string& name() const { return name_; } ///< empty until known
    void setName(std::string name) { name_ = std::move(name); }
    BatteryType type() const { return type_; }
    void setType(BatteryType type) { type_ = type; }
    bool isPeripheral() const { return type_ != BatteryType::Internal && type_ != BatteryType::UPS; }
    std::optional<double> percentage() const { return percentage_; } ///< 0 to 100
    void setPercentage(std::optional<double> percentage) { percentage_ = percentage; }
    BatteryState state() const { return state_; }
    void setState(BatteryState state) { state_ = state; }
    /// Minutes to empty or full, or a batteryTime. Unknown for 10 s after a change to charging or draining: the system's
    /// first estimate is made of the rate before it.
    int time() const { return delay_ ? batteryTime::unknown : time_; }
    void setTime(int minutes) { time_ = minutes; }
    BatterySource source() const { return source_; }
    /// A change of the source is dated now, unless the time comes from outside.
    void setSource(BatterySource source);
    double sourceTime() const { return sourceTime_; } ///< s since 1970, when the source last changed; 0 = never
    std::optional<double> voltage() const { return voltage_; } ///< mV
    void setVoltage(double millivolts) { voltage_ = millivolts; }
    void setAmperage(double milliamperes) { amperage_ = milliamperes; }
    std::optional<double> power() const; ///< W, negative while draining
    std::optional<BatteryCondition> condition() const { return condition_; }
    void setCondition(BatteryCondition condition) { condition_ = condition; }
    std::optional<std::int64_t> cycles() const { return cycles_; }
    void setCycles(std::int64_t cycles) { cycles_ = cycles; }
    std::optional<double> health() const { return health_; } ///< % of what it was designed for
    void setHealth(double health) { health_ = health; }
    std::optional<double> manufactureTime() const { return manufactureTime_; } ///< s since 1970
    void setManufactureTime(double time) { manufactureTime_ = time; }
    void setDesignCapacity(double capacity) { designCapacity_ = capacity; }
    std::optional<double> maximumCapacity() const { return maximumCapacity_; } ///< mAh, as the next
    void setMaximumCapacity(double capacity) { maximumCapacity_ = capacity; }
    std::optional<double> currentCapacity() const { return currentCapacity_; }
    void setCurrentCapacity(double capacity) { currentCapacity_ = capacity; }
    std::optional<double> energy() const { return energy_; } ///< mWh that it holds
    void setEnergy(double milliwattHours) { energy_ = milliwattHours; }
    /// A change is so recent that no time is shown.
    bool delay() const { return delay_; }
    void setDelay(bool delay) { delay_ = delay; }
    /// It has not been described yet.
    bool firstUpdate() const { return firstUpdate_; }
    void setFirstUpdate(bool first) { firstUpdate_ = first; }
    /// It comes from the system's Bluetooth service.
    bool IOBluetoothBattery() const { return bluetooth_; }
    void setIOBluetoothBattery(bool bluetooth) { bluetooth_ = bluetooth; }
    /// "Low", "High" and the like, of devices that tell no percentage; else empty.
    const std::string& level() const { return level_; }
    void setLevel(std::string level) { level_ = std::move(level); }

    Recorded& recorded() { return recorded_; }
    /// Readings from before it was known what the files hold, oldest first.
    std::vector<Reading>& unrecorded() { return unrecorded_; }

    /// How long the machine has been asleep so far, s; to be kept up to date, as it dates a change of the source.
    void setSlept(double slept) { slept_ = slept; }
    /// How long the machine has been awake on the present source, s; absent before a source is known. `slept` is as
    /// above, now.
    std::optional<double> awakeOnSource(double slept) const;

    /// All that is known of it, for clients. `slept` is as above, now.
    Dictionary describe(double slept) const;

    /// Internal batteries first, then UPSs, then peripherals, each by name and key.
    std::weak_ordering sort(const StatCollectorItem& other) const override;

    // Of the interface, and called by nothing here
    void setSourceTime(double time) { sourceTime_ = time; }
    bool externalSourceTime() const { return externalSourceTime_; }
    void setExternalSourceTime(bool external) { externalSourceTime_ = external; }
    std::optional<double> amperage() const { return amperage_; }             ///< mA, negative while draining
    std::optional<double> designCapacity() const { return designCapacity_; } ///< mAh

private:
    std::string name_;
    BatteryType type_ = BatteryType::Internal;
    std::optional<double> percentage_;
    BatteryState state_ = BatteryState::Charged;
    int time_ = batteryTime::unknown;
    BatterySource source_ = BatterySource::Unknown;
    double sourceTime_ = 0;
    double sourceMoment_ = 0; ///< as sourceTime_, on the clock that cannot step
    double slept_ = 0;
    double sourceSlept_ = 0; ///< as slept_, when the source last changed
    bool externalSourceTime_ = false;
    std::optional<double> voltage_;
    std::optional<double> amperage_;
    std::optional<BatteryCondition> condition_;
    std::optional<std::int64_t> cycles_;
    std::optional<double> health_;
    std::optional<double> manufactureTime_;
    std::optional<double> designCapacity_;
    std::optional<double> maximumCapacity_;
    std::optional<double> currentCapacity_;
    std::optional<double> energy_;
    bool delay_ = false;
    bool firstUpdate_ = true;
    bool bluetooth_ = false;
    std::string level_;
    Recorded recorded_;
    std::vector<Reading> unrecorded_;
};

} // namespace meridal
