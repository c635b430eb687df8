// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/SysfsPowerSources.h"
#include "tests/linux/PowerSupplyTree.h"

#include <chrono>

namespace meridal {
namespace {

using test::PowerSupplyTree;
using testing::ElementsAre;
using enum PowerSupplyState;

TEST(SysfsPowerSources, ALaptopThatReportsEnergy)
{
    const PowerSupplyTree laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "0"}});
    laptop.set("BAT0",
        {{"type", "Battery"}, {"status", "Discharging"}, {"present", "1"}, {"capacity", "80"}, {"cycle_count", "123"},
            {"energy_now", "40000000"}, {"energy_full", "50000000"}, {"energy_full_design", "57000000"},
            {"power_now", "8000000"}, {"voltage_now", "12000000"}, {"voltage_min_design", "11400000"},
            {"model_name", "5B10W13930"}, {"serial_number", " 1234"}});
    PowerSourceRecord expected{.name = "5B10W13930",
        .serial = "1234",
        .supply = Battery,
        .chargePercent = 80,
        .toEmpty = TimeEstimate{300},
        .voltageMv = 12000,
        .currentMa = -666,
        .controller = BatteryControllerRecord{.chargeNowMah = 3508,
            .chargeFullMah = 4385,
            .chargeDesignMah = 5000,
            .energyNowMwh = 40'000,
            .cycles = 123,
            .voltageMv = 12000,
            .currentMa = -666}};
    EXPECT_EQ(laptop.only(), expected);
    laptop.set("AC", {{"online", "1"}}); // which gives too little
    expected.supply = AC;
    EXPECT_EQ(laptop.only(), expected);
    laptop.set("BAT0", {{"status", "Charging"}, {"power_now", "20000000"}});
    expected.charging = true;
    expected.toEmpty.reset();
    expected.toFull = TimeEstimate{30};
    expected.currentMa = expected.controller->currentMa = 1666;
    EXPECT_EQ(laptop.only(), expected);
    laptop.set("BAT0", {{"status", "Full"}, {"power_now", "0"}});
    EXPECT_TRUE(laptop.only().charged);
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
    using namespace std::chrono_literals;
    const auto battery = laptop.only();
    EXPECT_TRUE(battery.supply == AC && battery.chargePercent == 50 && battery.currentMa == 1000);
    EXPECT_EQ(battery.controller->energyNowMwh, 15'200);
    EXPECT_EQ(battery.toFull, TimeEstimate{120});
    EXPECT_EQ(battery.verdict, BatteryVerdict::Good);
    EXPECT_EQ(battery.controller->chargeFullMah, 4000);
    EXPECT_EQ(battery.controller->manufactured, 2021y / 6 / 15);
    EXPECT_FALSE(battery.controller->cycles) << "it does not count";
}

TEST(SysfsPowerSources, TwoBatteriesShareTheMachinesSource)
{
    const PowerSupplyTree laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "0"}});
    for (const char* battery : {"BAT0", "BAT1"}) { // older kernels leave the type out of the uevent
        laptop.set(battery, {{"type", "Battery"}});
    }
    laptop.setEvent("BAT0", {{"STATUS", "Unknown"}, {"CAPACITY", "99"}, {"CYCLE_COUNT", "5"}});
    laptop.setEvent("BAT1", {{"STATUS", "Discharging"}, {"CAPACITY", "103"}, {"CYCLE_COUNT", "312"}});
    laptop.set("BAT2", {{"type", "Battery"}, {"present", "0"}}); // an empty bay
    const auto found = laptop.sources();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_TRUE(found[0].supply == Battery && found[1].supply == Battery);
    EXPECT_EQ(found[0].toEmpty, TimeEstimate()) << "being calculated";
    EXPECT_EQ(found[0].controller->cycles, 5);
    EXPECT_EQ(found[1].chargePercent, 100);
    EXPECT_EQ(found[1].controller->cycles, 312);
}

TEST(SysfsPowerSources, ATabletWhoseDriverCountsInMilliUnits)
{
    const PowerSupplyTree tablet;
    tablet.setEvent("battery",
        {{"TYPE", "Battery"}, {"STATUS", "Discharging"}, {"CAPACITY", "50"}, {"VOLTAGE_NOW", "3800"},
            {"CURRENT_NOW", "-500"}, {"CHARGE_FULL", "8000"}, {"CHARGE_FULL_DESIGN", "10000"}, {"CHARGE_NOW", "4000"}});
    const auto battery = tablet.only();
    EXPECT_TRUE(battery.voltageMv == 3800 && battery.currentMa == -500);
    EXPECT_EQ(battery.toEmpty, TimeEstimate{480});
    EXPECT_EQ(battery.controller->chargeDesignMah, 10000);
}

TEST(SysfsPowerSources, FirmwareThatDoesNotKnowOrLiesIsNotBelieved)
{
    const PowerSupplyTree laptop;
    laptop.setEvent("BAT0",
        {{"TYPE", "Battery"}, {"STATUS", "Discharging"}, {"ENERGY_FULL", "0"}, {"ENERGY_FULL_DESIGN", "0"},
            {"ENERGY_NOW", "40000000"}, {"POWER_NOW", "65535000"}, {"VOLTAGE_NOW", "12000000"}, {"CYCLE_COUNT", "-1"},
            {"MANUFACTURE_YEAR", "65535"}, {"MANUFACTURE_MONTH", "99"}, {"MANUFACTURE_DAY", "0"},
            {"TEMP", "9223372036854775807"}});
    const PowerSourceRecord expected{.name = "BAT0",
        .supply = Battery,
        .toEmpty = TimeEstimate(),
        .voltageMv = 12000,
        .controller = BatteryControllerRecord{.chargeNowMah = 3333, .energyNowMwh = 40'000, .voltageMv = 12000}};
    EXPECT_EQ(laptop.only(), expected);
    laptop.setEvent("BAT0",
        {{"TYPE", "Battery"}, {"STATUS", "Discharging"}, {"ENERGY_NOW", "40000000"}, {"POWER_NOW", "10"},
            {"ENERGY_FULL_DESIGN", "50000000"}});
    EXPECT_EQ(laptop.only().chargePercent, 80) << "of what it was designed for, as nobody knows what is left of that";
    EXPECT_EQ(laptop.only().toEmpty, TimeEstimate()) << "no battery lasts for centuries";
}

TEST(SysfsPowerSources, WithoutAnAdapterTheBatteryTells)
{
    const PowerSupplyTree board;
    board.set("battery", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "5"}});
    EXPECT_EQ(board.only().supply, Battery);
    for (const char* status : {"Charging", "Full", "Not charging", "Unknown", ""}) {
        board.set("battery", {{"status", status}});
        EXPECT_EQ(board.only().supply, AC) << status;
    }
    // An adapter that is known and off, beside a dock without a driver.
    board.set("AC", {{"type", "Mains"}, {"online", "0"}});
    board.set("battery", {{"status", "Charging"}});
    EXPECT_EQ(board.only().supply, AC);
}

TEST(SysfsPowerSources, ABatteryThatLagsBehindItsAdapterIsLookedAtAgain)
{
    const PowerSupplyTree laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "1"}});
    laptop.set("BAT0", {{"type", "Battery"}, {"status", "Charging"}});
    auto sources = laptop.adapter();
    std::vector<PowerSupplyState> told;
    const auto observation = sources.observe([&] { told.push_back(sources.sources().at(0).supply); });
    sources.changed();
    laptop.runtime.advance(10);
    EXPECT_THAT(told, ElementsAre(AC)) << "nothing in doubt";

    laptop.set("AC", {{"online", "0"}});
    sources.changed();
    laptop.runtime.advance(2);
    laptop.set("BAT0", {{"status", "Discharging"}}); // which is not announced
    laptop.runtime.advance(10);
    EXPECT_THAT(told, ElementsAre(AC, AC, AC, Battery));

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
    EXPECT_TRUE(desktop.sources().empty());
    EXPECT_EQ(desktop.limits->all().count("power-source-changes"), 1U) << "a recorded tree announces nothing";
    desktop.set("hidpp_battery_0", {{"scope", "Device"}});
    desktop.setEvent("hidpp_battery_0", {{"TYPE", "Battery"}}); // as an internal one, for who reads it
    desktop.set("broken", {{"type", ""}});
    desktop.set("ups", {{"type", "UPS"}, {"status", "Discharging"}, {"capacity", "nonsense"}});
    const PowerSourceRecord ups{
        .kind = PowerSourceKind::UPS, .name = "ups", .supply = Battery, .toEmpty = TimeEstimate()};
    EXPECT_EQ(desktop.only(), ups);
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
    const auto found = desktop.sources();
    ASSERT_EQ(found.size(), 2U);
    for (const PowerSourceRecord& each : found) {
        EXPECT_TRUE(each.kind == PowerSourceKind::UPS && each.supply == Battery && each.chargePercent == 70);
    }
}

} // namespace
} // namespace meridal
