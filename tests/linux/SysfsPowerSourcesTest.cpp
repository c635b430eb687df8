#include "platform/linux/power/SysfsPowerSources.h"
#include "tests/linux/PowerSupplyTree.h"

namespace meridal {
namespace {

using test::hasMembers;
using test::PowerSupplyTree;
using testing::ElementsAre;

TEST(SysfsPowerSources, ALaptopThatReportsEnergy)
{
    const PowerSupplyTree laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "0"}});
    laptop.set("BAT0",
        {{"type", "Battery"}, {"status", "Discharging"}, {"present", "1"}, {"capacity", "80"}, {"cycle_count", "123"},
            {"energy_now", "40000000"}, {"energy_full", "50000000"}, {"energy_full_design", "57000000"},
            {"power_now", "8000000"}, {"voltage_now", "12000000"}, {"voltage_min_design", "11400000"},
            {"model_name", "5B10W13930"}, {"serial_number", " 1234"}});
    EXPECT_EQ(laptop.only(),
        (Dictionary{{"Name", "5B10W13930"}, {"Type", "InternalBattery"}, {"Transport Type", "Internal"},
            {"Power Source State", "Battery Power"}, {"Is Present", true}, {"Is Charging", false},
            {"Is Charged", false}, {"Current Capacity", 80}, {"Max Capacity", 100}, {"Time to Empty", 300},
            {"Voltage", 12000}, {"Current", -666}, {"Hardware Serial Number", "1234"}}));
    EXPECT_THAT(laptop.batteries(),
        ElementsAre(hasMembers({{"DesignCapacity", 5000}, {"MaxCapacity", 4385}, {"CycleCount", 123},
            {"ExternalConnected", false}, {"Amperage", -666}})));

    laptop.set("AC", {{"online", "1"}}); // which gives too little
    EXPECT_THAT(laptop.only(),
        hasMembers({{"Power Source State", "AC Power"}, {"Is Charging", false}, {"Time to Empty", 300},
            {"Current", -666}, {"Time to Full Charge", nullptr}}));
    laptop.set("BAT0", {{"status", "Charging"}, {"power_now", "20000000"}});
    EXPECT_THAT(laptop.only(),
        hasMembers({{"Power Source State", "AC Power"}, {"Is Charging", true}, {"Time to Full Charge", 30},
            {"Time to Empty", nullptr}, {"Current", 1666}}));
    laptop.set("BAT0", {{"status", "Full"}, {"power_now", "0"}});
    EXPECT_EQ(laptop.only()["Is Charged"], true);
}

TEST(SysfsPowerSources, ALaptopThatReportsChargeAndItsOwnSignOfTheCurrent)
{
    const PowerSupplyTree laptop;
    laptop.set("ADP1", {{"type", "Mains"}, {"online", "0"}});
    laptop.set("ucsi-source-psy-USBC000:001", {{"type", "USB"}, {"online", "1"}}); // one of the ports gives power
    laptop.set("BATT",
        {{"type", "Battery"}, {"status", "Charging"}, {"charge_now", "2000000"}, {"charge_full", "4000000"},
            {"charge_full_design", "4500000"}, {"current_now", "-1000000"}, {"voltage_now", "7600000"},
            {"cycle_count", "0"}, {"temp", "305"}, {"health", "Good"}, {"manufacture_year", "2021"},
            {"manufacture_month", "6"}, {"manufacture_day", "15"}});
    EXPECT_THAT(laptop.only(),
        hasMembers({{"Power Source State", "AC Power"}, {"Current Capacity", 50}, {"Current", 1000},
            {"Time to Full Charge", 120}, {"BatteryHealth", "Good"}}));
    EXPECT_THAT(laptop.batteries(),
        ElementsAre(hasMembers({{"MaxCapacity", 4000}, {"Temperature", 3050},
            {"ManufactureDate", 15 | 6 << 5 | 41 << 9}, {"CycleCount", nullptr}}))) // it does not count
        << "of the controller";
}

TEST(SysfsPowerSources, TwoBatteriesShareTheMachinesSource)
{
    const PowerSupplyTree laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "0"}});
    laptop.set("BAT0", {{"type", "Battery"}, {"status", "Unknown"}, {"capacity", "99"}});
    laptop.set("BAT1", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "103"}});
    laptop.set("BAT2", {{"type", "Battery"}, {"present", "0"}}); // an empty bay
    EXPECT_THAT(laptop.descriptions(),
        ElementsAre(hasMembers({{"Power Source State", "Battery Power"}, {"Time to Empty", -1}}), // being calculated
            hasMembers({{"Power Source State", "Battery Power"}, {"Current Capacity", 100}})));
}

TEST(SysfsPowerSources, ABusinessLaptopWithTwoBatteries)
{
    const PowerSupplyTree laptop;
    laptop.setEvent("AC", {{"TYPE", "Mains"}, {"ONLINE", "1"}});
    for (const char* battery : {"BAT0", "BAT1"}) { // older kernels leave the type out of the uevent
        laptop.set(battery, {{"type", "Battery"}});
    }
    laptop.setEvent("BAT0",
        {{"STATUS", "Full"}, {"PRESENT", "1"}, {"TECHNOLOGY", "Li-poly"}, {"CYCLE_COUNT", "0"},
            {"VOLTAGE_MIN_DESIGN", "11400000"}, {"VOLTAGE_NOW", "12900000"}, {"POWER_NOW", "0"},
            {"ENERGY_FULL_DESIGN", "23480000"}, {"ENERGY_FULL", "21080000"}, {"ENERGY_NOW", "20980000"},
            {"CAPACITY", "99"}, {"MODEL_NAME", "01AV489"}, {"SERIAL_NUMBER", "  1041"}});
    laptop.setEvent("BAT1",
        {{"STATUS", "Charging"}, {"PRESENT", "1"}, {"CYCLE_COUNT", "312"}, {"VOLTAGE_MIN_DESIGN", "11100000"},
            {"VOLTAGE_NOW", "12100000"}, {"POWER_NOW", "24200000"}, {"ENERGY_FULL_DESIGN", "66600000"},
            {"ENERGY_FULL", "49950000"}, {"ENERGY_NOW", "25750000"}, {"CAPACITY", "51"}, {"MODEL_NAME", "01AV424"},
            {"SERIAL_NUMBER", " 221"}});
    EXPECT_THAT(laptop.batteries(),
        ElementsAre(hasMembers({{"CycleCount", nullptr}}),
            hasMembers({{"CycleCount", 312}, {"MaxCapacity", 4500}, {"DesignCapacity", 6000}})));
    EXPECT_THAT(laptop.descriptions(),
        ElementsAre(hasMembers({{"Hardware Serial Number", "1041"}, {"Is Charged", true}}),
            hasMembers({{"Time to Full Charge", 60}, {"Current", 2000}})));
}

TEST(SysfsPowerSources, ATabletWhoseDriverCountsInMilliUnits)
{
    const PowerSupplyTree tablet;
    tablet.setEvent("battery",
        {{"TYPE", "Battery"}, {"STATUS", "Discharging"}, {"CAPACITY", "50"}, {"VOLTAGE_NOW", "3800"},
            {"CURRENT_NOW", "-500"}, {"CHARGE_FULL", "8000"}, {"CHARGE_FULL_DESIGN", "10000"}, {"CHARGE_NOW", "4000"}});
    EXPECT_THAT(tablet.only(), hasMembers({{"Voltage", 3800}, {"Current", -500}, {"Time to Empty", 480}}));
    EXPECT_EQ(tablet.batteries().at(0)["DesignCapacity"], 10000);
}

TEST(SysfsPowerSources, FirmwareThatDoesNotKnowOrLiesIsNotBelieved)
{
    const PowerSupplyTree laptop;
    laptop.setEvent("BAT0",
        {{"TYPE", "Battery"}, {"STATUS", "Discharging"}, {"ENERGY_FULL", "0"}, {"ENERGY_FULL_DESIGN", "0"},
            {"ENERGY_NOW", "40000000"}, {"POWER_NOW", "65535000"}, {"VOLTAGE_NOW", "12000000"}, {"CYCLE_COUNT", "-1"},
            {"MANUFACTURE_YEAR", "65535"}, {"MANUFACTURE_MONTH", "99"}, {"MANUFACTURE_DAY", "0"},
            {"TEMP", "9223372036854775807"}});
    EXPECT_THAT(
        laptop.only(), hasMembers({{"Current Capacity", nullptr}, {"Current", nullptr}, {"Time to Empty", -1}}));
    EXPECT_THAT(laptop.batteries(),
        ElementsAre(hasMembers({{"MaxCapacity", nullptr}, {"DesignCapacity", nullptr}, {"CycleCount", nullptr},
            {"ManufactureDate", nullptr}, {"Amperage", nullptr}, {"Temperature", nullptr}})));
    laptop.setEvent("BAT0",
        {{"TYPE", "Battery"}, {"STATUS", "Discharging"}, {"ENERGY_NOW", "40000000"}, {"POWER_NOW", "10"},
            {"ENERGY_FULL_DESIGN", "50000000"}});
    EXPECT_EQ(laptop.only()["Current Capacity"], 80)
        << "of what it was designed for, as nobody knows what is left of that";
    EXPECT_EQ(laptop.only()["Time to Empty"], -1) << "no battery lasts for centuries";
}

TEST(SysfsPowerSources, OneReadingServesBothQuestionsAndAsksNoDevice)
{
    const PowerSupplyTree laptop;
    laptop.setEvent("BAT0", {{"TYPE", "Battery"}, {"CYCLE_COUNT", "1"}});
    laptop.set("mouse", {{"scope", "Device"}});
    laptop.setEvent("mouse", {{"TYPE", "Battery"}}); // as an internal one, for who reads it
    auto sources = laptop.sources();
    EXPECT_EQ(sources.descriptions().size(), 1U);
    laptop.setEvent("BAT0", {{"TYPE", "Battery"}, {"CYCLE_COUNT", "2"}});
    EXPECT_EQ(sources.smartBatteries().at(0)["CycleCount"], 1);
    laptop.runtime.advance(1);
    EXPECT_EQ(sources.smartBatteries().at(0)["CycleCount"], 2);
}

TEST(SysfsPowerSources, WithoutAnAdapterTheBatteryTells)
{
    const PowerSupplyTree board;
    board.set("battery", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "5"}});
    EXPECT_EQ(board.only()["Power Source State"], "Battery Power");
    for (const char* status : {"Charging", "Full", "Not charging", "Unknown", ""}) {
        board.set("battery", {{"status", status}});
        EXPECT_EQ(board.only()["Power Source State"], "AC Power") << status;
    }
    // An adapter that is known and off, beside a dock without a driver.
    board.set("AC", {{"type", "Mains"}, {"online", "0"}});
    board.set("battery", {{"status", "Charging"}});
    EXPECT_EQ(board.only()["Power Source State"], "AC Power");
}

TEST(SysfsPowerSources, ABatteryThatLagsBehindItsAdapterIsLookedAtAgain)
{
    const PowerSupplyTree laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "1"}});
    laptop.set("BAT0", {{"type", "Battery"}, {"status", "Charging"}});
    auto sources = laptop.sources();
    std::vector<std::string> told;
    const auto observation =
        sources.observe([&] { told.push_back(text(sources.descriptions().at(0), "Power Source State").value()); });
    sources.changed();
    laptop.runtime.advance(10);
    EXPECT_THAT(told, ElementsAre("AC Power")) << "nothing in doubt";

    laptop.set("AC", {{"online", "0"}});
    sources.changed();
    laptop.runtime.advance(2);
    laptop.set("BAT0", {{"status", "Discharging"}}); // which is not announced
    laptop.runtime.advance(10);
    EXPECT_THAT(told, ElementsAre("AC Power", "AC Power", "AC Power", "Battery Power"));

    laptop.set("BAT0", {{"status", "Charging"}});
    sources.changed();
    laptop.set("AC", {{"online", "1"}});
    sources.changed();
    laptop.runtime.advance(10);
    EXPECT_EQ(told.size(), 6U) << "plugged in again, there is no more doubt";
}

TEST(SysfsPowerSources, WhatIsNoSourceOfTheMachineIsLeftOut)
{
    const PowerSupplyTree desktop;
    EXPECT_TRUE(desktop.descriptions().empty() && desktop.batteries().empty());
    EXPECT_EQ(desktop.limits->all().count("power-source-changes"), 1U) << "a recorded tree announces nothing";
    desktop.set("hidpp_battery_0", {{"type", "Battery"}, {"scope", "Device"}, {"status", "Discharging"}});
    desktop.set("broken", {{"type", ""}});
    desktop.set("ups", {{"type", "UPS"}, {"status", "Discharging"}, {"capacity", "nonsense"}});
    EXPECT_THAT(desktop.only(),
        hasMembers({{"Type", "UPS"}, {"Transport Type", "USB"}, {"Power Source State", "Battery Power"},
            {"Current Capacity", nullptr}}));
    EXPECT_TRUE(desktop.batteries().empty());
}

TEST(SysfsPowerSources, ABatteryThatTheKernelTakesForADevicesMayBeThatOfAUPS)
{
    using namespace std::string_literals;
    const PowerSupplyTree desktop;
    const auto plug = [&](const std::string& name, const std::string& descriptor) {
        desktop.setEvent(
            name, {{"TYPE", "Battery"}, {"SCOPE", "Device"}, {"STATUS", "Discharging"}, {"CAPACITY", "70"}});
        desktop.tree.write("sys/class/power_supply/" + name + "/device/report_descriptor", descriptor);
    };
    // Its own application beside others; as one item of four bytes; and broken off before it says what it is.
    plug("hid-1-battery",
        "\x05\x01\x09\x06\xA1\x01\xC0\xFE\x01\x00\x55\x05\x84\x09\x04\xA1\x01\x09\x24\xA1\x00\xC0\xC0"s);
    plug("hid-2-battery", "\x0B\x04\x00\x84\x00\xA1\x01\xC0"s);
    plug("hid-3-battery", "\x05\x84\x09\x04\xA1"s);
    // A mouse that tells of its own battery with controls of that page.
    plug("hid-4-battery", "\x06\x00\xFF\x09\x14\xA1\x01\x05\x84\x09\x04\x81\x02\x05\x85\x09\x65\x81\x02\xC0"s);
    desktop.setEvent("ups", {{"TYPE", "UPS"}, {"PRESENT", "0"}}); // switched off
    const auto isUPS = hasMembers({{"Type", "UPS"}, {"Power Source State", "Battery Power"}, {"Current Capacity", 70}});
    EXPECT_THAT(desktop.descriptions(), ElementsAre(isUPS, isUPS));
    EXPECT_TRUE(desktop.batteries().empty());
}

} // namespace
} // namespace meridal
