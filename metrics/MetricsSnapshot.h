// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstddef>
#include <functional>
#include <string>

namespace meridal {

/// Applications that the daemon tells apart at most.
constexpr std::size_t mostMetricGroups = 512;

/// What is wanted of the metrics.
struct MetricsOptions {
    bool all = false;        ///< also what the usual exporter of a machine's own figures has
    bool wifiNames = true;   ///< whether Wi-Fi networks are told apart, by name
    std::size_t groups = 50; ///< applications with figures of their own, 512 at most; 0: no figures of applications
    bool operator==(const MetricsOptions&) const = default;
};

/// What the daemon answered to the questions that metrics take, as it stands on the wire; null where it refused or could
/// not. Lists of several pages are one.
struct MetricsSnapshot {
    bool isUp = false; ///< whether the daemon answered at all
    Value status;
    Value groups;     ///< groups.totals of the largest
    Value sensors;    ///< sensors.list: the sensors
    Value disks;      ///< disks.list: the disks
    Value battery;    ///< battery.state
    Value boots;      ///< uptime.boots
    Value interfaces; ///< network.interfaces, with Wi-Fi networks
    Value machine;    ///< machine.state
};

/// How a question reaches the daemon: DaemonClient::call is one.
using MetricsCaller =
    std::function<void(const std::string& method, const Value& parameters, std::function<void(Result<Value>)> reply)>;

/// Asks all that the metrics take, one question after another, none of which makes the daemon measure more often. `done` is
/// called once; a daemon that is away gives a snapshot that says so.
void askMetrics(const MetricsCaller& caller, const MetricsOptions& options, std::function<void(MetricsSnapshot)> done);

} // namespace meridal
