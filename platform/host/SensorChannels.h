#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

enum class SensorChannelKind { Temperature, Fan, Voltage, Current, Power, Humidity };

/// What a chip itself says is wrong with a channel. Chips keep a flag until it is read, and the reading clears it.
struct SensorFlags {
    bool any = false;      ///< it tells no more
    bool low = false;      ///< below its low limit
    bool high = false;     ///< above its high limit
    bool critical = false; ///< beyond one of its critical limits
    bool fault = false;    ///< the sensor is broken or not connected: its value means nothing
    bool operator==(const SensorFlags&) const = default;
};

/// What the host knows of one SMC key beyond its value. Limits are in the unit of the kind: degrees Celsius, rpm, V, A,
/// W, percent.
struct SensorChannel {
    std::string key;   ///< the SMC key; for a fan the one of its speed ("F0Ac")
    std::string chip;  ///< what it belongs to, unique on this machine: "nct6775-isa-0290"; valid UTF-8
    std::string label; ///< for people: "Core 0"; valid UTF-8, never empty
    SensorChannelKind kind = SensorChannelKind::Temperature;
    std::optional<double> low = {};         ///< below it the hardware raises an alarm
    std::optional<double> high = {};        ///< above it the hardware raises an alarm
    std::optional<double> critical = {};    ///< above it the hardware protects itself
    std::optional<double> lowCritical = {}; ///< below it the hardware protects itself
    bool tellsCritical = false;             ///< the chip has a flag for its critical limit, which knows best
    bool mayStandStill = false;             ///< a fan whose low limit is its slowest turning, below which it rests
    bool disturbs = false; ///< reading it may keep a disk from its rest: for who asks, not for the record
    bool operator==(const SensorChannel&) const = default;
};

/// The keys of the SMC for people: which chip they belong to and what they are called. One queue at a time.
/// Linux: hwmon with the labels of lm-sensors' configuration. macOS: nothing, the SMC does not tell.
class SensorChannels {
public:
    virtual ~SensorChannels() = default;
    /// All channels there are now, by chip and in the chip's order.
    virtual std::vector<SensorChannel> channels() = 0;
    /// Changes whenever channels() would answer something else. Also the moment at which chips that came or went are
    /// looked for.
    virtual std::uint64_t generation() = 0;
    /// What chips say is wrong, by key; channels that are fine are left out. Clears what the chips keep.
    virtual std::map<std::string, SensorFlags> flags() = 0;
};

} // namespace meridal
