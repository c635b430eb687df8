// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

class ApplicationService;
class BatteryService;
class DiskService;
class MachineService;
class NetworkService;
class ProcessTableService;
class SensorService;
class TrafficService;
class UptimeService;

/// What the daemon offers beside process lists. A service is a topic: its collector, its steps in the daemon's life, and the
/// clients' questions about it. Each must outlive the daemon. Main queue only.
struct Services {
    UptimeService& uptime;
    SensorService& sensors;
    BatteryService& battery;
    DiskService& disks;
    NetworkService& network;
    MachineService& machine;
    TrafficService& traffic;
    ApplicationService& applications;
    ProcessTableService& processTable;
};

} // namespace meridal
