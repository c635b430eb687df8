#include "collectors/battery/BatteryStatCollectorItemMac.h"
#include "collectors/battery/BatteryTotal.h"
#include "collectors/battery/ManufactureDate.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <limits>

namespace meridal::test {
namespace {

constexpr std::int64_t packed(int year, int month, int day) { return day | month << 5 | (year - 1980) << 9; }

struct BatteryItemTest : testing::Test {
    Dictionary onAC(const Dictionary& more = Dictionary::object()) const
    {
        Dictionary description{{"Power Source State", "AC Power"}, {"Current Capacity", 50}};
        description.update(more);
        return description;
    }
    Dictionary onBattery(int minutes) const
    {
        return {{"Power Source State", "Battery Power"}, {"Current Capacity", 50}, {"Time to Empty", minutes}};
    }

    FakeMachine machine;
    BatteryStatCollectorItemMac item{machine.context};
};

TEST_F(BatteryItemTest, StatesAndTimesFollowTheDescription)
{
    const struct {
        Dictionary description;
        BatteryState state;
        int time;
    } cases[] = {
        {onAC({{"Is Charged", 1}, {"Is Charging", true}}), BatteryState::Charged, batteryTime::charged},
        {onAC({{"Is Charged", true}, {"Time to Full Charge", 0}}), BatteryState::Charged, batteryTime::charged},
        {onAC({{"Is Charging", true}, {"Time to Full Charge", 42}}), BatteryState::Charging, 42},
        {onAC({{"Is Charging", 1}, {"Time to Full Charge", -1}}), BatteryState::Charging, batteryTime::unknown},
        {onAC({{"Is Charging", true}}), BatteryState::Charging, batteryTime::noFigure},
        {onAC({{"Time to Full Charge", 9}}), BatteryState::NotCharging, batteryTime::unknown},
        {onAC(), BatteryState::NotCharging, batteryTime::noFigure},
        {onAC({{"Optimized Battery Charging Engaged", 1}}), BatteryState::Optimized, batteryTime::noFigure},
        {onAC({{"Optimized Battery Charging Engaged", true}, {"Is Charging", true}, {"Time to Full Charge", 5}}),
            BatteryState::Charging, 5},
        // From an adapter that gives too little: by the rate, or by what only a system that drains tells.
        {onAC({{"Current", -900}, {"Time to Empty", 95}}), BatteryState::Draining, 95},
        {onAC({{"Current", -900}, {"Time to Empty", 0}}), BatteryState::Draining, 120},
        {onAC({{"Time to Empty", -1}}), BatteryState::Draining, batteryTime::unknown},
        {onAC({{"Current", -900}, {"Percent", true}}), BatteryState::Draining, batteryTime::unknown},
        {onAC({{"Current", -20}, {"Time to Empty", 0}}), BatteryState::NotCharging, batteryTime::noFigure},
        {onBattery(77), BatteryState::Draining, 77},
        {onBattery(-1), BatteryState::Draining, batteryTime::unknown},
        {{{"Power Source State", "Off Line"}}, BatteryState::Draining, batteryTime::unknown},
        {Dictionary::object(), BatteryState::Charged, batteryTime::unknown},
    };
    for (const auto& each : cases) {
        BatteryStatCollectorItemMac fresh(machine.context);
        fresh.setMaximumCapacity(each.description.contains("Percent") ? 100 : 4000);
        fresh.setCurrentCapacity(1800);
        fresh.processIOPS(each.description);
        EXPECT_EQ(fresh.state(), each.state) << each.description;
        EXPECT_EQ(fresh.time(), each.time) << each.description;
    }
    item.processIOPS(onBattery(5));
    item.processIOPS(Dictionary::object());
    EXPECT_EQ(item.source(), BatterySource::Unknown) << "a source that no longer says is not known";
    EXPECT_EQ(item.percentage(), 50) << "what is missing stays as it was";
}

TEST_F(BatteryItemTest, TheFirstEstimateAfterAChangeIsHeldBackForTenSeconds)
{
    item.processIOPS(onBattery(300));
    EXPECT_EQ(item.time(), 300) << "not at the first description";
    item.processIOPS(onAC({{"Is Charging", true}, {"Time to Full Charge", 600}}));
    EXPECT_EQ(item.time(), batteryTime::unknown);
    machine.runtime.advance(9.9);
    item.processIOPS(onAC({{"Is Charging", true}, {"Time to Full Charge", 90}}));
    EXPECT_EQ(item.time(), batteryTime::unknown);
    machine.runtime.advance(0.2);
    EXPECT_EQ(item.time(), 90) << "the newest estimate, without another description";

    item.processIOPS(onBattery(500));
    machine.runtime.advance(6);
    item.processIOPS(onAC({{"Is Charging", true}, {"Time to Full Charge", 80}}));
    machine.runtime.advance(6);
    EXPECT_TRUE(item.delay()) << "the later change counts";
    machine.runtime.advance(4.1);
    EXPECT_EQ(item.time(), 80);
    item.processIOPS(onBattery(500));
    item.processIOPS(onAC({{"Is Charged", true}}));
    EXPECT_EQ(item.time(), batteryTime::charged) << "full needs no estimate";
}

TEST_F(BatteryItemTest, NamesChargeAndConditionAreReadWithCare)
{
    item.setType(BatteryType::UPS);
    item.processIOPS(onBattery(5));
    EXPECT_EQ(item.name(), "");
    item.processIOPS({{"Name", " Back-UPS"}, {"Current Capacity", 100}, {"Power Source State", "Battery Power"},
        {"Time to Empty", 30}});
    EXPECT_EQ(item.name(), "Back-UPS");
    EXPECT_EQ(item.state(), BatteryState::Draining) << "whatever is left";
    EXPECT_EQ(item.time(), 30);
    item.processIOPS(onAC({{"Current Capacity", 100}}));
    EXPECT_EQ(item.state(), BatteryState::Charged) << "a UPS at 100 %";
    item.processIOPS({{"Name", "Other"}, {"Current Capacity", 170}, {"Voltage", 13000}});
    EXPECT_EQ(item.name(), "Back-UPS");
    EXPECT_EQ(item.percentage(), 100);
    item.processIOPS({{"Current Capacity", -4}});
    EXPECT_EQ(item.percentage(), 0);
    item.processIOPS({{"Current Capacity", 44}});
    item.processIOPS({{"Current Capacity", std::numeric_limits<double>::quiet_NaN()}});
    EXPECT_EQ(item.percentage(), 0);
    item.processIOPS({{"Current Capacity", "full"}, {"Voltage", "high"}, {"Current", nullptr}});
    EXPECT_EQ(item.percentage(), 0);
    EXPECT_EQ(item.voltage(), 13000);
    EXPECT_FALSE(item.amperage());
    EXPECT_FALSE(item.condition());
    item.processIOPS({{"BatteryHealth", "Fair"}});
    EXPECT_EQ(item.condition(), BatteryCondition::Fair);
    item.processIOPS({{"BatteryHealth", "Good"}, {"BatteryHealthCondition", "Permanent Battery Failure"}});
    EXPECT_EQ(item.condition(), BatteryCondition::PermanentFailure);
    item.processIOPS({{"BatteryHealth", "Splendid"}});
    EXPECT_EQ(item.condition(), BatteryCondition::PermanentFailure);
}

TEST_F(BatteryItemTest, TheControllerTellsHealthAndAgeOrNothing)
{
    item.processSmart({{"DesignCapacity", 0}, {"MaxCapacity", 4000}, {"ManufactureDate", 0}, {"CycleCount", -3}});
    EXPECT_EQ(item.name(), "Internal Battery");
    EXPECT_FALSE(item.health()) << "nothing was designed to hold nothing";
    EXPECT_FALSE(item.manufactureTime());
    EXPECT_FALSE(item.cycles());
    item.processSmart({{"DesignCapacity", 5000}, {"MaxCapacity", 0}});
    EXPECT_FALSE(item.health());
    item.processSmart({{"DesignCapacity", 5000}, {"MaxCapacity", 4375}, {"CycleCount", 211}, {"Amperage", -1500},
        {"Voltage", 12000}, {"ManufactureDate", packed(2021, 6, 15)}});
    EXPECT_EQ(item.health(), 87.5);
    EXPECT_EQ(item.cycles(), 211);
    EXPECT_EQ(item.power(), -18.0);
    EXPECT_EQ(item.manufactureTime(), 1'623'715'200.0);
    item.processSmart({{"DesignCapacity", 5000}, {"MaxCapacity", 5200}, {"ManufactureDate", packed(2022, 1, 1)}});
    EXPECT_EQ(item.health(), 100) << "a fresh pack holds more than it must";
    EXPECT_EQ(item.manufactureTime(), 1'623'715'200.0) << "once known it stays";
}

TEST_F(BatteryItemTest, SeveralBatteriesHaveATotal)
{
    BatteryStatCollectorItemMac second(machine.context);
    const auto total = [&](const Dictionary& one, const Dictionary& other) {
        item.processIOPS(one);
        second.processIOPS(other);
        for (auto* each : {&item, &second}) {
            each->cancelDelay();
        }
        return batteryTotal({&item, &second}).value();
    };
    EXPECT_FALSE(batteryTotal({&item}));
    Dictionary idle = onBattery(-1);
    EXPECT_EQ(total(onBattery(60), idle), (Dictionary{{"state", 2}, {"time", 120}, {"percentage", 50.0}}));
    item.processSmart({{"MaxCapacity", 2000}, {"Voltage", 10'000}, {"Amperage", -1000}});
    second.processSmart({{"MaxCapacity", 4000}, {"Voltage", 10'000}, {"Amperage", 0}});
    idle["Current Capacity"] = 100;
    EXPECT_EQ(
        total(onBattery(60), idle), (Dictionary{{"state", 2}, {"time", 300}, {"percentage", 83.0}, {"power", -10.0}}))
        << "at the rate of the one, until both are empty";
    const Dictionary full = onAC({{"Is Charged", true}, {"Current Capacity", 100}});
    EXPECT_EQ(total(onAC({{"Is Charging", true}, {"Time to Full Charge", 30}}), full)["time"], 30);
    EXPECT_EQ(total(onAC(), full)["state"], 3) << "not all of them are full";
    EXPECT_EQ(total(full, full)["time"], batteryTime::charged);
    second.setPercentage(std::nullopt);
    const Dictionary unknown = batteryTotal({&item, &second}).value();
    EXPECT_FALSE(unknown.contains("percentage"));
}

TEST(ManufactureDate, IsADayOfTheCalendarOrAbsent)
{
    EXPECT_EQ(packedManufactureDate(packed(1980, 1, 1)), 315'532'800.0);
    for (const std::int64_t nonsense : {0L, -1L, 0x10000L, 0xFFFFL, static_cast<long>(packed(2021, 13, 1)),
             static_cast<long>(packed(2021, 2, 30)), static_cast<long>(packed(2021, 0, 5))}) {
        EXPECT_FALSE(packedManufactureDate(nonsense)) << nonsense;
    }
    constexpr double day = 1'582'934'400; // 29 February 2020
    EXPECT_EQ(writtenManufactureDate("280229"), day);
    EXPECT_EQ(writtenManufactureDate(0x3932'3230'3832), day) << "as bytes in memory";
    for (const Value& nonsense : {Value("290229"), Value("28022"), Value("2802290"), Value("28 229"), Value(""),
             Value(-1), Value(28.5), Value(), Value::array({1})}) {
        EXPECT_FALSE(writtenManufactureDate(nonsense)) << nonsense;
    }
    EXPECT_EQ(
        manufactureDate({{"ManufactureDate", packed(2021, 6, 15)}, {"BatteryData", {{"ManufactureDate", "280229"}}}}),
        day);
    EXPECT_EQ(manufactureDate({{"ManufactureDate", packed(2021, 6, 15)}, {"BatteryData", {{"ManufactureDate", "?"}}}}),
        1'623'715'200.0);
    EXPECT_FALSE(manufactureDate({{"BatteryData", 7}}));
}

TEST_F(BatteryItemTest, TimeOnTheSourceLeavesSleepAndSetClocksOut)
{
    EXPECT_FALSE(item.awakeOnSource(0));
    item.processIOPS(onBattery(300));
    const double since = item.sourceTime();
    EXPECT_EQ(since, machine.runtime.wallTime());
    machine.runtime.advance(600);
    machine.runtime.sleepMachine(1000);
    item.processIOPS(onBattery(200));
    EXPECT_EQ(item.sourceTime(), since);
    EXPECT_NEAR(item.awakeOnSource(1000).value(), 600, 1e-6);
    machine.runtime.stepWallClock(1e9);
    EXPECT_NEAR(item.awakeOnSource(1000).value(), 600, 1e-6) << "a clock that was wrong until now";
    machine.runtime.stepWallClock(-2e9);
    EXPECT_EQ(item.awakeOnSource(1000), 0);

    item.setExternalSourceTime(true);
    item.setSourceTime(5);
    item.processIOPS(onAC());
    EXPECT_EQ(item.source(), BatterySource::AC);
    EXPECT_EQ(item.sourceTime(), 5);
}

} // namespace
} // namespace meridal::test
