// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

enum class PowerSourceKind { InternalBattery, UPS };

/// What gives the power where a source is.
enum class PowerSupplyState { Unknown, AC, Battery, OffLine };

/// What the system thinks of a battery.
enum class BatteryVerdict { Poor, Fair, Good, CheckBattery, PermanentFailure };

/// A time that the system estimates.
struct TimeEstimate {
    std::optional<int> minutes = {}; ///< absent while it is being calculated
    bool operator==(const TimeEstimate&) const = default;
};

/// A battery as its own controller counts. Figures that it does not know are absent, and never shares of something.
struct BatteryControllerRecord {
    std::optional<std::int64_t> chargeNowMah = {};
    std::optional<std::int64_t> chargeFullMah = {};   ///< what it holds at most by now; above 0
    std::optional<std::int64_t> chargeDesignMah = {}; ///< what it was made to hold; above 0
    /// What it holds now, where the system tells an energy; else its charge times its voltage.
    std::optional<std::int64_t> energyNowMwh = {};
    std::optional<std::int64_t> cycles = {};
    std::optional<std::int64_t> voltageMv = {};
    std::optional<std::int64_t> currentMa = {};                   ///< negative while it is drained
    std::optional<std::chrono::year_month_day> manufactured = {}; ///< a day that the calendar has
    bool operator==(const BatteryControllerRecord&) const = default;
};

/// One battery or UPS, as it is now. Only what the system tells.
struct PowerSourceRecord {
    PowerSourceKind kind = PowerSourceKind::InternalBattery;
    std::string name = {};   ///< of its model, or of the system's; may be empty
    std::string serial = {}; ///< may be empty, and that of other packs, too
    bool present = true;     ///< false for a bay without its battery
    PowerSupplyState supply = PowerSupplyState::Unknown;
    bool charging = false;
    bool charged = false;
    bool heldBack = false;                    ///< from being charged further, by the system, to spare it
    std::optional<int> chargePercent = {};    ///< 0 to 100
    std::optional<TimeEstimate> toEmpty = {}; ///< absent where the system tells no such time
    std::optional<TimeEstimate> toFull = {};  ///< likewise
    std::optional<std::int64_t> voltageMv = {};
    std::optional<std::int64_t> currentMa = {}; ///< negative while it is drained
    std::optional<BatteryVerdict> verdict = {};
    std::optional<BatteryControllerRecord> controller = {}; ///< of internal batteries
    bool operator==(const PowerSourceRecord&) const = default;
};

/// Batteries, UPSs and the adapter of this machine. Main queue only.
/// macOS: IOPSCopyPowerSourcesInfo, the AppleSmartBattery service, the dynamic store. Linux: /sys/class/power_supply
/// and its uevents, /dev/hidraw* of UPSs that are not in there.
class PowerSources {
public:
    /// Destroying it ends the observation.
    class Observation {
    public:
        virtual ~Observation() = default;
    };

    virtual ~PowerSources() = default;

    /// All of them as they are now, in an order that stays.
    virtual std::vector<PowerSourceRecord> sources() = 0;

    /// Asks the sources that the system does not keep track of itself, and calls back on the main queue, once, when
    /// sources() has their answers: at once where there is no such source, within seconds where one does not answer.
    virtual void refresh(std::function<void()> done) { done(); }

    /// Calls the handler on the main queue whenever a source or the adapter may have changed.
    [[nodiscard]] virtual std::unique_ptr<Observation> observe(std::function<void()> changed) = 0;
};

} // namespace meridal
