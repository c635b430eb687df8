// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/MacHost.h"

#include "base/ThreadedSlowWork.h"
#include "platform/formats/MacSensorSource.h"
#include "platform/macos/disks/MacAdapters.h"
#include "platform/macos/kernel/DistributedCenter.h"
#include "platform/macos/machine/MacAdapters.h"
#include "platform/macos/network/MacAdapters.h"
#include "platform/macos/power/MacAdapters.h"
#include "platform/macos/processes/MacAdapters.h"
#include "platform/macos/sensors/MacAdapters.h"
#include "platform/macos/traffic/MacAdapters.h"

#include <optional>

namespace meridal {

namespace {

/// A Mac shows the process table to everybody.
class OpenProcessTable final : public ProcessVisibility {
public:
    std::optional<ProcessRestriction> restriction() override { return std::nullopt; }
    std::optional<std::uint32_t> ownerOf(std::int32_t) override { return std::nullopt; }
};

/// macOS lets nobody run programs in its kernel. The tap names the process of each packet instead.
class NoTrafficCounters final : public TrafficCounters {
public:
    Result<std::unique_ptr<Counting>> start() override
    {
        return unexpected(ErrorCode::NotFound, "macOS has no counters of traffic by process");
    }
};

} // namespace

std::unique_ptr<Host> makeMacHost(Runtime& runtime)
{
    auto host = std::make_unique<Host>();
    host->machine = makeMacMachineInfo();
    host->clockSource = makeMacClockSource();
    host->machineCounters = makeMacMachineCounters();
    host->graphics = makeMacGraphics();
    host->graphicsClients = makeMacGraphicsClients();
    host->fileSystems = makeMacFileSystems();
    host->processes = makeLibprocProcessSource(host->machine->systemRelease(), *host->limitations);
    host->processVisibility = std::make_unique<OpenProcessTable>();
    host->display = makeWindowServerDisplayInfo(host->limitations, std::make_shared<ThreadedSlowWork>(1));
    host->distributedNotifications = std::make_unique<DistributedCenter>(runtime);
    host->selfUsage = makeMacSelfUsage(host->processes->timeBase());
    host->userRights = makeMacUserRights();
    host->powerMessages = makeMacPowerMessages(host->limitations);
    host->powerSources = makeMacPowerSources(runtime);
    host->disks = makeMacDisks(host->limitations);
    host->sensors = std::make_unique<MacSensorSource>(makeAppleSMCService(),
        makeHIDSensorServices(std::make_shared<ThreadedSlowWork>(1)),
        host->machine->hasService("FakeSMC") ? SMCOrigin::Emulated : SMCOrigin::Own);
    host->peripherals = makeMacPeripheralBatteries();
    host->packetTap = makePktapPacketTap(runtime);
    host->networkStatistics = makeControlNetworkStatistics(runtime, host->machine->systemRelease());
    host->trafficCounters = std::make_unique<NoTrafficCounters>();
    host->processInspection = makeLibprocInspection();
    host->processConnections = makeLibprocConnections();
    host->networkInterfaces = makeMacNetworkInterfaces();
    host->wireless = makeCoreWLanInterface(host->limitations);
    host->networkConfiguration = makeMacNetworkConfiguration();
    return host;
}

} // namespace meridal
