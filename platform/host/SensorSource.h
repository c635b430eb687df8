// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// What a sensor measures, and with it the unit of all its figures: degrees Celsius, rpm, V, A, W, percent.
enum class SensorKind { Temperature, Fan, Voltage, Current, Power, Humidity };

/// Beyond which values something is wrong. Absent where the hardware has no such limit, or it cannot be read now.
struct SensorLimits {
    std::optional<double> low = {};         ///< below it the hardware raises an alarm
    std::optional<double> high = {};        ///< above it the hardware raises an alarm
    std::optional<double> critical = {};    ///< above it the hardware protects itself
    std::optional<double> lowCritical = {}; ///< below it the hardware protects itself
    bool operator==(const SensorLimits&) const = default;
};

/// What a chip itself says is wrong with a sensor. Chips keep a flag until it is read, and the reading clears it.
struct SensorFlags {
    bool any = false;      ///< it tells no more
    bool low = false;      ///< below its low limit
    bool high = false;     ///< above its high limit
    bool critical = false; ///< beyond one of its critical limits
    bool fault = false;    ///< the sensor is broken or not connected: its value means nothing
    bool operator==(const SensorFlags&) const = default;
};

/// What a sensor is: one channel of a chip. What it says is asked for by its key.
struct SensorRecord {
    /// Names it for read(): the same after a reboot, whatever the order of probing. Four characters are the key of a real
    /// SMC; any other is longer.
    std::string key;
    std::string chip;    ///< what it belongs to, unique on this machine: "nct6775-isa-0290"; valid UTF-8
    std::string channel; ///< on that chip: "temp1"; valid UTF-8
    std::string label;   ///< for people: "Core 0"; valid UTF-8, never empty
    SensorKind kind = SensorKind::Temperature;
    SensorLimits limits = {};
    bool tellsCritical = false; ///< the chip has a flag for its critical limit, which knows best
    bool mayStandStill = false; ///< a fan whose low limit is its slowest turning, below which it rests
    bool disturbs = false;      ///< reading it may keep a disk from its rest: for who asks, not for the record
    bool isNameless = false;    ///< the hardware tells no more than a key: a client may know what it is
    bool isMean = false;        ///< made of other sensors
    bool isIgnored = false;     ///< the administrator does not want to see it; it keeps its key
    std::string disk = {};      ///< that the chip is part of: "nvme0n1"; empty for all other chips
    bool operator==(const SensorRecord&) const = default;
};

/// What a key says now.
struct SensorReading {
    bool isThere = false;             ///< the machine has such a key
    std::optional<double> value = {}; ///< in the unit of the kind; absent when it cannot be had now
    std::string failure = {}; ///< the sensor, and why reading it failed, for the log; empty where it merely rests
    bool operator==(const SensorReading&) const = default;
};

/// The sensors and fans of this machine. Main queue only; nothing takes longer than a tenth of a second for a chip that
/// hangs, and that once a minute.
/// Linux: hwmon, with lm-sensors' configuration. macOS: the SMC and the HID event system.
class SensorSource {
public:
    virtual ~SensorSource() = default;
    /// Changes whenever sensors() would answer something else. Also the moment at which chips that came or went are
    /// looked for.
    virtual std::uint64_t generation() = 0;
    /// All there are now, by chip and in the chip's order.
    virtual std::vector<SensorRecord> sensors() = 0;
    /// What these say, in their order: those asked for are read, and no others, since a reading may cost i2c traffic, a
    /// tenth of a second or a disk's rest. Keys of an SMC may be asked for that no record has.
    virtual std::vector<SensorReading> read(std::span<const std::string> keys) = 0;
    /// What chips say is wrong, by key; sensors that are fine are left out. Clears what the chips keep.
    virtual std::map<std::string, SensorFlags> flags() = 0;
};

} // namespace meridal
