// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SensorSource.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// What is wrong with a sensor's value, the worst first but for None.
enum class SensorAlarm { None, Fault, Critical, Low, High };

/// "low", "high", "critical", "fault"; empty for none.
std::string_view sensorAlarmName(SensorAlarm alarm);

/// Takes limits away that nobody has set: a high one that is not above the low one, or is 0 where every value is above
/// that, temperatures of no machine (a disk without a limit says 0 K, or 65535 K), and critical ones of a warm room.
/// Answers which of the chip's flags mean nothing for that reason.
SensorFlags dropUnsetLimits(SensorRecord& record);
/// What a chip tells without the flags that mean nothing.
SensorFlags meant(SensorFlags told, const SensorFlags& meaningless);

/// Compares a value (absent: there is none now) with the limits of its sensor and joins what the chip itself says.
/// Limits count when they are passed, a critical one only where the chip has no flag for it. Fans have no high limit:
/// there they only do what they can.
SensorAlarm sensorAlarm(const SensorRecord& record, std::optional<double> value, const SensorFlags& flags);

/// What chips have said is wrong. A flag tells of the time since it was last read: the first look after a pause may show
/// what was over long ago, and is not believed; and one that comes and goes with a chip's own rhythm, or that another
/// program has read away, is held for a while. Times are monotonic seconds.
class SensorAlarms {
public:
    static constexpr double longestGap = 30; ///< s between looks
    static constexpr double heldFor = 25;    ///< s

    void note(const std::map<std::string, SensorFlags>& raised, double now);
    SensorFlags flags(const std::string& key, double now) const;

private:
    struct Raised {
        SensorFlags flags;
        double at = 0;
    };
    std::map<std::string, Raised> raised_; ///< by key
    std::optional<double> lastLook_;
};

} // namespace meridal
