// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ClockSource.h"
#include "platform/host/Disks.h"
#include "platform/host/DisplayInfo.h"
#include "platform/host/DistributedNotifications.h"
#include "platform/host/FileSystems.h"
#include "platform/host/GraphicsClients.h"
#include "platform/host/GraphicsUnits.h"
#include "platform/host/Limitations.h"
#include "platform/host/MachineCounters.h"
#include "platform/host/MachineInfo.h"
#include "platform/host/NetworkConfiguration.h"
#include "platform/host/NetworkInterfaces.h"
#include "platform/host/NetworkStatistics.h"
#include "platform/host/PackageEnergy.h"
#include "platform/host/PacketTap.h"
#include "platform/host/PeripheralBatteries.h"
#include "platform/host/PowerMessages.h"
#include "platform/host/PowerSources.h"
#include "platform/host/ProcessConnections.h"
#include "platform/host/ProcessInspection.h"
#include "platform/host/ProcessSource.h"
#include "platform/host/ProcessVisibility.h"
#include "platform/host/SelfUsage.h"
#include "platform/host/SensorSource.h"
#include "platform/host/TrafficCounters.h"
#include "platform/host/UserRights.h"
#include "platform/host/WirelessInterface.h"

#include <memory>

namespace meridal {

/// The operating system behind its seams. Every seam is there on every host; what a machine lacks shows as absent
/// figures and in `limitations`.
struct Host {
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>(); ///< outlives the seams that write it
    std::unique_ptr<MachineInfo> machine;
    std::unique_ptr<ClockSource> clockSource;
    std::unique_ptr<MachineCounters> machineCounters;
    std::unique_ptr<GraphicsUnits> graphics;
    std::unique_ptr<GraphicsClients> graphicsClients = std::make_unique<GraphicsClients>();
    std::unique_ptr<FileSystems> fileSystems;
    std::unique_ptr<ProcessSource> processes;
    std::unique_ptr<ProcessVisibility> processVisibility;
    std::unique_ptr<ProcessInspection> processInspection = std::make_unique<ProcessInspection>();
    std::unique_ptr<DisplayInfo> display;
    std::unique_ptr<DistributedNotifications> distributedNotifications;
    std::unique_ptr<SelfUsage> selfUsage;
    std::unique_ptr<UserRights> userRights;
    std::unique_ptr<PowerMessages> powerMessages;
    std::unique_ptr<PowerSources> powerSources;
    std::unique_ptr<PackageEnergy> packageEnergy = std::make_unique<PackageEnergy>();
    std::unique_ptr<Disks> disks;
    std::unique_ptr<SensorSource> sensors;
    std::unique_ptr<PeripheralBatteries> peripherals;
    std::unique_ptr<PacketTap> packetTap;
    std::unique_ptr<NetworkStatistics> networkStatistics;
    std::unique_ptr<TrafficCounters> trafficCounters;
    std::unique_ptr<ProcessConnections> processConnections;
    std::unique_ptr<NetworkInterfaces> networkInterfaces;
    std::unique_ptr<WirelessInterface> wireless;
    std::unique_ptr<NetworkConfiguration> networkConfiguration;
};

} // namespace meridal
