// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/Virtualisation.h"

#include "platform/linux/kernel/RootFolder.h"

#include <array>
#include <string_view>
#include <utility>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <cstring>
#endif

namespace meridal {

namespace {

using Name = std::pair<std::string_view, const char*>; // what something begins with, and what that stands for

/// What firmware that a hypervisor made calls itself.
constexpr std::array firmwareNames = {Name{"KVM", "kvm"}, Name{"OpenStack", "kvm"}, Name{"KubeVirt", "kvm"},
    Name{"Amazon EC2", "amazon"}, Name{"QEMU", "qemu"}, Name{"VMware", "vmware"}, Name{"VMW", "vmware"},
    Name{"innotek GmbH", "oracle"}, Name{"VirtualBox", "oracle"}, Name{"Oracle Corporation", "oracle"},
    Name{"Xen", "xen"}, Name{"Bochs", "bochs"}, Name{"Parallels", "parallels"}, Name{"BHYVE", "bhyve"},
    Name{"Hyper-V", "microsoft"}, Name{"Apple Virtualization", "apple"}, Name{"Google Compute Engine", "google"}};

/// What a hypervisor leaves in the registers of its leaf.
constexpr std::array signatures = {Name{"KVMKVMKVM", "kvm"}, Name{"Linux KVM Hv", "kvm"}, Name{"TCGTCGTCGTCG", "qemu"},
    Name{"VMwareVMware", "vmware"}, Name{"Microsoft Hv", "microsoft"}, Name{"XenVMMXenVMM", "xen"},
    Name{"bhyve bhyve", "bhyve"}, Name{"QNXQVMBSQG", "qnx"}, Name{"ACRNACRNACRN", "acrn"}, Name{"SRESRESRESRE", "sre"},
    Name{"Apple VZ", "apple"}};

template <std::size_t Count>
std::optional<std::string> lookUp(std::string_view text, const std::array<Name, Count>& names)
{
    for (const auto& [beginning, name] : names) {
        if (text.starts_with(beginning)) {
            return name;
        }
    }
    return std::nullopt;
}

std::optional<std::string> containerOf(const RootFolder& root)
{
    const std::string release = root.readLine("proc/sys/kernel/osrelease").value_or("");
    if (release.find("Microsoft") != std::string::npos || release.find("WSL") != std::string::npos) {
        return "wsl";
    }
    if (root.exists("proc/vz") && !root.exists("proc/bc")) { // with it, this is the host
        return "openvz";
    }
    if (auto manager = root.readLine("run/systemd/container")) { // as its first process was told
        return manager;
    }
    const std::string environment = root.read("proc/1/environ").value_or("");
    for (std::size_t at = 0; at < environment.size(); at = environment.find('\0', at) + 1) {
        constexpr std::string_view variable = "container=";
        const std::string_view entry(environment.c_str() + at);
        if (entry.starts_with(variable) && entry.size() > variable.size()) {
            return std::string(entry.substr(variable.size()));
        }
        if (environment.find('\0', at) == std::string::npos) {
            break;
        }
    }
    if (root.exists("run/.containerenv")) {
        return "podman";
    }
    return root.exists(".dockerenv") ? std::optional<std::string>("docker") : std::nullopt;
}

std::optional<std::string> firmwareOf(const RootFolder& root)
{
    for (const char* name : {"product_name", "sys_vendor", "board_vendor", "bios_vendor", "product_version"}) {
        const auto text = root.readLine(std::string("sys/class/dmi/id/") + name);
        if (auto found = lookUp(text.value_or(""), firmwareNames)) {
            return found;
        }
    }
    const std::string tree = root.readLine("proc/device-tree/hypervisor/compatible").value_or("");
    if (tree.starts_with("linux,kvm")) {
        return "kvm";
    }
    if (tree.find("xen") != std::string::npos) {
        return "xen";
    }
    return tree.find("vmware") != std::string::npos ? std::optional<std::string>("vmware") : std::nullopt;
}

/// Of the processor that this runs on, whatever the root folder is.
std::optional<std::string> signatureOfProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    constexpr unsigned hypervisorFlag = 1U << 31; // in the third register of leaf 1
    constexpr unsigned hypervisorLeaf = 0x40000000;
    std::array<unsigned, 4> registers{};
    if (__get_cpuid(1, &registers[0], &registers[1], &registers[2], &registers[3]) == 0
        || (registers[2] & hypervisorFlag) == 0) {
        return std::nullopt;
    }
    __cpuid(hypervisorLeaf, registers[0], registers[1], registers[2], registers[3]);
    std::array<char, 13> text{};
    std::memcpy(text.data(), &registers[1], text.size() - 1);
    return lookUp(text.data(), signatures);
#else
    return std::nullopt;
#endif
}

std::optional<std::string> hypervisorOf(const RootFolder& root)
{
    const std::string processors = root.read("proc/cpuinfo").value_or("");
    if (valueOfKey(processors, "vendor_id", ':') == "User Mode Linux") {
        return "uml";
    }
    // Machines of one host may have another's firmware, so that the firmware knows better what a person means.
    if (auto name = firmwareOf(root)) {
        return name;
    }
    const bool isReal = root.path("") == std::filesystem::path("/");
    if (auto name = isReal ? signatureOfProcessor() : std::nullopt) {
        return name;
    }
    if (root.readLine("sys/hypervisor/type") == "xen") {
        // The first guest drives the hardware, and is what people take for the machine.
        const std::string rights = root.readLine("proc/xen/capabilities").value_or("");
        return rights.find("control_d") == std::string::npos ? std::optional<std::string>("xen") : std::nullopt;
    }
    const std::string flags = " " + valueOfKey(processors, "flags", ':').value_or("") + " ";
    return flags.find(" hypervisor ") != std::string::npos ? std::optional<std::string>("vm-other") : std::nullopt;
}

} // namespace

std::optional<std::string> readVirtualisation(const RootFolder& root)
{
    auto container = containerOf(root);
    return container ? container : hypervisorOf(root);
}

} // namespace meridal
