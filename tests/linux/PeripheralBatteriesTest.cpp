#include "base/VirtualRuntime.h"
#include "platform/linux/LinuxPeripheralBatteries.h"
#include "platform/linux/PowerSupplies.h"
#include "platform/linux/SysfsPowerSources.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace meridal {
namespace {

/// Supplies as the kernel shows them: one "uevent" file with everything, beside the attributes' own files.
struct Machine {
    void set(const std::string& supply, const std::string& uevent) const
    {
        tree.write("sys/class/power_supply/" + supply + "/uevent", "POWER_SUPPLY_NAME=" + supply + "\n" + uevent);
        if (uevent.find("SCOPE=Device") != std::string::npos) {
            setFile(supply + "/scope", "Device");
        }
    }
    void setFile(const std::string& path, const std::string& text) const
    {
        tree.write("sys/class/power_supply/" + path, text + "\n");
    }
    SysfsPowerSources sources() const { return {runtime, tree.root(), limits}; }

    test::TemporaryTree tree;
    mutable VirtualRuntime runtime;
    std::shared_ptr<Limitations> limits = std::make_shared<Limitations>();
};

TEST(PowerSupplyShapes, ABusinessLaptopWithTwoBatteries)
{
    const Machine laptop;
    laptop.set("AC", "POWER_SUPPLY_TYPE=Mains\nPOWER_SUPPLY_ONLINE=1\n");
    // Older kernels leave the type out of the uevent.
    laptop.setFile("BAT0/type", "Battery");
    laptop.set("BAT0",
        "POWER_SUPPLY_STATUS=Full\nPOWER_SUPPLY_PRESENT=1\nPOWER_SUPPLY_TECHNOLOGY=Li-poly\nPOWER_SUPPLY_CYCLE_COUNT="
        "0\n"
        "POWER_SUPPLY_VOLTAGE_MIN_DESIGN=11400000\nPOWER_SUPPLY_VOLTAGE_NOW=12900000\nPOWER_SUPPLY_POWER_NOW=0\n"
        "POWER_SUPPLY_ENERGY_FULL_DESIGN=23480000\nPOWER_SUPPLY_ENERGY_FULL=21080000\nPOWER_SUPPLY_ENERGY_NOW="
        "20980000\n"
        "POWER_SUPPLY_CAPACITY=99\nPOWER_SUPPLY_MODEL_NAME=01AV489\nPOWER_SUPPLY_SERIAL_NUMBER=  1041\n");
    laptop.setFile("BAT1/type", "Battery");
    laptop.set("BAT1",
        "POWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_PRESENT=1\nPOWER_SUPPLY_CYCLE_COUNT=312\n"
        "POWER_SUPPLY_VOLTAGE_MIN_DESIGN=11100000\nPOWER_SUPPLY_VOLTAGE_NOW=12100000\nPOWER_SUPPLY_POWER_NOW=24200000\n"
        "POWER_SUPPLY_ENERGY_FULL_DESIGN=66600000\nPOWER_SUPPLY_ENERGY_FULL=49950000\nPOWER_SUPPLY_ENERGY_NOW="
        "25750000\n"
        "POWER_SUPPLY_CAPACITY=51\nPOWER_SUPPLY_MODEL_NAME=01AV424\nPOWER_SUPPLY_SERIAL_NUMBER= 221\n");
    auto sources = laptop.sources();
    const auto batteries = sources.smartBatteries();
    ASSERT_EQ(batteries.size(), 2U);
    EXPECT_FALSE(batteries[0].contains("CycleCount"));
    EXPECT_EQ(batteries[1]["CycleCount"], 312);
    EXPECT_EQ(batteries[1]["MaxCapacity"], 4500);
    EXPECT_EQ(batteries[1]["DesignCapacity"], 6000);
    const auto descriptions = sources.descriptions();
    EXPECT_EQ(descriptions[0]["Hardware Serial Number"], "1041");
    EXPECT_EQ(descriptions[0]["Is Charged"], true);
    EXPECT_EQ(descriptions[1]["Time to Full Charge"], 60);
    EXPECT_EQ(descriptions[1]["Current"], 2000);
}

TEST(PowerSupplyShapes, ATabletWhoseDriverCountsInMilliUnits)
{
    const Machine tablet;
    tablet.set("battery",
        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_CAPACITY=50\n"
        "POWER_SUPPLY_VOLTAGE_NOW=3800\nPOWER_SUPPLY_CURRENT_NOW=-500\nPOWER_SUPPLY_CHARGE_FULL=8000\n"
        "POWER_SUPPLY_CHARGE_FULL_DESIGN=10000\nPOWER_SUPPLY_CHARGE_NOW=4000\n");
    const Dictionary source = tablet.sources().descriptions().at(0);
    EXPECT_EQ(source["Voltage"], 3800);
    EXPECT_EQ(source["Current"], -500);
    EXPECT_EQ(source["Time to Empty"], 480);
    EXPECT_EQ(tablet.sources().smartBatteries().at(0)["DesignCapacity"], 10000);
}

TEST(PowerSupplyShapes, FirmwareThatDoesNotKnowOrLiesIsNotBelieved)
{
    const Machine laptop;
    laptop.set("BAT0",
        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_ENERGY_FULL=0\n"
        "POWER_SUPPLY_ENERGY_FULL_DESIGN=0\nPOWER_SUPPLY_ENERGY_NOW=40000000\nPOWER_SUPPLY_POWER_NOW=65535000\n"
        "POWER_SUPPLY_VOLTAGE_NOW=12000000\nPOWER_SUPPLY_CYCLE_COUNT=-1\nPOWER_SUPPLY_MANUFACTURE_YEAR=65535\n"
        "POWER_SUPPLY_MANUFACTURE_MONTH=99\nPOWER_SUPPLY_MANUFACTURE_DAY=0\nPOWER_SUPPLY_TEMP=9223372036854775807\n");
    const Dictionary source = laptop.sources().descriptions().at(0);
    EXPECT_FALSE(source.contains("Current Capacity"));
    EXPECT_FALSE(source.contains("Current"));
    EXPECT_EQ(source["Time to Empty"], -1);
    const Dictionary battery = laptop.sources().smartBatteries().at(0);
    for (const char* absent :
        {"MaxCapacity", "DesignCapacity", "CycleCount", "ManufactureDate", "Amperage", "Temperature"}) {
        EXPECT_FALSE(battery.contains(absent)) << absent;
    }
    laptop.set("BAT0",
        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_ENERGY_NOW=40000000\n"
        "POWER_SUPPLY_POWER_NOW=10\n");
    EXPECT_EQ(laptop.sources().descriptions().at(0)["Time to Empty"], -1) << "no battery lasts for centuries";
}

TEST(PowerSupplyShapes, OneReadingServesBothQuestionsAndAsksNoDevice)
{
    const Machine laptop;
    laptop.set("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_CYCLE_COUNT=1\n");
    laptop.setFile("mouse/scope", "Device");
    laptop.set("mouse", "POWER_SUPPLY_TYPE=Battery\n"); // as an internal one, for who reads it
    auto sources = laptop.sources();
    EXPECT_EQ(sources.descriptions().size(), 1U);
    laptop.set("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_CYCLE_COUNT=2\n");
    EXPECT_EQ(sources.smartBatteries().at(0)["CycleCount"], 1);
    laptop.runtime.advance(1);
    EXPECT_EQ(sources.smartBatteries().at(0)["CycleCount"], 2);
}

TEST(PowerSupplyShapes, ABatteryThatTheKernelTakesForADevicesMayBeThatOfAUPS)
{
    using namespace std::string_literals;
    const Machine desktop;
    const auto plug = [&](const std::string& name, const std::string& descriptor) {
        desktop.set(name,
            "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_STATUS=Discharging\n"
            "POWER_SUPPLY_CAPACITY=70\n");
        desktop.tree.write("sys/class/power_supply/" + name + "/device/report_descriptor", descriptor);
    };
    // Its own application beside others; as one item of four bytes; and broken off before it says what it is.
    plug("hid-1-battery",
        "\x05\x01\x09\x06\xA1\x01\xC0\xFE\x01\x00\x55\x05\x84\x09\x04\xA1\x01\x09\x24\xA1\x00\xC0\xC0"s);
    plug("hid-2-battery", "\x0B\x04\x00\x84\x00\xA1\x01\xC0"s);
    plug("hid-3-battery", "\x05\x84\x09\x04\xA1"s);
    // A mouse that tells of its own battery with controls of that page.
    plug("hid-4-battery", "\x06\x00\xFF\x09\x14\xA1\x01\x05\x84\x09\x04\x81\x02\x05\x85\x09\x65\x81\x02\xC0"s);
    auto sources = desktop.sources();
    const auto found = sources.descriptions();
    ASSERT_EQ(found.size(), 2U);
    for (const Dictionary& ups : found) {
        EXPECT_EQ(ups["Type"], "UPS");
        EXPECT_EQ(ups["Power Source State"], "Battery Power");
        EXPECT_EQ(ups["Current Capacity"], 70);
    }
    EXPECT_TRUE(sources.smartBatteries().empty());
    desktop.set("ups", "POWER_SUPPLY_TYPE=UPS\nPOWER_SUPPLY_PRESENT=0\n");
    EXPECT_EQ(sources.descriptions().size(), 2U) << "not one that is switched off";
}

TEST(PeripheralBatteries, SuppliesOfDevicesThatAnswer)
{
    const Machine desk;
    desk.set("BAT0", "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_CAPACITY=80\n");
    desk.set("hidpp_battery_0",
        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_ONLINE=1\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_SCOPE=Device\n"
        "POWER_SUPPLY_MODEL_NAME=Wireless Mouse M705\nPOWER_SUPPLY_SERIAL_NUMBER=101b-44-d9-3e-9c\n"
        "POWER_SUPPLY_CAPACITY_LEVEL=Normal\n");
    desk.set("hidpp_battery_1",
        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_ONLINE=0\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY=55\n");
    desk.set("hid-AC:1D:06:00:00:01-battery",
        "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_SCOPE=Device\nPOWER_SUPPLY_CAPACITY=73\n"
        "POWER_SUPPLY_MODEL_NAME=Bluetooth Keyboard\xFF\n");
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
