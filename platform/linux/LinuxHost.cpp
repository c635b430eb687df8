// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/LinuxHost.h"

#include "base/ThreadedSlowWork.h"
#include "platform/linux/disks/LinuxDisks.h"
#include "platform/linux/kernel/BusNotifications.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/kernel/SystemBus.h"
#include "platform/linux/machine/DrmDisplayInfo.h"
#include "platform/linux/machine/DrmGraphics.h"
#include "platform/linux/machine/LinuxClockSource.h"
#include "platform/linux/machine/LinuxFileSystems.h"
#include "platform/linux/machine/LinuxMachineCounters.h"
#include "platform/linux/machine/LinuxMachineInfo.h"
#include "platform/linux/machine/LinuxSelfUsage.h"
#include "platform/linux/machine/LinuxUserRights.h"
#include "platform/linux/machine/MemoryKillLog.h"
#include "platform/linux/network/LinuxNetworkConfiguration.h"
#include "platform/linux/network/LinuxWireless.h"
#include "platform/linux/network/NetlinkInterfaces.h"
#include "platform/linux/power/LinuxPeripheralBatteries.h"
#include "platform/linux/power/LogindPowerMessages.h"
#include "platform/linux/power/PowercapEnergy.h"
#include "platform/linux/power/SysfsPowerSources.h"
#include "platform/linux/processes/DrmClients.h"
#include "platform/linux/processes/ProcInspection.h"
#include "platform/linux/processes/ProcVisibility.h"
#include "platform/linux/processes/ProcessSourceChoice.h"
#include "platform/linux/sensors/HwmonSensors.h"
#include "platform/linux/traffic/BpfTrafficCounters.h"
#include "platform/linux/traffic/LinuxTraffic.h"

#include <unistd.h>

namespace meridal {

namespace {

/// The bus of a recorded tree is the one that the tree has, which is none as a rule.
std::string busAddress(const std::filesystem::path& root)
{
    return root == "/" ? std::string() : "unix:path=" + (root / "run/dbus/system_bus_socket").string();
}

std::unique_ptr<ProcessSource> makeProcessSource(
    const LinuxHostOptions& options, const std::shared_ptr<Limitations>& limitations)
{
    std::unique_ptr<ProcessSource> source;
    if (options.bpfProcesses && options.root == "/") {
        source = chooseProcessSource(options.root, limitations, options.processes);
    } else {
        source = makeProcProcessSource(options.root, limitations, options.processes);
    }
    if (source->method() != "proc") { // it knows of all threads, and asks no process for leave
        limitations->clear("wakeups");
        limitations->clear("disk");
    }
    return source;
}

} // namespace

std::unique_ptr<Host> makeLinuxHost(Runtime& runtime, const LinuxHostOptions& options)
{
    auto host = std::make_unique<Host>();
    noteLimitations(options.root, *host->limitations);
    host->machine = std::make_unique<LinuxMachineInfo>(options.root);
    host->machineCounters = std::make_unique<LinuxMachineCounters>(runtime, options.root);
    host->graphics = std::make_unique<DrmGraphics>(options.root);
    host->graphicsClients = std::make_unique<DrmClients>(options.root);
    host->fileSystems = std::make_unique<LinuxFileSystems>(options.root, std::make_unique<ThreadedSlowWork>());
    host->processes = makeProcessSource(options, host->limitations);
    host->processVisibility = std::make_unique<ProcVisibility>(options.root);
    host->processInspection = std::make_unique<ProcInspection>(options.root);
    host->display = std::make_unique<DrmDisplayInfo>(options.root);
    auto bus = std::make_shared<SystemBus>(runtime, host->limitations, busAddress(options.root));
    host->clockSource = std::make_unique<LinuxClockSource>(runtime, bus);
    host->distributedNotifications = std::make_unique<BusNotifications>(bus);
    host->peripherals = std::make_unique<LinuxPeripheralBatteries>(runtime, options.root, bus);
    host->powerMessages = std::make_unique<LogindPowerMessages>(runtime, std::move(bus), host->limitations);
    host->powerSources = std::make_unique<SysfsPowerSources>(runtime, options.root, host->limitations);
    host->packageEnergy = std::make_unique<PowercapEnergy>(options.root);
    host->disks = std::make_unique<LinuxDisks>(runtime, options.root, host->limitations,
        DiskOptions{.insist = options.readHiddenDisks, .socket = options.diskSocket});
    host->sensors = std::make_unique<HwmonSensors>(runtime, HwmonOptions{.root = options.root});
    host->packetTap = makePcapPacketTap(runtime, options.root);
    host->networkStatistics = makeDiagNetworkStatistics(runtime, options.root);
    host->trafficCounters = std::make_unique<BpfTrafficCounters>(runtime, BpfTrafficOptions{.root = options.root});
    host->processConnections = makeDiagProcessConnections(options.root);
    host->selfUsage = std::make_unique<LinuxSelfUsage>(options.root);
    host->userRights = std::make_unique<LinuxUserRights>();
    host->networkInterfaces = std::make_unique<NetlinkInterfaces>(options.root, host->limitations);
    host->wireless = std::make_unique<LinuxWireless>(runtime, options.root);
    host->networkConfiguration = std::make_unique<LinuxNetworkConfiguration>(options.root, busAddress(options.root));
    return host;
}

void noteLimitations(const std::filesystem::path& root, Limitations& limitations)
{
    const RootFolder folder(root);
    limitations.set("wakeups", "voluntary context switches are those of each process's main thread");
    if (folder.isDenied("proc/1/io")) {
        limitations.set(
            "disk", "some processes refuse to have /proc/PID/io read: it takes root with the right to trace them");
    }
    if (folder.isDenied("sys/class/dmi/id/product_serial")) {
        limitations.set("serial-number", "reading the serial number needs root");
    }
    if (!canReadKernelLog(folder)) {
        limitations.set("memory-kills",
            "who was killed for want of memory stands in the kernel's log, which needs root, or the system's journal");
    }
    if (::geteuid() != 0) {
        limitations.set("smart", "asking disks for their health needs root");
    }
    if (!folder.exists("run/systemd/system")) {
        limitations.set("responsible-pid",
            "this system is not run by systemd: only containers and parents tell what belongs together, no units of "
            "services and applications");
    }
    if (!folder.exists("dev/dri")) {
        limitations.setAbsent("frame-rate", "no display device under /dev/dri");
    } else if (::access(folder.path("dev/dri/card0").c_str(), R_OK | W_OK) != 0) { // opening it would take it over
        limitations.set("frame-rate", "reading /dev/dri needs root or the group \"video\"");
    }
}

} // namespace meridal
