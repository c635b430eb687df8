// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/IORegistryObject.h"
#include "platform/macos/kernel/ServiceEntry.h"
#include "platform/macos/kernel/SystemSettings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <ifaddrs.h>
#include <net/if_dl.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <sys/time.h>

#include <array>
#include <charconv>
#include <memory>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

/// "12.6.1": the true one, as the kernel tells it whoever was built for macOS 11 or later.
SystemRelease readRelease()
{
    const std::string version = systemSettingText("kern.osproductversion").value_or("");
    constexpr SystemRelease oldest{.major = 11};
    SystemRelease release;
    const char* at = version.data();
    const char* const end = at + version.size();
    for (int* part : {&release.major, &release.minor, &release.bugfix}) {
        at = std::from_chars(at, end, *part).ptr;
        at += at != end && *at == '.' ? 1 : 0;
    }
    return release.major < oldest.major ? oldest
                                        : release; // what cannot be read is taken for the oldest that there can be
}

std::optional<double> asDouble(std::optional<std::uint64_t> figure)
{
    return figure ? std::optional(static_cast<double>(*figure)) : std::nullopt;
}

/// The 6-byte hardware address of a link-layer entry, absent when it has another length.
std::optional<std::string> hardwareAddress(const sockaddr_dl& link)
{
    std::array<unsigned, 6> octets{};
    if (link.sdl_alen != octets.size()) {
        return std::nullopt;
    }
    const char* bytes = LLADDR(&link);
    for (std::size_t index = 0; index < octets.size(); ++index) {
        octets[index] = static_cast<unsigned char>(bytes[index]);
    }
    return fmt::format("{:02x}", fmt::join(octets, ":"));
}

/// A text in a node of the device tree, as the firmware handed it over.
std::optional<std::string> firmwareVersionOf(const char* node, CFStringRef key)
{
    const IOObjectOwner entry(IORegistryEntryFromPath(MACH_PORT_NULL, node));
    if (!entry) {
        return std::nullopt;
    }
    const CFRef<CFTypeRef> property(
        IORegistryEntryCreateCFProperty(entry.get(), key, kCFAllocatorDefault, kNilOptions));
    return textOf(property.get());
}

class MacMachineInfo final : public MachineInfo {
public:
    MacMachineInfo();

    std::optional<std::string> modelIdentifier() const override { return model_; }
    std::optional<std::string> serialNumber() const override { return serial_; }
    std::optional<std::string> vendorName() const override { return "Apple Inc."; }
    std::optional<std::string> firmwareVersion() const override { return firmware_; }
    std::optional<std::string> boardIdentifier() const override { return board_; } ///< Intel machines only
    std::optional<std::string> processorName() const override;
    std::optional<double> processorHertz() const override; ///< Intel machines only
    std::optional<double> maximumHertz() const override;   ///< Intel machines only
    std::optional<int> processorPackages() const override;
    int logicalProcessors() const override;
    int physicalProcessors() const override;
    std::optional<double> memoryBytes() const override;
    std::optional<std::string> networkHardwareAddress() const override;

    SystemRelease systemRelease() const override { return release_; }
    std::string systemName() const override;
    std::string kernelRelease() const override { return systemSettingText("kern.osrelease").value_or(""); }
    std::string architecture() const override;
    std::string hostName() const override { return systemSettingText("kern.hostname").value_or(""); }
    std::optional<std::string> virtualisation() const override;
    std::optional<double> bootTime() const override;
    std::optional<std::string> bootIdentifier() const override;
    bool hasService(std::string_view serviceClass) const override;
    /// True where a smart battery is built in: the models of Apple silicon no longer say "MacBook". Absent otherwise.
    std::optional<bool> chassisIsPortable() const override;
    std::string serviceManagerName() const override { return "launchd"; }

private:
    std::optional<std::string> model_;
    std::optional<std::string> serial_;
    std::optional<std::string> board_;
    std::optional<std::string> firmware_;
    SystemRelease release_;
};

} // namespace

MacMachineInfo::MacMachineInfo() : model_(systemSettingText("hw.model")), release_(readRelease())
{
    const ServiceEntry platformExpert("IOPlatformExpertDevice");
    serial_ = textOf(platformExpert.property("IOPlatformSerialNumber").get());
    board_ = textOf(platformExpert.property("board-id").get());
    firmware_ = firmwareVersionOf("IODeviceTree:/chosen", CFSTR("system-firmware-version")); // Apple silicon
    if (!firmware_) {
        firmware_ = firmwareVersionOf("IODeviceTree:/rom", CFSTR("version"));
    }
}

std::optional<std::string> MacMachineInfo::processorName() const
{
    return systemSettingText("machdep.cpu.brand_string");
}

std::optional<double> MacMachineInfo::processorHertz() const
{
    return asDouble(systemSettingInteger("hw.cpufrequency"));
}

std::optional<double> MacMachineInfo::maximumHertz() const
{
    return asDouble(systemSettingInteger("hw.cpufrequency_max"));
}

std::optional<int> MacMachineInfo::processorPackages() const
{
    const auto packages = systemSettingInteger("hw.packages");
    return packages ? std::optional(static_cast<int>(*packages)) : std::nullopt;
}

/// The kernel's: a translated program would name another one for itself.
std::string MacMachineInfo::architecture() const
{
    return systemSettingInteger("hw.optional.arm64").value_or(0) == 1 ? "arm64"
                                                                      : systemSettingText("hw.machine").value_or("");
}

/// Which hypervisor it is shows in the model that it makes up.
std::optional<std::string> MacMachineInfo::virtualisation() const
{
    if (systemSettingInteger("kern.hv_vmm_present").value_or(0) == 0) {
        return std::nullopt;
    }
    constexpr std::array<std::pair<std::string_view, const char*>, 3> names = {
        {{"VirtualMac", "apple"}, {"VMware", "vmware"}, {"Parallels", "parallels"}}};
    for (const auto& [beginning, name] : names) {
        if (model_.value_or("").starts_with(beginning)) {
            return name;
        }
    }
    return "vm-other";
}

int MacMachineInfo::logicalProcessors() const
{
    return static_cast<int>(systemSettingInteger("hw.logicalcpu").value_or(1));
}

int MacMachineInfo::physicalProcessors() const
{
    return static_cast<int>(systemSettingInteger("hw.physicalcpu").value_or(1));
}

std::optional<double> MacMachineInfo::memoryBytes() const { return asDouble(systemSettingInteger("hw.memsize")); }

std::optional<std::string> MacMachineInfo::networkHardwareAddress() const
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (entry->ifa_addr && entry->ifa_addr->sa_family == AF_LINK && std::string_view(entry->ifa_name) == "en0") {
            return hardwareAddress(*reinterpret_cast<const sockaddr_dl*>(entry->ifa_addr));
        }
    }
    return std::nullopt;
}

std::string MacMachineInfo::systemName() const
{
    const auto build = systemSettingText("kern.osversion");
    return fmt::format("macOS {}.{}.{}{}", release_.major, release_.minor, release_.bugfix,
        build ? fmt::format(" ({})", *build) : std::string());
}

std::optional<double> MacMachineInfo::bootTime() const
{
    timeval booted{};
    std::size_t size = sizeof(booted);
    if (sysctlbyname("kern.boottime", &booted, &size, nullptr, 0) != 0 || size != sizeof(booted)
        || booted.tv_sec == 0) {
        return std::nullopt;
    }
    return static_cast<double>(booted.tv_sec) + static_cast<double>(booted.tv_usec) * 1e-6;
}

std::optional<std::string> MacMachineInfo::bootIdentifier() const { return systemSettingText("kern.bootsessionuuid"); }

bool MacMachineInfo::hasService(std::string_view serviceClass) const
{
    return static_cast<bool>(ServiceEntry(std::string(serviceClass).c_str()));
}

std::optional<bool> MacMachineInfo::chassisIsPortable() const
{
    const auto installed = ServiceEntry("AppleSmartBattery").property("BatteryInstalled");
    if (installed && CFGetTypeID(installed.get()) == CFBooleanGetTypeID()
        && CFBooleanGetValue(static_cast<CFBooleanRef>(installed.get()))) {
        return true;
    }
    return std::nullopt;
}

std::unique_ptr<MachineInfo> makeMacMachineInfo() { return std::make_unique<MacMachineInfo>(); }

} // namespace meridal
