// SPDX-License-Identifier: Apache-2.0
// What clients other than root may learn of power: averages over two seconds or more, to a tenth of a watt, on every way.

#include "tests/sensors/SensorsFixture.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <vector>

namespace meridal::test {
namespace {

bool isCoarse(double watts) { return std::abs(watts * 10 - std::round(watts * 10)) < 1e-9; }

const Value power = {{"key", "PC0C"}};
const SensorRecord package = sensorOf("TXPW", "chip-1", "Package", SensorKind::Power);

RC_GTEST_PROP(PowerAverages, AreMeansOverTwoSecondsOrMore, (const std::vector<std::uint8_t>& tenths))
{
    PowerAverages averages;
    double now = 1000;
    std::vector<std::pair<double, double>> all;
    for (const std::uint8_t step : tenths) {
        now += 0.1 * step / 4;
        all.emplace_back(now, step);
        averages.note("x", step, now);
        const auto average = averages.average("x", now);
        std::size_t count = 0;
        double sum = 0;
        double start = now;
        for (auto each = all.rbegin(); each != all.rend() && start - each->first <= PowerAverages::longestGap; ++each) {
            start = each->first;
            sum += each->second;
            ++count;
            if (now - start >= PowerAverages::span) {
                break;
            }
        }
        RC_ASSERT(average.has_value() == (now - start >= PowerAverages::span));
        RC_ASSERT(!average || std::abs(*average - sum / static_cast<double>(count)) < 1e-9);
    }
}

TEST_F(SensorsTest, OthersGetAveragesHoweverOftenTheyAsk)
{
    measure({{"PC0C", 10.04}});
    start();
    EXPECT_EQ(ask(power), 0) << "nothing has been averaged yet";
    machine.runtime.advance(10);
    EXPECT_EQ(ask(power), 10);
    measure({{"PC0C", 30.04}});
    EXPECT_EQ(ask(power), 10) << "asking again shows no new reading";
    for (int tick = 0; tick < 100; ++tick) {
        machine.runtime.advance(0.1);
        const double seen = ask(power);
        EXPECT_TRUE(isCoarse(seen)) << seen;
        EXPECT_TRUE(seen == 10 || seen == 20 || seen == 30) << seen;
    }
    EXPECT_EQ(ask(power), 30);
    EXPECT_EQ(ask(power, PowerDetail::Fine), 30.04) << "root sees power as it is";
    EXPECT_EQ(electric(Value::array({power}), PowerDetail::Fine)[0]["value"], 30.04);
}

TEST_F(SensorsTest, NoOtherNameForPowerShowsMore)
{
    measure({{"PC0C", 10.04}, {"pC1C", 20.04}, {"VC0C", 12'000}, {"IC0C", 1234}});
    start();
    const Value disguises = json(R"([{"key":"PC0C","type":0},{"key":"PC0CX"},{"key":"TX01","average":["PC0C"],"type":0},
        {"key":"TX02","average":["TXXX","pC1C"]},{"key":"VX01","multiply":["VC0C","IC0C"],"type":"watts"}])");
    for (const Value& disguise : disguises) {
        EXPECT_EQ(ask(disguise), 0) << disguise;
    }
    measure({{"P6AB", 40}}); // comes when the sensors are known already
    EXPECT_EQ(ask(json(R"({"key":"P6AB"})")), 0);
    measure({{"P4AB", 30'000'000}, {"P5AB", std::nullopt}});
    for (const char* unreadable : {R"({"multiply":["P4AB","ZZZZ"],"type":"watts"})", R"({"key":"P5AB"})",
             R"({"average":["ZZZZ"],"key":"P4AB","type":5})"}) {
        EXPECT_EQ(ask(json(unreadable)), 0) << unreadable;
    }
    EXPECT_EQ(ask(json(R"({"multiply":["P4AB","ZZZZ"]})")), -1) << "no product, and no key";
    machine.runtime.advance(6);
    for (const Value& disguise : disguises) {
        const double seen = ask(disguise);
        EXPECT_GT(seen, 5) << disguise;
        EXPECT_TRUE(isCoarse(seen)) << disguise << seen;
    }
    machine.runtime.advance(SensorsStatCollectorMac::watchedFor + 10);
    const auto before = source().reads["P6AB"];
    EXPECT_GT(before, 10);
    machine.runtime.advance(20);
    EXPECT_EQ(source().reads["P6AB"], before) << "what nobody asks for any more is no longer read";
}

TEST_F(SensorsTest, AClientsWordsChangeNothingThatTheHostFound)
{
    fit({{sensorOf("TC0P", "chip-1", "CPU", SensorKind::Temperature, {.high = 90}), 42}, {package, 10.06}});
    const Value given = json(R"([{"key":"TC0P","name":"mine","average":["TXPW"],"type":5,"low":1,"high":2},
        {"key":"TXPW","average":["TC0P"],"type":0},{"key":"TX01","average":["TXPW"],"type":0}])");
    for (const bool isAskedFirst : {true, false}) {
        start();
        if (!isAskedFirst) {
            list();
        }
        const Value entries = electric(given);
        daemon->service.supportedArmSensors(given, root);
        ASSERT_THAT(keysOf(entries), testing::ElementsAre("TC0P", "TXPW", "TX01"));
        EXPECT_EQ(entries[0]["config"], given[0]);
        EXPECT_EQ(entries[0]["high"], 2.0);
        machine.runtime.advance(10);
        EXPECT_EQ(sensor("TC0P").value(), 42);
        EXPECT_EQ(sensor("TC0P").high(), 90);
        EXPECT_EQ(sensor("TC0P").name(), "CPU");
        EXPECT_NEAR(sensor("TXPW").value(), 10.06, 1e-6);
        EXPECT_TRUE(collector().isPower(static_cast<const SensorStatCollectorItemMac&>(sensor("TXPW"))));
        EXPECT_NEAR(sensor("TX01").value(), 10.1, 1e-9) << "its record does not tell that it is power";
    }
}

TEST_F(SensorsTest, ListsAndHistoryAreAsCoarse)
{
    fit({{package, 10.06}});
    start();
    EXPECT_EQ(list()[0]["value"], nullptr);
    Value entries = electric(json(R"([{"key":"TXPW"}])"));
    EXPECT_EQ(entries[0]["value"], 0) << "told by the host, whatever the key's letter";
    EXPECT_EQ(ask(json(R"({"key":"TXPWX"})")), 0) << "the same key: its first four characters count";
    machine.runtime.advance(10);
    measure({{"TXPW", 90.06}});
    machine.runtime.advance(2);
    measure({{"TXPW", 10.06}});
    machine.runtime.advance(60);
    const Value listed = list()[0];
    EXPECT_NEAR(listed["value"].get<double>(), 10.1, 1e-9);
    EXPECT_NEAR(listed["highest"].get<double>(), 50.1, 1e-9) << "the highest average, not the highest reading";
    EXPECT_NEAR(list(PowerDetail::Fine)[0]["value"].get<double>(), 10.06, 1e-6);
    entries = electric(json(R"([{"key":"TXPW"}])"));
    EXPECT_NEAR(entries[0]["value"].get<double>(), 10.1, 1e-9);

    const auto samplesFor = [this](std::uint32_t user) {
        return history({{"series", "sensors/TXPW"}}, {.uid = user, .gid = user, .known = true}).at("samples");
    };
    ASSERT_GT(samplesFor(1000).size(), 5U);
    for (const Value& sample : samplesFor(1000)) {
        EXPECT_TRUE(isCoarse(sample["values"][0].get<double>())) << sample;
    }
    EXPECT_FALSE(isCoarse(samplesFor(0).back()["values"][0].get<double>()));
}

} // namespace
} // namespace meridal::test
