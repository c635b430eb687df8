// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/BluezObjects.h"

#include "base/Text.h"
#include "platform/PeripheralNames.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

namespace {

/// What is wanted of one object.
struct Device {
    std::string address;
    std::string name;
    std::string icon;
    bool connected = true;
    std::optional<double> percent;
};

/// Enters the next entry of an array of dictionary entries; false at the end, or where there is something else.
bool enter(sd_bus_message& message, char type, const char* contents)
{
    return sd_bus_message_enter_container(&message, type, contents) > 0;
}

std::string readText(sd_bus_message& message, char type)
{
    const char* text = nullptr;
    return sd_bus_message_read_basic(&message, type, &text) > 0 && text ? validUtf8(text) : std::string();
}

/// The value of a property of ours; others are skipped.
void readProperty(sd_bus_message& message, std::string_view name, Device& device)
{
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(&message, &type, &contents) <= 0 || type != SD_BUS_TYPE_VARIANT) {
        return;
    }
    const std::string_view kind = contents ? contents : "";
    std::string* text = name == "Address" ? &device.address
        : name == "Alias"                 ? &device.name
        : name == "Icon"                  ? &device.icon
                                          : nullptr;
    if (text && kind == "s" && enter(message, 'v', "s")) {
        *text = readText(message, 's');
    } else if (name == "Connected" && kind == "b" && enter(message, 'v', "b")) {
        int connected = 1;
        sd_bus_message_read_basic(&message, 'b', &connected);
        device.connected = connected != 0;
    } else if (name == "Percentage" && kind == "y" && enter(message, 'v', "y")) {
        std::uint8_t percent = 0;
        if (sd_bus_message_read_basic(&message, 'y', &percent) > 0) {
            device.percent = std::min<double>(percent, 100);
        }
    } else {
        sd_bus_message_skip(&message, "v");
        return;
    }
    sd_bus_message_exit_container(&message);
}

void readProperties(sd_bus_message& message, Device& device)
{
    if (!enter(message, 'a', "{sv}")) {
        return;
    }
    while (enter(message, 'e', "sv")) {
        const std::string name = readText(message, 's');
        readProperty(message, name, device);
        sd_bus_message_exit_container(&message);
    }
    sd_bus_message_exit_container(&message);
}

/// One object: its interfaces with their properties.
Device readObject(sd_bus_message& message)
{
    Device device;
    if (!enter(message, 'a', "{sa{sv}}")) {
        return device;
    }
    while (enter(message, 'e', "sa{sv}")) {
        const std::string interface = readText(message, 's');
        if (interface == "org.bluez.Device1" || interface == "org.bluez.Battery1") {
            readProperties(message, device);
        } else {
            sd_bus_message_skip(&message, "a{sv}");
        }
        sd_bus_message_exit_container(&message);
    }
    sd_bus_message_exit_container(&message);
    return device;
}

/// BlueZ names an icon of the freedesktop naming: "input-mouse", "audio-headset", "phone".
PeripheralKind kindOf(const Device& device)
{
    const PeripheralKind kind = kindOfName(device.icon);
    return kind == PeripheralKind::Other ? kindOfName(device.name) : kind;
}

} // namespace

std::vector<PeripheralBattery> batteriesOfBluez(sd_bus_message& reply)
{
    std::vector<PeripheralBattery> batteries;
    if (!enter(reply, 'a', "{oa{sa{sv}}}")) {
        return batteries;
    }
    while (enter(reply, 'e', "oa{sa{sv}}")) {
        const std::string path = readText(reply, 'o');
        const Device device = readObject(reply);
        sd_bus_message_exit_container(&reply);
        if (device.percent && device.connected) {
            const std::string key = hardwareAddress(device.address).value_or(path);
            batteries.push_back({.key = key,
                .name = device.name.empty() ? key : device.name,
                .kind = kindOf(device),
                .percent = device.percent,
                .bluetooth = true});
        }
    }
    return batteries;
}

} // namespace meridal
