#include "platform/formats/PowerDictionaries.h"
#include "platform/PeripheralNames.h"
#include "tests/support/HasMembers.h"

#include <gtest/gtest.h>

namespace meridal {
namespace {

using test::hasMembers;

TEST(PowerDictionaries, CapacitiesAreInTheirUnitOnEveryMac)
{
    const Dictionary intel{{"MaxCapacity", 4100}, {"CurrentCapacity", 2000}, {"DesignCapacity", 4790}};
    EXPECT_EQ(milliampereSmartBattery(intel), intel);

    const Dictionary silicon =
        milliampereSmartBattery({{"MaxCapacity", 100}, {"CurrentCapacity", 71}, {"AppleRawMaxCapacity", 4210},
            {"AppleRawCurrentCapacity", 2991}, {"DesignCapacity", 4563}, {"BatterySerialNumber", "F8Y"}});
    EXPECT_THAT(silicon, hasMembers({{"MaxCapacity", 4210}, {"CurrentCapacity", 2991}, {"Serial", "F8Y"}}));

    const Dictionary moved = milliampereSmartBattery({{"MaxCapacity", 100}, {"CurrentCapacity", 71},
        {"BatteryData", {{"DesignCapacity", 6075}, {"NominalChargeCapacity", 5900}}}});
    EXPECT_THAT(moved, hasMembers({{"MaxCapacity", 5900}, {"DesignCapacity", 6075}, {"CurrentCapacity", nullptr}}))
        << "a percentage is no charge";
    EXPECT_FALSE(milliampereSmartBattery({{"MaxCapacity", 100}, {"DesignCapacity", 4563}}).contains("MaxCapacity"));
    EXPECT_FALSE(milliampereSmartBattery({{"BatteryData", 5}}).contains("MaxCapacity"));

    EXPECT_EQ(percentDescription({{"Current Capacity", 2250}, {"Max Capacity", 4500}})["Current Capacity"], 50);
    EXPECT_EQ(percentDescription({{"Current Capacity", 50}, {"Max Capacity", 0}})["Current Capacity"], 50);
}

TEST(PowerDictionaries, PeripheralsHaveOneNameAndOneKeyEach)
{
    const auto keyboard = registryBattery({{"BatteryPercent", 63}, {"Product", "Magic Keyboard"},
        {"DeviceAddress", "AC-1D-06-00-00-01"}, {"SerialNumber", "F1"}, {"Transport", "Bluetooth"}});
    ASSERT_TRUE(keyboard);
    EXPECT_EQ(keyboard->key, "ac:1d:06:00:00:01");
    EXPECT_EQ(keyboard->kind, PeripheralKind::Keyboard);
    EXPECT_EQ(keyboard->percent, 63);
    EXPECT_TRUE(keyboard->bluetooth);
    EXPECT_EQ(registryBattery({{"Battery Level", 30}, {"Product", "Mouse"}})->key, "Mouse");
    EXPECT_FALSE(registryBattery({{"BatteryPercent", 0}, {"Product", "Mouse"}})) << "not told yet";
    EXPECT_FALSE(registryBattery({{"BatteryPercent", 50}}));
    EXPECT_FALSE(registryBattery({{"BatteryPercent", "50"}, {"Product", "Mouse"}}));

    Dictionary pod{{"Type", "Accessory Source"}, {"Name", "Pods"}, {"Accessory Identifier", "AA:BB:CC:DD:EE:FF"},
        {"Part Identifier", "Left"}, {"Accessory Category", "Headphone"}, {"Current Capacity", 40},
        {"Max Capacity", 100}, {"Is Charging", true}, {"Transport Type", "Bluetooth"}};
    const auto left = accessoryBattery(pod);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->key, "aa:bb:cc:dd:ee:ff Left");
    EXPECT_EQ(left->name, "Pods (left)");
    EXPECT_EQ(left->kind, PeripheralKind::Headset);
    EXPECT_EQ(left->charging, true);
    pod["Is Present"] = false;
    EXPECT_FALSE(accessoryBattery(pod));
    EXPECT_FALSE(accessoryBattery({{"Type", "InternalBattery"}, {"Name", "InternalBattery-0"}}));
    for (const char* other :
        {"", "aabbccddeeff", "aa:bb:cc:dd:ee", "aa:bb:cc:dd:ee:fg", "101b-44-d9-3e-9c", "a:abb:cc:dd:ee:ff"}) {
        EXPECT_FALSE(hardwareAddress(other)) << other;
    }
}

} // namespace
} // namespace meridal
