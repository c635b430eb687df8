// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/check/CheckReport.h"
#include "wire/CheckLimits.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// From what on to complain: `configuration.check` of the daemon's status, and what holds where that says nothing.
class CheckLimits {
public:
    CheckLimits() = default;
    explicit CheckLimits(const Value& status);

    double diskWearWarning = checkLimits::diskWearWarning;     ///< %
    double diskWearCritical = checkLimits::diskWearCritical;   ///< %
    double diskErrorsWarning = checkLimits::diskErrorsWarning; ///< count
    std::optional<double> diskTemperatureWarning;              ///< °C; absent: by the kind of the disk
    std::optional<double> diskTemperatureCritical;
    double batteryHealthWarning = checkLimits::batteryHealthWarning; ///< %
    double upsChargeCritical = checkLimits::upsChargeCritical;       ///< %

    /// Whether that is not to be looked at, by any of its keys and names.
    bool isIgnored(const std::vector<std::string>& names) const;
    /// The limits of a sensor that go before those of its chip: {"warningAbove", "criticalAbove", "warningBelow",
    /// "criticalBelow"}; null without any.
    const Value* sensorLimits(const std::vector<std::string>& names) const;

private:
    Value sensors_ = Value::array();
    std::vector<std::string> ignored_;
};

// The rules of each topic, by the daemon's answers; one that is null makes the topic unknown.

/// By the disks of disks.list without all attributes. A disk that sleeps is as it was when it was last awake.
CheckedTopic checkDisks(const Value& disks, const CheckLimits& limits);
/// By the sensors of sensors.list, without the fans.
CheckedTopic checkSensors(const Value& sensors, const CheckLimits& limits);
CheckedTopic checkFans(const Value& sensors, const CheckLimits& limits);
/// By battery.state. Batteries of connected devices are no part of it.
CheckedTopic checkBatteries(const Value& state, const CheckLimits& limits);
/// By status.
CheckedTopic checkDaemon(const Value& status);

/// The topics that can be checked, in the order in which they are shown.
inline constexpr const char* checkTopics[] = {"disks", "sensors", "fans", "battery", "daemon"};

/// What the daemon answered: null where it was not asked, or refused.
struct CheckSources {
    Value status;
    Value sensors;
    Value disks;
    Value battery;
};

/// The report of some topics.
CheckReport checkAll(const CheckSources& sources, const std::vector<std::string>& topics);

} // namespace meridal
