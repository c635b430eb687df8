// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The names of all that can be called, as they stand on the wire. Arguments and replies: DaemonProtocol.h for the first
/// interface, docs/protocol.md for both.
namespace meridal::method {

// DaemonProtocol
inline constexpr char infoForPids[] = "infoForPids:reply:";
inline constexpr char version[] = "version:";
inline constexpr char fps[] = "fps:";
inline constexpr char exists[] = "exists:";
inline constexpr char enableHierachy[] = "enableHierachy";
inline constexpr char disableHierachy[] = "disableHierachy";
inline constexpr char startRequestWithKey[] = "startRequestWithKey:interval:";
inline constexpr char stopRequestWithKey[] = "stopRequestWithKey:";
inline constexpr char smartTemps[] = "smartTemps";
inline constexpr char startSMARTStatus[] = "startSMARTStatus";
inline constexpr char stopSMARTStatus[] = "stopSMARTStatus";
inline constexpr char startSMARTTemps[] = "startSMARTTemps";
inline constexpr char stopSMARTTemps[] = "stopSMARTTemps";
inline constexpr char refreshDHCP[] = "refreshDHCP:";
inline constexpr char toggleAirPortPower[] = "toggleAirPortPower";
inline constexpr char setNetworkSet[] = "setNetworkSet:";
inline constexpr char setFanSet[] = "setFanSet:";
inline constexpr char setT2FanConfig[] = "setT2FanConfig:reply:";
inline constexpr char setT2FanSet[] = "setT2FanSet:";
inline constexpr char stopT2Fans[] = "stopT2Fans:";
inline constexpr char startT2Fans[] = "startT2Fans:";
inline constexpr char finalizeT2Fans[] = "finalizeT2Fans:";
inline constexpr char setT2SafetyTemperature[] = "setT2SafetyTemperature:";
inline constexpr char sensors[] = "sensors:reply:";
inline constexpr char armSensors[] = "armSensors:reply:";
inline constexpr char supportedSensors[] = "supportedSensors:reply:";
inline constexpr char supportedFans[] = "supportedFans:reply:";

// ClientProtocol: what the daemon calls
inline constexpr char daemonResponse[] = "daemonResponse:";

// MeridalHistory
inline constexpr char status[] = "status";
inline constexpr char historySeries[] = "history.series";
inline constexpr char historySamples[] = "history.samples";
inline constexpr char bandwidthTotals[] = "bandwidth.totals";
inline constexpr char networkInterfaces[] = "network.interfaces";
inline constexpr char uptimeBoots[] = "uptime.boots";
inline constexpr char sensorsList[] = "sensors.list";
inline constexpr char disksList[] = "disks.list";
inline constexpr char momentsAt[] = "moments.at";
inline constexpr char machineState[] = "machine.state";
inline constexpr char machineWatch[] = "machine.watch";
inline constexpr char groupsHistory[] = "groups.history";
inline constexpr char groupsTotals[] = "groups.totals";
inline constexpr char groupsWatch[] = "groups.watch";
inline constexpr char processesTable[] = "processes.table";
inline constexpr char processesWatch[] = "processes.watch";
inline constexpr char processDetails[] = "process.details";
inline constexpr char machineInfo[] = "machine.info";
inline constexpr char batteryState[] = "battery.state";
inline constexpr char batteryHistory[] = "battery.history";
inline constexpr char batterySleeps[] = "battery.sleeps";

} // namespace meridal::method
