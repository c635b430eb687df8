#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/sensors/PowerAverages.h"
#include "collectors/uptime/UptimeDatabase.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// Where the collectors beside the process collector plug into the daemon. A port that is empty belongs to a collector
/// that this build or this machine does not have: the daemon then skips the step, and answers clients what "nothing
/// there" is for the question. Ports are called on the main queue unless said otherwise.
struct CollectorPorts {
    // Sensors and fans. Selections and configurations are the client's own words and may be nonsense.
    std::function<void()> openSensors;
    /// A value for each configuration of the list.
    std::function<std::vector<double>(const Value& configurations, PowerDetail detail)> sensorValues;
    std::function<Value(const Value& selection, PowerDetail detail)> supportedElectricSensors; ///< array
    std::function<Value(const Value& selection)> supportedArmSensors;                          ///< array
    std::function<Value(const Value& selection)> supportedFans;                                ///< array

    // Network interfaces and bandwidth
    std::function<void()> prepareNetwork;
    std::function<void()> updateNetwork;
    /// With `written`, returns at once and runs that on the main queue when it is in the file; without, waits for that.
    std::function<void(Task written)> saveBandwidth;

    // Packet capture
    std::function<void()> prepareCapture;
    std::function<void()> startCapture;
    std::function<void()> stopCapture;
    std::function<void()> processCapture;
    /// "source", and of the latest interval "attributed", "kernel", "unattributed".
    std::function<Dictionary()> trafficShares;

    // Disks
    std::function<void()> loadDisks;
    std::function<void(std::function<void()> done)> updateDisks; ///< `done` runs on the main queue
    /// The same for who asks in between: may find that there is nothing to read.
    std::function<void(std::function<void()> done)> refreshDisks;
    std::function<Value()> diskTemperatures; ///< array of {"name", "key", "temperature"}
    std::function<Value()> diskStatus;       ///< array of {"key", ...}

    // Battery
    std::function<void()> prepareBattery;
    std::function<void()> updateBattery;
    std::function<std::optional<Dictionary>()> internalBattery; ///< {"key", "source", "time", "sleep"}

    // Uptime
    std::function<void()> prepareUptime;
    std::function<void()> saveBootTime;
    /// With `written`, returns at once and runs that on the main queue when it is in the file; without, waits for that.
    std::function<void(Farewell why, double time, Task written)> saveShutdownTime;
    std::function<void(double from, double until)> saveSleep; ///< s since 1970

    // Network actions; called on the queue for actions, where they may take their time
    std::function<Result<void>(const std::string& interfaceName)> refreshDHCP;
    std::function<Result<void>()> toggleAirPortPower;
    std::function<Result<void>(const std::string& identifier)> setNetworkSet;
};

} // namespace meridal
