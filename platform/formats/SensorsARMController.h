// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/SensorServices.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// A temperature that stands for a part of the processor: the mean over the services whose names begin alike.
struct ARMAverage {
    std::string_view key;
    std::string_view name;  ///< how the services' names begin
    std::string_view label; ///< for people
};

constexpr std::array<ARMAverage, 5> armAverages = {{
    {"AS_SOCDIE_AVERAGE", "SOC MTR", "SoC die"},
    {"AS_EFF_AVG", "eACC", "Efficiency cores"},
    {"AS_PERF_AVG", "pACC", "Performance cores"},
    {"AS_PMDIE_AVG", "PMU tdie", "Power manager die"},
    {"AS_PMSOC_AVG", "PMGR SOC Die", "Power manager SoC"},
}};

/// What one service, or the mean over some, says.
struct ARMSensor {
    std::string key;                  ///< the service's name, valid UTF-8; an average's key
    std::optional<double> value = {}; ///< of a service always; of an average absent when there is nothing to average
    const ARMAverage* average = nullptr;
    bool operator==(const ARMSensor&) const = default;
};

/// The sensors that the system publishes as named services, and averages over them. Keeps nothing between calls.
class SensorsARMController {
public:
    explicit SensorsARMController(SensorServices& services) : services_(services) { }

    /// Every matching service that has a name and an event of the type. Values are degrees for type 15 (temperature),
    /// watts, amperes or volts for type 25 (power).
    std::vector<ARMSensor> sensors(std::uint32_t usagePage, std::uint32_t usage, std::int64_t eventType);
    /// All temperatures, then the averages.
    std::vector<ARMSensor> sensors();

private:
    SensorServices& services_;
};

} // namespace meridal
