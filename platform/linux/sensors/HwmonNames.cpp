// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/HwmonNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <vector>

namespace meridal::hwmon {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isPlain(char c) { return (c >= 'a' && c <= 'z') || isDigit(c) || c == '-' || c == '_'; }

/// The numbers in a text, read in a base and parted by any other characters.
std::vector<unsigned> numbers(std::string_view text, int base)
{
    std::vector<unsigned> all;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end;) {
        unsigned number = 0;
        const auto [next, error] = std::from_chars(at, end, number, base);
        if (error == std::errc()) {
            all.push_back(number);
        }
        at = std::max(next, at + 1);
    }
    return all;
}

/// "nvme0", "i2c-7", "thermal_zone3": a class of devices and the number of one. Drivers' and firmware's names have dots,
/// colons or capitals.
std::size_t lengthWithoutCounter(std::string_view part)
{
    const auto last = std::find_if_not(part.rbegin(), part.rend(), isDigit);
    const auto length = static_cast<std::size_t>(part.rend() - last);
    const bool counted =
        length < part.size() && length > 0 && !isDigit(part[0]) && std::all_of(part.begin(), last.base(), isPlain);
    return counted ? length : part.size();
}

/// A component without its number by order of probing.
std::string stablePart(std::string_view part, const AtaPort& ataPort)
{
    if (part.starts_with("ata") && part.size() > 3 && std::all_of(part.begin() + 3, part.end(), isDigit)) {
        if (const auto port = ataPort(part)) {
            return "ata" + *port;
        }
        return std::string(part);
    }
    if (const std::size_t length = lengthWithoutCounter(part); length < part.size()) {
        return std::string(part.substr(0, length));
    }
    if (part.starts_with("target")) { // of SCSI: target0:0:1
        return "target" + std::string(part.substr(std::min(part.find(':'), part.size())));
    }
    const auto afterNumber = std::find_if_not(part.begin(), part.end(), isDigit);
    const std::string_view rest = part.substr(static_cast<std::size_t>(afterNumber - part.begin()));
    if (rest.size() < part.size() && rest.starts_with('-')) { // of i2c: 3-0048; of USB: 1-3.2:1.0
        return std::string(rest);
    }
    const auto colons = std::count(part.begin(), part.end(), ':');
    if (rest.size() < part.size() && colons == 3 && part.find('.') == std::string_view::npos) { // of SCSI: 0:0:1:0
        return std::string(rest);
    }
    if (colons == 2 && part.size() == 19 && part[14] == '.') { // of HID: 0003:046D:C52B.0005
        return std::string(part.substr(0, 14));
    }
    return std::string(part);
}

} // namespace

std::string stablePath(const std::filesystem::path& device, const AtaPort& ataPort)
{
    std::string stable;
    for (const auto& component : device) {
        const std::string part = component.string();
        const bool ofHwmon = part.starts_with("hwmon") && std::all_of(part.begin() + 5, part.end(), isDigit);
        if (part.empty() || ofHwmon) {
            continue;
        }
        stable += (stable.empty() ? "" : "/") + stablePart(part, ataPort);
    }
    return stable;
}

bool isKnownBus(std::string_view subsystem)
{
    return subsystem == "i2c" || subsystem == "spi" || subsystem == "pci" || subsystem == "platform"
        || subsystem == "of_platform" || subsystem == "acpi" || subsystem == "hid" || subsystem == "mdio_bus"
        || subsystem == "scsi" || subsystem == "thermal";
}

std::string chipName(std::string_view prefix, std::string_view subsystem, std::string_view device)
{
    if (subsystem == "i2c") {
        const auto parts = numbers(device.substr(0, device.find('-')), 10);
        const auto address = numbers(device.substr(std::min(device.find('-'), device.size())), 16);
        if (parts.size() == 1 && address.size() == 1) {
            return fmt::format("{}-i2c-{}-{:02x}", prefix, parts[0], address[0]);
        }
    } else if (subsystem == "spi") {
        if (const auto parts = numbers(device, 10); parts.size() == 2) {
            return fmt::format("{}-spi-{}-{:x}", prefix, parts[0], parts[1]);
        }
    } else if (subsystem == "pci") {
        if (const auto parts = numbers(device, 16); parts.size() == 4) {
            return fmt::format(
                "{}-pci-{:04x}", prefix, (parts[0] << 16) + (parts[1] << 8) + (parts[2] << 3) + parts[3]);
        }
    } else if (subsystem == "acpi" || (subsystem == "thermal" && prefix == "acpitz")) {
        return fmt::format("{}-acpi-0", prefix);
    } else if (subsystem == "hid") {
        if (const auto parts = numbers(device, 16); parts.size() == 4) {
            return fmt::format("{}-hid-{}-{:x}", prefix, parts[0], parts[3]);
        }
    } else if (subsystem == "mdio_bus") {
        if (const auto parts = numbers(device, 16); !parts.empty()) {
            return fmt::format("{}-mdio-{:x}", prefix, parts.back());
        }
    } else if (subsystem == "scsi") {
        if (const auto parts = numbers(device, 10); parts.size() == 4) {
            return fmt::format("{}-scsi-{}-{:x}", prefix, parts[0], (parts[1] << 8) + (parts[2] << 4) + parts[3]);
        }
    } else if (subsystem == "platform" || subsystem == "of_platform") {
        // The number that the driver gave its device: an I/O address for chips on the board, an index for others.
        const std::size_t dot = device.rfind('.');
        const auto address = dot == std::string_view::npos ? std::vector<unsigned>() : numbers(device.substr(dot), 10);
        return fmt::format("{}-isa-{:04x}", prefix, address.size() == 1 ? address[0] : 0);
    }
    return fmt::format("{}-virtual-0", prefix);
}

} // namespace meridal::hwmon
