// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkStatistics.h"
#include "platform/host/PacketTap.h"
#include "platform/host/ProcessConnections.h"

#include <filesystem>
#include <memory>

namespace meridal {

class Runtime;

// `root` is what holds proc. A runtime must outlive what it is given to.

/// Frames of all interfaces through libpcap's "any", headers only.
std::unique_ptr<PacketTap> makePcapPacketTap(Runtime& runtime, std::filesystem::path root);

/// The kernel's account of TCP connections: sock_diag with tcp_info, owners by /proc/PID/fd.
std::unique_ptr<NetworkStatistics> makeDiagNetworkStatistics(Runtime& runtime, std::filesystem::path root);

/// The sockets of all processes: the kernel's tables, joined with /proc/PID/fd by inode.
std::unique_ptr<ProcessConnections> makeDiagProcessConnections(const std::filesystem::path& root);

} // namespace meridal
