// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/linux/kernel/BusConnection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

// The services that configure networks, each asked over the bus. They are asked only when they run: nothing here starts
// them. A refresh is absent when the service runs but leaves that interface to others.

class NetworkManagerService {
public:
    explicit NetworkManagerService(BusConnection& bus) : bus_(bus) { }

    bool isRunning() { return bus_.hasOwner(service); }
    /// Activates the interface's profile again: merely reapplying it keeps the lease where nothing in it has changed.
    std::optional<Result<void>> refreshLease(const std::string& interfaceName);
    /// Activates the connection profile of that UUID or, failing that, of that name.
    Result<void> activateProfile(const std::string& identifier);

private:
    static constexpr const char* service = "org.freedesktop.NetworkManager";

    Result<void> activate(const std::string& profile, const std::string& device);
    std::optional<std::string> profileNamed(const std::string& name);
    std::optional<std::string> nameOf(const std::string& profile);

    BusConnection& bus_;
};

class NetworkdService {
public:
    explicit NetworkdService(BusConnection& bus) : bus_(bus) { }

    bool isRunning() { return bus_.hasOwner(service); }
    std::optional<Result<void>> refreshLease(std::int32_t index);

private:
    static constexpr const char* service = "org.freedesktop.network1";

    BusConnection& bus_;
};

class SystemdService {
public:
    explicit SystemdService(BusConnection& bus) : bus_(bus) { }

    bool isRunning() { return bus_.hasOwner(service); }
    /// Starts a unit, or starts it over; NotFound when there is no such unit.
    Result<void> restartUnit(const std::string& unit);
    /// Runs commands, one after the other, in a unit of their own, outside of this daemon's confinement. What they leave
    /// running in the background stays.
    Result<void> runOutside(const std::string& unit, const std::vector<std::vector<std::string>>& commands);

private:
    static constexpr const char* service = "org.freedesktop.systemd1";

    BusConnection& bus_;
};

} // namespace meridal
