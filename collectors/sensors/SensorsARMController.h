#pragma once

#include "base/ValueFwd.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace meridal {

struct Context;
class SensorServices;

/// Which services are meant: {"PrimaryUsagePage", "PrimaryUsage"}.
Dictionary armSensorsMatching(std::uint32_t usagePage, std::uint32_t usage);

/// A temperature that stands for a part of the processor: the mean over the services whose names begin alike.
struct ARMAverage {
    std::string_view key;
    std::string_view name; ///< how the services' names begin
};

constexpr std::array<ARMAverage, 5> armAverages = {{
    {"AS_SOCDIE_AVERAGE", "SOC MTR"},
    {"AS_EFF_AVG", "eACC"},
    {"AS_PERF_AVG", "pACC"},
    {"AS_PMDIE_AVG", "PMU tdie"},
    {"AS_PMSOC_AVG", "PMGR SOC Die"},
}};

/// Whether a reading is an average that there was nothing for: those read 0.
bool isEmptyAverage(std::string_view key, double value);

/// The sensors that the system publishes as named services, and averages over them. Keeps nothing between calls.
class SensorsARMController {
public:
    explicit SensorsARMController(Context& context);

    /// The process-wide instance, on Context::shared().
    static SensorsARMController& sharedARM();

    /// {"key": the service's name, "value"} of every matching service that has a name and an event of the type.
    /// Values are degrees for type 15 (temperature), watts, amperes or volts for type 25 (power).
    Value sensors(const Dictionary& matching, std::int64_t eventType);
    /// Adds "type", as text, to each reading.
    static Value addTypeToSensors(std::int64_t kind, Value sensors);
    /// All temperatures, then the averages with "key", "name", "type" and "value"; 0 where there is nothing to average.
    Value sensors();

private:
    SensorServices& services_;
};

} // namespace meridal
