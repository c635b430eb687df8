// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

namespace meridal {
namespace {

// The classes and entries of Apple's and AMD's drivers, with figures of our own.
constexpr const char* apple = R"ioreg(
+-o AGXAcceleratorG14X  <class AGXAcceleratorG14X:AGXAccelerator:IOGPU:IOAccelerator:IOService, id 0x100000500>
  | {
  |   "IOClass" = "AGXAcceleratorG14X"
  |   "PerformanceStatistics" = {"In use system memory"=734003200,"Device Utilization %"=37,"Tiler Utilization %"=12}
  | }
  |
  +-o AGXDeviceUserClient  <class AGXDeviceUserClient:IOGPUDeviceUserClient:IOUserClient:IOService, id 0x100000510>
  |   {
  |     "IOUserClientCreator" = "pid 402, WindowServer"
  |     "AppUsage" = ({"API"="Metal","accumulatedGPUTime"=1200},{"accumulatedGPUTime"=34},{"accumulatedGPUTime"=18446744073709551615})
  |   }
  |
  +-o Idle  <class AGXDeviceUserClient:IOUserClient:IOService, id 0x100000520>
  |   {
  |     "IOUserClientCreator" = "pid 700, Terminal"
  |     "AppUsage" = ()
  |   }
  |
  +-o Nobodys  <class AGXSharedUserClient:IOUserClient:IOService, id 0x100000530>
      {
        "IOUserClientCreator" = "pid none"
        "AppUsage" = ({"accumulatedGPUTime"=5})
      }
)ioreg";

constexpr const char* amd = R"ioreg(
+-o AMDRadeonX6000  <class AMDRadeonX6000_AMDNavi14GraphicsAccelerator:IOAccelerator:IOService, id 0x100000600>
    {
      "IOClass" = "AMDRadeonX6000_AMDNavi14GraphicsAccelerator"
      "PerformanceStatistics" = {"GPU Activity(%)"=104,"vramUsedBytes"=1000,"vramFreeBytes"=3000,"In use system memory"=7}
    }
)ioreg";

TEST(MacGraphics, EachDriversOwnEntries)
{
    test::SimulatedMac mac;
    mac.registry.plug(apple);
    mac.registry.plug(amd);
    const auto graphics = makeMacGraphics();
    const auto& records = graphics->read(0);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].driver, "AGXAcceleratorG14X");
    EXPECT_EQ(records[0].busyPercent, 37);
    EXPECT_EQ(records[0].memoryUsed, 734003200U) << "of the memory that it shares";
    EXPECT_EQ(records[0].memoryTotal, std::nullopt);
    EXPECT_EQ(records[1].name, "gpu1");
    EXPECT_EQ(records[1].busyPercent, 100) << "a driver may count beyond";
    EXPECT_EQ(records[1].memoryUsed, 1000U);
    EXPECT_EQ(records[1].memoryTotal, 4000U);

    mac.registry.unplug("AMDRadeonX6000");
    mac.registry.at("AGXAcceleratorG14X").properties["PerformanceStatistics"]["Device Utilization %"] = -1;
    EXPECT_EQ(graphics->read(2).size(), 1U);
    EXPECT_EQ(graphics->read(4)[0].busyPercent, std::nullopt);
    mac.registry.at("AGXAcceleratorG14X").properties = Value::object();
    EXPECT_EQ(graphics->read(6)[0].driver, "");
    mac.ledger.fail("IOServiceGetMatchingServices");
    EXPECT_TRUE(graphics->read(8).empty());
}

TEST(MacGraphics, ClientsAreThoseOfAProcessThatHadItWork)
{
    test::SimulatedMac mac;
    mac.registry.plug(apple);
    mac.registry.plug(amd);
    const auto graphics = makeMacGraphicsClients();
    const auto clients = graphics->read({}, 0);
    ASSERT_EQ(clients.size(), 1U);
    EXPECT_EQ(clients[0].pid, 402);
    EXPECT_EQ(clients[0].client, 0x100000510U);
    EXPECT_EQ(clients[0].busyNs, 1234U) << "of all its queues, but for what cannot be";
    mac.ledger.fail("IORegistryEntryGetChildIterator", kIOReturnError, 2);
    EXPECT_TRUE(graphics->read({}, 2).empty());
}

} // namespace
} // namespace meridal
