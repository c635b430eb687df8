// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/battery/BatteryStatCollectorMac.h"
#include "collectors/disks/SMARTStatCollector.h"
#include "collectors/network/CoreWLanStatCollector.h"
#include "collectors/network/NetworkStatCollectorMac.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/ProcessStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "collectors/uptime/UptimeStatCollectorMac.h"
#include "daemon/ApplicationService.h"
#include "daemon/BatteryService.h"
#include "daemon/DiskService.h"
#include "daemon/MachineService.h"
#include "daemon/MomentService.h"
#include "daemon/NetworkService.h"
#include "daemon/ProcessTableService.h"
#include "daemon/SensorService.h"
#include "daemon/Services.h"
#include "daemon/TrafficService.h"
#include "daemon/UptimeService.h"
#include "daemon/ZAVPowerManager.h"
#include "database/HistoryDatabaseController.h"
#include "history/HistoryCatalogue.h"
#include "platform/PlatformController.h"
#include "tests/support/FakeHost.h"

namespace meridal::test {

/// Every service as main makes it, on a fake machine and real files.
struct AllServices {
    AllServices(FakeMachine& fake, ProcessStatCollector& processes, ZAVPowerManager& power, bool isRecording = false)
        : context(fake.context)
        , databases(context)
        , uptimeCollector((context.databases = &databases, context), databases)
        , batteries(context)
        , disksCollector(std::make_shared<SMARTStatCollector>(context))
        , wireless(context)
        , interfaces(context, databases, wireless)
        , platform(context)
        , sensorsCollector(context, platform)
        , counters(context, processes)
        , packets(context, processes)
        , statistics(context, processes)
        , uptime(context, uptimeCollector, databases)
        , sensors(context, catalogue, [this]() -> SensorsStatCollectorMac& { return sensorsCollector; })
        , battery(context, batteries, power)
        , disks(*disksCollector)
        , network(context, interfaces)
        , figures(context)
        , traffic(context, {counters, packets, statistics})
        , applications(context, processes, traffic)
        , processTable(context, processes, traffic)
    {
        applications.setRecording(isRecording);
    }
    ~AllServices()
    {
        sensorsCollector.cleanup();
        disksCollector->cleanup();
        batteries.cleanup();
        databases.closeAll();
        context.databases = nullptr;
    }

    Context& context;
    HistoryDatabaseController databases;
    HistoryCatalogue catalogue;
    UptimeStatCollectorMac uptimeCollector;
    BatteryStatCollectorMac batteries;
    std::shared_ptr<SMARTStatCollector> disksCollector;
    CoreWLanStatCollector wireless;
    NetworkStatCollectorMac interfaces;
    PlatformController platform;
    SensorsStatCollectorMac sensorsCollector;
    TrafficCounterCollector counters;
    PacketStatCollector packets;
    NetworkStatisticsStatCollector statistics;
    UptimeService uptime;
    SensorService sensors;
    BatteryService battery;
    DiskService disks;
    NetworkService network;
    MachineService figures;
    TrafficService traffic;
    MomentService moments{context, {catalogue, uptime, batteries, interfaces}};
    ApplicationService applications;
    ProcessTableService processTable;
    Services services{uptime, sensors, battery, disks, network, figures, traffic, applications, processTable};
};

} // namespace meridal::test
