// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// Which sensor services are meant: their usage by the numbers of the HID tables, and the event to ask them for.
struct SensorServiceQuery {
    std::uint32_t usagePage = 0; ///< 0xFF00 temperature sensors, 0xFF08 power sensors
    std::uint32_t usage = 0;     ///< 0xFF00: 5; 0xFF08: 1 power, 2 current, 3 voltage
    std::int64_t eventType = 0;  ///< 15 temperature; 25 power, current and voltage
    std::uint32_t field = 0;     ///< of the event: the type shifted left by 16 is its base field
    bool operator==(const SensorServiceQuery&) const = default;
};

/// One service and what it said.
struct SensorServiceReading {
    std::optional<std::string> product; ///< the service's name; raw bytes
    std::optional<double> value;        ///< degrees Celsius for type 15; mW, mA, mV for type 25. Absent: no event
};

/// The sensors that the HID event system publishes as services with a name and an event each, as on Apple silicon. One
/// queue at a time.
class SensorServices {
public:
    virtual ~SensorServices() = default;
    /// Every matching service, in the system's order. Empty without such services.
    virtual std::vector<SensorServiceReading> read(const SensorServiceQuery& query) = 0;
    /// Whether the system has not answered the latest reading in time: then an empty one means nothing.
    virtual bool isLate() const { return false; }
};

} // namespace meridal
