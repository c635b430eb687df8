// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/ManagedNetwork.h"

#include <string_view>
#include <systemd/sd-bus.h>
#include <utility>

namespace meridal {

namespace {

constexpr const char* managerPath = "/org/freedesktop/NetworkManager";
constexpr const char* managerInterface = "org.freedesktop.NetworkManager";
constexpr const char* deviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char* activeInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* settingsPath = "/org/freedesktop/NetworkManager/Settings";
constexpr const char* settingsInterface = "org.freedesktop.NetworkManager.Settings";
constexpr const char* profileInterface = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr const char* systemdPath = "/org/freedesktop/systemd1";
constexpr const char* systemdInterface = "org.freedesktop.systemd1.Manager";
constexpr std::string_view noObject = "/";

Result<void> withoutValue(const Result<BusMessage>& result)
{
    return result ? Result<void>() : unexpected(result.error().code, result.error().message);
}

Unexpected sameFailure(const Error& error) { return unexpected(error.code, error.message); }

BusConnection::Arguments oneText(const std::string& text)
{
    return [&text](sd_bus_message& message) { return sd_bus_message_append(&message, "s", text.c_str()); };
}

std::optional<std::string> pathIn(const Result<BusMessage>& answer)
{
    const char* path = nullptr;
    if (!answer || sd_bus_message_read_basic(answer->get(), 'o', &path) < 0) {
        return std::nullopt;
    }
    return std::string(path);
}

/// The text under one key of one group in a profile's settings, a{sa{sv}}.
std::optional<std::string> settingIn(sd_bus_message* settings, std::string_view group, std::string_view key)
{
    std::optional<std::string> found;
    if (sd_bus_message_enter_container(settings, 'a', "{sa{sv}}") < 0) {
        return found;
    }
    while (sd_bus_message_enter_container(settings, 'e', "sa{sv}") > 0) {
        const char* name = nullptr;
        sd_bus_message_read_basic(settings, 's', &name);
        const bool isGroup = name && name == group;
        if (!isGroup) {
            sd_bus_message_skip(settings, "a{sv}");
        } else if (sd_bus_message_enter_container(settings, 'a', "{sv}") > 0) {
            while (sd_bus_message_enter_container(settings, 'e', "sv") > 0) {
                const char* entry = nullptr;
                const char* value = nullptr;
                sd_bus_message_read_basic(settings, 's', &entry);
                if (entry && entry == key && sd_bus_message_read(settings, "v", "s", &value) > 0) {
                    found = value;
                } else {
                    sd_bus_message_skip(settings, "v");
                }
                sd_bus_message_exit_container(settings);
            }
            sd_bus_message_exit_container(settings);
        }
        sd_bus_message_exit_container(settings);
    }
    return found;
}

} // namespace

// NetworkManager

std::optional<Result<void>> NetworkManagerService::refreshLease(const std::string& interfaceName)
{
    const auto device =
        pathIn(bus_.call({service, managerPath, managerInterface, "GetDeviceByIpIface"}, oneText(interfaceName)));
    if (!device) {
        return std::nullopt;
    }
    const auto active = bus_.textProperty({service, *device, deviceInterface, "ActiveConnection"}, "o");
    if (!active || *active == noObject) {
        return std::nullopt;
    }
    const auto profile = bus_.textProperty({service, *active, activeInterface, "Connection"}, "o");
    if (!profile) {
        return Result<void>(sameFailure(profile.error()));
    }
    return activate(*profile, *device);
}

Result<void> NetworkManagerService::activate(const std::string& profile, const std::string& device)
{
    return withoutValue(
        bus_.call({service, managerPath, managerInterface, "ActivateConnection"}, [&](sd_bus_message& message) {
            return sd_bus_message_append(&message, "ooo", profile.c_str(), device.c_str(), "/");
        }));
}

Result<void> NetworkManagerService::activateProfile(const std::string& identifier)
{
    auto profile =
        pathIn(bus_.call({service, settingsPath, settingsInterface, "GetConnectionByUuid"}, oneText(identifier)));
    if (!profile) {
        profile = profileNamed(identifier);
    }
    if (!profile) {
        return unexpected(ErrorCode::NotFound, "NetworkManager has no connection profile of that UUID or name");
    }
    return activate(*profile, "/"); // it chooses the device
}

std::optional<std::string> NetworkManagerService::profileNamed(const std::string& name)
{
    const auto answer = bus_.call({service, settingsPath, settingsInterface, "ListConnections"});
    std::vector<std::string> profiles;
    if (answer && sd_bus_message_enter_container(answer->get(), 'a', "o") >= 0) {
        const char* path = nullptr;
        while (sd_bus_message_read_basic(answer->get(), 'o', &path) > 0) {
            profiles.emplace_back(path);
        }
    }
    for (const std::string& profile : profiles) {
        if (nameOf(profile) == name) {
            return profile;
        }
    }
    return std::nullopt;
}

std::optional<std::string> NetworkManagerService::nameOf(const std::string& profile)
{
    const auto settings = bus_.call({service, profile, profileInterface, "GetSettings"});
    return settings ? settingIn(settings->get(), "connection", "id") : std::nullopt;
}

// systemd-networkd

std::optional<Result<void>> NetworkdService::refreshLease(std::int32_t index)
{
    std::string error;
    auto result = withoutValue(bus_.call(
        {service, "/org/freedesktop/network1", "org.freedesktop.network1.Manager", "RenewLink"},
        [index](sd_bus_message& message) { return sd_bus_message_append(&message, "i", index); }, &error));
    if (error == "org.freedesktop.network1.UnmanagedInterface" || error == "org.freedesktop.network1.NoSuchLink") {
        return std::nullopt;
    }
    return result;
}

// systemd

Result<void> SystemdService::restartUnit(const std::string& unit)
{
    const auto path = pathIn(bus_.call({service, systemdPath, systemdInterface, "LoadUnit"}, oneText(unit)));
    if (!path) {
        return unexpected(ErrorCode::Unavailable, "systemd does not answer");
    }
    const auto state = bus_.textProperty({service, *path, "org.freedesktop.systemd1.Unit", "LoadState"}, "s");
    if (!state || *state != "loaded") {
        return unexpected(ErrorCode::NotFound, "there is no unit " + unit);
    }
    return withoutValue(bus_.call({service, systemdPath, systemdInterface, "RestartUnit"},
        [&unit](sd_bus_message& message) { return sd_bus_message_append(&message, "ss", unit.c_str(), "replace"); }));
}

Result<void> SystemdService::runOutside(const std::string& unit, const std::vector<std::vector<std::string>>& commands)
{
    const auto appendCommand = [](sd_bus_message& message, const std::vector<std::string>& words) {
        int result = sd_bus_message_open_container(&message, 'r', "sasb");
        result = result < 0 ? result : sd_bus_message_append(&message, "s", words.front().c_str());
        result = result < 0 ? result : sd_bus_message_open_container(&message, 'a', "s");
        for (const std::string& word : words) {
            result = result < 0 ? result : sd_bus_message_append(&message, "s", word.c_str());
        }
        result = result < 0 ? result : sd_bus_message_close_container(&message);
        result = result < 0 ? result : sd_bus_message_append(&message, "b", 0);
        return result < 0 ? result : sd_bus_message_close_container(&message);
    };
    return withoutValue(
        bus_.call({service, systemdPath, systemdInterface, "StartTransientUnit"}, [&](sd_bus_message& message) {
            int result = sd_bus_message_append(&message, "ss", unit.c_str(), "replace");
            result = result < 0 ? result : sd_bus_message_open_container(&message, 'a', "(sv)");
            result = result < 0 ? result
                                : sd_bus_message_append(&message, "(sv)(sv)(sv)", "Type", "s", "oneshot", "KillMode",
                                    "s", "process", "CollectMode", "s", "inactive-or-failed");
            result = result < 0 ? result : sd_bus_message_open_container(&message, 'r', "sv");
            result = result < 0 ? result : sd_bus_message_append(&message, "s", "ExecStart");
            result = result < 0 ? result : sd_bus_message_open_container(&message, 'v', "a(sasb)");
            result = result < 0 ? result : sd_bus_message_open_container(&message, 'a', "(sasb)");
            for (const auto& words : commands) {
                result = result < 0 ? result : appendCommand(message, words);
            }
            for (int open = 0; open < 4; ++open) { // array, variant, pair, array of pairs
                result = result < 0 ? result : sd_bus_message_close_container(&message);
            }
            return result < 0 ? result : sd_bus_message_append(&message, "a(sa(sv))", 0);
        }));
}

} // namespace meridal
