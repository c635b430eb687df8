// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxMachineInfo.h"
#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/machine/DrmDisplayInfo.h"
#include "platform/linux/machine/DrmGraphics.h"
#include "platform/linux/machine/LinuxSelfUsage.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <vector>

namespace meridal {
namespace {

using namespace std::string_literals;

TEST(LinuxMachineInfo, ReadsALaptop)
{
    const test::TemporaryTree tree{{"sys/class/dmi/id/sys_vendor", "LENOVO\n"},
        {"sys/class/dmi/id/product_name", "20XW005PGE\n"},
        {"sys/class/dmi/id/product_version", "ThinkPad X1 Carbon Gen 9\n"},
        {"sys/class/dmi/id/product_serial", "PF2ABCDE\n"}, {"sys/class/dmi/id/board_name", "20XW005PGE\n"},
        {"sys/class/dmi/id/chassis_type", "10\n"},
        {"proc/cpuinfo", "processor\t: 0\nmodel name\t: Some CPU @ 2.80GHz\ncpu MHz\t\t: 2803.198\n\nprocessor\t: 1\n"},
        {"sys/devices/system/cpu/cpu0/topology/thread_siblings_list", "0-1\n"},
        {"sys/devices/system/cpu/cpu1/topology/thread_siblings_list", "0-1\n"},
        {"sys/devices/system/cpu/cpufreq/x", ""}, {"sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "4700000\n"},
        {"proc/meminfo", "MemTotal:       16000000 kB\nMemFree: 1 kB\n"},
        {"etc/os-release", "NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"},
        {"proc/stat", "cpu  1 2 3\nbtime 1700000000\nprocesses 5\n"}, {"proc/1/comm", "systemd\n"},
        {"sys/class/net/docker0/address", "02:42:00:00:00:01\n"}, {"sys/class/net/docker0/ifindex", "1\n"},
        {"sys/class/net/wlan0/address", "aa:bb:cc:dd:ee:01\n"}, {"sys/class/net/wlan0/ifindex", "3\n"},
        {"sys/class/net/wlan0/device/vendor", "x"}, {"sys/class/net/zeth/address", "aa:bb:cc:dd:ee:02\n"},
        {"sys/class/net/zeth/ifindex", "2\n"}, {"sys/class/net/zeth/device/vendor", "x"}};
    const LinuxMachineInfo machine(tree.root());
    EXPECT_EQ(machine.modelIdentifier(), "ThinkPad X1 Carbon Gen 9");
    EXPECT_EQ(machine.serialNumber(), "PF2ABCDE");
    EXPECT_EQ(machine.chassisIsPortable(), true);
    EXPECT_EQ(machine.processorName(), "Some CPU @ 2.80GHz");
    EXPECT_EQ(machine.processorHertz(), 4.7e9);
    EXPECT_EQ(machine.logicalProcessors(), 2);
    EXPECT_EQ(machine.physicalProcessors(), 1);
    EXPECT_EQ(machine.memoryBytes(), 16384000000.0);
    EXPECT_EQ(machine.systemName(), "Debian GNU/Linux 12 (bookworm)");
    EXPECT_EQ(machine.bootTime(), 1700000000.0);
    EXPECT_EQ(machine.networkHardwareAddress(), "aa:bb:cc:dd:ee:02");
    EXPECT_EQ(machine.serviceManagerName(), "systemd");
    tree.write("proc/stat", "btime 1700000001\n");
    EXPECT_EQ(machine.bootTime(), 1700000001.0) << "the clock was set";
}

TEST(LinuxMachineInfo, ReadsABoardWithADeviceTree)
{
    const test::TemporaryTree tree{{"proc/device-tree/model", "Some Board 4 Rev 1.2\0"s},
        {"proc/device-tree/serial-number", "10000000abcdef\0"s}, {"proc/device-tree/chassis-type", "embedded\0"s},
        {"proc/cpuinfo", "processor\t: 0\nBogoMIPS\t: 108.00\n\nprocessor\t: 1\n"}, {"proc/1/comm", "init\n"}};
    const LinuxMachineInfo machine(tree.root());
    EXPECT_EQ(machine.modelIdentifier(), "Some Board 4 Rev 1.2");
    EXPECT_EQ(machine.serialNumber(), "10000000abcdef");
    EXPECT_EQ(machine.chassisIsPortable(), false);
    EXPECT_EQ(machine.logicalProcessors(), 2);
    EXPECT_EQ(machine.serviceManagerName(), "init");
    EXPECT_FALSE(machine.processorHertz());
}

TEST(LinuxMachineInfo, AnEmptyMachineHasAbsentFigures)
{
    const test::TemporaryTree tree{{"sys/class/dmi/id/product_name", "To Be Filled By O.E.M.\n"},
        {"sys/class/dmi/id/chassis_type", "2\n"}, {"proc/stat", "btime nonsense\n"}};
    const LinuxMachineInfo machine(tree.root());
    EXPECT_FALSE(machine.modelIdentifier() || machine.serialNumber() || machine.bootTime() || machine.memoryBytes());
    EXPECT_FALSE(machine.chassisIsPortable() || machine.networkHardwareAddress());
    EXPECT_EQ(machine.logicalProcessors(), 1);
    EXPECT_FALSE(LinuxMachineInfo(tree.root() / "nowhere").modelIdentifier());
}

TEST(LinuxMachineInfo, WhatItRunsInsideOfIsToldByTheInnermost)
{
    const std::pair<std::vector<std::pair<std::string, std::string>>, std::optional<std::string>> cases[] = {
        {{}, std::nullopt}, {{{"proc/cpuinfo", "flags\t\t: fpu vme sse\n"}}, std::nullopt},
        {{{"proc/cpuinfo", "flags\t\t: fpu hypervisor sse\n"}}, "vm-other"},
        {{{"proc/cpuinfo", "vendor_id\t: User Mode Linux\n"}}, "uml"},
        {{{"sys/class/dmi/id/product_name", "Standard PC (Q35 + ICH9, 2009)\n"},
             {"sys/class/dmi/id/sys_vendor", "QEMU\n"}},
            "qemu"},
        {{{"sys/class/dmi/id/sys_vendor", "Amazon EC2\n"}, {"sys/hypervisor/type", "xen\n"}}, "amazon"},
        {{{"sys/class/dmi/id/bios_vendor", "innotek GmbH\n"}}, "oracle"},
        {{{"proc/device-tree/hypervisor/compatible", "linux,kvm\0"s}}, "kvm"},
        {{{"sys/hypervisor/type", "xen\n"}}, "xen"},
        {{{"sys/hypervisor/type", "xen\n"}, {"proc/xen/capabilities", "control_d\n"}}, std::nullopt},
        {{{".dockerenv", ""}, {"proc/cpuinfo", "flags\t\t: hypervisor\n"}}, "docker"},
        {{{"proc/1/environ", "HOME=/\0container=lxc\0TERM=linux\0"s}}, "lxc"},
        {{{"proc/1/environ", "mycontainer=x\0PATH=/"s}, {"run/.containerenv", ""}}, "podman"},
        {{{"run/systemd/container", "systemd-nspawn\n"}, {".dockerenv", ""}}, "systemd-nspawn"},
        {{{"proc/vz/version", ""}}, "openvz"}, {{{"proc/vz/version", ""}, {"proc/bc/x", ""}}, std::nullopt},
        {{{"proc/sys/kernel/osrelease", "5.15.90.1-microsoft-standard-WSL2\n"}}, "wsl"}};
    for (const auto& [files, name] : cases) {
        test::TemporaryTree tree;
        for (const auto& [path, text] : files) {
            tree.write(path, text);
        }
        EXPECT_EQ(LinuxMachineInfo(tree.root()).virtualisation(), name) << (files.empty() ? "" : files.front().second);
    }
}

TEST(DrmGraphics, EachDriverTellsWhatItCanAndWhatRestsIsLeftAlone)
{
    const std::string drm = "sys/class/drm/";
    test::TemporaryTree tree{{drm + "card0/device/uevent", "DRIVER=amdgpu\nPCI_CLASS=30000\n"},
        {drm + "card0/device/gpu_busy_percent", "37\n"}, {drm + "card0/device/mem_info_vram_used", "1048576\n"},
        {drm + "card0/device/mem_info_vram_total", "8573157376\n"},
        {drm + "card0/device/hwmon/hwmon3/freq1_input", "1450000000\n"},
        {drm + "card0/device/power/runtime_status", "active\n"}, {drm + "card0/device/power/control", "auto\n"},
        {drm + "card1/device/uevent", "DRIVER=i915\n"}, {drm + "card1/gt/gt0/rps_act_freq_mhz", "350\n"},
        {drm + "card1/gt/gt0/rc6_residency_ms", "5000\n"}, {drm + "card1/device/power/control", "auto\n"},
        {drm + "card1/card1-eDP-1/enabled", "enabled\n"}, {drm + "card1-eDP-1/status", "connected\n"},
        {drm + "card2/device/uevent", "DRIVER=virtio_gpu\n"}};
    DrmGraphics graphics(tree.root());
    const GraphicsRecord idle{.name = "card0", .driver = "amdgpu", .memoryTotal = 8573157376};
    GraphicsRecord busy = idle;
    busy.busyPercent = 37;
    busy.memoryUsed = 1048576;
    busy.frequencyHz = 1'450'000'000;
    const GraphicsRecord integrated{
        .name = "card1", .driver = "i915", .asleepNs = 5'000'000'000, .frequencyHz = 350'000'000};
    const GraphicsRecord bare{.name = "card2", .driver = "virtio_gpu"};
    EXPECT_EQ(graphics.read(0), (std::vector{busy, integrated, bare}));
    tree.write(drm + "card0/device/gpu_busy_percent", "0\n");
    busy.busyPercent = 0;
    EXPECT_EQ(graphics.read(6)[0], busy);
    EXPECT_EQ(graphics.read(12)[0], idle) << "a reading would keep it awake";
    EXPECT_EQ(graphics.read(12)[1], integrated) << "its display is on";
    EXPECT_EQ(graphics.read(37)[0], busy);
    tree.write(drm + "card0/device/power/runtime_status", "suspended\n");
    EXPECT_EQ(graphics.read(70)[0], idle) << "a reading would wake it";
    tree.remove(drm + "card0");
    EXPECT_EQ(graphics.read(140).size(), 2U) << "unplugged";
}

TEST(LinuxMachineInfo, ThisMachineTellsTheBasics)
{
    const LinuxMachineInfo machine("/");
    EXPECT_GE(machine.logicalProcessors(), machine.physicalProcessors());
    EXPECT_GT(machine.memoryBytes().value_or(0), 1e8);
    EXPECT_GT(machine.bootTime().value_or(0), 1e9);
}

TEST(LinuxSelfUsage, TellsTheCostOfThisProcess)
{
    LinuxSelfUsage usage("/");
    const SelfUsageReading before = usage.read();
    EXPECT_GT(before.residentBytes.value_or(0), 1U << 20);
    EXPECT_LE(before.proportionalBytes.value_or(0), before.residentBytes.value_or(0));
    const Descriptor extra(::dup(0));
    EXPECT_EQ(usage.read().openDescriptors, before.openDescriptors.value_or(0) + 1);

    const SelfUsageReading none = LinuxSelfUsage("/nowhere").read();
    EXPECT_TRUE(none.cpuSeconds);
    EXPECT_FALSE(none.residentBytes || none.bytesWritten || none.openDescriptors);
}

TEST(DrmDisplayInfo, CountsFramesBetweenTwoBlanksOfOneDisplay)
{
    std::optional<VerticalBlank> now;
    DrmDisplayInfo display([&] { return now; });
    EXPECT_FALSE(display.frameRate());
    const auto rateAt = [&](const VerticalBlank& blank) {
        now = blank;
        return display.frameRate();
    };
    EXPECT_FALSE(rateAt({.display = 1, .count = 0xFFFFFFF0, .time = 10})) << "nothing to compare with";
    EXPECT_EQ(rateAt({.display = 1, .count = 104, .time = 12}), 60) << "across the wrap";
    EXPECT_FALSE(display.frameRate()) << "no frame since";
    EXPECT_FALSE(rateAt({.display = 2, .count = 300, .time = 14})) << "another display";
    EXPECT_FALSE(rateAt({.display = 2, .count = 5, .time = 15})) << "the counter began again";
    EXPECT_FALSE(rateAt({.display = 2, .count = 605, .time = 25})) << "too long ago";
    const test::TemporaryTree tree{{"dev/dri/card0", "not a device"}};
    EXPECT_FALSE(DrmDisplayInfo(tree.root()).frameRate());
}

} // namespace
} // namespace meridal
