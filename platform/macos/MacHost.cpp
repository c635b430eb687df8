#include "platform/macos/MacHost.h"

#include "platform/macos/disks/MacRegistry.h"
#include "platform/macos/disks/MacSMARTDevice.h"
#include "platform/macos/kernel/DistributedCenter.h"
#include "platform/macos/machine/MacClockSource.h"
#include "platform/macos/machine/MacMachineInfo.h"
#include "platform/macos/machine/MacSelfUsage.h"
#include "platform/macos/machine/MacUserRights.h"
#include "platform/macos/machine/WindowServerDisplayInfo.h"
#include "platform/macos/network/CoreWLanInterface.h"
#include "platform/macos/network/MacNetworkConfiguration.h"
#include "platform/macos/network/MacNetworkInterfaces.h"
#include "platform/macos/power/MacPeripheralBatteries.h"
#include "platform/macos/power/MacPowerMessages.h"
#include "platform/macos/power/MacPowerSources.h"
#include "platform/macos/processes/LibprocProcessSource.h"
#include "platform/macos/processes/OpenProcessTable.h"
#include "platform/macos/sensors/AppleSMCService.h"
#include "platform/macos/sensors/HIDSensorServices.h"
#include "platform/macos/sensors/NoSensorChannels.h"
#include "platform/macos/traffic/ControlNetworkStatistics.h"
#include "platform/macos/traffic/LibprocConnections.h"
#include "platform/macos/traffic/NoTrafficCounters.h"
#include "platform/macos/traffic/PktapPacketTap.h"

namespace meridal {

std::unique_ptr<Host> makeMacHost(Runtime& runtime)
{
    auto host = std::make_unique<Host>();
    host->machine = std::make_unique<MacMachineInfo>();
    host->clockSource = std::make_unique<MacClockSource>();
    host->processes = std::make_unique<LibprocProcessSource>(host->machine->systemRelease(), *host->limitations);
    host->processVisibility = std::make_unique<OpenProcessTable>();
    host->display = std::make_unique<WindowServerDisplayInfo>(*host->limitations);
    host->distributedNotifications = std::make_unique<DistributedCenter>(runtime);
    host->selfUsage = std::make_unique<MacSelfUsage>(host->processes->timeBase());
    host->userRights = std::make_unique<MacUserRights>();
    host->powerMessages = std::make_unique<MacPowerMessages>(host->limitations);
    host->powerSources = std::make_unique<MacPowerSources>();
    host->registry = std::make_unique<MacRegistry>();
    host->smartDevices = std::make_unique<MacSMARTDevices>();
    host->smc = std::make_unique<AppleSMCService>();
    host->sensorServices = std::make_unique<HIDSensorServices>();
    host->sensorChannels = std::make_unique<NoSensorChannels>();
    host->peripherals = std::make_unique<MacPeripheralBatteries>();
    host->packetTap = std::make_unique<PktapPacketTap>(runtime);
    host->networkStatistics = std::make_unique<ControlNetworkStatistics>(runtime);
    host->trafficCounters = std::make_unique<NoTrafficCounters>();
    host->processConnections = std::make_unique<LibprocConnections>();
    host->networkInterfaces = std::make_unique<MacNetworkInterfaces>();
    host->wireless = std::make_unique<CoreWLanInterface>(host->limitations);
    host->networkConfiguration = std::make_unique<MacNetworkConfiguration>();
    return host;
}

} // namespace meridal
