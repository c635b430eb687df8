// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/LinuxDisks.h"
#include "collectors/disks/DiskDiscovery.h"
#include "platform/linux/disks/AtaPassThrough.h"
#include "platform/linux/disks/DeviceNode.h"
#include "tests/support/SMARTPageBuilder.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <unistd.h>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// sysfs with the folders and links of disks.
class LinuxDisksTest : public testing::Test {
protected:
    void addDevice(const std::string& path, const std::map<std::string, std::string>& files)
    {
        tree.write(path + "/uevent", "");
        for (const auto& [name, content] : files) {
            tree.write(path + "/" + name, content);
        }
    }
    void addLink(const std::string& link, const std::string& target)
    {
        tree.link(link, std::filesystem::path(target).lexically_relative(std::filesystem::path(link).parent_path()));
    }
    /// A SCSI disk below some host.
    std::string addScsi(const std::string& host, const std::string& name,
        const std::map<std::string, std::string>& scsi, const std::map<std::string, std::string>& block)
    {
        const std::string device = host + "/target0:0:0/0:0:0:0";
        const std::string disk = device + "/block/" + name;
        addDevice(host, {});
        addDevice(device, scsi);
        addDevice(disk, block);
        addLink(disk + "/device", device);
        addLink("sys/class/block/" + name, disk);
        return disk;
    }
    /// Block device, model and serial number of each, and what all of them are made of.
    std::vector<std::vector<std::optional<std::string>>> found()
    {
        std::vector<std::vector<std::optional<std::string>>> all;
        records = disks.disks();
        for (const DiskRecord& disk : records) {
            all.push_back({disk.blockDevice, modelOfDisk(disk), serialOfDisk(disk)});
        }
        return all;
    }
    /// Page 89h as a SAT layer gives it.
    static std::string ataInformation(const TestIdentity& identity)
    {
        const SMARTPage page = identifyPage(identity);
        return std::string(60, '\x01') + std::string(page.begin(), page.end());
    }

    TemporaryTree tree;
    VirtualRuntime runtime;
    LinuxDisks disks{runtime, tree.root(), std::make_shared<Limitations>()};
    std::vector<DiskRecord> records;
};

TEST_F(LinuxDisksTest, ADiskOnAnAtaPortTellsAllWithoutBeingAsked)
{
    const std::string disk = addScsi("sys/devices/pci0/ata1/host0", "sda",
        {{"vendor", "ATA     \n"}, {"model", "WDC WD40EFRX-68N\n"}, {"type", "0\n"}, {"vpd_pg89", ataInformation({})}},
        {{"dev", "8:0\n"}, {"removable", "0\n"}, {"queue/rotational", "1\n"},
            {"stat",
                "    1432      120    91234      803      355       40     7712      512        0      900     "
                "1315\n"}});
    addDevice(disk + "/sda1", {{"partition", "1\n"}});
    addLink("sys/class/block/sda1", disk + "/sda1");
    EXPECT_THAT(found(), ElementsAre(ElementsAre("sda", "WDC WD40EFRX-68N32N0", "WD-WX11A2345678")))
        << "a partition is no disk";
    EXPECT_EQ(records[0].path, disk);
    EXPECT_EQ(records[0].rotational, true);
    EXPECT_EQ(disks.requests(records[0]), 1432 + 355);
    tree.write(disk + "/queue/iostats", "0\n");
    EXPECT_FALSE(disks.requests(records[0])) << "nobody counts";
}

TEST_F(LinuxDisksTest, WithoutThatPageUdevAndTheUnitSerialTell)
{
    const std::string known = "sys/devices/pci0/ata1/host0";
    addScsi(known, "sda",
        {{"vendor", "ATA\n"}, {"model", "Samsung SSD 860 \n"},
            {"vpd_pg80", std::string("\0\x80\0\x14     S3Z8NB0K", 17)}},
        {{"dev", "8:0\n"}});
    EXPECT_THAT(found(), ElementsAre(ElementsAre("sda", "Samsung SSD 860", "S3Z8NB0K")));
    tree.write("run/udev/data/b8:0",
        "E:ID_ATA=1\nE:ID_ATA_FEATURE_SET_SMART=1\nE:ID_MODEL=Micron_M500_MT\nE:ID_SERIAL_SHORT=S3Z8NB0K123\n");
    EXPECT_THAT(found(), ElementsAre(ElementsAre("sda", "Micron M500 MT", "S3Z8NB0K123")));
    tree.write("run/udev/data/b8:0",
        "E:ID_ATA=1\nE:ID_ATA_FEATURE_SET_SMART=1\nE:ID_MODEL=Micron_M500_MT\n"
        "E:ID_MODEL_ENC=Micron_M500\\x20MT\\x20\\x20\nE:ID_SERIAL_SHORT=S3Z8NB0K123\n");
    EXPECT_THAT(found(), ElementsAre(ElementsAre("sda", "Micron_M500 MT", "S3Z8NB0K123")));
    tree.write("run/udev/data/b8:0", "E:ID_ATA=1\n");
    EXPECT_THAT(found(), IsEmpty()) << "it has no such feature";
}

TEST_F(LinuxDisksTest, UsbDisksAreDisksAndSticksAreNot)
{
    const std::string bridge = "sys/devices/pci0/usb1/1-1";
    addDevice(bridge, {{"idVendor", "152d\n"}, {"serial", "DD56419884\n"}});
    const std::map<std::string, std::string> scsi{{"vendor", "External\n"}, {"model", "USB3.0\n"}, {"type", "0\n"}};
    addScsi(bridge + "/1-1:1.0/host6", "sdb", scsi, {{"dev", "8:16\n"}, {"removable", "0\n"}});
    addScsi("sys/devices/pci0/usb1/1-2/1-2:1.0/host7", "sdc", scsi, {{"dev", "8:32\n"}, {"removable", "1\n"}});
    EXPECT_THAT(found(), ElementsAre(ElementsAre("sdb", "External USB3.0", "DD56419884")));
    tree.write("run/udev/data/b8:16", "E:ID_BUS=usb\n");
    EXPECT_THAT(found(), IsEmpty()) << "udev tried, and no disk answered behind the bridge";
}

TEST_F(LinuxDisksTest, NvmeControllersWithTheirFirstNamespace)
{
    for (const auto& [name, child, transport] :
        {std::tuple{"nvme0", "nvme0n1", "pcie"}, {"nvme1", "nvme1c1n1", "pcie"}, {"nvme2", "nvme2n1", "tcp"}}) {
        const std::string path = std::string("sys/devices/pci0/0000:01:00.0/nvme/") + name;
        addDevice(path, {{"model", "FAST 1000   \n"}, {"serial", "S5GX   \n"}, {"transport", transport}});
        addDevice(path + "/" + child, {});
        addDevice(path + "/hwmon1", {});
        addLink(std::string("sys/class/nvme/") + name, path);
    }
    EXPECT_THAT(
        found(), ElementsAre(ElementsAre("nvme0n1", "FAST 1000", "S5GX"), ElementsAre("nvme1n1", "FAST 1000", "S5GX")))
        << "a disk elsewhere is not this machine's";
    EXPECT_EQ(records[0].kind, SMARTKind::NVMe);
}

TEST_F(LinuxDisksTest, ASuspendedDiskIsAsleepAndItsNodeIsNotOpened)
{
    const std::string disk = addScsi("sys/devices/pci0/ata1/host0", "sda",
        {{"vendor", "ATA\n"}, {"power/runtime_status", "suspended\n"}}, {{"queue/rotational", "1\n"}});
    const auto device = disks.device(disks.disks().at(0));
    EXPECT_EQ(device->powerMode(), DiskPower::Asleep);
    tree.write("sys/devices/pci0/ata1/host0/target0:0:0/0:0:0:0/power/runtime_status", "active\n");
    EXPECT_EQ(device->powerMode(), DiskPower::Unknown) << "its node is missing, so it cannot be asked";
    tree.write(disk + "/queue/rotational", "0\n");
    EXPECT_EQ(disks.device(disks.disks().at(0))->powerMode(), DiskPower::Awake);
}

TEST(DeviceNode, WhatIsNoDiskAnswersWithAnError)
{
    DeviceNode node("/dev/null");
    for (int round = 0; round < 2; ++round) {
        const DeviceAnswer answer = node.run(passThrough({.command = 0xE5}, PassThroughSize::Sixteen));
        EXPECT_GT(answer.error, 0);
        EXPECT_FALSE(answer.isGood());
    }
    EXPECT_GT(DeviceNode("/nowhere/at/all").run({}).error, 0);
}

/// Whatever disks this machine has, as root.
TEST(LiveDisks, EveryDiskAnswersOrSaysWhy)
{
    VirtualRuntime runtime;
    LinuxDisks disks(runtime, "/", std::make_shared<Limitations>());
    int asked = 0;
    for (const DiskRecord& disk : disks.disks()) {
        const auto device = disks.device(disk);
        if (device->powerMode() == DiskPower::Awake) {
            ++asked;
            const auto page = disk.kind == SMARTKind::NVMe ? device->readHealthLog() : device->identify();
            EXPECT_TRUE(serialOfDisk(disk) && (page || ::geteuid() != 0)) << disk.path;
        }
    }
    if (asked == 0) {
        GTEST_SKIP() << "no disk with health data here";
    }
}

} // namespace
} // namespace meridal::test
