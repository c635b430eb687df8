// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/LinuxNetworkConfiguration.h"

#include "platform/linux/kernel/BusConnection.h"
#include "platform/linux/kernel/ChildProgram.h"
#include "platform/linux/network/ManagedNetwork.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <net/if.h>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr double patience = 30; // s, for a client that asks for a lease

/// Whether systemd takes it as the instance of a unit, with no character that it would read in a way of its own.
bool isInstanceName(std::string_view name)
{
    constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";
    return !name.empty() && name.size() <= 64 && name.find_first_not_of(allowed) == std::string_view::npos;
}

} // namespace

LinuxNetworkConfiguration::LinuxNetworkConfiguration(const std::filesystem::path& root, std::string busAddress)
    : folder_(root), clients_(root), busAddress_(std::move(busAddress))
{
}

Result<void> LinuxNetworkConfiguration::refreshLease(const std::string& interfaceName)
{
    const unsigned index = ::if_nametoindex(interfaceName.c_str());
    if (index == 0) {
        return unexpected(ErrorCode::NotFound, "there is no such interface");
    }
    BusConnection bus(busAddress_);
    if (NetworkManagerService manager(bus); manager.isRunning()) {
        if (auto result = manager.refreshLease(interfaceName)) {
            return std::move(*result);
        }
    }
    if (NetworkdService networkd(bus); networkd.isRunning()) {
        if (auto result = networkd.refreshLease(static_cast<std::int32_t>(index))) {
            return std::move(*result);
        }
    }
    if (const auto renewal = clients_.find(interfaceName)) {
        return renew(*renewal, interfaceName);
    }
    return unexpected(ErrorCode::Unavailable, "nothing on this machine asks for leases for that interface");
}

Result<void> LinuxNetworkConfiguration::renew(const LeaseRenewal& renewal, const std::string& interfaceName) const
{
    if (renewal.signalPid > 0) {
        if (::kill(renewal.signalPid, SIGUSR1) != 0) {
            return unexpected(ErrorCode::Unavailable, std::string("udhcpc: ") + std::strerror(errno));
        }
        return {};
    }
    if (folder_.exists("run/systemd/system")) { // our own unit may not change the network; theirs may
        BusConnection bus(busAddress_);
        std::string unit = "meridal-lease-" + interfaceName + ".service";
        std::replace(unit.begin(), unit.end(), '@', '_');
        return SystemdService(bus).runOutside(unit, renewal.commands);
    }
    for (const auto& command : renewal.commands) {
        if (auto result = runProgram(command, patience); !result) {
            return result;
        }
    }
    return {};
}

Result<void> LinuxNetworkConfiguration::setNetworkSet(const std::string& identifier)
{
    BusConnection bus(busAddress_);
    if (NetworkManagerService manager(bus); manager.isRunning()) {
        return manager.activateProfile(identifier);
    }
    SystemdService systemd(bus);
    if (!systemd.isRunning()) {
        return unexpected(ErrorCode::Unavailable, "neither NetworkManager nor systemd runs here");
    }
    if (!isInstanceName(identifier)) {
        return unexpected(ErrorCode::NotFound, "there is no such network set");
    }
    return systemd.restartUnit("meridal-network-set@" + identifier + ".service");
}

} // namespace meridal
