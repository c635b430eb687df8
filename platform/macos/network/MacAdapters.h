// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/NetworkConfiguration.h"
#include "platform/host/NetworkInterfaces.h"
#include "platform/host/WirelessInterface.h"

#include <memory>

namespace meridal {

/// The default Wi-Fi interface of CoreWLAN, whatever name is asked for. Newer systems withhold the network from a daemon,
/// which no user can give the consent to know a location: then the identity is there and empty. Asked on a thread of its own.
std::unique_ptr<WirelessInterface> makeCoreWLanInterface(std::shared_ptr<Limitations> limitations);

/// SystemConfiguration: configd is told to refresh an interface; a set becomes current in the system's preferences.
std::unique_ptr<NetworkConfiguration> makeMacNetworkConfiguration();

/// getifaddrs for names, addresses and flags; the interface MIB for counters, which are 64 bits wide nowhere else;
/// SystemConfiguration for kinds and names for people; the dynamic store for the primary service.
std::unique_ptr<NetworkInterfaces> makeMacNetworkInterfaces();

} // namespace meridal
