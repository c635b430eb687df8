// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineInfo.h"
#include "platform/host/NetworkStatistics.h"
#include "platform/host/PacketTap.h"
#include "platform/host/ProcessConnections.h"

#include <memory>

namespace meridal {

class Runtime;

/// The kernel control "com.apple.network.statistics": a datagram socket of the system family, whose messages changed with
/// the release. The runtime must outlive it.
std::unique_ptr<NetworkStatistics> makeControlNetworkStatistics(Runtime& runtime, const SystemRelease& release);

/// The TCP and UDP sockets in the descriptor tables of processes: proc_pidinfo(PROC_PIDLISTFDS) and proc_pidfdinfo.
std::unique_ptr<ProcessConnections> makeLibprocConnections();

/// Frames through libpcap in the mode in which the tap's header names the process. One blocking loop a capture, on a
/// global queue; it ends with the packet or time-out after it was told to.
std::unique_ptr<PacketTap> makePktapPacketTap(Runtime& runtime);

} // namespace meridal
