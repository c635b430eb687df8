// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/power/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

// As on a MacBook Pro of 2021 (Apple silicon), cut down to what is read; charge, cycles and current are made up. The registry
// keeps the current, which flows out, without its sign.
constexpr const char* ofAppleSilicon = R"ioreg(
+-o AppleSmartBattery  <class AppleSmartBattery:IOPMPowerSource:IOService:IORegistryEntry:OSObject, id 0x100000aa7, registered>
    {
      "BatteryInstalled" = Yes
      "MaxCapacity" = 100
      "CurrentCapacity" = 71
      "AppleRawMaxCapacity" = 4982
      "AppleRawCurrentCapacity" = 3537
      "DesignCapacity" = 6075
      "CycleCount" = 250
      "Voltage" = 12000
      "Amperage" = 18446744073709550727
      "BatteryData" = {"Serial"="F8YHA8","CellVoltage"=(4000,4000,4000),"ManufactureDate"=0}
      "Serial" = "F8YHA8"
    }
)ioreg";

// As on a MacBook Pro of 2012 to 2015, full; charge, cycles and the design are made up.
constexpr const char* ofIntel = R"ioreg(
+-o AppleSmartBattery  <class AppleSmartBattery, id 0x100000254, registered>
    {
      "ExternalConnected" = Yes
      "BatteryInstalled" = Yes
      "CellVoltage" = (4298,4292,4299,0)
      "Voltage" = 12889
      "MaxCapacity" = 5524
      "CurrentCapacity" = 5500
      "DesignCapacity" = 6559
      "CycleCount" = 120
      "Amperage" = 0
      "ManufactureDate" = 16729
      "BatterySerialNumber" = "D86"
    }
)ioreg";

const Value internalBattery{{"Type", "InternalBattery"}, {"Name", "InternalBattery-0"}, {"Transport Type", "Internal"},
    {"Power Source State", "Battery Power"}, {"Is Present", true}, {"Is Charging", false}, {"Current Capacity", 71},
    {"Max Capacity", 100}, {"Time to Empty", 312}, {"Time to Full Charge", 0}, {"Hardware Serial Number", "F8YHA8"}};

// As Macs of 2024 tell of them.
const Value ups{{"Type", "UPS"}, {"Name", "CP1300EPFCLCD"}, {"Transport Type", "USB"}, {"Current Capacity", 100},
    {"Max Capacity", 100}, {"Is Present", true}, {"Is Charging", true}, {"Power Source State", "AC Power"},
    {"Time to Empty", 37}, {"Voltage", 240'000}, {"Accessory Identifier", "CRWPP2000045"}};
const Value keyboard{{"Type", "Accessory Source"}, {"Name", "Magic Keyboard with Numeric Keypad"},
    {"Accessory Category", "Keyboard"}, {"Accessory Identifier", "c0-a5-3e-03-61-e3"}, {"Current Capacity", 97},
    {"Max Capacity", 100}, {"Is Charging", false}, {"Is Present", true}, {"Power Source State", "Battery Power"},
    {"Transport Type", "Bluetooth"}};

class MacPowerSourcesTest : public testing::Test {
protected:
    /// Of the sources the first that is there, and what its controller says.
    std::pair<PowerSourceRecord, BatteryControllerRecord> battery()
    {
        const auto all = sources->sources();
        const auto first = all.empty() ? PowerSourceRecord() : all[0];
        return {first, first.controller.value_or(BatteryControllerRecord())};
    }

    test::SimulatedMac mac;
    VirtualRuntime runtime;
    std::unique_ptr<PowerSources> sources = makeMacPowerSources(runtime);
    std::unique_ptr<PeripheralBatteries> peripherals = makeMacPeripheralBatteries();
};

TEST_F(MacPowerSourcesTest, EachKindOfMacTellsItsBatteryInMilliampereHours)
{
    EXPECT_TRUE(sources->sources().empty()) << "a Mac without a battery";
    mac.power.sources = {ups};
    EXPECT_EQ(battery().first.kind, PowerSourceKind::UPS);
    EXPECT_EQ(battery().first.voltageMv, 240'000);

    mac.power.sources = {internalBattery, keyboard};
    EXPECT_FALSE(battery().first.controller) << "its driver is not there yet";
    mac.registry.plug(ofAppleSilicon);
    EXPECT_EQ(sources->sources().size(), 1U);
    EXPECT_EQ(battery().first.toEmpty, TimeEstimate{312});
    EXPECT_EQ(battery().second.chargeFullMah, 4982);
    EXPECT_EQ(battery().second.chargeNowMah, 3537);
    EXPECT_EQ(battery().second.currentMa, -889);

    mac.registry.unplug("AppleSmartBattery");
    mac.registry.plug(ofIntel);
    EXPECT_FALSE(battery().first.controller) << "that of another battery";
    mac.power.sources[0]["Hardware Serial Number"] = "D86";
    EXPECT_EQ(battery().second.chargeFullMah, 5524);
    EXPECT_EQ(battery().second.chargeNowMah, 5500);
    EXPECT_EQ(battery().second.energyNowMwh, 70'890);
    using namespace std::chrono;
    EXPECT_EQ(battery().second.manufactured, 2012y / 10 / 25);
}

TEST_F(MacPowerSourcesTest, WhatCannotBeReadIsLeftOut)
{
    mac.registry.plug(ofAppleSilicon);
    mac.power.sources = {nullptr, Value::array({1}), "UPS", internalBattery};
    EXPECT_EQ(sources->sources().size(), 1U) << "one that has gone, and two that are no descriptions";
    mac.ledger.fail("IORegistryEntryCreateCFProperties");
    EXPECT_FALSE(battery().first.controller);
    EXPECT_EQ(battery().first.chargePercent, 71);
    for (const char* call : {"IOPSCopyPowerSourcesInfo", "IOPSCopyPowerSourcesList"}) {
        mac.ledger.fail(call);
        EXPECT_TRUE(sources->sources().empty()) << call;
        EXPECT_EQ(sources->sources().size(), 1U) << call;
    }
}

TEST_F(MacPowerSourcesTest, ChangesAreToldOnTheMainQueueForAsLongAsTheSourcesAreThere)
{
    mac.power.sources = {internalBattery};
    EXPECT_TRUE(mac.configuration.sessions.empty()) << "nobody follows them";
    int changes = 0;
    const auto observation = sources->observe([&] { ++changes; });
    mac.configuration.changed({"State:/IOKit/PowerSources"});
    const auto second = sources->observe([] {});
    mac.ledger.deliver();
    EXPECT_EQ(changes, 1) << "one session for all who follow them";
    const auto change = [this](const std::vector<std::string>& keys) {
        mac.configuration.changed(keys);
        mac.ledger.deliver();
    };
    change({"State:/IOKit/PowerSources/InternalBattery-0", "State:/Network/Global/IPv4"});
    EXPECT_EQ(changes, 1) << "keys that nobody asked for";
    change({"State:/IOKit/PowerAdapter"});
    EXPECT_EQ(changes, 2);
    change({"State:/IOKit/PowerManagement/SystemLoad/Detailed"});
    EXPECT_EQ(changes, 2) << "how busy the machine is comes now and then";
    runtime.advance(10);
    EXPECT_EQ(changes, 3);
    change({});
    EXPECT_EQ(changes, 4) << "the system's configuration service began anew";

    mac.configuration.changed({"State:/IOKit/PowerSources"});
    sources.reset();
    mac.ledger.deliver();
    EXPECT_EQ(changes, 4);
}

TEST_F(MacPowerSourcesTest, WithoutADynamicStoreSourcesAreReadAllTheSame)
{
    mac.power.sources = {internalBattery};
    mac.ledger.fail("SCDynamicStoreCreate");
    const auto observation = sources->observe([] { FAIL(); });
    mac.configuration.changed({"State:/IOKit/PowerSources"});
    mac.ledger.deliver();
    EXPECT_EQ(battery().first.chargePercent, 71);
}

// A mouse as on a Mac of 2011, a receiver's mouse whose properties are made up.
constexpr const char* devices = R"ioreg(
+-o BNBMouseDevice  <class BNBMouseDevice:IOHIDDevice:IOService:IORegistryEntry:OSObject, id 0x100001732, registered>
    {
      "Product" = "Apple Wireless Mouse"
      "SerialNumber" = "7c-6d-62-f2-47-2a"
      "Transport" = "Bluetooth"
      "BatteryPercent" = 45
    }
+-o AppleDeviceManagementHIDEventService  <class AppleDeviceManagementHIDEventService:IOService, id 0x100001740>
    {
      "Product" = "Magic Keyboard with Numeric Keypad"
      "DeviceAddress" = "c0-a5-3e-03-61-e3"
      "BatteryPercent" = 96
    }
+-o Silent  <class IOHIDDevice:IOService:IORegistryEntry:OSObject, id 0x100001750>
    {
      "Product" = "Keyboard"
      "Battery Level" = 0
    }
+-o Receiver  <class com_Logitech_DiskJockeyDevice:IOService:IORegistryEntry:OSObject, id 0x100001760>
    {
      "Product" = "M720"
      "SerialNumber" = "12345"
      "Battery Level" = 30
    }
)ioreg";

TEST_F(MacPowerSourcesTest, BatteriesOfDevicesComeFromWhoeverKnowsThem)
{
    mac.power.sources = {internalBattery, nullptr, keyboard};
    mac.registry.plug(devices);
    const auto told = [this] {
        std::string text;
        peripherals->bluetooth([&text](const std::vector<PeripheralBattery>& batteries) {
            for (const PeripheralBattery& each : batteries) {
                text += each.key + ' ' + std::to_string(static_cast<int>(each.percent.value_or(-1))) + '\n';
            }
        });
        return text;
    };
    const std::string fromRegistry = "7c:6d:62:f2:47:2a 45\nc0:a5:3e:03:61:e3 96\n12345 30\n";
    EXPECT_EQ(told(), "c0:a5:3e:03:61:e3 97\n7c:6d:62:f2:47:2a 45\n12345 30\n") << "each once";
    mac.power.hasCallForAccessories = false;
    EXPECT_EQ(told(), fromRegistry) << "a system without the call";
    mac.power.hasCallForAccessories = true;
    for (const char* call : {"IOPSCopyPowerSourcesByType", "IOPSCopyPowerSourcesList"}) {
        mac.ledger.fail(call);
        EXPECT_EQ(told(), fromRegistry) << call;
    }
    ASSERT_EQ(peripherals->logitech().size(), 1U);
    EXPECT_EQ(peripherals->logitech()[0].name, "M720");

    mac.ledger.fail("IOServiceMatching");
    EXPECT_TRUE(peripherals->logitech().empty());
    mac.ledger.fail("IORegistryEntryCreateCFProperties");
    EXPECT_TRUE(peripherals->logitech().empty());
    mac.ledger.fail("IOServiceGetMatchingServices", kIOReturnError, 2);
    EXPECT_EQ(told(), "c0:a5:3e:03:61:e3 97\n");
}

} // namespace
} // namespace meridal
