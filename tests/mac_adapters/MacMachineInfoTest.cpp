// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace meridal {
namespace {

// As on a MacBook Pro of 2023 and one of 2019, with made-up serial numbers.
constexpr const char* appleSilicon = R"(
+-o J416cAP  <class IOPlatformExpertDevice:IOService:IORegistryEntry:OSObject, id 0x100000100>
  | {
  |   "IOPlatformSerialNumber" = "XYZ0123456"
  | }
  |
  +-o chosen  <class IOService, id 0x100000110>
  |   {
  |     "system-firmware-version" = <69426f6f742d31303135312e312e3100>
  |   }
  |
  +-o AppleSmartBattery  <class AppleSmartBattery:IOPMPowerSource:IOService, id 0x100000120>
      {
        "BatteryInstalled" = Yes
      }
)";
constexpr const char* intel = R"(
+-o MacBookPro15,1  <class IOPlatformExpertDevice:IOService:IORegistryEntry:OSObject, id 0x100000100>
  | {
  |   "IOPlatformSerialNumber" = "C02XYZ012345"
  |   "board-id" = <4d61632d39333744384535453000>
  | }
  |
  +-o rom  <class IOService, id 0x100000110>
      {
        "version" = <323032322e3130302e32322e302e3000>
      }
)";

TEST(MacMachineInfo, WhatAnAppleSiliconMacSaysOfItself)
{
    test::SimulatedMac mac;
    mac.registry.plug(appleSilicon);
    mac.kernel.set("hw.model", std::string("Mac14,6") + '\0');
    mac.kernel.set("kern.osproductversion", std::string("12.6") + '\0');
    mac.kernel.set("kern.osversion", std::string("21G115") + '\0');
    mac.kernel.set("hw.optional.arm64", std::int32_t{1});
    mac.kernel.set("hw.machine", std::string("x86_64") + '\0'); // as a translated program is told
    mac.kernel.set("hw.memsize", std::uint64_t{34359738368});
    mac.kernel.set("hw.logicalcpu", std::int32_t{12});
    mac.kernel.set("kern.boottime", timeval{.tv_sec = 1700000000, .tv_usec = 500000});
    mac.kernel.links = {{"en0", {0xa4, 0x83, 0xe7, 0, 1, 2}}, {"lo0", {}}};
    const auto machine = makeMacMachineInfo();
    EXPECT_EQ(machine->modelIdentifier(), "Mac14,6");
    EXPECT_EQ(machine->serialNumber(), "XYZ0123456");
    EXPECT_EQ(machine->boardIdentifier(), std::nullopt);
    EXPECT_EQ(machine->firmwareVersion(), "iBoot-10151.1.1");
    EXPECT_EQ(machine->systemRelease(), (SystemRelease{12, 6, 0}));
    EXPECT_EQ(machine->systemName(), "macOS 12.6.0 (21G115)");
    EXPECT_EQ(machine->architecture(), "arm64");
    EXPECT_EQ(machine->memoryBytes(), 34359738368.0);
    EXPECT_EQ(machine->logicalProcessors(), 12);
    EXPECT_EQ(machine->processorHertz(), std::nullopt);
    EXPECT_EQ(machine->bootTime(), 1700000000.5);
    EXPECT_EQ(machine->chassisIsPortable(), true);
    EXPECT_EQ(machine->networkHardwareAddress(), "a4:83:e7:00:01:02");
    EXPECT_EQ(machine->virtualisation(), std::nullopt);
    EXPECT_TRUE(machine->hasService("AppleSmartBattery"));
    EXPECT_FALSE(machine->hasService("FakeSMC"));

    mac.registry.at("AppleSmartBattery").properties["BatteryInstalled"] = false;
    EXPECT_EQ(machine->chassisIsPortable(), std::nullopt) << "a desktop's driver may be there without one";
    mac.kernel.links = {{"en0", {1, 2, 3}}};
    EXPECT_EQ(machine->networkHardwareAddress(), std::nullopt);
    mac.ledger.fail("getifaddrs");
    EXPECT_EQ(machine->networkHardwareAddress(), std::nullopt);
}

TEST(MacMachineInfo, WhatAnIntelMacAndAVirtualOneSay)
{
    test::SimulatedMac mac;
    mac.registry.plug(intel);
    mac.kernel.set("kern.osproductversion", std::string("11.7.10") + '\0');
    mac.kernel.set("hw.machine", std::string("x86_64") + '\0');
    mac.kernel.set("hw.cpufrequency", std::uint64_t{2600000000});
    mac.kernel.set("hw.packages", std::int32_t{1});
    const auto machine = makeMacMachineInfo();
    EXPECT_EQ(machine->boardIdentifier(), "Mac-937D8E5E0");
    EXPECT_EQ(machine->firmwareVersion(), "2022.100.22.0.0");
    EXPECT_EQ(machine->systemRelease(), (SystemRelease{11, 7, 10}));
    EXPECT_EQ(machine->systemName(), "macOS 11.7.10");
    EXPECT_EQ(machine->architecture(), "x86_64");
    EXPECT_EQ(machine->processorHertz(), 2.6e9);
    EXPECT_EQ(machine->processorPackages(), 1);
    EXPECT_EQ(machine->bootTime(), std::nullopt);

    for (const char* odd : {"", "macOS", "-3", "99999999999"}) {
        mac.kernel.set("kern.osproductversion", std::string(odd) + '\0');
        EXPECT_EQ(makeMacMachineInfo()->systemRelease(), (SystemRelease{11, 0, 0})) << odd;
    }

    mac.kernel.set("kern.hv_vmm_present", std::int32_t{1});
    for (const auto& [model, hypervisor] :
        {std::pair("VMware7,1", "vmware"), {"VirtualMac2,1", "apple"}, {"", "vm-other"}}) {
        mac.kernel.set("hw.model", std::string(model) + '\0');
        EXPECT_EQ(makeMacMachineInfo()->virtualisation(), hypervisor) << model;
    }
}

} // namespace
} // namespace meridal
