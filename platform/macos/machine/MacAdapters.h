// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"
#include "platform/host/ClockSource.h"
#include "platform/host/DisplayInfo.h"
#include "platform/host/FileSystems.h"
#include "platform/host/GraphicsClients.h"
#include "platform/host/GraphicsUnits.h"
#include "platform/host/Limitations.h"
#include "platform/host/MachineCounters.h"
#include "platform/host/MachineInfo.h"
#include "platform/host/SelfUsage.h"
#include "platform/host/UserRights.h"

#include <memory>

namespace meridal {

/// sysctl, the platform expert in the I/O registry, and the process information's system version.
std::unique_ptr<MachineInfo> makeMacMachineInfo();

/// The kernel's state of the clock and its bound of the error. A clock that is set by hand keeps the state, but the
/// bound grows by 500 µs for each second that the clock passes, or leaps.
std::unique_ptr<ClockSource> makeMacClockSource();

/// Mach's accounts of processors and memory, sysctl's of swap, and the statistics that drivers of block storage publish.
std::unique_ptr<MachineCounters> makeMacMachineCounters();

/// The statistics that graphics drivers publish in the I/O registry.
std::unique_ptr<GraphicsUnits> makeMacGraphics();

/// What Apple's graphics processors publish of their clients in the I/O registry.
std::unique_ptr<GraphicsClients> makeMacGraphicsClients();

/// getfsstat, from what the kernel knows without asking a server.
std::unique_ptr<FileSystems> makeMacFileSystems();

/// proc_pid_rusage and the descriptor list of this process.
std::unique_ptr<SelfUsage> makeMacSelfUsage(double timeBase);

/// The group database (group admin) and the user of the console.
std::unique_ptr<UserRights> makeMacUserRights();

/// The frame rate from the window server's performance data. A private interface, looked up by name, that answers only
/// a process of a login session: a daemon outside of one gets nothing, which `limitations` then says. Asked on a thread of its
/// own.
std::unique_ptr<DisplayInfo> makeWindowServerDisplayInfo(
    std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work);

} // namespace meridal
