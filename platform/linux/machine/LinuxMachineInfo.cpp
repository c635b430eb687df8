// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxMachineInfo.h"

#include "platform/linux/machine/Virtualisation.h"
#include "platform/linux/sensors/HwmonChip.h"

#include <algorithm>
#include <array>
#include <set>
#include <sys/utsname.h>

namespace meridal {

namespace {

/// What firmware vendors leave in where they forgot to put something.
constexpr std::array placeholders = {"To Be Filled By O.E.M.", "To be filled by O.E.M.", "Default string",
    "System Product Name", "System Serial Number", "System Version", "Not Specified", "Not Applicable", "None", "N/A",
    "Unknown", "0"};

bool isPlaceholder(const std::string& text)
{
    return std::find(placeholders.begin(), placeholders.end(), text) != placeholders.end();
}

std::optional<double> megahertz(const std::string& text)
{
    const auto whole = leadingNumber(text);
    return whole && *whole > 0 ? std::optional(static_cast<double>(*whole) * 1e6) : std::nullopt;
}

} // namespace

LinuxMachineInfo::LinuxMachineInfo(const std::filesystem::path& root) : root_(root)
{
    readFirmware();
    readChassis();
    readProcessors();
    readNetwork();
    readSystem();
}

std::optional<std::string> LinuxMachineInfo::virtualisation() const { return readVirtualisation(root_); }

std::optional<std::string> LinuxMachineInfo::firmwareText(std::string_view name) const
{
    auto text = root_.readLine("sys/class/dmi/id/" + std::string(name));
    return text && !isPlaceholder(*text) ? text : std::nullopt;
}

void LinuxMachineInfo::readFirmware()
{
    // One vendor puts an order number into the product's name and the name people know into its version.
    if (firmwareText("sys_vendor") == "LENOVO") {
        model_ = firmwareText("product_version");
    }
    for (const char* name : {"product_name", "board_name"}) {
        if (!model_) {
            model_ = firmwareText(name);
        }
    }
    if (!model_) {
        model_ = root_.readLine("proc/device-tree/model");
    }
    serial_ = firmwareText("product_serial");
    if (!serial_) {
        serial_ = firmwareText("board_serial");
    }
    if (!serial_) {
        serial_ = root_.readLine("proc/device-tree/serial-number");
    }
    board_ = firmwareText("board_name");
    vendor_ = firmwareText("sys_vendor");
    firmware_ = firmwareText("bios_version");
}

void LinuxMachineInfo::readChassis()
{
    // System enclosure types of the SMBIOS standard: portable, laptop, notebook, hand held, sub-notebook, tablet,
    // convertible, detachable. 1 and 2 are "other" and "unknown".
    constexpr std::array<std::uint64_t, 8> portableTypes = {8, 9, 10, 11, 14, 30, 31, 32};
    if (const auto text = root_.readLine("sys/class/dmi/id/chassis_type")) {
        const auto type = leadingNumber(*text);
        if (type && *type > 2) {
            portable_ = std::find(portableTypes.begin(), portableTypes.end(), *type) != portableTypes.end();
        }
    } else if (const auto name = root_.readLine("proc/device-tree/chassis-type")) {
        constexpr std::array portableNames = {"laptop", "convertible", "tablet", "handset", "watch"};
        portable_ = std::find(portableNames.begin(), portableNames.end(), *name) != portableNames.end();
    }
}

void LinuxMachineInfo::readProcessors()
{
    const std::string text = root_.read("proc/cpuinfo").value_or("");
    processorName_ = valueOfKey(text, "model name", ':');
    int logical = 0;
    std::set<std::string> cores; // by the list of threads that share each
    std::set<std::string> packages;
    std::uint64_t fastest = 0; // kHz
    for (const std::string& name : root_.list("sys/devices/system/cpu")) {
        if (!name.starts_with("cpu") || !leadingNumber(std::string_view(name).substr(3))) {
            continue;
        }
        if (const auto siblings = root_.readLine("sys/devices/system/cpu/" + name + "/topology/thread_siblings_list")) {
            ++logical; // one that is switched off has no topology
            cores.insert(*siblings);
        }
        const std::string folder = "sys/devices/system/cpu/" + name;
        if (const auto package = root_.readLine(folder + "/topology/physical_package_id")) {
            packages.insert(*package);
        }
        const auto kilohertz = root_.readLine(folder + "/cpufreq/cpuinfo_max_freq");
        fastest = std::max(fastest, leadingNumber(kilohertz.value_or("")).value_or(0));
    }
    packages_ = packages.empty() ? std::nullopt : std::optional(static_cast<int>(packages.size()));
    maximumHertz_ = fastest > 0 ? std::optional(static_cast<double>(fastest) * 1e3) : std::nullopt;
    if (logical == 0) {
        for (std::size_t at = 0; (at = text.find("processor\t", at)) != std::string::npos; ++at) {
            ++logical;
        }
    }
    logicalProcessors_ = std::max(logical, 1);
    physicalProcessors_ = cores.empty() ? logicalProcessors_ : static_cast<int>(cores.size());

    for (const char* file : {"base_frequency", "cpuinfo_max_freq"}) { // kHz
        const auto line = root_.readLine(std::string("sys/devices/system/cpu/cpu0/cpufreq/") + file);
        const auto kilohertz = line ? leadingNumber(*line) : std::nullopt;
        if (kilohertz && !processorHertz_) {
            processorHertz_ = static_cast<double>(*kilohertz) * 1e3;
        }
    }
    if (!processorHertz_) {
        processorHertz_ = megahertz(valueOfKey(text, "cpu MHz", ':').value_or(""));
    }
}

void LinuxMachineInfo::readNetwork()
{
    std::uint64_t first = 0; // the kernel numbers interfaces as it finds them
    for (const std::string& name : root_.list("sys/class/net")) {
        const std::string folder = "sys/class/net/" + name;
        const auto address = root_.readLine(folder + "/address");
        const auto index = leadingNumber(root_.readLine(folder + "/ifindex").value_or(""));
        // Bridges, tunnels and virtual pairs have no device behind them; some devices have no address of that form.
        if (!root_.exists(folder + "/device") || !address || address->size() != 17 || !index
            || *address == "00:00:00:00:00:00") {
            continue;
        }
        if (!hardwareAddress_ || *index < first) {
            hardwareAddress_ = address;
            first = *index;
        }
    }
}

void LinuxMachineInfo::readSystem()
{
    const auto memory = valueOfKey(root_.read("proc/meminfo").value_or(""), "MemTotal", ':');
    if (const auto kilobytes = memory ? leadingNumber(*memory) : std::nullopt) {
        memoryBytes_ = static_cast<double>(*kilobytes) * 1024;
    }
    std::string release = root_.read("etc/os-release").value_or("");
    if (release.empty()) {
        release = root_.read("usr/lib/os-release").value_or("");
    }
    systemName_ = valueOfKey(release, "PRETTY_NAME", '=').value_or("Linux");
    serviceManager_ = root_.exists("run/systemd/system") ? "systemd" : root_.readLine("proc/1/comm").value_or("init");
    utsname names = {};
    if (::uname(&names) == 0) {
        kernelRelease_ = names.release;
        architecture_ = names.machine;
    }
    realSMC_ = hasRealSMC(root_);
    bootIdentifier_ = root_.readLine("proc/sys/kernel/random/boot_id");
}

std::string LinuxMachineInfo::hostName() const { return root_.readLine("proc/sys/kernel/hostname").value_or(""); }

std::optional<double> LinuxMachineInfo::bootTime() const
{
    const auto text = valueOfKey(root_.read("proc/stat").value_or(""), "btime", ' ');
    const auto seconds = text ? leadingNumber(*text) : std::nullopt;
    // A clock that still stands at 1970 puts the boot before it, which the kernel prints as a huge number.
    constexpr std::uint64_t latest = 1ULL << 40;
    return seconds && *seconds > 0 && *seconds < latest ? std::optional(static_cast<double>(*seconds)) : std::nullopt;
}

} // namespace meridal
