#include "platform/linux/SysfsPowerSources.h"
#include "base/VirtualRuntime.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

using Files = std::initializer_list<std::pair<std::string_view, std::string_view>>;

/// A tree of supplies, and what is read out of it.
struct Supplies {
    void set(const std::string& supply, Files files) const
    {
        for (const auto& [file, text] : files) {
            tree.write("sys/class/power_supply/" + supply + "/" + std::string(file), std::string(text) + "\n");
        }
    }
    std::vector<Dictionary> descriptions() const
    {
        return SysfsPowerSources(runtime, tree.root(), limits).descriptions();
    }
    Dictionary only() const
    {
        const auto all = descriptions();
        EXPECT_EQ(all.size(), 1U);
        return all.empty() ? Dictionary() : all[0];
    }
    std::vector<Dictionary> batteries() const
    {
        return SysfsPowerSources(runtime, tree.root(), limits).smartBatteries();
    }
    std::optional<Dictionary> battery() const
    {
        const auto all = batteries();
        return all.empty() ? std::nullopt : std::optional(all[0]);
    }
    std::optional<bool> adapter() const { return SysfsPowerSources(runtime, tree.root(), limits).adapterConnected(); }

    test::TemporaryTree tree;
    mutable VirtualRuntime runtime;
    std::shared_ptr<Limitations> limits = std::make_shared<Limitations>();
};

TEST(SysfsPowerSources, ALaptopThatReportsEnergy)
{
    const Supplies laptop;
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
    const Dictionary battery = laptop.battery().value();
    EXPECT_EQ(battery["DesignCapacity"], 5000);
    EXPECT_EQ(battery["MaxCapacity"], 4385);
    EXPECT_EQ(battery["CycleCount"], 123);
    EXPECT_EQ(battery["ExternalConnected"], false);
    EXPECT_EQ(battery["Amperage"], -666);

    laptop.set("AC", {{"online", "1"}});
    laptop.set("BAT0", {{"status", "Charging"}, {"power_now", "20000000"}});
    const Dictionary charging = laptop.only();
    EXPECT_EQ(charging["Power Source State"], "AC Power");
    EXPECT_EQ(charging["Is Charging"], true);
    EXPECT_EQ(charging["Time to Full Charge"], 30);
    EXPECT_FALSE(charging.contains("Time to Empty"));
    EXPECT_EQ(charging["Current"], 1666);
    laptop.set("BAT0", {{"status", "Full"}, {"power_now", "0"}});
    EXPECT_EQ(laptop.only()["Is Charged"], true);
    EXPECT_EQ(laptop.adapter(), true);
}

TEST(SysfsPowerSources, ALaptopThatReportsChargeAndItsOwnSignOfTheCurrent)
{
    const Supplies laptop;
    laptop.set("ADP1", {{"type", "Mains"}, {"online", "0"}});
    laptop.set("ucsi-source-psy-USBC000:001", {{"type", "USB"}, {"online", "1"}});
    laptop.set("BATT",
        {{"type", "Battery"}, {"status", "Charging"}, {"charge_now", "2000000"}, {"charge_full", "4000000"},
            {"charge_full_design", "4500000"}, {"current_now", "-1000000"}, {"voltage_now", "7600000"},
            {"cycle_count", "0"}, {"temp", "305"}, {"health", "Good"}, {"manufacture_year", "2021"},
            {"manufacture_month", "6"}, {"manufacture_day", "15"}});
    const Dictionary source = laptop.only();
    EXPECT_EQ(source["Power Source State"], "AC Power") << "one of the ports gives power";
    EXPECT_EQ(source["Current Capacity"], 50);
    EXPECT_EQ(source["Current"], 1000);
    EXPECT_EQ(source["Time to Full Charge"], 120);
    EXPECT_EQ(source["BatteryHealth"], "Good");
    const Dictionary battery = laptop.battery().value();
    EXPECT_EQ(battery["MaxCapacity"], 4000);
    EXPECT_EQ(battery["Temperature"], 3050);
    EXPECT_EQ(battery["ManufactureDate"], 15 | 6 << 5 | 41 << 9);
    EXPECT_FALSE(battery.contains("CycleCount")) << "a controller that does not count";
}

TEST(SysfsPowerSources, TwoBatteriesShareTheMachinesSource)
{
    const Supplies laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "0"}});
    laptop.set("BAT0", {{"type", "Battery"}, {"status", "Unknown"}, {"capacity", "99"}});
    laptop.set("BAT1", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "103"}});
    laptop.set("BAT2", {{"type", "Battery"}, {"present", "0"}});
    const auto sources = laptop.descriptions();
    ASSERT_EQ(sources.size(), 2U) << "not the empty bay";
    EXPECT_EQ(sources[0]["Power Source State"], "Battery Power");
    EXPECT_EQ(sources[0]["Time to Empty"], -1) << "being calculated";
    EXPECT_EQ(sources[1]["Power Source State"], "Battery Power");
    EXPECT_EQ(sources[1]["Current Capacity"], 100);
}

TEST(SysfsPowerSources, WithoutAnAdapterTheBatteryTells)
{
    const Supplies board;
    board.set("battery", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "5"}});
    EXPECT_EQ(board.only()["Power Source State"], "Battery Power");
    EXPECT_EQ(board.adapter(), std::nullopt);
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
    const Supplies laptop;
    laptop.set("AC", {{"type", "Mains"}, {"online", "1"}});
    laptop.set("BAT0", {{"type", "Battery"}, {"status", "Charging"}});
    SysfsPowerSources sources(laptop.runtime, laptop.tree.root(), laptop.limits);
    std::vector<std::string> told;
    const auto observation =
        sources.observe([&] { told.push_back(text(sources.descriptions().at(0), "Power Source State").value()); });
    sources.changed();
    laptop.runtime.advance(10);
    EXPECT_EQ(told, std::vector<std::string>({"AC Power"})) << "nothing in doubt";

    laptop.set("AC", {{"online", "0"}});
    sources.changed();
    laptop.runtime.advance(2);
    laptop.set("BAT0", {{"status", "Discharging"}}); // which is not announced
    laptop.runtime.advance(10);
    EXPECT_EQ(told, std::vector<std::string>({"AC Power", "AC Power", "AC Power", "Battery Power"}));

    laptop.set("BAT0", {{"status", "Charging"}});
    sources.changed();
    laptop.set("AC", {{"online", "1"}});
    sources.changed();
    laptop.runtime.advance(10);
    EXPECT_EQ(told.size(), 6U) << "plugged in again, there is no more doubt";
}

TEST(SysfsPowerSources, WhatIsNoSourceOfTheMachineIsLeftOut)
{
    const Supplies desktop;
    EXPECT_TRUE(desktop.descriptions().empty());
    EXPECT_FALSE(desktop.battery());
    EXPECT_EQ(desktop.limits->all().count("power-source-changes"), 1U) << "a recorded tree announces nothing";
    desktop.set("hidpp_battery_0", {{"type", "Battery"}, {"scope", "Device"}, {"status", "Discharging"}});
    desktop.set("broken", {{"type", ""}});
    desktop.set("ups", {{"type", "UPS"}, {"status", "Discharging"}, {"capacity", "nonsense"}});
    const Dictionary ups = desktop.only();
    EXPECT_EQ(ups["Type"], "UPS");
    EXPECT_EQ(ups["Transport Type"], "USB");
    EXPECT_EQ(ups["Power Source State"], "Battery Power");
    EXPECT_FALSE(ups.contains("Current Capacity"));
    EXPECT_FALSE(desktop.battery());
}

} // namespace
} // namespace meridal
