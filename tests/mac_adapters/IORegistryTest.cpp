// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/IORegistryObject.h"
#include "platform/macos/kernel/ServiceEntry.h"
#include "simulated/mac/Objects.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <string>

namespace meridal {
namespace {

// In the words of ioreg on a MacBook Pro of 2023 (Apple silicon) whose battery is full, cut down to what is read.
constexpr const char* battery = R"ioreg(
+-o AppleSmartBatteryManager  <class AppleSmartBatteryManager:IOService:IORegistryEntry:OSObject, id 0x100000aa5, registered, matched>
  | {
  |   "IOClass" = "AppleSmartBatteryManager"
  | }
  |
  +-o AppleSmartBattery  <class AppleSmartBattery:IOPMPowerSource:IOService:IORegistryEntry:OSObject, id 0x100000aa7, registered>
      {
        "built-in" = Yes
        "DeviceName" = "bq40z651"
        "IOGeneralInterest" = "IOCommand is not serializable"
        "Amperage" = 18446744073709550727
        "TimeRemaining" = 65535
        "ManufacturerData" = <0000000009044200>
        "BatteryData" = {"CellVoltage"=(4398,4398,4399),"AdapterPower"=,"Serial"="F8YHA8","iMax"=<00ff>}
      }
)ioreg";

TEST(IORegistry, PropertiesAsTheRegistryHasThem)
{
    test::SimulatedMac mac;
    mac.registry.plug(battery);
    const ServiceEntry entry("AppleSmartBattery");
    ASSERT_TRUE(entry);
    const Value properties = valueOf(entry.properties().get());
    EXPECT_EQ(integer(properties, "Amperage"), -889) << "the registry's numbers have no sign";
    EXPECT_EQ(properties.at("built-in"), true);
    EXPECT_EQ(properties.at("BatteryData").at("CellVoltage"), Value({4398, 4398, 4399}));
    EXPECT_FALSE(properties.at("BatteryData").contains("AdapterPower")) << "the tool showed no value";
    EXPECT_EQ(textOf(entry.property("DeviceName").get()), "bq40z651");
    EXPECT_FALSE(entry.property("Voltage"));

    const ServiceEntry none("AppleSmartBatteryOfLater");
    EXPECT_FALSE(none);
    EXPECT_FALSE(none.properties());
    EXPECT_FALSE(none.property("DeviceName"));
    mac.ledger.fail("IORegistryEntryCreateCFProperties");
    EXPECT_FALSE(entry.properties());
    mac.ledger.fail("IOServiceMatching");
    EXPECT_FALSE(ServiceEntry("AppleSmartBattery"));
}

TEST(IORegistry, AnEntryIsFoundAgainByItsPathUntilItGoes)
{
    test::SimulatedMac mac;
    mac.registry.plug(battery);
    const auto found = IORegistryObject::atPath("0x100000aa7");
    EXPECT_EQ(found.path(), "0x100000aa7");
    EXPECT_EQ(found.property("DeviceName"), "bq40z651");
    EXPECT_EQ(found.searchChildren("IOClass"), nullptr);
    const auto above = found.parent();
    ASSERT_TRUE(above);
    EXPECT_EQ(above->property("IOClass"), "AppleSmartBatteryManager");
    EXPECT_EQ(above->searchChildren("DeviceName"), "bq40z651");
    EXPECT_EQ(above->parent(), nullptr);

    mac.registry.unplug("AppleSmartBattery");
    EXPECT_EQ(IORegistryObject::atPath("0x100000aa7").property("DeviceName"), nullptr);
    for (const char* odd : {"", "0x", "0x0", "disk0"}) {
        EXPECT_EQ(IORegistryObject::atPath(odd).native(), IO_OBJECT_NULL) << odd;
    }
}

TEST(CFValue, KeepsWhatAPropertyListCanSayAndNothingElse)
{
    test::SimulatedMac mac;
    Value deep = "bottom";
    for (int level = 1; level < maximumNesting; ++level) {
        deep = Value::array({deep});
    }
    const Value list = {{"text", "é"}, {"yes", true}, {"least", std::int64_t{INT64_MIN}}, {"real", 0.5}, {"deep", deep},
        {"empty", Value::array()}};
    const auto valueFrom = [](CFTypeRef object) { return valueOf(CFRef<CFTypeRef>(object).get()); };
    EXPECT_EQ(valueFrom(test::objectOf(list)).at("least"), list.at("least"));
    Value deepened = valueFrom(test::objectOf(list));
    Value lowest = deepened.at("deep");
    while (lowest.is_array() && !lowest.empty()) {
        lowest = Value(lowest.front());
    }
    EXPECT_EQ(lowest, nullptr) << "one level more than is read";
    deepened.erase("deep");
    Value flat = list;
    flat.erase("deep");
    EXPECT_EQ(deepened, flat);

    EXPECT_EQ(valueFrom(test::objectOf(Value::binary({'a', 'b', 0, 'c'}))), "ab") << "the firmware ends text by a NUL";
    EXPECT_EQ(valueFrom(test::objectOf(Value::binary({0xFF, 'z'}))), "\uFFFDz");
    EXPECT_EQ(valueFrom(test::make({.kind = test::ObjectKind::Date, .real = 1.5})), 978307201.5);
    EXPECT_EQ(valueFrom(test::objectOf(nullptr)), nullptr) << "of a kind that is no part of a property list";
    EXPECT_EQ(valueOf(nullptr), nullptr);
}

} // namespace
} // namespace meridal
