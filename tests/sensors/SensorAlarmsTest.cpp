// SPDX-License-Identifier: Apache-2.0
#include "tests/sensors/SensorsFixture.h"

#include <gmock/gmock.h>

namespace meridal::test {
namespace {

using Kind = SensorKind;
using enum SensorAlarm;

SensorRecord limited(Kind kind, std::optional<double> low, std::optional<double> high,
    std::optional<double> critical = {}, std::optional<double> lowCritical = {})
{
    return sensorOf("Txyz", "chip-1", "one", kind, {low, high, critical, lowCritical});
}

TEST(SensorAlarms, LimitsAndFlagsOfRealChips)
{
    const std::optional<double> no;
    SensorRecord macsFan = limited(Kind::Fan, 1350, 6000);
    macsFan.mayStandStill = true;
    SensorRecord core = limited(Kind::Temperature, no, no, 100);
    core.tellsCritical = true;
    constexpr SensorFlags none;
    constexpr SensorFlags channelFlag{.any = true};
    struct Case {
        const char* what;
        SensorRecord sensor;
        std::optional<double> value;
        SensorFlags flags;
        SensorAlarm expected;
    };
    const std::vector<Case> cases = {
        {"a fan that stands still", limited(Kind::Fan, 600, no), 0.0, none, Low},
        {"a fan that may", macsFan, 0.0, none, None},
        {"a fan without a minimum", limited(Kind::Fan, 0, no), 0.0, none, None},
        {"a fan beyond what it is made for", limited(Kind::Fan, no, 3300), 3312.0, none, None},
        {"a fan whose chip says so", limited(Kind::Fan, 600, no), 650.0, channelFlag, Low},
        {"a weak 12 V rail", limited(Kind::Voltage, 10.8, 13.2), 9.0, none, Low},
        {"at its limit", limited(Kind::Voltage, 10.8, 13.2), 13.2, none, None},
        {"too high", limited(Kind::Voltage, 10.8, 13.2), 13.21, none, High},
        {"a -12 V rail", limited(Kind::Voltage, -13.2, -10.8), -9.0, none, High},
        {"between two readings it was low", limited(Kind::Voltage, 10.8, 13.2), 11.0, channelFlag, Low},
        {"between two readings it was high", limited(Kind::Voltage, 10.8, 13.2), 13.0, channelFlag, High},
        {"which limit", limited(Kind::Voltage, 10.8, 13.2), 13.0, {.low = true}, Low},
        {"nct6775, nobody set limits", limited(Kind::Voltage, 0, 0), 1.0, channelFlag, None},
        {"nct6775, SYSTIN", limited(Kind::Temperature, no, 0), 119.0, {.any = true, .high = true}, None},
        {"jc42 from the factory", limited(Kind::Temperature, 0, 0, 0), 37.5, {.high = true, .critical = true}, None},
        {"jc42 with one limit set", limited(Kind::Temperature, 0, 0, 85), 86.0, none, Critical},
        {"nvme, no limits but one", limited(Kind::Temperature, -273.15, 65261.85, 84.75), 40.0, none, None},
        {"nvme, which has no limits", limited(Kind::Temperature, -273.15, 65261.85), 40.0, channelFlag, High},
        {"a processor that throttles", limited(Kind::Temperature, no, no, 100), 100.0, none, None},
        {"critical", limited(Kind::Temperature, no, 80, 100), 100.1, none, Critical},
        {"coretemp, which has its own flag", core, 101.0, none, None},
        {"coretemp, which says so", core, 99.0, {.critical = true}, Critical},
        {"acpitz, a zone that is not used", limited(Kind::Temperature, no, no, 20.8), 27.8, none, None},
        {"high", limited(Kind::Temperature, no, 80, 100), 99.0, none, High},
        {"frozen", limited(Kind::Temperature, 0, 80, 100, -10), -10.1, none, Critical},
        {"cold", limited(Kind::Temperature, 0, 80, 100, -10), -10.0, none, Low},
        {"an open diode", limited(Kind::Temperature, no, 80), no, {.high = true, .fault = true}, Fault},
        {"no value", limited(Kind::Temperature, 10, 80), no, none, None},
        {"no limits", limited(Kind::Power, no, no), 900.0, none, None},
    };
    for (Case each : cases) {
        const SensorFlags meaningless = dropUnsetLimits(each.sensor);
        const SensorFlags flags = meant(each.flags, meaningless);
        EXPECT_EQ(sensorAlarmName(sensorAlarm(each.sensor, each.value, flags)), sensorAlarmName(each.expected))
            << each.what;
    }
}

TEST_F(SensorsTest, ListsTellWhatIsWrong)
{
    const auto keyed = [](const char* key, SensorRecord each) {
        each.key = key;
        return each;
    };
    fit({{keyed("F0Ac", limited(Kind::Fan, 600, {})), 0}, {keyed("F1Ac", limited(Kind::Fan, 600, {})), 0},
        {keyed("T0AB", limited(Kind::Temperature, {}, 80)), 41.3},
        {keyed("T0AC", limited(Kind::Temperature, 0, 0, 0)), 37}});
    measure({{"TC0P", -5}, {"TC1P", 101}});
    source().raised = {{"T0AB", {.any = true}}, {"T0AC", {.high = true, .critical = true}}, {"F1Ac", {.any = true}}};
    start();
    electric(json(R"([{"key":"TC0P","high":100},{"key":"TC1P","high":100}])"));
    const auto alarms = [this] {
        std::map<std::string, Value> found;
        for (const Value& sensor : list()) {
            found.emplace(sensor["key"], sensor["alarm"]);
        }
        return found;
    };
    machine.runtime.advance(5);
    EXPECT_THAT(alarms(), testing::AllOf(testing::SizeIs(6), testing::Each(testing::Pair(testing::_, Value()))))
        << "fans may not be connected, the first flags may be of last week, and a client's range is that of its gauge";
    EXPECT_EQ(list()[2]["value"], 41.3);
    machine.runtime.advance(10);
    EXPECT_EQ(alarms()["T0AB"], "high");
    EXPECT_EQ(alarms()["F1Ac"], "low") << "its chip says so";
    measure({{"F0Ac", 900}});
    source().raised = {{"T0AB", {.fault = true}}};
    machine.runtime.advance(10);
    EXPECT_EQ(alarms()["T0AB"], "fault");
    EXPECT_EQ(alarms()["F0Ac"], nullptr);
    measure({{"F0Ac", 0}});
    source().raised = {};
    machine.runtime.advance(SensorAlarms::heldFor - 6);
    EXPECT_EQ(alarms()["T0AB"], "fault") << "another program may have read it away";
    EXPECT_EQ(alarms()["F0Ac"], "low") << "it ran, and stopped";
    machine.runtime.advance(10);
    EXPECT_EQ(alarms()["T0AB"], nullptr);
}

} // namespace
} // namespace meridal::test
