// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryStatCollectorItemMac.h"
#include "collectors/battery/BatteryTotal.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

namespace meridal::test {
namespace {

constexpr TimeEstimate calculating;
constexpr TimeEstimate in(int minutes) { return {minutes}; }

PowerSourceRecord onAC(PowerSourceRecord record = {})
{
    record.supply = PowerSupplyState::AC;
    record.chargePercent = record.chargePercent.value_or(50);
    return record;
}
PowerSourceRecord onBattery(TimeEstimate toEmpty)
{
    return {.supply = PowerSupplyState::Battery, .chargePercent = 50, .toEmpty = toEmpty};
}
PowerSourceRecord chargingFor(int minutes) { return onAC({.charging = true, .toFull = in(minutes)}); }

struct BatteryItemTest : testing::Test {
    FakeMachine machine;
    BatteryStatCollectorItemMac item{machine.context};
};

TEST_F(BatteryItemTest, StatesAndTimesFollowTheRecord)
{
    using enum BatteryState;
    const std::tuple<PowerSourceRecord, BatteryState, int> cases[] = {
        {onAC({.charging = true, .charged = true}), Charged, batteryTime::charged},
        {onAC({.charged = true, .toFull = in(0)}), Charged, batteryTime::charged},
        {chargingFor(42), Charging, 42},
        {onAC({.charging = true, .toFull = calculating}), Charging, batteryTime::unknown},
        {onAC({.charging = true}), Charging, batteryTime::noFigure},
        {onAC({.toFull = in(9)}), NotCharging, batteryTime::unknown},
        {onAC(), NotCharging, batteryTime::noFigure},
        {onAC({.heldBack = true}), Optimized, batteryTime::noFigure},
        {onAC({.charging = true, .heldBack = true, .toFull = in(5)}), Charging, 5},
        // From an adapter that gives too little: by the rate, or by what only a system that drains tells.
        {onAC({.toEmpty = in(95), .currentMa = -900}), Draining, 95},
        {onAC({.toEmpty = in(0), .currentMa = -900}), Draining, 120},
        {onAC({.toEmpty = calculating}), Draining, batteryTime::unknown},
        {onAC({.toEmpty = in(0), .currentMa = -20}), NotCharging, batteryTime::noFigure},
        {onBattery(in(77)), Draining, 77},
        {onBattery(calculating), Draining, batteryTime::unknown},
        {{.supply = PowerSupplyState::OffLine}, Draining, batteryTime::unknown},
        {{}, Charged, batteryTime::unknown},
    };
    for (int number = 0; const auto& [record, state, time] : cases) {
        BatteryStatCollectorItemMac fresh(machine.context);
        fresh.setCurrentCapacity(1800);
        fresh.processIOPS(record);
        EXPECT_EQ(fresh.state(), state) << number;
        EXPECT_EQ(fresh.time(), time) << number++;
    }
    item.processIOPS(onBattery(in(5)));
    item.processIOPS({});
    EXPECT_EQ(item.source(), BatterySource::Unknown) << "a source that no longer says is not known";
    EXPECT_EQ(item.percentage(), 50) << "what is missing stays as it was";
}

TEST_F(BatteryItemTest, TheFirstEstimateAfterAChangeIsHeldBackForTenSeconds)
{
    item.processIOPS(onBattery(in(300)));
    EXPECT_EQ(item.time(), 300) << "not at the first description";
    item.processIOPS(chargingFor(600));
    EXPECT_EQ(item.time(), batteryTime::unknown);
    machine.runtime.advance(9.9);
    item.processIOPS(chargingFor(90));
    EXPECT_EQ(item.time(), batteryTime::unknown);
    machine.runtime.advance(0.2);
    EXPECT_EQ(item.time(), 90) << "the newest estimate, without another description";

    item.processIOPS(onBattery(in(500)));
    machine.runtime.advance(6);
    item.processIOPS(chargingFor(80));
    machine.runtime.advance(6);
    EXPECT_TRUE(item.delay()) << "the later change counts";
    machine.runtime.advance(4.1);
    EXPECT_EQ(item.time(), 80);
    item.processIOPS(onBattery(in(500)));
    item.processIOPS(onAC({.charged = true}));
    EXPECT_EQ(item.time(), batteryTime::charged) << "full needs no estimate";
}

TEST_F(BatteryItemTest, NamesChargeAndConditionAreReadWithCare)
{
    const auto ups = [this](PowerSourceRecord record) {
        record.kind = PowerSourceKind::UPS;
        item.processIOPS(record);
    };
    ups(onBattery(in(5)));
    EXPECT_EQ(item.name(), "");
    ups({.name = " Back-UPS", .supply = PowerSupplyState::Battery, .chargePercent = 100, .toEmpty = in(30)});
    EXPECT_EQ(item.name(), "Back-UPS");
    EXPECT_EQ(item.state(), BatteryState::Draining) << "whatever is left";
    EXPECT_EQ(item.time(), 30);
    ups(onAC({.chargePercent = 100, .voltageMv = 13000}));
    EXPECT_EQ(item.state(), BatteryState::Charged) << "a UPS at 100 %";
    EXPECT_FALSE(item.condition());
    ups({.name = "Other", .verdict = BatteryVerdict::Fair});
    EXPECT_EQ(item.name(), "Back-UPS");
    EXPECT_EQ(item.percentage(), 100);
    EXPECT_EQ(item.voltage(), 13000);
    EXPECT_FALSE(item.amperage());
    EXPECT_EQ(item.condition(), BatteryCondition::Fair);
    ups({.verdict = BatteryVerdict::PermanentFailure});
    ups({});
    EXPECT_EQ(item.condition(), BatteryCondition::PermanentFailure);
}

TEST_F(BatteryItemTest, TheControllerTellsHealthAndAgeOrNothing)
{
    using namespace std::chrono_literals;
    item.processSmart({.chargeFullMah = 4000});
    EXPECT_EQ(item.name(), "Internal Battery");
    EXPECT_FALSE(item.health());
    EXPECT_FALSE(item.manufactureTime());
    item.processSmart({.chargeFullMah = 4375,
        .chargeDesignMah = 5000,
        .cycles = 211,
        .voltageMv = 12000,
        .currentMa = -1500,
        .manufactured = 2021y / 6 / 15});
    EXPECT_EQ(item.health(), 87.5);
    EXPECT_EQ(item.cycles(), 211);
    EXPECT_EQ(item.power(), -18.0);
    EXPECT_EQ(item.manufactureTime(), 1'623'715'200.0);
    item.processSmart({.chargeFullMah = 5200, .chargeDesignMah = 5000, .manufactured = 2022y / 1 / 1});
    EXPECT_EQ(item.health(), 100) << "a fresh pack holds more than it must";
    EXPECT_EQ(item.manufactureTime(), 1'623'715'200.0) << "once known it stays";
}

TEST_F(BatteryItemTest, SeveralBatteriesHaveATotal)
{
    BatteryStatCollectorItemMac second(machine.context);
    const auto total = [&](const PowerSourceRecord& one, const PowerSourceRecord& other) {
        item.processIOPS(one);
        second.processIOPS(other);
        for (auto* each : {&item, &second}) {
            each->cancelDelay();
        }
        return batteryTotal({&item, &second}).value();
    };
    EXPECT_FALSE(batteryTotal({&item}));
    PowerSourceRecord idle = onBattery(calculating);
    EXPECT_EQ(total(onBattery(in(60)), idle), (Dictionary{{"state", 2}, {"time", 120}, {"percentage", 50.0}}));
    item.processSmart({.chargeFullMah = 2000, .voltageMv = 10'000, .currentMa = -1000});
    second.processSmart({.chargeFullMah = 4000, .voltageMv = 10'000, .currentMa = 0});
    idle.chargePercent = 100;
    EXPECT_EQ(total(onBattery(in(60)), idle),
        (Dictionary{{"state", 2}, {"time", 300}, {"percentage", 83.0}, {"power", -10.0}}))
        << "at the rate of the one, until both are empty";
    const PowerSourceRecord full = onAC({.charged = true, .chargePercent = 100});
    EXPECT_EQ(total(chargingFor(30), full)["time"], 30);
    EXPECT_EQ(total(onAC(), full)["state"], 3) << "not all of them are full";
    EXPECT_EQ(total(full, full)["time"], batteryTime::charged);
    second.setPercentage(std::nullopt);
    const Dictionary unknown = batteryTotal({&item, &second}).value();
    EXPECT_FALSE(unknown.contains("percentage"));
}

TEST_F(BatteryItemTest, TimeOnTheSourceLeavesSleepAndSetClocksOut)
{
    EXPECT_FALSE(item.awakeOnSource(0));
    item.processIOPS(onBattery(in(300)));
    const double since = item.sourceTime();
    EXPECT_EQ(since, machine.runtime.wallTime());
    machine.runtime.advance(600);
    machine.runtime.sleepMachine(1000);
    item.processIOPS(onBattery(in(200)));
    EXPECT_EQ(item.sourceTime(), since);
    EXPECT_NEAR(item.awakeOnSource(1000).value(), 600, 1e-6);
    machine.runtime.stepWallClock(1e9);
    EXPECT_NEAR(item.awakeOnSource(1000).value(), 600, 1e-6) << "a clock that was wrong until now";
    machine.runtime.stepWallClock(-2e9);
    EXPECT_EQ(item.awakeOnSource(1000), 0);
}

} // namespace
} // namespace meridal::test
