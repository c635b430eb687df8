// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/disks/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace meridal {
namespace {

// An internal disk as on a MacBook Pro of 2020, cut down to what is read: its driver publishes the capability.
constexpr const char* internal = R"ioreg(
+-o IONVMeController  <class IONVMeController:IOService:IORegistryEntry:OSObject, id 0x100000280>
  | {
  |   "NVMe SMART Capable" = Yes
  |   "Device Characteristics" = {"Vendor Name"="","Product Name"="APPLE SSD AP1024R","Serial Number"="0ba0123456789abc","Medium Type"="Solid State"}
  | }
  |
  +-o IOBlockStorageDriver  <class IOBlockStorageDriver:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000290>
    | {
    |   "Statistics" = {"Operations (Write)"=250,"Operations (Read)"=1000,"Bytes (Read)"=40960000,"Bytes (Write)"=1024000}
    | }
    |
    +-o APPLE SSD AP1024R Media  <class IOMedia:IOStorage:IOService:IORegistryEntry:OSObject, id 0x1000002a0>
        {
          "BSD Name" = "disk0"
          "Size" = 1000555581440
        }
)ioreg";

constexpr const char* external = R"ioreg(
+-o AppleUSBDrive  <class IOUSBHostDevice:IOService:IORegistryEntry:OSObject, id 0x100000700>
  | {
  |   "USB Serial Number" = "57584D31"
  | }
  |
  +-o ATADriver  <class IOATABlockStorageDevice:IOService:IORegistryEntry:OSObject, id 0x100000710>
    | {
    |   "SMART Capable" = Yes
    |   "Device Characteristics" = {"Product Name"="WDC WD40EFRX","Medium Type"="Rotational"}
    |   "IOPowerManagement" = {"CurrentPowerState"=1,"MaxPowerState"=4}
    | }
    |
    +-o IOBlockStorageDriver2  <class IOBlockStorageDriver:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000720>
      +-o WDC Media  <class IOMedia:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000730>
          {
            "BSD Name" = "disk4"
          }
)ioreg";

class MacDisksTest : public testing::Test {
protected:
    DiskRecord first(SMARTKind kind)
    {
        for (const DiskRecord& disk : disks->disks()) {
            if (disk.kind == kind) {
                return disk;
            }
        }
        return {};
    }

    test::SimulatedMac mac;
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    std::unique_ptr<Disks> disks = makeMacDisks(limitations);
};

TEST_F(MacDisksTest, DisksAreThoseWhoseDriversCanTellOfTheirHealth)
{
    mac.registry.plug(internal);
    mac.registry.plug(external);
    const auto found = disks->disks();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].kind, SMARTKind::ATA);
    EXPECT_EQ(found[0].path, "0x100000710");
    EXPECT_EQ(found[0].usbSerial, "57584D31") << "of what it hangs on";
    EXPECT_EQ(found[0].blockDevice, "disk4") << "of what hangs on it";
    EXPECT_EQ(found[0].rotational, true);
    EXPECT_EQ(disks->requests(found[0]), std::nullopt) << "its driver keeps no account";
    EXPECT_EQ(found[1].kind, SMARTKind::NVMe);
    EXPECT_EQ(found[1].model, "APPLE SSD AP1024R");
    EXPECT_EQ(disks->requests(found[1]), 1250);

    mac.registry.unplug("AppleUSBDrive");
    EXPECT_EQ(disks->disks().size(), 1U);
    EXPECT_EQ(disks->device(found[0]), nullptr);
    EXPECT_EQ(disks->requests(found[0]), std::nullopt);
    mac.ledger.fail("IOServiceGetMatchingServices", kIOReturnError, 2);
    EXPECT_EQ(disks->disks().size(), 0U);
}

TEST_F(MacDisksTest, EachThatComesOrGoesIsToldOnce)
{
    mac.registry.plug(internal);
    int changes = 0;
    auto observation = disks->observe([&changes] { ++changes; });
    mac.ledger.deliver();
    EXPECT_EQ(changes, 0) << "what was there is no news";
    for (int round = 1; round <= 3; ++round) {
        mac.registry.plug(external);
        mac.ledger.deliver();
        EXPECT_EQ(changes, 3 * round - 1) << "its driver and its medium";
        mac.registry.unplug("AppleUSBDrive");
        mac.ledger.deliver();
        EXPECT_EQ(changes, 3 * round) << "its driver";
    }
    mac.registry.plug(external);
    observation.reset();
    mac.ledger.deliver();
    EXPECT_EQ(changes, 9) << "nobody listens any more";

    mac.ledger.fail("IONotificationPortCreate");
    observation = disks->observe([] {});
    mac.ledger.fail("IOServiceAddMatchingNotification", kIOReturnError, 1);
    const auto partial = disks->observe([&changes] { ++changes; });
    mac.registry.unplug("AppleUSBDrive");
    mac.ledger.deliver();
    EXPECT_EQ(changes, 10) << "one of three that failed leaves the others";
}

TEST_F(MacDisksTest, PlugInsAreHeldWhileTheyAreReadOnly)
{
    mac.registry.plug(external);
    auto& drive = mac.registry.disks["ATADriver"];
    drive.data[2] = 7;
    drive.thresholds[3] = 8;
    drive.identify[4] = 9;
    const auto device = disks->device(first(SMARTKind::ATA));
    ASSERT_TRUE(device);
    EXPECT_EQ(device->readData(), std::nullopt) << "not opened";
    ASSERT_TRUE(device->open());
    EXPECT_TRUE(device->open()) << "is open already";
    EXPECT_TRUE(device->enableOperations(true));
    EXPECT_TRUE(device->enableAutosave(false));
    EXPECT_EQ(drive.commands, (std::vector<std::string>{"operations on", "autosave off"}));
    EXPECT_EQ(device->isFailing(), false);
    drive.exceeded = true;
    EXPECT_EQ(device->isFailing(), true);
    EXPECT_EQ(device->readData()->at(2), 7);
    EXPECT_EQ(device->readThresholds()->at(3), 8);
    EXPECT_EQ(device->identify()->at(4), 9);
    EXPECT_EQ(device->readHealthLog(), std::nullopt) << "it is no NVMe disk";
    EXPECT_EQ(device->identifyController(), std::nullopt);

    drive.commandResult = kIOReturnNotOpen;
    EXPECT_FALSE(device->enableOperations(true));
    EXPECT_EQ(device->isFailing(), std::nullopt);
    EXPECT_EQ(device->readData(), std::nullopt) << "half a page is none";
    EXPECT_EQ(device->identify(), std::nullopt);
    device->close();
    device->close();
    EXPECT_EQ(device->readData(), std::nullopt);
    EXPECT_TRUE(device->open());
}

TEST_F(MacDisksTest, ADiskThatOthersHoldOrThatRefusesIsTriedAgain)
{
    mac.registry.plug(internal);
    auto& drive = mac.registry.disks["IONVMeController"];
    drive.data[1] = 5;
    drive.identify[24] = 'A';
    drive.refusal = kIOReturnExclusiveAccess;
    const auto device = disks->device(first(SMARTKind::NVMe));
    EXPECT_FALSE(device->open());
    EXPECT_FALSE(device->isDenied()) << "another has it";
    for (const kern_return_t refusal : {kIOReturnNotPrivileged, kIOReturnNotPermitted}) {
        drive.refusal = refusal;
        EXPECT_FALSE(device->open());
        EXPECT_TRUE(device->isDenied());
    }
    drive.refusal = KERN_SUCCESS;
    drive.hasInterface = false;
    EXPECT_FALSE(device->open());
    drive.hasInterface = true;
    ASSERT_TRUE(device->open());
    EXPECT_FALSE(device->isDenied());
    EXPECT_EQ(device->readHealthLog()->at(1), 5);
    EXPECT_EQ(device->identifyController()->at(24), 'A');
    EXPECT_EQ(device->readData(), std::nullopt) << "it is no ATA disk";
}

TEST_F(MacDisksTest, ThatADiskSleepsIsAGuessThatIsTold)
{
    mac.registry.plug(internal);
    mac.registry.plug(external);
    EXPECT_EQ(disks->device(first(SMARTKind::NVMe))->powerMode(), DiskPower::Awake);
    EXPECT_TRUE(limitations->all().empty());
    const auto device = disks->device(first(SMARTKind::ATA));
    EXPECT_EQ(device->powerMode(), DiskPower::Asleep);
    EXPECT_EQ(limitations->all().size(), 1U);
    mac.registry.at("ATADriver").properties["IOPowerManagement"]["CurrentPowerState"] = 4;
    EXPECT_EQ(device->powerMode(), DiskPower::Awake) << "read when it is asked for";
}

} // namespace
} // namespace meridal
