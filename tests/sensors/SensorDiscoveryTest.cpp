#include "collectors/sensors/SensorKind.h"
#include "tests/sensors/SensorsFixture.h"

#include <gmock/gmock.h>

#include <limits>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(SensorsTest, OfWhatAClientKnowsItGetsWhatIsThere)
{
    smc().set("TC0P", "sp78", {0x29, 0x80});
    measure({{"VC0C", 1.25F}, {"TH0P", 254}, {"TG0D", 254}, {"TNaN", std::numeric_limits<float>::quiet_NaN()},
        {"F0Ac", 1000}});
    start();
    const Value given = json(R"([{"key":"TC0P","name":"CPU","low":"10","high":90.5,"extra":[1]},
        {"key":"VC0C","name":"Core","low":0,"high":0},{"key":"TXXX"},{"key":"TH0P"},{"key":"TG0D"},{"key":"TNaN"},
        {"key":"F0Ac"},{"key":"TC0PX"},{"key":"TC0"},{"name":"keyless"},17,null,[]])");
    const Value entries = electric(given, PowerDetail::Fine);
    ASSERT_THAT(keysOf(entries), ElementsAre("TC0P", "VC0C", "TG0D", "TNaN"));
    EXPECT_EQ(entries[0],
        (Value{{"type", 0}, {"config", given[0]}, {"key", "TC0P"}, {"name", "CPU"}, {"value", 41.5}, {"low", 0.0},
            {"high", 90.5}}));
    EXPECT_EQ(
        entries[1], (Value{{"type", 3}, {"config", given[1]}, {"key", "VC0C"}, {"name", "Core"}, {"value", 1.25}}));
    EXPECT_EQ(entries[3]["value"], 0.0) << "nothing that leaves the daemon is no number";
    for (const char* nonsense : {"null", "{}", "17", "\"TC0P\"", "[[[]]]"}) {
        EXPECT_EQ(electric(json(nonsense), PowerDetail::Fine), Value::array());
        EXPECT_EQ(daemon->service.supportedFans(json(nonsense)), Value::array());
        EXPECT_EQ(daemon->service.supportedArmSensors(json(nonsense)), Value::array());
    }
}

TEST_F(SensorsTest, ComputedSensorsNeedAllTheirFactors)
{
    measure({{"VC0C", 12'000}, {"IC0C", -1500}, {"TC0P", 40}});
    start();
    const Value given = json(R"([{"key":"XW01","multiply":["VC0C","IC0C"],"type":"watts"},
        {"key":"XW02","multiply":["VC0C","IXXX","IC0C"],"type":"watts"},{"key":"XA01","average":["TXXX","TYYY"]}])");
    const Value entries = electric(given, PowerDetail::Fine);
    EXPECT_THAT(keysOf(entries), ElementsAre("XW01", "XA01")) << "the keys of an average are not checked";
    EXPECT_EQ(entries[0]["type"], sensorKind::power);

    const auto valueOf = [this](const char* text) { return collector().valueForConfig(json(text)); };
    EXPECT_EQ(collector().valueForConfig(given[0]), 18);
    EXPECT_EQ(collector().valueForConfig(given[2]), 0);
    EXPECT_EQ(valueOf(R"({"average":["TC0P","TXXX","VC0C","IC0C"]})"), 6020) << "of those above 0";
    EXPECT_EQ(valueOf(R"({"key":"TC0P","multiply":["VC0C"],"type":"watts"})"), 40) << "a product of one is none";
    EXPECT_EQ(valueOf(R"({"key":"TXXX"})"), -1);
    for (const char* nonsense : {"null", "{}", "[1]", R"({"key":{}})", R"({"average":[]})"}) {
        const double value = valueOf(nonsense);
        EXPECT_TRUE(value == 0 || value == -1) << nonsense;
    }
}

TEST_F(SensorsTest, FansOfAnEmulatedSMCNameThemselves)
{
    emulate();
    smc().set("FNum", "ui8 ", {11});
    for (const char* prefix : {"F0", "F9", "FA"}) {
        smc().set(std::string(prefix) + "Ac", "fpe2", {0x12, 0xC0});
        smc().set(std::string(prefix) + "ID", "{fds", {0, 1, 'C', ' ', 'P', 'U', 0, 0xFF});
        smc().set(std::string(prefix) + "Mn", "fpe2", {0x0C, 0x80});
        smc().set(std::string(prefix) + "Mx", "fpe2", {0x32, 0x00});
    }
    smc().set("F1Ac", "fpe2", {0x12, 0xC0}); // a fan without a name is not shown
    start();
    const Value fans = daemon->service.supportedFans(Value());
    ASSERT_THAT(keysOf(fans), ElementsAre("F0Ac", "F9Ac", "FAAc"));
    EXPECT_EQ(fans[2],
        (Value{{"type", 2}, {"config", {{"key", "FAAc"}, {"name", "CPU\xEF\xBF\xBD"}}}, {"key", "FAAc"},
            {"name", "CPU\xEF\xBF\xBD"}, {"value", 1200.0}, {"low", 800.0}, {"high", 3200.0}}));
    EXPECT_THAT(collector().allFans(), SizeIs(3));
    EXPECT_EQ(collector().fanControlFans().front()->nameFanControl(), "CPU\xEF\xBF\xBD");
    EXPECT_EQ(collector().allFans().front()->alternateKey(), "99654870");
}

TEST_F(SensorsTest, OtherFansNeedAClientThatKnowsThem)
{
    measure({{"FNum", 3}, {"F0Ac", 1500}, {"F1Ac", 1500}, {"F2Ac", 1500}, {"F1Mx", 6000}});
    start();
    const Value fans = daemon->service.supportedFans(json(R"([{"key":"F1Ac","name":"Left","low":1200,"high":1}])"));
    ASSERT_THAT(keysOf(fans), ElementsAre("F1Ac"));
    EXPECT_EQ(fans[0]["name"], "Left");
    EXPECT_EQ(fans[0]["low"], 1200);
    EXPECT_EQ(fans[0]["high"], 6000);
    for (const float count : {-1.0F, 0.0F, 1e30F, std::numeric_limits<float>::quiet_NaN()}) {
        smc().setFloat("FNum", count);
        EXPECT_LE(daemon->service.supportedFans(json(R"([{"key":"F1Ac"}])")).size(), 1U);
    }
}

TEST_F(SensorsTest, AFanLearnsItsLimitsFromItsKeys)
{
    measure({{"F1Mn", 900}, {"F1Mx", 4000}});
    start();
    SensorStatCollectorItemMac fan(machine.context, daemon->smc, SMCOrigin::Own);
    fan.setKey("F1Ac");
    fan.loadMinimumValue();
    EXPECT_EQ(fan.low(), 900);
    fan.setHigh(5000);
    fan.loadMaximumValue();
    EXPECT_EQ(fan.high(), 5000) << "only ever raised";
    fan.setHigh(3000);
    fan.loadMaximumValue();
    EXPECT_EQ(fan.high(), 4000);
}

TEST_F(SensorsTest, ServicesAndTheirAverages)
{
    auto& temperatures = machine.sensorServices().services[{0xFF00, 5}];
    temperatures = {{"pACC MTR Temp Sensor1", 40.0}, {std::nullopt, 99.0}, {"pACC MTR Temp Sensor2", 50.0},
        {"eACC \xFF", std::nullopt}, {"gas gauge battery", 30.0}, {"gas gauge battery", 31.0},
        {"hot", std::numeric_limits<double>::infinity()}};
    start();
    const Value all = daemon->arm.sensors();
    EXPECT_THAT(keysOf(all),
        ElementsAre("pACC MTR Temp Sensor1", "pACC MTR Temp Sensor2", "gas gauge battery", "gas gauge battery",
            "AS_SOCDIE_AVERAGE", "AS_EFF_AVG", "AS_PERF_AVG", "AS_PMDIE_AVG", "AS_PMSOC_AVG"));
    EXPECT_EQ(all[0], (Value{{"key", "pACC MTR Temp Sensor1"}, {"value", 40.0}, {"type", "0"}}));
    EXPECT_EQ(all[6], (Value{{"key", "AS_PERF_AVG"}, {"name", "pACC"}, {"type", 0}, {"value", 45.0}}));
    EXPECT_EQ(all[5]["value"], 0.0);
    EXPECT_EQ(machine.sensorServices().asked.back(),
        (SensorServiceQuery{.usagePage = 65280, .usage = 5, .eventType = 15, .field = 15U << 16U}));

    const Value entries = daemon->service.supportedArmSensors(
        json(R"([{"key":"AS_PERF_AVG","name":"Fast cores","high":110},{"key":"AS_EFF_AVG"},{"key":"TC0P"}])"));
    ASSERT_THAT(keysOf(entries),
        ElementsAre("pACC MTR Temp Sensor1", "pACC MTR Temp Sensor2", "gas gauge battery", "AS_PERF_AVG"))
        << "an average of nothing is no sensor";
    EXPECT_EQ(entries[0]["name"], "pACC MTR 1");
    EXPECT_EQ(entries[3]["name"], "Fast cores");
    machine.runtime.advance(5);
    EXPECT_EQ(sensor("AS_PERF_AVG").value(), 45);
    EXPECT_TRUE(sensor("pACC MTR Temp Sensor1").hasValue()) << "its first letter is no kind: services are temperatures";

    temperatures.clear();
    machine.runtime.advance(4);
    EXPECT_FALSE(sensor("AS_PERF_AVG").hasValue()) << "not 0 degrees";
    EXPECT_EQ(sensor("AS_PERF_AVG").lowestRecordedValue(), 45);

    machine.sensorServices().services[{0xFF08, 3}] = {{"VDD", 12'000.0}};
    EXPECT_EQ(daemon->arm.sensors(armSensorsMatching(0xFF08, 3), 25)[0]["value"], 12.0);
}

TEST_F(SensorsTest, AnSMCThatNobodyNamesIsListedByItsKeys)
{
    smc().set("TC0P", "sp78", {0x29, 0x80});
    smc().set("TCNT", "ui8 ", {5});
    measure({{"VC0C", 1.25F}, {"TZ0C", -120}, {"BTMP", 30}, {"IC0C", 3}, {"PC0C", 0}}); // the last is not fitted
    smc().keys["IC0C"].readFails = true;
    start();
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P", "VC0C"));
    electric(json(R"([{"key":"TC0P","name":"CPU Proximity"}])"));
    EXPECT_EQ(list()[0]["name"], "CPU Proximity");
    EXPECT_EQ(list()[1]["name"], "VC0C");
}

TEST_F(SensorsTest, ItemsAreBounded)
{
    start();
    Value given = Value::array();
    for (int number = 0; number < 3000; ++number) {
        const std::string key = std::to_string(1000 + number);
        given.push_back({{"key", key}, {"name", std::string(1000, 'n')}, {"average", {"TC0P"}}});
    }
    EXPECT_THAT(electric(given), SizeIs(3000));
    EXPECT_THAT(collector().items(), SizeIs(SensorsStatCollectorMac::mostItems));
    EXPECT_LE(collector().sensors().front()->name().size(), 256U);

    machine.sensorChannels().change({{"TC1P", "chip-1", "CPU", SensorChannelKind::Temperature, {}, {}, {}}});
    smc().setFloat("TC1P", 41);
    smc().generation++;
    machine.runtime.advance(12);
    EXPECT_TRUE(collector().sensorWithKey("TC1P")) << "clients leave room for what the host has";
    const auto before = smc().count(SMCCommand::ReadKey);
    machine.runtime.advance(2);
    EXPECT_EQ(smc().count(SMCCommand::ReadKey) - before, 2) << "each key once, however many figures are made of it";
}

TEST_F(SensorsTest, WhatClientsMakeUpIsForgottenAfterAnHour)
{
    smc().setFloat("TC0P", 40);
    start();
    const Value given = json(R"([{"key":"TC0P"},{"key":"XA01","average":["TXXX"]}])");
    electric(given);
    machine.runtime.advance(SensorsStatCollectorMac::unprovenFor - 10);
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P", "XA01"));
    machine.runtime.advance(20);
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P"));
    daemon.reset();
    EXPECT_THAT(rows("select * from client_sensors"), SizeIs(1));
    EXPECT_THAT(rows("select * from sensor_limits"), SizeIs(1));
}

TEST_F(SensorsTest, ARequestReadsAKeyOnceAndNotWithoutEnd)
{
    smc().setFloat("TC0P", 40);
    start();
    Value given = Value::array();
    for (int number = 0; number < 600; ++number) {
        given.push_back({{"key", "TC0P"}, {"average", std::vector<std::string>(mostConfiguredKeys, "TC0P")}});
    }
    const auto read = [&](const Value& configurations) {
        const auto before = smc().count(SMCCommand::ReadKey);
        const auto values = daemon->service.sensorValues(configurations, PowerDetail::Averaged);
        EXPECT_EQ(values.size(), configurations.size());
        EXPECT_EQ(values.front(), 40);
        return smc().count(SMCCommand::ReadKey) - before;
    };
    list(); // its own reading
    EXPECT_EQ(read(given), 1);
    Value all = Value::array({{{"key", "TC0P"}}});
    for (int number = 0; number < 9000; ++number) {
        all.push_back({{"key", std::to_string(1000 + number)}});
    }
    EXPECT_EQ(read(all), static_cast<std::ptrdiff_t>(SensorsStatCollectorMac::mostKeysAsked));
    const auto before = smc().count(SMCCommand::ReadKey);
    electric(all);
    EXPECT_LE(smc().count(SMCCommand::ReadKey) - before,
        static_cast<std::ptrdiff_t>(2 * SensorsStatCollectorMac::mostKeysAsked + SensorsStatCollectorMac::mostItems));

    // A figure of many keys is answered, but not sampled.
    const auto meanOf = [](std::size_t keys) {
        return Value{{"key", "XA" + std::to_string(keys)}, {"average", std::vector<std::string>(keys, "TC0P")}};
    };
    const Value means = Value::array({meanOf(mostSampledKeys), meanOf(mostSampledKeys + 1)});
    EXPECT_THAT(electric(means), SizeIs(2));
    EXPECT_EQ(ask(means[1]), 40);
    EXPECT_TRUE(collector().sensorWithKey("XA16"));
    EXPECT_FALSE(collector().sensorWithKey("XA17"));
}

} // namespace
} // namespace meridal::test
