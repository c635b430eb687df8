#include "platform/macos/MacHost.h"

#include "platform/macos/AppleSMCService.h"
#include "platform/macos/ControlNetworkStatistics.h"
#include "platform/macos/CoreWLanInterface.h"
#include "platform/macos/DistributedCenter.h"
#include "platform/macos/HIDSensorServices.h"
#include "platform/macos/LibprocConnections.h"
#include "platform/macos/LibprocProcessSource.h"
#include "platform/macos/MacClockSource.h"
#include "platform/macos/MacMachineInfo.h"
#include "platform/macos/MacNetworkConfiguration.h"
#include "platform/macos/MacNetworkInterfaces.h"
#include "platform/macos/MacPeripheralBatteries.h"
#include "platform/macos/MacPowerMessages.h"
#include "platform/macos/MacPowerSources.h"
#include "platform/macos/MacRegistry.h"
#include "platform/macos/MacSMARTDevice.h"
#include "platform/macos/MacSelfUsage.h"
#include "platform/macos/MacUserRights.h"
#include "platform/macos/NoSensorChannels.h"
#include "platform/macos/NoTrafficCounters.h"
#include "platform/macos/OpenProcessTable.h"
#include "platform/macos/PktapPacketTap.h"
#include "platform/macos/WindowServerDisplayInfo.h"

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
