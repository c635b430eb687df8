// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/LinuxPeripheralBatteries.h"
#include "tests/linux/PowerSupplyTree.h"

namespace meridal {
namespace {

TEST(PeripheralBatteries, SuppliesOfDevicesThatAnswer)
{
    const test::PowerSupplyTree desk;
    desk.setEvent("BAT0", {{"TYPE", "Battery"}, {"CAPACITY", "80"}});
    desk.setEvent("hidpp_battery_0",
        {{"TYPE", "Battery"}, {"ONLINE", "1"}, {"STATUS", "Discharging"}, {"SCOPE", "Device"},
            {"MODEL_NAME", "Wireless Mouse M705"}, {"SERIAL_NUMBER", "101b-44-d9-3e-9c"},
            {"CAPACITY_LEVEL", "Normal"}});
    desk.setEvent("hidpp_battery_1", {{"TYPE", "Battery"}, {"ONLINE", "0"}, {"SCOPE", "Device"}, {"CAPACITY", "55"}});
    desk.setEvent("hid-AC:1D:06:00:00:01-battery",
        {{"TYPE", "Battery"}, {"STATUS", "Charging"}, {"SCOPE", "Device"}, {"CAPACITY", "73"},
            {"MODEL_NAME", "Bluetooth Keyboard\xFF"}});
    const auto bus = std::make_shared<SystemBus>(desk.runtime, desk.limits, "unix:path=/nonexistent");
    LinuxPeripheralBatteries batteries(desk.runtime, desk.tree.root(), bus);
    std::vector<PeripheralBattery> others;
    batteries.bluetooth([&](std::vector<PeripheralBattery> found) { others = std::move(found); });
    EXPECT_TRUE(others.empty()) << "the devices are asked elsewhere";
    desk.runtime.runDue();
    const auto logitech = batteries.logitech();
    ASSERT_EQ(logitech.size(), 1U) << "not the one that is switched off";
    EXPECT_EQ(logitech[0].key, "101b-44-d9-3e-9c");
    EXPECT_EQ(logitech[0].level, "Normal");
    EXPECT_FALSE(logitech[0].percent);
    ASSERT_EQ(others.size(), 1U) << "without a bus";
    EXPECT_EQ(others[0].key, "ac:1d:06:00:00:01");
    EXPECT_EQ(others[0].kind, PeripheralKind::Keyboard);
    EXPECT_EQ(others[0].percent, 73);
    EXPECT_EQ(others[0].charging, true);
    EXPECT_EQ(others[0].name, "Bluetooth Keyboard\xEF\xBF\xBD");

    const auto merged = LinuxPeripheralBatteries::merged(
        {{.key = "ac:1d:06:00:00:01", .name = "Board", .percent = 72, .bluetooth = true}}, others);
    ASSERT_EQ(merged.size(), 1U);
    EXPECT_EQ(merged[0].name, "Board");
    EXPECT_EQ(merged[0].charging, true);
}

} // namespace
} // namespace meridal
